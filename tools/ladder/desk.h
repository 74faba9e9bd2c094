#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "quorl/client/stats_text.h"

namespace ladder {

/// What a key asks of the control port.
struct KeyCommand {
  char key;
  std::string_view command;  // its first word; "rate" is sent with a number of its own
  int number;                // its argument unless another was typed; -1: it takes none
  std::string_view meaning;  // in at most 22 columns
  std::string_view detail;   // for the help page, in at most 50 columns
};
std::span<const KeyCommand> key_commands();

/// The key that takes back everything that can be taken back.
constexpr char CLEAR_KEY = 'c';

/// The keyboard's side of the control port: what keys send, what was answered, and the counters. It
/// neither waits nor owns a socket; whoever does passes in what came, and the time.
class Desk {
 public:
  using Time = std::chrono::steady_clock::time_point;

  static constexpr std::chrono::milliseconds ANSWER_TIME{1000};  // then it is "no answer"
  static constexpr std::chrono::milliseconds STATS_PERIOD{500};
  static constexpr std::chrono::milliseconds MOVED_TIME{2000};  // how long a counter has just moved

  /// `where` names the control port: "127.0.0.1:25500".
  explicit Desk(std::string where) : where_(std::move(where)) {}

  /// A key: digits make the number of the next command. Returns the datagrams to send now; none for
  /// a key that means nothing here.
  std::vector<std::string> press(char key, Time now);

  /// The datagrams that are due: the question for the counters. Also gives up on late answers.
  std::vector<std::string> due(Time now);

  /// A reply, as it came.
  void heard(std::string_view reply, Time now);

  const std::string& where() const { return where_; }
  /// The number typed so far; empty if none.
  const std::string& number() const { return number_; }

  enum class Tone { PLAIN, GOOD, BAD };
  struct Note {
    std::string text;  // "armed: ok drop 1", "no answer to drop 1"; empty before the first key
    Tone tone = Tone::PLAIN;
  };
  const Note& note() const { return note_; }

  /// Something has been answered lately.
  bool answering(Time now) const;
  /// The latest counters, if any have come.
  const std::optional<quorl::client::ControlStats>& stats() const { return stats_; }
  /// Whether a counter, by its name in the stats text, has moved within MOVED_TIME.
  bool moved(const std::string& counter, Time now) const;

 private:
  struct Sent {
    std::string command;
    Time at;
  };

  std::vector<std::string> clear(Time now);
  std::string with_argument(const KeyCommand& wanted);
  void on_stats(const quorl::client::ControlStats& stats, Time now);
  void settle(std::string_view reply);

  std::string where_;
  std::string number_;
  int rate_ms_ = 40;        // the exchange's default; it does not tell what it has
  std::vector<Sent> sent_;  // and not answered
  bool clearing_ = false;   // those are the clear key's
  size_t cleared_ = 0;      // of those, answered
  Note note_;
  std::optional<Time> stats_asked_;
  std::optional<Time> answered_;
  std::optional<quorl::client::ControlStats> stats_;
  std::map<std::string, Time> moved_;
};

/// The counters by name, those of the feed's faults included, as the stats text lists them.
std::vector<std::pair<std::string, uint64_t>> counters_of(const quorl::client::ControlStats& stats);

}  // namespace ladder
