// Captures of many kinds, put together byte by byte, and the feeds found in them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "quorl/client/temp_directory.h"
#include "tests/tools/support/capture_bytes.h"
#include "tests/tools/support/made_feed.h"
#include "tools/capture/capture_reader.h"
#include "tools/replay/recording.h"

namespace {

using capture_bytes::PcapFile;
using capture_bytes::PcapngFile;
using client::Bytes;
using testing::HasSubstr;

constexpr const char* FEED_GROUP = "239.1.2.3";
constexpr uint16_t PORT = 5555;

class AFile {
 public:
  explicit AFile(const Bytes& bytes) { capture_bytes::write_file(path(), bytes); }
  std::string path() const { return directory_.path() + "/capture"; }

 private:
  client::TempDirectory directory_;
};

tools::Recording read(const Bytes& bytes) { return tools::read_recording(AFile(bytes).path()); }

std::string complaint_about(const Bytes& bytes) {
  try {
    read(bytes);
  } catch (const tools::UnusableCapture& unusable) {
    return unusable.what();
  }
  return "";
}

const MadeFeed& a_feed() {
  static const MadeFeed feed = MadeFeed().opening().bids(2).heartbeat();
  return feed;
}

/// The recording holds a_feed(), whole, and nothing else.
void expect_the_feed(const tools::Recording& recording) {
  ASSERT_EQ(recording.feeds.size(), 1u);
  const tools::RecordedFeed& feed = recording.feeds[0];
  EXPECT_EQ(tools::text_of(feed.group), "239.1.2.3:5555");
  EXPECT_EQ(feed.session, hand_made::SESSION);
  EXPECT_EQ(feed.cut, 0u);
  EXPECT_EQ(feed.damaged, 0u);
  EXPECT_EQ(recording.damage, "");
  ASSERT_EQ(feed.packets.size(), a_feed().packets().size());
  for (size_t i = 0; i < feed.packets.size(); ++i) {
    EXPECT_EQ(feed.packets[i].bytes, a_feed().packets()[i].bytes) << i;
    EXPECT_EQ(feed.packets[i].time_ns, a_feed().packets()[i].time_ns) << i;
  }
}

struct Link {
  std::string name;
  uint32_t type;
  Bytes (*frame)(client::ByteView packet);
};

Bytes null_of(client::ByteView packet) { return capture_bytes::behind({2, 0, 0, 0}, packet); }
Bytes null_swapped(client::ByteView packet) { return capture_bytes::behind({0, 0, 0, 2}, packet); }
Bytes bare(client::ByteView packet) { return {packet.begin(), packet.end()}; }
Bytes plain_ethernet(client::ByteView packet) { return capture_bytes::ethernet(packet); }
Bytes with_vlan(client::ByteView packet) { return capture_bytes::ethernet(packet, {0x8100}); }
Bytes with_two_vlans(client::ByteView packet) {
  return capture_bytes::ethernet(packet, {0x88a8, 0x8100});
}
Bytes padded(client::ByteView packet) {  // an Ethernet frame is at least 60 bytes long
  Bytes frame = capture_bytes::ethernet(packet);
  frame.resize(frame.size() + 18, 0);
  return frame;
}

class EveryLink : public testing::TestWithParam<Link> {};

TEST_P(EveryLink, is_read_from_pcap_and_from_pcapng) {
  PcapFile pcap({.link_type = GetParam().type});
  PcapngFile pcapng(static_cast<uint16_t>(GetParam().type));
  for (const MadeFeed::Packet& packet : a_feed().packets()) {
    const Bytes frame = GetParam().frame(capture_bytes::udp_packet(FEED_GROUP, PORT, packet.bytes));
    pcap.frame(packet.time_ns, frame);
    pcapng.frame(packet.time_ns, frame);
  }
  expect_the_feed(read(pcap.bytes));
  expect_the_feed(read(pcapng.bytes));
}

INSTANTIATE_TEST_SUITE_P(
    Recording, EveryLink,
    testing::Values(Link{"ethernet", capture_bytes::ETHERNET, plain_ethernet},
                    Link{"ethernet_with_a_vlan", capture_bytes::ETHERNET, with_vlan},
                    Link{"ethernet_with_two_vlans", capture_bytes::ETHERNET, with_two_vlans},
                    Link{"ethernet_with_padding", capture_bytes::ETHERNET, padded},
                    Link{"linux_cooked", capture_bytes::COOKED, capture_bytes::cooked},
                    Link{"linux_cooked_2", capture_bytes::COOKED_2, capture_bytes::cooked_2},
                    Link{"raw_ip", capture_bytes::RAW_IP, bare},
                    Link{"raw_ipv4", capture_bytes::IPV4_ONLY, bare},
                    Link{"null", capture_bytes::NULL_LINK, null_of},
                    Link{"null_of_the_other_byte_order", capture_bytes::NULL_LINK, null_swapped},
                    Link{"loopback", capture_bytes::LOOP, null_swapped}),
    [](const auto& link) { return link.param.name; });

TEST(Recording, is_read_in_either_byte_order_and_with_microseconds) {
  for (const bool big_endian : {false, true}) {
    PcapFile file({.nanoseconds = false, .big_endian = big_endian});
    a_feed().add_to(file, FEED_GROUP, PORT);
    expect_the_feed(read(file.bytes));  // its times are whole tenths of seconds
  }
}

TEST(Recording, keeps_the_nanoseconds) {
  MadeFeed feed;
  feed.opening();
  feed.packets()[0].time_ns += 123456789;
  const tools::Recording recording = read(feed.on_file(FEED_GROUP, PORT).bytes);
  EXPECT_EQ(recording.feeds.at(0).packets.at(0).time_ns, hand_made::NOON + 123456789);
}

TEST(Recording, puts_fragments_together_in_any_order) {
  PcapFile file;
  size_t turn = 0;
  for (const MadeFeed::Packet& packet : a_feed().packets()) {
    std::vector<Bytes> fragments = capture_bytes::udp_fragments(FEED_GROUP, PORT, packet.bytes, 24);
    ASSERT_GT(fragments.size(), 1u);
    if (turn++ % 2 == 1) std::swap(fragments.front(), fragments.back());
    for (const Bytes& fragment : fragments) {
      file.frame(packet.time_ns, capture_bytes::ethernet(fragment));
    }
  }
  expect_the_feed(read(file.bytes));
}

TEST(Recording, counts_a_packet_whose_later_fragments_are_missing_as_cut) {
  PcapFile file = a_feed().on_file(FEED_GROUP, PORT);
  const MadeFeed more = MadeFeed(a_feed()).bids(1);
  const auto fragments =
      capture_bytes::udp_fragments(FEED_GROUP, PORT, more.packets().back().bytes, 48);
  file.frame(more.packets().back().time_ns, capture_bytes::ethernet(fragments[0]));
  const tools::Recording recording = read(file.bytes);
  ASSERT_EQ(recording.feeds.size(), 1u);
  EXPECT_EQ(recording.feeds[0].packets.size(), a_feed().packets().size());
  EXPECT_EQ(recording.feeds[0].cut, 1u);
}

TEST(Recording, counts_what_the_snap_length_has_cut) {
  PcapFile file({.snap_length = 14 + 20 + 8 + 40});  // a heartbeat fits exactly
  a_feed().add_to(file, FEED_GROUP, PORT);
  const tools::Recording recording = read(file.bytes);
  ASSERT_EQ(recording.feeds.size(), 1u);
  EXPECT_EQ(recording.feeds[0].packets.size(), 1u);
  EXPECT_EQ(recording.feeds[0].cut, 3u);
}

TEST(Recording, counts_a_packet_that_breaks_the_format_as_damaged) {
  MadeFeed feed = a_feed();
  feed.packets()[1].bytes.pop_back();
  const tools::Recording recording = read(feed.on_file(FEED_GROUP, PORT).bytes);
  ASSERT_EQ(recording.feeds.size(), 1u);
  EXPECT_EQ(recording.feeds[0].packets.size(), 3u);
  EXPECT_EQ(recording.feeds[0].damaged, 1u);
}

TEST(Recording, passes_over_what_is_not_of_a_feed) {
  PcapFile file;
  Bytes ipv6 = capture_bytes::ethernet(Bytes(60, 0x60));
  ipv6[12] = 0x86;
  ipv6[13] = 0xdd;
  Bytes tcp = capture_bytes::udp_packet(FEED_GROUP, PORT, a_feed().packets()[0].bytes);
  tcp[9] = 6;
  file.frame(1, ipv6)
      .frame(2, capture_bytes::ethernet(tcp))
      .frame(3, Bytes(5, 0))
      .frame(4, capture_bytes::ethernet(Bytes{0x45}))
      .frame(5, capture_bytes::ethernet(
                    capture_bytes::udp_packet(FEED_GROUP, PORT, client::to_bytes("hello"))))
      .frame(6, capture_bytes::ethernet(capture_bytes::udp_packet(FEED_GROUP, PORT, Bytes(60, 1))));
  tools::Recording recording = read(file.bytes);
  EXPECT_TRUE(recording.feeds.empty());
  EXPECT_EQ(recording.frames, 6u);
  EXPECT_EQ(recording.datagrams, 2u);

  a_feed().add_to(file, FEED_GROUP, PORT);
  expect_the_feed(read(file.bytes));
}

TEST(Recording, that_ends_inside_a_frame_says_so_and_keeps_what_was_before) {
  Bytes bytes = a_feed().on_file(FEED_GROUP, PORT).bytes;
  bytes.pop_back();
  const tools::Recording recording = read(bytes);
  ASSERT_EQ(recording.feeds.size(), 1u);
  EXPECT_EQ(recording.feeds[0].packets.size(), 3u);
  EXPECT_THAT(recording.damage, HasSubstr("truncated"));
}

TEST(Recording, that_is_no_capture_or_one_of_an_unknown_link_is_unusable) {
  EXPECT_THAT(complaint_about(client::to_bytes("what a day")), HasSubstr("is no capture file"));
  EXPECT_THAT(complaint_about({}), HasSubstr("is no capture file"));
  EXPECT_THAT(complaint_about(PcapFile({.link_type = capture_bytes::WIFI}).bytes),
              HasSubstr("known are Ethernet"));
  try {
    tools::read_recording("/nowhere/at/all");
    FAIL();
  } catch (const tools::UnusableCapture& unusable) {
    EXPECT_STREQ(unusable.what(), "/nowhere/at/all: No such file or directory");
  }
}

TEST(Recording, tells_feeds_apart_by_group_port_and_session) {
  PcapFile file;
  MadeFeed(1).opening().add_to(file, FEED_GROUP, PORT);
  MadeFeed(1).opening().bids(3).add_to(file, "239.1.2.4", PORT);
  MadeFeed(1).opening().bids(1).add_to(file, FEED_GROUP, PORT + 1);
  MadeFeed(2).opening().bids(2).add_to(file, FEED_GROUP, PORT);
  const tools::Recording recording = read(file.bytes);
  std::vector<std::string> texts;
  for (const tools::RecordedFeed& feed : recording.feeds) texts.push_back(describe(feed));
  EXPECT_THAT(texts, testing::ElementsAre("239.1.2.3:5555, session 1, 1 packet",
                                          "239.1.2.4:5555, session 1, 4 packets",
                                          "239.1.2.3:5556, session 1, 2 packets",
                                          "239.1.2.3:5555, session 2, 3 packets"));
  const auto chosen = [&recording](const tools::FeedWish& wish) {
    return choose_feed(recording, wish);
  };
  EXPECT_EQ(chosen({}), &recording.feeds[1]);
  EXPECT_EQ(chosen({.group = tools::parse_endpoint("239.1.2.3:5555"), .session = {}}),
            &recording.feeds[3]);
  EXPECT_EQ(chosen({.group = tools::parse_endpoint("239.1.2.3:5555"), .session = 1}),
            &recording.feeds[0]);
  EXPECT_EQ(chosen({.group = {}, .session = 3}), nullptr);
}

TEST(Recording, tells_two_runs_of_one_session_apart_but_not_a_late_or_repeated_first_packet) {
  PcapFile file;
  MadeFeed first_run = MadeFeed(7).opening().bids(2);
  first_run.packets().insert(first_run.packets().begin() + 1, first_run.packets()[0]);
  std::swap(first_run.packets()[1], first_run.packets()[2]);
  first_run.add_to(file, FEED_GROUP, PORT);
  MadeFeed(7, hand_made::NOON + 60'000'000'000).opening().bids(1).add_to(file, FEED_GROUP, PORT);
  const tools::Recording recording = read(file.bytes);
  ASSERT_EQ(recording.feeds.size(), 2u);
  EXPECT_EQ(recording.feeds[0].packets.size(), 4u);
  EXPECT_EQ(recording.feeds[1].packets.size(), 2u);
}

TEST(Recording, knows_its_messages_and_how_long_it_lasts) {
  const tools::Recording recording = read(a_feed().on_file(FEED_GROUP, PORT).bytes);
  EXPECT_EQ(recording.feeds.at(0).messages(), 13u);
  EXPECT_EQ(recording.feeds.at(0).span_ns(), 300'000'000u);
}

}  // namespace
