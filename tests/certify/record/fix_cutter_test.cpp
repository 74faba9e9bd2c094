#include "certify/record/fix_cutter.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <ctime>

#include "certify/record/exchange_framing.h"
#include "quorl/client/fix_message.h"

namespace client = quorl::client;

namespace certify {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

std::string message(const std::string& text) { return client::frame_fix("35=0|58=" + text + "|"); }

struct Heard {
  std::vector<std::string> frames;
  uint64_t garbage = 0;
  std::string garbage_bytes;
  std::string unfinished;

  void take(const std::vector<FixCutter::Cut>& cuts) {
    for (const auto& cut : cuts) {
      if (cut.is_frame) {
        frames.push_back(cut.bytes);
      } else {
        garbage += cut.size;
        garbage_bytes += cut.bytes;
      }
    }
  }
};

Heard hear(std::string_view bytes, size_t piece) {
  FixCutter cutter;
  Heard heard;
  for (; !bytes.empty(); bytes.remove_prefix(std::min(piece, bytes.size()))) {
    heard.take(cutter.append(bytes.substr(0, piece)));
  }
  if (auto rest = cutter.end()) heard.unfinished = rest->bytes;
  return heard;
}

/// Step by step as docs/fix.md has it, all bytes at once.
std::vector<std::string> frames_taken_by_the_book(std::string buffer) {
  std::vector<std::string> frames;
  while (true) {
    const size_t prefix = buffer.find("8=FIX");
    if (prefix == std::string::npos) return frames;
    buffer.erase(0, prefix);
    const size_t field = buffer.find(
        "\x01"
        "9=");
    if (field == std::string::npos) return frames;
    const size_t end = buffer.find('\x01', field + 3);
    if (end == std::string::npos) return frames;
    uint64_t body = 0;
    try {
      body = std::stoull(buffer.substr(field + 3, end - field - 3));
    } catch (const std::logic_error&) {
      buffer.erase(0, 1);
      continue;
    }
    if (body > buffer.size() || buffer.size() < end + body + 8) return frames;
    const std::string frame = buffer.substr(0, end + body + 8);
    buffer.erase(0, frame.size());
    const std::string trailer = frame.substr(end + body + 1);
    unsigned sum = 0;
    for (const char c : frame.substr(0, end + body + 1)) sum += static_cast<unsigned char>(c);
    if (trailer.starts_with("10=") &&
        std::strtol(trailer.substr(3, 3).c_str(), nullptr, 10) == static_cast<long>(sum % 256)) {
      frames.push_back(frame);
    }
  }
}

TEST(FixCutter, FramesAndGarbageAreTheSameInPiecesOfEverySize) {
  const std::string bytes = "xx" + message("a") + message("b") + "garbage 8=FI" + message("c") +
                            client::with_soh("8=FIX.4.2|9=abc|35=0|10=000|") + message("d") +
                            client::with_soh("8=FIX.4.2|9=4|35=0|10=161|") + message("e") +
                            "8=FIX.4";
  const Heard whole = hear(bytes, bytes.size());
  EXPECT_THAT(whole.frames, SizeIs(6));
  EXPECT_EQ(whole.unfinished, "8=FIX.4");
  for (size_t piece = 1; piece < bytes.size(); ++piece) {
    const Heard cut = hear(bytes, piece);
    EXPECT_EQ(cut.frames, whole.frames) << piece;
    EXPECT_EQ(cut.garbage, whole.garbage) << piece;
    EXPECT_EQ(cut.garbage_bytes, whole.garbage_bytes) << piece;
    EXPECT_EQ(cut.unfinished, whole.unfinished) << piece;
  }
}

TEST(FixCutter, ACutAtEveryByteLosesNothing) {
  const std::string bytes = message("a") + message("b");
  for (size_t cut = 0; cut <= bytes.size(); ++cut) {
    FixCutter cutter;
    Heard heard;
    heard.take(cutter.append(bytes.substr(0, cut)));
    heard.take(cutter.append(bytes.substr(cut)));
    EXPECT_THAT(heard.frames, ElementsAre(message("a"), message("b"))) << cut;
    EXPECT_EQ(heard.garbage, 0U);
    EXPECT_FALSE(cutter.end());
  }
}

TEST(FixCutter, APrefixInPiecesIsMarked) {
  const std::string bytes = message("a");
  for (size_t cut = 1; cut < bytes.size(); ++cut) {
    FixCutter cutter;
    cutter.append(bytes.substr(0, cut));
    const auto cuts = cutter.append(bytes.substr(cut));
    ASSERT_THAT(cuts, SizeIs(1));
    EXPECT_EQ(cuts[0].prefix_split, cut < 5) << cut;
  }
}

TEST(FixCutter, WhatTheExchangeTakesIsWhatTheBookSays) {
  uint32_t state = 7;
  const auto random = [&state](uint32_t below) {
    state = state * 1664525U + 1013904223U;
    return (state >> 8) % below;
  };
  const std::vector<std::string> pieces = {message("a"),
                                           message("bb"),
                                           "8=FIX",
                                           "8=",
                                           client::with_soh("|9="),
                                           "5",
                                           "\x01",
                                           "x",
                                           " ",
                                           client::with_soh("8=FIX.4.2|9=5|35=0|10=161|"),
                                           client::with_soh("8=FIX|9=x8=FIX.4.2|9=5|"),
                                           client::with_soh("35=0|10=161|"),
                                           client::with_soh("8=FIX.4.2|9=20|"),
                                           "-",
                                           "99999999999999999999"};
  for (int round = 0; round < 3'000; ++round) {
    std::string bytes;
    for (uint32_t i = random(14); i > 0; --i) {
      bytes += pieces[random(static_cast<uint32_t>(pieces.size()))];
    }
    std::vector<std::string> taken;
    for (const std::string& frame : hear(bytes, 1 + random(9)).frames) {
      if (has_taken_checksum(frame)) taken.push_back(frame);
    }
    EXPECT_EQ(taken, frames_taken_by_the_book(bytes)) << client::with_bars(bytes);
  }
}

TEST(FixCutter, ATooLongLengthHoldsBackWhatFollows) {
  FixCutter cutter;
  EXPECT_THAT(cutter.append(client::with_soh("8=FIX.4.2|9=999999999|35=0|10=161|")), IsEmpty());
  EXPECT_THAT(cutter.append(message("a")), IsEmpty());
  const auto rest = cutter.end();
  ASSERT_TRUE(rest);
  EXPECT_FALSE(rest->is_frame);
  EXPECT_EQ(rest->size, 34 + message("a").size());
  EXPECT_TRUE(rest->bytes.starts_with("8=FIX.4.2"));
}

TEST(FixCutter, AFrameAboveTheMostIsCountedAndTheNextOneHeard) {
  const std::string large = message(std::string(FixCutter::MOST, 'x'));
  FixCutter cutter;
  Heard heard;
  for (size_t at = 0; at < large.size(); at += 5000) {
    heard.take(cutter.append(std::string_view(large).substr(at, 5000)));
  }
  heard.take(cutter.append(message("a")));
  EXPECT_THAT(heard.frames, ElementsAre(message("a")));
  EXPECT_EQ(heard.garbage, large.size());
  EXPECT_THAT(heard.garbage_bytes, SizeIs(FixCutter::MOST_GARBAGE));
}

TEST(FixCutter, AFrameThatNeverSaysItsLengthIsNotKept) {
  FixCutter cutter;
  cutter.append("8=FIX");
  for (int i = 0; i < 300; ++i) cutter.append(std::string(10'000, 'x'));
  EXPECT_THAT(cutter.append(client::with_soh("|9=4|ABCD10=000|")), SizeIs(1));
  EXPECT_THAT(cutter.append(message("a")), SizeIs(1));
}

TEST(FixCutter, ALengthOfAMillionDigitsIsNone) {
  FixCutter cutter;
  cutter.append(client::with_soh("8=FIX.4.2|9="));
  for (int i = 0; i < 110; ++i) cutter.append(std::string(10'000, '0'));
  Heard heard;
  heard.take(cutter.append(client::with_soh("5|") + message("a")));
  EXPECT_THAT(heard.frames, ElementsAre(message("a")));
}

/// Bytes that come one by one must not be searched again and again. The limit is a hundred times
/// what it takes, and a thousandth of what a search from the start for every byte would.
TEST(FixCutter, MegabytesOfDribblesCostAsMuchAsTheirBytes) {
  const std::clock_t began = std::clock();  // of the processor: the machine may be busy
  for (const std::string& bytes :
       {client::with_soh("8=FIX.4.2|9=1000000|") + std::string(999'000, 'x'),
        "8=FIX" + std::string(999'000, 'x'),
        client::with_soh("8=FIX|9=") + std::string(999'000, '1'), std::string(999'000, '8')}) {
    EXPECT_THAT(hear(bytes, 1).frames, IsEmpty());
  }
  std::string lures;
  while (lures.size() < 1'000'000) lures += client::with_soh("8=FIX|9=x8=FIX");
  EXPECT_THAT(hear(lures, lures.size()).frames, IsEmpty());
  EXPECT_LT((std::clock() - began) / CLOCKS_PER_SEC, 30);
}

}  // namespace
}  // namespace certify
