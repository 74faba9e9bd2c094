#pragma once

#include <atomic>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "quorl/client/deadline.h"
#include "quorl/client/deep.h"
#include "quorl/client/port_slot.h"
#include "quorl/client/recovering_subscriber.h"
#include "tools/ladder/health.h"
#include "tools/ladder/market.h"

namespace ladder {

/// Follows the feed on a thread of its own, for as long as it lives: through faults, silences, and
/// restarts of the exchange, which begin a new market.
class Follower {
 public:
  /// Of `ports`, those of the feed, gap fill and images are used.
  explicit Follower(const quorl::client::Ports& ports);
  Follower(const Follower&) = delete;
  Follower& operator=(const Follower&) = delete;
  /// Waits for a request under way, a few seconds if the exchange stands still.
  ~Follower();

  using Look = std::function<void(const Market&, const Health&)>;
  /// Calls `look` once, between two events of the market. The feed waits meanwhile: be quick.
  void look(const Look& look) const;

  /// Waits until it is in step. False at the deadline.
  bool await_in_step(quorl::client::Deadline deadline) const;

 private:
  void run();
  void follow();
  bool await_session(quorl::client::RecoveringSubscriber& feed, bool known);
  void look_for_another(quorl::client::RecoveringSubscriber& feed);
  void watch_out(quorl::client::RecoveringSubscriber& feed);
  bool serves(uint32_t session) const;
  void begin_session(uint32_t session);
  void take(const quorl::client::DeepMessage& message);
  void take_image(const quorl::client::SnapImage& image);
  void show(const quorl::client::RecoveringSubscriber& feed, FeedState state);
  void show_trouble(const std::string& trouble);
  bool pause_before_another_try();

  quorl::client::Ports ports_;
  std::optional<uint32_t> next_session_;                   // to follow, if that is known
  quorl::client::RecoveringSubscriber::Counters earlier_;  // of this session's former subscribers
  std::vector<quorl::client::DeepMessage> event_;          // that is open

  mutable std::mutex mutex_;
  mutable std::condition_variable changed_;
  Market market_;
  Health health_;
  std::atomic<bool> stopping_ = false;
  std::thread thread_;
};

}  // namespace ladder
