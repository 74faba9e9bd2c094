#include "certify/record/gap_request.h"

#include <algorithm>
#include <optional>
#include <string>

namespace client = quorl::client;

namespace certify {
namespace {

constexpr size_t HEAD_SIZE = 16;
constexpr size_t RANGE_SIZE = 16;
constexpr size_t LONGEST = 2048;  // what is behind is cut off
constexpr uint8_t VERSION = 1;
constexpr uint8_t KIND = 1;

std::string differs(const std::string& field, uint64_t value, uint64_t wanted) {
  return "its " + field + " is " + std::to_string(value) + ", not " + std::to_string(wanted);
}

std::string text_of(const client::SeqRange& range) {
  return std::to_string(range.first) + " to " + std::to_string(range.last);
}

std::optional<std::string> flaw_of_head(client::ByteReader& head, uint32_t session) {
  const uint8_t version = head.u8("version");
  if (version != VERSION) return differs("version", version, VERSION);
  const uint8_t kind = head.u8("kind");
  if (kind != KIND) return differs("kind", kind, KIND);
  const uint16_t protocol = head.u16("protocol");
  if (protocol != client::DEEP_PROTOCOL_ID) {
    return differs("protocol id", protocol, client::DEEP_PROTOCOL_ID);
  }
  const uint32_t channel = head.u32("channel");
  if (channel != client::DEEP_CHANNEL_ID) {
    return differs("channel", channel, client::DEEP_CHANNEL_ID);
  }
  const uint32_t asked = head.u32("session");
  if (asked != session) return differs("session", asked, session);
  return std::nullopt;
}

/// Ranges that the exchange does not read are told of, too: that they were too many is a matter of
/// its own.
std::optional<std::string> flaw_of_ranges(client::ByteReader& bytes, uint64_t count,
                                          std::vector<client::SeqRange>& ranges) {
  const uint64_t sent = bytes.left() / RANGE_SIZE;
  const uint64_t room = std::min<uint64_t>(sent, (LONGEST - HEAD_SIZE) / RANGE_SIZE);
  std::optional<std::string> flaw;
  if (count > room) {
    flaw = "it announces " + std::to_string(count) + " ranges and has the bytes of " +
           std::to_string(room) + ", of 2048 bytes at most";
  }
  for (uint64_t i = 0; i < std::min(count, sent); ++i) {
    client::SeqRange range;
    range.first = bytes.u64("first");
    range.last = bytes.u64("last");
    if (!flaw && range.last < range.first) {
      flaw = "the range " + text_of(range) + " ends ahead of its first";
    }
    if (!flaw && !ranges.empty() && ranges.back().last >= range.first) {
      flaw = "the range " + text_of(range) + " does not lie behind " + text_of(ranges.back());
    }
    ranges.push_back(range);
  }
  return flaw;
}

}  // namespace

GapRequested read_gap_request(client::ByteView datagram, uint32_t session) {
  GapRequested request;
  if (datagram.size() < HEAD_SIZE) {
    request.flaw = "it has " + std::to_string(datagram.size()) + " bytes, its head alone has 16";
    return request;
  }
  client::ByteReader bytes(datagram, "gap-fill request");
  client::ByteReader head(bytes.take(HEAD_SIZE - sizeof(uint32_t), "head"), "gap-fill head");
  const uint32_t count = bytes.u32("count");
  auto flaw = flaw_of_head(head, session);
  // The ranges are read in any case, for who wants to know what was meant.
  const auto flaw_behind = flaw_of_ranges(bytes, count, request.ranges);
  if (!flaw) flaw = flaw_behind;
  request.well_formed = !flaw;
  request.flaw = flaw.value_or("");
  return request;
}

}  // namespace certify
