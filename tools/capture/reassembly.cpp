#include "tools/capture/reassembly.h"

#include <algorithm>

#include "tools/capture/network_order.h"

namespace client = quorl::client;

namespace tools {
namespace {

using client::Bytes;
using client::ByteView;

constexpr size_t SMALLEST_HEADER = 20;
constexpr size_t MOST_WAITING = 64;
constexpr uint16_t MORE_FRAGMENTS = 0x2000;
constexpr uint16_t OFFSET_MASK = 0x1fff;  // in units of 8 bytes

}  // namespace

size_t Reassembly::Waiting::captured() const {
  size_t end = 0;
  for (const auto& [offset, piece] : pieces) {
    if (offset > end) break;
    end = std::max(end, offset + piece.size());
  }
  return end;
}

std::optional<IpBody> Reassembly::take(ByteView packet) {
  if (packet.size() < SMALLEST_HEADER || packet[0] >> 4 != 4) return std::nullopt;
  const size_t header = static_cast<size_t>(packet[0] & 0x0f) * 4;
  size_t total = big_endian_16(packet, 2);
  if (total == 0) total = packet.size();  // left to the network card, which had not seen it yet
  if (header < SMALLEST_HEADER || total < header || packet.size() < header) return std::nullopt;
  const ByteView captured = packet.subspan(header, std::min(total, packet.size()) - header);
  const bool cut = captured.size() < total - header;
  const uint16_t flags = big_endian_16(packet, 6);
  const size_t offset = static_cast<size_t>(flags & OFFSET_MASK) * 8;
  const bool last = (flags & MORE_FRAGMENTS) == 0;
  const Key key{big_endian_32(packet, 12), big_endian_32(packet, 16), big_endian_16(packet, 4),
                packet[9]};
  if (offset == 0 && last) {
    return IpBody{std::get<0>(key), std::get<1>(key), packet[9],
                  Bytes(captured.begin(), captured.end()), !cut};
  }
  Waiting& waiting = waiting_[key];
  if (waiting.since == 0) waiting.since = ++fragments_;
  waiting.pieces.try_emplace(offset, captured.begin(), captured.end());
  if (last) waiting.size = offset + total - header;
  if (waiting.complete()) {
    IpBody body = body_of(key, waiting);
    waiting_.erase(key);
    return body;
  }
  if (waiting_.size() > MOST_WAITING) forget_oldest();
  return std::nullopt;
}

std::optional<IpBody> Reassembly::give_up_one() {
  if (waiting_.empty()) return std::nullopt;
  const auto first = waiting_.begin();
  IpBody body = body_of(first->first, first->second);
  waiting_.erase(first);
  return body;
}

IpBody Reassembly::body_of(const Key& key, const Waiting& waiting) const {
  IpBody body{std::get<0>(key), std::get<1>(key), std::get<3>(key), {}, waiting.complete()};
  body.bytes.resize(waiting.complete() ? *waiting.size : waiting.captured());
  for (const auto& [offset, piece] : waiting.pieces) {
    if (offset >= body.bytes.size()) break;
    const size_t count = std::min(piece.size(), body.bytes.size() - offset);
    std::copy_n(piece.begin(), count, body.bytes.begin() + static_cast<std::ptrdiff_t>(offset));
  }
  return body;
}

void Reassembly::forget_oldest() {
  waiting_.erase(std::min_element(
      waiting_.begin(), waiting_.end(),
      [](const auto& a, const auto& b) { return a.second.since < b.second.since; }));
}

}  // namespace tools
