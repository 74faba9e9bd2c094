#include "base/message_log.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <deque>
#include <random>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace quorl {
namespace {

using Numbered = MessageLog<uint64_t>;

TEST(MessageLog, is_empty_at_first) {
  const Numbered log;
  EXPECT_TRUE(log.empty());
  EXPECT_EQ(log.size(), 0U);
}

TEST(MessageLog, messages_come_back_in_order_with_their_records) {
  Numbered log;
  log.push(7, "one");
  log.push(9, "two");
  ASSERT_EQ(log.size(), 2U);
  EXPECT_EQ(log[0].meta, 7U);
  EXPECT_EQ(log[0].bytes, "one");
  EXPECT_EQ(log[1].meta, 9U);
  EXPECT_EQ(log[1].bytes, "two");
}

TEST(MessageLog, the_bytes_are_copied_zeros_and_all) {
  Numbered log;
  std::string message("a\0b", 3);
  log.push(1, message);
  message = "xyz";
  EXPECT_EQ(log[0].bytes, std::string_view("a\0b", 3));
}

TEST(MessageLog, an_empty_message_keeps_its_place) {
  Numbered log;
  log.push(1, "");
  log.push(2, "full");
  log.push(3, {});
  ASSERT_EQ(log.size(), 3U);
  EXPECT_EQ(log[0].bytes, "");
  EXPECT_EQ(log[1].bytes, "full");
  EXPECT_EQ(log[2].bytes, "");
  log.pop_front();
  EXPECT_EQ(log[0].bytes, "full");
}

TEST(MessageLog, the_oldest_goes_first) {
  Numbered log;
  log.push(1, "a");
  log.push(2, "bb");
  log.push(3, "ccc");
  log.pop_front();
  ASSERT_EQ(log.size(), 2U);
  EXPECT_EQ(log[0].meta, 2U);
  EXPECT_EQ(log[0].bytes, "bb");
  log.pop_front();
  log.pop_front();
  EXPECT_TRUE(log.empty());
  log.push(4, "dddd");
  EXPECT_EQ(log[0].meta, 4U);
  EXPECT_EQ(log[0].bytes, "dddd");
}

TEST(MessageLog, is_as_new_when_cleared) {
  Numbered log;
  for (uint64_t i = 0; i < 5000; ++i) log.push(i, "forgotten");
  log.clear();
  EXPECT_TRUE(log.empty());
  log.push(1, "kept");
  ASSERT_EQ(log.size(), 1U);
  EXPECT_EQ(log[0].bytes, "kept");
}

TEST(MessageLog, takes_messages_of_any_size) {
  const std::vector<size_t> sizes = {0,     1,     1023,  1024,   1025,   0,  65535, 65536,    0,
                                     65537, 65536, 65538, 200000, 200000, 10, 0,     1'000'000};
  Numbered log;
  for (const size_t size : sizes) log.push(size, std::string(size, static_cast<char>(size)));
  for (size_t popped = 0; popped < sizes.size(); ++popped) {
    ASSERT_EQ(log.size(), sizes.size() - popped);
    for (size_t i = 0; i < log.size(); ++i) {
      const size_t size = sizes[popped + i];
      EXPECT_EQ(log[i].meta, size);
      EXPECT_TRUE(log[i].bytes == std::string(size, static_cast<char>(size))) << size;
    }
    log.pop_front();
  }
}

TEST(MessageLog, a_message_stays_where_it_is_until_it_goes) {
  Numbered log;
  log.push(1, "gone soon");
  log.push(2, "stays");
  const std::string_view bytes = log[1].bytes;
  for (uint64_t i = 0; i < 20000; ++i) log.push(i, "more");
  log.pop_front();
  EXPECT_EQ(log[0].bytes.data(), bytes.data());
  EXPECT_EQ(bytes, "stays");
}

TEST(MessageLog, moves_with_all_it_holds) {
  Numbered from;
  for (uint64_t i = 0; i < 1000; ++i) from.push(i, std::to_string(i));
  for (int i = 0; i < 500; ++i) from.pop_front();
  const Numbered log = std::move(from);
  ASSERT_EQ(log.size(), 500U);
  EXPECT_EQ(log[499].meta, 999U);
  EXPECT_EQ(log[0].bytes, "500");
}

TEST(MessageLog, steady_traffic_fills_the_same_memory_again_and_again) {
  Numbered log;
  std::set<const char*> places;
  for (uint64_t i = 0; i < 100'000; ++i) {
    log.push(i, std::string(64, 'x'));
    if (log.size() > 1000) log.pop_front();
    places.insert(log[log.size() - 1].bytes.data());
  }
  // The 1000 are spread over two or three chunks of 1024 places each, and the first ones were
  // smaller.
  EXPECT_LE(places.size(), 5U * 1024U);
}

/// What a log ought to be.
using Model = std::deque<std::pair<uint64_t, std::string>>;

void expect_equal(const Numbered& log, const Model& model, size_t index) {
  ASSERT_EQ(log.size(), model.size());
  if (model.empty()) return;
  ASSERT_EQ(log[index].meta, model[index].first);
  ASSERT_TRUE(log[index].bytes == model[index].second) << "at " << index << " of " << model.size();
}

/// `growing` of 100 steps add messages of up to `longest` bytes, the others drop one.
void live_through(uint32_t seed, int growing, size_t longest, int steps) {
  std::mt19937 rng(seed);
  const auto draw = [&rng](size_t below) { return rng() % below; };
  Numbered log;
  Model model;
  for (int step = 0; step < steps; ++step) {
    if (draw(3000) == 0) {
      log.clear();
      model.clear();
    } else if (static_cast<int>(draw(100)) < growing) {
      std::string message(draw(longest + 1), ' ');
      for (char& c : message) c = static_cast<char>(rng());
      log.push(rng(), message);
      model.emplace_back(log[log.size() - 1].meta, std::move(message));
    } else if (!model.empty()) {
      log.pop_front();
      model.pop_front();
    }
    const size_t at = model.empty() ? 0 : draw(model.size());
    for (const size_t index : {size_t{0}, at, model.empty() ? 0 : model.size() - 1}) {
      ASSERT_NO_FATAL_FAILURE(expect_equal(log, model, index))
          << "seed " << seed << " step " << step;
    }
  }
  for (size_t i = 0; i < model.size(); ++i) ASSERT_NO_FATAL_FAILURE(expect_equal(log, model, i));
}

TEST(MessageLog, is_a_queue_of_strings_whatever_is_done_with_it) {
  for (const uint32_t seed : {1U, 2U, 3U, 4U}) {
    live_through(seed, 60, 60, 20000);   // short messages, growing
    live_through(seed, 50, 60, 20000);   // about to run empty
    live_through(seed, 52, 3000, 4000);  // some fill a small chunk
    live_through(seed, 70, 70000, 300);  // some fill a large one
  }
}

}  // namespace
}  // namespace quorl
