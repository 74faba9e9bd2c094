#include "market/client_orders.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace quorl {
namespace {

using testing::IsEmpty;
using testing::UnorderedElementsAre;

// --- Live names ---

/// Orders with their names, at addresses that stay.
class NamedOrders {
 public:
  RestingOrder& add(const std::string& owner, const std::string& cl_ord_id) {
    RestingOrder& order = orders_.emplace_back();
    order.id = orders_.size();
    order.owner = owner;
    order.cl_ord_id = cl_ord_id;
    return order;
  }

 private:
  std::deque<RestingOrder> orders_;
};

/// "ALPHA a1" each.
std::vector<std::string> names_in(const LiveOrders& live) {
  std::vector<std::string> names;
  live.for_each(
      [&](const RestingOrder& order) { names.push_back(order.owner + " " + order.cl_ord_id); });
  return names;
}

TEST(LiveOrders, begin_with_none) {
  const LiveOrders live;
  EXPECT_EQ(live.size(), 0U);
  EXPECT_EQ(live.find({"ALPHA", "a1"}), nullptr);
  EXPECT_EQ(live.find({"", ""}), nullptr);
  EXPECT_EQ(live.count_of("ALPHA"), 0U);
  EXPECT_THAT(names_in(live), IsEmpty());
}

TEST(LiveOrders, are_found_by_their_names_until_they_are_erased) {
  NamedOrders orders;
  LiveOrders live;
  RestingOrder& order = orders.add("ALPHA", "a1");
  live.insert(order);
  EXPECT_EQ(live.find({"ALPHA", "a1"}), &order);
  EXPECT_TRUE(live.contains({"ALPHA", "a1"}));
  EXPECT_FALSE(live.contains({"ALPHA", "a2"}));
  EXPECT_FALSE(live.contains({"BETA", "a1"}));
  EXPECT_FALSE(live.contains({"a1", "ALPHA"}));
  EXPECT_EQ(live.size(), 1U);
  live.erase(order);
  EXPECT_EQ(live.find({"ALPHA", "a1"}), nullptr);
  EXPECT_EQ(live.size(), 0U);
}

TEST(LiveOrders, have_names_of_two_parts) {
  NamedOrders orders;
  LiveOrders live;
  RestingOrder& first = orders.add("A", "BC");
  RestingOrder& second = orders.add("AB", "C");
  live.insert(first);
  EXPECT_FALSE(live.contains({"AB", "C"}));
  EXPECT_FALSE(live.contains({"ABC", ""}));
  EXPECT_FALSE(live.contains({"", "ABC"}));
  live.insert(second);
  EXPECT_EQ(live.find({"A", "BC"}), &first);
  EXPECT_EQ(live.find({"AB", "C"}), &second);
}

TEST(LiveOrders, are_counted_for_each_owner) {
  NamedOrders orders;
  LiveOrders live;
  RestingOrder& first = orders.add("ALPHA", "a1");
  RestingOrder& second = orders.add("ALPHA", "a2");
  RestingOrder& third = orders.add("BETA", "a1");
  for (RestingOrder* order : {&first, &second, &third}) live.insert(*order);
  EXPECT_EQ(live.count_of("ALPHA"), 2U);
  EXPECT_EQ(live.count_of("BETA"), 1U);
  EXPECT_EQ(live.count_of("GAMMA"), 0U);
  EXPECT_EQ(live.count_of(""), 0U);
  live.erase(first);
  EXPECT_EQ(live.count_of("ALPHA"), 1U);
  live.erase(second);
  EXPECT_EQ(live.count_of("ALPHA"), 0U);
  EXPECT_EQ(live.count_of("BETA"), 1U);
  live.insert(first);
  EXPECT_EQ(live.count_of("ALPHA"), 1U);
}

TEST(LiveOrders, erase_only_the_very_order_that_is_here) {
  NamedOrders orders;
  LiveOrders live;
  RestingOrder& here = orders.add("ALPHA", "a1");
  live.insert(here);
  live.erase(orders.add("ALPHA", "a1"));  // another one under the same name
  live.erase(orders.add("ALPHA", "a2"));
  live.erase(orders.add("BETA", "a1"));
  EXPECT_EQ(live.find({"ALPHA", "a1"}), &here);
  EXPECT_EQ(live.size(), 1U);
  EXPECT_EQ(live.count_of("ALPHA"), 1U);
  EXPECT_EQ(live.count_of("BETA"), 0U);
  live.erase(here);
  live.erase(here);
  EXPECT_EQ(live.size(), 0U);
  EXPECT_EQ(live.count_of("ALPHA"), 0U);
}

TEST(LiveOrders, lend_a_name_that_has_been_erased_to_another_order) {
  NamedOrders orders;
  LiveOrders live;
  RestingOrder& former = orders.add("ALPHA", "a1");
  RestingOrder& later = orders.add("ALPHA", "a1");
  live.insert(former);
  live.erase(former);
  live.insert(later);
  EXPECT_EQ(live.find({"ALPHA", "a1"}), &later);
}

TEST(LiveOrders, are_all_visited_once) {
  NamedOrders orders;
  LiveOrders live;
  live.insert(orders.add("ALPHA", "a1"));
  live.insert(orders.add("ALPHA", "a2"));
  RestingOrder& leaver = orders.add("BETA", "b1");
  live.insert(leaver);
  EXPECT_THAT(names_in(live), UnorderedElementsAre("ALPHA a1", "ALPHA a2", "BETA b1"));
  live.erase(leaver);
  EXPECT_THAT(names_in(live), UnorderedElementsAre("ALPHA a1", "ALPHA a2"));
}

TEST(LiveOrders, may_be_many) {
  NamedOrders orders;
  LiveOrders live;
  std::vector<RestingOrder*> inserted;
  for (size_t i = 0; i < 20000; ++i) {
    inserted.push_back(
        &orders.add("OWNER" + std::to_string(i % 7), "order" + std::to_string(i / 7)));
    live.insert(*inserted.back());
  }
  EXPECT_EQ(live.size(), 20000U);
  for (RestingOrder* order : inserted) {
    ASSERT_EQ(live.find({order->owner, order->cl_ord_id}), order);
  }
  EXPECT_EQ(live.count_of("OWNER0"), 2858U);
  EXPECT_EQ(live.count_of("OWNER6"), 2857U);
  EXPECT_EQ(names_in(live).size(), 20000U);
  for (size_t i = 0; i < inserted.size(); i += 2) live.erase(*inserted[i]);
  for (size_t i = 0; i < inserted.size(); ++i) {
    RestingOrder* const expected = i % 2 == 0 ? nullptr : inserted[i];
    ASSERT_EQ(live.find({inserted[i]->owner, inserted[i]->cl_ord_id}), expected) << i;
  }
}

/// The live orders beside the standard library's map, over so few names that all can be asked for
/// at every step. So many are live that they stand in each other's way. The names are others for
/// another seed, and so they stand at other places.
class LiveTwins {
 public:
  LiveTwins(uint64_t seed, size_t names_per_owner) : rng_(seed) {
    for (const char* owner : {"ALPHA", "BETA", "A", "AL"}) {
      for (size_t i = 0; i < names_per_owner; ++i) {
        names_.push_back(&orders_.add(owner, "PHA" + std::to_string(seed * 1000 + i)));
      }
    }
  }

  /// More and more of the names are live, or fewer and fewer.
  void takes_a_step(bool upwards) {
    RestingOrder& order = *names_[rng_() % names_.size()];
    const std::pair<std::string, std::string> name{order.owner, order.cl_ord_id};
    if (rng_() % 16 == 0 ? upwards : !upwards) {
      live_.erase(order);
      map_.erase(name);
    } else if (map_.try_emplace(name, &order).second) {
      live_.insert(order);
    }
  }

  void expect_same() const {
    ASSERT_EQ(live_.size(), map_.size());
    std::map<std::string, size_t> counts;
    for (RestingOrder* order : names_) {
      const auto entry = map_.find({order->owner, order->cl_ord_id});
      ASSERT_EQ(live_.find({order->owner, order->cl_ord_id}),
                entry == map_.end() ? nullptr : entry->second)
          << order->owner << " " << order->cl_ord_id;
      counts[order->owner] += entry == map_.end() ? 0 : 1;
    }
    for (const auto& [owner, count] : counts) ASSERT_EQ(live_.count_of(owner), count) << owner;
    std::map<std::pair<std::string, std::string>, const RestingOrder*> visited;
    size_t visits = 0;
    live_.for_each([&](const RestingOrder& order) {
      visited.insert_or_assign({order.owner, order.cl_ord_id}, &order);
      ++visits;
    });
    ASSERT_EQ(visits, map_.size());
    for (const auto& [name, order] : map_) ASSERT_EQ(visited[name], order);
  }

 private:
  std::mt19937_64 rng_;
  NamedOrders orders_;
  std::vector<RestingOrder*> names_;
  LiveOrders live_;
  std::map<std::pair<std::string, std::string>, RestingOrder*> map_;
};

TEST(LiveOrders, are_what_the_standard_map_has_after_any_history) {
  for (uint64_t seed = 1; seed <= 600; ++seed) {
    LiveTwins twins(seed, 8);  // 32 names, just as many as the table takes without growing
    for (int step = 0; step < 120; ++step) {
      twins.takes_a_step(step < 80);
      if (step % 20 == 19) twins.expect_same();
      if (testing::Test::HasFatalFailure()) FAIL() << "seed " << seed << ", step " << step;
    }
  }
}

TEST(LiveOrders, are_what_the_standard_map_has_while_they_grow_and_shrink) {
  for (uint64_t seed = 1; seed <= 2; ++seed) {
    LiveTwins twins(seed, 300);
    for (int step = 0; step < 12000; ++step) {
      twins.takes_a_step(step / 3000 % 2 == 0);
      if (step % 250 == 0) twins.expect_same();
      if (testing::Test::HasFatalFailure()) FAIL() << "seed " << seed << ", step " << step;
    }
  }
}

// --- Closed names ---

constexpr uint64_t NOW = 1000000;
constexpr size_t MOST = 50000;

TEST(ClosedOrders, begin_with_none) {
  const ClosedOrders closed;
  EXPECT_EQ(closed.size(), 0U);
  EXPECT_EQ(closed.closing_of({"ALPHA", "a1"}, NOW), Closing::UNKNOWN);
  EXPECT_EQ(closed.closing_of({"", ""}, NOW), Closing::UNKNOWN);
  EXPECT_EQ(closed.age_ms({"ALPHA", "a1"}, NOW), std::nullopt);
}

TEST(ClosedOrders, have_closed_just_now_for_1999_ms_and_long_ago_from_2000_on) {
  ClosedOrders closed;
  closed.note({"ALPHA", "a1"}, NOW);
  EXPECT_EQ(closed.closing_of({"ALPHA", "a1"}, NOW), Closing::JUST_NOW);
  EXPECT_EQ(closed.closing_of({"ALPHA", "a1"}, NOW + 1999), Closing::JUST_NOW);
  EXPECT_EQ(closed.closing_of({"ALPHA", "a1"}, NOW + 2000), Closing::LONG_AGO);
  EXPECT_EQ(closed.closing_of({"ALPHA", "a1"}, NOW + 1000000000), Closing::LONG_AGO);
  EXPECT_EQ(closed.age_ms({"ALPHA", "a1"}, NOW), 0);
  EXPECT_EQ(closed.age_ms({"ALPHA", "a1"}, NOW + 1999), 1999);
}

TEST(ClosedOrders, close_anew_without_another_entry) {
  ClosedOrders closed;
  closed.note({"ALPHA", "a1"}, NOW);
  closed.note({"ALPHA", "a2"}, NOW);
  closed.note({"ALPHA", "a1"}, NOW + 5000);
  EXPECT_EQ(closed.size(), 2U);
  EXPECT_EQ(closed.closing_of({"ALPHA", "a1"}, NOW + 5000 + 1999), Closing::JUST_NOW);
  EXPECT_EQ(closed.closing_of({"ALPHA", "a1"}, NOW + 5000 + 2000), Closing::LONG_AGO);
  EXPECT_EQ(closed.age_ms({"ALPHA", "a2"}, NOW + 5000), 5000);
}

TEST(ClosedOrders, have_names_of_two_parts) {
  ClosedOrders closed;
  closed.note({"A", "BC"}, NOW);
  for (const ClientOrderKey& other : std::vector<ClientOrderKey>{
           {"AB", "C"}, {"ABC", ""}, {"", "ABC"}, {"BC", "A"}, {"A", "B"}, {"A", "BCD"}}) {
    EXPECT_EQ(closed.closing_of(other, NOW), Closing::UNKNOWN)
        << other.owner << " " << other.cl_ord_id;
  }
  closed.note({"AB", "C"}, NOW + 1);
  closed.note({"ABC", ""}, NOW + 2);
  closed.note({"", "ABC"}, NOW + 3);
  EXPECT_EQ(closed.size(), 4U);
  EXPECT_EQ(closed.age_ms({"A", "BC"}, NOW + 10), 10);
  EXPECT_EQ(closed.age_ms({"AB", "C"}, NOW + 10), 9);
  EXPECT_EQ(closed.age_ms({"ABC", ""}, NOW + 10), 8);
  EXPECT_EQ(closed.age_ms({"", "ABC"}, NOW + 10), 7);
}

TEST(ClosedOrders, keep_a_name_that_its_owner_no_longer_has) {
  ClosedOrders closed;
  {
    const std::string owner = "AN_OWNER_OF_A_LONG_NAME";
    const std::string cl_ord_id = "an_order_of_a_long_name";
    closed.note({owner, cl_ord_id}, NOW);
  }
  EXPECT_TRUE(closed.age_ms({"AN_OWNER_OF_A_LONG_NAME", "an_order_of_a_long_name"}, NOW));
}

TEST(ClosedOrders, are_50000_at_most_and_one_more_forgets_them_all_the_newest_too) {
  ClosedOrders closed;
  for (size_t i = 1; i <= MOST; ++i) closed.note({"ALPHA", std::to_string(i)}, NOW + i);
  EXPECT_EQ(closed.size(), MOST);
  for (size_t i = 1; i <= MOST; ++i) {
    ASSERT_EQ(closed.age_ms({"ALPHA", std::to_string(i)}, NOW + MOST),
              static_cast<int64_t>(MOST - i))
        << i;
  }
  closed.note({"ALPHA", "50000"}, NOW);  // a known one is none more
  EXPECT_EQ(closed.size(), MOST);
  closed.note({"ALPHA", "50001"}, NOW);
  EXPECT_EQ(closed.size(), 0U);
  for (size_t i = 1; i <= MOST + 1; ++i) {
    ASSERT_EQ(closed.closing_of({"ALPHA", std::to_string(i)}, NOW), Closing::UNKNOWN) << i;
  }
}

TEST(ClosedOrders, are_remembered_again_after_all_have_been_forgotten) {
  ClosedOrders closed;
  for (size_t i = 0; i <= MOST; ++i) closed.note({"ALPHA", std::to_string(i)}, NOW);
  closed.note({"BETA", "b1"}, NOW);
  closed.note({"ALPHA", "7"}, NOW + 1);
  EXPECT_EQ(closed.size(), 2U);
  EXPECT_EQ(closed.age_ms({"BETA", "b1"}, NOW + 5), 5);
  EXPECT_EQ(closed.age_ms({"ALPHA", "7"}, NOW + 5), 4);
  for (size_t i = 2; i <= MOST; ++i) closed.note({"BETA", std::to_string(i)}, NOW);
  EXPECT_EQ(closed.size(), 0U) << "as many fit in as the first time";
}

TEST(ClosedOrders, are_what_the_standard_map_has_after_any_history) {
  std::mt19937_64 rng(1);
  ClosedOrders closed;
  std::map<std::pair<std::string, std::string>, uint64_t> map;
  const char* const owners[] = {"A", "AA", "AAA", ""};
  const auto some_name = [&] {
    return std::pair<std::string, std::string>{
        owners[rng() % 4], std::string(rng() % 3, 'A') + std::to_string(rng() % 30000)};
  };
  uint64_t now_ms = NOW;
  for (int step = 0; step < 130000; ++step) {
    now_ms += rng() % 3;
    const auto name = some_name();
    closed.note({name.first, name.second}, now_ms);
    map[name] = now_ms;
    if (map.size() > MOST) map.clear();
    ASSERT_EQ(closed.size(), map.size()) << "step " << step;
    const auto asked = some_name();
    const auto entry = map.find(asked);
    const std::optional<int64_t> age = closed.age_ms({asked.first, asked.second}, now_ms);
    ASSERT_EQ(age.has_value(), entry != map.end()) << "step " << step;
    if (!age) continue;
    ASSERT_EQ(*age, static_cast<int64_t>(now_ms - entry->second)) << "step " << step;
    ASSERT_EQ(closed.closing_of({asked.first, asked.second}, now_ms),
              *age < 2000 ? Closing::JUST_NOW : Closing::LONG_AGO);
  }
}

}  // namespace
}  // namespace quorl
