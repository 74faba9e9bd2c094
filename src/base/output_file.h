#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace quorl {

/// A file that is written from its front to its end and never read, with a buffer of its own.
/// Failures are silent: a file that could not be opened, or not written, takes no more from then
/// on. A reader that stalls (the path may name a FIFO) holds up the process, but from a stop on not
/// for long: what cannot be written then is given up.
class OutputFile {
 public:
  OutputFile() = default;
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;
  /// Writes what is buffered, as far as it goes, and closes.
  ~OutputFile() { close(); }

  /// Creates the file if there is none. REQUIRES: not open.
  void open_for_appending(const std::string& path);
  /// Creates the file or empties it. REQUIRES: not open.
  void open_emptied(const std::string& path);

  bool is_open() const { return fd_ >= 0; }
  /// Open, and nothing has failed so far.
  bool is_writable() const { return is_open() && !failed_; }

  /// Buffered. Whole pieces reach the file together, a piece is split only by its reader's pace.
  /// Does nothing unless the file is writable.
  void write(std::string_view piece);
  /// Writes all that is buffered.
  void flush();
  void close();

 private:
  void open(const std::string& path, int flags);
  void write_out();

  int fd_ = -1;
  bool failed_ = false;
  std::string buffered_;
};

}  // namespace quorl
