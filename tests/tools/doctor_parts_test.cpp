// Each finding of the doctor, with no process but this one.
#include <arpa/inet.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdint>
#include <fstream>
#include <string>
#include <vector>

#include "quorl/client/child_process.h"
#include "quorl/client/port_slot.h"
#include "quorl/client/temp_directory.h"
#include "tests/e2e/support/port_holder.h"
#include "tests/tools/support/other_world.h"
#include "tools/doctor/descriptor.h"
#include "tools/doctor/numbers.h"
#include "tools/doctor/ports.h"
#include "tools/doctor/processes.h"
#include "tools/doctor/rules.h"
#include "tools/doctor/standard_error.h"
#include "tools/doctor/start.h"

namespace client = quorl::client;

namespace tools::doctor {
namespace {

using e2e::PortHolder;
using testing::Contains;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;
using Lines = std::vector<std::string>;

Lines lines_of(const Findings& findings) {
  Lines lines;
  for (const Finding& finding : findings) lines.push_back(finding.line());
  return lines;
}

std::string our_name() {
  std::string name = client::read_file("/proc/self/comm");
  name.pop_back();
  return name + " (pid " + std::to_string(::getpid()) + ")";
}

void write_file(const std::string& path, const std::string& content) {
  std::ofstream(path) << content;
}

/// A socket on a port, closed with the object.
class Bound {
 public:
  Bound(in_addr_t address, uint16_t port, bool shares)
      : socket_(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    const int on = shares ? 1 : 0;
    (void)::setsockopt(socket_.fd(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_port = htons(port);
    to.sin_addr.s_addr = htonl(address);
    EXPECT_EQ(::bind(socket_.fd(), reinterpret_cast<const sockaddr*>(&to), sizeof to), 0);
  }

 private:
  Descriptor socket_;
};

/// A start on ports that are free, with nothing to be found but what a test adds.
class Doctor : public testing::Test {
 protected:
  Start start_with(std::vector<std::string> words) const {
    const auto add = [&words](const std::string& flag, const std::string& value) {
      if (std::find(words.begin(), words.end(), flag) != words.end()) return;
      words.insert(words.begin(), {flag, value});
    };
    add("--mcast", ports().group);
    add("--port", std::to_string(ports().feed));
    add("--snap-port", std::to_string(ports().snap));
    add("--gapfill-port", std::to_string(ports().gap_fill));
    add("--fix-port", std::to_string(ports().fix));
    add("--control-port", std::to_string(ports().control));
    std::string complaint;
    Start start = read_start(words, complaint);
    EXPECT_EQ(complaint, "");
    return start;
  }

  Lines finds(std::vector<std::string> words) const {
    return lines_of(look_at(start_with(std::move(words))));
  }

  Lines finds_in_scenario(const std::string& scenario) const {
    Start start = start_with({});
    start.scenario = scenario;
    return lines_of(look_at(start));
  }

  Lines finds_with_order_truth(const std::string& path, std::vector<std::string> words = {}) const {
    Start start = start_with(std::move(words));
    start.order_truth = path;
    return lines_of(look_at(start));
  }

  const client::Ports& ports() const { return slot_.ports(); }
  std::string in_directory(const std::string& name) const { return directory_.path() + "/" + name; }
  const std::string& directory() const { return directory_.path(); }

 private:
  client::PortSlot slot_;
  client::TempDirectory directory_;
};

// ---- the command line

std::string complaint_about(const std::vector<std::string>& words) {
  std::string complaint;
  (void)read_start(words, complaint);
  return complaint;
}

TEST(CommandWords, a_word_that_is_no_option_ends_the_exchange) {
  EXPECT_EQ(complaint_about({"--seed", "7", "extra"}),
            "quorl has no option extra: it would end with status 2");
  EXPECT_EQ(complaint_about({"--seed=7"}),
            "quorl has no option --seed=7: it would end with status 2");
}

TEST(CommandWords, a_value_that_is_missing_ends_the_exchange) {
  EXPECT_EQ(complaint_about({"--quiet", "--seed"}),
            "--seed needs a value: quorl would end with status 2");
}

TEST(CommandWords, every_option_of_the_exchange_is_known) {
  EXPECT_EQ(complaint_about({"--mcast",      "a",  "--port",         "1", "--iface",         "b",
                             "--snap-port",  "2",  "--gapfill-port", "3", "--fix-port",      "4",
                             "--session",    "5",  "--symbols",      "c", "--interval-ms",   "6",
                             "--step-bps",   "7",  "--touch-hit",    "8", "--book-out",      "d",
                             "--bbo-out",    "e",  "--seed",         "9", "--drop-every",    "10",
                             "--drop-burst", "11", "--dup-every",    "1", "--reorder-every", "1",
                             "--truth-out",  "f",  "--control-port", "1", "--quiet"}),
            "");
}

TEST(CommandWords, a_later_value_replaces_an_earlier_one) {
  std::string complaint;
  const Start start = read_start({"--port", "1", "--port", "2"}, complaint);
  EXPECT_EQ(start.port("--port"), 2);
  EXPECT_EQ(start.port("--fix-port"), 28500);
}

TEST(CommandWords, gap_fill_follows_the_snap_port) {
  std::string complaint;
  EXPECT_EQ(read_start({"--snap-port", "30000"}, complaint).port("--gapfill-port"), 30000);
  EXPECT_EQ(read_start({"--gapfill-port", "0"}, complaint).port("--gapfill-port"), 25479);
  EXPECT_EQ(read_start({"--gapfill-port", "7"}, complaint).port("--gapfill-port"), 7);
}

TEST_F(Doctor, finds_nothing_in_a_good_start) {
  EXPECT_THAT(finds({"--quiet", "--truth-out", in_directory("t"), "--book-out", in_directory("b"),
                     "--bbo-out", in_directory("o"), "--symbols", "A:1,B:2,", "--seed", "+7",
                     "--interval-ms", "-1", "--drop-burst", "100:5", "--step-bps", "0"}),
              IsEmpty());
}

TEST_F(Doctor, tells_which_of_several_values_counts) {
  EXPECT_THAT(finds({"--seed", "1", "--quiet", "--seed", "2", "--quiet"}),
              ElementsAre("--seed 2: is what counts of the 2 times that --seed is given"));
}

TEST_F(Doctor, tells_of_an_option_taken_for_a_value) {
  EXPECT_THAT(finds({"--truth-out", "--quiet"}),
              ElementsAre("--truth-out --quiet: takes the word behind it as its value, option or "
                          "not"));
}

// ---- numbers

struct Number {
  NumberKind kind;
  const char* text;
  const char* complaint;
};

TEST(WrittenNumbers, are_read_as_the_exchange_reads_them) {
  constexpr Number NUMBERS[] = {
      {PORT_NUMBER, "80", ""},
      {PORT_NUMBER, " +80 ", ""},
      {PORT_NUMBER, "12abc", "is read as 12: 'abc' behind it is passed over"},
      {PORT_NUMBER, "65535", ""},
      {PORT_NUMBER, "65536", "is read as 0: only its low 16 bits are kept"},
      {PORT_NUMBER, "70000", "is read as 4464: only its low 16 bits are kept"},
      {PORT_NUMBER, "70000x",
       "is read as 4464: only its low 16 bits are kept, and 'x' behind it is passed over"},
      {PORT_NUMBER, "-1", "is read as 65535: a minus wraps around"},
      {PORT_NUMBER, "abc", "is no number: the exchange ends by an abort (stoi)"},
      {PORT_NUMBER, "", "is no number: the exchange ends by an abort (stoi)"},
      {PORT_NUMBER, "2147483648", "is out of range: the exchange ends by an abort (stoi)"},
      {SIGNED_NUMBER, "-1", ""},
      {SIGNED_NUMBER, "-1s", "is read as -1: 's' behind it is passed over"},
      {COUNT_NUMBER, "1e3", "is read as 1: 'e3' behind it is passed over"},
      {COUNT_NUMBER, "0x10", "is read as 0: 'x10' behind it is passed over"},
      {COUNT_NUMBER, "-0", ""},
      {COUNT_NUMBER, "-1", "is read as 4294967295: a minus wraps around"},
      {COUNT_NUMBER, "4294967295", ""},
      {COUNT_NUMBER, "4294967296", "is read as 0: only its low 32 bits are kept"},
      {COUNT_NUMBER, "18446744073709551616",
       "is out of range: the exchange ends by an abort (stoul)"},
      {PACKET_NUMBER, "18446744073709551615", ""},
      {PACKET_NUMBER, "x", "is no number: the exchange ends by an abort (stoull)"},
      {FLOAT_NUMBER, "1e3", ""},
      {FLOAT_NUMBER, "inf", ""},
      {FLOAT_NUMBER, "0.5%", "is read as 0.5: '%' behind it is passed over"},
      {FLOAT_NUMBER, "much", "is no number: the exchange ends by an abort (stod)"},
      {FLOAT_NUMBER, "1e999", "is out of range: the exchange ends by an abort (stod)"},
  };
  for (const Number& number : NUMBERS) {
    const Reading reading = read_number(number.kind, number.text);
    EXPECT_EQ(reading.complaint, number.complaint) << number.text;
    EXPECT_EQ(reading.ends_the_start,
              std::string(number.complaint).find("abort") != std::string::npos)
        << number.text;
  }
}

TEST_F(Doctor, reads_every_number_also_one_that_is_replaced) {
  EXPECT_THAT(finds({"--seed", "x", "--seed", "1e3"}),
              ElementsAre("--seed 1e3: is what counts of the 2 times that --seed is given",
                          "--seed x: is no number: the exchange ends by an abort (stoul)",
                          "--seed 1e3: is read as 1: 'e3' behind it is passed over"));
}

TEST_F(Doctor, finds_misread_numbers_of_every_option_that_takes_one) {
  for (const char* const flag :
       {"--port", "--snap-port", "--gapfill-port", "--fix-port", "--control-port", "--session",
        "--interval-ms", "--step-bps", "--touch-hit", "--seed", "--drop-every", "--dup-every",
        "--reorder-every"}) {
    EXPECT_THAT(finds({flag, "x"}), Contains(StartsWith(std::string(flag) + " x: is no number")));
  }
}

TEST_F(Doctor, finds_floats_that_are_no_step_and_no_probability) {
  EXPECT_THAT(finds({"--step-bps", "nan"}),
              ElementsAre("--step-bps nan: is no step: the first one loses all prices"));
  EXPECT_THAT(finds({"--step-bps", "-2"}),
              ElementsAre("--step-bps -2: walks as widely as without the minus"));
  EXPECT_THAT(
      finds({"--step-bps", "10000"}),
      ElementsAre("--step-bps 10000: is a step of a whole price and more: prices fall below zero"));
  EXPECT_THAT(finds({"--step-bps", "9999"}), IsEmpty());
  EXPECT_THAT(finds({"--touch-hit", "nan"}),
              ElementsAre("--touch-hit nan: is no probability: the touch is never hit, as with 0"));
  EXPECT_THAT(finds({"--touch-hit", "-1"}),
              ElementsAre("--touch-hit -1: is no probability: the touch is never hit, as with 0"));
  EXPECT_THAT(
      finds({"--touch-hit", "1.5"}),
      ElementsAre("--touch-hit 1.5: is no probability: the touch is hit at every tick, as with 1"));
  EXPECT_THAT(finds({"--touch-hit", "1"}), IsEmpty());
}

TEST(Finding, is_one_line_whatever_the_user_has_given) {
  EXPECT_EQ((Finding{"--symbols 'A\nB'", "is\x1b[31m odd"}).line(), "--symbols 'A?B': is?[31m odd");
}

TEST_F(Doctor, finds_bursts_that_are_not_what_they_say) {
  const auto burst = [this](const std::string& text) { return finds({"--drop-burst", text}); };
  EXPECT_THAT(burst("100"), IsEmpty());
  EXPECT_THAT(burst(""), IsEmpty());
  EXPECT_THAT(burst(":5"), ElementsAre("--drop-burst :5: FROM is no number: the exchange ends by "
                                       "an abort (stoull)"));
  EXPECT_THAT(burst("5:"), ElementsAre("--drop-burst 5:: LEN is no number: the exchange ends by an "
                                       "abort (stoul)"));
  EXPECT_THAT(burst("5:6:7"),
              ElementsAre("--drop-burst 5:6:7: LEN is read as 6: ':7' behind it is passed over"));
  EXPECT_THAT(burst("5:0"),
              ElementsAre("--drop-burst 5:0: drops nothing: a burst of 0 packets is none"));
  EXPECT_THAT(burst("0"),
              ElementsAre("--drop-burst 0: drops nothing: the first packet is number 1"));
  EXPECT_THAT(burst("0:5"),
              ElementsAre("--drop-burst 0:5: drops one packet less: the first packet is number 1"));
}

// ---- addresses

TEST_F(Doctor, finds_groups_and_interfaces_that_are_none) {
  const bool entered = tools_test::in_own_network([this] {
    EXPECT_THAT(finds({"--mcast", "feed.local"}),
                Contains("--mcast feed.local: is no IPv4 address in digits: the feed goes to "
                         "0.0.0.0, where no group hears it"));
    EXPECT_THAT(finds({"--mcast", "127.0.0.1"}),
                ElementsAre("--mcast 127.0.0.1: is no multicast group (224.0.0.0 to "
                            "239.255.255.255): the feed goes to that one address"));
    EXPECT_THAT(finds({"--mcast", "224.0.0.0"}), IsEmpty());
    EXPECT_THAT(finds({"--iface", "lo"}),
                Contains("--iface lo: is no IPv4 address in digits: the system chooses where the "
                         "feed leaves"));
    EXPECT_THAT(finds({"--iface", "192.0.2.1"}),
                Contains("--iface 192.0.2.1: belongs to no interface of this machine: the system "
                         "chooses where the feed leaves"));
    EXPECT_THAT(finds({"--iface", "127.0.0.7"}), IsEmpty()) << "it is of this machine";
  });
  if (!entered) GTEST_SKIP() << "no network of our own";
}

TEST_F(Doctor, finds_a_feed_that_cannot_leave) {
  const bool entered = tools_test::in_no_network([this] {
    EXPECT_THAT(finds({"--mcast", "239.255.1.1", "--iface", "0.0.0.0"}),
                Contains("--mcast 239.255.1.1: no packet of the feed can leave (Network is "
                         "unreachable)"));
  });
  if (!entered) GTEST_SKIP() << "no network of our own";
}

// ---- ports

TEST_F(Doctor, finds_ports_of_zero) {
  EXPECT_THAT(finds({"--port", "0"}),
              ElementsAre("--port 0: is port 0, to which no packet of the feed leaves"));
  EXPECT_THAT(finds({"--fix-port", "0"}),
              ElementsAre("--fix-port 0: is port 0: the system chooses one for FIX, and no line "
                          "tells which"));
  EXPECT_THAT(finds({"--snap-port", "0", "--gapfill-port", "0"}),
              ElementsAre("--snap-port 0: is port 0: the system chooses one for DEEP SNAP, and no "
                          "line tells which",
                          "--gapfill-port 0: is port 0: there is no gap fill"));
  EXPECT_THAT(finds({"--control-port", "65536"}),
              Contains("--control-port 65536: is port 0: there is no control port"));
  EXPECT_THAT(finds({"--control-port", "0"}), IsEmpty()) << "that is how it is turned off";
}

TEST_F(Doctor, finds_ports_used_twice_in_one_start) {
  const std::string fix = std::to_string(ports().fix);
  const std::string feed = std::to_string(ports().feed);
  const std::string gap = std::to_string(ports().gap_fill);
  EXPECT_THAT(finds({"--snap-port", fix}),
              ElementsAre("--snap-port " + fix +
                          ": is the port of FIX too: the exchange cannot "
                          "listen on TCP port " +
                          fix + " twice and ends with status 1"));
  EXPECT_THAT(finds({"--control-port", gap}),
              ElementsAre("--control-port " + gap +
                          ": is the port of gap fill too: both are bound "
                          "to UDP port " +
                          gap +
                          ", and the requests of this machine reach the "
                          "control port alone"));
  EXPECT_THAT(finds({"--gapfill-port", feed}),
              ElementsAre("--gapfill-port " + feed +
                          ": is the port of the feed too: gap fill hears "
                          "the feed on UDP port " +
                          feed +
                          " as requests, and a subscriber may take "
                          "its requests"));
  EXPECT_THAT(finds({"--control-port", feed}),
              ElementsAre("--control-port " + feed +
                          ": is the port of the feed too: a subscriber "
                          "that does not share UDP port " +
                          feed + " cannot bind it"));
  EXPECT_THAT(finds({"--gapfill-port", "0"}), IsEmpty()) << "one is UDP, the other TCP";
}

TEST_F(Doctor, finds_tcp_ports_that_are_taken_and_by_whom) {
  const std::string fix = std::to_string(ports().fix);
  const std::string snap = std::to_string(ports().snap);
  const PortHolder at_fix = PortHolder::listening(ports().fix);
  const PortHolder at_snap = PortHolder::listening(ports().snap);
  EXPECT_THAT(
      finds({}),
      ElementsAre("--fix-port " + fix + ": TCP port " + fix + " is taken by " + our_name() +
                      ": the exchange ends with status 1, its opening packets sent",
                  "--snap-port " + snap + ": TCP port " + snap + " is taken by " + our_name() +
                      ": the exchange ends with status 1, its opening packets sent"));
}

TEST_F(Doctor, finds_udp_ports_that_would_be_shared) {
  const std::string gap = std::to_string(ports().gap_fill);
  const std::string control = std::to_string(ports().control);
  const auto shared = [](const std::string& flag, const std::string& port) {
    return flag + " " + port + ": UDP port " + port + " is bound by " + our_name() +
           " and would be shared unnoticed: only one of the two hears what comes";
  };
  for (const in_addr_t address : {INADDR_ANY, INADDR_LOOPBACK}) {
    const Bound at_gap(address, ports().gap_fill, true);
    const Bound at_control(address, ports().control, true);
    EXPECT_THAT(finds({}),
                ElementsAre(shared("--gapfill-port", gap), shared("--control-port", control)));
  }
}

TEST_F(Doctor, finds_udp_ports_that_another_has_for_itself) {
  const std::string gap = std::to_string(ports().gap_fill);
  const std::string control = std::to_string(ports().control);
  for (const in_addr_t address : {INADDR_ANY, INADDR_LOOPBACK}) {
    const Bound at_gap(address, ports().gap_fill, false);
    const Bound at_control(address, ports().control, false);
    EXPECT_THAT(finds({}), ElementsAre("--gapfill-port " + gap + ": UDP port " + gap +
                                           " is held by " + our_name() +
                                           " alone: the exchange says so in a line and runs "
                                           "without gap fill",
                                       "--control-port " + control + ": UDP port " + control +
                                           " is held by " + our_name() +
                                           " alone: the exchange says so in a "
                                           "line and runs without a control port"));
  }
}

TEST_F(Doctor, finds_ports_that_the_system_keeps_for_others) {
  // A network of our own has the usual limit: below 1024 for root alone.
  const bool entered = tools_test::in_own_network([this] {
    const bool dropped = tools_test::as_nobody([this] {
      EXPECT_THAT(
          finds({"--fix-port", "7", "--control-port", "7"}),
          ElementsAre("--fix-port 7: TCP port 7 is refused (Permission denied): the exchange "
                      "ends with status 1, its opening packets sent",
                      "--control-port 7: UDP port 7 is refused (Permission denied): the "
                      "exchange says so in a line and runs without a control port"));
    });
    EXPECT_TRUE(dropped);
  });
  if (!entered) GTEST_SKIP() << "no network of our own";
}

TEST_F(Doctor, takes_no_port_from_anybody) {
  EXPECT_THAT(finds({}), IsEmpty());
  EXPECT_TRUE(client::tcp_port_is_free(ports().fix));
  EXPECT_TRUE(client::udp_port_is_free(ports().control));
}

TEST(SocketTable, is_read_as_the_system_writes_it) {
  const std::vector<SocketEntry> entries = parse_socket_table(
      "  sl  local_address rem_address   st tx_queue rx_queue tr tm->when retrnsmt   uid  timeout "
      "inode\n"
      "   0: 0100007F:639C 00000000:0000 0A 00000000:00000000 00:00000000 00000000     0        0 "
      "41 1 0000000000000000 100 0 0 10 0\n"
      "  12: 00000000:0050 00000000:0000 07 00000000:00000000 00:00000000 00000000  1000        0 "
      "4294967299 2 0000000000000000 0\n"
      "cut off\n");
  ASSERT_EQ(entries.size(), 2U);
  EXPECT_EQ(entries[0].port, 0x639C);
  EXPECT_EQ(entries[0].state, SocketEntry::LISTENS);
  EXPECT_EQ(entries[0].inode, 41U);
  EXPECT_FALSE(entries[0].on_every_address());
  EXPECT_EQ(entries[1].port, 80);
  EXPECT_EQ(entries[1].inode, 4294967299U);
  EXPECT_TRUE(entries[1].on_every_address());
}

TEST(SocketTable, an_owner_that_cannot_be_seen_is_said_to_be_so) {
  EXPECT_EQ(owners_of({}), "somebody whom /proc does not tell");
}

// ---- paths

TEST_F(Doctor, finds_paths_that_cannot_be_written) {
  const std::string none = in_directory("none");
  write_file(in_directory("file"), "");
  ASSERT_EQ(::mkdir(in_directory("dir").c_str(), 0755), 0);
  const auto unwritten = [](const std::string& where, const std::string& why) {
    return where + ": is not written, and no line says so (" + why + ")";
  };
  for (const std::string flag : {"--truth-out", "--book-out", "--bbo-out"}) {
    EXPECT_THAT(
        finds({flag, none + "/x"}),
        ElementsAre(unwritten(flag + " " + none + "/x", none + ": No such file or directory")));
    EXPECT_THAT(finds({flag, in_directory("dir")}),
                ElementsAre(unwritten(flag + " " + in_directory("dir"),
                                      in_directory("dir") + " is a directory")));
    EXPECT_THAT(finds({flag, in_directory("file/x")}),
                ElementsAre(unwritten(flag + " " + in_directory("file/x"),
                                      in_directory("file") + " is no directory")));
    const std::string long_name = in_directory(std::string(256, 'x'));
    EXPECT_THAT(finds({flag, long_name}), ElementsAre(EndsWith("File name too long)")));
  }
  EXPECT_THAT(
      finds({"--truth-out", none + "/"}),
      ElementsAre(unwritten("--truth-out " + none + "/", none + ": No such file or directory")));
  EXPECT_THAT(finds_with_order_truth(in_directory("dir")),
              ElementsAre(unwritten("BENCH_ORDER_TRUTH " + in_directory("dir"),
                                    in_directory("dir") + " is a directory")));
}

TEST_F(Doctor, finds_paths_that_we_may_not_write) {
  write_file(in_directory("file"), "");
  ASSERT_EQ(::chmod(in_directory("file").c_str(), 0444), 0);
  write_file(in_directory("book.tmp"), "");
  ASSERT_EQ(::chmod(in_directory("book.tmp").c_str(), 0666), 0);
  ASSERT_EQ(::chmod(directory().c_str(), 0555), 0);
  EXPECT_TRUE(tools_test::as_nobody([this] {
    for (const std::string flag : {"--truth-out", "--book-out"}) {
      EXPECT_THAT(
          finds({flag, in_directory("new")}),
          ElementsAre(flag + " " + in_directory("new") + ": is not written, and no line says so (" +
                      directory() + ": Permission denied)"));
    }
    EXPECT_THAT(finds({"--truth-out", in_directory("file")}),
                ElementsAre("--truth-out " + in_directory("file") +
                            ": is not written, and no line says so (" + in_directory("file") +
                            ": Permission denied)"));
    EXPECT_THAT(
        finds({"--book-out", in_directory("book")}),
        Contains("--book-out " + in_directory("book") + ": is not written, and no line says so (" +
                 directory() + ": Permission denied)"))
        << "the temporary file is, but cannot be renamed";
  }));
  ASSERT_EQ(::chmod(directory().c_str(), 0755), 0);
}

TEST_F(Doctor, follows_a_link_to_where_a_truth_file_would_be) {
  const std::string link = in_directory("link");
  ASSERT_EQ(::symlink("none/x", link.c_str()), 0);
  EXPECT_THAT(finds({"--truth-out", link}),
              ElementsAre("--truth-out " + link + ": is not written, and no line says so (" +
                          in_directory("none") + ": No such file or directory)"));
}

TEST_F(Doctor, finds_devices_pipes_sockets_and_links) {
  const std::string pipe = in_directory("pipe");
  const std::string link = in_directory("link");
  ASSERT_EQ(::mkfifo(pipe.c_str(), 0644), 0);
  ASSERT_EQ(::symlink("elsewhere", link.c_str()), 0);
  EXPECT_THAT(finds({"--truth-out", "/dev/null"}),
              ElementsAre("--truth-out /dev/null: is a device: no truth is kept in it"));
  EXPECT_THAT(finds_with_order_truth("/dev/null"),
              ElementsAre("BENCH_ORDER_TRUTH /dev/null: is a device: no truth is kept in it"));
  EXPECT_THAT(finds({"--truth-out", pipe}),
              ElementsAre("--truth-out " + pipe +
                          ": is a pipe: the exchange does not start until somebody reads it"));
  for (const std::string flag : {"--book-out", "--bbo-out"}) {
    EXPECT_THAT(finds({flag, pipe}),
                ElementsAre(flag + " " + pipe + ": is a pipe: a plain file takes its place"));
    EXPECT_THAT(finds({flag, link}),
                ElementsAre(flag + " " + link +
                            ": is a link: the link is replaced, not the file it leads to"));
  }
  sockaddr_un name{};
  name.sun_family = AF_UNIX;
  const std::string path = in_directory("socket");
  std::copy(path.begin(), path.end(), name.sun_path);
  const Descriptor socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  ASSERT_EQ(::bind(socket.fd(), reinterpret_cast<const sockaddr*>(&name), sizeof name), 0);
  EXPECT_THAT(finds({"--truth-out", path}),
              ElementsAre("--truth-out " + path + ": is not written, and no line says so (" + path +
                          " is a socket)"));
}

TEST_F(Doctor, finds_what_the_temporary_file_would_take_the_place_of) {
  write_file(in_directory("book.tmp"), "of somebody");
  ASSERT_EQ(::mkfifo(in_directory("bbo.tmp").c_str(), 0644), 0);
  ASSERT_EQ(::mkdir(in_directory("dir.tmp").c_str(), 0755), 0);
  EXPECT_THAT(finds({"--book-out", in_directory("book")}),
              ElementsAre("--book-out " + in_directory("book") + ": " + in_directory("book.tmp") +
                          " is there already: it is overwritten, and gone with the rename"));
  EXPECT_THAT(finds({"--bbo-out", in_directory("bbo")}),
              ElementsAre("--bbo-out " + in_directory("bbo") + ": " + in_directory("bbo.tmp") +
                          " is there already: it is a pipe, and the exchange stands still until "
                          "somebody reads it"));
  EXPECT_THAT(
      finds({"--bbo-out", in_directory("dir")}),
      ElementsAre("--bbo-out " + in_directory("dir") + ": is not written, and no line says so (" +
                  in_directory("dir.tmp") + " is a directory)"));
}

TEST_F(Doctor, finds_a_disk_that_is_full) {
  constexpr size_t ROOM = 2 << 20;
  const std::string options = "size=" + std::to_string(ROOM);
  const bool entered = tools_test::with_disk(options, directory(), [this] {
    EXPECT_THAT(finds({"--truth-out", in_directory("t")}), IsEmpty());
    write_file(in_directory("filler"), std::string(ROOM, 'x'));
    for (const std::string flag : {"--truth-out", "--book-out"}) {
      EXPECT_THAT(finds({flag, in_directory("t")}),
                  ElementsAre(flag + " " + in_directory("t") + ": the disk of " + directory() +
                              " is full: 0 bytes are left, and a line that finds no room is lost "
                              "unsaid"));
    }
  });
  if (!entered) GTEST_SKIP() << "no disk of our own";
}

TEST_F(Doctor, finds_a_disk_that_takes_no_further_file) {
  const bool entered = tools_test::with_disk("size=4m,nr_inodes=2", directory(), [this] {
    write_file(in_directory("there"), "");
    EXPECT_THAT(finds({"--truth-out", in_directory("there")}), IsEmpty());
    EXPECT_THAT(finds({"--truth-out", in_directory("t")}),
                ElementsAre("--truth-out " + in_directory("t") +
                            ": no further file can be made on the disk of " + directory()));
  });
  if (!entered) GTEST_SKIP() << "no disk of our own";
}

TEST_F(Doctor, finds_outputs_in_one_file) {
  const std::string path = in_directory("x");
  const std::string again = directory() + "/./x";
  EXPECT_THAT(finds({"--truth-out", path, "--book-out", again}),
              ElementsAre("--book-out " + again + ": is the file of --truth-out " + path +
                          " too, and the one that is replaced takes the other away"));
  EXPECT_THAT(finds({"--book-out", path, "--bbo-out", path}),
              ElementsAre("--bbo-out " + path + ": is the file of --book-out " + path +
                          " too, and only one of the two is ever to be seen"));
  EXPECT_THAT(finds_with_order_truth(path, {"--truth-out", path}),
              ElementsAre("--truth-out " + path + ": is the file of BENCH_ORDER_TRUTH " + path +
                          " too, and holds the lines of both"));
  EXPECT_THAT(finds({"--truth-out", path + ".tmp", "--book-out", path}),
              ElementsAre("--book-out " + path + ": is the file of --truth-out " + path +
                          ".tmp too, and the one that is replaced takes the other away"));
  write_file(path, "");
  ASSERT_EQ(::symlink("x", in_directory("link").c_str()), 0);
  EXPECT_THAT(
      finds_with_order_truth(path, {"--truth-out", in_directory("link")}),
      ElementsAre("--truth-out " + in_directory("link") + ": is the file of BENCH_ORDER_TRUTH " +
                  path + " too, and holds the lines of both"));
  EXPECT_THAT(finds({"--truth-out", path, "--book-out", in_directory("link")}),
              ElementsAre(HasSubstr("is a link")))
      << "a rename to a link leaves its file alone";
}

TEST_F(Doctor, finds_a_truth_file_that_another_process_writes) {
  const std::string path = in_directory("truth");
  const Descriptor writing(::open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644));
  const Descriptor reading(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  client::ChildProcess reader(
      {.program = "/bin/sleep", .arguments = {"600"}, .stdin_fd = reading.fd()});
  client::ChildProcess writer(
      {.program = "/bin/sleep", .arguments = {"600"}, .stdout_fd = writing.fd()});
  // Before they become sleep both have all that is open here.
  const client::Deadline deadline = client::Deadline::after(client::PATIENCE);
  while (!deadline.expired() &&
         client::read_file("/proc/" + std::to_string(reader.pid()) + "/comm") != "sleep\n") {
  }
  const std::string pid = "(pid " + std::to_string(writer.pid()) + ")";
  const std::string end = pid + ": the lines of both are mixed";
  EXPECT_THAT(finds({"--truth-out", path}),
              ElementsAre(testing::AllOf(HasSubstr("is being written by "), EndsWith(end),
                                         testing::Not(HasSubstr(" and ")))));
  EXPECT_THAT(finds_with_order_truth(path), ElementsAre(EndsWith(end)));
}

TEST_F(Doctor, leaves_all_files_as_they_are) {
  write_file(in_directory("truth"), "a line\n");
  write_file(in_directory("book.tmp"), "half a book");
  struct stat before {};
  ASSERT_EQ(::stat(in_directory("truth").c_str(), &before), 0);
  (void)finds_with_order_truth(in_directory("orders"),
                               {"--truth-out", in_directory("truth"), "--book-out",
                                in_directory("book"), "--bbo-out", in_directory("bbo")});
  struct stat after {};
  ASSERT_EQ(::stat(in_directory("truth").c_str(), &after), 0);
  EXPECT_EQ(before.st_mtim.tv_nsec, after.st_mtim.tv_nsec);
  EXPECT_EQ(before.st_ctim.tv_nsec, after.st_ctim.tv_nsec);
  EXPECT_EQ(client::read_file(in_directory("truth")), "a line\n");
  EXPECT_EQ(client::read_file(in_directory("book.tmp")), "half a book");
  for (const char* const name : {"orders", "book", "bbo", "bbo.tmp"}) {
    EXPECT_NE(::access(in_directory(name).c_str(), F_OK), 0) << name;
  }
}

// ---- standard error

TEST(StandardError, may_be_a_file_or_a_terminal) {
  const Descriptor null(::open("/dev/null", O_WRONLY | O_CLOEXEC));
  EXPECT_THAT(lines_of(odd_standard_error(null.fd())), IsEmpty());
}

TEST(StandardError, as_a_pipe_can_stop_the_exchange) {
  int ends[2];
  ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
  const Descriptor writing(ends[1]);
  {
    const Descriptor reading(ends[0]);
    EXPECT_THAT(lines_of(odd_standard_error(writing.fd())),
                ElementsAre("standard error: is a pipe: if nobody reads it, the exchange stands "
                            "still once it is full"));
  }
  const auto before = ::signal(SIGPIPE, SIG_DFL);
  EXPECT_THAT(lines_of(odd_standard_error(writing.fd())),
              ElementsAre("standard error: is a pipe without a reader: the first line ends the "
                          "exchange"));
  ::signal(SIGPIPE, SIG_IGN);
  EXPECT_THAT(lines_of(odd_standard_error(writing.fd())),
              ElementsAre("standard error: is a pipe without a reader: all lines are lost"));
  ::signal(SIGPIPE, before);
}

TEST(StandardError, may_be_closed) {
  EXPECT_THAT(lines_of(odd_standard_error(-1)),
              ElementsAre("standard error: is closed: the lines of the exchange go to whatever it "
                          "opens under number 2"));
}

// ---- scenario

TEST_F(Doctor, finds_nothing_in_a_good_scenario) {
  EXPECT_THAT(finds_in_scenario(""), IsEmpty());
  EXPECT_THAT(finds_in_scenario(
                  "name=all,disconnect_after=1,lapse_ms=5000,reject_every=1,partial_fill_every=1,"
                  "fill_on_cancel_every=1,unsolicited_cancel_every=1,replace_reject_every=1,"),
              IsEmpty());
}

TEST_F(Doctor, finds_items_that_a_scenario_passes_over) {
  EXPECT_THAT(finds_in_scenario("reject_every=1,reject_evry=3"),
              ElementsAre("QUORL_SCENARIO reject_evry=3: is no key of a scenario and is passed "
                          "over"));
  EXPECT_THAT(finds_in_scenario("reject_every=1, lapse_ms=5"),
              ElementsAre("QUORL_SCENARIO  lapse_ms=5: has a space about its key and is passed "
                          "over"));
  EXPECT_THAT(finds_in_scenario("reject_every=1,name=smoke,test"),
              ElementsAre("QUORL_SCENARIO test: has no '=' and is passed over"));
}

TEST_F(Doctor, finds_numbers_that_a_scenario_reads_otherwise) {
  EXPECT_THAT(
      finds_in_scenario("lapse_ms=5s"),
      ElementsAre("QUORL_SCENARIO lapse_ms=5s: is read as 5: 's' behind it is passed over"));
  EXPECT_THAT(finds_in_scenario("reject_every="),
              ElementsAre("QUORL_SCENARIO reject_every=: is no number: the exchange ends by an "
                          "abort (stoul)"));
  EXPECT_THAT(finds_in_scenario("reject_every=1,lapse_ms=-5"),
              ElementsAre("QUORL_SCENARIO lapse_ms=-5: is never: no silence is that short"));
  EXPECT_THAT(
      finds_in_scenario("disconnect_after=-1"),
      ElementsAre("QUORL_SCENARIO disconnect_after=-1: is read as 4294967295: a minus wraps "
                  "around"));
}

TEST_F(Doctor, finds_keys_given_twice_and_scenarios_without_a_rule) {
  EXPECT_THAT(finds_in_scenario("reject_every=1,reject_every=2"),
              ElementsAre("QUORL_SCENARIO reject_every=2: is what counts of the 2 times that "
                          "reject_every is given"));
  EXPECT_THAT(finds_in_scenario("name=x,reject_every=0"),
              ElementsAre("QUORL_SCENARIO name=x,reject_every=0: arms nothing"));
}

// ---- symbols

TEST_F(Doctor, finds_symbols_that_are_not_what_they_seem) {
  const auto symbols = [this](const std::string& text) { return finds({"--symbols", text}); };
  EXPECT_THAT(symbols(""), ElementsAre("--symbols '': lists no symbol: the market is empty"));
  EXPECT_THAT(symbols("A:1, B:2"), ElementsAre("--symbols ' B:2': has a space in its symbol: an "
                                               "order has to name it with the space"));
  EXPECT_THAT(symbols("A:1,:5"), ElementsAre("--symbols :5: lists a symbol without a name"));
  EXPECT_THAT(symbols("A\"B:5"), ElementsAre("--symbols 'A\"B:5': is written as it is: book and "
                                             "truth files are no JSON"));
  EXPECT_THAT(symbols("EIGHTCHR:5"), IsEmpty());
  EXPECT_THAT(symbols("NINECHARS:5"), ElementsAre("--symbols NINECHARS:5: shows on the feed as "
                                                  "NINECHAR: a symbol has 8 characters there"));
  EXPECT_THAT(symbols("A:1,B:2,A:3"), ElementsAre("--symbols A:3: is listed a second time: orders "
                                                  "find the first one alone"));
  EXPECT_THAT(symbols("NINECHARS:5,NINECHART:5"),
              Contains("--symbols NINECHART:5: shows on the feed as NINECHAR, as NINECHARS does"));
}

TEST_F(Doctor, finds_prices_that_are_not_what_they_seem) {
  const auto symbols = [this](const std::string& text) { return finds({"--symbols", text}); };
  EXPECT_THAT(symbols("A"), ElementsAre("--symbols A: has no price and opens at 100"));
  EXPECT_THAT(symbols("A:"), ElementsAre("--symbols A:: its price is no number: the exchange ends "
                                         "by an abort (stod)"));
  EXPECT_THAT(
      symbols("A:1:2"),
      ElementsAre("--symbols A:1:2: its price is read as 1: ':2' behind it is passed over"));
  EXPECT_THAT(symbols("A:0.004"), ElementsAre("--symbols A:0.004: opens at zero"));
  EXPECT_THAT(symbols("A:-1"), ElementsAre("--symbols A:-1: opens below zero"));
  EXPECT_THAT(symbols("A:nan"),
              ElementsAre("--symbols A:nan: is no price: the book opens at prices "
                          "without sense"));
  EXPECT_THAT(symbols("A:0.10"), ElementsAre("--symbols A:0.10: opens so low that bids stand at "
                                             "zero and below"));
  EXPECT_THAT(symbols("A:0.11"), IsEmpty());
  EXPECT_THAT(symbols("A:1e15"), ElementsAre("--symbols A:1e15: is more than a price of the feed "
                                             "can hold: the book opens at another"));
}

}  // namespace
}  // namespace tools::doctor
