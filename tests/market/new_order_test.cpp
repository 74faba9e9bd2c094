#include <gtest/gtest.h>

#include "support/exchange.h"

namespace quorl::test {
namespace {

TEST(NewOrder, market_buy_sweeps_two_levels_best_price_first) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  exchange.rests({"AAPL sell 300 @ 190.01", "AAPL sell 300 @ 190.02"});
  FixPeer client = exchange.logs_on("ALPHA");
  client.says("35=D|11=a1|55=AAPL|54=1|38=500|40=1|18=i");
  client.hears("35=8|150=0|39=0|151=500|14=0|!44");
  client.hears("35=8|150=1|39=1|32=300|31=190.01|151=200|14=300");
  client.hears("35=8|150=2|39=2|32=200|31=190.02|151=0|14=500");
  client.hears_nothing();
  exchange.feed_shows(
      {"T 300 @ 190.01", "T 200 @ 190.02", "5 0 @ 190.01", "5 100 @ 190.02 last"});
  exchange.book_holds({"sell 100 @ 190.02"});
}

}  // namespace
}  // namespace quorl::test
