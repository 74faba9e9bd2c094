#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>

#include "certify/record/time.h"

namespace certify {

/// A file of a run's folder cannot be made; the text names it and says why.
class CannotRecord : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// What has been written stands in its file after so long, for who reads along.
constexpr TimeNs FLUSH_EVERY = 500 * MILLISECOND;

/// A file that is written from its beginning, record by record. What cannot be written is said in
/// failure() and not thrown, since records come from within a tap: from then on nothing is written,
/// and the file ends behind a whole record.
class OutputFile {
 public:
  /// Replaces what is there. Throws CannotRecord.
  explicit OutputFile(std::string path);
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;
  ~OutputFile();

  /// One record; it may wait in memory until flush(), as up to 64 KB do.
  void write(std::string_view record);
  void flush();

  const std::string& path() const { return path_; }
  /// "cannot write PATH: No space left on device"; empty while all is well.
  const std::string& failure() const { return failure_; }

 private:
  void fail(int error);

  std::string path_;
  int fd_ = -1;
  std::string waiting_;
  int64_t written_ = 0;
  std::string failure_;
};

/// "cannot write PATH: No space left on device".
std::string cannot_write(const std::string& path, int error);

}  // namespace certify
