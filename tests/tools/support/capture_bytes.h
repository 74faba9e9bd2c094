#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "quorl/client/bytes.h"

namespace client = quorl::client;

/// Capture files and frames put together byte by byte, for tests of what reads them.
namespace capture_bytes {

// Link types as they stand in files.
constexpr uint32_t NULL_LINK = 0;
constexpr uint32_t ETHERNET = 1;
constexpr uint32_t RAW_IP = 101;
constexpr uint32_t WIFI = 105;
constexpr uint32_t LOOP = 108;
constexpr uint32_t COOKED = 113;
constexpr uint32_t IPV4_ONLY = 228;
constexpr uint32_t COOKED_2 = 276;

/// A pcap file, in either order of bytes, with times in micro- or nanoseconds.
class PcapFile {
 public:
  struct Format {
    uint32_t link_type = ETHERNET;
    bool nanoseconds = true;
    bool big_endian = false;
    uint32_t snap_length = 65535;
  };

  PcapFile();
  explicit PcapFile(const Format& format);

  /// What is beyond the snap length is cut off.
  PcapFile& frame(uint64_t time_ns, client::ByteView bytes);

  client::Bytes bytes;

 private:
  void put(uint32_t value, size_t width = 4);

  Format format_;
};

/// A pcapng file of one interface: a section header, an interface with times in nanoseconds, and an
/// enhanced packet block for each frame.
class PcapngFile {
 public:
  explicit PcapngFile(uint16_t link_type);
  PcapngFile& frame(uint64_t time_ns, client::ByteView bytes);

  client::Bytes bytes;

 private:
  void block(uint32_t type, client::Bytes body);
};

void write_file(const std::string& path, client::ByteView bytes);

/// An IPv4 packet with a UDP datagram to `group`, a dotted quad, from 10.0.0.1:5000.
client::Bytes udp_packet(const std::string& group, uint16_t port, client::ByteView payload);

/// The same in IPv4 fragments, each of at most `most` bytes of the datagram, a multiple of 8.
std::vector<client::Bytes> udp_fragments(const std::string& group, uint16_t port,
                                         client::ByteView payload, size_t most);

// Frames around an IP packet.
client::Bytes ethernet(client::ByteView packet, const std::vector<uint16_t>& vlan_types = {});
client::Bytes cooked(client::ByteView packet);
client::Bytes cooked_2(client::ByteView packet);
client::Bytes behind(const client::Bytes& header, client::ByteView packet);

}  // namespace capture_bytes
