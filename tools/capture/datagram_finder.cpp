#include "tools/capture/datagram_finder.h"

#include <algorithm>

#include "tools/capture/link_layer.h"
#include "tools/capture/network_order.h"

namespace client = quorl::client;

namespace tools {
namespace {

std::optional<CapturedDatagram> datagram_in(const IpBody& body) {
  if (body.protocol != PROTOCOL_UDP || body.bytes.size() < UDP_HEADER) return std::nullopt;
  const size_t length = big_endian_16(body.bytes, 4);
  if (length < UDP_HEADER) return std::nullopt;
  const size_t end = std::min(length, body.bytes.size());
  return CapturedDatagram{
      .from = {body.from, big_endian_16(body.bytes, 0)},
      .to = {body.to, big_endian_16(body.bytes, 2)},
      .payload = client::Bytes(body.bytes.begin() + UDP_HEADER,
                               body.bytes.begin() + static_cast<std::ptrdiff_t>(end)),
      .whole = end == length};
}

}  // namespace

std::optional<CapturedDatagram> DatagramFinder::take(client::ByteView frame) {
  const auto packet = ip_packet(link_type_, frame);
  if (!packet) return std::nullopt;
  const auto body = reassembly_.take(*packet);
  return body ? datagram_in(*body) : std::nullopt;
}

std::optional<CapturedDatagram> DatagramFinder::take_unfinished() {
  while (const auto body = reassembly_.give_up_one()) {
    if (auto datagram = datagram_in(*body)) return datagram;
  }
  return std::nullopt;
}

}  // namespace tools
