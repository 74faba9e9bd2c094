#include "certify/tap/whole_prefix.h"

#include <gtest/gtest.h>

#include <string>

namespace certify {
namespace {

TEST(WholePrefix, is_not_cut_where_our_buffer_ends) {
  const std::string message = "8=FIX.4.2|9=5|35=0|10=000|";
  for (size_t cut = 0; cut <= message.size(); ++cut) {
    WholePrefix prefix;
    const std::string stream = message + message;
    const size_t end = message.size() + cut;
    const std::string first = prefix.join(stream.substr(0, end), true);
    EXPECT_EQ(first.size(), cut < 5 ? message.size() : end) << cut;
    EXPECT_EQ(first + prefix.join(stream.substr(end), false), stream);
    EXPECT_FALSE(prefix.holds());
  }
}

TEST(WholePrefix, is_passed_on_as_the_client_cut_it) {
  WholePrefix prefix;
  EXPECT_EQ(prefix.join("10=000|8=F", false), "10=000|8=F");
  EXPECT_FALSE(prefix.holds());
}

TEST(WholePrefix, goes_on_if_nothing_follows) {
  WholePrefix prefix;
  EXPECT_EQ(prefix.join("10=000|8=", true), "10=000|");
  EXPECT_TRUE(prefix.holds());
  EXPECT_EQ(prefix.release(), "8=");
  EXPECT_FALSE(prefix.holds());
}

}  // namespace
}  // namespace certify
