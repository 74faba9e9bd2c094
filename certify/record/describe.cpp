#include <algorithm>
#include <array>
#include <cstdio>
#include <ctime>

#include "certify/record/events.h"
#include "certify/record/message_name.h"
#include "certify/record/visible_text.h"

namespace client = quorl::client;

namespace certify {
namespace {

constexpr size_t SUBJECT_WIDTH = 8;
constexpr size_t NAME_WIDTH = 16;
constexpr size_t LONGEST_TEXT = 400;
constexpr size_t MOST_RANGES = 8;

std::string padded(std::string text, size_t width) {
  if (text.size() < width) text.resize(width, ' ');
  return text;
}

/// "FIX 1   > text": who, which way, what.
std::string line(const std::string& subject, char way, const std::string& text) {
  return padded(subject, SUBJECT_WIDTH) + way + ' ' + text;
}

char way_of(Party from) { return from == Party::CLIENT ? '>' : '<'; }
const char* name_of(Party party) { return party == Party::CLIENT ? "client" : "exchange"; }

std::string fix(uint32_t connection) { return "FIX " + std::to_string(connection); }
std::string gap(uint32_t number) { return "gap " + std::to_string(number); }
std::string image(uint32_t connection) { return "image " + std::to_string(connection); }

std::string text_of(std::string_view text) { return visible(text, LONGEST_TEXT); }

std::string span(uint64_t first, uint64_t last) {
  if (first == last) return std::to_string(first);
  return std::to_string(first) + " to " + std::to_string(last);
}

std::string counted(uint64_t count, const std::string& noun) {
  return std::to_string(count) + ' ' + noun + (count == 1 ? "" : "s");
}

std::string joined(const std::vector<std::string>& texts) {
  std::string all;
  for (const std::string& text : texts) all.append(all.empty() ? "" : "; ").append(text);
  return all;
}

std::string text_of(const FixOpened& event) {
  return line(fix(event.connection), ' ',
              event.reached ? "connected" : "connected, but the exchange took nobody: reset");
}

std::string text_of(const FixHeard& event) {
  const WireMessage& message = event.message;
  std::string text = padded(certify::name_of(message), NAME_WIDTH) + message.brief();
  if (!message.flaws().empty()) text += "  [" + joined(message.flaws()) + "]";
  if (!message.taken_by_exchange() && event.from == Party::CLIENT) text += "  [dropped unread]";
  return line(fix(event.connection), way_of(event.from), text);
}

std::string text_of(const FixGarbage& event) {
  const std::string what = event.at_end ? "an unfinished message: " : "no message: ";
  return line(fix(event.connection), way_of(event.from),
              what + counted(event.size, "byte") + " '" + text_of(event.bytes) + "'");
}

std::string text_of(const FixEnded& event) {
  const std::string end = event.reset ? "reset" : "ended";
  if (event.by_link) return line(fix(event.connection), way_of(event.by), end + " by the link");
  return line(fix(event.connection), way_of(event.by), end + " by the " + name_of(event.by));
}

std::string text_of(const FeedHeard& event) {
  const client::TpHeader& header = event.packet.header;
  if (event.packet.is_heartbeat()) {
    return line("feed", ' ', "heartbeat, next " + std::to_string(header.first_seq));
  }
  const uint64_t last = header.first_seq + header.message_count - 1;
  return line("feed", ' ', "packet " + span(header.first_seq, last));
}

std::string text_of(const FeedFault& event) {
  constexpr std::array<const char*, 3> KINDS = {"lost", "held back", "sent twice"};
  std::string packet = "packet from " + std::to_string(event.first_seq) + " on";
  if (event.messages != 0) {
    packet = "packet " + span(event.first_seq, event.first_seq + event.messages - 1);
  }
  return line("feed", ' ', packet + ' ' + KINDS[static_cast<size_t>(event.kind)]);
}

std::string text_of(const GapRequested& event) {
  std::string text = event.ranges.empty() ? "asks for the status" : "asks for ";
  for (size_t i = 0; i < std::min(event.ranges.size(), MOST_RANGES); ++i) {
    if (i != 0) text += ", ";
    text += span(event.ranges[i].first, event.ranges[i].last);
  }
  if (event.ranges.size() > MOST_RANGES) {
    text += " and " + counted(event.ranges.size() - MOST_RANGES, "more range");
  }
  if (!event.well_formed) text = "malformed request: " + event.flaw;
  return line(gap(event.line), '>', text);
}

std::string text_of(const GapReplied& event) {
  const client::TpHeader& header = event.packet.header;
  if (event.packet.messages.empty()) {
    return line(gap(event.line), '<', "status: next is " + std::to_string(header.first_seq));
  }
  const uint64_t last = header.first_seq + event.packet.messages.size() - 1;
  return line(gap(event.line), '<', "brings " + span(header.first_seq, last));
}

std::string text_of(const ImageRequested& event) {
  if (!event.well_formed) {
    return line(image(event.connection), '>', "malformed request: " + event.flaw);
  }
  const std::string minimum =
      event.minimum_seq == 0 ? "" : " at " + std::to_string(event.minimum_seq) + " or later";
  return line(image(event.connection), '>', "asks for an image" + minimum);
}

std::string meaning_of_image_error(char code) {
  switch (code) {
    case 'U':
      return "not a request";
    case 'A':
      return "no name";
    case 'C':
      return "another channel";
    case 'S':
      return "another session";
    case 'R':
      return "the feed is not so far yet";
    default:
      return "not a known reason";
  }
}

std::string text_of(const ImageReplied& event) {
  std::string text;
  if (event.complete) {
    text = "image at " + std::to_string(event.seq) + ", " + counted(event.bytes, "byte");
  } else if (event.error != 0) {
    text = std::string("refused: ") + visible({&event.error, 1}, SUBJECT_WIDTH) + ", " +
           meaning_of_image_error(event.error);
  } else if (event.client_left) {
    text = "no answer: the client ended its side first";
  } else if (event.bytes == 0) {
    text = "no answer";
  } else {
    text = "image broken off behind " + counted(event.bytes, "byte");
  }
  return line(image(event.connection), '<', text);
}

std::string text_of(const Decision& event) {
  const client::OrderEvent& order = event.order;
  std::string text = padded(order.ev, NAME_WIDTH) + text_of(order.cl);
  if (order.oid != 0) text += " (" + std::to_string(order.oid) + ")";
  text +=
      ' ' + order.symbol + ' ' + order.side + ' ' + std::to_string(order.qty) + " @ " + order.px;
  if (order.last_qty != 0) text += ", " + std::to_string(order.last_qty) + " now";
  text += ", done " + std::to_string(order.cum) + ", open " + std::to_string(order.leaves);
  if (!order.text.empty()) text += ", '" + text_of(order.text) + "'";
  if (order.ref) text += ", of " + text_of(*order.ref);
  return line("decided", ' ', visible(text, LONGEST_TEXT));
}

std::string text_of(const Commanded& event) {
  return line("control", '>', text_of(event.command) + " -> " + text_of(event.reply));
}

std::string text_of(const ExchangeSaid& event) {
  return line("exchange", ' ', text_of(event.line));
}

std::string text_of(const Counted& event) {
  std::string text;
  for (const auto& [name, count] : event.counters) {
    if (count == 0) continue;
    text.append(text.empty() ? "" : " ").append(name).append("=").append(std::to_string(count));
  }
  return line("counters", ' ', text.empty() ? "all 0" : text_of(text));
}

std::string text_of(const LinkSaid& event) { return line("link", ' ', text_of(event.what)); }
std::string text_of(const PlanSaid& event) { return line("plan", ' ', text_of(event.what)); }

std::string text_of(const BeliefTaken& event) {
  return line("belief", ' ',
              event.mark.empty() ? "taken at the end" : "taken at mark " + text_of(event.mark));
}

std::string text_of(const ClientStarted&) { return line("client", ' ', "started"); }

std::string text_of(const ClientEnded& event) {
  return line("client", ' ',
              (event.by_itself ? "ended by itself: " : "ended: ") + text_of(event.how));
}

std::string text_of(const Closing& event) {
  return line("run", ' ', "closing: " + text_of(event.why));
}

}  // namespace

std::string describe(const Event& event) {
  return std::visit([](const auto& what) { return text_of(what); }, event.what);
}

std::string time_text(TimeNs at) {
  constexpr TimeNs MICROSECOND = 1'000;
  const auto seconds = static_cast<time_t>(at / SECOND);
  const auto micros = static_cast<int>(at % SECOND / MICROSECOND);
  std::tm utc{};
  ::gmtime_r(&seconds, &utc);
  std::array<char, 64> text{};
  std::snprintf(text.data(), text.size(), "%02d:%02d:%02d.%06d", utc.tm_hour, utc.tm_min,
                utc.tm_sec, micros);
  return text.data();
}

}  // namespace certify
