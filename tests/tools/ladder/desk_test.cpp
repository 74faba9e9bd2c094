#include "tools/ladder/desk.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>

namespace ladder {
namespace {

using std::chrono::milliseconds;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

class DeskTest : public testing::Test {
 protected:
  std::vector<std::string> types(const std::string& keys) {
    std::vector<std::string> sent;
    for (const char key : keys) {
      for (const std::string& datagram : desk.press(key, now)) sent.push_back(datagram);
    }
    return sent;
  }
  static std::string stats_reply(const std::string& orders, const std::string& dropped) {
    return "ok orders=" + orders +
           " accepts=0 fills=0 partials=0 cancels=0 replaces=0 rejects=0 replace_rejects=0 "
           "cancel_rejects=0 unsolicited_cancels=0 race_fills=0 late_cancels=0 stale_cancels=0 "
           "logins=0 logons=0 resend_requests=0 replays=0 replayed=0 next_seq=2012 quorl faults: "
           "sent 100 dropped " +
           dropped + " duplicated 0 reordered 0 session=up\n";
  }

  Desk desk{"127.0.0.1:25500"};
  Desk::Time now{};
};

TEST_F(DeskTest, a_key_sends_its_command_and_the_reply_confirms_it) {
  EXPECT_THAT(types("d"), ElementsAre("drop 1"));
  EXPECT_EQ(desk.note().text, "drop 1 ...");
  desk.heard("ok drop 1\n", now);
  EXPECT_EQ(desk.note().text, "armed: ok drop 1");
  EXPECT_EQ(desk.note().tone, Desk::Tone::GOOD);
}

TEST_F(DeskTest, a_command_without_a_reply_is_told_after_its_time_and_not_before) {
  types("j");
  desk.due(now += Desk::ANSWER_TIME - milliseconds(1));
  EXPECT_EQ(desk.note().text, "reject 1 ...");
  desk.due(now += milliseconds(1));
  EXPECT_EQ(desk.note().text, "no answer to reject 1");
  EXPECT_EQ(desk.note().tone, Desk::Tone::BAD);
  EXPECT_FALSE(desk.answering(now));
}

TEST_F(DeskTest, a_reply_that_comes_after_all_is_taken) {
  types("j");
  desk.due(now += Desk::ANSWER_TIME);
  desk.heard("ok reject 1\n", now);
  EXPECT_EQ(desk.note().text, "armed: ok reject 1");
}

TEST_F(DeskTest, a_refusal_is_shown_as_it_came) {
  types("d");
  desk.heard("err unknown command 'drop'\n", now);
  EXPECT_EQ(desk.note().text, "refused: err unknown command 'drop'");
  EXPECT_EQ(desk.note().tone, Desk::Tone::BAD);
}

TEST_F(DeskTest, digits_make_the_number_of_the_next_command_only) {
  EXPECT_THAT(types("12"), IsEmpty());
  EXPECT_EQ(desk.number(), "12");
  EXPECT_THAT(types("d"), ElementsAre("drop 12"));
  EXPECT_THAT(types("d"), ElementsAre("drop 1"));
  EXPECT_THAT(types("0D"), ElementsAre("drop_every 0"));
  EXPECT_THAT(types("9999999l"), ElementsAre("lapse 99999")) << "five digits are enough";
}

TEST_F(DeskTest, a_key_that_means_nothing_forgets_the_number) {
  EXPECT_THAT(types("7z"), IsEmpty());
  EXPECT_THAT(types("u"), ElementsAre("dup 1"));
}

TEST_F(DeskTest, the_rate_doubles_and_halves_from_the_exchanges_default) {
  EXPECT_THAT(types("++-"), ElementsAre("rate 20", "rate 10", "rate 20"));
  EXPECT_THAT(types("500+-"), ElementsAre("rate 500", "rate 1000"));
  EXPECT_THAT(types("0+++"), ElementsAre("rate 1", "rate 1", "rate 1")) << "0 would mean 40";
}

TEST_F(DeskTest, every_misbehaviour_of_the_exchange_has_a_key_of_its_own) {
  std::set<char> keys{CLEAR_KEY, 'q', '?'};
  std::set<std::string> commands;
  for (const KeyCommand& command : key_commands()) {
    EXPECT_TRUE(keys.insert(command.key).second) << command.key << " has two meanings";
    EXPECT_LE(command.meaning.size(), 22u) << command.command;
    EXPECT_LE(command.detail.size(), 50u) << command.command;
    commands.insert(std::string(command.command));
  }
  EXPECT_THAT(commands, testing::UnorderedElementsAre(
                            "pause", "resume", "drop", "dup", "reorder", "drop_every", "dup_every",
                            "reorder_every", "rate", "disconnect", "lapse", "reject", "partial",
                            "fill_on_cancel", "unsolicited_cancel", "replace_reject", "mark"));
}

TEST_F(DeskTest, the_clear_key_takes_back_all_and_counts_the_answers) {
  const std::vector<std::string> sent = types("c");
  EXPECT_THAT(sent, Contains("drop_every 0"));
  EXPECT_THAT(sent, Contains("replace_reject 0"));
  for (const std::string& command : sent) {
    EXPECT_NE(desk.note().tone, Desk::Tone::GOOD);
    desk.heard("ok " + command + "\n", now);
  }
  EXPECT_EQ(desk.note().text, "taken back: ok, 12 of 12");
  EXPECT_EQ(desk.note().tone, Desk::Tone::GOOD);
}

TEST_F(DeskTest, an_answer_that_is_missing_among_the_cleared_is_named) {
  const std::vector<std::string> sent = types("c");
  for (size_t i = 1; i < sent.size(); ++i) desk.heard("ok " + sent[i] + "\n", now);
  desk.due(now += Desk::ANSWER_TIME);
  EXPECT_EQ(desk.note().text, "no answer to " + sent[0]);
}

TEST_F(DeskTest, asks_for_the_counters_twice_a_second) {
  EXPECT_THAT(desk.due(now), ElementsAre("stats"));
  EXPECT_THAT(desk.due(now + Desk::STATS_PERIOD - milliseconds(1)), IsEmpty());
  EXPECT_THAT(desk.due(now + Desk::STATS_PERIOD), ElementsAre("stats"));
}

TEST_F(DeskTest, shows_counters_and_which_of_them_have_just_moved) {
  types("d");
  desk.heard(stats_reply("0", "0"), now);
  EXPECT_EQ(desk.note().text, "drop 1 ...") << "counters are no answer to a key";
  ASSERT_TRUE(desk.stats().has_value());
  EXPECT_FALSE(desk.moved("dropped", now));
  desk.heard(stats_reply("0", "1"), now);
  EXPECT_TRUE(desk.moved("dropped", now));
  EXPECT_FALSE(desk.moved("orders", now));
  EXPECT_FALSE(desk.moved("dropped", now + Desk::MOVED_TIME));
}

TEST_F(DeskTest, bears_any_reply) {
  for (const char* reply :
       {"", "\n", "ok", "ok ", "ok orders=", "ok orders=1 nonsense", "\x80\x01"}) {
    desk.heard(reply, now);
  }
  EXPECT_FALSE(desk.stats().has_value());
}

}  // namespace
}  // namespace ladder
