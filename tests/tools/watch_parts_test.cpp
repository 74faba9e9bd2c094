// What quorl-watch thinks, on packets and clocks in the test's hand.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "tests/client/hand_made.h"
#include "tools/seconds.h"
#include "tools/watch/feed_tracker.h"
#include "tools/watch/line_limiter.h"
#include "tools/watch/silence_watch.h"
#include "tools/watch/view.h"

namespace tools {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

using SaidLines = std::vector<std::string>;

constexpr uint64_t LEVEL_BLOCK = 32;
constexpr std::chrono::steady_clock::time_point BEGIN{std::chrono::hours(100)};

client::TpPacket packet(uint64_t offset, uint64_t announced, size_t messages,
                        uint32_t session = hand_made::SESSION) {
  client::TpHeader header = hand_made::header(offset, announced);
  header.session_id = session;
  return client::decode_tp_packet(
      client::encode_tp_packet(header, std::vector<client::Bytes>(messages, hand_made::level({}))));
}

/// A tracker that has heard message 10 at offset 1000, and knows that 11 is next at 1032.
class Tracker : public testing::Test {
 protected:
  Tracker() {
    (void)tracker.follow(packet(1000, 10, 0));
    (void)tracker.follow(packet(1000, 10, 1));
  }

  SaidLines finds(uint64_t offset, uint64_t announced, size_t messages) {
    return tracker.follow(packet(offset, announced, messages)).findings;
  }

  FeedTracker tracker;
};

TEST(FirstPacket, tells_the_session_and_leaves_the_number_in_doubt_until_more_is_known) {
  FeedTracker tracker;
  const Judgement first = tracker.follow(packet(1000, 10, 2));
  EXPECT_THAT(first.findings, ElementsAre("session 77"));
  EXPECT_EQ(first.first_seq, std::nullopt);  // 9 or 10
  // 11 or 12 is due; a packet that announces 11 can only begin with 11.
  EXPECT_EQ(tracker.follow(packet(1064, 11, 1)).first_seq, 11U);
  EXPECT_EQ(tracker.missing().text(), "0");
}

TEST(FirstPacket, of_a_run_begins_with_number_one_without_doubt) {
  FeedTracker tracker;
  EXPECT_EQ(tracker.follow(packet(0, 1, 2)).first_seq, 1U);
}

TEST_F(Tracker, finds_nothing_where_packets_follow_each_other) {
  EXPECT_THAT(finds(1032, 11, 2), IsEmpty());
  EXPECT_THAT(finds(1096, 13, 0), IsEmpty());
  EXPECT_THAT(finds(1096, 13, 1), IsEmpty());
  EXPECT_EQ(tracker.counts().gaps, 0U);
  EXPECT_EQ(tracker.counts().heartbeats, 2U);
  EXPECT_EQ(tracker.counts().messages, 4U);
}

TEST_F(Tracker, takes_a_number_one_too_high_at_the_right_offset_for_no_gap) {
  const Judgement judgement = tracker.follow(packet(1032, 12, 2));
  EXPECT_THAT(judgement.findings, IsEmpty());
  EXPECT_EQ(judgement.first_seq, 11U);
  EXPECT_THAT(finds(1096, 13, 1), IsEmpty());  // the overlap by one
}

TEST_F(Tracker, says_a_number_that_is_neither_true_nor_one_too_high) {
  EXPECT_THAT(finds(1032, 13, 1),
              ElementsAre("wrong number: the packet at stream offset 1032 announces 13 where 11 is "
                          "due"));
  EXPECT_THAT(finds(1064, 10, 1), testing::SizeIs(1));
}

TEST_F(Tracker, tells_a_gap_by_the_stream_offset) {
  const Judgement judgement = tracker.follow(packet(1032 + 8 * LEVEL_BLOCK, 19, 3));
  EXPECT_THAT(judgement.findings,
              ElementsAre("gap: expected 11, packet starts at 19: 8 messages missing"));
  EXPECT_EQ(judgement.first_seq, 19U);
  EXPECT_EQ(tracker.counts().gaps, 1U);
  EXPECT_EQ(tracker.missing().text(), "8");
  EXPECT_THAT(finds(1032 + 11 * LEVEL_BLOCK, 22, 1), IsEmpty());
}

TEST_F(Tracker, tells_one_missing_message_in_the_singular) {
  EXPECT_THAT(finds(1032 + LEVEL_BLOCK, 12, 1),
              ElementsAre("gap: expected 11, packet starts at 12: 1 message missing"));
}

TEST_F(Tracker, admits_doubt_where_a_full_packet_may_be_missing) {
  // 45 level updates are 1440 bytes: behind a packet as full as that a number can be one too high.
  const Judgement judgement = tracker.follow(packet(1032 + 45 * LEVEL_BLOCK, 56, 1));
  EXPECT_THAT(judgement.findings,
              ElementsAre("gap: expected 11, packet announces 56: 44 or 45 messages missing"));
  EXPECT_EQ(judgement.first_seq, std::nullopt);
  // One byte below the least payload of a full packet there is none.
  FeedTracker other;
  (void)other.follow(packet(1000, 10, 0));
  EXPECT_THAT(other.follow(packet(2420, 54, 1)).findings,
              ElementsAre("gap: expected 10, packet starts at 54: 44 messages missing"));
  FeedTracker third;
  (void)third.follow(packet(1000, 10, 0));
  EXPECT_THAT(third.follow(packet(2421, 54, 1)).findings,
              ElementsAre("gap: expected 10, packet announces 54: 43 or 44 messages missing"));
}

TEST_F(Tracker, settles_by_the_bytes_what_the_numbers_leave_open) {
  FeedTracker tracker_in_doubt;
  (void)tracker_in_doubt.follow(packet(1000, 10, 1));  // 10 or 11 is next
  // 40 bytes can be one or two messages, and by the numbers 1 or 2 are missing.
  EXPECT_THAT(tracker_in_doubt.follow(packet(1072, 12, 1)).findings,
              ElementsAre("gap: expected 10 or 11, packet starts at 12: 1 or 2 messages missing"));
  FeedTracker other;
  (void)other.follow(packet(1000, 10, 1));
  // 20 bytes hold one message at most.
  EXPECT_THAT(other.follow(packet(1052, 12, 1)).findings,
              ElementsAre("gap: expected 10 or 11, packet starts at 12: 1 message missing"));
}

TEST_F(Tracker, finds_a_gap_behind_which_a_heartbeat_comes) {
  EXPECT_THAT(finds(1032 + 2 * LEVEL_BLOCK, 13, 0),
              ElementsAre("gap: expected 11, packet starts at 13: 2 messages missing"));
}

TEST_F(Tracker, calls_a_packet_that_comes_again_a_duplicate) {
  EXPECT_THAT(finds(1000, 10, 1), ElementsAre("duplicate: the packet from 10 has come before"));
  EXPECT_EQ(tracker.counts().duplicates, 1U);
  EXPECT_EQ(tracker.counts().out_of_order, 0U);
  EXPECT_THAT(finds(1032, 11, 1), IsEmpty());  // and goes on where it was
}

TEST_F(Tracker, calls_a_packet_that_fills_a_gap_out_of_order_once_and_then_a_duplicate) {
  (void)finds(1032 + 2 * LEVEL_BLOCK, 13, 1);
  EXPECT_THAT(finds(1032, 11, 2),
              ElementsAre("out of order: the packet from 11 comes late: 2 messages no longer "
                          "missing"));
  EXPECT_EQ(tracker.missing().text(), "0");
  EXPECT_EQ(tracker.counts().out_of_order, 1U);
  EXPECT_THAT(finds(1032, 11, 2), ElementsAre("duplicate: the packet from 11 has come before"));
}

TEST_F(Tracker, keeps_both_sides_of_a_gap_that_a_late_packet_splits) {
  (void)finds(1032 + 9 * LEVEL_BLOCK, 20, 1);  // 11 to 19 are missing
  (void)finds(1032 + 3 * LEVEL_BLOCK, 14, 2);  // 14 and 15 come
  EXPECT_THAT(tracker.missing().low, testing::Le(7U));
  EXPECT_THAT(tracker.missing().high, testing::Ge(7U));
  EXPECT_THAT(finds(1032, 11, 3), testing::SizeIs(1));
  EXPECT_THAT(finds(1032 + 5 * LEVEL_BLOCK, 16, 4), testing::SizeIs(1));
  EXPECT_EQ(tracker.missing().text(), "0");
  EXPECT_EQ(tracker.counts().out_of_order, 3U);
  EXPECT_EQ(tracker.counts().duplicates, 0U);
}

TEST_F(Tracker, knows_a_packet_from_before_it_came_in) {
  EXPECT_THAT(finds(900, 7, 1),
              ElementsAre("out of order: the packet from 7 belongs before the first one heard"));
}

TEST_F(Tracker, follows_a_new_session_and_notices_when_two_share_the_group) {
  EXPECT_THAT(tracker.follow(packet(0, 1, 1, 78)).findings,
              ElementsAre("new session 78 (before: 77)"));
  EXPECT_THAT(tracker.follow(packet(1032, 11, 1, 77)).findings,
              ElementsAre("session 77 again: two exchanges on this group and port?"));
  EXPECT_THAT(tracker.follow(packet(32, 2, 1, 78)).findings,
              ElementsAre("session 78 again: two exchanges on this group and port?"));
  EXPECT_THAT(tracker.follow(packet(1064, 12, 1, 77)).findings, IsEmpty());  // said once
  EXPECT_EQ(tracker.counts().sessions, 2U);
  EXPECT_EQ(tracker.counts().gaps, 0U);
}

TEST(TrackerOfManySessions, forgets_the_oldest_and_holds_up) {
  FeedTracker tracker;
  for (uint32_t session = 1; session <= 1000; ++session) {
    (void)tracker.follow(packet(0, 1, 1, session));
  }
  EXPECT_EQ(tracker.counts().sessions, 1000U);
  EXPECT_THAT(tracker.follow(packet(32, 2, 1, 1)).findings,
              ElementsAre("new session 1 (before: 1000)"));
}

TEST(TrackerOfManyGaps, counts_those_it_no_longer_keeps) {
  FeedTracker tracker;
  (void)tracker.follow(packet(0, 1, 1));
  for (uint64_t i = 1; i <= 5000; ++i) {
    (void)tracker.follow(packet(i * 2 * LEVEL_BLOCK, 1 + 2 * i, 1));
  }
  EXPECT_EQ(tracker.counts().gaps, 5000U);
  EXPECT_EQ(tracker.missing().text(), "5000");
}

TEST(LineLimiter, lets_everything_through_without_a_limit) {
  LineLimiter limiter(0);
  for (int i = 0; i < 1000; ++i) EXPECT_TRUE(limiter.admits(BEGIN, false));
  EXPECT_EQ(limiter.rest(), std::nullopt);
}

TEST(LineLimiter, lets_no_more_than_its_lines_through_in_any_second) {
  LineLimiter limiter(2);
  EXPECT_TRUE(limiter.admits(BEGIN, false));
  EXPECT_TRUE(limiter.admits(BEGIN + milliseconds(900), false));
  EXPECT_FALSE(limiter.admits(BEGIN + milliseconds(999), false));
  EXPECT_TRUE(limiter.admits(BEGIN + milliseconds(1000), false));
  EXPECT_FALSE(limiter.admits(BEGIN + milliseconds(1899), false));
  EXPECT_TRUE(limiter.admits(BEGIN + milliseconds(1900), false));
}

TEST(LineLimiter, says_what_it_left_out_a_second_after_the_first_and_once_only) {
  LineLimiter limiter(1);
  EXPECT_TRUE(limiter.admits(BEGIN, false));
  EXPECT_EQ(limiter.next_due(), std::nullopt);
  EXPECT_FALSE(limiter.admits(BEGIN + milliseconds(100), false));
  EXPECT_FALSE(limiter.admits(BEGIN + milliseconds(200), true));
  EXPECT_EQ(limiter.next_due(), BEGIN + milliseconds(1100));
  EXPECT_FALSE(limiter.due(BEGIN + milliseconds(1099)).has_value());
  const auto left_out = limiter.due(BEGIN + milliseconds(1100));
  ASSERT_TRUE(left_out.has_value());
  EXPECT_EQ(left_out->lines, 2U);
  EXPECT_EQ(left_out->findings, 1U);
  EXPECT_FALSE(limiter.due(BEGIN + seconds(5)).has_value());
  EXPECT_FALSE(limiter.rest().has_value());
}

TEST(LineLimiter, counts_what_it_says_of_lines_left_out_as_one_of_its_lines) {
  LineLimiter limiter(1);
  EXPECT_TRUE(limiter.admits(BEGIN, false));
  EXPECT_FALSE(limiter.admits(BEGIN + milliseconds(100), false));
  EXPECT_TRUE(limiter.admits(BEGIN + milliseconds(1000), false));
  EXPECT_EQ(limiter.next_due(), BEGIN + milliseconds(2000));
  EXPECT_FALSE(limiter.due(BEGIN + milliseconds(1100)).has_value());
  EXPECT_TRUE(limiter.due(BEGIN + milliseconds(2000)).has_value());
  EXPECT_FALSE(limiter.admits(BEGIN + milliseconds(2500), false));
  EXPECT_TRUE(limiter.admits(BEGIN + milliseconds(3000), false));
}

TEST(SilenceWatch, tells_at_three_seconds_and_each_time_it_has_lasted_twice_as_long) {
  SilenceWatch silence(BEGIN);
  EXPECT_FALSE(silence.tell_if_due(BEGIN + milliseconds(2999)).has_value());
  EXPECT_EQ(silence.next_due(), BEGIN + seconds(3));
  EXPECT_EQ(silence.tell_if_due(BEGIN + seconds(3)), seconds(3));
  EXPECT_FALSE(silence.tell_if_due(BEGIN + milliseconds(5999)).has_value());
  EXPECT_EQ(silence.tell_if_due(BEGIN + seconds(6)), seconds(6));
  EXPECT_EQ(silence.next_due(), BEGIN + seconds(12));
  EXPECT_EQ(silence.heard(BEGIN + seconds(7)), seconds(7));
  EXPECT_EQ(silence.next_due(), BEGIN + seconds(10));
}

TEST(SilenceWatch, tells_once_of_a_silence_that_nobody_looked_at_meanwhile) {
  SilenceWatch silence(BEGIN);
  EXPECT_TRUE(silence.tell_if_due(BEGIN + seconds(100)).has_value());
  EXPECT_FALSE(silence.tell_if_due(BEGIN + seconds(100)).has_value());
}

TEST(SilenceWatch, says_nothing_of_a_short_pause) {
  SilenceWatch silence(BEGIN);
  EXPECT_FALSE(silence.heard(BEGIN + milliseconds(2999)).has_value());
}

/// A view and what it has printed.
class TheView {
 public:
  explicit TheView(ViewOptions options = {})
      : view(with_place(std::move(options)), BEGIN,
             [this](const std::string& line) { lines.push_back(line); }) {}

  void hears(const client::Bytes& bytes, milliseconds at = milliseconds(0)) {
    view.on_datagram({.bytes = bytes, .from_address = "127.0.0.1", .from_port = 4000}, BEGIN + at,
                     std::chrono::system_clock::time_point(std::chrono::hours(12) + at));
  }
  void hears(uint64_t offset, uint64_t seq, const std::vector<client::Bytes>& messages) {
    hears(client::encode_tp_packet(hand_made::header(offset, seq), messages));
  }

  SaidLines lines;
  View view;

 private:
  static ViewOptions with_place(ViewOptions options) {
    options.where = "239.1.2.3:4444";
    options.interface_address = "127.0.0.1";
    return options;
  }
};

TEST(View, shows_a_packet_and_its_messages) {
  TheView shown;
  shown.hears(0, 1, {hand_made::system_event('O'), hand_made::directory("MSFT")});
  shown.hears(45, 3, {});
  EXPECT_THAT(shown.lines, ElementsAre("session 77", "packet from 1, 2 message(s), stream offset 0",
                                       "  S O", "  D MSFT", "heartbeat, next is 3"));
}

TEST(View, shows_of_a_filtered_feed_the_packets_that_have_something_and_heartbeats) {
  TheView shown({.symbols = {"AAPL"}, .packets = 1});
  shown.hears(0, 1, {hand_made::system_event('O'), hand_made::directory("MSFT")});
  shown.hears(45, 3, {});
  EXPECT_FALSE(shown.view.done());
  shown.hears(45, 3, {hand_made::level({.symbol = "MSFT"}), hand_made::level({})});
  EXPECT_THAT(shown.lines, ElementsAre("session 77", "heartbeat, next is 3",
                                       "packet from 3, 2 message(s), stream offset 45",
                                       "  8 AAPL 300 @ 189.99 last"));
  EXPECT_TRUE(shown.view.done());
}

TEST(View, tells_the_true_number_where_the_announced_one_is_known_to_be_too_high) {
  TheView shown;
  shown.hears(0, 1, {hand_made::system_event('O')});
  shown.hears(12, 3, {hand_made::level({})});
  EXPECT_THAT(shown.lines, testing::Contains("packet from 3, 1 message(s), stream offset 12 (its "
                                             "true first number is 2)"));
}

TEST(View, says_what_is_no_packet_and_goes_on) {
  TheView shown;
  shown.hears(client::to_bytes("hello"));
  client::TpHeader header = hand_made::header(0, 1);
  shown.hears(client::encode_tp_packet(header, {client::to_bytes("?")}));
  ASSERT_EQ(shown.lines.size(), 4U);
  EXPECT_THAT(shown.lines[0], HasSubstr("not an IEX-TP packet: 5 bytes from 127.0.0.1:4000: "));
  EXPECT_THAT(shown.lines[3], HasSubstr("  not a DEEP message: "));
  EXPECT_THAT(shown.view.summary(BEGIN), HasSubstr("; 1 not IEX-TP"));
}

TEST(View, stamps_each_line_with_the_time_of_arrival) {
  TheView shown({.with_time = true});
  shown.hears(client::encode_tp_packet(hand_made::header(0, 1), {hand_made::system_event('O')}),
              milliseconds(1500));
  EXPECT_THAT(shown.lines, testing::Each(testing::StartsWith("12:00:01.500000 ")));
  EXPECT_EQ(shown.lines.size(), 3U);
}

TEST(View, asks_in_a_silence_whether_the_exchange_is_there_and_says_its_end) {
  TheView shown;
  EXPECT_EQ(shown.view.next_due(), BEGIN + seconds(3));
  shown.view.on_time(BEGIN + seconds(3), {});
  EXPECT_THAT(shown.lines,
              ElementsAre("silence: no packet on 239.1.2.3:4444 for 3 s: is the exchange there, on "
                          "this interface (127.0.0.1)?"));
  shown.hears(client::encode_tp_packet(hand_made::header(0, 1), {}), milliseconds(4210));
  EXPECT_EQ(shown.lines.at(1), "silence: over, packets come again after 4.2 s");
}

TEST(View, leaves_out_lines_above_the_limit_and_says_how_many_and_how_many_findings) {
  TheView shown({.lines_per_second = 3});
  shown.hears(0, 1, {hand_made::system_event('O'), hand_made::system_event('S')});
  shown.hears(100, 4, {});  // a gap and a heartbeat: neither is shown, nor was the last message
  EXPECT_EQ(shown.lines.size(), 3U);
  EXPECT_EQ(shown.view.next_due(), BEGIN + seconds(1));
  shown.view.on_time(BEGIN + seconds(1), {});
  EXPECT_EQ(shown.lines.at(3), "-- 3 lines left out, 1 finding among them");
  EXPECT_EQ(shown.view.summary(BEGIN + seconds(1)),
            "2 packets (1 heartbeat), 2 messages in 1 s; 1 gap, 1 message still missing; 0 "
            "duplicates; 0 out of order");
  EXPECT_EQ(shown.lines.size(), 4U);
}

TEST(View, says_at_the_end_what_was_left_out_last) {
  TheView shown({.lines_per_second = 1});
  shown.hears(0, 1, {});
  (void)shown.view.summary(BEGIN);
  EXPECT_THAT(shown.lines, ElementsAre("session 77", "-- 1 line left out"));
}

TEST(View, tells_packets_that_this_machine_lost) {
  TheView shown;
  shown.view.on_kernel_drops(3, BEGIN, {});
  EXPECT_THAT(shown.lines, ElementsAre("lost here: this machine threw away 3 packets, which were "
                                       "not read in time"));
  EXPECT_EQ(shown.view.summary(BEGIN + seconds(2)), "no packet on 239.1.2.3:4444 in 2 s");
}

TEST(Seconds, are_read_as_plain_numbers_and_written_without_needless_digits) {
  EXPECT_EQ(seconds_from("2"), seconds(2));
  EXPECT_EQ(seconds_from("0.25"), milliseconds(250));
  EXPECT_EQ(seconds_from("0"), seconds(0));
  for (const char* text : {"", "-1", "1e3", "nan", "inf", "1.2.3", ".", "1 ", "0x10", "99999999"}) {
    EXPECT_EQ(seconds_from(text), std::nullopt) << text;
  }
  EXPECT_EQ(seconds_text(seconds(3)), "3 s");
  EXPECT_EQ(seconds_text(milliseconds(7290)), "7.29 s");
  EXPECT_EQ(seconds_text(milliseconds(5)), "0.005 s");
}

}  // namespace
}  // namespace tools
