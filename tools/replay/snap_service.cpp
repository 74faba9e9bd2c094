#include "tools/replay/snap_service.h"

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <string>
#include <utility>

#include "quorl/client/errors.h"
#include "tools/capture/endpoint.h"

namespace client = quorl::client;

namespace tools {
namespace {

constexpr int BACKLOG = 8;
constexpr std::chrono::seconds TIME_FOR_A_REQUEST{10};
constexpr size_t LONGEST_REQUEST = 2 + 65535;  // what stands behind is of no use

/// Whoever sends faster than can be read must not hold up the feed, nor Ctrl-C.
constexpr int MOST_PIECES_AT_ONCE = 64;

}  // namespace

SnapService::SnapService(uint16_t port)
    : listener_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)) {
  if (listener_ < 0) throw client::SystemError("socket");
  const int on = 1;  // connections of an earlier replay may linger
  (void)::setsockopt(listener_, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  const sockaddr_in address = socket_address({INADDR_ANY, port});
  if (::bind(listener_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
      ::listen(listener_, BACKLOG) != 0) {
    const client::SystemError failure("cannot serve images on port " + std::to_string(port));
    ::close(listener_);
    throw failure;
  }
}

SnapService::~SnapService() {
  for (Connection& connection : connections_) close(connection);
  ::close(listener_);
}

void SnapService::add_to(std::vector<pollfd>& fds) const {
  fds.push_back({listener_, POLLIN, 0});
  for (const Connection& connection : connections_) {
    const bool sends = !connection.reply.empty();
    fds.push_back({connection.fd, static_cast<short>(sends ? POLLOUT : POLLIN), 0});
  }
}

void SnapService::serve(Round& round) {
  accept_all();
  for (Connection& connection : connections_) {
    if (connection.reply.empty()) receive(connection, round);
    if (!connection.reply.empty()) send(connection);
  }
  std::erase_if(connections_, [](const Connection& connection) { return connection.fd < 0; });
}

void SnapService::accept_all() {
  for (;;) {
    const int fd = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
    if (fd < 0) return;
    connections_.push_back({.fd = fd, .accepted = Clock::now(), .inbound = {}, .reply = {}});
  }
}

void SnapService::receive(Connection& connection, Round& round) {
  std::array<uint8_t, 4096> piece{};
  ssize_t size = 1;
  for (int i = 0; i < MOST_PIECES_AT_ONCE && size > 0; ++i) {
    size = ::recv(connection.fd, piece.data(), piece.size(), 0);
    const size_t room = LONGEST_REQUEST - connection.inbound.size();
    const size_t came = size > 0 ? static_cast<size_t>(size) : 0;
    client::put_bytes(connection.inbound, {piece.data(), std::min(came, room)});
  }
  // The end of the stream goes unanswered, even right behind a whole request: so does the exchange.
  if (size == 0 || (size < 0 && errno != EAGAIN)) {
    close(connection);
  } else if (const auto frame = whole_frame(connection.inbound)) {
    answer(connection, *frame, round);
  } else if (Clock::now() - connection.accepted > TIME_FOR_A_REQUEST) {
    close(connection);
  }
}

void SnapService::answer(Connection& connection, client::ByteView frame, Round& round) {
  SnapAnswer answer = answer_snap(frame, round);
  on_answer(answer);
  if (answer.error == 0) ++images_;
  connection.reply = std::move(answer.bytes);
}

void SnapService::send(Connection& connection) {
  while (connection.sent < connection.reply.size()) {
    const ssize_t sent = ::send(connection.fd, connection.reply.data() + connection.sent,
                                connection.reply.size() - connection.sent, MSG_NOSIGNAL);
    if (sent < 0 && errno == EAGAIN) return;
    if (sent <= 0) break;
    connection.sent += static_cast<size_t>(sent);
  }
  close(connection);
}

void SnapService::close(Connection& connection) {
  if (connection.fd >= 0) ::close(std::exchange(connection.fd, -1));
}

}  // namespace tools
