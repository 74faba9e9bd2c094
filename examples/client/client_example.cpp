// A whole certification in small: starts an exchange, follows its feed, buys at the market, and
// holds what the FIX session was told against the feed and against the exchange's own record.
//
//   client-example PROGRAM      such as /usr/bin/quorl
//
// Exit status: 0 if all three agree, 1 if they do not, 2 for a wrong call.

#include <algorithm>
#include <cstdio>
#include <exception>
#include <map>
#include <string>
#include <vector>

#include "quorl/client/fix_session.h"
#include "quorl/client/json_lines.h"
#include "quorl/client/recovering_subscriber.h"
#include "quorl/client/simulator.h"
#include "quorl/client/temp_directory.h"

namespace client = quorl::client;

namespace {

const std::string SYMBOL = "AAPL";
const std::string ORDER = "example-1";

/// Buys 100 at the market. Returns the reports up to the one that leaves no share open.
std::vector<client::FixMessage> buy(client::FixSession& session) {
  session.new_order({.cl_ord_id = ORDER, .symbol = SYMBOL, .quantity = "100", .type = "1"});
  std::vector<client::FixMessage> reports;
  do {
    reports.push_back(session.expect("8"));  // ExecutionReport; throws if another message comes
  } while (reports.back().number(151) > 0);
  return reports;
}

/// Whether the feed shows the trade that a report tells of. It has left before the report did, but
/// by another way.
bool feed_shows_trade(client::RecoveringSubscriber& feed, const client::FixMessage& fill) {
  return feed.run_until([&] {
    const auto& trades = feed.book().book(SYMBOL).trades;
    return std::any_of(trades.begin(), trades.end(), [&](const client::TradeReport& trade) {
      return trade.trade_id == fill.number(880) && trade.size == fill.number(32) &&
             client::price_text(trade.price) == fill.get(31);
    });
  });
}

/// Whether a line of the order event file says what the report said.
bool agree(const client::FixMessage& report, const client::OrderEvent& event) {
  const std::map<std::string, std::string> words = {// by ExecType
                                                    {"0", "new"},
                                                    {"1", "fill"},
                                                    {"2", "fill"},
                                                    {"4", "cancel"}};
  return event.ev == words.at(report.get(150)) && event.cl == report.get(11) &&
         event.oid == report.number(37) && event.cum == report.number(14) &&
         event.leaves == report.number(151) && event.last_qty == report.number(32);
}

/// Whether the order event file has the reports, all of them and no more.
bool file_has(const std::vector<client::FixMessage>& reports,
              const std::vector<client::OrderEvent>& events) {
  return std::equal(reports.begin(), reports.end(), events.begin(), events.end(), agree);
}

bool certify(const std::string& program) {
  client::Simulator exchange({.binary = program, .order_truth = true});
  client::RecoveringSubscriber feed(exchange.ports());
  feed.follow_from_start();  // it is there before the first packet
  exchange.start();
  feed.await_seq(1);  // by which the run of the exchange is known
  feed.catch_up();
  std::printf("following %s: %zu offers\n", SYMBOL.c_str(), feed.book().book(SYMBOL).asks.size());

  client::FixSession session(exchange.ports().fix, "EXAMPLE");
  session.logon();
  const std::vector<client::FixMessage> reports = buy(session);
  session.logout();

  bool good = true;
  for (const client::FixMessage& report : reports) {
    if (!report.has(880)) continue;  // no trade
    const bool shown = feed_shows_trade(feed, report);
    good = good && shown;
    std::printf("bought %s at %s: the feed %s\n", report.get(32).c_str(), report.get(31).c_str(),
                shown ? "shows it" : "DOES NOT SHOW IT");
  }
  const auto events = client::parse_order_events(client::read_file(exchange.order_truth_path()));
  const bool same = file_has(reports, events);
  std::printf("%zu reports, %zu order events: they %s\n", reports.size(), events.size(),
              same ? "agree" : "DO NOT AGREE");
  return good && same && exchange.terminate().code == 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: client-example PROGRAM\n");
    return 2;
  }
  try {
    return certify(argv[1]) ? 0 : 1;
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "client-example: %s\n", failure.what());
    return 1;
  }
}
