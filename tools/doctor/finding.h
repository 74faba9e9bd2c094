#pragma once

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

namespace tools::doctor {

/// One thing that the exchange passes over in silence, as the user gave it and what comes of it.
struct Finding {
  std::string where;  // "--port 70000", "QUORL_SCENARIO lapse_ms=5s"
  std::string what;   // "is read as 4464: ..."

  /// One line, and nothing in it that moves a terminal: "?" for control characters of the user's.
  std::string line() const {
    std::string text = where + ": " + what;
    std::replace_if(
        text.begin(), text.end(),
        [](char c) { return static_cast<unsigned char>(c) < ' ' || c == 0x7F; }, '?');
    return text;
  }
};

using Findings = std::vector<Finding>;

inline void append(Findings& all, Findings more) {
  for (Finding& finding : more) all.push_back(std::move(finding));
}

}  // namespace tools::doctor
