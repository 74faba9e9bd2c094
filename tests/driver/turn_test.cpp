#include "driver/turn.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "base/stop.h"
#include "driver/run_config.h"
#include "feed/gap_fill.h"
#include "support/exchange.h"
#include "support/fix_wire.h"
#include "support/inside.h"
#include "support/test_clock.h"
#include "support/udp_inbox.h"

namespace quorl {
namespace {

using test::Bytes;
using test::Exchange;
using test::hex;
using test::joined;
using test::Packet;
using test::packets_of;
using test::standard_error_of;
using test::state_of;
using test::UdpInbox;
using testing::AllOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;
using testing::StartsWith;

constexpr uint64_t START = test::START_STEADY_MS;

const std::string NO_COUNTS =
    "orders=0 accepts=0 fills=0 partials=0 cancels=0 replaces=0 rejects=0 replace_rejects=0 "
    "cancel_rejects=0 unsolicited_cancels=0 race_fills=0 late_cancels=0 stale_cancels=0 logins=0 "
    "logons=0 resend_requests=0 replays=0 replayed=0";

sockaddr_in loopback(uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(port);
  return address;
}

/// A non-blocking socket on a free port of 127.0.0.1; a TCP socket listens.
struct Port {
  explicit Port(int type) : fd(::socket(AF_INET, type | SOCK_NONBLOCK, 0)) {
    sockaddr_in address = loopback(0);
    socklen_t size = sizeof address;
    EXPECT_EQ(0, ::bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address));
    EXPECT_EQ(0, ::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size));
    if (type == SOCK_STREAM) {
      EXPECT_EQ(0, ::listen(fd, 8));
    }
    number = ntohs(address.sin_port);
  }
  ~Port() { ::close(fd); }
  Port(const Port&) = delete;
  Port& operator=(const Port&) = delete;

  const int fd;
  uint16_t number = 0;
};

/// A TCP peer of one of the services. What it has sent waits at the service when `sends` returns.
class TcpPeer {
 public:
  explicit TcpPeer(const Port& port) : fd_(::socket(AF_INET, SOCK_STREAM, 0)) {
    const sockaddr_in to = loopback(port.number);
    EXPECT_EQ(0, ::connect(fd_, reinterpret_cast<const sockaddr*>(&to), sizeof to));
    ::fcntl(fd_, F_SETFL, O_NONBLOCK);
    settle();
  }
  ~TcpPeer() { leaves(); }
  TcpPeer(const TcpPeer&) = delete;
  TcpPeer& operator=(const TcpPeer&) = delete;

  void sends(const std::string& bytes) {
    EXPECT_EQ(static_cast<ssize_t>(bytes.size()),
              ::send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL));
    settle();
  }
  void says(const std::string& fix_body) { sends(test::framed(fix_body)); }

  /// All that has come since the last look.
  std::string receives() {
    settle();
    std::string received;
    char piece[4096];
    ssize_t count = 0;
    while ((count = ::recv(fd_, piece, sizeof piece, 0)) > 0) {
      received.append(piece, static_cast<size_t>(count));
    }
    closed_ = count == 0;
    return received;
  }
  /// The message types that have come since the last look, "A0" for a Logon and a Heartbeat.
  std::string hears() {
    std::string types;
    for (const std::string& message : test::split_messages(receives())) {
      types.push_back(message.at(message.find("\x01"
                                              "35=") +
                                 4));
    }
    return types;
  }
  /// The ClOrdIDs of the messages that have come since the last look.
  std::vector<std::string> hears_of() {
    std::vector<std::string> cl_ord_ids;
    for (const std::string& message : test::split_messages(receives())) {
      cl_ord_ids.push_back(test::value_of(test::fields_of(message), 11));
    }
    return cl_ord_ids;
  }
  bool is_closed() {
    receives();
    return closed_;
  }
  void leaves() {
    if (fd_ >= 0) ::close(fd_);
    fd_ = -1;
    settle();
  }

 private:
  static void settle() { UdpInbox{}.settle(); }

  int fd_;
  bool closed_ = false;
};

/// A file name that goes with the test, and so does the file.
struct TemporaryPath {
  TemporaryPath() {
    std::string name = testing::TempDir() + "quorl_turn_XXXXXX";
    ::close(::mkstemp(name.data()));
    std::filesystem::remove(name);
    path = name;
  }
  ~TemporaryPath() { std::filesystem::remove(path); }
  bool exists() const { return std::filesystem::exists(path); }
  /// The content, or "(none)"; the file goes.
  std::string take() const {
    std::ifstream in(path);
    if (!in) return "(none)";
    std::ostringstream text;
    text << in.rdbuf();
    std::filesystem::remove(path);
    return text.str();
  }
  std::string path;
};

/// The loop over a market of one symbol with an empty book, which it walks only where a test says
/// so. The feed and the replies to our requests all come to one inbox, in the order of sending.
class Bench {
 public:
  enum class Feed { IS_ALIVE, WAS_NEVER_FLUSHED };

  explicit Bench(Feed feed_at_first = Feed::IS_ALIVE) {
    stop_requested = 0;
    config.interval_ms = -1;
    config.quiet = true;
    if (feed_at_first == Feed::IS_ALIVE) exchange.publisher.send_heartbeat();
    inbox.take();
  }
  ~Bench() {
    stop_requested = 0;
    test::at_each_system_reading(nullptr);
  }

  void with_control_port() { listeners_.control_fd = control_port.fd; }

  /// One turn; returns what it wrote to standard error.
  std::string turn() {
    if (!driver_) starts();
    std::string said = standard_error_of([this] { EXPECT_TRUE(driver_->turn()); });
    EXPECT_FALSE(waits_to_act_) << "no report was composed";
    return said;
  }
  void starts() {
    listeners_.fix_listen_fd = fix_port.fd;
    listeners_.snap_listen_fd = snap_port.fd;
    driver_.emplace(config, exchange.engine, gap_fill, listeners_);
  }
  Driver& driver() { return *driver_; }
  std::string turn_after(uint64_t ms) {
    if (!driver_) starts();
    test::advance_ms(ms);
    return turn();
  }

  void commands(const std::string& line) {
    inbox.send({line.begin(), line.end()}, control_port.number);
  }
  void asks_for_the_first_message() {
    inbox.send(hex("01 01 04 80 01 00 00 00 52 4F 55 51 01 00 00 00"
                   "01 00 00 00 00 00 00 00 01 00 00 00 00 00 00 00"),
               gap_port.number);
  }
  /// Asks for no message: the reply looks like a heartbeat.
  void asks_for_gap_fill() {
    inbox.send(hex("01 01 04 80 01 00 00 00 52 4F 55 51 00 00 00 00"), gap_port.number);
  }
  std::vector<Packet> packets() { return packets_of(inbox.take()); }
  /// "2" for a packet of two messages, "heartbeat" for one of none.
  std::vector<std::string> feed() {
    std::vector<std::string> words;
    for (const Packet& packet : packets()) {
      words.push_back(packet.message_count == 0 ? "heartbeat"
                                                : std::to_string(packet.message_count));
    }
    return words;
  }

  /// A client is owed the report of a fill, of an order of that name. What the feed tells of the
  /// trade has been sent and counts as seen.
  void owes(const std::string& owner, const std::string& cl_ord_id) {
    Engine& engine = exchange.engine;
    Order order;
    order.id = engine.next_order_id++;
    order.locate = 1;
    order.price = 500000;
    order.leaves = order.qty = 100;
    order.owner = owner;
    order.cl_ord_id = cl_ord_id;
    engine.begin_event();
    engine.rest_order(exchange.stock(), order);
    test::trade_with_order(engine, exchange.stock(), order.id, 100);
    engine.publish_dirty(exchange.stock());
    exchange.publisher.flush_if_pending();
    inbox.take();
  }
  /// Does something in the middle of the next turn: behind the walk and the flush, ahead of the
  /// lapse line. That is when the report of a fill is composed, which takes an ExecID and then the
  /// time; it is owed to nobody who is there.
  void in_the_next_turn(const std::function<void()>& act) {
    owes("NOBODY", "n1");
    waits_to_act_ = true;
    test::at_each_system_reading([this, act, taken = exchange.engine.next_exec_id] {
      if (exchange.engine.next_exec_id == taken) return;
      test::at_each_system_reading(nullptr);
      waits_to_act_ = false;
      act();
    });
  }

  /// A synthetic order of 100 shares, an event of its own.
  void rest(bool buy, Price4 price) {
    exchange.engine.begin_event();
    test::rest_synthetic(exchange.engine, exchange.stock(), buy, price, 100);
    exchange.engine.publish_dirty(exchange.stock());
  }

  /// True if a walk has moved the price since the last look.
  bool has_walked() {
    const double mid = exchange.stock().mid;
    return std::exchange(last_mid_, mid) != mid;
  }

  UdpInbox inbox;
  Port control_port{SOCK_DGRAM};
  Port gap_port{SOCK_DGRAM};
  Port fix_port{SOCK_STREAM};
  Port snap_port{SOCK_STREAM};
  Exchange exchange{"AAPL:190.00", inbox.port()};
  GapFill gap_fill{exchange.publisher, gap_port.fd};
  RunConfig config;

 private:
  Listeners listeners_;
  std::optional<Driver> driver_;
  double last_mid_ = 190.0;
  bool waits_to_act_ = false;
};

std::string logon(const std::string& comp_id, int heartbeat_s = 1000) {
  return test::framed("35=A|34=1|49=" + comp_id +
                      "|56=IEXG|98=0|108=" + std::to_string(heartbeat_s));
}

std::string snap_request() {
  const Bytes bytes =
      joined({hex("39 00 72"), Bytes(40, 'A'), hex("01 00 00 00 52 4F 55 51"), Bytes(8, 0)});
  return {bytes.begin(), bytes.end()};
}

// --- The end ---

TEST(Turn, a_stop_request_ends_the_loop_before_anything_else_is_done) {
  Bench bench;
  bench.with_control_port();
  bench.config.interval_ms = 0;
  bench.turn();
  bench.has_walked();
  bench.inbox.take();
  bench.commands("pause");
  const uint64_t readings = test::steady_readings() + test::system_readings();
  stop_requested = 1;
  EXPECT_EQ(standard_error_of([&] { EXPECT_FALSE(bench.driver().turn()); }), "");
  EXPECT_EQ(test::steady_readings() + test::system_readings(), readings);
  EXPECT_FALSE(bench.exchange.engine.paused);
  EXPECT_FALSE(bench.has_walked());
  EXPECT_THAT(bench.inbox.take(), IsEmpty());
}

TEST(Turn, without_a_stop_request_the_loop_goes_on) {
  Bench bench;
  bench.starts();
  for (int i = 0; i < 3; ++i) EXPECT_TRUE(bench.driver().turn());
}

// --- The walk ---

TEST(Turn, walks_when_the_interval_has_passed_and_not_a_millisecond_earlier) {
  Bench bench;
  bench.config.interval_ms = 40;
  bench.turn_after(39);
  EXPECT_FALSE(bench.has_walked());
  bench.turn_after(1);
  EXPECT_TRUE(bench.has_walked());
  bench.turn_after(39);
  EXPECT_FALSE(bench.has_walked());
  bench.turn_after(1);
  EXPECT_TRUE(bench.has_walked());
}

TEST(Turn, a_late_walk_is_not_made_up_for_and_the_next_counts_from_it) {
  Bench bench;
  bench.config.interval_ms = 40;
  bench.turn_after(75);
  EXPECT_TRUE(bench.has_walked());
  bench.turn_after(39);
  EXPECT_FALSE(bench.has_walked());
  bench.turn_after(1);
  EXPECT_TRUE(bench.has_walked());
  bench.turn_after(400);
  EXPECT_TRUE(bench.has_walked());
  bench.turn();
  EXPECT_FALSE(bench.has_walked());
}

TEST(Turn, an_interval_of_0_walks_on_every_turn) {
  Bench bench;
  bench.config.interval_ms = 0;
  for (int i = 0; i < 3; ++i) {
    bench.turn();
    EXPECT_TRUE(bench.has_walked());
  }
}

TEST(Turn, a_negative_interval_never_walks) {
  Bench bench;
  for (const int32_t interval_ms : {-1, -40, INT32_MIN}) {
    bench.config.interval_ms = interval_ms;
    bench.turn_after(uint64_t{1} << 40);
    EXPECT_FALSE(bench.has_walked());
  }
}

TEST(Turn, a_changed_interval_counts_from_the_last_walk) {
  Bench bench;
  bench.with_control_port();
  bench.config.interval_ms = 40;
  bench.turn_after(40);
  EXPECT_TRUE(bench.has_walked());
  bench.turn_after(15);
  EXPECT_FALSE(bench.has_walked());
  bench.commands("rate 16");
  bench.turn();
  EXPECT_FALSE(bench.has_walked());
  bench.turn_after(1);
  EXPECT_TRUE(bench.has_walked());
}

TEST(Turn, a_command_of_the_same_turn_comes_before_the_walk) {
  Bench bench;
  bench.with_control_port();
  bench.config.interval_ms = 40;
  bench.commands("pause");
  bench.turn_after(40);
  EXPECT_FALSE(bench.has_walked());
}

TEST(Turn, a_pause_draws_nothing_and_lets_the_timer_run) {
  Bench bench;
  bench.config.interval_ms = 40;
  bench.exchange.engine.paused = true;
  EXPECT_EQ(test::draws_taken(bench.exchange.rng, [&] { bench.turn_after(40); }), 0u);
  EXPECT_FALSE(bench.has_walked());
  EXPECT_THAT(bench.feed(), IsEmpty());
  bench.turn_after(2000);
  bench.exchange.engine.paused = false;
  bench.turn_after(39);
  EXPECT_FALSE(bench.has_walked());
  bench.turn_after(1);
  EXPECT_TRUE(bench.has_walked());
}

TEST(Turn, a_walk_sends_its_packets_at_once) {
  Bench bench;
  bench.config.interval_ms = 0;
  bench.turn();
  EXPECT_THAT(bench.feed(), Not(IsEmpty()));
  EXPECT_EQ(state_of(bench.exchange.publisher).waiting, 0u);
}

// --- What waits in the packet, and what is owed ---

TEST(Turn, flushes_what_waits_once) {
  Bench bench;
  bench.exchange.publisher.append("abc", 3);
  bench.turn();
  bench.turn();
  EXPECT_THAT(bench.feed(), ElementsAre("1"));
  EXPECT_EQ(state_of(bench.exchange.publisher).packets, 1u);
}

TEST(Turn, exchange_initiated_cancels_fire_and_their_updates_leave_before_the_owner_is_told) {
  Bench bench;
  TcpPeer client(bench.fix_port);
  client.sends(logon("ALPHA"));
  client.says(
      "35=D|34=2|49=ALPHA|56=IEXG|11=a1|55=AAPL|54=1|38=100|40=2|44=180.00|18=i|114=Y|"
      "59=0|47=P");
  bench.turn();
  EXPECT_EQ(client.hears(), "A8");
  bench.inbox.take();
  test::schedule_cancel(bench.exchange.engine, {"ALPHA", "a1", static_cast<int64_t>(START + 300)});
  EXPECT_EQ(bench.turn_after(299), "");
  EXPECT_EQ(client.hears(), "");

  uint64_t waiting = 99;
  bench.in_the_next_turn([&] { waiting = state_of(bench.exchange.publisher).waiting; });
  EXPECT_EQ(bench.turn_after(1),
            "bench: unsolicited cancel of a1 (exchange-initiated; the client must mark it "
            "cancelled)\n");
  EXPECT_EQ(waiting, 0u);
  EXPECT_THAT(bench.feed(), ElementsAre("1"));
  EXPECT_THAT(test::readable(client.receives()), HasSubstr("|58=AdminCancel|"));
}

TEST(Turn, reports_owed_are_sent_in_order_to_those_who_are_connected) {
  Bench bench;
  TcpPeer alpha(bench.fix_port);
  TcpPeer beta(bench.fix_port);
  alpha.sends(logon("ALPHA"));
  beta.sends(logon("BETA"));
  bench.turn();
  alpha.hears();
  beta.hears();
  bench.owes("ALPHA", "one");
  bench.owes("BETA", "two");
  bench.owes("GAMMA", "three");
  bench.owes("ALPHA", "four");
  EXPECT_THAT(test::owed_to(bench.exchange.engine), ElementsAre("ALPHA", "BETA", "GAMMA", "ALPHA"));
  bench.turn();
  EXPECT_THAT(alpha.hears_of(), ElementsAre("one", "four"));
  EXPECT_THAT(beta.hears_of(), ElementsAre("two"));
  EXPECT_THAT(test::owed_to(bench.exchange.engine), IsEmpty());
}

TEST(Turn, reports_owed_are_composed_in_a_lapse_and_not_sent) {
  Bench bench;
  TcpPeer client(bench.fix_port);
  client.sends(logon("ALPHA"));
  bench.turn();
  client.hears();
  bench.exchange.scenario.lapse.start(1);
  bench.owes("ALPHA", "lost");
  bench.turn();
  EXPECT_EQ(bench.exchange.scenario.counters.fills, 1u);
  EXPECT_EQ(test::SessionMemory(bench.exchange.engine, "ALPHA").stored_count(), 1u);
  EXPECT_EQ(client.receives(), "");

  bench.owes("ALPHA", "heard");  // at its very end a lapse is over
  bench.turn_after(1);
  EXPECT_THAT(client.hears_of(), ElementsAre("heard"));
}

TEST(Turn, a_lapse_that_ends_between_two_reports_lets_the_second_through) {
  Bench bench;
  TcpPeer client(bench.fix_port);
  client.sends(logon("ALPHA"));
  bench.turn();
  client.hears();
  bench.exchange.scenario.lapse.start(1);
  bench.owes("ALPHA", "first");
  bench.turn();
  bench.in_the_next_turn([] { test::advance_ms(1); });
  bench.owes("ALPHA", "second");
  bench.turn();
  // "first" is lost; "second" is stamped later than the turn's reading, and so a Heartbeat follows.
  const std::vector<std::string> heard = test::split_messages(client.receives());
  ASSERT_THAT(heard, SizeIs(2));
  EXPECT_THAT(test::readable(heard[0]), AllOf(HasSubstr("|35=8|"), HasSubstr("|11=second|")));
  EXPECT_THAT(test::readable(heard[1]), HasSubstr("|35=0|"));
}

// --- The lapse line ---

std::string lapse_line(uint64_t ms) {
  return "bench: going silent for " + std::to_string(ms) +
         " ms (no heartbeats, no reports on the wire \xE2\x80\x94 the client should Test Request, "
         "then drop and log on again; a ResendRequest brings what it missed)\n";
}

TEST(Turn, a_lapse_is_announced_once_with_what_remains_of_it) {
  Bench bench;
  bench.exchange.scenario.lapse.start(5000);
  EXPECT_EQ(bench.turn_after(20), lapse_line(4980));
  EXPECT_EQ(bench.turn_after(1), "");
  EXPECT_EQ(bench.turn_after(900), "");
}

TEST(Turn, what_remains_is_reckoned_from_the_turn_s_own_reading) {
  Bench bench;
  bench.exchange.scenario.lapse.start(5000);
  bench.in_the_next_turn([] { test::advance_ms(7); });
  EXPECT_EQ(bench.turn(), lapse_line(5000));
}

TEST(Turn, a_lapse_that_is_over_by_then_is_not_announced) {
  Bench bench;
  bench.exchange.scenario.lapse.start(7);
  bench.in_the_next_turn([] { test::advance_ms(7); });
  EXPECT_EQ(bench.turn(), "");
}

TEST(Turn, the_control_port_arms_a_lapse_of_so_many_ms_and_lapse_0_announces_nothing) {
  Bench bench;
  bench.with_control_port();
  bench.commands("lapse 0");
  EXPECT_EQ(bench.turn(), "");
  bench.commands("lapse 300");
  EXPECT_EQ(bench.turn(), lapse_line(300));
}

TEST(Turn, only_the_arming_of_a_lapse_makes_it_announced_again) {
  Bench bench;
  bench.with_control_port();
  bench.commands("lapse 300");
  EXPECT_EQ(bench.turn(), lapse_line(300));
  bench.turn_after(301);
  EXPECT_EQ(bench.turn(), "");
  bench.commands("lapse 400");
  EXPECT_EQ(bench.turn(), lapse_line(400));
  bench.commands("lapse 500");  // a second one within the first
  EXPECT_EQ(bench.turn(), lapse_line(500));
}

TEST(Turn, one_line_announces_the_lapse_of_all_clients_and_all_go_silent) {
  Bench bench;
  bench.exchange.scenario.lapse_ms = 2000;
  TcpPeer alpha(bench.fix_port);
  TcpPeer beta(bench.fix_port);
  alpha.sends(logon("ALPHA"));
  const std::string said = bench.turn();
  EXPECT_THAT(said, AllOf(StartsWith("bench: logon ALPHA"), EndsWith(lapse_line(2000))));
  EXPECT_EQ(alpha.hears(), "A");
  beta.sends(logon("BETA"));
  EXPECT_THAT(bench.turn(), Not(HasSubstr("going silent")));
  EXPECT_EQ(beta.hears(), "");
  beta.says("35=1|34=2|49=BETA|56=IEXG|112=x");
  bench.turn_after(1999);
  EXPECT_EQ(beta.hears(), "");
  beta.says("35=1|34=3|49=BETA|56=IEXG|112=y");
  bench.turn_after(1);
  EXPECT_EQ(beta.hears(), "0");
}

TEST(Turn, a_lapse_leaves_market_data_alone) {
  Bench bench;
  bench.exchange.scenario.lapse.start(5000);
  bench.asks_for_gap_fill();
  TcpPeer subscriber(bench.snap_port);
  subscriber.sends(snap_request());
  EXPECT_THAT(bench.turn_after(1000), HasSubstr("bench: DEEP SNAP served"));
  EXPECT_THAT(subscriber.receives(), Not(IsEmpty()));
  EXPECT_THAT(bench.feed(),
              ElementsAre("heartbeat", "heartbeat"));  // the second is the gap-fill reply
}

// --- The timers of the clients ---

TEST(Turn, a_client_hears_a_heartbeat_when_nothing_was_sent_for_its_interval) {
  Bench bench;
  TcpPeer client(bench.fix_port);
  client.sends(logon("ALPHA", 1));
  bench.turn();
  EXPECT_EQ(client.hears(), "A");
  bench.turn_after(999);
  EXPECT_EQ(client.hears(), "");
  bench.turn_after(1);
  EXPECT_EQ(client.hears(), "0");
  bench.turn_after(999);
  EXPECT_EQ(client.hears(), "");
}

TEST(Turn, a_report_sent_later_than_the_turn_s_reading_brings_an_extra_heartbeat) {
  Bench bench;
  TcpPeer client(bench.fix_port);
  client.sends(logon("ALPHA"));
  bench.turn();
  client.hears();
  bench.in_the_next_turn([] { test::advance_ms(1); });
  bench.owes("ALPHA", "a1");
  bench.turn();
  EXPECT_EQ(client.hears(), "80");
  bench.turn();
  EXPECT_EQ(client.hears(), "");
}

TEST(Turn, a_client_that_sends_nothing_for_two_and_a_half_intervals_is_timed_out) {
  Bench bench;
  TcpPeer client(bench.fix_port);
  client.sends(logon("ALPHA", 1));
  bench.turn();
  EXPECT_EQ(bench.turn_after(2499), "");
  EXPECT_EQ(bench.turn_after(1),
            "[quorl] client ALPHA timed out (no message for 2 s; resting orders kept)\n");
  EXPECT_TRUE(client.is_closed());
}

TEST(Turn, in_a_lapse_heartbeats_stop_and_the_time_out_runs_on) {
  Bench bench;
  TcpPeer client(bench.fix_port);
  client.sends(logon("ALPHA", 1));
  bench.turn();
  EXPECT_EQ(client.hears(), "A");
  bench.exchange.scenario.lapse.start(100000);
  bench.turn_after(1500);
  EXPECT_EQ(client.hears(), "");
  EXPECT_THAT(bench.turn_after(1000), HasSubstr("[quorl] client ALPHA timed out"));
  EXPECT_TRUE(client.is_closed());
}

TEST(Turn, a_connection_that_says_nothing_at_all_stands_for_ever) {
  Bench bench;
  TcpPeer client(bench.fix_port);
  bench.turn();
  for (int i = 0; i < 5; ++i) EXPECT_THAT(bench.turn_after(100000), Not(HasSubstr("client ")));
  EXPECT_FALSE(client.is_closed());
}

// --- The stats line of the bench ---

TEST(Turn, the_stats_line_comes_after_2000_ms_and_counts_from_there) {
  Bench bench;
  bench.exchange.scenario.rejects.every = 1;
  EXPECT_EQ(bench.turn_after(1999), "");
  EXPECT_EQ(bench.turn_after(1), "bench: stats " + NO_COUNTS +
                                     " next_seq=1 quorl faults: sent 0 dropped 0 duplicated 0 "
                                     "reordered 0 session=down\n");
  EXPECT_EQ(bench.turn_after(1999), "");
  EXPECT_THAT(bench.turn_after(50), StartsWith("bench: stats "));
  EXPECT_EQ(bench.turn_after(1999), "");
  EXPECT_THAT(bench.turn_after(1), StartsWith("bench: stats "));
}

TEST(Turn, the_stats_line_shows_the_counters_the_next_number_the_faults_and_the_session) {
  Bench bench;
  bench.exchange.scenario.disconnect_after = 1000;
  bench.exchange.publisher.faults.drop_next = 1;
  bench.exchange.publisher.append("abc", 3);
  TcpPeer client(bench.fix_port);
  client.sends(logon("ALPHA"));
  bench.turn();
  bench.exchange.publisher.append("abc", 3);
  const std::string line = bench.turn_after(2000);
  EXPECT_THAT(line, HasSubstr(" logins=1 logons=1 resend_requests=0 replays=0 replayed=0 "
                              "next_seq=3 quorl faults: sent 1 dropped 1 duplicated 0 reordered 0 "
                              "session=up\n"));
}

struct Arming {
  const char* by;
  void (*arm)(Scenario& scenario);
};

const Arming ARMING[] = {
    {"disconnect_after", [](Scenario& s) { s.disconnect_after = 1; }},
    {"reject_every", [](Scenario& s) { s.rejects.every = 1; }},
    {"partial_fill_every", [](Scenario& s) { s.partial_fills.every = 1; }},
    {"fill_on_cancel_every", [](Scenario& s) { s.fills_on_cancel.every = 1; }},
    {"unsolicited_cancel_every", [](Scenario& s) { s.unsolicited_cancels.every = 1; }},
    {"replace_reject_every", [](Scenario& s) { s.replace_rejects.every = 1; }},
    {"lapse_ms", [](Scenario& s) { s.lapse_ms = 1; }},
    {"a negative lapse_ms", [](Scenario& s) { s.lapse_ms = -5; }},
};

TEST(Turn, each_standing_rule_of_a_scenario_arms_the_stats_line) {
  for (const Arming& arming : ARMING) {
    Bench bench;
    arming.arm(bench.exchange.scenario);
    EXPECT_THAT(bench.turn_after(2000), StartsWith("bench: stats ")) << arming.by;
  }
}

TEST(Turn, a_control_port_arms_the_stats_line) {
  Bench bench;
  bench.with_control_port();
  EXPECT_THAT(bench.turn_after(2000), StartsWith("bench: stats "));
}

TEST(Turn, one_shots_and_pending_drops_do_not_arm_the_stats_line) {
  Bench bench;
  Scenario& scenario = bench.exchange.scenario;
  scenario.rejects.next = scenario.partial_fills.next = scenario.fills_on_cancel.next = 1;
  scenario.unsolicited_cancels.next = scenario.replace_rejects.next = 1;
  scenario.disconnect_requested = 1;
  scenario.name = "label";
  EXPECT_EQ(bench.turn_after(5000), "");
}

TEST(Turn, faults_of_the_feed_do_not_arm_the_stats_line) {
  Bench bench;
  bench.config.drop_every = 1;
  FaultPlan& faults = bench.exchange.publisher.faults;
  faults.drop_every = faults.dup_every = faults.reorder_every = 1;
  faults.drop_next = faults.dup_next = faults.reorder_next = 1;
  faults.burst_start = faults.burst_len = 1;
  EXPECT_EQ(bench.turn_after(5000), "");
}

TEST(Turn, the_stats_line_is_due_by_the_turn_s_own_reading_and_counts_from_it) {
  Bench bench;
  bench.exchange.scenario.rejects.every = 1;
  bench.turn();
  bench.in_the_next_turn([] { test::advance_ms(7); });
  EXPECT_EQ(bench.turn_after(1999), "");
  bench.in_the_next_turn([] { test::advance_ms(7); });
  EXPECT_THAT(bench.turn(), StartsWith("bench: stats "));  // read at 2006
  EXPECT_EQ(bench.turn_after(1992), "");                   // 1999 behind that
  EXPECT_THAT(bench.turn_after(1), StartsWith("bench: stats "));
}

TEST(Turn, unarmed_the_timer_of_the_stats_line_stands_still) {
  Bench bench;
  EXPECT_EQ(bench.turn_after(5000), "");
  bench.exchange.scenario.rejects.every = 1;
  EXPECT_THAT(bench.turn(), StartsWith("bench: stats "));
  EXPECT_EQ(bench.turn_after(1999), "");
}

// --- The feed's heartbeat ---

TEST(Turn, the_feed_s_heartbeat_comes_1000_ms_after_the_last_flush) {
  Bench bench;
  bench.turn_after(999);
  EXPECT_THAT(bench.feed(), IsEmpty());
  bench.turn_after(1);
  EXPECT_THAT(bench.feed(), ElementsAre("heartbeat"));
  bench.turn_after(999);
  EXPECT_THAT(bench.feed(), IsEmpty());
  bench.turn_after(1);
  EXPECT_THAT(bench.feed(), ElementsAre("heartbeat"));
  EXPECT_EQ(state_of(bench.exchange.publisher).packets, 0u);
}

TEST(Turn, a_flush_puts_the_feed_s_heartbeat_off) {
  Bench bench;
  bench.turn_after(500);
  bench.exchange.publisher.append("abc", 3);
  bench.turn();
  bench.turn_after(999);
  EXPECT_THAT(bench.feed(), ElementsAre("1"));
  bench.turn_after(1);
  EXPECT_THAT(bench.feed(), ElementsAre("heartbeat"));
}

TEST(Turn, a_feed_that_has_never_been_flushed_begins_with_a_heartbeat) {
  Bench bench(Bench::Feed::WAS_NEVER_FLUSHED);
  bench.turn();
  EXPECT_THAT(bench.feed(), ElementsAre("heartbeat"));
}

TEST(Turn, the_feed_s_heartbeat_is_due_by_a_fresh_reading) {
  Bench bench;
  bench.in_the_next_turn([] { test::advance_ms(1); });
  bench.turn_after(999);
  EXPECT_THAT(bench.feed(), ElementsAre("heartbeat"));
  EXPECT_EQ(state_of(bench.exchange.publisher).last_flush_ms, START + 1000);
}

TEST(Turn, while_paused_and_dropping_the_feed_still_says_that_it_lives_and_what_was_lost) {
  Bench bench;
  bench.config.interval_ms = 40;
  bench.exchange.engine.paused = true;
  bench.exchange.publisher.faults.drop_every = 1;
  bench.turn_after(500);
  bench.exchange.publisher.append("abc", 3);
  EXPECT_EQ(bench.turn(), "quorl fault: dropped seq 1 (packet 1, 1 message(s))\n");
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(bench.turn_after(999), "");  // behind the lost packet, and behind each heartbeat
    EXPECT_THAT(bench.packets(), IsEmpty());
    EXPECT_EQ(bench.turn_after(1), "");
    const std::vector<Packet> packets = bench.packets();
    ASSERT_THAT(packets, SizeIs(1));
    EXPECT_EQ(packets[0].message_count, 0u);
    EXPECT_EQ(packets[0].first_seq, 2u);
    EXPECT_EQ(packets[0].stream_offset, 5u);  // the lost message and its length
  }
  EXPECT_EQ(state_of(bench.exchange.publisher).packets, 1u);
  EXPECT_EQ(state_of(bench.exchange.publisher).dropped, 1u);
  EXPECT_FALSE(bench.has_walked());
}

// --- Gap fill and DEEP SNAP ---

TEST(Turn, gap_fill_is_served_once_a_turn) {
  Bench bench;
  bench.asks_for_gap_fill();
  bench.turn();
  EXPECT_EQ(bench.gap_fill.counts().requests, 1u);
  EXPECT_THAT(bench.feed(), ElementsAre("heartbeat"));  // a status reply looks like one
}

TEST(Turn, a_snap_request_is_accepted_read_and_answered_in_one_turn) {
  Bench bench;
  TcpPeer subscriber(bench.snap_port);
  subscriber.sends(snap_request());
  EXPECT_THAT(bench.turn(), StartsWith("bench: DEEP SNAP served at seq 0 ("));
  EXPECT_THAT(subscriber.receives(), StartsWith(std::string("\x09\x00s", 3)));
  EXPECT_TRUE(subscriber.is_closed());
}

TEST(Turn, a_snap_connection_without_a_request_closes_after_more_than_10000_ms) {
  Bench bench;
  TcpPeer idle(bench.snap_port);
  bench.turn();
  bench.turn_after(10000);
  EXPECT_FALSE(idle.is_closed());
  EXPECT_EQ(bench.turn_after(1), "");
  EXPECT_TRUE(idle.is_closed());
}

TEST(Turn, snap_connections_that_have_ended_make_room_for_those_that_stand) {
  Bench bench;
  TcpPeer first(bench.snap_port);
  TcpPeer second(bench.snap_port);
  TcpPeer third(bench.snap_port);
  bench.turn();
  second.sends(snap_request());
  bench.turn();
  EXPECT_TRUE(second.is_closed());
  third.sends(snap_request());
  first.sends(snap_request());
  bench.turn();
  EXPECT_THAT(first.receives(), Not(IsEmpty()));
  EXPECT_THAT(third.receives(), Not(IsEmpty()));
}

// --- The output files ---

TEST(Turn, the_first_turn_writes_both_files) {
  Bench bench;
  const TemporaryPath book;
  const TemporaryPath bbo;
  bench.config.book_out = book.path;
  bench.config.bbo_out = bbo.path;
  bench.turn();
  EXPECT_THAT(book.take(), StartsWith("{\"ts_ns\":1700000000123456789,\"symbols\":{\"AAPL\":"));
  EXPECT_EQ(bbo.take(), "AAPL 0 0\n");
}

TEST(Turn, the_files_are_written_again_after_250_ms) {
  Bench bench;
  const TemporaryPath bbo;
  bench.config.bbo_out = bbo.path;
  bench.turn();
  bbo.take();
  bench.turn_after(249);
  EXPECT_FALSE(bbo.exists());
  bench.turn_after(1);
  EXPECT_EQ(bbo.take(), "AAPL 0 0\n");
  bench.turn_after(249);
  EXPECT_FALSE(bbo.exists());
  bench.turn_after(1);
  EXPECT_TRUE(bbo.exists());
}

TEST(Turn, the_files_go_by_the_turn_s_own_reading) {
  Bench bench;
  const TemporaryPath bbo;
  bench.config.bbo_out = bbo.path;
  bench.turn();
  bbo.take();
  bench.in_the_next_turn([] { test::advance_ms(1); });
  bench.turn_after(249);
  EXPECT_FALSE(bbo.exists());
  bench.turn();
  EXPECT_TRUE(bbo.exists());
}

TEST(Turn, the_book_file_is_written_before_the_bbo_file) {
  Bench bench;
  const TemporaryPath shared;
  bench.config.book_out = shared.path;
  bench.config.bbo_out = shared.path;
  bench.turn();
  EXPECT_EQ(shared.take(), "AAPL 0 0\n");
}

// --- The stats line of the feed ---

TEST(Turn, the_feed_s_stats_come_after_10000_ms_and_count_from_there) {
  Bench bench;
  EXPECT_EQ(bench.turn_after(9999), "");
  EXPECT_EQ(bench.turn_after(1),
            "[quorl] deep msgs 0 packets 0 dropped 0 gapfill 0 snapshots 0 resting 0 clients 0\n"
            "quorl faults: sent 0 dropped 0 duplicated 0 reordered 0\n");
  EXPECT_EQ(bench.turn_after(9999), "");
  EXPECT_THAT(bench.turn_after(3), StartsWith("[quorl] deep msgs "));
  EXPECT_EQ(bench.turn_after(9999), "");
}

TEST(Turn, the_feed_s_stats_are_due_by_the_turn_s_own_reading_and_count_from_it) {
  Bench bench;
  bench.turn();
  bench.in_the_next_turn([] { test::advance_ms(7); });
  EXPECT_EQ(bench.turn_after(9999), "");
  bench.in_the_next_turn([] { test::advance_ms(7); });
  EXPECT_THAT(bench.turn(), StartsWith("[quorl] deep msgs "));  // read at 10006
  EXPECT_EQ(bench.turn_after(9992), "");                        // 9999 behind that
  EXPECT_THAT(bench.turn_after(1), StartsWith("[quorl] deep msgs "));
}

TEST(Turn, the_feed_s_stats_show_its_counts_and_closed_clients_too) {
  Bench bench;
  bench.rest(true, 1890000);
  bench.rest(false, 1910000);
  bench.rest(false, 1920000);
  bench.exchange.publisher.faults.dup_next = 1;
  bench.exchange.publisher.append("abc", 3);
  {
    TcpPeer gone(bench.fix_port);
    TcpPeer subscriber(bench.snap_port);
    subscriber.sends(snap_request());
    bench.turn();
  }
  bench.exchange.publisher.faults.drop_next = 1;
  bench.exchange.publisher.append("abc", 3);
  bench.asks_for_gap_fill();
  TcpPeer client(bench.fix_port);
  bench.turn();
  bench.asks_for_gap_fill();  // counted in the very turn that prints
  EXPECT_EQ(bench.turn_after(10000),
            "[quorl] deep msgs 5 packets 2 dropped 1 gapfill 2 snapshots 1 resting 3 clients 2\n"
            "quorl faults: sent 1 dropped 1 duplicated 1 reordered 0\n");
}

TEST(Turn, left_alone_it_says_nothing_but_the_feed_s_stats) {
  Bench bench;
  bench.config.interval_ms = 40;
  std::string said;
  for (int ms = 0; ms < 30000; ms += 500) said += bench.turn_after(500);
  size_t lines = 0;
  std::istringstream text(said);
  for (std::string line; std::getline(text, line); ++lines) {
    EXPECT_THAT(line, lines % 2 == 0 ? StartsWith("[quorl] deep msgs ")
                                     : StartsWith("quorl faults: sent "));
  }
  EXPECT_EQ(lines, 6u);
}

// --- The order of a turn ---

/// The words in the order in which they first stand in the text, each behind the one before.
void expect_in_order(const std::string& text, const std::vector<std::string>& words) {
  size_t at = 0;
  for (const std::string& word : words) {
    const size_t found = text.find(word, at);
    ASSERT_NE(found, std::string::npos) << "no \"" << word << "\" behind byte " << at << " of\n"
                                        << text;
    at = found + word.size();
  }
}

TEST(Turn, does_everything_in_its_fixed_order) {
  Bench bench;
  const TemporaryPath book;
  bench.with_control_port();
  bench.config.quiet = false;
  bench.config.interval_ms = 40;
  bench.config.book_out = book.path;
  TcpPeer alpha(bench.fix_port);  // sends nothing more and times out in the turn that counts
  alpha.sends(logon("ALPHA", 1));
  alpha.says(
      "35=D|34=2|49=ALPHA|56=IEXG|11=a1|55=AAPL|54=1|38=100|40=2|44=100.00|18=i|114=Y|"
      "59=0|47=P");
  bench.turn();
  bench.inbox.take();
  book.take();

  test::advance_ms(10000);
  test::step_system_clock_by(1);
  test::schedule_cancel(bench.exchange.engine, {"ALPHA", "a1", static_cast<int64_t>(START + 300)});
  bench.in_the_next_turn([&bench] {
    std::fprintf(stderr, "reports are composed\n");
    test::advance_ms(1000);  // the feed's heartbeat becomes due behind the flushes
    bench.exchange.publisher.append("late", 4);
  });
  bench.exchange.scenario.lapse.start(5000);
  bench.exchange.publisher.faults.dup_every = 1;  // each flush says so
  bench.commands("mark here");
  TcpPeer beta(bench.fix_port);
  beta.sends(logon("BETA"));
  TcpPeer subscriber(bench.snap_port);
  subscriber.sends(snap_request());
  bench.asks_for_the_first_message();
  const std::string said = bench.turn();
  expect_in_order(said, {
                            "bench: mark here at seq ",
                            "[quorl] FIX client connected",
                            "bench: logon BETA",
                            "bench: DEEP SNAP served",
                            "quorl fault: duplicated",  // the walk's own flush
                            "bench: unsolicited cancel of a1",
                            "quorl fault: duplicated",  // the flush behind it
                            "reports are composed",
                            "bench: going silent for 5000 ms",
                            "[quorl] client ALPHA timed out",
                            "bench: stats ",
                            "quorl fault: duplicated",  // what waits, ahead of the heartbeat
                            "[quorl] deep msgs ",
                        });

  const auto datagrams = bench.inbox.take();
  const size_t size = datagrams.size();
  ASSERT_GE(size, 8u);
  EXPECT_EQ(datagrams[0],
            Bytes({'o', 'k', ' ', 'm', 'a', 'r', 'k', ' ', 'h', 'e', 'r', 'e', '\n'}));
  EXPECT_EQ(datagrams[size - 5], datagrams[size - 6]);  // the cancel's update, sent twice
  EXPECT_EQ(datagrams[size - 3], datagrams[size - 4]);  // and what came behind the flush
  const Packet update = test::packet_of(datagrams[size - 5]);
  const Packet late = test::packet_of(datagrams[size - 3]);
  const Packet heartbeat = test::packet_of(datagrams[size - 2]);
  const Packet replay = test::packet_of(datagrams[size - 1]);
  EXPECT_EQ(update.message_count, 1u);
  EXPECT_THAT(late.messages, ElementsAre(hex("6C 61 74 65")));
  EXPECT_EQ(heartbeat.message_count, 0u);
  EXPECT_EQ(replay.message_count, 1u);
  EXPECT_EQ(replay.first_seq, 1u);
  EXPECT_LT(update.send_time, late.send_time);
  EXPECT_LT(late.send_time, heartbeat.send_time);
  EXPECT_LT(heartbeat.send_time, replay.send_time);
  EXPECT_EQ(bench.gap_fill.counts().requests, 1u);
  EXPECT_THAT(book.take(), StartsWith("{\"ts_ns\":" + std::to_string(replay.send_time + 1) + ","));
}

TEST(Turn, several_commands_of_one_turn_are_served_in_order_and_an_empty_datagram_ends_them) {
  Bench bench;
  bench.with_control_port();
  bench.commands("pause");
  bench.commands("resume");
  bench.commands("");
  bench.commands("pause");
  EXPECT_EQ(bench.turn(), "bench: paused at seq 0\nbench: resumed at seq 0\n");
  EXPECT_EQ(bench.turn(), "bench: paused at seq 0\n");
}

TEST(Turn, without_a_control_port_nothing_reads_its_socket) {
  Bench bench;
  bench.commands("pause");
  EXPECT_EQ(bench.turn(), "");
  EXPECT_FALSE(bench.exchange.engine.paused);
}

TEST(Turn, the_steady_clock_may_have_begun_just_now_for_the_first_files) {
  Bench bench;
  const TemporaryPath bbo;
  bench.config.bbo_out = bbo.path;
  test::set_steady_ms(249);
  bench.turn();
  EXPECT_FALSE(bbo.exists());
  test::set_steady_ms(250);
  bench.turn();
  EXPECT_TRUE(bbo.exists());
}

}  // namespace
}  // namespace quorl
