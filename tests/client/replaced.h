#pragma once

#include <gtest/gtest.h>

#include <string>

namespace quorl::client {

/// The text with the first `what` replaced; fails the test if there is none.
inline std::string with(std::string text, const std::string& what, const std::string& by) {
  const size_t at = text.find(what);
  EXPECT_NE(at, std::string::npos) << what;
  return text.replace(at, what.size(), by);
}

}  // namespace quorl::client
