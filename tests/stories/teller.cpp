#include "stories/teller.h"

#include <exception>

#include "stories/telling.h"

namespace stories {

void Telling::run() {
  with_symbols_ = symbols_of(story_).size() > 1;
  if (story_.begins_empty) sweep();
  for (const std::string& connection : story_.logged_on) log_on(connection);
  world_.act({});
  collect();
  feed_.clear();
  lines_.clear();
  events_.clear();
  counted_ = counters_of(world_.stats());
  course_.clear();

  for (size_t i = 0; i < story_.steps.size();) {
    std::vector<const Step*> together = {&story_.steps[i++]};
    while (i < story_.steps.size() && story_.steps[i].same_turn) {
      together.push_back(&story_.steps[i++]);
    }
    for (const Step* step : together) note(std::to_string(step->line) + ": " + step->text);
    try {
      if (together.front()->kind <= Kind::CONTROL) {
        do_acts(together);
      } else {
        carry_out(*together.front());
      }
    } catch (const std::exception& broken) {
      fail("line " + std::to_string(together.front()->line) + ": " + together.front()->text + "\n" +
           broken.what());
    }
  }
  world_.act({});
  collect();
  demand_nothing_else();
  check_counts({});
  world_.end();
  for (const std::string& connection : open_) collect_from(connection, true);
  for (const std::string& connection : open_) {
    drop_beats(connection);
    if (!fix_.waiting(connection).empty()) {
      fail(connection + " hears at the end: " + fix_.waiting(connection).front().text());
    }
    if (fix_.pending(connection) != 0) fail(connection + " hears a part of a message at the end");
  }
}

std::string Telling::course() const {
  std::string text;
  for (const std::string& line : course_) text += "  " + line + "\n";
  return text;
}

Outcome tell(const Story& story, World& world) {
  Telling telling(story, world);
  Outcome outcome;
  try {
    telling.run();
  } catch (const std::exception& broken) {
    outcome.failure = story.name + ", " + broken.what();
  }
  outcome.course = telling.course();
  outcome.disturbed = telling.disturbed();
  return outcome;
}

}  // namespace stories
