#pragma once

#include <optional>
#include <string>

namespace tools {

/// Lines from a descriptor that is asked only when it has something.
class LineReader {
 public:
  /// The descriptor stays the caller's.
  explicit LineReader(int fd) : fd_(fd) {}

  int fd() const { return fd_; }

  /// Reads once, which waits unless the descriptor is readable.
  void read();

  /// The next whole line, without its end ("\n" or "\r\n"). What stands before the end of the input
  /// counts as a line, and so does a piece of one that is longer than a command may be.
  std::optional<std::string> next();

  /// All has been read, and taken by next().
  bool at_end() const { return ended_ && buffer_.empty(); }

 private:
  int fd_;
  std::string buffer_;
  bool ended_ = false;
};

}  // namespace tools
