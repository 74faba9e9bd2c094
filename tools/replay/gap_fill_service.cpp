#include "tools/replay/gap_fill_service.h"

#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <string>

#include "quorl/client/errors.h"
#include "quorl/client/iex_tp.h"
#include "tools/capture/endpoint.h"
#include "tools/replay/gap_fill_answer.h"

namespace client = quorl::client;

namespace tools {
namespace {

constexpr size_t LARGEST_REQUEST = 2048;  // what is longer is cut, as at the exchange

/// Whoever asks faster than can be answered must not hold up the feed, nor Ctrl-C.
constexpr int MOST_AT_ONCE = 64;

}  // namespace

// No SO_REUSEADDR: an exchange on this port is to keep its requests.
GapFillService::GapFillService(uint16_t port)
    : fd_(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)) {
  if (fd_ < 0) throw client::SystemError("socket");
  const sockaddr_in address = socket_address({INADDR_ANY, port});
  if (::bind(fd_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    const client::SystemError failure("cannot answer gap fill on port " + std::to_string(port));
    ::close(fd_);
    throw failure;
  }
}

GapFillService::~GapFillService() { ::close(fd_); }

void GapFillService::serve(const Round& round) {
  std::array<uint8_t, LARGEST_REQUEST> buffer{};
  for (int taken = 0; taken < MOST_AT_ONCE; ++taken) {
    sockaddr_in from{};
    socklen_t from_size = sizeof from;
    auto* const sender = reinterpret_cast<sockaddr*>(&from);
    const ssize_t size = ::recvfrom(fd_, buffer.data(), buffer.size(), 0, sender, &from_size);
    if (size < 0) return;
    const auto ranges =
        read_gap_fill_request({buffer.data(), static_cast<size_t>(size)}, round.session());
    if (!ranges) {
      ++refused_;
      continue;
    }
    ++requests_;
    for (const client::Bytes& packet :
         answer_gap_fill(*ranges, round.stream(), round.position(), round.session())) {
      messages_ += client::decode_tp_packet(packet).header.message_count;
      // Whoever asks and does not take the answer asks again.
      (void)::sendto(fd_, packet.data(), packet.size(), 0, sender, from_size);
    }
  }
}

}  // namespace tools
