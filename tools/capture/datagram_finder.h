#pragma once

#include <optional>

#include "quorl/client/bytes.h"
#include "tools/capture/endpoint.h"
#include "tools/capture/reassembly.h"

namespace tools {

/// A UDP datagram out of a capture.
struct CapturedDatagram {
  Endpoint from;
  Endpoint to;
  quorl::client::Bytes payload;  // as far as it has been captured
  bool whole = true;             // all bytes that it had on the wire
};

/// Finds the UDP datagrams in the frames of one capture. Checksums are not looked at: a capture on
/// the sender's machine often shows packets before the network card has filled them in.
class DatagramFinder {
 public:
  /// `link_type` as for is_readable_link().
  explicit DatagramFinder(int link_type) : link_type_(link_type) {}

  /// The datagram that this frame brings or completes, if any.
  std::optional<CapturedDatagram> take(quorl::client::ByteView frame);

  /// Behind the last frame, until nothing comes: the beginnings of datagrams whose other fragments
  /// are not in the capture.
  std::optional<CapturedDatagram> take_unfinished();

 private:
  int link_type_;
  Reassembly reassembly_;
};

}  // namespace tools
