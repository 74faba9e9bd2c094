#pragma once

#include <cstdint>
#include <fstream>
#include <queue>
#include <string>
#include <vector>

#include "certify/record/time.h"

namespace certify {

/// Reads lines that begin with a time of the day, "14:03:07.123456", in order of time, though some
/// stand late in the file: by up to WINDOW lines. Lines of one time keep their order.
class SortedLines {
 public:
  static constexpr size_t WINDOW = 20'000;

  struct SortedLine {
    TimeNs at = 0;  // whole microseconds
    uint64_t place = 0;
    std::string text;  // with its end of line
  };

  /// `first` is the full time of the first line, which gives the day. A file that cannot be read
  /// counts as empty.
  SortedLines(const std::string& path, TimeNs first);

  /// Null at the end.
  const SortedLine* front() const { return lines_.empty() ? nullptr : &lines_.top(); }
  void pop();

 private:
  struct Later {
    bool operator()(const SortedLine& a, const SortedLine& b) const {
      return a.at != b.at ? a.at > b.at : a.place > b.place;
    }
  };

  void read_one();

  std::ifstream file_;
  TimeNs latest_;  // of the line before
  uint64_t places_ = 0;
  std::priority_queue<SortedLine, std::vector<SortedLine>, Later> lines_;
};

}  // namespace certify
