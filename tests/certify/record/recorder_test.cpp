#include "certify/record/recorder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <vector>

#include "certify/record/stream_frame.h"
#include "quorl/client/fix_message.h"
#include "quorl/client/temp_directory.h"
#include "tools/capture/capture_reader.h"
#include "tools/capture/datagram_finder.h"
#include "tools/capture/link_layer.h"
#include "tools/capture/network_order.h"
#include "tools/capture/udp_frame.h"

namespace client = quorl::client;

namespace certify {
namespace {

using testing::ElementsAre;
using testing::SizeIs;

constexpr TimeNs NOW = 1'795'351'507'123'456'789;
constexpr ServicePorts PORTS{.fix = 1111, .images = 2222, .gap_fill = 3333};
constexpr Line FIX{Service::FIX, 3};
constexpr size_t HEADERS = 40;  // of IP and TCP

struct Segment {
  uint64_t time_ns = 0;
  uint16_t from = 0;
  uint16_t to = 0;
  SegmentHead head;
  std::string bytes;
};

class RecorderTest : public testing::Test {
 protected:
  std::string path(const std::string& name) const { return folder.path() + "/" + name; }
  std::string content(const std::string& name) const {
    std::ifstream file(path(name));
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
  }
  void pass(Line line, Party from, std::string_view bytes) {
    recorder.on_passed({.line = line, .from = from, .bytes = bytes, .taken = NOW - 9, .told = NOW});
  }

  /// Checks lengths and checksums on the way.
  std::vector<Segment> segments() {
    recorder.flush();
    std::vector<Segment> segments;
    tools::CaptureReader reader(path("wire.pcap"));
    while (const auto frame = reader.next()) {
      const client::ByteView packet = tools::ip_packet(reader.link_type(), frame->bytes).value();
      EXPECT_EQ(tools::big_endian_16(packet, 2), packet.size());
      EXPECT_EQ(tools::internet_checksum(packet.first(20)), 0);
      client::Bytes covered(packet.begin() + 12, packet.end());  // the addresses, and TCP
      const uint32_t pseudo = 6 + static_cast<uint32_t>(packet.size() - 20);
      EXPECT_EQ(tools::internet_checksum(covered, pseudo), 0);
      segments.push_back({.time_ns = frame->time_ns,
                          .from = tools::big_endian_16(packet, 20),
                          .to = tools::big_endian_16(packet, 22),
                          .head = {.seq = tools::big_endian_32(packet, 24),
                                   .ack = tools::big_endian_32(packet, 28),
                                   .flags = packet[33]},
                          .bytes = client::to_text(packet.subspan(HEADERS))});
    }
    EXPECT_EQ(reader.damage(), "");
    return segments;
  }

  client::TempDirectory folder;
  tools::Endpoint group = tools::endpoint_of("233.54.26.111", 25477);
  Recorder recorder{folder.path(), group, PORTS};
};

// --- fix.log ---

TEST_F(RecorderTest, FixMessagesStandInTheLogAsTheyWere) {
  const std::string out = client::frame_fix("35=A|34=1|49=T|56=IEXG|");
  const std::string in = client::frame_fix("35=A|34=1|49=IEXG|56=T|58=\xff\x80|");
  recorder.on_event({NOW, FixHeard{.connection = 1, .message = WireMessage::read(out)}});
  recorder.on_event(
      {NOW + SECOND,
       FixHeard{.connection = 1, .from = Party::EXCHANGE, .message = WireMessage::read(in)}});
  recorder.on_event({NOW, PlanSaid{"step 1"}});
  recorder.finish();
  EXPECT_EQ(content("fix.log"),
            "20261122-12:45:07.123 : " + out + "\n" + "20261122-12:45:08.123 : " + in + "\n");
  EXPECT_THAT(content("timeline.txt"), testing::HasSubstr("step 1"));
}

// --- wire.pcap ---

TEST_F(RecorderTest, AConnectionIsAWholeTcpConversation) {
  recorder.on_opened(FIX, true, NOW);
  pass(FIX, Party::CLIENT, "hello");
  pass(FIX, Party::EXCHANGE, "you");
  pass(FIX, Party::CLIENT, "!");
  recorder.on_ended({.line = FIX, .by = Party::CLIENT, .at = NOW});
  recorder.on_ended({.line = FIX, .by = Party::EXCHANGE, .reset = true, .at = NOW + 1});
  const auto all = segments();
  ASSERT_THAT(all, SizeIs(8));
  std::vector<std::string> texts;
  for (const Segment& segment : all) {
    EXPECT_EQ(std::min(segment.from, segment.to), PORTS.fix);
    EXPECT_EQ(std::max(segment.from, segment.to), 10'003);
    std::ostringstream text;
    text << (segment.from == PORTS.fix ? '<' : '>') << int{segment.head.flags} << ' '
         << segment.head.seq << ' ' << segment.head.ack << ' ' << segment.bytes;
    texts.push_back(text.str());
  }
  EXPECT_THAT(texts, ElementsAre(">2 0 0 ", "<18 0 1 ", ">16 1 1 ", ">24 1 1 hello", "<24 1 6 you",
                                 ">24 6 4 !", ">17 7 4 ", "<20 4 8 "));
  EXPECT_EQ(all[0].time_ns, static_cast<uint64_t>(NOW));
  EXPECT_EQ(all[7].time_ns, static_cast<uint64_t>(NOW) + 1);
}

TEST_F(RecorderTest, AConnectionThatNobodyTookIsReset) {
  recorder.on_opened(FIX, false, NOW);
  const auto all = segments();
  ASSERT_THAT(all, SizeIs(2));
  EXPECT_EQ(all[1].head.flags, TCP_RST | TCP_ACK);
}

TEST_F(RecorderTest, ALargePieceLosesNothing) {
  std::string bytes;
  for (int i = 0; i < 300'000; ++i) bytes += static_cast<char>(i * 7);
  pass({Service::IMAGES, 1}, Party::EXCHANGE, bytes);
  std::string heard;
  for (const Segment& segment : segments()) {
    EXPECT_EQ(segment.head.seq, heard.size());
    heard += segment.bytes;
  }
  EXPECT_TRUE(heard == bytes);
}

TEST_F(RecorderTest, GapFillIsDatagrams) {
  pass({Service::GAP_FILL, 2}, Party::CLIENT, "ask");
  pass({Service::GAP_FILL, 2}, Party::EXCHANGE, "tell");
  recorder.flush();
  tools::CaptureReader reader(path("wire.pcap"));
  tools::DatagramFinder finder(reader.link_type());
  std::vector<std::string> datagrams;
  while (const auto frame = reader.next()) {
    const auto datagram = finder.take(frame->bytes).value();
    datagrams.push_back(text_of(datagram.from) + " " + text_of(datagram.to) + " " +
                        client::to_text(datagram.payload));
  }
  EXPECT_THAT(datagrams, ElementsAre("127.0.0.1:30002 127.0.0.1:3333 ask",
                                     "127.0.0.1:3333 127.0.0.1:30002 tell"));
}

// --- feed.pcap ---

TEST_F(RecorderTest, TheFeedIsDatagramsToItsGroup) {
  const client::Bytes packet = client::to_bytes("a packet");
  recorder.on_feed(packet, NOW);
  recorder.flush();
  tools::CaptureReader reader(path("feed.pcap"));
  const auto frame = reader.next();
  ASSERT_TRUE(frame);
  EXPECT_EQ(frame->time_ns, static_cast<uint64_t>(NOW));
  const auto datagram = tools::DatagramFinder(reader.link_type()).take(frame->bytes);
  ASSERT_TRUE(datagram);
  EXPECT_EQ(datagram->to, group);
  EXPECT_EQ(datagram->payload, packet);
}

// --- What cannot be written ---

TEST_F(RecorderTest, AllIsWellWithoutAFailure) {
  recorder.finish();
  EXPECT_EQ(recorder.failure(), "");
  EXPECT_FALSE(std::filesystem::exists(path("feed.pcap"))) << "without a frame it is no capture";
}

TEST_F(RecorderTest, AFinishedCaptureIsWhole) {
  recorder.on_feed(client::to_bytes("a packet"), NOW);
  recorder.finish();
  tools::CaptureReader reader(path("feed.pcap"));
  EXPECT_TRUE(reader.next());
  EXPECT_FALSE(reader.next());
  EXPECT_EQ(reader.damage(), "");
}

TEST(RecorderFailure, EachFileThatIsFullIsNamedAndTheOthersAreWritten) {
  const std::vector<std::string> names = {"timeline.txt", "fix.log", "wire.pcap", "feed.pcap"};
  for (const std::string& name : names) {
    const client::TempDirectory folder;
    std::filesystem::create_symlink("/dev/full", folder.path() + "/" + name);
    Recorder recorder(folder.path(), tools::endpoint_of("233.54.26.111", 25477), PORTS);
    for (int i = 0; i < 2; ++i) {
      recorder.on_event({NOW, FixHeard{.message = WireMessage::read(client::frame_fix("35=0|"))}});
      recorder.on_passed({.line = FIX, .bytes = "a", .told = NOW});
      recorder.on_feed(client::to_bytes("b"), NOW);
      recorder.flush();
      EXPECT_EQ(recorder.failure(),
                "cannot write " + folder.path() + "/" + name + ": No space left on device");
    }
    recorder.finish();
    for (const std::string& other : names) {
      if (other == name) continue;
      EXPECT_GT(std::filesystem::file_size(folder.path() + "/" + other), 20U) << other;
    }
  }
}

TEST(RecorderFailure, AFolderThatIsNotThereIsNamed) {
  EXPECT_THROW(Recorder("/nowhere/at/all", tools::endpoint_of("233.54.26.111", 25477), PORTS),
               CannotRecord);
}

TEST(TimeNs, TheSystemClockAndTheSteadyClockAgree) {
  const auto system = std::chrono::nanoseconds(std::chrono::system_clock::now().time_since_epoch());
  const TimeNs before = time_ns(std::chrono::steady_clock::now());
  EXPECT_LE(before, now_ns());
  EXPECT_LT(std::abs(system.count() - before), 60 * SECOND);
}

}  // namespace
}  // namespace certify
