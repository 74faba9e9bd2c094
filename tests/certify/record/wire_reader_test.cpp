#include "certify/record/wire_reader.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "quorl/client/fix_message.h"

namespace client = quorl::client;

namespace certify {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

constexpr uint32_t SESSION = 7;
constexpr Line FIX_LINE{Service::FIX, 1};
constexpr Line IMAGE_LINE{Service::IMAGES, 1};
constexpr Line GAP_LINE{Service::GAP_FILL, 3};

class WireReaderTest : public testing::Test, protected EventListener {
 protected:
  void on_event(const Event& event) override {
    lines.push_back(describe(event));
    events.push_back(event);
  }

  void pass(Line line, Party from, std::string_view bytes) {
    reader.on_passed({.line = line, .from = from, .bytes = bytes, .taken = now, .told = now + 5});
    ++now;
  }
  void end(Line line, Party by, bool reset = false, bool by_link = false) {
    reader.on_ended({.line = line, .by = by, .reset = reset, .by_link = by_link, .at = now++});
  }
  template <typename Kind>
  const Kind& only() {
    EXPECT_THAT(lines, SizeIs(1));
    return std::get<Kind>(events.at(0).what);
  }

  std::vector<std::string> lines;
  std::vector<Event> events;
  TimeNs now = 1000;
  WireReader reader{*this, SESSION};
};

std::string le(uint64_t value, size_t size) {
  std::string bytes;
  for (size_t i = 0; i < size; ++i) bytes += static_cast<char>(value >> 8 * i);
  return bytes;
}

std::string gap_request(const client::GapFillRequest& request) {
  return client::to_text(client::encode(request));
}
std::string image_request(const client::SnapRequest& request) {
  return client::to_text(client::encode(request));
}
std::string image_frame(const std::string& body) { return le(body.size(), 2) + body; }
std::string image_reply(uint64_t seq, const std::string& data) {
  return image_frame("s" + le(22 + data.size(), 8)) + data + image_frame("x" + le(seq, 8));
}

// --- FIX ---

TEST_F(WireReaderTest, AFixConnectionFromItsBeginningToItsEnd) {
  reader.on_opened(FIX_LINE, true, now);
  pass(FIX_LINE, Party::CLIENT, "??" + client::frame_fix("35=A|34=1|"));
  pass(FIX_LINE, Party::EXCHANGE, client::frame_fix("35=A|34=1|") + "8=FIX.4.2\x01");
  end(FIX_LINE, Party::EXCHANGE, true);
  end(FIX_LINE, Party::CLIENT);
  EXPECT_THAT(
      lines,
      ElementsAre("FIX 1     connected", "FIX 1   > no message: 2 bytes '?\?'",
                  "FIX 1   > logon           35=A|34=1", "FIX 1   < logon           35=A|34=1",
                  "FIX 1   < an unfinished message: 10 bytes '8=FIX.4.2\\x01'",
                  "FIX 1   < reset by the exchange", "FIX 1   > ended by the client"));
}

TEST_F(WireReaderTest, AMessageIsHeardWhenItsLastByteIs) {
  const std::string message = client::frame_fix("35=0|");
  pass(FIX_LINE, Party::EXCHANGE, message.substr(0, 10));
  EXPECT_THAT(lines, IsEmpty());
  now = 5000;
  pass(FIX_LINE, Party::EXCHANGE, message.substr(10));
  EXPECT_EQ(only<FixHeard>().taken, 5000);
  EXPECT_EQ(events[0].at, 5005);
}

TEST_F(WireReaderTest, ConnectionsAndWaysDoNotMix) {
  const std::string message = client::frame_fix("35=0|");
  const Line other{Service::FIX, 2};
  pass(FIX_LINE, Party::CLIENT, message.substr(0, 10));
  pass(other, Party::CLIENT, message);
  pass(FIX_LINE, Party::EXCHANGE, message);
  pass(FIX_LINE, Party::CLIENT, message.substr(10));
  EXPECT_THAT(lines, ElementsAre("FIX 2   > heartbeat       35=0", "FIX 1   < heartbeat       35=0",
                                 "FIX 1   > heartbeat       35=0"));
}

TEST_F(WireReaderTest, AFrameWithABadCheckSumIsOneMessageThatTheExchangeDrops) {
  pass(FIX_LINE, Party::CLIENT, client::with_soh("8=FIX.4.2|9=5|35=0|10=000|"));
  EXPECT_FALSE(only<FixHeard>().message.taken_by_exchange());
}

TEST_F(WireReaderTest, WhoseHalfMessageWasCutShortIsTold) {
  const auto last_half = [&](uint32_t number, bool exchange_first, bool by_link) {
    const Line line{Service::FIX, number};
    reader.on_opened(line, true, now);
    pass(line, Party::CLIENT, "8=FIX.4.2");
    if (exchange_first) end(line, Party::EXCHANGE);
    end(line, Party::CLIENT, false, by_link);
    return std::get<FixGarbage>(events.at(events.size() - 2).what);
  };
  EXPECT_FALSE(last_half(1, false, false).cut_short);
  EXPECT_TRUE(last_half(2, true, false).cut_short);
  EXPECT_TRUE(last_half(3, false, true).cut_short);
  EXPECT_TRUE(last_half(4, false, true).at_end);
}

TEST_F(WireReaderTest, WhatNeverReachedTheClientIsSaid) {
  reader.on_ended({.line = FIX_LINE, .by = Party::EXCHANGE, .by_link = true, .lost = 12, .at = 1});
  EXPECT_THAT(lines,
              ElementsAre("FIX 1   < ended by the link",
                          "link      FIX 1: 12 bytes of the exchange never reached the client"));
}

// --- Gap fill ---

TEST_F(WireReaderTest, AGoodGapRequest) {
  pass(GAP_LINE, Party::CLIENT, gap_request({.session_id = SESSION, .ranges = {{5, 9}, {10, 12}}}));
  EXPECT_TRUE(only<GapRequested>().well_formed);
  EXPECT_THAT(lines, ElementsAre("gap 3   > asks for 5 to 9, 10 to 12"));
}

TEST_F(WireReaderTest, GapRequestsThatTheExchangeDoesNotAnswer) {
  const auto ask = [&](const client::GapFillRequest& request) {
    pass(GAP_LINE, Party::CLIENT, gap_request(request));
    EXPECT_FALSE(std::get<GapRequested>(events.back().what).well_formed);
  };
  ask({.session_id = 8});
  ask({.version = 2, .session_id = SESSION});
  ask({.kind = 2, .session_id = SESSION});
  ask({.protocol_id = 1, .session_id = SESSION});
  ask({.channel_id = 2, .session_id = SESSION});
  ask({.session_id = SESSION, .ranges = {{5, 9}, {9, 12}}});
  ask({.session_id = SESSION, .ranges = {{9, 5}}});
  ask({.session_id = SESSION, .ranges = {{5, 9}}, .range_count = 2});
  ask({.session_id = SESSION, .range_count = 0xffffffff});
  pass(GAP_LINE, Party::CLIENT, "");
  pass(GAP_LINE, Party::CLIENT, "123456789012345");
  const std::string malformed = "gap 3   > malformed request: ";
  EXPECT_THAT(
      lines, ElementsAre(
                 malformed + "its session is 8, not 7", malformed + "its version is 2, not 1",
                 malformed + "its kind is 2, not 1", malformed + "its protocol id is 1, not 32772",
                 malformed + "its channel is 2, not 1",
                 malformed + "the range 9 to 12 does not lie behind 5 to 9",
                 malformed + "the range 9 to 5 ends ahead of its first",
                 malformed + "it announces 2 ranges and has the bytes of 1, of 2048 bytes at most",
                 malformed +
                     "it announces 4294967295 ranges and has the bytes of 0, of 2048 bytes at most",
                 malformed + "it has 0 bytes, its head alone has 16",
                 malformed + "it has 15 bytes, its head alone has 16"));
}

TEST_F(WireReaderTest, AGapRequestHasRoomFor127Ranges) {
  client::GapFillRequest request{.session_id = SESSION};
  for (uint64_t i = 0; i < 127; ++i) request.ranges.push_back({2 * i, 2 * i});
  pass(GAP_LINE, Party::CLIENT, gap_request(request));
  EXPECT_TRUE(std::get<GapRequested>(events.back().what).well_formed);
  request.ranges.push_back({1000, 1000});
  pass(GAP_LINE, Party::CLIENT, gap_request(request));
  EXPECT_FALSE(std::get<GapRequested>(events.back().what).well_formed);
  EXPECT_EQ(std::get<GapRequested>(events.back().what).ranges.size(), 128U);  // it says too many
}

TEST_F(WireReaderTest, GapRepliesArePackets) {
  const client::TpHeader header{.version = 1,
                                .protocol_id = client::DEEP_PROTOCOL_ID,
                                .channel_id = 1,
                                .session_id = SESSION,
                                .stream_offset = 12,
                                .first_seq = 5,
                                .send_time_ns = 1};
  pass(GAP_LINE, Party::EXCHANGE, client::to_text(client::encode_tp_packet(header, {{1, 2}, {3}})));
  pass(GAP_LINE, Party::EXCHANGE, "rubbish");
  ASSERT_THAT(lines, SizeIs(2));
  EXPECT_EQ(lines[0], "gap 3   < brings 5 to 6");
  EXPECT_THAT(lines[1], testing::StartsWith("link      gap fill 3: a reply that is no packet: "));
}

// --- Images ---

TEST_F(WireReaderTest, AnImageInPiecesOfEverySize) {
  const std::string request = image_request({.session_id = SESSION, .minimum_seq = 70});
  const std::string reply =
      image_reply(71, image_frame("d" + std::string(3000, 'z')) + image_frame("d"));
  for (size_t piece = 1; piece < reply.size(); piece = piece < 70 ? piece + 1 : 2 * piece) {
    lines.clear();
    const Line line{Service::IMAGES, static_cast<uint32_t>(piece)};
    for (size_t at = 0; at < request.size(); at += piece) {
      pass(line, Party::CLIENT, request.substr(at, piece));
    }
    for (size_t at = 0; at < reply.size(); at += piece) {
      pass(line, Party::EXCHANGE, reply.substr(at, piece));
    }
    end(line, Party::EXCHANGE);
    end(line, Party::CLIENT);
    const std::string subject = "image " + std::to_string(piece);
    ASSERT_THAT(lines, SizeIs(2)) << piece;
    EXPECT_THAT(lines[0], testing::EndsWith("> asks for an image at 70 or later"));
    EXPECT_THAT(lines[1],
                testing::EndsWith("< image at 71, " + std::to_string(reply.size()) + " bytes"));
  }
}

TEST_F(WireReaderTest, EveryCutOfAnImageIsABrokenImage) {
  const std::string reply = image_reply(71, image_frame("d1234"));
  for (uint32_t size = 0; size < reply.size(); ++size) {
    const Line line{Service::IMAGES, size};
    pass(line, Party::CLIENT, image_request({.session_id = SESSION}));
    pass(line, Party::EXCHANGE, reply.substr(0, size));
    end(line, Party::EXCHANGE);
    const auto& replied = std::get<ImageReplied>(events.back().what);
    EXPECT_FALSE(replied.complete);
    EXPECT_FALSE(replied.client_left);
    EXPECT_EQ(replied.bytes, size);
  }
}

TEST_F(WireReaderTest, AnImageThatIsNotAsLongAsItSaysIsNotComplete) {
  pass(IMAGE_LINE, Party::CLIENT, image_request({.session_id = SESSION}));
  pass(IMAGE_LINE, Party::EXCHANGE, image_frame("s" + le(23, 8)) + image_frame("x" + le(71, 8)));
  EXPECT_FALSE(std::get<ImageReplied>(events.back().what).complete);
}

TEST_F(WireReaderTest, ImagesThatAreRefused) {
  pass(IMAGE_LINE, Party::CLIENT, image_request({.session_id = SESSION, .minimum_seq = 99}));
  pass(IMAGE_LINE, Party::EXCHANGE, image_frame("eR"));
  end(IMAGE_LINE, Party::EXCHANGE);
  EXPECT_THAT(lines, ElementsAre("image 1 > asks for an image at 99 or later",
                                 "image 1 < refused: R, the feed is not so far yet"));
}

TEST_F(WireReaderTest, ImageRequestsThatAreRefusedForTheirForm) {
  uint32_t number = 0;
  const auto ask = [&](const std::string& bytes) {
    pass({Service::IMAGES, ++number}, Party::CLIENT, bytes);
    EXPECT_FALSE(std::get<ImageRequested>(events.back().what).well_formed);
    return std::get<ImageRequested>(events.back().what).flaw;
  };
  EXPECT_EQ(ask(image_request({.type = 'q', .session_id = SESSION})), "its type is 113, not 'r'");
  EXPECT_EQ(ask(image_frame("r")), "its length is 1, below 57");
  EXPECT_EQ(ask(image_request({.name = "", .session_id = SESSION})), "its name is empty");
  EXPECT_EQ(ask(image_request({.channel_id = 2, .session_id = SESSION})),
            "its channel is 2, not 1");
  EXPECT_EQ(ask(image_request({.session_id = 8})), "its session is 8, not 7");
}

TEST_F(WireReaderTest, AnImageRequestThatNeverIsWholeIsNamedAtItsEnd) {
  pass(IMAGE_LINE, Party::CLIENT, image_request({.session_id = SESSION}).substr(0, 12));
  end(IMAGE_LINE, Party::CLIENT);
  end(IMAGE_LINE, Party::EXCHANGE);
  EXPECT_THAT(lines,
              ElementsAre("image 1 > malformed request: 12 bytes of it had come, of 59, when "
                          "the client ended its side"));
}

TEST_F(WireReaderTest, AnImageRequestOfLengthZeroIsNeverWhole) {
  pass(IMAGE_LINE, Party::CLIENT, std::string(100'000, '\0'));
  end(IMAGE_LINE, Party::EXCHANGE);
  EXPECT_THAT(lines,
              ElementsAre("image 1 > malformed request: 2 bytes of it had come, of 2, and a "
                          "length of 0 is never whole, when the exchange gave it up after 10 s"));
}

TEST_F(WireReaderTest, WhoEndsItsSideBehindTheRequestIsNotAnswered) {
  pass(IMAGE_LINE, Party::CLIENT, image_request({.session_id = SESSION}));
  end(IMAGE_LINE, Party::CLIENT);
  end(IMAGE_LINE, Party::EXCHANGE);
  EXPECT_THAT(lines, ElementsAre("image 1 > asks for an image",
                                 "image 1 < no answer: the client ended its side first"));
}

TEST_F(WireReaderTest, ALinkThatIsCutIsNobodysFault) {
  pass(IMAGE_LINE, Party::CLIENT, image_request({.session_id = SESSION}));
  end(IMAGE_LINE, Party::CLIENT, true, true);
  EXPECT_FALSE(std::get<ImageReplied>(events.back().what).client_left);
  const Line half{Service::IMAGES, 2};
  lines.clear();
  pass(half, Party::CLIENT, "12");
  end(half, Party::CLIENT, true, true);
  EXPECT_THAT(lines, IsEmpty());
}

TEST_F(WireReaderTest, WhoOnlyConnectsForAnImageAsksForNothing) {
  reader.on_opened(IMAGE_LINE, true, now);
  end(IMAGE_LINE, Party::CLIENT);
  end(IMAGE_LINE, Party::EXCHANGE);
  EXPECT_THAT(lines, IsEmpty());
}

}  // namespace
}  // namespace certify
