// The frame and the file that a recording is written as, endpoints, spans of time, holes.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <string>

#include "quorl/client/temp_directory.h"
#include "tests/client/hand_made.h"
#include "tests/tools/support/capture_bytes.h"
#include "tools/capture/capture_reader.h"
#include "tools/capture/capture_writer.h"
#include "tools/capture/coverage.h"
#include "tools/capture/datagram_finder.h"
#include "tools/capture/endpoint.h"
#include "tools/capture/link_layer.h"
#include "tools/capture/span.h"
#include "tools/capture/udp_frame.h"

namespace {

using client::Bytes;
using tools::CaptureWriter;

constexpr tools::Endpoint SENDER{0x7f000001, 0x1234};
constexpr tools::Endpoint GROUP{0xefff0102, 10000};  // 239.255.1.2

TEST(UdpFrame, is_ethernet_ip_and_udp_byte_by_byte) {
  const Bytes frame = tools::ethernet_frame(SENDER, GROUP, Bytes{'a', 'b', 'c'});
  EXPECT_EQ(client::hex(frame),
            "01 00 5e 7f 01 02 00 00 00 00 00 00 08 00 "                    // the group's address
            "45 00 00 1f 00 00 40 00 01 11 09 cc 7f 00 00 01 ef ff 01 02 "  // 31 bytes in all
            "12 34 27 10 00 0b 92 2e 61 62 63");                            // 11 bytes of UDP
}

TEST(UdpFrame, checks_sum_up_to_all_ones) {
  for (const size_t size : {0u, 1u, 40u, 1499u, 1500u}) {
    const Bytes frame = tools::ethernet_frame(SENDER, GROUP, Bytes(size, 0xa5));
    const client::ByteView packet = client::ByteView(frame).subspan(14);
    EXPECT_EQ(tools::internet_checksum(packet.first(20)), 0) << size;
    const uint32_t pseudo =
        0x7f00 + 0x0001 + 0xefff + 0x0102 + 17 + 8 + static_cast<uint32_t>(size);
    EXPECT_EQ(tools::internet_checksum(packet.subspan(20), pseudo), 0) << size;
  }
}

TEST(UdpFrame, is_found_again) {
  tools::DatagramFinder finder(1);
  const auto datagram = finder.take(tools::ethernet_frame(SENDER, GROUP, Bytes(1500, 7)));
  ASSERT_TRUE(datagram);
  EXPECT_EQ(datagram->from, SENDER);
  EXPECT_EQ(datagram->to, GROUP);
  EXPECT_EQ(datagram->payload, Bytes(1500, 7));
  EXPECT_TRUE(datagram->whole);
}

class Writer : public testing::Test {
 protected:
  std::string path() const { return directory_.path() + "/a.pcap"; }
  std::string content() const { return client::read_file(path()); }

  client::TempDirectory directory_;
};

TEST_F(Writer, writes_the_file_byte_by_byte) {
  CaptureWriter writer(path(), CaptureWriter::IfThere::REFUSE);
  writer.write(1700000000123456789, Bytes{1, 2, 3});
  writer.close();
  EXPECT_EQ(client::hex(client::to_bytes(content())),
            "4d 3c b2 a1 02 00 04 00 00 00 00 00 00 00 00 00 0d 00 01 00 01 00 00 00 "
            "00 f1 53 65 15 cd 5b 07 03 00 00 00 03 00 00 00 01 02 03");
}

TEST_F(Writer, leaves_no_new_file_without_a_frame) {
  CaptureWriter(path(), CaptureWriter::IfThere::REFUSE).close();
  EXPECT_THROW(tools::CaptureReader reader(path()), tools::UnusableCapture);
}

TEST_F(Writer, keeps_an_old_file_until_the_first_frame_replaces_it) {
  capture_bytes::write_file(path(), client::to_bytes(std::string(100, 'x')));
  EXPECT_THROW(CaptureWriter(path(), CaptureWriter::IfThere::REFUSE), tools::FileExists);
  CaptureWriter(path(), CaptureWriter::IfThere::REPLACE).close();
  EXPECT_EQ(content(), std::string(100, 'x'));
  CaptureWriter writer(path(), CaptureWriter::IfThere::REPLACE);
  writer.write(1, Bytes{1});
  writer.close();
  EXPECT_EQ(content().size(), 24u + 16 + 1);
}

TEST_F(Writer, has_written_whole_frames_after_each_flush) {
  CaptureWriter writer(path(), CaptureWriter::IfThere::REFUSE);
  for (uint64_t i = 1; i <= 3; ++i) {
    writer.write(i, Bytes(10, 0));
    writer.flush();
    EXPECT_EQ(content().size(), 24 + i * 26);
  }
}

TEST(Endpoint, is_a_dotted_quad_and_a_port) {
  EXPECT_EQ(tools::text_of(GROUP), "239.255.1.2:10000");
  EXPECT_EQ(tools::parse_endpoint("239.255.1.2:10000"), GROUP);
  for (const char* wrong : {"", "239.255.1.2", "239.255.1:5", "239.255.1.2:", "239.255.1.2:0",
                            "239.255.1.2:65536", "239.255.1.2:5x", ":5", "239.255.1.2:-1"}) {
    EXPECT_FALSE(tools::parse_endpoint(wrong)) << wrong;
  }
}

TEST(Span, is_a_number_with_or_without_a_unit) {
  using namespace std::chrono_literals;
  EXPECT_EQ(tools::parse_span("10"), 10s);
  EXPECT_EQ(tools::parse_span("10s"), 10s);
  EXPECT_EQ(tools::parse_span("500ms"), 500ms);
  EXPECT_EQ(tools::parse_span("2m"), 120s);
  EXPECT_EQ(tools::parse_span("1.5h"), 5400s);
  EXPECT_EQ(tools::parse_span("0"), 0s);
  for (const char* wrong : {"", "s", "-1s", "10 s", "10q", "nan", "inf", "1e3", "99999h"}) {
    EXPECT_FALSE(tools::parse_span(wrong)) << wrong;
  }
}

client::TpHeader packet_at(uint64_t offset, uint16_t length) {
  client::TpHeader header = hand_made::header(offset, 1);
  header.payload_length = length;
  return header;
}

TEST(Coverage, is_whole_while_packets_follow_on_or_repeat) {
  tools::Coverage coverage;
  EXPECT_EQ(coverage.holes(), 0u);
  for (const uint64_t offset : {500u, 600u, 600u, 700u, 500u}) {
    coverage.packet(packet_at(offset, 100));
  }
  coverage.packet(packet_at(800, 0));  // a heartbeat
  EXPECT_EQ(coverage.holes(), 0u);
}

TEST(Coverage, counts_holes_until_what_was_late_has_come) {
  tools::Coverage coverage;
  coverage.packet(packet_at(0, 100));
  coverage.packet(packet_at(150, 50));
  coverage.packet(packet_at(300, 50));
  EXPECT_EQ(coverage.holes(), 2u);
  EXPECT_EQ(coverage.missing_bytes(), 150u);
  coverage.packet(packet_at(100, 50));
  EXPECT_EQ(coverage.holes(), 1u);
  EXPECT_EQ(coverage.missing_bytes(), 100u);
}

TEST(Coverage, a_heartbeat_tells_of_what_was_lost_before_it) {
  tools::Coverage coverage;
  coverage.packet(packet_at(0, 100));
  coverage.packet(packet_at(130, 0));
  EXPECT_EQ(coverage.holes(), 1u);
  EXPECT_EQ(coverage.missing_bytes(), 30u);
}

TEST(LinkLayer, a_frame_cut_inside_its_header_carries_nothing) {
  const Bytes packet = capture_bytes::udp_packet("239.1.2.3", 5555, Bytes(40, 0));
  const Bytes tagged = capture_bytes::ethernet(packet, {0x8100});
  for (size_t size = 0; size < 18; ++size) {
    EXPECT_FALSE(tools::ip_packet(1, client::ByteView(tagged).first(size))) << size;
  }
  EXPECT_TRUE(tools::ip_packet(1, tagged));
  EXPECT_FALSE(tools::ip_packet(105, tagged));
}

}  // namespace
