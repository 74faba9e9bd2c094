#pragma once

#include <chrono>
#include <map>
#include <string>
#include <vector>

#include "quorl/client/tcp.h"
#include "stories/world.h"
#include "tests/e2e/support/watched_exchange.h"

namespace stories {

/// The real program, over real sockets. Nothing here sleeps but pass(): what has been done is known
/// to have been acted upon by the control port's answer to what was sent behind it.
class RealWorld : public World {
 public:
  /// `patience` is how long what a story names may take to come.
  explicit RealWorld(const Story& story, std::chrono::milliseconds patience = client::PATIENCE);

  void act(const std::vector<Act>& acts) override;
  void pass(uint64_t ms) override;
  std::string take_bytes(const std::string& connection, bool wait) override;
  bool closed(const std::string& connection, bool wait) override;
  std::vector<std::string> take_replies() override;
  std::vector<client::DeepMessage> take_feed(bool wait) override;
  std::vector<std::string> take_lines() override { return exchange_.lines(); }
  std::vector<client::OrderEvent> take_events() override { return exchange_.events(); }
  client::ControlStats stats() override;
  void end() override;
  bool time_passes() const override { return true; }

 private:
  void carry_out(const Act& act);
  client::Deadline deadline(bool wait) const;

  const std::chrono::milliseconds patience_;
  e2e::WatchedExchange exchange_;
  client::ControlClient commands_;  // the story's own: its replies are not ours
  std::map<std::string, client::TcpStream> connections_;
  size_t replies_due_ = 0;
  size_t feed_taken_ = 0;
};

}  // namespace stories
