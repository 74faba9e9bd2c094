#include "fix/session.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "support/fix_wire.h"
#include "support/fix_wire_gateway.h"
#include "support/inside.h"
#include "support/test_clock.h"

namespace {

/// What this program has sent, in order: "feed" for a packet of the feed, "8", "A", ... for a FIX
/// message of that type. The feed and the FIX connections are different sockets, so nothing else
/// shows which came first.
std::vector<std::string> sends;

}  // namespace

// Stand in front of the C library's own in this program.
extern "C" ssize_t send(int fd, const void* bytes, size_t size, int flags) {
  const std::string_view message(static_cast<const char*>(bytes), size);
  const size_t type = message.find(
      "\x01"
      "35=");
  sends.emplace_back(type == std::string_view::npos ? "?" : message.substr(type + 4, 1));
  return ::syscall(SYS_sendto, fd, bytes, size, flags, nullptr, 0);
}

extern "C" ssize_t sendto(int fd, const void* bytes, size_t size, int flags, const sockaddr* to,
                          socklen_t to_size) {
  sends.emplace_back("feed");
  return ::syscall(SYS_sendto, fd, bytes, size, flags, to, to_size);
}

namespace quorl::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

const char* const RESTING_BUY = "|55=AAPL|54=1|38=100|40=2|44=100|18=i";

std::string new_order(int seq, const std::string& cl_ord_id,
                      const std::string& rest = RESTING_BUY) {
  return "35=D|34=" + std::to_string(seq) + "|11=" + cl_ord_id + rest;
}

class Session : public testing::Test {
 protected:
  Session() { sends.clear(); }

  Scenario& scenario() { return gateway.exchange.scenario; }
  SessionMemory stream(const std::string& comp_id = "ALPHA") {
    return {gateway.exchange.engine, comp_id};
  }
  size_t orders_resting() const { return order_count(gateway.exchange.engine); }
  std::string said_on(WirePeer& peer, const std::string& body) {
    return standard_error_of([&] { peer.says(body); });
  }

  WireGateway gateway;
};

// --- Accepting ---

TEST_F(Session, accepts_every_connection_that_waits_into_a_record_of_its_own) {
  advance_ms(5);
  const std::array<int, 3> far_ends = {gateway.dials(), gateway.dials(), gateway.dials()};
  gateway.sessions.accept_clients(gateway.listen_fd);
  ASSERT_EQ(gateway.exchange.clients.size(), 3U);
  for (const Client& client : gateway.exchange.clients) {
    EXPECT_GE(client.fd, 0);
    EXPECT_NE(::fcntl(client.fd, F_GETFL) & O_NONBLOCK, 0);
    EXPECT_FALSE(client.logged_on);
    EXPECT_TRUE(client.inbound.empty());
    EXPECT_EQ(client.last_seq, 0U);
    EXPECT_EQ(client.last_rx_ms, static_cast<int64_t>(START_STEADY_MS + 5));
    EXPECT_EQ(client.last_tx_ms, static_cast<int64_t>(START_STEADY_MS + 5));
    EXPECT_EQ(client.heartbeat_s, 30);
    EXPECT_EQ(client.comp_id, "");
  }
  for (const int fd : far_ends) {
    const std::string logon = framed("35=A|34=1|49=N" + std::to_string(fd) + "|56=IEXG|108=30");
    ASSERT_EQ(::write(fd, logon.data(), logon.size()), static_cast<ssize_t>(logon.size()));
  }
  const std::string log = standard_error_of([&] { gateway.serves(); });
  size_t at = 0;
  for (size_t i = 0; i < far_ends.size(); ++i) {  // each in its turn
    const std::string comp_id = "N" + std::to_string(far_ends[i]);
    EXPECT_EQ(gateway.exchange.clients[i].comp_id, comp_id);
    at = log.find("bench: logon " + comp_id + " ", at);
    EXPECT_NE(at, std::string::npos) << comp_id << " is not the next in\n" << log;
    ::close(far_ends[i]);
  }
}

TEST_F(Session, accepts_nobody_when_nobody_waits) {
  gateway.sessions.accept_clients(gateway.listen_fd);
  gateway.sessions.accept_clients(-1);  // any failure ends the accepting
  EXPECT_TRUE(gateway.exchange.clients.empty());
}

TEST(SessionOverTcp, sends_without_waiting_for_more_to_send) {
  WireGateway gateway;
  const int listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  ASSERT_EQ(::bind(listener, reinterpret_cast<const sockaddr*>(&address), size), 0);
  ASSERT_EQ(::listen(listener, 1), 0);
  ASSERT_EQ(::getsockname(listener, reinterpret_cast<sockaddr*>(&address), &size), 0);
  const int far_end = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  ASSERT_EQ(::connect(far_end, reinterpret_cast<const sockaddr*>(&address), size), 0);
  pollfd waiting{listener, POLLIN, 0};
  ASSERT_EQ(::poll(&waiting, 1, 10'000), 1);
  ::fcntl(listener, F_SETFL, O_NONBLOCK);
  gateway.sessions.accept_clients(listener);
  ASSERT_EQ(gateway.exchange.clients.size(), 1U);
  int no_delay = 0;
  socklen_t option_size = sizeof no_delay;
  ::getsockopt(gateway.exchange.clients[0].fd, IPPROTO_TCP, TCP_NODELAY, &no_delay, &option_size);
  EXPECT_NE(no_delay, 0);
  EXPECT_NE(::fcntl(gateway.exchange.clients[0].fd, F_GETFL) & O_NONBLOCK, 0);
  ::close(far_end);
  ::close(listener);
}

TEST_F(Session, says_who_has_connected_unless_the_run_is_quiet) {
  WireGateway talkative("AAPL:190.00", /*quiet=*/false);
  const std::string log = standard_error_of([&] { talkative.connects(); });
  EXPECT_EQ(log, "[quorl] FIX client connected (fd " +
                     std::to_string(talkative.exchange.clients[0].fd) + ")\n");
  EXPECT_EQ(standard_error_of([&] { gateway.connects(); }), "");
}

// --- Reading ---

TEST_F(Session, handles_every_whole_message_of_one_read_in_order) {
  WirePeer alpha = gateway.logs_on("ALPHA");
  alpha.writes(framed("35=1|34=2|112=a") + "garbage" + framed("35=1|34=3|112=b") + "8=FIX");
  gateway.serves();
  alpha.hears("35=0|112=a");
  alpha.hears("35=0|112=b");
  alpha.writes(framed("35=1|34=4|112=c").substr(5));
  gateway.serves();
  alpha.hears("35=0|112=c");
}

TEST_F(Session, reads_more_than_one_buffer_full_in_one_pass) {
  WirePeer alpha = gateway.logs_on("ALPHA");
  alpha.writes(framed("35=1|34=2|112=" + std::string(100'000, 'x')) + framed("35=1|34=3|112=b"));
  gateway.serves();
  alpha.hears("35=0|112=" + std::string(100'000, 'x'));
  alpha.hears("35=0|112=b");
}

TEST_F(Session, counts_any_bytes_as_a_sign_of_life) {
  WirePeer alpha = gateway.logs_on("ALPHA");
  advance_ms(700);
  alpha.writes("x");
  gateway.serves();
  EXPECT_EQ(alpha.client().last_rx_ms, static_cast<int64_t>(START_STEADY_MS + 700));
  advance_ms(100);
  gateway.serves();  // nothing has come
  EXPECT_EQ(alpha.client().last_rx_ms, static_cast<int64_t>(START_STEADY_MS + 700));
}

TEST_F(Session, of_a_nameless_client_that_closes_counts_the_market_s_own_orders) {
  gateway.exchange.rests({"AAPL sell 300 @ 190.01", "AAPL buy 100 @ 189.99"});
  gateway.connects().closes();
  EXPECT_EQ(standard_error_of([&] { gateway.serves(); }),
            "bench: client  disconnected (2 resting order(s) kept)\n");
}

TEST_F(Session, handles_nothing_that_came_in_one_pass_with_the_close) {
  WirePeer alpha = gateway.logs_on("ALPHA");
  alpha.writes(framed(new_order(2, "a1")) + framed("35=5|34=3"));
  alpha.closes();
  EXPECT_EQ(standard_error_of([&] { gateway.serves(); }),
            "bench: client ALPHA disconnected (0 resting order(s) kept)\n");
  EXPECT_EQ(orders_resting(), 0U);
  EXPECT_EQ(stream().next_in(), 2U);
  EXPECT_EQ(alpha.client().last_seq, 1U);
  EXPECT_TRUE(alpha.client().inbound.empty());
}

TEST_F(Session, keeps_the_record_of_a_closed_connection_and_serves_the_others_in_their_order) {
  WirePeer first = gateway.logs_on("ALPHA");
  WirePeer second = gateway.logs_on("BETA");
  first.closes();
  gateway.serves();
  forget_closed_clients(gateway.sessions);
  ASSERT_EQ(gateway.exchange.clients.size(), 2U);
  EXPECT_EQ(gateway.exchange.clients[0].fd, -1);
  EXPECT_EQ(gateway.exchange.clients[0].comp_id, "ALPHA");
  second.says("35=1|34=2|112=x");
  second.hears("35=0|112=x");
  WirePeer third = gateway.logs_on("ALPHA");
  EXPECT_EQ(gateway.exchange.clients.size(), 3U);
  third.writes(framed("35=4|34=3|36=8"));
  second.writes(framed("35=4|34=3|36=9"));
  EXPECT_EQ(standard_error_of([&] { gateway.serves(); }),
            "bench: client BETA SequenceReset/GapFill 36=9\n"
            "bench: client ALPHA SequenceReset/GapFill 36=8\n");
}

// --- Sequence numbers ---

TEST_F(Session, asks_for_a_gap_byte_for_byte_and_acts_on_the_message_at_once) {
  WirePeer alpha = gateway.logs_on("ALPHA");
  EXPECT_EQ(said_on(alpha, new_order(5, "a1")),
            "bench: client ALPHA seq gap expected 2 got 5 (D) — ResendRequest sent\n");
  alpha.hears_exactly(
      "8=FIX.4.2|9=61|35=2|34=2|49=IEXG|56=ALPHA|52=20231114-22:13:20.123|7=2|16=4|10=213|");
  alpha.hears("35=8|34=3|150=0|11=a1");
  alpha.hears_nothing();
  EXPECT_EQ(stream().next_in(), 6U);
}

TEST_F(Session, takes_the_last_of_two_sequence_numbers) {
  WirePeer alpha = gateway.logs_on("ALPHA");
  EXPECT_EQ(said_on(alpha, "35=0|34=9|34=2"), "");
  EXPECT_EQ(stream().next_in(), 3U);
}

TEST_F(Session, ignores_fields_behind_a_piece_that_is_none) {
  WirePeer alpha = gateway.logs_on("ALPHA");
  EXPECT_EQ(said_on(alpha, "35=0|junk|34=9"), "");
  EXPECT_EQ(alpha.client().last_seq, 0U);
  EXPECT_EQ(stream().next_in(), 2U);
}

TEST_F(Session, knows_a_type_under_a_tag_that_narrows_to_its_own) {
  WirePeer alpha = gateway.logs_on("ALPHA");
  alpha.says("4294967331=1|34=2|112=a");
  alpha.hears("35=0|112=a");
}

// --- Session-level messages ---

TEST_F(Session, answers_a_test_request_byte_for_byte) {
  WirePeer alpha = gateway.logs_on("ALPHA");
  alpha.says("35=1|34=2|112=are=you there");
  alpha.hears_exactly(
      "8=FIX.4.2|9=70|35=0|34=2|49=IEXG|56=ALPHA|52=20231114-22:13:20.123|112=are=you "
      "there|10=047|");
}

TEST_F(Session, answers_a_test_request_without_an_id_by_a_plain_heartbeat) {
  WirePeer alpha = gateway.logs_on("ALPHA");
  alpha.says("35=1|34=2");
  alpha.hears_exactly("8=FIX.4.2|9=52|35=0|34=2|49=IEXG|56=ALPHA|52=20231114-22:13:20.123|10=083|");
  alpha.says("35=1|34=3|112=");
  alpha.hears("35=0|34=3|!112");
}

TEST_F(Session, rejects_an_unknown_type_byte_for_byte_and_stays_open) {
  WirePeer alpha = gateway.logs_on("ALPHA");
  EXPECT_EQ(said_on(alpha, "35=Q|34=2"), "");
  alpha.hears_exactly(
      "8=FIX.4.2|9=83|35=3|34=2|49=IEXG|56=ALPHA|52=20231114-22:13:20.123|45=2|373=11|"
      "58=Invalid MsgType|10=203|");
  EXPECT_EQ(stream().next_in(), 3U);
  alpha.hears_nothing();
}

TEST_F(Session, ends_with_a_logout_that_is_answered_byte_for_byte) {
  WirePeer alpha = gateway.logs_on("ALPHA");
  alpha.says(new_order(2, "a1"));
  alpha.hears("35=8");
  EXPECT_EQ(said_on(alpha, "35=5|34=3|58=bye"),
            "bench: client ALPHA logged out (1 resting order(s) kept)\n");
  alpha.hears_exactly("8=FIX.4.2|9=52|35=5|34=3|49=IEXG|56=ALPHA|52=20231114-22:13:20.123|10=089|");
  alpha.is_disconnected();
  EXPECT_EQ(orders_resting(), 1U);
  EXPECT_EQ(stream().next_in(), 4U);
  EXPECT_EQ(stream().next_out(), 4U);
  EXPECT_EQ(stream().stored_count(), 1U);
}

// --- Orders: what leaves first ---

TEST_F(Session, sends_the_feed_before_the_reports_of_a_new_order) {
  gateway.exchange.rests({"AAPL sell 100 @ 190.01"});
  WirePeer alpha = gateway.logs_on("ALPHA");
  sends.clear();
  alpha.says(new_order(2, "a1", "|55=AAPL|54=1|38=100|40=1|18=i"));
  EXPECT_THAT(sends, ElementsAre("feed", "8", "8"));
  alpha.hears("35=8|34=2|150=0");
  alpha.hears("35=8|34=3|150=2|31=190.01");
  gateway.exchange.feed_shows({"T 100 @ 190.01", "5 0 @ 190.01 last"});
}

TEST_F(Session, sends_the_reports_of_a_cancel_or_replace_before_the_feed) {
  WirePeer alpha = gateway.logs_on("ALPHA");
  alpha.says(new_order(2, "a1"));
  sends.clear();
  alpha.says("35=G|34=3|11=a2|41=a1|55=AAPL|54=1|38=200|40=2|44=100");
  EXPECT_THAT(sends, ElementsAre("8", "feed"));
  sends.clear();
  alpha.says("35=F|34=4|11=a3|41=a2");
  EXPECT_THAT(sends, ElementsAre("8", "feed"));
  sends.clear();
  alpha.says("35=F|34=5|11=a4|41=a2");
  EXPECT_THAT(sends, ElementsAre("9"));  // nothing changed: nothing for the feed
}

TEST_F(Session, leaves_the_feed_alone_for_a_refused_order) {
  WirePeer alpha = gateway.logs_on("ALPHA");
  sends.clear();
  alpha.says(new_order(2, "a1", "|55=NOPE|54=1|38=100|40=1|18=i"));
  EXPECT_THAT(sends, ElementsAre("8"));
  alpha.hears("35=8|150=8|58=UnknownSymbol");
}

TEST_F(Session, flushes_what_waited_on_the_feed_before_a_refused_order_s_report) {
  WirePeer alpha = gateway.logs_on("ALPHA");
  gateway.exchange.engine.begin_event();
  gateway.exchange.publisher.append("x", 1);
  sends.clear();
  alpha.says(new_order(2, "a1", "|55=NOPE|54=1|38=100|40=1|18=i"));
  EXPECT_THAT(sends, ElementsAre("feed", "8"));
}

TEST_F(Session, stamps_the_time_of_each_send) {
  WirePeer alpha = gateway.logs_on("ALPHA");
  advance_ms(300);
  alpha.says("35=1|34=2");
  EXPECT_EQ(alpha.client().last_tx_ms, static_cast<int64_t>(START_STEADY_MS + 300));
  advance_ms(300);
  alpha.says(new_order(3, "a1"));
  EXPECT_EQ(alpha.client().last_tx_ms, static_cast<int64_t>(START_STEADY_MS + 600));
  advance_ms(300);
  alpha.says("35=0|34=4");
  EXPECT_EQ(alpha.client().last_tx_ms, static_cast<int64_t>(START_STEADY_MS + 600));
}

// --- Who speaks for a stream ---

/// Connections by their order of acceptance, from 0.
class StreamConnections : public Session {
 protected:
  std::vector<size_t> connections(const std::string& comp_id = "ALPHA") {
    return stream(comp_id).connections();
  }

  /// A further order of ALPHA comes to rest, as if an earlier connection had sent it.
  void owner_has_an_order_resting() {
    WirePeer sender = gateway.logs_on("ALPHA");
    sender.says(new_order(static_cast<int>(stream().next_in()), "r1"));
    sender.says("35=5|34=" + std::to_string(stream().next_in()));
    ASSERT_EQ(orders_resting(), 1U);
  }

  /// All of the resting order is filled, and the turn's reports go out.
  void fills_it() {
    gateway.exchange.is_hit("AAPL sell 100");
    gateway.sends_deferred();
  }

  std::string logon(const std::string& comp_id) {
    return "35=A|34=" + std::to_string(stream(comp_id).next_in()) + "|49=" + comp_id +
           "|56=IEXG|108=30";
  }
  static std::string refused_logon(const std::string& comp_id) {
    return "35=A|34=0|49=" + comp_id + "|56=IEXG|108=30";
  }

  static constexpr const char* FILL = "35=8|56=ALPHA|150=2|11=r1";
};

TEST_F(StreamConnections, are_those_that_have_logged_on) {
  WirePeer first = gateway.connects();
  WirePeer second = gateway.connects();
  EXPECT_THAT(connections(), IsEmpty());
  second.says(logon("ALPHA"));
  EXPECT_THAT(connections(), ElementsAre(1));
  first.says(logon("BETA"));
  EXPECT_THAT(connections(), ElementsAre(1));
  EXPECT_THAT(connections("BETA"), ElementsAre(0));
}

TEST_F(StreamConnections, end_with_a_logout) {
  WirePeer alpha = gateway.logs_on("ALPHA");
  alpha.says("35=5|34=2");
  EXPECT_THAT(connections(), IsEmpty());
}

TEST_F(StreamConnections, end_with_the_client_s_own_close) {
  WirePeer alpha = gateway.logs_on("ALPHA");
  alpha.closes();
  EXPECT_THAT(connections(), ElementsAre(0)) << "nobody has noticed yet";
  gateway.serves();
  EXPECT_THAT(connections(), IsEmpty());
}

TEST_F(StreamConnections, end_with_a_drop) {
  WirePeer alpha = gateway.logs_on("ALPHA");
  scenario().disconnect_requested = 1;
  alpha.says(new_order(2, "a1"));
  EXPECT_THAT(connections(), IsEmpty());
}

TEST_F(StreamConnections, end_with_a_time_out) {
  gateway.logs_on("ALPHA", 1);
  gateway.logs_on("ALPHA", 30);
  advance_ms(2500);
  gateway.runs_timers();
  EXPECT_THAT(connections(), ElementsAre(1));
}

TEST_F(StreamConnections, never_count_one_whose_logon_is_refused) {
  gateway.logs_on("ALPHA");
  WirePeer refused = gateway.connects();
  refused.says(refused_logon("ALPHA"));
  WirePeer nameless = gateway.connects();
  nameless.says("35=0|34=1");
  EXPECT_THAT(connections(), ElementsAre(0));
  EXPECT_THAT(connections(""), IsEmpty());
}

TEST_F(StreamConnections, count_one_that_logs_on_again_once) {
  WirePeer alpha = gateway.logs_on("ALPHA");
  gateway.logs_on("ALPHA");
  alpha.says(logon("ALPHA"));
  alpha.says(logon("ALPHA"));
  EXPECT_THAT(connections(), ElementsAre(0, 1));
  alpha.says("35=5|34=" + std::to_string(stream().next_in()));
  EXPECT_THAT(connections(), ElementsAre(1));
}

TEST_F(StreamConnections, lose_one_that_logs_on_under_another_name) {
  owner_has_an_order_resting();
  WirePeer peer = gateway.logs_on("ALPHA");
  peer.says(logon("BETA"));
  EXPECT_THAT(connections("ALPHA"), IsEmpty());
  EXPECT_THAT(connections("BETA"), ElementsAre(1));
  peer.skips_all();
  fills_it();
  peer.hears_nothing();  // what ALPHA is owed is none of BETA's business
  EXPECT_THAT(readable(stream().stored().back().body), HasSubstr("|11=r1|"));
  peer.says(logon("ALPHA"));
  EXPECT_THAT(connections("ALPHA"), ElementsAre(1));
  EXPECT_THAT(connections("BETA"), IsEmpty());
}

TEST_F(StreamConnections, lose_one_whose_second_logon_is_refused) {
  WirePeer alpha = gateway.logs_on("ALPHA");
  alpha.says(refused_logon("ALPHA"));
  EXPECT_THAT(connections(), IsEmpty());
}

TEST_F(StreamConnections, lose_one_whose_second_logon_under_another_name_is_refused) {
  WirePeer moving = gateway.logs_on("ALPHA");
  WirePeer alpha = gateway.logs_on("ALPHA");
  gateway.logs_on("BETA");
  moving.says(refused_logon("BETA"));
  EXPECT_THAT(connections("ALPHA"), ElementsAre(1));
  EXPECT_THAT(connections("BETA"), ElementsAre(2));
  EXPECT_EQ(moving.client().comp_id, "BETA");
  alpha.says("35=5|34=3");
  EXPECT_THAT(connections("ALPHA"), IsEmpty());
}

TEST_F(StreamConnections, the_last_accepted_hears_of_a_fill_whoever_logged_on_last) {
  owner_has_an_order_resting();
  WirePeer first = gateway.connects();
  WirePeer second = gateway.connects();
  second.says(logon("ALPHA"));
  first.says(logon("ALPHA"));
  EXPECT_THAT(connections(), ElementsAre(1, 2));
  first.skips_all();
  second.skips_all();
  fills_it();
  first.hears_nothing();
  second.hears(FILL);
}

TEST_F(StreamConnections, the_earlier_hears_of_a_fill_once_the_later_is_gone) {
  owner_has_an_order_resting();
  WirePeer earlier = gateway.logs_on("ALPHA");
  WirePeer later = gateway.logs_on("ALPHA");
  later.closes();
  gateway.serves();
  EXPECT_THAT(connections(), ElementsAre(1));
  fills_it();
  earlier.hears(FILL);
}

TEST_F(StreamConnections, the_later_hears_of_a_fill_once_the_earlier_is_gone) {
  owner_has_an_order_resting();
  WirePeer earlier = gateway.logs_on("ALPHA");
  WirePeer later = gateway.logs_on("ALPHA");
  earlier.says("35=5|34=" + std::to_string(stream().next_in()));
  EXPECT_THAT(connections(), ElementsAre(2));
  fills_it();
  later.hears(FILL);
}

TEST_F(StreamConnections, the_earlier_hears_of_a_fill_while_the_later_speaks_for_another) {
  owner_has_an_order_resting();
  WirePeer earlier = gateway.logs_on("ALPHA");
  WirePeer later = gateway.logs_on("ALPHA");
  later.says(logon("BETA"));
  later.skips_all();
  fills_it();
  earlier.hears(FILL);
  later.hears_nothing();
}

TEST_F(StreamConnections, without_any_a_fill_is_numbered_and_stored_for_a_resend) {
  owner_has_an_order_resting();
  WirePeer earlier = gateway.logs_on("ALPHA");
  WirePeer later = gateway.logs_on("ALPHA");
  later.says("35=5|34=" + std::to_string(stream().next_in()));
  later.skips_all();
  earlier.closes();
  gateway.serves();
  EXPECT_THAT(connections(), IsEmpty());
  const uint32_t seq = stream().next_out();
  fills_it();
  later.is_disconnected();
  EXPECT_EQ(stream().next_out(), seq + 1);
  WirePeer again = gateway.logs_on("ALPHA");
  again.says("35=2|34=" + std::to_string(stream().next_in()) + "|7=" + std::to_string(seq) +
             "|16=" + std::to_string(seq));
  again.hears(std::string(FILL) + "|43=Y|34=" + std::to_string(seq));
}

TEST_F(StreamConnections, with_socket_0_count_like_any) {
  WirePeer alpha = gateway.logs_on("ALPHA");
  Client& client = alpha.client();
  const int standard_input = ::dup(0);  // -1 if there is none
  ASSERT_EQ(::dup2(client.fd, 0), 0);
  ::close(client.fd);
  client.fd = 0;
  alpha.says(new_order(2, "r1"));
  alpha.hears("35=8|150=0");
  fills_it();
  alpha.hears(FILL);
  client.fd = ::dup(0);
  ::close(0);
  if (standard_input >= 0) ::dup2(standard_input, 0);
  ::close(standard_input);
}

/// What the records of the connections say, which the streams must have noted.
std::vector<size_t> logged_on_as(const std::string& comp_id, const std::vector<Client>& clients) {
  std::vector<size_t> indices;
  for (size_t i = 0; i < clients.size(); ++i) {
    const Client& client = clients[i];
    if (client.fd >= 0 && client.logged_on && client.comp_id == comp_id) indices.push_back(i);
  }
  return indices;
}

TEST_F(StreamConnections, are_the_same_as_the_records_say_through_any_day) {
  const std::vector<std::string> names = {"ALPHA", "BETA", "GAMMA"};
  std::mt19937_64 random(31);
  std::vector<WirePeer> open;
  uint64_t most_at_once = 0;
  testing::internal::CaptureStderr();
  for (int step = 0; step < 1500 && !HasFailure(); ++step) {
    std::erase_if(open, [](WirePeer& peer) { return peer.client().fd < 0; });
    if (open.empty() || (random() % 4 == 0 && gateway.exchange.clients.size() < 250)) {
      open.push_back(gateway.connects());
    }
    WirePeer& peer = open[random() % open.size()];
    const std::string& name = names[random() % names.size()];
    switch (random() % 20) {
      case 0:
        peer.says("35=5|34=1000");
        break;
      case 1:
        peer.closes();
        gateway.serves();
        break;
      case 2:
        scenario().disconnect_requested = 1;
        peer.says(new_order(1000, "a" + std::to_string(step)));
        scenario().disconnect_requested = 0;
        break;
      case 3:
        peer.says(refused_logon(name));
        break;
      case 4:
        advance_ms(40'000);
        gateway.runs_timers();
        break;
      default:
        peer.says(logon(name));
        break;
    }
    bool up = false;
    for (const std::string& comp_id : names) {
      const std::vector<size_t> noted = connections(comp_id);
      most_at_once = std::max<uint64_t>(most_at_once, noted.size());
      EXPECT_EQ(noted, logged_on_as(comp_id, gateway.exchange.clients)) << "step " << step;
      up = up || !noted.empty();
    }
    EXPECT_EQ(gateway.sessions.any_logged_on(), up) << "step " << step;
  }
  testing::internal::GetCapturedStderr();
  EXPECT_GE(most_at_once, 3U);
}

TEST_F(Session, tells_whether_any_connection_is_logged_on) {
  EXPECT_FALSE(gateway.sessions.any_logged_on());
  WirePeer stranger = gateway.connects();
  EXPECT_FALSE(gateway.sessions.any_logged_on());
  WirePeer alpha = gateway.logs_on("ALPHA");
  WirePeer beta = gateway.logs_on("BETA");
  stranger.closes();
  alpha.closes();
  gateway.serves();
  EXPECT_TRUE(gateway.sessions.any_logged_on());
  beta.says("35=A|34=2|49=BETA|56=IEXG|98=0|108=30");  // again, and counts once
  beta.closes();
  gateway.serves();
  EXPECT_FALSE(gateway.sessions.any_logged_on());
}

// --- Gate ---

TEST_F(Session, sends_one_composed_message_unless_closed_or_silent) {
  WirePeer alpha = gateway.logs_on("ALPHA");
  const std::string message = framed("35=8|34=9");
  advance_ms(10);
  gateway.sessions.send_gated(alpha.client(), message);
  EXPECT_EQ(alpha.next_message(), message);
  EXPECT_EQ(alpha.client().last_tx_ms, static_cast<int64_t>(START_STEADY_MS + 10));

  gateway.is_silent_for(5);
  advance_ms(4);
  gateway.sessions.send_gated(alpha.client(), message);
  alpha.hears_nothing();
  EXPECT_EQ(alpha.client().last_tx_ms, static_cast<int64_t>(START_STEADY_MS + 10));
  advance_ms(1);  // the silence is over at its very millisecond
  gateway.sessions.send_gated(alpha.client(), message);
  EXPECT_EQ(alpha.next_message(), message);

  alpha.says("35=5|34=2");
  sends.clear();
  gateway.sessions.send_gated(alpha.client(), message);
  EXPECT_THAT(sends, IsEmpty());
}

TEST_F(Session, handles_everything_in_a_lapse_and_sends_nothing) {
  WirePeer alpha = gateway.logs_on("ALPHA");
  gateway.is_silent_for(1000);
  sends.clear();
  alpha.says("35=1|34=2|112=x");   // takes 2
  alpha.says("35=Q|34=3");         // 3
  alpha.says("35=0|34=6");         // 4, a ResendRequest of ours
  alpha.says(new_order(7, "a1"));  // 5
  alpha.says("35=G|34=8|11=a2|41=a1|55=AAPL|54=1|38=200|40=2|44=100");  // 6
  alpha.says("35=F|34=9|11=a3|41=nope");                                // 7
  alpha.says("35=2|34=10|7=1|16=0");                                    // takes none
  gateway.exchange.is_hit("AAPL sell 200");
  gateway.sends_deferred();                         // 8
  alpha.says("35=5|34=11");                         // 9
  EXPECT_THAT(sends, ElementsAre("feed", "feed"));  // the market goes on
  alpha.is_disconnected();
  EXPECT_EQ(stream().next_out(), 10U);
  EXPECT_EQ(stream().next_in(), 12U);
  EXPECT_EQ(stream().stored_count(), 4U);
  EXPECT_EQ(scenario().counters.replayed, 3U);
  EXPECT_EQ(alpha.client().last_tx_ms, static_cast<int64_t>(START_STEADY_MS));
}

TEST_F(Session, takes_the_client_s_messages_in_a_lapse_for_signs_of_life) {
  WirePeer alpha = gateway.logs_on("ALPHA", 1);
  gateway.is_silent_for(10000);
  advance_ms(2000);
  alpha.says("35=0|34=2");
  advance_ms(2000);
  EXPECT_EQ(standard_error_of([&] { gateway.runs_timers(); }), "");
  alpha.hears_nothing();
}

// --- The scripted drop ---

constexpr const char* SCRIPTED =
    "scripted: the last order's reports stayed on the stream; the client must log on again, "
    "continue its sequence and ResendRequest what it missed";

std::string drop_line(const std::string& comp_id, const std::string& reason, int resting) {
  return "bench: dropping the connection of " + comp_id + " (" + reason + "); " +
         std::to_string(resting) +
         " resting order(s) kept — the IEX FIX spec defines no cancel-on-disconnect\n";
}

TEST_F(Session, drops_at_the_threshold_or_beyond_it_or_on_request_by_this_table) {
  struct Case {
    uint32_t after;
    uint64_t orders_so_far;  // this one will be the next
    bool fired;
    bool requested;
    const char* reason;  // null: no drop
  };
  const std::vector<Case> cases = {
      {0, 0, false, false, nullptr},  {0, 0, false, true, "driven"},
      {0, 0, true, false, nullptr},   {0, 0, true, true, "driven"},
      {2, 0, false, false, nullptr},  {2, 0, false, true, SCRIPTED},
      {2, 0, true, false, nullptr},   {2, 0, true, true, SCRIPTED},
      {2, 1, false, false, SCRIPTED}, {2, 1, false, true, SCRIPTED},
      {2, 1, true, false, nullptr},   {2, 1, true, true, SCRIPTED},
      {2, 7, false, false, SCRIPTED}, {2, 7, true, false, nullptr},
      {1, 0, false, false, SCRIPTED}, {4294967295, 7, false, false, nullptr},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(std::to_string(c.after) + " after " + std::to_string(c.orders_so_far) +
                 (c.fired ? " fired" : "") + (c.requested ? " requested" : ""));
    WireGateway fresh;
    Scenario& script = fresh.exchange.scenario;
    script.disconnect_after = c.after;
    script.counters.orders = c.orders_so_far;
    script.disconnect_fired = c.fired;
    script.disconnect_requested = c.requested ? 1 : 0;
    WirePeer alpha = fresh.logs_on("ALPHA");
    const std::string log = standard_error_of([&] { alpha.says(new_order(2, "a1")); });
    if (c.reason == nullptr) {
      EXPECT_EQ(log, "");
      alpha.hears("35=8|150=0");
      EXPECT_EQ(script.disconnect_fired, c.fired);
    } else {
      EXPECT_EQ(log, drop_line("ALPHA", c.reason, 1));
      alpha.is_disconnected();
      EXPECT_TRUE(script.disconnect_fired);
      EXPECT_EQ(script.disconnect_requested, 0U);
    }
  }
}

// --- Timers ---

TEST_F(Session, beats_after_one_interval_of_its_own_silence_byte_for_byte) {
  WirePeer alpha = gateway.logs_on("ALPHA", 30);
  advance_ms(29'999);
  alpha.says("35=0|34=2");  // the client's bytes do not count as ours
  gateway.runs_timers();
  alpha.hears_nothing();
  advance_ms(1);
  gateway.runs_timers();
  alpha.hears_exactly("8=FIX.4.2|9=52|35=0|34=2|49=IEXG|56=ALPHA|52=20231114-22:13:50.123|10=086|");
  gateway.runs_timers();
  alpha.hears_nothing();
  advance_ms(29'999);
  gateway.runs_timers();
  alpha.hears_nothing();
  advance_ms(1);
  gateway.runs_timers();
  alpha.hears("35=0|34=3");
}

TEST_F(Session, puts_the_beat_off_with_whatever_it_sends) {
  WirePeer alpha = gateway.logs_on("ALPHA", 1);
  advance_ms(999);
  alpha.says("35=1|34=2|112=x");
  alpha.hears("35=0|112=x");
  advance_ms(999);
  gateway.runs_timers();
  alpha.hears_nothing();
  advance_ms(1);
  gateway.runs_timers();
  alpha.hears("35=0|!112");
}

TEST_F(Session, times_out_after_two_and_a_half_intervals_without_bytes) {
  WirePeer alpha = gateway.logs_on("ALPHA", 1);
  alpha.says(new_order(2, "a1"));
  alpha.skips_all();
  advance_ms(2499);
  EXPECT_EQ(standard_error_of([&] { gateway.runs_timers(); }), "");
  alpha.hears("35=0");
  advance_ms(1);
  EXPECT_EQ(standard_error_of([&] { gateway.runs_timers(); }),
            "[quorl] client ALPHA timed out (no message for 2 s; resting orders kept)\n");
  alpha.is_disconnected();  // without a Logout
  EXPECT_EQ(orders_resting(), 1U);
  EXPECT_EQ(standard_error_of([&] { gateway.runs_timers(); }), "");
}

TEST_F(Session, times_out_at_75_seconds_with_an_interval_of_30) {
  WirePeer alpha = gateway.logs_on("ALPHA", 30);
  advance_ms(74'999);
  EXPECT_EQ(standard_error_of([&] { gateway.runs_timers(); }), "");
  alpha.skips_all();
  advance_ms(1);
  EXPECT_EQ(standard_error_of([&] { gateway.runs_timers(); }),
            "[quorl] client ALPHA timed out (no message for 75 s; resting orders kept)\n");
  alpha.is_disconnected();
}

TEST_F(Session, beats_once_more_in_the_pass_that_times_out) {
  WirePeer alpha = gateway.logs_on("ALPHA", 1);
  advance_ms(2500);
  standard_error_of([&] { gateway.runs_timers(); });
  alpha.hears("35=0");
  alpha.is_disconnected();
}

TEST_F(Session, is_kept_alive_by_any_byte) {
  WirePeer alpha = gateway.logs_on("ALPHA", 1);
  advance_ms(2499);
  alpha.writes("x");
  gateway.serves();
  advance_ms(2499);
  EXPECT_EQ(standard_error_of([&] { gateway.runs_timers(); }), "");
  advance_ms(1);
  EXPECT_THAT(standard_error_of([&] { gateway.runs_timers(); }), HasSubstr("timed out"));
}

TEST_F(Session, never_beats_nor_times_out_before_logon) {
  WirePeer peer = gateway.connects();
  advance_ms(1'000'000'000);
  EXPECT_EQ(standard_error_of([&] { gateway.runs_timers(); }), "");
  peer.hears_nothing();
}

TEST_F(Session, does_not_beat_in_a_lapse_and_spends_no_number) {
  WirePeer alpha = gateway.logs_on("ALPHA", 2);
  gateway.is_silent_for(3000);
  advance_ms(2999);
  gateway.runs_timers();
  alpha.hears_nothing();
  EXPECT_EQ(stream().next_out(), 2U);
  advance_ms(1);
  gateway.runs_timers();
  alpha.hears("35=0|34=2");
}

TEST_F(Session, times_out_in_a_lapse_too) {
  WirePeer alpha = gateway.logs_on("ALPHA", 1);
  gateway.is_silent_for(60000);
  advance_ms(2500);
  EXPECT_EQ(standard_error_of([&] { gateway.runs_timers(); }),
            "[quorl] client ALPHA timed out (no message for 2 s; resting orders kept)\n");
  alpha.is_disconnected();
}

TEST_F(Session, tells_the_lapse_by_a_fresh_reading_and_the_beat_by_the_turn_s_time) {
  WirePeer alpha = gateway.logs_on("ALPHA", 1);
  const uint64_t turn_ms = START_STEADY_MS + 1000;
  gateway.is_silent_for(1005);
  set_steady_ms(turn_ms + 4);
  gateway.sessions.run_timers(turn_ms);
  alpha.hears_nothing();
  set_steady_ms(turn_ms + 5);
  gateway.sessions.run_timers(turn_ms - 1);
  alpha.hears_nothing();
  gateway.sessions.run_timers(turn_ms);
  alpha.hears("35=0");
}

TEST_F(Session, beats_once_more_if_it_has_sent_later_than_the_turn_s_time) {
  // Unsigned: a stamp one millisecond ahead is the longest silence there is.
  WirePeer alpha = gateway.logs_on("ALPHA", 30);
  const uint64_t turn_ms = START_STEADY_MS;
  advance_ms(1);
  alpha.says("35=1|34=2");
  alpha.hears("35=0");
  alpha.client().last_rx_ms = static_cast<int64_t>(turn_ms);
  gateway.sessions.run_timers(turn_ms);
  alpha.hears("35=0|34=3");
  alpha.hears_nothing();
}

TEST_F(Session, holds_an_interval_of_many_years) {
  WirePeer alpha = gateway.logs_on("ALPHA", 2'000'000'000);
  constexpr uint64_t TIME_OUT_MS = 2'000'000'000ULL * 2500;
  set_steady_ms(START_STEADY_MS + 2'000'000'000ULL * 1000 - 1);
  EXPECT_EQ(standard_error_of([&] { gateway.runs_timers(); }), "");
  alpha.hears_nothing();
  set_steady_ms(START_STEADY_MS + TIME_OUT_MS - 1);
  EXPECT_EQ(standard_error_of([&] { gateway.runs_timers(); }), "");
  alpha.hears("35=0");
  set_steady_ms(START_STEADY_MS + TIME_OUT_MS);
  EXPECT_EQ(standard_error_of([&] { gateway.runs_timers(); }),
            "[quorl] client ALPHA timed out (no message for 705032704 s; resting orders kept)\n");
}

TEST_F(Session, runs_the_timers_of_each_connection_by_itself) {
  WirePeer fast = gateway.logs_on("FAST", 1);
  WirePeer slow = gateway.logs_on("SLOW", 30);
  advance_ms(1000);
  gateway.runs_timers();
  fast.hears("35=0|56=FAST");
  slow.hears_nothing();
}

}  // namespace
}  // namespace quorl::test
