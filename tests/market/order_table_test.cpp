#include "market/order_table.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <string>
#include <unordered_map>
#include <vector>

namespace quorl {
namespace {

Order order_of(uint64_t id, uint16_t locate = 1, const std::string& owner = "") {
  Order order;
  order.id = id;
  order.locate = locate;
  order.owner = owner;
  order.leaves = order.qty = 100;
  return order;
}

std::vector<uint64_t> ids_in(const OrderTable& table) {
  std::vector<uint64_t> ids;
  table.for_each([&](const RestingOrder& order) { ids.push_back(order.id); });
  return ids;
}

std::vector<uint64_t> background_ids_in(const OrderTable& table, uint16_t locate) {
  std::vector<uint64_t> ids;
  for (size_t i = 0; i < table.background_count(locate); ++i) {
    ids.push_back(table.background_order(locate, i).id);
  }
  return ids;
}

/// The table beside the standard library's map, whose order the market of a seed was first known
/// by.
class Twins {
 public:
  void insert(const Order& order) {
    rested_.insert_or_assign(order.id, &table_.insert(order));
    map_.insert_or_assign(order.id, order);
  }
  void erase(uint64_t id) {
    table_.erase(*rested_.at(id));
    rested_.erase(id);
    map_.erase(id);
  }
  void expect_same(uint16_t locates) const {
    ASSERT_EQ(table_.size(), map_.size());
    std::vector<uint64_t> ids;
    std::vector<std::vector<uint64_t>> background(size_t{locates} + 1);
    for (const auto& [id, order] : map_) {
      ids.push_back(id);
      if (order.owner.empty()) background[order.locate].push_back(id);
    }
    ASSERT_EQ(ids_in(table_), ids);
    for (uint16_t locate = 0; locate <= locates; ++locate) {
      ASSERT_EQ(background_ids_in(table_, locate), background[locate]) << "locate " << locate;
    }
  }

 private:
  OrderTable table_;
  std::unordered_map<uint64_t, RestingOrder*> rested_;
  std::unordered_map<uint64_t, Order> map_;
};

TEST(OrderTable, holds_what_was_put_in_until_it_is_erased) {
  OrderTable table;
  EXPECT_EQ(table.size(), 0U);
  EXPECT_EQ(table.find(1000), nullptr);
  Order order = order_of(1000, 2, "ALPHA");
  order.cl_ord_id = "a1";
  RestingOrder& resting = table.insert(order);
  EXPECT_EQ(table.size(), 1U);
  EXPECT_EQ(table.find(1000), &resting);
  EXPECT_EQ(table.find(1013), nullptr);  // the same bucket
  EXPECT_EQ(resting.owner, "ALPHA");
  EXPECT_EQ(resting.cl_ord_id, "a1");
  table.erase(resting);
  EXPECT_EQ(table.size(), 0U);
  EXPECT_FALSE(table.contains(1000));
}

TEST(OrderTable, keeps_addresses_while_it_grows) {
  OrderTable table;
  const RestingOrder& first = table.insert(order_of(1));
  for (uint64_t id = 2; id < 5000; ++id) table.insert(order_of(id));
  EXPECT_EQ(table.find(1), &first);
  EXPECT_EQ(first.id, 1U);
}

TEST(OrderTable, puts_an_order_of_an_empty_bucket_in_front_of_all) {
  OrderTable table;
  for (const uint64_t id : {1U, 2U, 3U}) table.insert(order_of(id));
  EXPECT_EQ(ids_in(table), (std::vector<uint64_t>{3, 2, 1}));
}

TEST(OrderTable, puts_an_order_of_an_occupied_bucket_in_front_of_that_bucket) {
  OrderTable table;  // of 13 buckets
  for (const uint64_t id : {1U, 2U, 14U}) table.insert(order_of(id));
  EXPECT_EQ(ids_in(table), (std::vector<uint64_t>{2, 14, 1}));
}

TEST(OrderTable, forgets_a_bucket_that_has_emptied) {
  OrderTable table;
  RestingOrder& first = table.insert(order_of(1));
  table.insert(order_of(2));
  table.erase(first);
  table.insert(order_of(14));
  EXPECT_EQ(ids_in(table), (std::vector<uint64_t>{14, 2}));
}

TEST(OrderTable, keeps_the_place_of_a_bucket_whose_first_order_has_gone) {
  OrderTable table;
  RestingOrder& first = table.insert(order_of(1));
  table.insert(order_of(14));
  table.insert(order_of(2));
  table.erase(first);
  table.insert(order_of(27));
  EXPECT_EQ(ids_in(table), (std::vector<uint64_t>{2, 27, 14}));
}

TEST(OrderTable, goes_through_the_orders_as_the_standard_hash_map_does_while_it_grows) {
  Twins twins;
  for (uint64_t id = 1000; id < 1000 + 3000; ++id) {
    twins.insert(order_of(id, static_cast<uint16_t>(id % 4), id % 5 == 0 ? "ALPHA" : ""));
    twins.expect_same(3);
    if (testing::Test::HasFatalFailure()) FAIL() << "at id " << id;
  }
}

TEST(OrderTable, has_the_buckets_that_the_standard_hash_map_has_beyond_what_a_test_can_fill_too) {
  std::__detail::_Prime_rehash_policy standard;  // what GNU's map asks when it is full
  size_t buckets = OrderTable::BUCKET_COUNTS.front();
  for (size_t i = 1; i < OrderTable::BUCKET_COUNTS.size(); ++i) {
    buckets = standard._M_need_rehash(buckets, i == 1 ? 0 : buckets, 1).second;
    EXPECT_EQ(OrderTable::BUCKET_COUNTS[i], buckets);
  }
}

/// As a market lives: ids that rise, orders that go at any time, some that come back with the id
/// that they had.
void live(uint64_t seed, size_t steps, size_t most, uint16_t locates, size_t compare_every) {
  std::mt19937_64 rng(seed);
  Twins twins;
  std::vector<Order> resting;
  uint64_t next_id = 1000;
  for (size_t step = 0; step < steps; ++step) {
    const uint64_t draw = rng() % 100;
    const bool full = resting.size() >= most * (1 + step % 1000) / 1000 + 1;
    if (resting.empty() || (draw < 55 && !full)) {
      next_id += rng() % 20 == 0 ? rng() % 50 : 1;  // orders that never rested took ids too
      const auto locate = static_cast<uint16_t>(1 + rng() % locates);
      resting.push_back(order_of(next_id++, locate, rng() % 3 == 0 ? "ALPHA" : ""));
      twins.insert(resting.back());
    } else {
      const size_t at = rng() % resting.size();
      twins.erase(resting[at].id);
      if (draw % 10 == 0) {
        twins.insert(resting[at]);  // a replace that lost its place
      } else {
        resting[at] = resting.back();
        resting.pop_back();
      }
    }
    if (step % compare_every == 0) twins.expect_same(locates);
    if (testing::Test::HasFatalFailure()) FAIL() << "seed " << seed << ", step " << step;
  }
  twins.expect_same(locates);
}

TEST(OrderTable, goes_through_the_orders_as_the_standard_hash_map_does_after_any_history) {
  for (uint64_t seed = 1; seed <= 40; ++seed) live(seed, 3000, 20 * seed, 3, 10);
}

TEST(OrderTable, goes_through_many_orders_as_the_standard_hash_map_does) {
  live(7, 60000, 50000, 20, 9973);
}

}  // namespace
}  // namespace quorl
