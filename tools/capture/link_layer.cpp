#include "tools/capture/link_layer.h"

#include <pcap/dlt.h>

#include "tools/capture/network_order.h"

namespace client = quorl::client;

namespace tools {
namespace {

using client::ByteView;

constexpr size_t VLAN_TAG = 4;
constexpr uint8_t BSD_IPV4 = 2;  // AF_INET, the same number everywhere

bool is_vlan(uint16_t ethertype) {
  return ethertype == 0x8100 || ethertype == 0x88a8 || ethertype == 0x9100;
}

/// The packet behind a header of `header` bytes whose protocol field stands at `protocol_at`.
std::optional<ByteView> behind_ethertype(ByteView frame, size_t protocol_at, size_t header) {
  while (header <= frame.size()) {
    const uint16_t ethertype = big_endian_16(frame, protocol_at);
    if (ethertype == ETHERTYPE_IPV4) return frame.subspan(header);
    if (!is_vlan(ethertype)) return std::nullopt;
    protocol_at = header + VLAN_TAG - 2;  // the tag: its own two bytes, then what it carries
    header += VLAN_TAG;
  }
  return std::nullopt;
}

std::optional<ByteView> of_ethernet(ByteView frame) { return behind_ethertype(frame, 12, 14); }
std::optional<ByteView> of_cooked(ByteView frame) { return behind_ethertype(frame, 14, 16); }
std::optional<ByteView> of_cooked_2(ByteView frame) { return behind_ethertype(frame, 0, 20); }

std::optional<ByteView> of_raw(ByteView frame) {
  if (frame.empty() || frame[0] >> 4 != 4) return std::nullopt;
  return frame;
}

/// Four bytes hold the family, in the order of the machine that captured, or big-endian.
std::optional<ByteView> of_null(ByteView frame) {
  if (frame.size() < 4 || frame[1] != 0 || frame[2] != 0) return std::nullopt;
  const bool is_ipv4 =
      (frame[0] == BSD_IPV4 && frame[3] == 0) || (frame[0] == 0 && frame[3] == BSD_IPV4);
  if (!is_ipv4) return std::nullopt;
  return frame.subspan(4);
}

struct LinkType {
  int number;
  std::optional<ByteView> (*ip_packet)(ByteView frame);
};

constexpr LinkType LINK_TYPES[] = {
    {DLT_EN10MB, of_ethernet}, {DLT_LINUX_SLL, of_cooked}, {DLT_LINUX_SLL2, of_cooked_2},
    {DLT_RAW, of_raw},         {DLT_IPV4, of_raw},         {DLT_NULL, of_null},
    {DLT_LOOP, of_null},
};

const LinkType* find(int number) {
  for (const LinkType& type : LINK_TYPES) {
    if (type.number == number) return &type;
  }
  return nullptr;
}

}  // namespace

bool is_readable_link(int link_type) { return find(link_type) != nullptr; }

std::string readable_links() { return "Ethernet, Linux cooked, raw IP and loopback"; }

std::optional<ByteView> ip_packet(int link_type, ByteView frame) {
  const LinkType* type = find(link_type);
  return type == nullptr ? std::nullopt : type->ip_packet(frame);
}

}  // namespace tools
