#include "stories/inside_world.h"

#include <algorithm>
#include <sstream>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "day/day_clock.h"
#include "quorl/client/bytes.h"
#include "quorl/client/iex_tp.h"

namespace stories {
namespace {

using lives::WholeExchange;

constexpr const char* ORDER_EVENTS = "orders.jsonl";
constexpr uint64_t MOST_WAIT_MS = 5;  // of the loop
constexpr uint16_t OUR_PORT = 9000;   // of UDP

std::vector<std::string> inside_options(const Story& story) {
  std::vector<std::string> options = {"--control-port",
                                      std::to_string(WholeExchange::PORTS.control)};
  options.insert(options.end(), story.options.begin(), story.options.end());
  return options;
}

}  // namespace

InsideWorld::InsideWorld(const Story& story)
    : exchange_(inside_options(story),
                {{"QUORL_SCENARIO", story.script}, {"BENCH_ORDER_TRUTH", ORDER_EVENTS}}) {
  exchange_.network.sends_take_time = false;
  exchange_.network.on_wait = [this] {
    return day::Network::Wait{.until_event_ns = 0, .asleep_ns = 0, .without_event_ns = wait_ns_};
  };
  exchange_.network.on_datagram = [this](day::Kind kind, std::string_view bytes) {
    if (kind == day::Kind::CONTROL) replies_.emplace_back(bytes);
  };
  settle();
}

void InsideWorld::act(const std::vector<Act>& acts) {
  for (const Act& act : acts) carry_out(act);
  settle();
}

void InsideWorld::carry_out(const Act& act) {
  if (act.kind == Kind::CONNECT) {
    connections_[act.connection] = exchange_.network.connect(WholeExchange::PORTS.fix);
  } else if (act.kind == Kind::CONTROL) {
    command(act.bytes);
  } else if (act.kind == Kind::RAW) {
    exchange_.sends(connections_.at(act.connection), act.bytes);
  } else {
    exchange_.network.end(connections_.at(act.connection), act.kind == Kind::RESET,
                          exchange_.outputs.turn());
  }
}

void InsideWorld::command(const std::string& line) {
  exchange_.network.send_datagram(WholeExchange::PORTS.control, line, OUR_PORT);
}

/// The turn that finds it, and one in which nothing may come of it any more.
void InsideWorld::settle() {
  wait_ns_ = 0;
  exchange_.turn();
  exchange_.turn();
}

void InsideWorld::pass(uint64_t ms) {
  while (ms != 0) {
    const uint64_t step = std::min(ms, MOST_WAIT_MS);
    wait_ns_ = step * day::NS_PER_MS;
    exchange_.turn();
    ms -= step;
  }
  settle();
}

std::string InsideWorld::take_bytes(const std::string& connection, bool) {
  std::string bytes;
  for (const std::string& sent : exchange_.network.take_received(connections_.at(connection))) {
    bytes += sent;
  }
  return bytes;
}

bool InsideWorld::closed(const std::string& connection, bool) {
  return exchange_.network.closed_by_exchange(connections_.at(connection));
}

std::vector<std::string> InsideWorld::take_replies() { return std::exchange(replies_, {}); }

std::vector<client::DeepMessage> InsideWorld::take_feed(bool) {
  std::vector<client::DeepMessage> messages;
  for (const std::string& datagram : exchange_.network.take_feed()) {
    for (const client::TpMessage& message :
         client::decode_tp_packet(client::to_bytes(datagram)).messages) {
      messages.push_back(client::decode_deep(message.bytes));
    }
  }
  return messages;
}

std::vector<std::string> InsideWorld::take_lines() {
  std::vector<std::string> lines;
  std::istringstream log(exchange_.machine.take_log());
  for (std::string line; std::getline(log, line);) {
    if (!is_periodic(line)) lines.push_back(line);
  }
  return lines;
}

std::vector<client::OrderEvent> InsideWorld::take_events() {
  const std::string& written = exchange_.machine.files[ORDER_EVENTS];
  const std::string_view fresh = std::string_view(written).substr(events_taken_);
  events_taken_ = written.size();
  return client::parse_order_events(fresh);
}

client::ControlStats InsideWorld::stats() {
  const std::vector<std::string> others = take_replies();
  command("stats");
  settle();
  const std::vector<std::string> came = std::exchange(replies_, others);
  if (came.size() != 1 || !came[0].starts_with("ok ") || !came[0].ends_with("\n")) {
    throw std::runtime_error("no statistics");
  }
  return client::parse_control_stats(std::string_view(came[0]).substr(3, came[0].size() - 4));
}

void InsideWorld::end() {
  if (exchange_.network.misuses() != 0) throw std::runtime_error("a socket is misused");
}

}  // namespace stories
