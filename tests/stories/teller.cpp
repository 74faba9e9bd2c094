#include "stories/teller.h"

#include <algorithm>
#include <deque>
#include <exception>
#include <map>
#include <set>
#include <stdexcept>
#include <utility>
#include <variant>
#include <vector>

#include "stories/event_words.h"
#include "stories/feed_words.h"
#include "stories/fix_end.h"
#include "stories/names.h"

namespace stories {
namespace {

using client::FixMessage;

constexpr const char* SWEEPER = "SWEEPER";
constexpr const char* DEFAULT_SYMBOLS = "AAPL:190.00";

/// Every counter that a story can name, and those of the faults.
std::map<std::string, uint64_t> counters_of(const client::ControlStats& stats) {
  std::map<std::string, uint64_t> counters = stats.counters;
  counters.erase("logins");  // the twin of "logons": they are read as equal
  counters["dropped"] = stats.faults.dropped;
  counters["duplicated"] = stats.faults.duplicated;
  counters["reordered"] = stats.faults.reordered;
  return counters;
}

/// "AAPL:190.00,MSFT:410.00" as names.
std::vector<std::string> symbols_of(const Story& story) {
  std::string listed = DEFAULT_SYMBOLS;
  for (size_t i = 0; i + 1 < story.options.size(); ++i) {
    if (story.options[i] == "--symbols") listed = story.options[i + 1];
  }
  std::vector<std::string> symbols;
  for (size_t at = 0; at < listed.size();) {
    const size_t end = std::min(listed.find(',', at), listed.size());
    symbols.push_back(listed.substr(at, std::min(listed.find(':', at), end) - at));
    at = end + 1;
  }
  return symbols;
}

bool is_beat(const FixMessage& message) { return message.type() == "0" && !message.has(112); }

class Telling {
 public:
  Telling(const Story& story, World& world) : story_(story), world_(world) {}

  void run();
  bool disturbed() const { return disturbed_; }
  /// What has been done and has come, for who reads a failure.
  std::string course() const;

 private:
  // The beginning.
  void sweep();
  void log_on(const std::string& connection);
  FixMessage next_of(const std::string& connection);

  void carry_out(const Step& step);
  void do_acts(const std::vector<const Step*>& steps);
  Act act_of(const Step& step);
  std::vector<FieldWords> filled(const std::vector<FieldWords>& fields) const;

  void rest(const Step& step);
  void hear(const Step& step);
  void check_field(const FixMessage& message, const FieldWords& field);
  void check_closed(const Step& step);
  void check_feed(const Step& step);
  void check_counts(const std::map<std::string, int64_t>& rises);
  void check_line(std::deque<std::string>& came, const std::string& expected,
                  const std::string& what);

  /// Takes over all that has come.
  void collect();
  void collect_from(const std::string& connection, bool wait);
  /// Throws if something has come that no line has named.
  void demand_nothing_else();
  void drop_beats(const std::string& connection);
  void note(std::string what) { course_.push_back(std::move(what)); }
  [[noreturn]] static void fail(const std::string& why) { throw std::runtime_error(why); }

  const Story& story_;
  World& world_;
  FixEnd fix_;
  Names names_;
  std::set<std::string> open_;  // connections; one that the exchange has closed, until it is named
  std::set<std::string> closed_;  // by the exchange, and named
  std::deque<client::DeepMessage> feed_;
  std::deque<std::string> lines_;
  std::deque<std::string> events_;
  std::map<std::string, uint64_t> counted_;
  std::vector<std::string> course_;
  bool with_symbols_ = false;
  bool disturbed_ = false;
};

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
  for (const std::string& connection : open_) collect_from(connection, false);
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

// --- The beginning ---

/// Trades away all that rests.
void Telling::sweep() {
  log_on(SWEEPER);
  for (const std::string& symbol : symbols_of(story_)) {
    for (const char* const side : {"1", "2"}) {
      const std::string message = fix_.composed(
          SWEEPER, "D",
          {{11, symbol + side}, {55, symbol}, {54, side}, {38, "10000000"}, {40, "1"}, {18, "i"}});
      world_.act({{.kind = Kind::RAW, .connection = SWEEPER, .bytes = message}});
      while (next_of(SWEEPER).find(150) != "4") {
      }
    }
  }
  const std::string logout = fix_.composed(SWEEPER, "5", {});
  world_.act({{.kind = Kind::RAW, .connection = SWEEPER, .bytes = logout}});
  if (next_of(SWEEPER).type() != "5") fail("the sweeper is not logged out");
  if (!world_.closed(SWEEPER, true)) fail("the sweeper is not closed");
  open_.erase(SWEEPER);
}

void Telling::log_on(const std::string& connection) {
  world_.act({{.kind = Kind::CONNECT, .connection = connection}});
  fix_.begin_connection(connection);
  open_.insert(connection);
  const std::string logon = fix_.composed(connection, "A", {{98, "0"}, {108, "30"}});
  world_.act({{.kind = Kind::RAW, .connection = connection, .bytes = logon}});
  const FixMessage answer = next_of(connection);
  if (answer.type() != "A" || answer.get(108) != "30") fail("no Logon: " + answer.text());
}

/// The next message, whatever it says.
FixMessage Telling::next_of(const std::string& connection) {
  std::deque<FixMessage>& waiting = fix_.waiting(connection);
  if (waiting.empty()) collect_from(connection, true);
  if (waiting.empty()) fail(connection + " hears nothing");
  FixMessage message = std::move(waiting.front());
  waiting.pop_front();
  fix_.next_in(connection) = message.seq() + 1;
  return message;
}

// --- What is done ---

void Telling::do_acts(const std::vector<const Step*>& steps) {
  demand_nothing_else();
  std::vector<Act> acts;
  std::vector<std::string> replies;
  for (const Step* const step : steps) {
    acts.push_back(act_of(*step));
    if (step->kind == Kind::CONTROL) replies.push_back(step->reply + "\n");
  }
  world_.act(acts);
  for (const Step* const step : steps) {
    if (step->kind == Kind::DISCONNECT || step->kind == Kind::RESET) open_.erase(step->connection);
  }
  const std::vector<std::string> came = world_.take_replies();
  for (size_t i = 0; i < came.size(); ++i) {
    if (i >= replies.size() || came[i] != replies[i]) fail("the control port says: " + came[i]);
  }
  if (came.size() != replies.size()) fail("the control port says nothing");
  collect();
}

Act Telling::act_of(const Step& step) {
  if (step.kind == Kind::CONTROL) return {.kind = step.kind, .bytes = names_.filled(step.words)};
  if (step.kind == Kind::CONNECT) {
    if (open_.contains(step.connection)) fail(step.connection + " is connected");
    fix_.begin_connection(step.connection);
    open_.insert(step.connection);
    return {.kind = step.kind, .connection = step.connection};
  }
  if (!open_.contains(step.connection)) fail(step.connection + " is not connected");
  Act act{.kind = step.kind, .connection = step.connection};
  if (step.kind == Kind::RAW) act.bytes = client::with_soh(names_.filled(step.words));
  if (step.kind == Kind::SEND) {
    act.kind = Kind::RAW;
    act.bytes = fix_.composed(step.connection, step.words, filled(step.fields));
  }
  return act;
}

std::vector<FieldWords> Telling::filled(const std::vector<FieldWords>& fields) const {
  std::vector<FieldWords> all = fields;
  for (FieldWords& field : all) field.value = names_.filled(field.value);
  return all;
}

// --- What must come ---

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

// --- What comes ---

void Telling::collect() {
  for (const std::string& connection : open_) collect_from(connection, false);
  for (client::DeepMessage& message : world_.take_feed()) {
    note("   feed: " + words_of(message, with_symbols_, true));
    feed_.push_back(std::move(message));
  }
  for (std::string& line : world_.take_lines()) {
    note("   log: " + line);
    lines_.push_back(std::move(line));
  }
  for (const client::OrderEvent& event : world_.take_events()) {
    note("   event: " + words_of(event));
    if (story_.names_events) events_.push_back(words_of(event));
  }
}

void Telling::collect_from(const std::string& connection, bool wait) {
  std::deque<FixMessage>& waiting = fix_.waiting(connection);
  const size_t before = waiting.size();
  do {
    const std::string bytes = world_.take_bytes(connection, wait);
    if (bytes.empty()) break;
    fix_.take(connection, bytes);
  } while (wait && waiting.size() == before);
  for (size_t i = before; i < waiting.size(); ++i) {
    note("   " + connection + " hears: " + waiting[i].text());
  }
}

void Telling::demand_nothing_else() {
  collect();
  for (const std::string& connection : open_) {
    drop_beats(connection);
    if (!fix_.waiting(connection).empty()) {
      fail("not named: " + connection + " hears " + fix_.waiting(connection).front().text());
    }
    if (fix_.pending(connection) != 0) fail("not named: " + connection + " hears half a message");
    if (world_.closed(connection, false)) fail("not named: " + connection + " is closed");
  }
  if (!feed_.empty()) {
    fail("not named: the feed shows " + words_of(feed_.front(), with_symbols_, true));
  }
  if (!lines_.empty()) fail("not named: standard error says " + lines_.front());
  if (!events_.empty()) fail("not named: the order event file says " + events_.front());
}

/// Where the machine's clock alone may bring Heartbeats, they are passed over.
void Telling::drop_beats(const std::string& connection) {
  if (!world_.time_passes()) return;
  std::deque<FixMessage>& waiting = fix_.waiting(connection);
  while (!waiting.empty() && is_beat(waiting.front())) {
    fix_.next_in(connection) = waiting.front().seq() + 1;
    waiting.pop_front();
    disturbed_ = true;
  }
}

}  // namespace

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
