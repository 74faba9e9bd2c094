#include <map>
#include <memory>
#include <string>
#include <vector>

#include "perf/growth.h"
#include "perf/rig.h"
#include "perf/rounds.h"
#include "quorl/client/simulator.h"

namespace client = quorl::client;

namespace perf {
namespace {

constexpr uint32_t LOWEST_SELL_CENTS = 20000;
constexpr uint32_t ENOUGH_SHARES = 5000000;  // for every fill-or-kill of a run
constexpr size_t LOT = 16;                   // requests of a kind in one burst
constexpr size_t LOTS = 8;

struct Costs {
  double new_order_us = 0;
  double cancel_us = 0;
  double fill_or_kill_us = 0;
};

/// Sells that rest at so and so many prices, and nothing else on their side.
class Book {
 public:
  Book(const std::string& binary, const Placement& placement, size_t orders, size_t prices)
      : rig_(plain_options(binary, client::still_market()), placement),
        session_(rig_.logs_on("PERF")),
        prices_(prices) {
    session_->sweep(BUY);
    // Filled or killed against, at the best price and the head of its queue.
    taken_from_ = session_->new_order(
        {.side = SELL, .price_cents = LOWEST_SELL_CENTS, .quantity = ENOUGH_SHARES}, ACCEPTED);
    rig_.send(
        *session_, orders, [&](size_t i) { add(i); }, 512);
    measure();  // the first time finds everything cold
  }

  /// Leaves the book as it was.
  Costs measure() {
    Costs costs;
    for (size_t lot = 0; lot < LOTS; ++lot) {
      costs.new_order_us += cost_of([&](size_t i) { add(lot * LOT + i); });
      costs.cancel_us += cost_of([&](size_t) {
        const auto middle = resting_.begin() + static_cast<ptrdiff_t>(resting_.size() / 2);
        session_->cancel(*middle);
        resting_.erase(middle);
      });
      costs.fill_or_kill_us += cost_of([&](size_t) {
        session_->new_order(
            {.side = BUY, .price_cents = LOWEST_SELL_CENTS, .quantity = 1, .tif = FILL_OR_KILL},
            ACCEPTED_AND_FILLED);
        session_->will_hear(taken_from_, PARTLY_FILLED[0]);
      });
    }
    return costs;
  }

 private:
  void add(size_t i) {
    const auto level = static_cast<uint32_t>(i * 7919 % prices_);
    resting_.push_back(
        session_->new_order({.side = SELL, .price_cents = LOWEST_SELL_CENTS + level}, ACCEPTED));
  }

  template <typename Queue>
  double cost_of(Queue&& queue) {
    return rig_.us_of([&] { rig_.send(*session_, LOT, queue); }) / (LOT * LOTS);
  }

  Rig rig_;
  std::unique_ptr<Session> session_;
  size_t prices_;
  RequestId taken_from_ = 0;
  std::vector<RequestId> resting_;  // in the order of coming
};

struct Books {
  Book small;
  Book deep;
  Book wide;
};

}  // namespace

void measure_depth(const Settings& settings, Report& report) {
  if (!settings.wants("depth")) return;
  const size_t orders = settings.scaled(100000, 5000);
  const size_t prices = settings.scaled(10000, 1000);
  const Placement& at = settings.one_cpu;
  const std::string deep = ", " + std::to_string(orders) + " at one price";
  const std::string wide =
      ", " + std::to_string(orders) + " over " + std::to_string(prices) + " prices";

  // Filling the books is what takes long: they are filled once and serve every round.
  std::map<std::string, std::unique_ptr<Books>> books;
  for (const Build& build : settings.builds) {
    report.attempt("depth", [&] {
      books[build.name].reset(new Books{{build.binary, at, LOT, 1},
                                        {build.binary, at, orders, 1},
                                        {build.binary, at, orders, prices}});
    });
  }
  in_rounds(settings, report, "depth", USUAL_BUDGET, [&](const Build& build, unsigned) {
    if (books[build.name] == nullptr) return;
    const Costs small = books[build.name]->small.measure();
    const auto add = [&](const std::string& where, const Costs& big) {
      const std::string to = "at " + std::to_string(LOT) + " orders";
      report.add({"growth", "new order" + where, "us", to}, build.name,
                 {big.new_order_us, small.new_order_us});
      report.add({"growth", "cancel from the middle" + where, "us", to}, build.name,
                 {big.cancel_us, small.cancel_us});
      report.add({"growth", "fill-or-kill of a share" + where, "us", to}, build.name,
                 {big.fill_or_kill_us, small.fill_or_kill_us});
    };
    add(deep, books[build.name]->deep.measure());
    add(wide, books[build.name]->wide.measure());
  });
}

}  // namespace perf
