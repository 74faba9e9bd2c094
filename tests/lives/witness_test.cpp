#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "bench/scenario.h"
#include "lives/act.h"
#include "lives/life.h"
#include "market/engine.h"

// Each of the witnesses of a life notices what it is there for: a good life in which one thing is
// altered on its way to them is broken, by the rule that names it.

namespace lives {
namespace {

/// Orders that rest and orders that trade, at ALPHA and BETA, in a still market: each line of acts
/// is what it looks like.
Script good_life() {
  return {.setup = 2u << 16,
          .acts = {{Kind::LOG_ON, 0, 0, 0, 30},
                   {Kind::TURNS},
                   {Kind::ORDER, 0, 0, 0, 100, 0, 1, 8},  // rests
                   {Kind::TURNS},
                   {Kind::ORDER, 0, 0, 0, 101, 4, 1, 14},  // trades
                   {Kind::TURNS},
                   {Kind::ORDER, 0, 0, 1, 102, 4, 1, 14},
                   {Kind::CANCEL, 0, 100, 100},
                   {Kind::TURNS},
                   {Kind::IMAGE, 0, 0, 1, 1, 1, 1, 1},
                   {Kind::GAP_REQUEST, 0, 0, 0, 2, 9, 1, 0},
                   {Kind::TURNS, 0, 3}}};
}

TEST(Witnesses, have_nothing_to_say_of_a_good_life) {
  const Course course = live(good_life());
  EXPECT_EQ(course.broken.value_or(""), "");
  EXPECT_GE(course.orders, 3U);
  EXPECT_GE(course.fills, 1U);
  EXPECT_EQ(course.images, 1U);
}

void expect_noticed(const Tampering& tampering, const std::string& rule) {
  const Course course = live(good_life(), tampering);
  ASSERT_TRUE(course.broken.has_value()) << "nobody noticed: " << rule;
  EXPECT_TRUE(course.broken->starts_with(rule)) << *course.broken;
}

/// Does something once, at the first call for which `wanted` holds.
template <typename Text>
std::function<void(Text&)> once(std::function<bool(const Text&)> wanted,
                                std::function<void(Text&)> change) {
  return [wanted, change, done = false](Text& text) mutable {
    if (done || !wanted(text)) return;
    done = true;
    change(text);
  };
}

/// The first value behind `tag` becomes `value`, of the same length, with a CheckSum to match.
std::function<void(std::string&)> fix_change(const std::string& where, const std::string& from,
                                             const std::string& to) {
  return once<std::string>(
      [where, from](const std::string& message) {
        return message.find(where) != std::string::npos && message.find(from) != std::string::npos;
      },
      [from, to](std::string& message) {
        message.replace(message.find(from), from.size(), to);
        unsigned sum = 0;
        const size_t trailer = message.rfind("10=");
        for (const char byte : message.substr(0, trailer)) sum += static_cast<uint8_t>(byte);
        std::string digits = std::to_string(sum % 256);
        digits.insert(0, 3 - digits.size(), '0');
        message.replace(trailer + 3, 3, digits);
      });
}

TEST(Witnesses, notice_a_packet_that_never_left) {
  // What is not there cannot be altered: a heartbeat takes the place of a packet.
  expect_noticed(
      {.feed = once<std::string>([](const std::string& datagram) { return datagram.size() > 40; },
                                 [](std::string& datagram) {
                                   datagram.resize(40);
                                   datagram[12] = datagram[13] = 0;
                                   datagram[14] = datagram[15] = 0;
                                 })},
      "each packet is sent, dropped or held");
}

TEST(Witnesses, notice_a_byte_of_the_feed) {
  expect_noticed(
      {.feed = once<std::string>([](const std::string& datagram) { return datagram.size() > 60; },
                                 [](std::string& datagram) { datagram.back() ^= 1; })},
      "what is kept is what was sent");
}

TEST(Witnesses, notice_a_packet_that_announces_two_too_many) {
  expect_noticed(
      {.feed = once<std::string>([](const std::string& datagram) { return datagram.size() > 40; },
                                 [](std::string& datagram) { datagram[24] += 2; })},
      "a packet announces its first number or one more");
}

TEST(Witnesses, notice_a_report_that_is_not_the_one_that_is_kept) {
  expect_noticed({.fix = fix_change("35=8",
                                    "\x01"
                                    "17=E1\x01",
                                    "\x01"
                                    "17=E7\x01")},
                 "what is kept is what was sent");
}

TEST(Witnesses, notice_a_number_that_comes_twice) {
  expect_noticed({.fix = fix_change("35=8",
                                    "\x01"
                                    "34=3\x01",
                                    "\x01"
                                    "34=2\x01")},
                 "a number is used once");
}

TEST(Witnesses, notice_a_line_of_truth_that_is_missing) {
  expect_noticed(
      {.truth = once<std::string>([](const std::string& lines) { return !lines.empty(); },
                                  [](std::string& lines) { lines.clear(); })},
      "each report has its line and each line its report");
}

TEST(Witnesses, notice_a_line_of_truth_with_other_shares) {
  expect_noticed({.truth = once<std::string>(
                      [](const std::string& lines) {
                        return lines.find("\"last_qty\":500") != std::string::npos;
                      },
                      [](std::string& lines) {
                        lines.replace(lines.find("\"last_qty\":500"), 14, "\"last_qty\":400");
                      })},
                 "each report has its line and each line its report");
}

const quorl::RestingOrder* some_order(const quorl::Engine& engine, bool of_client) {
  const quorl::RestingOrder* found = nullptr;
  engine.orders.for_each([&](const quorl::RestingOrder& order) {
    if (found == nullptr && order.owner.empty() != of_client) found = &order;
  });
  return found;
}

void expect_noticed_inside(bool of_client, const std::function<void(quorl::Order&)>& change,
                           const std::string& rule) {
  expect_noticed({.inside =
                      [&, done = false](quorl::Engine& engine) mutable {
                        const quorl::RestingOrder* const order = some_order(engine, of_client);
                        if (done || order == nullptr) return;
                        done = true;
                        change(const_cast<quorl::RestingOrder&>(*order));
                      }},
                 rule);
}

TEST(Witnesses, notice_shares_that_are_not_in_the_sum) {
  expect_noticed_inside(
      false, [](quorl::Order& order) { order.qty = ++order.leaves; },
      "a level's size is the sum of its queue");
}

TEST(Witnesses, notice_an_order_without_open_shares) {
  expect_noticed_inside(
      false, [](quorl::Order& order) { order.leaves = 0; }, "a resting order has open shares");
}

TEST(Witnesses, notice_an_order_at_another_price_than_its_queue) {
  expect_noticed_inside(
      false, [](quorl::Order& order) { order.price += 100; }, "a queue holds orders of its price");
}

TEST(Witnesses, notice_a_client_s_order_that_does_not_add_up) {
  expect_noticed_inside(
      true, [](quorl::Order& order) { ++order.cum; }, "ordered = open + done");
}

TEST(Witnesses, notice_a_counter_that_was_raised_for_nothing) {
  expect_noticed({.inside = [](quorl::Engine& engine) { ++engine.scenario->counters.fills; }},
                 "the counter fills is what was seen");
  expect_noticed({.inside = [](quorl::Engine& engine) { ++engine.scenario->counters.logons; }},
                 "each Logon is counted");
}

TEST(Witnesses, notice_trades_that_the_volume_lacks) {
  expect_noticed({.inside = [](quorl::Engine& engine) { ++engine.stocks.front().volume; }},
                 "volume is the sum of the feed's trades");
}

TEST(Witnesses, notice_a_crossed_book) {
  expect_noticed({.inside =
                      [](quorl::Engine& engine) {
                        quorl::Stock& stock = engine.stocks.front();
                        quorl::Order order;
                        order.id = engine.next_order_id++;
                        order.locate = stock.locate;
                        order.price = stock.book.asks().best()->price;
                        order.leaves = order.qty = 100;
                        engine.begin_event();
                        engine.rest_order(stock, order);
                        engine.publish_dirty(stock);
                      }},
                 "a book is not crossed");
}

}  // namespace
}  // namespace lives
