#include "certify/run/placeholders.h"

#include <gtest/gtest.h>

namespace certify {
namespace {

const Surroundings AROUND{.ports = {.fix = 4001, .images = 4002, .gap_fill = 4003},
                          .group = "239.255.1.1",
                          .feed_port = 4004,
                          .control_port = 4005,
                          .session = 7,
                          .symbols = "AAPL,MSFT",
                          .folder = "/runs/1",
                          .plan = "drop"};

TEST(Placeholders, are_filled_in_wherever_they_stand_in_a_word) {
  EXPECT_EQ(filled_in("--feed={group}:{port}", AROUND), "--feed=239.255.1.1:4004");
  EXPECT_EQ(filled_in("{run}/{plan}.cfg", AROUND), "/runs/1/drop.cfg");
  EXPECT_EQ(filled_in("{{fix_port}}", AROUND), "{4001}");
}

TEST(Placeholders, leave_alone_whatever_else_stands_in_braces) {
  for (const std::string word :
       {"{\"port\": 1}", "{}", "{fix_port", "fix_port}", "{FIX_PORT}", ""}) {
    EXPECT_EQ(filled_in(word, AROUND), word);
  }
}

TEST(Placeholders, have_a_variable_each_with_the_same_value) {
  const auto variables = variables_of(AROUND);
  EXPECT_EQ(variables.size(), placeholders().size());
  EXPECT_EQ(variables.at("QUORL_FIX_HOST"), "127.0.0.1");
  EXPECT_EQ(variables.at("QUORL_SNAP_PORT"), "4002");
  EXPECT_EQ(variables.at("QUORL_GAPFILL_PORT"), "4003");
  EXPECT_EQ(variables.at("QUORL_CONTROL_PORT"), "4005");
  EXPECT_EQ(variables.at("QUORL_SESSION"), "7");
}

}  // namespace
}  // namespace certify
