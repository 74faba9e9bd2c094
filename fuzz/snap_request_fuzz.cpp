#include <sys/socket.h>

#include <array>
#include <cstdlib>
#include <vector>

#include "base/clocks.h"
#include "closed_exchange.h"
#include "feed/snap.h"

// The bytes of one connection to the DEEP SNAP service, in two reads: the first byte says where
// they are cut.

namespace quorl {
namespace {

void serve(const uint8_t* data, size_t size, size_t cut) {
  static const auto exchange = [] {
    RunConfig config;
    config.session = 1;
    return fuzz::open_exchange(config);
  }();
  std::array<int, 2> ends{};
  if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0, ends.data()) != 0) std::abort();
  std::vector<SnapConnection> snaps;
  snaps.push_back({.fd = ends[0], .inbound = {}, .accepted_ms = static_cast<int64_t>(steady_ms())});
  std::array<char, 65536> scratch;
  [[maybe_unused]] auto sent = ::send(ends[1], data, cut, MSG_NOSIGNAL);
  serve_snap_connections(exchange->engine, snaps, scratch);
  sent = ::send(ends[1], data + cut, size - cut, MSG_NOSIGNAL);
  if (snaps[0].fd >= 0) serve_snap_connections(exchange->engine, snaps, scratch);
  ::close(ends[1]);
  if (snaps[0].fd >= 0) serve_snap_connections(exchange->engine, snaps, scratch);
  if (snaps[0].fd >= 0) std::abort();  // it has seen the end
}

}  // namespace
}  // namespace quorl

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size != 0) quorl::serve(data + 1, size - 1, std::min<size_t>(data[0], size - 1));
  return 0;
}
