#include "tools/control/stats_report.h"

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string_view>
#include <utility>
#include <vector>

#include "quorl/client/errors.h"

namespace client = quorl::client;

namespace tools {
namespace {

constexpr std::string_view BOLD = "\x1b[1m";
constexpr std::string_view PLAIN = "\x1b[0m";

using Figures = std::vector<std::pair<std::string, uint64_t>>;

/// In the same order for every reply.
Figures figures_of(const client::ControlStats& stats) {
  Figures figures(stats.counters.begin(), stats.counters.end());
  figures.emplace_back("next_seq", stats.next_seq);
  figures.emplace_back("sent", stats.faults.sent);
  figures.emplace_back("dropped", stats.faults.dropped);
  figures.emplace_back("duplicated", stats.faults.duplicated);
  figures.emplace_back("reordered", stats.faults.reordered);
  return figures;
}

std::string session_word(const client::ControlStats& stats) {
  return stats.session_up ? "up" : "down";
}

std::string emphasised(const std::string& text, bool coloured) {
  return coloured ? std::string(BOLD) + text + std::string(PLAIN) : text;
}

void put(std::string& line, const std::string& piece) {
  if (!line.empty()) line += "  ";
  line += piece;
}

}  // namespace

client::ControlStats stats_of_reply(const std::string& reply) {
  if (!reply.starts_with("ok ") || !reply.ends_with("\n")) {
    throw client::WireError("what answers is no exchange: \"" + reply + "\"");
  }
  return client::parse_control_stats(std::string_view(reply).substr(3, reply.size() - 4));
}

std::string stats_as_json(const client::ControlStats& stats) {
  nlohmann::json object(stats.counters);
  object["next_seq"] = stats.next_seq;
  object["faults"] = {{"sent", stats.faults.sent},
                      {"dropped", stats.faults.dropped},
                      {"duplicated", stats.faults.duplicated},
                      {"reordered", stats.faults.reordered}};
  object["session_up"] = stats.session_up;
  return object.dump();
}

std::string standing(const client::ControlStats& now, bool coloured) {
  std::string line;
  for (const auto& [name, value] : figures_of(now)) {
    if (value != 0) put(line, name + " " + emphasised(std::to_string(value), coloured));
  }
  put(line, "session " + emphasised(session_word(now), coloured));
  return line;
}

std::string moved(const client::ControlStats& before, const client::ControlStats& now,
                  bool coloured) {
  if (now.next_seq < before.next_seq) return "another run:  " + standing(now, coloured);
  std::string line;
  const Figures earlier = figures_of(before);
  const Figures later = figures_of(now);
  for (size_t i = 0; i < later.size(); ++i) {
    const auto& [name, value] = later[i];
    const uint64_t was = earlier[i].second;
    if (value == was) continue;
    // A counter only rises; "sent" is a difference of two and rises too, within a run.
    const std::string by =
        value > was ? "+" + std::to_string(value - was) : "-" + std::to_string(was - value);
    put(line, name + " " + std::to_string(was) + " -> " + std::to_string(value) + " " +
                  emphasised("(" + by + ")", coloured));
  }
  if (before.session_up != now.session_up) {
    put(line, "session " + session_word(before) + " -> " + emphasised(session_word(now), coloured));
  }
  return line.empty() ? "nothing moved" : line;
}

}  // namespace tools
