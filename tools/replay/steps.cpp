#include "tools/replay/steps.h"

#include <poll.h>
#include <unistd.h>

#include <charconv>
#include <string_view>

namespace tools {

int Steps::fd() const { return STDIN_FILENO; }

void Steps::read_what_came() {
  pollfd input{STDIN_FILENO, POLLIN, 0};
  while (!over_ && ::poll(&input, 1, 0) > 0) {
    char piece[256];
    const ssize_t size = ::read(STDIN_FILENO, piece, sizeof piece);
    if (size <= 0) {
      over_ = true;
      return;
    }
    for (const char c : std::string_view(piece, static_cast<size_t>(size))) {
      if (c == '\n') {
        take_line();
      } else if (length_ < sizeof line_) {
        line_[length_++] = c;
      }
    }
  }
}

void Steps::take_line() {
  const std::string_view line(line_, length_);
  length_ = 0;
  if (over_) return;
  if (line == "q") {
    over_ = true;
    return;
  }
  uint64_t count = 1;
  uint64_t number = 0;
  const auto [behind, error] = std::from_chars(line.data(), line.data() + line.size(), number);
  if (error == std::errc() && behind == line.data() + line.size()) count = number;
  allowed_ += count;
}

bool Steps::take() {
  if (allowed_ == 0) return false;
  --allowed_;
  return true;
}

}  // namespace tools
