#include <algorithm>
#include <optional>
#include <variant>

#include "stories/feed_words.h"
#include "stories/telling.h"

namespace stories {

std::map<std::string, uint64_t> counters_of(const client::ControlStats& stats) {
  std::map<std::string, uint64_t> counters = stats.counters;
  counters.erase("logins");  // the twin of "logons": they are read as equal
  counters["dropped"] = stats.faults.dropped;
  counters["duplicated"] = stats.faults.duplicated;
  counters["reordered"] = stats.faults.reordered;
  return counters;
}

void Telling::carry_out(const Step& step) {
  switch (step.kind) {
    case Kind::PASS:
      // Where time passes by itself, what it brings may come while the story is getting there.
      if (!world_.time_passes()) demand_nothing_else();
      world_.pass(step.ms);
      return collect();
    case Kind::REST:
      return rest(step);
    case Kind::HEAR:
      return hear(step);
    case Kind::CLOSED:
      return check_closed(step);
    case Kind::FEED:
      return check_feed(step);
    case Kind::COUNTS:
      return check_counts(step.rises);
    case Kind::LOG:
      return check_line(lines_, step.words, "standard error");
    case Kind::EVENT:
      return check_line(events_, step.words, "the order event file");
    default:
      fail("is no step of its own");
  }
}

/// What any order does that comes to rest, so that a story can begin behind it.
void Telling::rest(const Step& step) {
  Step order = step;
  Step answer = step;
  order.kind = Kind::SEND;
  order.words = "D";
  answer.kind = Kind::HEAR;
  answer.words = "8";
  answer.fields = {{150, "0"}, {39, "0"}};
  const auto is_of_the_answer = [](const FieldWords& field) {
    return field.tag == 37 || field.tag == 17;
  };
  for (const FieldWords& field : step.fields) {
    if (is_of_the_answer(field)) answer.fields.push_back(field);
  }
  std::erase_if(order.fields, is_of_the_answer);
  do_acts({&order});
  hear(answer);
  if (feed_.empty()) fail("the feed shows no level");
  const auto* const level = std::get_if<client::LevelUpdate>(&feed_.front());
  if (level == nullptr || level->size == 0 || !level->last_of_event) {
    fail("the feed shows no order that rests but " + words_of(feed_.front(), with_symbols_, true));
  }
  feed_.pop_front();
  if (!events_.empty() && events_.front().starts_with("new ")) events_.pop_front();
  ++counted_["orders"];
  ++counted_["accepts"];
}

void Telling::hear(const Step& step) {
  if (!open_.contains(step.connection)) fail(step.connection + " is not connected");
  std::deque<FixMessage>& waiting = fix_.waiting(step.connection);
  const bool wants_beat = step.words == "0";
  if (!wants_beat) drop_beats(step.connection);
  while (waiting.empty()) {
    collect_from(step.connection, true);
    if (waiting.empty()) fail(step.connection + " hears nothing");
    if (!wants_beat) drop_beats(step.connection);
  }
  const FixMessage message = std::move(waiting.front());
  waiting.pop_front();
  if (message.type() != step.words) fail("instead: " + message.text());
  const auto names = [&step](int tag) {
    return std::any_of(step.fields.begin(), step.fields.end(),
                       [tag](const FieldWords& field) { return field.tag == tag; });
  };
  for (const FieldWords& field : step.fields) check_field(message, field);
  if (!names(43) && message.has(43)) fail("43 is not named: " + message.text());
  if (message.has(43)) return;  // a number of the past
  uint32_t& next_in = fix_.next_in(step.connection);
  if (!names(34) && message.seq() != next_in) {
    fail("its number is not " + std::to_string(next_in) + ": " + message.text());
  }
  next_in = message.seq() + 1;
}

void Telling::check_field(const FixMessage& message, const FieldWords& field) {
  const std::optional<std::string> value = message.find(field.tag);
  const bool right = field.absent ? !value : value && names_.match(field.value, *value);
  if (!right) fail("tag " + std::to_string(field.tag) + " is not so: " + message.text());
}

void Telling::check_closed(const Step& step) {
  if (!open_.contains(step.connection)) fail(step.connection + " is not connected");
  if (!world_.closed(step.connection, true)) fail(step.connection + " is not closed");
  collect_from(step.connection, false);
  drop_beats(step.connection);
  if (!fix_.waiting(step.connection).empty()) {
    fail("ahead of that: " + fix_.waiting(step.connection).front().text());
  }
  if (fix_.pending(step.connection) != 0) fail("ahead of that: a part of a message");
  open_.erase(step.connection);
}

/// "5 300 @ 190.00 last; T 300 @ 190.00".
void Telling::check_feed(const Step& step) {
  for (size_t at = 0; at < step.words.size();) {
    const size_t end = std::min(step.words.find("; ", at), step.words.size());
    const std::string expected = step.words.substr(at, end - at);
    at = end + 2;
    if (feed_.empty()) collect_feed(/*wait=*/true);
    if (feed_.empty()) fail("the feed does not show: " + expected);
    const bool with_id = expected.find(" id ") != std::string::npos;
    const std::string came = words_of(feed_.front(), with_symbols_, with_id);
    feed_.pop_front();
    if (!names_.match(expected, came)) fail("the feed shows: " + came + "\nnot: " + expected);
  }
}

void Telling::check_counts(const std::map<std::string, int64_t>& rises) {
  const std::map<std::string, uint64_t> now = counters_of(world_.stats());
  for (const auto& [name, rise] : rises) {
    if (!now.contains(name)) fail("there is no counter " + name);
  }
  std::string wrong;
  for (const auto& [name, count] : now) {
    const auto risen = static_cast<int64_t>(count - counted_.at(name));
    const auto named = rises.find(name);
    const int64_t expected = named == rises.end() ? 0 : named->second;
    if (risen != expected) {
      wrong += "the counter " + name + " has risen by " + std::to_string(risen) + ", not by " +
               std::to_string(expected) + "\n";
    }
  }
  if (!wrong.empty()) fail(wrong);
  counted_ = now;
}

void Telling::check_line(std::deque<std::string>& came, const std::string& expected,
                         const std::string& what) {
  if (came.empty()) fail(what + " does not say: " + expected);
  const std::string line = std::move(came.front());
  came.pop_front();
  if (!names_.match(expected, line)) fail(what + " says: " + line);
}

}  // namespace stories
