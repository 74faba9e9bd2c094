#include "bench/control_port.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "support/exchange.h"
#include "support/inside.h"
#include "support/test_clock.h"
#include "support/udp_inbox.h"

namespace quorl::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class Control : public testing::Test {
 protected:
  Control() { number_up_to(exchange.publisher, 812); }

  ControlTargets targets() { return {exchange.engine, interval_ms, session_up}; }

  /// The reply to one datagram; `log` is what was said on standard error.
  std::string reply_to(std::string_view datagram) {
    ControlReply reply;
    log = standard_error_of([&] { reply = run_control_command(datagram, targets()); });
    EXPECT_FALSE(reply.stops);
    return reply.text;
  }

  void drops_4_of_9_packets() {
    standard_error_of([this] { flush_up_to(exchange.publisher, {.packets = 9, .dropped = 4}); });
  }

  FaultPlan& faults() { return exchange.publisher.faults; }
  Scenario& scenario() { return exchange.scenario; }

  Exchange exchange{"AAPL:190.00"};
  int32_t interval_ms = 7;
  bool session_up = false;
  std::string log;
};

// --- The commands ---

TEST_F(Control, pause_stops_the_walk_and_says_where) {
  EXPECT_EQ(reply_to("pause"), "ok pause\n");
  EXPECT_TRUE(exchange.engine.paused);
  EXPECT_EQ(log, "bench: paused at seq 812\n");
  EXPECT_EQ(reply_to("pause"), "ok pause\n");
  EXPECT_TRUE(exchange.engine.paused);
}

TEST_F(Control, resume_starts_the_walk_and_says_where) {
  exchange.engine.paused = true;
  EXPECT_EQ(reply_to("resume"), "ok resume\n");
  EXPECT_FALSE(exchange.engine.paused);
  EXPECT_EQ(log, "bench: resumed at seq 812\n");
}

TEST_F(Control, places_before_the_first_message_are_told_as_0) {
  Exchange fresh{"AAPL:190.00"};
  EXPECT_EQ(standard_error_of([&] {
              run_control_command("pause", {fresh.engine, interval_ms, session_up});
            }),
            "bench: paused at seq 0\n");
}

struct Count {
  std::string command;
  uint32_t* field;
  uint32_t by_default;
};

class ControlCounts : public Control {
 protected:
  std::vector<Count> counts() {
    return {
        {"drop", &faults().drop_next, 1},
        {"dup", &faults().dup_next, 1},
        {"reorder", &faults().reorder_next, 1},
        {"drop_every", &faults().drop_every, 0},
        {"dup_every", &faults().dup_every, 0},
        {"reorder_every", &faults().reorder_every, 0},
        {"reject", &scenario().rejects.next, 1},
        {"partial", &scenario().partial_fills.next, 1},
        {"fill_on_cancel", &scenario().fills_on_cancel.next, 1},
        {"unsolicited_cancel", &scenario().unsolicited_cancels.next, 1},
        {"replace_reject", &scenario().replace_rejects.next, 1},
    };
  }
};

TEST_F(ControlCounts, are_assigned_and_not_added) {
  for (const Count& count : counts()) {
    EXPECT_EQ(reply_to(count.command + " 3"), "ok " + count.command + " 3\n");
    EXPECT_EQ(*count.field, 3U) << count.command;
    EXPECT_EQ(log, "");
    reply_to(count.command + " 2");
    EXPECT_EQ(*count.field, 2U) << count.command;
    reply_to(count.command + " 0");
    EXPECT_EQ(*count.field, 0U) << count.command;
  }
}

TEST_F(ControlCounts, touch_no_other_field) {
  for (const Count& set : counts()) {
    reply_to(set.command + " 7");
    for (const Count& other : counts()) {
      EXPECT_EQ(*other.field, other.command == set.command ? 7U : 0U)
          << set.command << " changes " << other.command;
    }
    *set.field = 0;
  }
}

TEST_F(ControlCounts, fall_back_to_their_default_for_a_missing_or_bad_number) {
  for (const Count& count : counts()) {
    for (const char* argument : {"", " ", " abc", " -", " x1", " 18446744073709551616",
                                 " 999999999999999999999999999999"}) {
      SCOPED_TRACE(count.command + argument);
      *count.field = 99;
      const std::string line = count.command + argument;
      EXPECT_EQ(reply_to(line), "ok " + line.substr(0, line.find_last_not_of(' ') + 1) + "\n");
      EXPECT_EQ(*count.field, count.by_default);
      EXPECT_EQ(log, "");
    }
  }
}

TEST_F(ControlCounts, are_the_low_32_bits_of_what_their_argument_begins_with) {
  for (const Count& count : counts()) {
    for (const auto& [argument, value] :
         std::vector<std::pair<std::string, uint32_t>>{{"-1", 4294967295},
                                                       {"4294967295", 4294967295},
                                                       {"4294967296", 0},
                                                       {"4294967298", 2},
                                                       {"18446744073709551615", 4294967295},
                                                       {"+5", 5},
                                                       {"5x", 5},
                                                       {"5,6", 5},
                                                       {"007", 7},
                                                       {"0x10", 0},
                                                       {"2.9", 2}}) {
      EXPECT_EQ(reply_to(count.command + " " + argument),
                "ok " + count.command + " " + argument + "\n");
      EXPECT_EQ(*count.field, value) << count.command << ' ' << argument;
    }
  }
}

TEST_F(Control, rate_sets_the_period_of_the_walk) {
  EXPECT_EQ(reply_to("rate 5"), "ok rate 5\n");
  EXPECT_EQ(interval_ms, 5);
  EXPECT_EQ(log, "");
  reply_to("rate -1");
  EXPECT_EQ(interval_ms, -1);
  reply_to("rate 2147483648");
  EXPECT_EQ(interval_ms, -2147483647 - 1);
}

TEST_F(Control, rate_is_40_for_0_and_for_what_is_no_number) {
  for (const char* line :
       {"rate", "rate 0", "rate abc", "rate 4294967296", "rate -0", "rate 18446744073709551616"}) {
    interval_ms = 7;
    EXPECT_EQ(reply_to(line), "ok " + std::string(line) + "\n");
    EXPECT_EQ(interval_ms, 40) << line;
  }
}

TEST_F(Control, disconnect_asks_for_one_drop_however_often_it_is_sent) {
  EXPECT_EQ(reply_to("disconnect"), "ok disconnect\n");
  EXPECT_EQ(reply_to("disconnect now"), "ok disconnect now\n");
  EXPECT_EQ(scenario().disconnect_requested, 1U);
  EXPECT_EQ(log, "");
}

TEST_F(Control, lapse_silences_from_now_on_and_is_announced_anew) {
  scenario().lapse.start(1000);
  EXPECT_TRUE(scenario().lapse.announce_once());
  advance_ms(500);
  EXPECT_EQ(reply_to("lapse 3000"), "ok lapse 3000\n");
  EXPECT_EQ(scenario().lapse.until_ms(), START_STEADY_MS + 3500);
  EXPECT_TRUE(scenario().lapse.announce_once());
  EXPECT_EQ(log, "");
  EXPECT_FALSE(scenario().lapse_fired);
}

TEST_F(Control, lapse_is_20_seconds_for_what_is_no_number) {
  for (const char* line : {"lapse", "lapse abc", "lapse 18446744073709551616"}) {
    scenario().lapse.start(0);
    EXPECT_EQ(reply_to(line), "ok " + std::string(line) + "\n");
    EXPECT_EQ(scenario().lapse.until_ms(), START_STEADY_MS + 20000) << line;
  }
}

TEST_F(Control, lapse_of_0_ends_one_that_runs) {
  scenario().lapse.start(99999);
  reply_to("lapse 0");
  EXPECT_EQ(scenario().lapse.until_ms(), START_STEADY_MS);
}

TEST_F(Control, lapse_of_minus_1_is_the_longest_there_is) {
  reply_to("lapse -1");
  EXPECT_EQ(scenario().lapse.until_ms(), START_STEADY_MS + 4294967295);
  reply_to("lapse 4294967296");
  EXPECT_EQ(scenario().lapse.until_ms(), START_STEADY_MS);
}

TEST_F(Control, stats_tells_all_counters_the_place_the_faults_and_the_session) {
  scenario().counters.orders = 3;
  scenario().counters.logons = 2;
  drops_4_of_9_packets();
  const std::string expected =
      "ok orders=3 accepts=0 fills=0 partials=0 cancels=0 replaces=0 rejects=0 replace_rejects=0 "
      "cancel_rejects=0 unsolicited_cancels=0 race_fills=0 late_cancels=0 stale_cancels=0 "
      "logins=2 logons=2 resend_requests=0 replays=0 replayed=0 next_seq=813 "
      "quorl faults: sent 5 dropped 4 duplicated 0 reordered 0 session=";
  EXPECT_EQ(reply_to("stats"), expected + "down\n");
  EXPECT_EQ(log, "");
  session_up = true;
  EXPECT_EQ(reply_to("stats now"), expected + "up\n");
  session_up = false;
  EXPECT_EQ(reply_to(" stats \n"), expected + "down\n");
}

// --- mark ---

class ControlMark : public Control {
 protected:
  ~ControlMark() override { std::remove(path.c_str()); }
  std::string truth() const {
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
  }
  const std::string path =
      testing::TempDir() + "quorl_control_" + std::to_string(::getpid()) + ".jsonl";
};

TEST_F(ControlMark, writes_a_line_of_market_truth_and_one_on_standard_error) {
  exchange.engine.truth.open_for_appending(path);
  exchange.engine.truth.write("waiting\n");
  scenario().counters.orders = 5;
  EXPECT_EQ(reply_to("mark phase-2"), "ok mark phase-2\n");
  EXPECT_EQ(log, "bench: mark phase-2 at seq 812 orders 5\n");
  EXPECT_EQ(truth(), "waiting\n{\"mark\":\"phase-2\",\"seq\":812}\n");  // flushed, all of it
}

TEST_F(ControlMark, takes_its_second_word_and_echoes_the_rest) {
  exchange.engine.truth.open_for_appending(path);
  EXPECT_EQ(reply_to("mark two words"), "ok mark two words\n");
  EXPECT_EQ(log, "bench: mark two at seq 812 orders 0\n");
  EXPECT_EQ(truth(), "{\"mark\":\"two\",\"seq\":812}\n");
}

TEST_F(ControlMark, may_be_without_a_label) {
  exchange.engine.truth.open_for_appending(path);
  EXPECT_EQ(reply_to("mark"), "ok mark\n");
  EXPECT_EQ(log, "bench: mark  at seq 812 orders 0\n");
  EXPECT_EQ(truth(), "{\"mark\":\"\",\"seq\":812}\n");
}

TEST_F(ControlMark, escapes_and_interprets_nothing_of_its_label) {
  exchange.engine.truth.open_for_appending(path);
  EXPECT_EQ(reply_to("mark \"\\%s%n"), "ok mark \"\\%s%n\n");
  EXPECT_EQ(log, "bench: mark \"\\%s%n at seq 812 orders 0\n");
  EXPECT_EQ(truth(), "{\"mark\":\"\"\\%s%n\",\"seq\":812}\n");
}

TEST_F(ControlMark, is_told_as_ever_without_a_market_truth_file) {
  EXPECT_EQ(reply_to("mark a"), "ok mark a\n");
  EXPECT_EQ(log, "bench: mark a at seq 812 orders 0\n");
  exchange.engine.truth.open_for_appending(path + ".none/file");
  EXPECT_EQ(reply_to("mark b"), "ok mark b\n");
  EXPECT_EQ(log, "bench: mark b at seq 812 orders 0\n");
}

// --- The line ---

TEST_F(Control, trims_blanks_and_line_ends_behind_the_line_only) {
  EXPECT_EQ(reply_to("pause\r\n"), "ok pause\n");
  EXPECT_EQ(reply_to("pause \r\n \n\r "), "ok pause\n");
  EXPECT_EQ(reply_to("  pause"), "ok   pause\n");
  EXPECT_EQ(reply_to("\npause"), "ok \npause\n");
}

TEST_F(Control, leaves_a_tab_in_the_echo) {
  EXPECT_EQ(reply_to("  drop  7 y\t\n"), "ok   drop  7 y\t\n");
  EXPECT_EQ(faults().drop_next, 7U);
  EXPECT_EQ(reply_to("pause\t"), "ok pause\t\n");
  EXPECT_EQ(reply_to("pause \t \n"), "ok pause \t\n");
}

TEST_F(Control, splits_words_at_any_white_space) {
  for (const char* line :
       {"drop\t5", "drop\n5", "drop\v5", "drop\f5", "drop\r5", "\t drop \t 5 6"}) {
    faults().drop_next = 0;
    EXPECT_EQ(reply_to(line), "ok " + std::string(line) + "\n");
    EXPECT_EQ(faults().drop_next, 5U) << line;
  }
}

TEST_F(Control, reads_two_commands_in_one_datagram_as_one_line) {
  EXPECT_EQ(reply_to("pause resume"), "ok pause resume\n");
  EXPECT_TRUE(exchange.engine.paused);
  EXPECT_EQ(reply_to("pause\nresume\n"), "ok pause\nresume\n");
  EXPECT_TRUE(exchange.engine.paused);
}

TEST_F(Control, ends_the_text_at_the_first_zero_byte) {
  EXPECT_EQ(reply_to(std::string_view("drop 3\0 9 resume", 16)), "ok drop 3\n");
  EXPECT_EQ(faults().drop_next, 3U);
  EXPECT_EQ(reply_to(std::string_view("pause \0junk", 11)), "ok pause\n");
  EXPECT_EQ(reply_to(std::string_view("\0pause", 6)), "err unknown command ''\n");
}

TEST_F(Control, knows_no_other_word) {
  EXPECT_EQ(reply_to("PAUSE"), "err unknown command 'PAUSE'\n");
  EXPECT_EQ(reply_to("paus"), "err unknown command 'paus'\n");
  EXPECT_EQ(reply_to("pauses"), "err unknown command 'pauses'\n");
  EXPECT_EQ(reply_to("drop5"), "err unknown command 'drop5'\n");
  EXPECT_EQ(reply_to(" help me \t"), "err unknown command 'help'\n");
  EXPECT_EQ(reply_to("%s%n"), "err unknown command '%s%n'\n");
  EXPECT_FALSE(exchange.engine.paused);
  EXPECT_EQ(log, "");
}

TEST_F(Control, answers_a_line_without_a_word) {
  for (const char* line : {"", " ", "    ", "\r\n", "\t", " \t "}) {
    EXPECT_EQ(reply_to(line), "err unknown command ''\n");
  }
}

// --- The socket ---

TEST(OpenControlPort, opens_none_for_port_0_and_says_nothing) {
  int fd = 0;
  EXPECT_EQ(standard_error_of([&] { fd = open_control_port(0); }), "");
  EXPECT_EQ(fd, -1);
}

TEST(OpenControlPort, listens_on_the_loopback_address_and_lists_the_commands) {
  ReservedUdpPort port;
  int fd = -1;
  EXPECT_EQ(standard_error_of([&] { fd = open_control_port(port.number()); }),
            "bench: control on 127.0.0.1:" + std::to_string(port.number()) +
                " (pause | resume | drop N | dup N | reorder N | drop_every N | dup_every N | "
                "reorder_every N | rate MS | disconnect | lapse MS | reject N | partial N | "
                "fill_on_cancel N | unsolicited_cancel N | replace_reject N | mark LABEL | stats | "
                "stop)\n");
  ASSERT_GE(fd, 0);
  sockaddr_in address{};
  socklen_t size = sizeof address;
  ASSERT_EQ(::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size), 0);
  EXPECT_EQ(ntohl(address.sin_addr.s_addr), INADDR_LOOPBACK);
  EXPECT_EQ(ntohs(address.sin_port), port.number());
  char byte = 0;
  EXPECT_EQ(::recv(fd, &byte, 1, 0), -1);
  EXPECT_EQ(errno, EAGAIN);  // and not waited
  ::close(fd);
}

TEST(OpenControlPort, goes_without_a_port_that_is_taken_and_says_why) {
  ReservedUdpPort port;
  port.refuse_sharing();
  int fd = 0;
  EXPECT_EQ(standard_error_of([&] { fd = open_control_port(port.number()); }),
            "quorl: control port: Address already in use\n");
  EXPECT_EQ(fd, -1);
}

/// A bench that sends datagrams to a control port, and the port.
class ControlSocket : public Control {
 protected:
  ControlSocket() {
    standard_error_of([this] { fd = open_control_port(port.number()); });
  }
  ~ControlSocket() override { ::close(fd); }

  void sends(std::string_view text) { bench.send(Bytes(text.begin(), text.end()), port.number()); }
  void serves() {
    log = standard_error_of([this] { serve_control_port(fd, port.number(), targets(), scratch); });
  }
  std::vector<std::string> hears() {
    std::vector<std::string> replies;
    for (const Bytes& reply : bench.take()) replies.emplace_back(reply.begin(), reply.end());
    return replies;
  }

  ReservedUdpPort port;
  UdpInbox bench;
  int fd = -1;
  std::array<char, 65536> scratch;
};

TEST_F(ControlSocket, answers_all_that_waits_in_order) {
  sends("drop 3");
  sends("drop 1\n");
  sends("HELP");
  serves();
  EXPECT_THAT(hears(), ElementsAre("ok drop 3\n", "ok drop 1\n", "err unknown command 'HELP'\n"));
  EXPECT_EQ(faults().drop_next, 1U);
}

TEST_F(ControlSocket, answers_each_bench_by_itself) {
  UdpInbox other;
  sends("pause");
  other.send({'r', 'a', 't', 'e'}, port.number());
  serves();
  EXPECT_THAT(hears(), ElementsAre("ok pause\n"));
  EXPECT_THAT(other.take(), ElementsAre(Bytes{'o', 'k', ' ', 'r', 'a', 't', 'e', '\n'}));
}

TEST_F(ControlSocket, passes_over_a_datagram_from_its_own_address) {
  const std::string word = "HELP";
  sockaddr_in own{};
  own.sin_family = AF_INET;
  own.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  own.sin_port = htons(port.number());
  ASSERT_EQ(::sendto(fd, word.data(), word.size(), 0, reinterpret_cast<const sockaddr*>(&own),
                     sizeof own),
            static_cast<ssize_t>(word.size()));
  sends("drop 3");
  serves();  // it would not return, were the first one answered
  EXPECT_THAT(hears(), ElementsAre("ok drop 3\n"));
  EXPECT_EQ(log, "");
}

TEST_F(ControlSocket, does_nothing_when_nothing_waits) {
  serves();
  EXPECT_THAT(hears(), IsEmpty());
  EXPECT_EQ(log, "");
}

TEST_F(ControlSocket, ends_the_turn_s_service_at_an_empty_datagram_without_an_answer) {
  sends("drop 3");
  sends("");
  sends("drop 5");
  serves();
  EXPECT_THAT(hears(), ElementsAre("ok drop 3\n"));
  EXPECT_EQ(faults().drop_next, 3U);
  serves();
  EXPECT_THAT(hears(), ElementsAre("ok drop 5\n"));
  EXPECT_EQ(faults().drop_next, 5U);
}

TEST_F(ControlSocket, reads_511_bytes_of_a_datagram_and_loses_the_rest) {
  const std::string exactly = "mark " + std::string(506, 'x');
  sends(exactly + "yyyy");
  sends(exactly);
  sends(exactly.substr(0, 510));
  serves();
  EXPECT_THAT(hears(), ElementsAre("ok " + exactly + "\n", "ok " + exactly + "\n",
                                   "ok " + exactly.substr(0, 510) + "\n"));
}

TEST_F(ControlSocket, loses_a_number_that_begins_behind_byte_511) {
  sends("drop" + std::string(507, ' ') + "7");
  serves();
  EXPECT_THAT(hears(), ElementsAre("ok drop\n"));
  EXPECT_EQ(faults().drop_next, 1U);
}

TEST_F(ControlSocket, does_not_see_an_earlier_longer_datagram_behind_a_short_one) {
  sends("drop 12345");
  serves();
  sends("drop 6");
  serves();
  EXPECT_THAT(hears(), ElementsAre("ok drop 12345\n", "ok drop 6\n"));
  EXPECT_EQ(faults().drop_next, 6U);
}

// --- stop ---

TEST_F(Control, stop_is_answered_without_a_line_end) {
  for (const char* line : {"stop", " stop now\r\n"}) {
    const ControlReply reply = run_control_command(line, targets());
    EXPECT_EQ(reply.text, "ok stopping");
    EXPECT_TRUE(reply.stops);
  }
}

class ControlStopDeathTest : public ControlSocket {
 protected:
  void SetUp() override {
    drops_4_of_9_packets();
    exchange.engine.truth.open_for_appending(truth_path);
  }
  void TearDown() override { std::remove(truth_path.c_str()); }
  const std::string truth_path =
      testing::TempDir() + "quorl_stop_" + std::to_string(::getpid()) + ".jsonl";
};

TEST_F(ControlStopDeathTest, ends_the_process_with_status_0_and_the_fault_line_alone) {
  sends("stop");
  sends("drop 9");  // never served
  EXPECT_EXIT(serve_control_port(fd, port.number(), targets(), scratch), testing::ExitedWithCode(0),
              "^quorl faults: sent 5 dropped 4 duplicated 0 reordered 0\n$");
  EXPECT_THAT(hears(), ElementsAre("ok stopping"));
}

TEST_F(ControlStopDeathTest, loses_what_waits_behind_the_last_mark) {
  const auto stop_behind_a_mark = [this] {
    std::atexit([] { std::fputs("an exit handler ran\n", stderr); });
    run_control_command("mark a", targets());
    exchange.engine.truth.write("waiting\n");
    serve_control_port(fd, port.number(), targets(), scratch);
  };
  sends("stop");
  EXPECT_EXIT(stop_behind_a_mark(), testing::ExitedWithCode(0),
              "^bench: mark a at seq 812 orders 0\nquorl faults: [^\n]*\n$");
  std::ostringstream truth;
  truth << std::ifstream(truth_path).rdbuf();
  EXPECT_EQ(truth.str(), "{\"mark\":\"a\",\"seq\":812}\n");
}

}  // namespace
}  // namespace quorl::test
