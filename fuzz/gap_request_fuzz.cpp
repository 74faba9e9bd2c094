#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

#include "exchange_in_memory.h"
#include "feed/gap_fill.h"
#include "quorl/client/iex_tp.h"

// One datagram to the gap-fill service of an exchange that has more to replay than a request may
// ask for. Every reply is read as a subscriber reads it, and is what was asked for.

namespace quorl {
namespace {

namespace client = quorl::client;
using fuzz::check;
using fuzz::ExchangeInMemory;

constexpr uint64_t MOST_MESSAGES = 1000;
constexpr size_t MOST_BYTES = 2048;  // of a request; the rest is cut off

bool asks_for(const GapRequest& request, uint64_t seq) {
  return std::any_of(request.ranges.begin(), request.ranges.end(), [seq](const auto& range) {
    return range.first <= seq && seq <= range.second;
  });
}

void check_parsed(const GapRequest& request, size_t size) {
  check(request.kind == 1 || request.kind == 2);
  check(request.ranges.size() * 16 + 16 <= size);
  for (size_t i = 0; i < request.ranges.size(); ++i) {
    check(request.ranges[i].first <= request.ranges[i].second);
    check(i == 0 || request.ranges[i - 1].second < request.ranges[i].first);
  }
}

/// The exchange's gap-fill service, and what it has replied.
struct Service {
  Service() {
    for (int i = 0; i < 400; ++i) in_memory.exchange->engine.walk_tick();
    check(publisher.last_seq() > 2 * MOST_MESSAGES);
    in_memory.network.on_datagram = [this](day::Kind kind, std::string_view bytes) {
      if (kind == day::Kind::GAP_FILL) replies.emplace_back(bytes.begin(), bytes.end());
    };
  }

  void check_replies(const GapRequest& request) const {
    uint64_t last = 0;
    uint64_t messages = 0;
    for (const client::Bytes& reply : replies) {
      const client::TpPacket packet =
          client::decode_tp_packet(reply, ExchangeInMemory::SESSION);  // or throws, uncaught
      if (request.ranges.empty()) {
        check(packet.is_heartbeat() && packet.header.first_seq == publisher.next_seq());
        continue;
      }
      check(!packet.is_heartbeat());
      uint64_t seq = packet.header.first_seq;
      for (const client::TpMessage& message : packet.messages) {
        check(seq > last && asks_for(request, seq));
        const RetainedMessage kept = publisher.retained(seq);
        check(message.stream_offset == kept.stream_offset);
        check(std::equal(message.bytes.begin(), message.bytes.end(), kept.bytes.begin(),
                         kept.bytes.end(),
                         [](uint8_t a, char b) { return a == static_cast<uint8_t>(b); }));
        last = seq++;
        ++messages;
      }
    }
    check(messages <= MOST_MESSAGES);
  }

  ExchangeInMemory in_memory;
  TpPublisher& publisher = in_memory.exchange->publisher;
  GapFill gap_fill{publisher, open_gap_fill_port(ExchangeInMemory::PORTS.gap_fill)};
  std::vector<client::Bytes> replies;
};

void ask(const uint8_t* data, size_t size) {
  static Service service;  // which a request does not change
  day::reset_clock(1'700'000'100'000'000'000);
  service.replies.clear();
  const uint64_t served = service.gap_fill.counts().requests;
  service.in_memory.network.send_datagram(ExchangeInMemory::PORTS.gap_fill,
                                          std::string(fuzz::text_of(data, size)), 9000);
  service.gap_fill.serve();

  GapRequest request;
  const bool is_well_formed = parse_gap_request(data, std::min(size, MOST_BYTES), request);
  if (is_well_formed) check_parsed(request, size);
  if (service.gap_fill.counts().requests == served) return check(service.replies.empty());
  check(is_well_formed);
  service.check_replies(request);
  check(!request.ranges.empty() || service.replies.size() == 1);
}

}  // namespace
}  // namespace quorl

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  quorl::ask(data, size);
  return 0;
}
