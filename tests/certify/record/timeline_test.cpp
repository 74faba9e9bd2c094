#include "certify/record/timeline.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "quorl/client/temp_directory.h"

namespace client = quorl::client;

namespace certify {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

constexpr TimeNs DAY = 86'400 * SECOND;
constexpr TimeNs NOON = 20'000 * DAY + DAY / 2;
constexpr TimeNs MIDNIGHT = 20'000 * DAY;

class TimelineTest : public testing::Test {
 protected:
  void say(TimeNs at, const std::string& what) { timeline.on_event({at, PlanSaid{what}}); }
  void decide(TimeNs at, const std::string& cl_ord_id) {
    client::OrderEvent order;
    order.ev = "new";
    order.cl = cl_ord_id;
    timeline.on_event({at, Decision{order}});
  }

  std::string content(const std::string& name) const {
    std::ifstream file(folder.path() + "/" + name);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
  }
  /// The third word of each line.
  std::vector<std::string> words() const {
    std::vector<std::string> words;
    std::istringstream lines(content("timeline.txt"));
    for (std::string line; std::getline(lines, line);) {
      std::istringstream line_words(line);
      std::string time, subject, word;
      line_words >> time >> subject >> word;
      if (subject == "decided") line_words >> word;
      words.push_back(word);
    }
    return words;
  }

  client::TempDirectory folder;
  Timeline timeline{folder.path()};
};

TEST_F(TimelineTest, ALineIsATimeAndAText) {
  say(NOON + 1'234'567, "step 1");
  timeline.finish();
  EXPECT_EQ(content("timeline.txt"), "12:00:00.001234  plan      step 1\n");
  EXPECT_FALSE(std::filesystem::exists(folder.path() + "/timeline.decisions"));
  EXPECT_FALSE(std::filesystem::exists(folder.path() + "/timeline.txt.merged"));
  EXPECT_EQ(timeline.failure(), "");
}

TEST_F(TimelineTest, DecisionsThatComeLateStandInTheirPlaces) {
  say(NOON + 10'000, "a");
  say(NOON + 30'000, "c");
  say(NOON + 50'000, "e");
  decide(NOON + 5'000, "0");
  decide(NOON + 20'000, "b");
  decide(NOON + 40'000, "d");
  decide(NOON + 60'000, "f");
  timeline.finish();
  EXPECT_THAT(words(), ElementsAre("0", "a", "b", "c", "d", "e", "f"));
}

TEST_F(TimelineTest, AtOneTimeTheDecisionIsFirstAndTheOthersKeepTheirOrder) {
  say(NOON, "b");
  say(NOON + 1, "c");  // the same microsecond
  decide(NOON, "a");
  timeline.finish();
  EXPECT_THAT(words(), ElementsAre("a", "b", "c"));
}

TEST_F(TimelineTest, LinesThatComeLateStandInTheirPlaces) {
  std::vector<std::string> expected;
  for (int i = 0; i < 128; ++i) {
    say(NOON + (i ^ 7) * MILLISECOND, std::to_string(i ^ 7));
    expected.push_back(std::to_string(i));
  }
  timeline.finish();
  EXPECT_EQ(words(), expected);
}

TEST_F(TimelineTest, MidnightIsBehindTheEvening) {
  say(MIDNIGHT - SECOND, "a");
  say(MIDNIGHT + SECOND, "c");
  decide(MIDNIGHT, "b");
  decide(MIDNIGHT + 2 * SECOND, "d");
  timeline.finish();
  EXPECT_THAT(words(), ElementsAre("a", "b", "c", "d"));
}

TEST_F(TimelineTest, HeartbeatsOfTheFeedAndCountersAreLeftOut) {
  client::TpPacket packet;
  packet.header.first_seq = 9;
  timeline.on_event({NOON, FeedHeard{packet}});
  timeline.on_event({NOON, Counted{}});
  packet.header.message_count = 1;
  timeline.on_event({NOON, FeedHeard{packet}});
  timeline.finish();
  EXPECT_EQ(content("timeline.txt"), "12:00:00.000000  feed      packet 9\n");
}

TEST_F(TimelineTest, WhatIsFlushedOutlivesAKilledRun) {
  say(NOON, "a");
  say(NOON + SECOND, "b");  // half a second later all is written
  EXPECT_THAT(words(), ElementsAre("a", "b"));
  say(NOON + SECOND, "c");
  decide(NOON, "d");
  timeline.flush();
  EXPECT_THAT(words(), ElementsAre("a", "b", "c"));
  EXPECT_THAT(content("timeline.decisions"), testing::HasSubstr("decided"));
}

TEST_F(TimelineTest, AHundredThousandLinesOfBothKindsAreMerged) {
  constexpr int COUNT = 50'000;
  for (int i = 0; i < COUNT; ++i) {
    say(NOON + 2 * i * MILLISECOND, std::to_string(2 * i));
    // A second late.
    if (i >= 500)
      decide(NOON + (2 * (i - 500) + 1) * MILLISECOND, std::to_string(2 * (i - 500) + 1));
  }
  timeline.finish();
  const auto all = words();
  ASSERT_THAT(all, SizeIs(2 * COUNT - 500));
  for (size_t i = 0; i < 2 * (COUNT - 500); ++i) ASSERT_EQ(all[i], std::to_string(i));
}

TEST_F(TimelineTest, AnEmptyRunIsAnEmptyFile) {
  timeline.finish();
  EXPECT_EQ(content("timeline.txt"), "");
  EXPECT_EQ(timeline.failure(), "");
}

TEST(TimelineFailure, AFullDiskIsSaidOnceAndTheRunGoesOn) {
  const client::TempDirectory folder;
  std::filesystem::create_symlink("/dev/full", folder.path() + "/timeline.txt");
  Timeline timeline(folder.path());
  timeline.on_event({NOON, PlanSaid{"a"}});
  const std::string failure = timeline.failure();
  EXPECT_EQ(failure, "cannot write " + folder.path() + "/timeline.txt: No space left on device");
  timeline.on_event({NOON + SECOND, PlanSaid{"b"}});
  timeline.finish();
  EXPECT_EQ(timeline.failure(), failure);
}

TEST(TimelineFailure, AFolderThatIsNotThereIsNamed) {
  try {
    const Timeline timeline("/nowhere/at/all");
    FAIL() << "made";
  } catch (const CannotRecord& error) {
    EXPECT_STREQ(error.what(),
                 "cannot write /nowhere/at/all/timeline.txt: No such file or directory");
  }
}

}  // namespace
}  // namespace certify
