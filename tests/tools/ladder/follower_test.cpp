#include "tools/ladder/follower.h"

#include <gtest/gtest.h>

#include <functional>

#include "tests/client/fake_feed.h"

namespace ladder {
namespace {

using std::chrono::milliseconds;

class FollowerTest : public testing::Test {
 protected:
  /// Waits for a picture of the market.
  bool sees(const std::function<bool(const Market&, const Health&)>& wanted) {
    const client::Deadline deadline = client::Deadline::after(client::PATIENCE);
    bool seen = false;
    while (!seen && !deadline.expired()) {
      follower.look([&](const Market& market, const Health& health) {
        seen = wanted(market, health);
        said = health.trouble;
      });
      ::poll(nullptr, 0, 1);
    }
    return seen;
  }
  bool sees_bids(size_t count) {
    return sees([count](const Market& market, const Health& health) {
      const SymbolState* aapl = market.find("AAPL");
      return health.state == FeedState::IN_STEP && aapl != nullptr && aapl->bids.size() == count;
    });
  }
  client::Bytes packet_of(int count) {
    for (int i = 0; i < count; ++i) feed.bid(next_price += 100, 300);
    return feed.packet();
  }

  FakeFeed feed;
  Follower follower{feed.ports()};
  int64_t next_price = 1000000;
  std::string said;
};

TEST_F(FollowerTest, waits_for_an_exchange_that_is_not_there_yet) {
  EXPECT_FALSE(follower.await_in_step(client::Deadline::after(milliseconds(100))));
  follower.look([](const Market& market, const Health& health) {
    EXPECT_EQ(health.state, FeedState::WAITING);
    EXPECT_TRUE(market.symbols().empty());
  });
}

TEST_F(FollowerTest, joins_a_market_that_runs_by_its_image) {
  packet_of(5);
  // The first one it hears must come when it listens, and then is not the run's first.
  const client::Bytes heartbeat = feed.heartbeat();
  EXPECT_TRUE(sees([&](const Market&, const Health& health) {
    feed.sends(heartbeat);
    return health.state == FeedState::IN_STEP;
  })) << said;
  EXPECT_TRUE(sees_bids(5));
  feed.sends(packet_of(2));
  EXPECT_TRUE(sees_bids(7));
}

TEST_F(FollowerTest, fills_what_is_lost) {
  packet_of(1);
  const client::Bytes heartbeat = feed.heartbeat();
  ASSERT_TRUE(sees([&](const Market&, const Health& health) {
    feed.sends(heartbeat);
    return health.state == FeedState::IN_STEP;
  })) << said;
  packet_of(3);  // lost
  feed.sends(packet_of(2));
  EXPECT_TRUE(sees_bids(6));
  EXPECT_TRUE(sees([](const Market&, const Health& health) {
    return health.counters.holes == 1 && health.counters.filled == 3;
  }));
}

TEST_F(FollowerTest, tells_of_a_feed_that_breaks_its_format_and_begins_anew) {
  packet_of(3);
  const client::Bytes heartbeat = feed.heartbeat();
  client::Bytes broken = heartbeat;
  broken[0] = 9;  // a version that there is not
  EXPECT_TRUE(sees([&](const Market&, const Health& health) {
    feed.sends(broken);
    return !health.trouble.empty();
  }));
  EXPECT_TRUE(sees([&](const Market&, const Health& health) {
    feed.sends(heartbeat);
    return health.state == FeedState::IN_STEP && health.trouble.empty();
  })) << said;
  EXPECT_TRUE(sees_bids(3));
}

}  // namespace
}  // namespace ladder
