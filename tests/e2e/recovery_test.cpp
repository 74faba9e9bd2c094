// Whatever was lost comes back: a subscriber on a feed that drops, repeats and reorders, one that
// joins late, one whose hole is older than the history, and clients that lose their connection, in
// every way there is, and in the end none of their reports.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "quorl/client/control_client.h"
#include "quorl/client/errors.h"
#include "quorl/client/fix_session.h"
#include "quorl/client/gap_fill_client.h"
#include "quorl/client/json_lines.h"
#include "quorl/client/recovering_fix_client.h"
#include "quorl/client/recovering_subscriber.h"
#include "quorl/client/simulator.h"
#include "quorl/client/temp_directory.h"
#include "tests/e2e/support/exchange.h"
#include "tests/e2e/support/watched_exchange.h"

namespace client = quorl::client;

namespace e2e {
namespace {

using client::BookBuilder;
using client::ControlClient;
using client::FixMessage;
using client::FixSession;
using client::Price4;
using client::read_file;
using client::RecoveringFixClient;
using client::RecoveringSubscriber;
using client::Simulator;
using client::SimulatorOptions;
using client::TpMessage;
using std::chrono::milliseconds;
using testing::IsEmpty;
using testing::SizeIs;

// The feed.

/// A simulator and a subscriber that has been there since before its first packet.
class Followed {
 public:
  explicit Followed(const SimulatorOptions& options) {
    constexpr unsigned MOST_STARTS = 5;
    for (unsigned i = 0; i < MOST_STARTS; ++i) {
      subscriber_.reset();
      simulator_ = std::make_unique<Simulator>(options);
      subscriber_ = std::make_unique<RecoveringSubscriber>(simulator_->ports());
      subscriber_->follow_from_start();
      simulator_->start();
      // A port was taken: the subscriber has heard the opening of another run.
      if (simulator_->restarts() > 0) continue;
      control_ = std::make_unique<ControlClient>(simulator_->ports().control);
      if (!subscriber_->run_until([this] { return subscriber_->counters().packets > 0; })) {
        throw client::Timeout("neither the opening nor a heartbeat comes");
      }
      return;
    }
    throw client::WireError("the simulator's ports are taken again and again");
  }

  Simulator& simulator() { return *simulator_; }
  RecoveringSubscriber& subscriber() { return *subscriber_; }
  ControlClient& control() { return *control_; }

  FixSession logs_on(const std::string& comp_id) {
    FixSession session(simulator_->ports().fix, comp_id);
    session.logon();
    return session;
  }

 private:
  std::unique_ptr<Simulator> simulator_;
  std::unique_ptr<RecoveringSubscriber> subscriber_;
  std::unique_ptr<ControlClient> control_;
};

/// The numbers are without a hole, from `first` on, and each message is, at its number, what the
/// exchange still holds of it.
void expect_complete(const RecoveringSubscriber& subscriber, const Simulator& simulator,
                     uint64_t first) {
  const auto& seen = subscriber.messages();
  ASSERT_FALSE(seen.empty());
  EXPECT_EQ(seen.begin()->first, first);
  EXPECT_EQ(seen.rbegin()->first + 1, subscriber.next_seq());
  EXPECT_EQ(seen.size(), subscriber.next_seq() - first) << "a number is missing";
  client::GapFillClient gap_fill(simulator.ports().gap_fill, simulator.session());
  const std::map<uint64_t, TpMessage> kept = gap_fill.fetch_all(first, subscriber.next_seq() - 1);
  ASSERT_EQ(kept.size(), seen.size()) << "the history is shorter: this compares too little";
  for (const auto& [seq, message] : kept) {
    ASSERT_EQ(seen.at(seq).stream_offset, message.stream_offset) << "number " << seq;
    ASSERT_EQ(client::hex(seen.at(seq).bytes), client::hex(message.bytes)) << "number " << seq;
  }
}

/// The five best levels of each side as the book file shows them.
template <typename Levels>
std::string best_five(const Levels& levels) {
  std::string text;
  size_t count = 0;
  for (const auto& [price, size] : levels) {
    if (count++ == 5) break;
    text += " " + std::to_string(size) + "@" + client::six_digit_text(price);
  }
  return text;
}

std::string best_five(const std::vector<client::BookFileLevel>& levels) {
  std::string text;
  for (const auto& level : levels) text += " " + std::to_string(level.size) + "@" + level.price;
  return text;
}

/// While the market stands still: the book file, once it has been written anew, shows this book.
void expect_book_file(const Simulator& simulator, const BookBuilder& book) {
  const auto difference = [&]() -> std::string {
    for (const auto& symbol : client::parse_book_file(read_file(simulator.book_path())).symbols) {
      const client::SymbolBook& ours = book.book(symbol.symbol);
      if (best_five(symbol.bids) != best_five(ours.bids)) return "bids" + best_five(symbol.bids);
      if (best_five(symbol.asks) != best_five(ours.asks)) return "asks" + best_five(symbol.asks);
      if (symbol.volume != ours.volume) return "volume " + std::to_string(symbol.volume);
      if (symbol.last != client::six_digit_text(ours.last_price)) return "last " + symbol.last;
    }
    return "";
  };
  const client::Deadline deadline = client::Deadline::after(client::PATIENCE);
  std::string differs = difference();
  while (!differs.empty() && !deadline.expired()) {
    std::this_thread::sleep_for(milliseconds(10));
    differs = difference();
  }
  EXPECT_EQ(differs, "");
}

/// Clients' orders around the touch, a few of each kind.
class RandomOrders {
 public:
  explicit RandomOrders(unsigned seed) : random_(seed) {}

  /// Crosses the spread or joins the book, so that some trade and some rest.
  client::NewOrder order(const std::string& cl_ord_id, const std::string& symbol,
                         const client::SymbolBook& book) {
    const bool buy = below(2) == 0;
    const bool market = below(6) == 0 || book.bids.empty() || book.asks.empty();
    const Price4 away = 100 * static_cast<Price4>(below(5));
    const Price4 price = market ? 0 : (buy ? best_ask(book) - away : best_bid(book) + away);
    return {.cl_ord_id = cl_ord_id,
            .symbol = symbol,
            .side = buy ? "1" : "2",
            .quantity = std::to_string(100 * (1 + below(8))),
            .type = market ? "1" : "2",
            .price = market ? "" : client::price_text(price)};
  }

  unsigned below(unsigned count) { return static_cast<unsigned>(random_() % count); }

 private:
  std::mt19937 random_;
};

TEST(FeedRecovery, a_minute_of_every_fault_leaves_no_hole_and_the_exchanges_own_book) {
  constexpr std::chrono::seconds MINUTE{60};
  constexpr std::chrono::seconds BETWEEN_QUIET_POINTS{6};
  const std::vector<std::string> symbols = {"AAPL", "MSFT", "SPY"};
  SimulatorOptions options =
      living({"--interval-ms", "5", "--touch-hit", "0.4", "--drop-every", "7", "--dup-every", "5",
              "--reorder-every", "11", "--drop-burst", "1000:40"});
  options.book_file = true;
  Followed run(options);
  RecoveringSubscriber& subscriber = run.subscriber();
  FixSession alpha = run.logs_on("ALPHA");
  FixSession beta = run.logs_on("BETA");

  RandomOrders orders(1);
  unsigned ids = 0;
  unsigned quiet_points = 0;
  const client::Deadline end = client::Deadline::after(MINUTE);
  client::Deadline quiet = client::Deadline::after(BETWEEN_QUIET_POINTS);
  while (!end.expired()) {
    const std::string& symbol = symbols[orders.below(3)];
    FixSession& session = orders.below(2) == 0 ? alpha : beta;
    session.new_order(
        orders.order("o" + std::to_string(++ids), symbol, subscriber.book().book(symbol)));
    const uint64_t seen = subscriber.next_seq();
    (void)subscriber.run_until([&] { return subscriber.next_seq() > seen + 50; }, milliseconds(50));
    for (FixSession* reader : {&alpha, &beta}) {
      while (reader->receive(milliseconds(0))) {
      }
    }
    if (!quiet.expired() && !end.expired()) continue;
    ++quiet_points;
    run.control().ok("pause");
    subscriber.catch_up();
    EXPECT_EQ(subscriber.compare_with_image(), "");
    EXPECT_EQ(subscriber.next_seq(), run.control().stats().next_seq);
    expect_book_file(run.simulator(), subscriber.book());
    if (testing::Test::HasFailure()) return;
    run.control().ok("resume");
    quiet = client::Deadline::after(BETWEEN_QUIET_POINTS);
  }
  run.control().ok("pause");
  subscriber.catch_up();

  EXPECT_GE(quiet_points, 5u);
  EXPECT_THAT(subscriber.skipped(), IsEmpty()) << "no image was needed";
  expect_complete(subscriber, run.simulator(), 1);
  const client::ControlStats stats = run.control().stats();
  EXPECT_GT(stats.faults.dropped, 40u);
  EXPECT_GT(stats.faults.duplicated, 0u);
  EXPECT_GT(stats.faults.reordered, 0u);
  EXPECT_GT(subscriber.next_seq(), 20000u) << "this was to be a fast market";
  EXPECT_GT(stats["fills"], 100u);
  EXPECT_GT(subscriber.counters().filled, 1000u);
  EXPECT_GT(subscriber.counters().out_of_order, 0u);
}

TEST(FeedRecovery, one_shot_faults_of_every_kind_are_repaired_one_by_one) {
  Followed run(still());
  RecoveringSubscriber& subscriber = run.subscriber();
  FixSession alpha = run.logs_on("ALPHA");
  unsigned ids = 0;
  const auto rest_one = [&] {
    alpha.new_order(
        {.cl_ord_id = "a" + std::to_string(++ids), .price = "1." + std::to_string(10 + ids)});
    alpha.expect_report('0');
  };
  for (const char* fault : {"drop 1", "drop 5", "dup 1", "reorder 1", "reorder 3"}) {
    SCOPED_TRACE(fault);
    run.control().ok(fault);
    for (int i = 0; i < 7; ++i) rest_one();
    subscriber.catch_up();
    EXPECT_EQ(subscriber.compare_with_image(), "");
  }
  EXPECT_GE(subscriber.counters().holes, 3u) << "two drops, and what a reorder replaced";
  // What is lost at the end shows by the exchange's position alone.
  run.control().ok("drop 2");
  rest_one();
  rest_one();
  subscriber.catch_up();
  EXPECT_EQ(subscriber.compare_with_image(), "");
  EXPECT_THAT(subscriber.skipped(), IsEmpty());
  expect_complete(subscriber, run.simulator(), 1);
}

TEST(FeedRecovery, a_heartbeat_alone_shows_that_the_last_packet_was_lost) {
  Followed run(still());
  RecoveringSubscriber& subscriber = run.subscriber();
  subscriber.catch_up();
  const uint64_t before = subscriber.next_seq();
  run.control().ok("drop 1");
  FixSession alpha = run.logs_on("ALPHA");
  alpha.new_order({.cl_ord_id = "a1", .price = "1"});
  alpha.expect_report('0');
  subscriber.await_seq(before);
  EXPECT_EQ(subscriber.counters().filled, 1u);
  EXPECT_EQ(subscriber.compare_with_image(), "");
}

TEST(FeedRecovery, a_late_joiner_begins_with_an_image_and_misses_nothing_behind_it) {
  SimulatorOptions options = living({"--interval-ms", "2", "--touch-hit", "0.4", "--drop-every",
                                     "5", "--reorder-every", "7", "--dup-every", "3"});
  options.book_file = true;
  Exchange exchange(options);
  const client::Deadline deadline = client::Deadline::after(client::PATIENCE);
  while (exchange.control().stats().next_seq < 2000) ASSERT_FALSE(deadline.expired());

  RecoveringSubscriber subscriber(exchange.ports());
  subscriber.join_late();
  EXPECT_EQ(subscriber.counters().images, 1u);
  const uint64_t behind_image = subscriber.next_seq();
  EXPECT_GE(behind_image, 2000u);
  for (int i = 1; i <= 5; ++i) {
    subscriber.await_seq(behind_image + 400 * static_cast<uint64_t>(i));
    EXPECT_EQ(subscriber.compare_with_image(), "") << "with the market at full speed";
  }
  exchange.control().ok("pause");
  subscriber.catch_up();
  EXPECT_EQ(subscriber.compare_with_image(), "");
  EXPECT_EQ(subscriber.counters().images, 1u);
  EXPECT_THAT(subscriber.skipped(), IsEmpty());
  expect_complete(subscriber, exchange.simulator(), subscriber.messages().begin()->first);
  EXPECT_LE(subscriber.messages().begin()->first, behind_image);
}

TEST(FeedRecovery, a_hole_older_than_the_history_is_bridged_by_an_image) {
  // The opening alone is longer than the history of 400000 messages, and all of it is lost.
  constexpr unsigned SYMBOLS = 9000;
  constexpr uint64_t OPENING = 3 + SYMBOLS * 46;
  std::string symbols = "S0:50";
  for (unsigned i = 1; i < SYMBOLS; ++i) symbols += ",S" + std::to_string(i) + ":50";
  Followed run(still({"--symbols", symbols, "--drop-burst", "1:20000"}));
  RecoveringSubscriber& subscriber = run.subscriber();
  subscriber.await_seq(OPENING, 4 * client::PATIENCE);
  EXPECT_EQ(subscriber.counters().images, 1u);
  EXPECT_EQ(subscriber.next_seq(), OPENING + 1);
  ASSERT_THAT(subscriber.skipped(), SizeIs(1));
  EXPECT_EQ(subscriber.skipped()[0].first, 1u);
  EXPECT_EQ(subscriber.skipped()[0].last, OPENING);
  EXPECT_THAT(subscriber.messages(), IsEmpty());

  // Behind the image it goes on by the feed and by gap fill: these packets are dropped as well.
  FixSession alpha = run.logs_on("ALPHA");
  for (int i = 1; i <= 3; ++i) {
    alpha.new_order({.cl_ord_id = "a" + std::to_string(i), .symbol = "S8999", .price = "20"});
    alpha.expect_report('0');
  }
  subscriber.catch_up();
  EXPECT_EQ(subscriber.book().book("S8999").bids.at(200000), 300u);
  EXPECT_EQ(subscriber.compare_with_image(), "");
  EXPECT_EQ(subscriber.counters().images, 1u);
  expect_complete(subscriber, run.simulator(), OPENING + 1);
}

// The reports.

/// An ExecutionReport or OrderCancelReject as the order event file tells of it.
client::OrderEvent event_of(const FixMessage& message) {
  client::OrderEvent event;
  const bool is_report = message.type() == "8";
  if (message.get(37) != "NONE") event.oid = message.number(37);
  if (!is_report) {
    const bool replace = message.get(434) == "2";
    event.ev = replace ? "replace_reject" : "cancel_reject";
    event.cl = message.get(41);
    event.text = message.get(58);
    if (replace) event.ref = message.get(11);
    return event;
  }
  const char type = message.get(150)[0];
  event.ev = type == '0' ? "new" : type == '4' ? "cancel" : type == '8' ? "reject" : "fill";
  event.cl = type == '4' ? message.find(41).value_or(message.get(11)) : message.get(11);
  event.symbol = message.get(55);
  event.side = message.get(54) == "1" ? "B" : "S";
  event.qty = static_cast<uint32_t>(message.number(38));
  event.px = client::six_digit_text(to_price4(message.find(44).value_or("0")));
  event.cum = static_cast<uint32_t>(message.number(14));
  event.leaves = static_cast<uint32_t>(message.number(151));
  event.last_qty = static_cast<uint32_t>(message.number(32));
  event.text = message.find(58).value_or(type == '4' ? "cancel" : "");
  return event;
}

/// The application messages of each client, by the name that its ClOrdIDs begin with.
using ToldByClient = std::map<std::string, std::map<uint32_t, FixMessage>>;

/// Every line of the order event file was told to the client whose order it is, once, in order,
/// under the next ExecID, and nobody was told anything else.
void expect_told_exactly(const Simulator& simulator, const ToldByClient& told) {
  std::map<std::string, std::deque<FixMessage>> left;
  for (const auto& [name, messages] : told) {
    for (const auto& [seq, message] : messages) left[name].push_back(message);
  }
  uint64_t exec_id = 0;
  for (const auto& event : client::parse_order_events(read_file(simulator.order_truth_path()))) {
    SCOPED_TRACE(describe(event));
    auto& messages = left[event.cl.substr(0, event.cl.find('-'))];
    ASSERT_FALSE(messages.empty()) << "the client has lost this";
    const FixMessage message = messages.front();
    messages.pop_front();
    ASSERT_EQ(describe(event_of(message)), describe(event)) << message.text();
    ASSERT_EQ(event_of(message).oid, event.oid);
    if (message.type() != "8") continue;
    ASSERT_EQ(message.get(17), "E" + std::to_string(++exec_id));
  }
  for (const auto& [name, messages] : left) {
    EXPECT_THAT(messages, IsEmpty()) << name << " was told what was not written";
  }
}

/// A fast market that hits resting orders often, with the order event file.
SimulatorOptions hitting(std::string scenario = "") {
  SimulatorOptions options = living({"--interval-ms", "5", "--touch-hit", "0.8"});
  options.order_truth = true;
  options.scenario = std::move(scenario);
  return options;
}

class ReportRecovery : public testing::Test {
 protected:
  void start(const std::string& scenario = "") {
    exchange_ = std::make_unique<Exchange>(hitting(scenario));
  }
  Exchange& exchange() { return *exchange_; }
  RecoveringFixClient client(const std::string& name) {
    RecoveringFixClient client(exchange().ports().fix, name);
    client.log_on();
    return client;
  }

  /// Places `count` orders around the touch, some of which will be hit.
  void trade(RecoveringFixClient& client, unsigned count) {
    const std::string& name = client.session().comp_id();
    for (unsigned i = 0; i < count; ++i) {
      const std::string id = name + "-" + std::to_string(++ids_);
      client.session().new_order(orders.order(id, "AAPL", exchange().book("AAPL")));
    }
  }

  /// The largest order there is on either side of the market: it cannot move without hitting one
  /// of them, and takes more than a minute to get through.
  void enclose_the_market(RecoveringFixClient& client) {
    for (const bool buy : {true, false}) {
      const client::SymbolBook& book = exchange().book("AAPL");
      client.session().new_order(
          {.cl_ord_id = client.session().comp_id() + "-" + std::to_string(++ids_),
           .side = buy ? "1" : "2",
           .quantity = "10000000",
           .price = client::price_text(buy ? best_bid(book) : best_ask(book))});
    }
    (void)exchange().turn();
  }

  /// Waits until the market has made so many more fills of clients' orders.
  void await_fills(uint64_t more) {
    const uint64_t wanted = exchange().counter("fills") + more;
    const client::Deadline deadline = client::Deadline::after(client::PATIENCE);
    while (exchange().counter("fills") < wanted) {
      if (deadline.expired()) throw client::Timeout("the market hits no resting order");
    }
  }

  /// The market stands still, all clients recover, and then the file is theirs.
  void expect_nothing_lost(const std::vector<RecoveringFixClient*>& clients) {
    exchange().control().ok("pause");
    (void)exchange().turn();
    ToldByClient told;
    for (RecoveringFixClient* client : clients) {
      client->recover();
      told[client->session().comp_id()] = client->application_messages();
    }
    expect_told_exactly(exchange().simulator(), told);
  }

  RandomOrders orders{5};

 private:
  std::unique_ptr<Exchange> exchange_;
  unsigned ids_ = 0;
};

TEST_F(ReportRecovery, a_scripted_drop_at_an_order_costs_no_report) {
  start("name=drop,disconnect_after=5");
  RecoveringFixClient alpha = client("ALPHA");
  enclose_the_market(alpha);
  trade(alpha, 3);
  exchange().simulator().wait_for_line("bench: dropping the connection of ALPHA (scripted: ");
  await_fills(3);
  expect_nothing_lost({&alpha});
  EXPECT_EQ(alpha.logons(), 2u);
  EXPECT_GT(alpha.replays_received(), 0u);
}

TEST_F(ReportRecovery, a_driven_drop_again_and_again_costs_no_report) {
  start();
  RecoveringFixClient alpha = client("ALPHA");
  enclose_the_market(alpha);
  for (unsigned drops = 1; drops <= 4; ++drops) {
    trade(alpha, 3);
    (void)exchange().turn();
    const size_t from = exchange().simulator().line_count();
    exchange().control().ok("disconnect");
    trade(alpha, 1);
    exchange().simulator().wait_for_line("bench: dropping the connection of ALPHA (driven); ",
                                         from);
    await_fills(2);
    (void)alpha.run_until([&] { return alpha.logons() > drops; });
  }
  expect_nothing_lost({&alpha});
  EXPECT_EQ(alpha.logons(), 5u);
}

TEST_F(ReportRecovery, a_lapse_behind_the_first_logon_costs_no_report) {
  start("name=lapse,lapse_ms=600000");
  RecoveringFixClient alpha = client("ALPHA");
  exchange().simulator().wait_for_line("bench: going silent for ");
  enclose_the_market(alpha);
  trade(alpha, 8);
  await_fills(3);
  exchange().control().ok("lapse 0");
  expect_nothing_lost({&alpha});
  EXPECT_EQ(alpha.logons(), 1u) << "no reconnect was needed";
  EXPECT_GE(alpha.replays_received(), 13u) << "each came by replay";
}

TEST_F(ReportRecovery, a_lapse_that_ends_by_itself_while_the_client_asks_costs_no_report) {
  start();
  RecoveringFixClient alpha = client("ALPHA");
  enclose_the_market(alpha);
  exchange().control().ok("lapse 700");
  trade(alpha, 3);
  expect_nothing_lost({&alpha});
}

TEST_F(ReportRecovery, a_lapse_that_swallows_a_logon_and_a_resend_costs_no_report) {
  start();
  RecoveringFixClient alpha = client("ALPHA");
  enclose_the_market(alpha);
  trade(alpha, 3);
  exchange().control().ok("lapse 600000");
  trade(alpha, 5);
  (void)exchange().turn();
  alpha.drop_connection();
  exchange().simulator().wait_for_line("bench: client ALPHA disconnected");
  alpha.log_on();
  exchange().simulator().wait_for_line("bench: logon ALPHA 34=12 ");
  alpha.session().resend_request("1", "0");
  exchange().simulator().wait_for_line("bench: resend done: ");
  await_fills(2);
  exchange().control().ok("lapse 0");
  expect_nothing_lost({&alpha});
  EXPECT_EQ(alpha.logons(), 2u);
}

TEST_F(ReportRecovery, a_connection_reset_with_messages_in_flight_costs_no_report) {
  start();
  RecoveringFixClient alpha = client("ALPHA");
  for (unsigned resets = 1; resets <= 5; ++resets) {
    trade(alpha, 2);
    for (int i = 0; i < 20; ++i) {  // without looking at the answers
      const std::string id = "ALPHA-x" + std::to_string(resets) + "-" + std::to_string(i);
      alpha.session().new_order({.cl_ord_id = id, .quantity = "100", .type = "1"});
    }
    const size_t from = exchange().simulator().line_count();
    alpha.drop_connection();
    exchange().simulator().wait_for_line("bench: client ALPHA disconnected", from);
    alpha.log_on();
  }
  expect_nothing_lost({&alpha});
}

TEST_F(ReportRecovery, several_clients_under_random_misfortunes_lose_and_double_nothing) {
  start("name=all,disconnect_after=20,partial_fill_every=3");
  std::vector<RecoveringFixClient> clients;
  for (const char* name : {"ALPHA", "BETA", "GAMMA"}) clients.push_back(client(name));
  constexpr unsigned ROUNDS = 120;
  for (unsigned round = 0; round < ROUNDS; ++round) {
    RecoveringFixClient& client = clients[orders.below(3)];
    trade(client, 1);
    switch (orders.below(12)) {
      case 0:
        exchange().control().ok("disconnect");
        break;
      case 1:
        exchange().control().ok("lapse 60");
        break;
      case 2:
        client.drop_connection();
        break;
      default:
        break;
    }
    for (RecoveringFixClient& each : clients) {
      unsigned polls = 0;
      (void)each.run_until([&polls] { return polls++ > 0; }, milliseconds(5));
    }
  }
  expect_nothing_lost({&clients[0], &clients[1], &clients[2]});
  EXPECT_GT(clients[0].logons() + clients[1].logons() + clients[2].logons(), 6u);
}

/// Another process that trades as ALPHA and writes what it is told to a pipe, until it is killed.
/// It must be begun while this process has no other thread.
class DoomedTrader {
 public:
  DoomedTrader() {
    if (::pipe(go_) != 0 || ::pipe(told_) != 0) throw client::SystemError("pipe");
    const pid_t parent = ::getpid();
    pid_ = ::fork();
    if (pid_ < 0) throw client::SystemError("fork");
    if (pid_ > 0) {
      ::close(go_[0]);
      ::close(told_[1]);
      return;
    }
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (::getppid() != parent) ::_exit(1);
    try {
      trade();
    } catch (const std::exception&) {
    }
    ::_exit(1);  // it was to be killed
  }
  ~DoomedTrader() {
    kill();
    ::close(go_[1]);
    ::close(told_[0]);
  }

  void go(uint16_t fix_port) {
    if (::write(go_[1], &fix_port, sizeof fix_port) != sizeof fix_port) {
      throw client::SystemError("write");
    }
  }

  void kill() {
    if (pid_ < 0) return;
    int status = 0;
    ::kill(pid_, SIGKILL);
    ::waitpid(pid_, &status, 0);
    killed_ = WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL;
    pid_ = -1;
  }
  bool killed() const { return killed_; }

  /// The bytes it has written since the last call; call it often, the pipe is small.
  const std::string& told() {
    char piece[4096];
    pollfd ready{told_[0], POLLIN, 0};
    while (::poll(&ready, 1, 0) > 0) {
      const ssize_t got = ::read(told_[0], piece, sizeof piece);
      if (got <= 0) break;
      text_.append(piece, static_cast<size_t>(got));
    }
    return text_;
  }

 private:
  [[noreturn]] void trade() {
    uint16_t fix_port = 0;
    if (::read(go_[0], &fix_port, sizeof fix_port) != sizeof fix_port) ::_exit(1);
    FixSession session(fix_port, "ALPHA");
    session.logon();
    for (unsigned i = 1;; ++i) {
      session.new_order({.cl_ord_id = "ALPHA-" + std::to_string(i),
                         .side = i % 2 == 0 ? "1" : "2",
                         .price = i % 2 == 0 ? "189.98" : "190.02"});
      if (i % 4 != 0) continue;  // some answers are always on their way
      const auto message = session.receive(milliseconds(1000));
      if (!message) continue;
      if (::write(told_[1], message->raw().data(), message->raw().size()) < 0) ::_exit(1);
    }
  }

  int go_[2];
  int told_[2];
  pid_t pid_ = -1;
  bool killed_ = false;
  std::string text_;
};

TEST(ProcessRecovery, a_client_process_killed_in_the_air_leaves_its_successor_every_report) {
  Simulator simulator(hitting());
  DoomedTrader doomed;
  simulator.start();
  ControlClient control(simulator.ports().control);
  doomed.go(simulator.ports().fix);
  const client::Deadline deadline = client::Deadline::after(client::PATIENCE);
  while (control.stats()["orders"] < 200) {
    ASSERT_FALSE(deadline.expired());
    (void)doomed.told();
  }
  doomed.kill();
  EXPECT_TRUE(doomed.killed());
  simulator.wait_for_line("bench: client ALPHA disconnected");
  control.ok("pause");
  (void)control.stats();

  // The successor knows its name and no number.
  RecoveringFixClient successor(simulator.ports().fix, "ALPHA");
  successor.session().next_out = 1000000;
  successor.log_on();
  successor.recover();
  expect_told_exactly(simulator, {{"ALPHA", successor.application_messages()}});

  // What the dead one had heard, its successor has heard again, word for word.
  client::FixFramer framer;
  framer.append(doomed.told());
  unsigned heard = 0;
  while (const auto frame = framer.next()) {
    const FixMessage message = client::parse_fix(*frame);
    if (message.type() != "8") continue;
    ++heard;
    const auto again = successor.application_messages().find(message.seq());
    ASSERT_NE(again, successor.application_messages().end()) << message.text();
    EXPECT_EQ(again->second.body(), message.body());
  }
  EXPECT_GT(heard, 10u);
  EXPECT_GT(successor.application_messages().size(), heard);
}

}  // namespace
}  // namespace e2e
