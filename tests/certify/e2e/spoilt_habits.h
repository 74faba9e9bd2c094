#pragma once

#include <memory>
#include <string>
#include <vector>

#include "certify/trader/habits.h"

namespace certify::trader {

/// The good habits but one, which is named by the check that it fails; null for any other word.
std::unique_ptr<Habits> spoilt_habits(const std::string& check);

// One table for each group, each in its file.
struct Spoilt {
  const char* check;
  std::unique_ptr<Habits> (*make)();
};
std::vector<Spoilt> spoilt_sessions();
std::vector<Spoilt> spoilt_orders();
std::vector<Spoilt> spoilt_recovery();  // and belief
std::vector<Spoilt> spoilt_feeds();

template <typename Kind>
std::unique_ptr<Habits> make_spoilt() {
  return std::make_unique<Kind>();
}

}  // namespace certify::trader
