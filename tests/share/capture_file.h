#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "quorl/client/bytes.h"

namespace client = quorl::client;

namespace share {

struct Endpoint {
  uint32_t address = 0x7f000001;  // 127.0.0.1
  uint16_t port = 0;
};

/// A capture in the making: IPv4 packets a millisecond apart, in pcap's form with nanoseconds.
class CaptureFile {
 public:
  CaptureFile();

  /// Each returns the number of its frame, from 1 on. The last `uncaptured` bytes of the packet
  /// have been on the wire and are not in the file, as if the capture cut packets.
  size_t udp(Endpoint from, Endpoint to, client::ByteView payload, size_t uncaptured = 0);
  size_t tcp(Endpoint from, Endpoint to, uint32_t seq, uint32_t ack, uint8_t flags,
             client::ByteView payload, size_t uncaptured = 0);

  size_t frames() const { return frames_; }

  /// Throws SystemError.
  void write(const std::string& path) const;

 private:
  size_t ip(uint8_t protocol, Endpoint from, Endpoint to, client::ByteView packet,
            size_t uncaptured);

  client::Bytes bytes_;
  size_t frames_ = 0;
};

/// One connection in a capture, from its handshake on.
class CapturedConnection {
 public:
  CapturedConnection(CaptureFile& file, Endpoint client, Endpoint server);

  /// One segment each; they return its frame.
  size_t client_sends(client::ByteView bytes, size_t uncaptured = 0);
  size_t server_sends(client::ByteView bytes, size_t uncaptured = 0);

  void server_closes();

 private:
  CaptureFile& file_;
  Endpoint client_;
  Endpoint server_;
  uint32_t client_seq_ = 1000;
  uint32_t server_seq_ = 2000;
};

}  // namespace share
