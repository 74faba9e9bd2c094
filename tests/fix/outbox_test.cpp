#include "fix/outbox.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <string_view>
#include <vector>

namespace quorl::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

void add(Outbox& outbox, std::string_view message) {
  char* const place = outbox.add(message.size());
  std::copy(message.begin(), message.end(), place);
}

std::vector<std::string> messages_of(const Outbox& outbox) {
  std::vector<std::string> messages;
  for (size_t i = 0; i < outbox.size(); ++i) messages.emplace_back(outbox[i]);
  EXPECT_EQ(outbox.empty(), messages.empty());
  return messages;
}

Outbox outbox_with(const std::vector<std::string>& messages) {
  Outbox outbox;
  for (const std::string& message : messages) add(outbox, message);
  return outbox;
}

TEST(Outbox, is_empty_at_first) { EXPECT_THAT(messages_of(Outbox()), IsEmpty()); }

TEST(Outbox, gives_its_messages_in_the_order_in_which_they_were_added) {
  EXPECT_THAT(messages_of(outbox_with({"one", "", "three", std::string("a\0b", 3)})),
              ElementsAre("one", "", "three", std::string("a\0b", 3)));
}

TEST(Outbox, keeps_every_message_while_it_grows) {
  std::mt19937_64 random(3);
  std::vector<std::string> messages;
  for (int i = 0; i < 2000; ++i) {
    messages.emplace_back(random() % 700, static_cast<char>('a' + i % 26));
  }
  EXPECT_EQ(messages_of(outbox_with(messages)), messages);
}

TEST(Outbox, takes_a_message_larger_than_all_before_it) {
  const std::vector<std::string> messages = {"small", std::string(1'000'000, 'x'), "small again"};
  EXPECT_EQ(messages_of(outbox_with(messages)), messages);
}

TEST(Outbox, sends_the_last_one_first_and_leaves_the_others_in_their_order) {
  Outbox outbox = outbox_with({"a", "bb", "ccc"});
  outbox.send_last_first();
  EXPECT_THAT(messages_of(outbox), ElementsAre("ccc", "a", "bb"));
  outbox.send_last_first();
  EXPECT_THAT(messages_of(outbox), ElementsAre("bb", "ccc", "a"));
}

TEST(Outbox, of_one_message_sends_that_first_anyway) {
  Outbox outbox = outbox_with({"a"});
  outbox.send_last_first();
  EXPECT_THAT(messages_of(outbox), ElementsAre("a"));
}

TEST(Outbox, adds_behind_what_was_sent_first) {
  Outbox outbox = outbox_with({"a", "bb"});
  outbox.send_last_first();
  add(outbox, "dddd");
  EXPECT_THAT(messages_of(outbox), ElementsAre("bb", "a", "dddd"));
}

TEST(Outbox, starts_over_once_it_is_cleared) {
  Outbox outbox = outbox_with({"a", "bb", std::string(5000, 'x')});
  outbox.send_last_first();
  outbox.clear();
  EXPECT_THAT(messages_of(outbox), IsEmpty());
  add(outbox, "new");
  add(outbox, std::string(9000, 'y'));
  EXPECT_THAT(messages_of(outbox), ElementsAre("new", std::string(9000, 'y')));
  outbox.clear();
  outbox.clear();
  EXPECT_THAT(messages_of(outbox), IsEmpty());
}

TEST(Outbox, keeps_its_memory_from_one_use_to_the_next) {
  Outbox outbox = outbox_with({std::string(5000, 'x'), "a"});
  const char* const first = outbox[0].data();
  for (int i = 0; i < 10; ++i) {
    outbox.clear();
    add(outbox, "a");
    add(outbox, std::string(4000, 'y'));
    EXPECT_EQ(outbox[0].data(), first);
    EXPECT_EQ(outbox[1].data(), first + 1);
  }
}

}  // namespace
}  // namespace quorl::test
