// Packets cut anywhere, and bytes that are nobody's: the dissector says so and never fails.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <random>

#include "quorl/client/errors.h"
#include "quorl/client/gap_fill_client.h"
#include "quorl/client/snap_client.h"
#include "tests/client/hand_made.h"
#include "tests/share/capture_file.h"
#include "tests/share/recording.h"
#include "tests/share/tshark.h"

namespace share {
namespace {

using client::Bytes;
using client::ByteView;
using testing::Contains;
using testing::IsEmpty;
using testing::Not;

constexpr Endpoint CLIENT{.port = CLIENT_PORT};
constexpr Endpoint GAP_FILL{.port = 25479};
constexpr Endpoint SNAP{.port = 25479};
constexpr Endpoint FEED{.address = GROUP, .port = 25477};

Bytes every_message() {
  using namespace hand_made;
  const client::TpHeader header{.version = 1,
                                .protocol_id = client::DEEP_PROTOCOL_ID,
                                .channel_id = client::DEEP_CHANNEL_ID,
                                .session_id = SESSION,
                                .first_seq = 1,
                                .send_time_ns = NOON};
  return client::encode_tp_packet(
      header, {system_event('O'), directory("AAPL"), trading_status("AAPL"),
               status('O', 'N', "AAPL"), short_sale("AAPL"), status('I', ' ', "AAPL"),
               status('E', 'O', "AAPL"), level({}), level({.type = '5'}), trade({})});
}

Bytes request() {
  return encode(
      client::GapFillRequest{.session_id = hand_made::SESSION, .ranges = {{1, 9}, {20, 30}}});
}

Bytes image_request() {
  return encode(client::SnapRequest{.name = "BENCH", .session_id = hand_made::SESSION});
}

/// The frames of an image that holds every message.
Bytes image_reply() {
  Bytes reply;
  const auto frame = [&](char type, const Bytes& body) {
    client::put_u16(reply, static_cast<uint16_t>(body.size() + 1));
    client::put_u8(reply, static_cast<uint8_t>(type));
    client::put_bytes(reply, body);
  };
  Bytes number;
  client::put_u64(number, 1000);
  frame('s', number);
  frame('d', every_message());
  frame('x', number);
  return reply;
}

class Damage : public testing::Test {
 protected:
  CaptureFile file_;

  Dissection dissect(const std::vector<std::string>& arguments = {"-2"}) {
    const std::string path = directory_.path() + "/damage.pcap";
    file_.write(path);
    return Dissection(path, arguments);
  }

 private:
  const client::TempDirectory directory_;
};

/// Whether a note says that bytes are missing.
testing::Matcher<std::vector<std::string>> say_cut_short(const std::string& protocol) {
  return Contains(protocol + ".cut_short");
}

TEST_F(Damage, every_packet_that_is_whole_passes_without_a_note) {
  const size_t feed = file_.udp({.port = FEED_SOURCE_PORT}, FEED, every_message());
  const size_t asked =
      file_.udp(CLIENT, GAP_FILL, encode(client::GapFillRequest{.session_id = hand_made::SESSION}));
  const size_t reply = file_.udp(GAP_FILL, CLIENT, every_message());
  const Dissection dissection = dissect();
  for (const size_t number : {feed, asked, reply}) {
    EXPECT_THAT(dissection.frame(number).note_names(), IsEmpty()) << number;
  }
}

TEST_F(Damage, a_datagram_of_any_shorter_length_is_cut_short) {
  const Bytes packet = every_message(), asked = request();
  std::vector<size_t> feed, replies, requests;
  for (size_t size = 1; size < packet.size(); ++size) {
    const ByteView piece = ByteView(packet).first(size);
    feed.push_back(file_.udp({.port = FEED_SOURCE_PORT}, FEED, piece));
    replies.push_back(file_.udp(GAP_FILL, CLIENT, piece));
  }
  for (size_t size = 1; size < asked.size(); ++size) {
    requests.push_back(file_.udp(CLIENT, GAP_FILL, ByteView(asked).first(size)));
  }
  const Dissection dissection = dissect();
  for (const size_t number : feed) {
    EXPECT_EQ(dissection.frame(number).protocols(), "raw:ip:udp:quorl_tp");
    EXPECT_THAT(dissection.frame(number).note_names(), say_cut_short("quorl_tp")) << number;
  }
  for (const size_t number : replies) {
    EXPECT_EQ(dissection.frame(number).protocols(), "raw:ip:udp:quorl_gapfill");
    EXPECT_THAT(dissection.frame(number).note_names(), say_cut_short("quorl_tp")) << number;
  }
  for (const size_t number : requests) {
    const std::vector<std::string> notes = dissection.frame(number).note_names();
    EXPECT_THAT(notes, say_cut_short("quorl_gapfill")) << number;
    EXPECT_THAT(notes, Contains("quorl_gapfill.refused")) << number;
  }
}

TEST_F(Damage, a_packet_of_which_the_capture_kept_the_beginning_is_cut_short) {
  const Bytes packet = every_message(), asked = request();
  std::vector<size_t> tp, requests;
  for (size_t lost = 1; lost < packet.size(); ++lost) {
    tp.push_back(file_.udp({.port = FEED_SOURCE_PORT}, FEED, packet, lost));
    tp.push_back(file_.udp(GAP_FILL, CLIENT, packet, lost));
  }
  for (size_t lost = 1; lost < asked.size(); ++lost) {
    requests.push_back(file_.udp(CLIENT, GAP_FILL, asked, lost));
  }
  const Dissection dissection = dissect();
  for (const size_t number : tp) {
    EXPECT_THAT(dissection.frame(number).note_names(), say_cut_short("quorl_tp")) << number;
  }
  for (const size_t number : requests) {
    const std::vector<std::string> notes = dissection.frame(number).note_names();
    EXPECT_THAT(notes, say_cut_short("quorl_gapfill")) << number;
    EXPECT_THAT(notes, Not(Contains("quorl_gapfill.refused"))) << number;
  }
}

TEST_F(Damage, images_are_cut_short_where_the_capture_or_the_reader_does_not_join_segments) {
  const Bytes asked = image_request(), reply = image_reply();
  std::vector<size_t> cut;
  uint16_t port = CLIENT_PORT;
  const auto connection = [&] { return CapturedConnection(file_, {.port = ++port}, SNAP); };
  for (size_t lost = 1; lost < asked.size(); ++lost) {
    cut.push_back(connection().client_sends(asked, lost));
  }
  for (size_t lost = 1; lost < reply.size(); ++lost) {
    // A cut right behind a frame leaves whole frames, and nothing that could be missed.
    const size_t kept = reply.size() - lost;
    const size_t frame = connection().server_sends(reply, lost);
    if (kept != 11 && kept != reply.size() - 11) cut.push_back(frame);
  }
  const Dissection by_capture = dissect();
  for (const size_t number : cut) {
    EXPECT_THAT(by_capture.frame(number).note_names(), say_cut_short("quorl_snap")) << number;
  }

  file_ = CaptureFile();
  cut.clear();
  for (size_t size = 1; size < reply.size(); ++size) {
    const size_t frame = connection().server_sends(ByteView(reply).first(size));
    if (size != 11 && size != reply.size() - 11) cut.push_back(frame);
  }
  const Dissection by_reader = dissect({"-2", "-o", "tcp.desegment_tcp_streams:FALSE"});
  for (const size_t number : cut) {
    EXPECT_THAT(by_reader.frame(number).note_names(), say_cut_short("quorl_snap")) << number;
  }
}

/// A frame of DEEP SNAP with as many bytes behind its type as that, and what must be said of it.
TEST_F(Damage, whole_frames_that_are_too_short_for_their_type_are_cut_short) {
  uint16_t port = CLIENT_PORT;
  std::vector<size_t> cut, unknown;
  const auto sent = [&](char type, size_t body) {
    Bytes bytes;
    client::put_u16(bytes, static_cast<uint16_t>(body + 1));
    client::put_u8(bytes, static_cast<uint8_t>(type));
    bytes.insert(bytes.end(), body, 0);
    CapturedConnection connection(file_, {.port = ++port}, SNAP);
    return connection.server_sends(bytes);
  };
  const std::vector<std::pair<char, size_t>> needs = {
      {'r', 56}, {'e', 1}, {'s', 8}, {'x', 8}, {'d', 42}};
  for (const auto& [type, size] : needs) {
    for (size_t body = 0; body < size; ++body) cut.push_back(sent(type, body));
  }
  for (const char type : {'a', '\0', '\xff'}) unknown.push_back(sent(type, 3));
  const Dissection dissection = dissect();
  for (const size_t number : cut) {
    EXPECT_THAT(dissection.frame(number).note_names(), say_cut_short("quorl_snap")) << number;
  }
  for (const size_t number : unknown) {
    EXPECT_THAT(dissection.frame(number).note_names(), Contains("quorl_snap.malformed")) << number;
  }
}

TEST_F(Damage, blocks_that_do_not_make_a_payload_are_malformed_and_move_no_stream) {
  Bytes too_many = every_message(), too_few = every_message(), unknown = every_message(),
        long_one = every_message();
  too_many[14] += 1;
  too_few[14] -= 1;
  unknown[42] = 'Z';
  long_one[40] += 1;
  const Bytes whole = every_message();
  const auto feed = [&](const Bytes& bytes) {
    return file_.udp({.port = FEED_SOURCE_PORT}, FEED, bytes);
  };
  const size_t many = feed(too_many), few = feed(too_few), stretched = feed(long_one);
  const size_t first = feed(whole);
  const size_t other = file_.udp(GAP_FILL, CLIENT, unknown);
  const Dissection dissection = dissect();
  EXPECT_THAT(dissection.frame(many).note_names(), Contains("quorl_tp.malformed"));
  EXPECT_THAT(dissection.frame(few).note_names(), Contains("quorl_tp.malformed"));
  EXPECT_THAT(dissection.frame(stretched).note_names(), Contains("quorl_tp.malformed"));
  EXPECT_THAT(dissection.frame(first).note_names(), IsEmpty());
  EXPECT_THAT(dissection.frame(other).note_names(), Contains("quorl_deep.unknown"));
}

/// Each of these packets with some bytes changed, and bytes without any sense, wherever the
/// exchange's ports or the heuristics could take them in.
TEST_F(Damage, nothing_makes_the_dissector_fail) {
  std::mt19937 dice(20260101);  // the same packets in every run
  const auto below = [&](size_t limit) { return dice() % limit; };
  const std::vector<Bytes> whole = {every_message(), request(), image_request(), image_reply()};
  uint16_t port = CLIENT_PORT;
  for (int i = 0; i < 600; ++i) {
    Bytes bytes = whole[below(whole.size())];
    if (below(4) == 0) bytes.resize(1 + below(200));
    const size_t changes = below(4) == 0 ? bytes.size() : 1 + below(6);
    for (size_t k = 0; k < changes; ++k) {
      constexpr uint8_t EXTREMES[] = {0x00, 0x01, 0x7f, 0x80, 0xff};
      bytes[below(bytes.size())] =
          below(2) == 0 ? EXTREMES[below(5)] : static_cast<uint8_t>(below(256));
    }
    const size_t uncaptured = below(3) == 0 ? below(bytes.size()) : 0;
    const uint16_t any_port = below(3) == 0 ? uint16_t{12345} : uint16_t{0};
    const auto at = [&](Endpoint usual) {
      if (any_port != 0) usual.port = any_port;
      return usual;
    };
    (void)file_.udp({.port = FEED_SOURCE_PORT}, at(FEED), bytes, uncaptured);
    (void)file_.udp(CLIENT, at(GAP_FILL), bytes, uncaptured);
    (void)file_.udp(at(GAP_FILL), CLIENT, bytes, uncaptured);
    CapturedConnection connection(file_, {.port = ++port}, at(SNAP));
    (void)connection.client_sends(bytes, uncaptured);
    (void)connection.server_sends(bytes);
    connection.server_closes();
  }
  const Dissection dissection = dissect();  // fails the test if there is a Lua error
  EXPECT_EQ(dissection.size(), file_.frames());
}

TEST_F(Damage, a_dissector_that_failed_would_be_found_out) {
  const client::TempDirectory directory;
  const std::string script = directory.path() + "/faulty.lua";
  std::ofstream(script) << "local faulty = Proto('faulty', 'Faulty')\n"
                           "function faulty.dissector(tvb) return tvb(100000, 1) end\n"
                           "DissectorTable.get('udp.port'):add(9, faulty)\n";
  (void)file_.udp(CLIENT, {.port = 9}, request());
  EXPECT_THROW((void)dissect({"-X", "lua_script:" + script}), client::WireError);
  EXPECT_NO_THROW((void)dissect());
}

}  // namespace
}  // namespace share
