// Nothing on the order path allocates that need not: an order is read, matched, published, stored
// and answered in memory that is kept from the one before. What remains is growth: tables and logs
// that hold more than ever before, in steps that get rarer.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <new>
#include <string>

#include "support/fix_wire.h"
#include "support/fix_wire_gateway.h"

namespace {

bool counting = false;
uint64_t allocations = 0;

void* allocate(std::size_t size) {
  if (counting) ++allocations;
  void* const memory = std::malloc(size != 0 ? size : 1);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}

}  // namespace

void* operator new(std::size_t size) { return allocate(size); }
void* operator new[](std::size_t size) { return allocate(size); }
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete[](void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete[](void* memory, std::size_t) noexcept { std::free(memory); }

namespace quorl::test {
namespace {

constexpr int ORDERS = 3000;
constexpr double ONLY_GROWTH = 0.2;  // for each message of a client

struct OrderPath : testing::Test {
  /// The gateway reads and handles these, and only that is counted.
  void handles(const std::string& frames) {
    alpha.writes(frames);
    counting = true;
    gateway.serves();
    gateway.exchange.engine.drain_deferred();
    counting = false;
    alpha.skips_all();
  }

  std::string order(const std::string& cl_ord_id, char side, uint32_t qty, const std::string& price,
                    char tif = '0') {
    return framed("35=D|34=" + std::to_string(++seq) + "|11=" + cl_ord_id + "|55=AAPL|54=" + side +
                  "|38=" + std::to_string(qty) + "|40=2|59=" + tif + "|18=i|44=" + price);
  }
  std::string cancel(const std::string& cl_ord_id, const std::string& orig) {
    return framed("35=F|34=" + std::to_string(++seq) + "|11=" + cl_ord_id + "|41=" + orig);
  }
  std::string replace(const std::string& cl_ord_id, const std::string& orig, uint32_t qty,
                      const std::string& price) {
    return framed("35=G|34=" + std::to_string(++seq) + "|11=" + cl_ord_id + "|41=" + orig +
                  "|55=AAPL|54=1|38=" + std::to_string(qty) + "|44=" + price);
  }
  static std::string name(char letter, int number) { return letter + std::to_string(number); }
  static std::string price_of(int number) { return std::to_string(100 + number % 50); }

  /// Allocations for each of ORDERS rounds, once as many have gone before.
  double per_round(const std::function<void(int number)>& round) {
    for (int i = 0; i < ORDERS; ++i) round(i);
    allocations = 0;
    for (int i = ORDERS; i < 2 * ORDERS; ++i) round(i);
    return static_cast<double>(allocations) / ORDERS;
  }

  WireGateway gateway;
  WirePeer alpha = gateway.logs_on("ALPHA");
  uint32_t seq = 1;
};

TEST_F(OrderPath, an_order_that_rests_allocates_nothing_but_growth) {
  EXPECT_LT(per_round([&](int i) { handles(order(name('a', i), '1', 100, price_of(i))); }),
            ONLY_GROWTH);
}

TEST_F(OrderPath, an_order_that_is_cancelled_allocates_nothing_but_growth) {
  EXPECT_LT(per_round([&](int i) {
              handles(order(name('a', i), '1', 100, price_of(i)));
              handles(cancel(name('c', i), name('a', i)));
            }),
            2 * ONLY_GROWTH);
}

TEST_F(OrderPath, an_order_that_trades_allocates_nothing_but_growth) {
  EXPECT_LT(per_round([&](int i) {
              handles(order(name('a', i), '1', 100, price_of(i)));
              handles(order(name('b', i), '2', 100, price_of(i)));
            }),
            2 * ONLY_GROWTH);
}

TEST_F(OrderPath, a_replace_allocates_nothing_but_growth) {
  EXPECT_LT(per_round([&](int i) {
              handles(order(name('a', i), '1', 300, price_of(i)));
              handles(replace(name('b', i), name('a', i), 200, price_of(i)));
              handles(replace(name('d', i), name('b', i), 200, price_of(i + 1)));
              handles(cancel(name('c', i), name('d', i)));
            }),
            4 * ONLY_GROWTH);
}

TEST_F(OrderPath, an_order_that_is_rejected_allocates_nothing_but_growth) {
  EXPECT_LT(per_round([&](int i) { handles(order(name('a', i), '1', 0, price_of(i))); }),
            ONLY_GROWTH);
}

/// The longest names that are accepted do not fit into a string's own bytes.
TEST_F(OrderPath, a_long_name_allocates_once_for_each_copy_of_it) {
  const std::string prefix = "a-name-of-twenty";
  const double per_order = per_round([&](int i) {
    const std::string number = std::to_string(1000 + i);
    handles(order(prefix + number, '1', 100, price_of(i)));
  });
  EXPECT_GE(per_order, 1.0);
  EXPECT_LT(per_order, 2.0 + ONLY_GROWTH);
}

}  // namespace
}  // namespace quorl::test
