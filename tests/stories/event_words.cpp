#include "stories/event_words.h"

namespace stories {

std::string words_of(const client::OrderEvent& event) {
  const std::string order = (event.symbol.empty() ? "-" : event.symbol) + " " +
                            (event.side == " " ? "-" : event.side) + " ";
  std::string text = event.ev + " " + event.cl + " oid " + std::to_string(event.oid) + " " + order +
                     std::to_string(event.qty) + " @ " + event.px + " cum " +
                     std::to_string(event.cum) + " leaves " + std::to_string(event.leaves) +
                     " last " + std::to_string(event.last_qty) + " \"" + event.text + "\"";
  if (event.ref) text += " ref " + *event.ref;
  return text;
}

}  // namespace stories
