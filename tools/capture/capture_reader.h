#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>

#include "quorl/client/bytes.h"

struct pcap;

namespace tools {

/// A file that cannot be read as a capture at all; the text names it and says why.
class UnusableCapture : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

struct CapturedFrame {
  uint64_t time_ns = 0;           // since the Unix epoch
  quorl::client::ByteView bytes;  // as far as captured; good until the next call
};

/// Reads a capture file of any kind that libpcap knows: pcap and pcapng, either byte order, times
/// in micro- or nanoseconds.
class CaptureReader {
 public:
  /// Throws UnusableCapture.
  explicit CaptureReader(const std::string& path);
  CaptureReader(const CaptureReader&) = delete;
  CaptureReader& operator=(const CaptureReader&) = delete;
  ~CaptureReader();

  /// The next frame; nothing at the end of the file or where it is damaged.
  std::optional<CapturedFrame> next();

  /// What is wrong behind the last frame that could be read; empty if the file ended as it should.
  const std::string& damage() const { return damage_; }

  int link_type() const;          // a DLT_ number of libpcap
  std::string link_name() const;  // "Ethernet"

 private:
  pcap* file_;
  std::string damage_;
};

}  // namespace tools
