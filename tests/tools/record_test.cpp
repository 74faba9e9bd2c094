// quorl-record beside a running exchange. Its files are read by libpcap alone, and by tshark where
// there is one.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pcap/pcap.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "quorl/client/bytes.h"
#include "quorl/client/deadline.h"
#include "quorl/client/errors.h"
#include "quorl/client/feed_subscriber.h"
#include "quorl/client/port_slot.h"
#include "quorl/client/simulator.h"
#include "quorl/client/temp_directory.h"
#include "tests/e2e/support/built.h"
#include "tests/e2e/support/exchange.h"
#include "tests/tools/support/capture_bytes.h"
#include "tests/tools/support/tool.h"

namespace tools_test {
namespace {

using client::Bytes;
using testing::ContainsRegex;
using testing::HasSubstr;

struct Frame {
  uint64_t time_ns = 0;
  Bytes bytes;
};

struct Capture {
  bool in_nanoseconds = false;
  int link_type = -1;
  std::vector<Frame> frames;
  std::string error;  // why reading ended early; empty: the file is whole
};

/// The file as libpcap reads it.
Capture read_capture(const std::string& path) {
  Capture capture;
  char why[PCAP_ERRBUF_SIZE] = {};
  pcap_t* file =
      ::pcap_open_offline_with_tstamp_precision(path.c_str(), PCAP_TSTAMP_PRECISION_NANO, why);
  if (file == nullptr) {
    capture.error = why;
    return capture;
  }
  capture.link_type = ::pcap_datalink(file);
  pcap_pkthdr* header = nullptr;
  const u_char* bytes = nullptr;
  int result = 0;
  while ((result = ::pcap_next_ex(file, &header, &bytes)) == 1) {
    EXPECT_EQ(header->len, header->caplen);
    capture.frames.push_back({static_cast<uint64_t>(header->ts.tv_sec) * 1'000'000'000 +
                                  static_cast<uint64_t>(header->ts.tv_usec),
                              Bytes(bytes, bytes + header->caplen)});
  }
  if (result == PCAP_ERROR) capture.error = ::pcap_geterr(file);
  ::pcap_close(file);
  const std::string magic = client::read_file(path).substr(0, 4);
  capture.in_nanoseconds = magic == "\x4d\x3c\xb2\xa1";
  return capture;
}

constexpr size_t HEADERS = 14 + 20 + 8;

std::vector<Bytes> payloads(const Capture& capture) {
  std::vector<Bytes> payloads;
  for (const Frame& frame : capture.frames) {
    payloads.emplace_back(frame.bytes.begin() + HEADERS, frame.bytes.end());
  }
  return payloads;
}

uint64_t now_ns() {
  return static_cast<uint64_t>(std::chrono::duration_cast<std::chrono::nanoseconds>(
                                   std::chrono::system_clock::now().time_since_epoch())
                                   .count());
}

/// A directory, and the words that make a recorder listen to an exchange.
class Record : public testing::Test {
 protected:
  std::string path(const std::string& name = "day.pcap") const {
    return directory_.path() + "/" + name;
  }

  static std::vector<std::string> words(const client::Ports& ports, const std::string& file,
                                        const std::vector<std::string>& more = {}) {
    std::vector<std::string> words = {file, "--mcast", ports.group, "--port",
                                      std::to_string(ports.feed)};
    words.insert(words.end(), more.begin(), more.end());
    return words;
  }

  static bool exists(const std::string& path) { return ::access(path.c_str(), F_OK) == 0; }

 private:
  client::TempDirectory directory_;
};

TEST_F(Record, writes_every_packet_of_a_run_with_the_time_at_which_it_came) {
  client::Simulator simulator(e2e::living());
  client::FeedSubscriber feed(simulator.ports().group, simulator.ports().feed);
  Tool recorder("record", words(simulator.ports(), path()));
  recorder.complains("listening to");
  const uint64_t begin_ns = now_ns();
  simulator.start();
  feed.await([&feed] { return feed.packets().size() >= 20; }, "20 packets");
  simulator.terminate();
  feed.pump();
  // What has been sent is in the buffers of both receivers: the recorder takes it before it ends.
  recorder.signal(SIGINT);
  const Said said = recorder.end();
  const uint64_t end_ns = now_ns();
  EXPECT_EQ(said.status, 0);
  EXPECT_EQ(said.out, "");

  const Capture capture = read_capture(path());
  EXPECT_EQ(capture.error, "");
  EXPECT_TRUE(capture.in_nanoseconds);
  EXPECT_EQ(capture.link_type, DLT_EN10MB);
  std::vector<Bytes> heard;
  for (const client::FeedPacket& packet : feed.packets()) heard.push_back(packet.raw.bytes);
  EXPECT_EQ(payloads(capture), heard);
  uint64_t before_ns = begin_ns;
  for (const Frame& frame : capture.frames) {
    EXPECT_GE(frame.time_ns, before_ns);
    before_ns = frame.time_ns;
  }
  EXPECT_LE(before_ns, end_ns);
  EXPECT_THAT(said.err, HasSubstr("heard " + std::to_string(heard.size()) + " packets"));
  EXPECT_THAT(said.err, HasSubstr(std::to_string(feed.messages().size()) + " messages, no gaps"));
}

uint32_t ones_complement_sum(client::ByteView bytes) {
  uint32_t sum = 0;
  for (size_t i = 0; i < bytes.size(); ++i) {
    sum += i % 2 == 0 ? static_cast<uint32_t>(bytes[i]) << 8 : bytes[i];
  }
  return sum;
}

TEST_F(Record, wraps_packets_in_headers_with_right_lengths_and_checksums) {
  client::Simulator simulator(e2e::living());
  Tool recorder("record", words(simulator.ports(), path(), {"--count", "5"}));
  recorder.complains("listening to");
  simulator.start();
  ASSERT_EQ(recorder.end().status, 0);
  const Capture capture = read_capture(path());
  ASSERT_EQ(capture.frames.size(), 5u);
  for (const Frame& frame : capture.frames) {
    const client::ByteView bytes = frame.bytes;
    ASSERT_GE(bytes.size(), HEADERS + 40);
    const auto number = [&bytes](size_t at) { return bytes[at] * 256u + bytes[at + 1]; };
    EXPECT_EQ(client::hex(bytes.first(4)), "01 00 5e 7f");  // 239.255
    EXPECT_EQ(number(12), 0x0800u);
    EXPECT_EQ(bytes[14], 0x45);
    EXPECT_EQ(number(16), bytes.size() - 14);
    EXPECT_EQ(number(38), bytes.size() - 34);
    EXPECT_EQ(number(36), simulator.ports().feed);
    EXPECT_EQ(client::hex(bytes.subspan(26, 4)), "7f 00 00 01");
    EXPECT_EQ(ones_complement_sum(bytes.subspan(14, 20)) % 0xffff, 0u);
    const uint32_t pseudo_header = ones_complement_sum(bytes.subspan(26, 8)) + 17 + number(38);
    EXPECT_EQ((pseudo_header + ones_complement_sum(bytes.subspan(34))) % 0xffff, 0u);
  }
}

TEST_F(Record, is_read_by_tshark_without_a_complaint) {
  if (std::system("command -v tshark >/dev/null 2>&1") != 0) GTEST_SKIP() << "no tshark here";
  client::Simulator simulator(e2e::living());
  Tool recorder("record", words(simulator.ports(), path(), {"--count", "3"}));
  recorder.complains("listening to");
  simulator.start();
  ASSERT_EQ(recorder.end().status, 0);
  const std::string shown = path("shown");
  const std::string command = "tshark -r " + path() +
                              " -o ip.check_checksum:TRUE -o udp.check_checksum:TRUE -T fields"
                              " -e ip.checksum.status -e udp.checksum.status -e udp.dstport"
                              " -e _ws.malformed > " +
                              shown + " 2>/dev/null";
  ASSERT_EQ(std::system(command.c_str()), 0);
  const std::string line = "1\t1\t" + std::to_string(simulator.ports().feed) + "\t\n";  // 1: good
  EXPECT_EQ(client::read_file(shown), line + line + line);
}

TEST_F(Record, ends_after_so_many_packets) {
  client::Simulator simulator(e2e::living());
  simulator.start();
  const Said said = run_tool("record", words(simulator.ports(), path(), {"--count", "3"}));
  EXPECT_EQ(said.status, 0);
  EXPECT_THAT(said.err, HasSubstr("heard 3 packets"));
  EXPECT_EQ(read_capture(path()).frames.size(), 3u);
}

TEST_F(Record, ends_after_so_long) {
  client::Simulator simulator(e2e::living());
  simulator.start();
  const auto begin = std::chrono::steady_clock::now();
  const Said said = run_tool_until_answered(
      "record", words(simulator.ports(), path(), {"--for", "1200ms", "--force"}));
  EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(1200));
  EXPECT_EQ(said.status, 0);  // there is a packet every second
  EXPECT_EQ(read_capture(path()).error, "");
}

/// A named pipe that the recorder writes into.
class Pipe {
 public:
  explicit Pipe(const std::string& path) {
    if (::mkfifo(path.c_str(), 0600) != 0) throw client::SystemError("mkfifo");
    fd_ = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  }
  ~Pipe() { ::close(fd_); }

  /// Exactly so many bytes; throws Timeout.
  Bytes reads(size_t count) {
    const client::Deadline deadline = client::Deadline::after(client::PATIENCE);
    Bytes bytes(count);
    size_t got = 0;
    while (got < count) {
      pollfd ready{fd_, POLLIN, 0};
      (void)::poll(&ready, 1, deadline.remaining_ms());
      const ssize_t piece = ::read(fd_, bytes.data() + got, count - got);
      if (piece > 0) got += static_cast<size_t>(piece);
      if (deadline.expired()) throw client::Timeout("the pipe stays empty");
    }
    return bytes;
  }

 private:
  int fd_ = -1;
};

TEST_F(Record, writes_each_packet_out_when_it_has_come) {
  Pipe pipe(path());
  client::Simulator simulator(e2e::living());
  simulator.start();
  Tool recorder("record", words(simulator.ports(), path(), {"--force"}));
  EXPECT_EQ(client::hex(pipe.reads(24)).substr(0, 11), "4d 3c b2 a1");
  for (int i = 0; i < 3; ++i) {
    const Bytes header = pipe.reads(16);
    client::ByteReader reader(header, "frame header");
    (void)reader.take(8, "time");
    EXPECT_GE(pipe.reads(reader.u32("length")).size(), HEADERS + 40);
  }
  recorder.signal(SIGTERM);
  EXPECT_EQ(recorder.end().status, 0);
}

TEST_F(Record, goes_to_standard_output_if_asked_to) {
  client::Simulator simulator(e2e::living());
  simulator.start();
  const std::string command =
      built_program("quorl-record") + " - --count 2 --mcast " + simulator.ports().group +
      " --port " + std::to_string(simulator.ports().feed) + " >" + path() + " 2>/dev/null";
  ASSERT_EQ(std::system(command.c_str()), 0);
  const Capture capture = read_capture(path());
  EXPECT_EQ(capture.error, "");
  EXPECT_EQ(capture.frames.size(), 2u);
}

TEST_F(Record, keeps_what_it_says_out_of_the_file_where_no_standard_stream_is_open) {
  client::Simulator simulator(e2e::living());
  simulator.start();
  const std::string command = built_program("quorl-record") + " " + path() + " --count 2 --mcast " +
                              simulator.ports().group + " --port " +
                              std::to_string(simulator.ports().feed) + " <&- >&- 2>&-";
  ASSERT_EQ(std::system(command.c_str()), 0);
  const Capture capture = read_capture(path());
  EXPECT_EQ(capture.error, "");
  EXPECT_EQ(capture.frames.size(), 2u);
}

TEST_F(Record, tells_of_the_gaps_it_heard) {
  client::Simulator simulator(e2e::living({"--drop-every", "4"}));
  Tool recorder("record", words(simulator.ports(), path(), {"--count", "7"}));
  recorder.complains("listening to");
  simulator.start();
  const Said said = recorder.end();
  EXPECT_EQ(said.status, 0);
  // Seven packets came, of numbers 1 to 9 without 4 and 8, unless the market was quiet for a second
  // and a heartbeat took a place.
  EXPECT_THAT(said.err, ContainsRegex("[12] gaps? \\([0-9]+ bytes of the stream not heard\\)"));
}

TEST_F(Record, tells_of_two_runs_in_one_file) {
  const client::PortSlot slot;
  Tool recorder("record", words(slot.ports(), path()));
  recorder.complains("listening to");
  for (const char* session : {"7", "8"}) {
    client::SimulatorOptions options =
        e2e::living({"--session", session, "--mcast", slot.ports().group, "--port",
                     std::to_string(slot.ports().feed)});
    client::FeedSubscriber feed(slot.ports().group, slot.ports().feed);
    client::Simulator simulator(options);
    simulator.start();
    feed.await([&feed] { return feed.packets().size() >= 2; }, "two packets");
    simulator.terminate();
  }
  recorder.signal(SIGTERM);
  const Said said = recorder.end();
  EXPECT_EQ(said.status, 0);
  EXPECT_THAT(said.err, HasSubstr("no gaps, 2 sessions"));
}

TEST_F(Record, says_that_nothing_was_heard_and_leaves_no_file) {
  const client::PortSlot slot;
  const Said said = run_tool("record", words(slot.ports(), path(), {"--for", "100ms"}));
  EXPECT_EQ(said.status, 3);
  EXPECT_THAT(said.err, HasSubstr("quorl-record: nothing was heard at " + slot.ports().group));
  EXPECT_FALSE(exists(path()));
}

TEST_F(Record, spares_a_file_that_is_there_unless_forced) {
  const client::PortSlot slot;
  capture_bytes::write_file(path(), client::to_bytes("a day to remember"));
  const Said refused = run_tool("record", words(slot.ports(), path(), {"--for", "100ms"}));
  EXPECT_EQ(refused.status, 2);
  EXPECT_EQ(refused.err, "quorl-record: " + path() + " exists already; --force replaces it\n");
  // Forced, it still waits for something to put in its place.
  EXPECT_EQ(run_tool("record", words(slot.ports(), path(), {"--for", "100ms", "--force"})).status,
            3);
  EXPECT_EQ(client::read_file(path()), "a day to remember");

  client::Simulator simulator(e2e::living());
  simulator.start();
  EXPECT_EQ(
      run_tool("record", words(simulator.ports(), path(), {"--count", "1", "--force"})).status, 0);
  EXPECT_EQ(read_capture(path()).frames.size(), 1u);
}

/// Lets no process that is started meanwhile write a larger file.
class LargestFile {
 public:
  explicit LargestFile(rlim_t bytes) {
    ::getrlimit(RLIMIT_FSIZE, &before_);
    const rlimit limit{bytes, before_.rlim_max};
    ::setrlimit(RLIMIT_FSIZE, &limit);
  }
  ~LargestFile() { ::setrlimit(RLIMIT_FSIZE, &before_); }

 private:
  rlimit before_{};
};

TEST_F(Record, says_that_the_disk_is_full_and_leaves_what_can_be_read) {
  client::Simulator simulator(e2e::living());
  std::unique_ptr<Tool> recorder;
  {
    const LargestFile limit(4000);
    recorder = std::make_unique<Tool>("record", words(simulator.ports(), path()));
  }
  recorder->complains("listening to");
  simulator.start();
  const Said said = recorder->end();
  EXPECT_EQ(said.status, 1);
  const Capture capture = read_capture(path());
  EXPECT_EQ(capture.error, "");
  ASSERT_GE(capture.frames.size(), 1u);
  EXPECT_THAT(said.err,
              HasSubstr("cannot write " + path() + ": File too large; it holds the first " +
                        std::to_string(capture.frames.size()) + " packet"));
}

TEST_F(Record, says_that_a_device_takes_nothing) {
  client::Simulator simulator(e2e::living());
  simulator.start();
  const Said said = run_tool("record", words(simulator.ports(), "/dev/full", {"--force"}));
  EXPECT_EQ(said.status, 1);
  EXPECT_THAT(said.err, HasSubstr("cannot write /dev/full: No space left on device"));
}

TEST_F(Record, refuses_what_it_cannot_understand_before_it_listens) {
  const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
      {{}, "FILE is required"},
      {{path(), "--for", "soon"}, "--for: soon is no time such as 10s, 500ms or 2m"},
      {{path(), "--count", "0"}, "--count"},
      {{path(), "--mcast", "10.0.0.1"}, "10.0.0.1 is no multicast group"},
      {{path(), "--iface", "lo"}, "lo is no IPv4 address"},
      {{path(), "--iface", "192.0.2.1"}, "no interface of this machine has the address 192.0.2.1"},
      {{path("no/such/directory")}, "cannot write " + path("no/such/directory")},
  };
  for (const auto& [words, complaint] : cases) {
    const Said said = run_tool("record", words);
    EXPECT_EQ(said.status, 2) << complaint;
    EXPECT_THAT(said.err, HasSubstr("quorl-record: "));
    EXPECT_THAT(said.err, HasSubstr(complaint));
    EXPECT_FALSE(exists(path()));
  }
}

}  // namespace
}  // namespace tools_test
