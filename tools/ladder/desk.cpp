#include "tools/ladder/desk.h"

#include <algorithm>
#include <utility>

#include "quorl/client/errors.h"
#include "tools/ladder/grid.h"

namespace ladder {
namespace {

namespace client = quorl::client;

// In the order in which the screen shows them, column by column.
constexpr KeyCommand KEY_COMMANDS[] = {
    {'d', "drop", 1, "lose next packet", "the next N feed packets are lost"},
    {'u', "dup", 1, "send next packet twice", "the next N packets are sent twice"},
    {'o', "reorder", 1, "hold next packet back", "the next N packets come behind their successor"},
    {'D', "drop_every", 20, "lose each 20th packet", "each Nth packet is lost; 0 is off"},
    {'U', "dup_every", 20, "double each 20th", "each Nth packet is sent twice; 0 is off"},
    {'O', "reorder_every", 20, "hold each 20th back", "each Nth packet is held back; 0 is off"},
    {'j', "reject", 1, "refuse next order", "the next N good orders are refused"},
    {'h', "partial", 1, "halve next full fill", "the next N complete fills are cut in half"},
    {'f', "fill_on_cancel", 1, "fill ahead of a cancel",
     "the next N cancels lose the race to a fill"},
    {'n', "unsolicited_cancel", 1, "cancel next resting",
     "the next N resting orders are cancelled in 300 ms"},
    {'k', "replace_reject", 1, "refuse next replace", "the next N replaces are refused"},
    {'x', "disconnect", -1, "cut who orders next", "the connection of the next order is dropped"},
    {'l', "lapse", 5000, "FIX silent for 5 s", "nothing leaves on FIX for N ms; 0 ends it"},
    {'p', "pause", -1, "walk stands still", "the price walk stands still"},
    {'r', "resume", -1, "walk goes on", "the price walk goes on"},
    {'+', "rate", 0, "walk twice as fast", "half the period of the walk, or N ms"},
    {'-', "rate", 0, "walk half as fast", "twice the period of the walk, or N ms"},
    {'m', "mark", -1, "mark in truth file", "a mark in the market truth file"},
};

// Commands whose 0 takes back what is pending.
constexpr std::string_view TAKEN_BACK[] = {
    "drop",   "dup",     "reorder",        "drop_every",         "dup_every",      "reorder_every",
    "reject", "partial", "fill_on_cancel", "unsolicited_cancel", "replace_reject", "lapse"};

constexpr size_t MOST_DIGITS = 5;
constexpr int SLOWEST_MS = 10240;
constexpr std::string_view OK = "ok ";
constexpr std::string_view MARK = "mark ladder";

std::string_view without_line_end(std::string_view text) {
  while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) text.remove_suffix(1);
  return text;
}

/// The counters, if that is what the reply holds.
std::optional<client::ControlStats> stats_in(std::string_view reply) {
  if (!reply.starts_with("ok orders=")) return std::nullopt;
  try {
    return client::parse_control_stats(reply.substr(OK.size()));
  } catch (const client::WireError&) {
    return std::nullopt;
  }
}

}  // namespace

std::span<const KeyCommand> key_commands() { return KEY_COMMANDS; }

std::vector<std::string> Desk::press(char key, Time now) {
  if (key >= '0' && key <= '9') {
    if (number_.size() < MOST_DIGITS) number_ += key;
    return {};
  }
  if (key == CLEAR_KEY) return clear(now);
  const auto* wanted = std::find_if(std::begin(KEY_COMMANDS), std::end(KEY_COMMANDS),
                                    [key](const KeyCommand& c) { return c.key == key; });
  if (wanted == std::end(KEY_COMMANDS)) {
    number_.clear();
    return {};
  }
  const std::string command = with_argument(*wanted);
  number_.clear();
  clearing_ = false;
  sent_.push_back({command, now});
  note_ = {command + " ...", Tone::PLAIN};
  return {command};
}

std::string Desk::with_argument(const KeyCommand& wanted) {
  if (wanted.command == "rate") {
    if (!number_.empty()) {
      rate_ms_ = std::max(1, std::stoi(number_));
    } else {
      rate_ms_ = wanted.key == '+' ? std::max(1, rate_ms_ / 2) : std::min(SLOWEST_MS, rate_ms_ * 2);
    }
    return "rate " + std::to_string(rate_ms_);
  }
  if (wanted.command == "mark") return std::string(MARK);
  std::string command(wanted.command);
  if (wanted.number < 0) return command;
  const int number = number_.empty() ? wanted.number : std::stoi(number_);
  return command + " " + std::to_string(number);
}

std::vector<std::string> Desk::clear(Time now) {
  number_.clear();
  sent_.clear();
  clearing_ = true;
  cleared_ = 0;
  std::vector<std::string> commands;
  for (const std::string_view command : TAKEN_BACK) {
    commands.push_back(std::string(command) + " 0");
    sent_.push_back({commands.back(), now});
  }
  note_ = {"taking all back ...", Tone::PLAIN};
  return commands;
}

std::vector<std::string> Desk::due(Time now) {
  const auto late = std::find_if(sent_.begin(), sent_.end(),
                                 [now](const Sent& sent) { return now - sent.at >= ANSWER_TIME; });
  if (late != sent_.end()) {
    note_ = {"no answer to " + late->command, Tone::BAD};
    std::erase_if(sent_, [now](const Sent& sent) { return now - sent.at >= ANSWER_TIME; });
  }
  if (stats_asked_ && now - *stats_asked_ < STATS_PERIOD) return {};
  stats_asked_ = now;
  return {"stats"};
}

void Desk::heard(std::string_view reply, Time now) {
  reply = without_line_end(reply);
  answered_ = now;
  if (const auto stats = stats_in(reply)) {
    on_stats(*stats, now);
  } else {
    settle(reply);
  }
}

void Desk::settle(std::string_view reply) {
  const auto answered = std::find_if(sent_.begin(), sent_.end(), [reply](const Sent& sent) {
    return reply == std::string(OK) + sent.command;
  });
  const bool is_ok = reply.starts_with(OK);
  const bool expected = answered != sent_.end();
  if (expected) sent_.erase(answered);
  if (clearing_ && expected) {
    ++cleared_;
    const size_t all = std::size(TAKEN_BACK);
    note_ = {"taken back: ok, " + std::to_string(cleared_) + " of " + std::to_string(all),
             cleared_ == all ? Tone::GOOD : Tone::PLAIN};
    return;
  }
  note_ = is_ok ? Note{"armed: " + printable(reply), Tone::GOOD}
                : Note{"refused: " + printable(reply), Tone::BAD};
}

void Desk::on_stats(const client::ControlStats& stats, Time now) {
  if (stats_) {
    const auto before = counters_of(*stats_);
    const auto after = counters_of(stats);
    for (size_t i = 0; i < after.size(); ++i) {
      if (after[i].second != before[i].second) moved_[after[i].first] = now;
    }
  }
  stats_ = stats;
}

bool Desk::answering(Time now) const { return answered_ && now - *answered_ < 2 * ANSWER_TIME; }

bool Desk::moved(const std::string& counter, Time now) const {
  const auto found = moved_.find(counter);
  return found != moved_.end() && now - found->second < MOVED_TIME;
}

std::vector<std::pair<std::string, uint64_t>> counters_of(const client::ControlStats& stats) {
  std::vector<std::pair<std::string, uint64_t>> counters = {{"sent", stats.faults.sent},
                                                            {"dropped", stats.faults.dropped},
                                                            {"duplicated", stats.faults.duplicated},
                                                            {"reordered", stats.faults.reordered},
                                                            {"next_seq", stats.next_seq}};
  // In the order of the stats text, which tells a story: orders, what became of them, sessions.
  for (const char* const name :
       {"orders", "accepts", "fills", "partials", "cancels", "replaces", "rejects",
        "replace_rejects", "cancel_rejects", "unsolicited_cancels", "race_fills", "late_cancels",
        "stale_cancels", "logins", "logons", "resend_requests", "replays", "replayed"}) {
    counters.emplace_back(name, stats[name]);
  }
  return counters;
}

}  // namespace ladder
