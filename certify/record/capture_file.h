#pragma once

#include <optional>
#include <string>

#include "certify/record/time.h"
#include "quorl/client/bytes.h"
#include "tools/capture/capture_writer.h"

namespace certify {

/// A pcap file of a run's folder. Like OutputFile it says what went wrong in failure() and then
/// writes no more.
class CaptureFile {
 public:
  /// Replaces what is there, with the first frame. Throws CannotRecord.
  explicit CaptureFile(const std::string& path);

  void write(TimeNs at, quorl::client::ByteView frame);
  void flush();
  /// Nothing may be written behind it. A file without a frame, which no tool would read, goes.
  void close();

  const std::string& failure() const { return failure_; }

 private:
  std::optional<tools::CaptureWriter> writer_;
  TimeNs flushed_ = 0;
  std::string failure_;
};

}  // namespace certify
