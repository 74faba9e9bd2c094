#pragma once

#include <string>

#include "certify/record/capture_file.h"
#include "tools/capture/endpoint.h"

namespace certify {

/// Writes feed.pcap: the feed's packets as the judge's receiver had them, for Wireshark and for
/// quorl-replay. The port they came from is not told by the receiver; that of the group stands in
/// its place.
class FeedCapture {
 public:
  /// Throws CannotRecord.
  FeedCapture(const std::string& folder, const tools::Endpoint& group)
      : file_(folder + "/feed.pcap"), group_(group) {}

  /// At most 65507 bytes, as no datagram is longer.
  void heard(quorl::client::ByteView packet, TimeNs at);
  void flush() { file_.flush(); }
  void close() { file_.close(); }
  const std::string& failure() const { return file_.failure(); }

 private:
  CaptureFile file_;
  tools::Endpoint group_;
};

}  // namespace certify
