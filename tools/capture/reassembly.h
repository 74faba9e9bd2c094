#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <tuple>

#include "quorl/client/bytes.h"

namespace tools {

/// An IPv4 packet without its header.
struct IpBody {
  uint32_t from = 0;  // in the machine's byte order
  uint32_t to = 0;
  uint8_t protocol = 0;
  quorl::client::Bytes bytes;  // as far as they have been captured
  bool whole = true;           // all bytes that the packet had on the wire
};

/// Puts IPv4 packets together that were sent in fragments, as a full packet of the feed is on an
/// Ethernet: it is 28 bytes longer than a frame may be.
class Reassembly {
 public:
  /// One packet, header first, perhaps cut by the capture, perhaps with padding behind it. Returns
  /// a body once it is complete; nothing for a fragment that leaves others to wait for and for what
  /// is no IPv4. Of datagrams that wait for fragments the latest 64 are remembered.
  std::optional<IpBody> take(quorl::client::ByteView packet);

  /// Gives up one datagram that waits for fragments which never came: what there is of it from its
  /// beginning on, `whole` false. Nothing once there is none.
  std::optional<IpBody> give_up_one();

 private:
  using Key = std::tuple<uint32_t, uint32_t, uint16_t, uint8_t>;  // from, to, identification, proto

  struct Waiting {
    uint64_t since = 0;                             // a count of fragments
    std::map<size_t, quorl::client::Bytes> pieces;  // by offset
    std::optional<size_t> size;                     // known from the last fragment

    size_t captured() const;  // bytes without a hole from the first on
    bool complete() const { return size && captured() >= *size; }
  };

  IpBody body_of(const Key& key, const Waiting& waiting) const;
  void forget_oldest();

  std::map<Key, Waiting> waiting_;
  uint64_t fragments_ = 0;
};

}  // namespace tools
