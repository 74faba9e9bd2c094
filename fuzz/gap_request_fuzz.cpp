#include <sys/socket.h>

#include <array>
#include <cstdlib>
#include <optional>

#include "closed_exchange.h"
#include "feed/gap_fill.h"

// One datagram to the gap-fill service of an exchange that has a day's opening to replay.

namespace quorl {
namespace {

void check(bool holds) {
  if (!holds) std::abort();
}

void check_parsed(const uint8_t* data, size_t size) {
  GapRequest request;
  if (!parse_gap_request(data, size, request)) return;
  check(request.kind == 1 || request.kind == 2);
  check(request.ranges.size() * 16 + 16 <= size);
  for (size_t i = 0; i < request.ranges.size(); ++i) {
    check(request.ranges[i].first <= request.ranges[i].second);
    check(i == 0 || request.ranges[i - 1].second < request.ranges[i].first);
  }
}

/// The exchange's gap-fill socket and the requester's, joined to each other and nothing else.
struct Service {
  Service() {
    RunConfig config;
    config.session = 1;
    exchange = fuzz::open_exchange(config);
    if (::socketpair(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK, 0, ends.data()) != 0) std::abort();
    gap_fill.emplace(exchange->publisher, ends[0]);
  }

  std::unique_ptr<fuzz::ClosedExchange> exchange;
  std::array<int, 2> ends{};
  std::optional<GapFill> gap_fill;
};

}  // namespace
}  // namespace quorl

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static quorl::Service service;
  quorl::check_parsed(data, size);
  [[maybe_unused]] const auto sent = ::send(service.ends[1], data, size, 0);
  service.gap_fill->serve();
  return 0;
}
