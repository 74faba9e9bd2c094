#include "stories/real_world.h"

#include <algorithm>
#include <functional>
#include <optional>
#include <thread>
#include <utility>

#include "quorl/client/bytes.h"
#include "quorl/client/errors.h"
#include "tests/e2e/support/one_turn.h"

namespace stories {
namespace {

client::SimulatorOptions real_options(const Story& story) {
  client::SimulatorOptions options = e2e::still({"--symbols", "AAPL:190.00", "--quiet"});
  options.arguments.insert(options.arguments.end(), story.options.begin(), story.options.end());
  options.scenario = story.script;
  return options;
}

}  // namespace

RealWorld::RealWorld(const Story& story, std::chrono::milliseconds patience)
    : patience_(patience), exchange_(real_options(story)), commands_(exchange_.ports().control) {}

void RealWorld::act(const std::vector<Act>& acts) {
  if (acts.size() > 1) {
    std::vector<std::function<void()>> sends;
    for (const Act& act : acts) sends.emplace_back([this, &act] { carry_out(act); });
    e2e::in_one_turn(exchange_, sends);
  } else {
    for (const Act& act : acts) carry_out(act);
  }
  (void)exchange_.turn();
}

void RealWorld::carry_out(const Act& act) {
  if (act.kind == Kind::CONTROL) {
    commands_.send(act.bytes);
    ++replies_due_;
  } else if (act.kind == Kind::CONNECT) {
    connections_[act.connection] = client::TcpStream::connect(exchange_.ports().fix);
  } else if (act.kind == Kind::RAW) {
    (void)connections_.at(act.connection).send_all(client::to_bytes(act.bytes));
  } else if (act.kind == Kind::DISCONNECT) {
    connections_.at(act.connection).close();
  } else {
    connections_.at(act.connection).abort();
  }
}

void RealWorld::pass(uint64_t ms) {
  std::this_thread::sleep_for(std::chrono::milliseconds(ms));
  (void)exchange_.turn();
}

client::Deadline RealWorld::deadline(bool wait) const {
  return client::Deadline::after(wait ? patience_ : std::chrono::milliseconds(0));
}

std::string RealWorld::take_bytes(const std::string& connection, bool wait) {
  client::Bytes bytes;
  connections_.at(connection).receive(bytes, deadline(wait));
  return client::to_text(bytes);
}

bool RealWorld::closed(const std::string& connection, bool wait) {
  client::TcpStream& stream = connections_.at(connection);
  if (wait && !stream.ended()) {
    client::Bytes none;
    if (stream.receive(none, deadline(wait)) != 0) {
      throw client::WireError("instead of a close: " + client::to_text(none));
    }
  }
  return stream.ended();
}

std::vector<std::string> RealWorld::take_replies() {
  std::vector<std::string> replies;
  for (; replies_due_ != 0; --replies_due_) {
    const std::optional<std::string> reply = commands_.receive(patience_);
    if (reply) replies.push_back(*reply);
  }
  return replies;
}

/// As many packets have come as have left, but for those that a fault may hold back. When such a
/// one leaves, nothing tells of it: it is waited for if a story names it.
std::vector<client::DeepMessage> RealWorld::take_feed(bool wait) {
  client::FeedSubscriber& feed = exchange_.feed();
  const client::FaultStats faults = exchange_.turn().faults;
  const uint64_t due = faults.sent + faults.duplicated - faults.reordered;
  const auto have_come = [&feed, due] {
    const auto count = std::count_if(
        feed.packets().begin(), feed.packets().end(),
        [](const client::FeedPacket& packet) { return !packet.packet.is_heartbeat(); });
    return static_cast<uint64_t>(count) >= due;
  };
  feed.await(have_come, "all packets that have left");
  if (wait && faults.reordered != 0) {
    (void)feed.wait_until([&] { return feed.messages().size() > feed_taken_; }, patience_);
  }
  std::vector<client::DeepMessage> messages;
  for (; feed_taken_ < feed.messages().size(); ++feed_taken_) {
    messages.push_back(feed.messages()[feed_taken_].message);
  }
  return messages;
}

client::ControlStats RealWorld::stats() { return exchange_.turn(); }

/// A connection that the exchange closes behind our end of it has brought all that was sent on it.
/// One that has ended has done so already.
void RealWorld::end() {
  for (auto& [name, stream] : connections_) {
    if (stream.open() && !stream.ended()) stream.shutdown_write();
  }
}

}  // namespace stories
