#include "day/day_network.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "base/sockets.h"
#include "day/day_clock.h"

namespace day {
namespace {

Network* the_network = nullptr;  // of the day that runs

std::string address_text(const sockaddr_in& address) {
  const uint32_t ip = ntohl(address.sin_addr.s_addr);
  return std::to_string(ip >> 24) + '.' + std::to_string(ip >> 16 & 255) + '.' +
         std::to_string(ip >> 8 & 255) + '.' + std::to_string(ip & 255) + ':' +
         std::to_string(ntohs(address.sin_port));
}

std::string text_of(const void* bytes, size_t size) {
  return {static_cast<const char*>(bytes), size};
}

}  // namespace

Network::Network(const Ports& ports, Outputs& outputs) : ports_(ports), outputs_(outputs) {
  the_network = this;
}

Network::~Network() { the_network = nullptr; }

// --- The world's side ---

size_t Network::connect(uint16_t port) {
  connections_.emplace_back().port = port;
  if (Socket* const listener = bound_to(true, port)) {
    listener->waiting.push_back(connections_.size() - 1);
  }
  return connections_.size() - 1;
}

void Network::fail_next_accept(uint16_t port, int error) {
  if (Socket* const listener = bound_to(true, port)) listener->accept_error = error;
}

void Network::send(size_t connection, std::string bytes, uint64_t turn) {
  if (bytes.empty()) return;
  connections_[connection].inbound.push_back({std::move(bytes), turn});
}

void Network::end(size_t connection, bool reset, uint64_t turn) {
  connections_[connection].inbound.push_back({"", turn, reset});
}

void Network::send_datagram(uint16_t port, std::string bytes, uint16_t from_port) {
  Socket* const socket = bound_to(false, port);
  if (socket != nullptr) socket->datagrams.push_back({std::move(bytes), from_port});
}

void Network::limit_sends(size_t connection, std::deque<int64_t> limits) {
  connections_[connection].limits = std::move(limits);
}

std::vector<std::string> Network::take_received(size_t connection) {
  return std::exchange(connections_[connection].received, {});
}

// --- The exchange's side ---

int Network::open_socket(bool tcp) {
  const int fd = next_fd_++;
  sockets_[fd].tcp = tcp;
  act(tcp ? "tcp socket" : "udp socket", fd);
  return fd;
}

bool Network::bind(int fd, in_addr_t address, uint16_t port) {
  Socket* const socket = open_socket_of(fd, "bind");
  if (socket == nullptr) return false;
  const bool taken = taken_ports_.contains(port);
  act("bind", fd, (address == INADDR_LOOPBACK ? "loopback " : "") + std::to_string(port));
  if (taken) return fail(EADDRINUSE) == 0;
  socket->port = port;
  return true;
}

bool Network::listen(int fd, int backlog) {
  Socket* const socket = open_socket_of(fd, "listen");
  if (socket == nullptr) return false;
  act("listen", fd, std::to_string(backlog));
  socket->listening = true;
  return true;
}

int Network::accept(int listen_fd) {
  Socket* const listener = open_socket_of(listen_fd, "accept");
  if (listener == nullptr) return -1;
  if (listener->waiting.empty()) return static_cast<int>(fail(EAGAIN));
  if (listener->accept_error != 0) {
    return static_cast<int>(fail(std::exchange(listener->accept_error, 0)));
  }
  const size_t connection = listener->waiting.front();
  listener->waiting.pop_front();
  const int fd = next_fd_++;
  Socket& socket = sockets_[fd];
  socket.tcp = true;
  socket.connection = static_cast<int64_t>(connection);
  connections_[connection].fd = fd;
  act("accept", listen_fd, std::to_string(fd));
  return fd;
}

void Network::set_option(int fd, std::string_view name) {
  Socket* const socket = open_socket_of(fd, "option");
  if (socket == nullptr) return;
  if (name == "nonblocking") socket->nonblocking = true;
  if (name.starts_with("multicast")) socket->multicast = true;
  act(name, fd);
}

ssize_t Network::receive(int fd, void* bytes, size_t size) {
  Socket* const socket = open_socket_of(fd, "receive");
  if (socket == nullptr || socket->connection < 0) return fail(EBADF);
  Connection& connection = connections_[static_cast<size_t>(socket->connection)];
  if (connection.inbound.empty() || connection.inbound.front().turn > outputs_.turn()) {
    if (!socket->nonblocking) ++misuses_;
    return fail(EAGAIN);
  }
  const Piece& piece = connection.inbound.front();
  if (piece.bytes.empty()) return piece.reset ? fail(ECONNRESET) : 0;  // and again
  const size_t taken = std::min(size, piece.bytes.size() - connection.read);
  std::memcpy(bytes, piece.bytes.data() + connection.read, taken);
  connection.read += taken;
  if (connection.read == piece.bytes.size()) {
    connection.inbound.pop_front();
    connection.read = 0;
  }
  return static_cast<ssize_t>(taken);
}

ssize_t Network::receive_datagram(int fd, void* bytes, size_t size, sockaddr_in& from) {
  Socket* const socket = open_socket_of(fd, "receive_datagram");
  if (socket == nullptr) return fail(EBADF);
  if (socket->datagrams.empty()) {
    if (!socket->nonblocking) ++misuses_;
    return fail(EAGAIN);
  }
  const Datagram datagram = std::move(socket->datagrams.front());
  socket->datagrams.pop_front();
  from = {};
  from.sin_family = AF_INET;
  from.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  from.sin_port = htons(datagram.from_port);
  const size_t taken = std::min(size, datagram.bytes.size());
  if (taken != 0) std::memcpy(bytes, datagram.bytes.data(), taken);
  return static_cast<ssize_t>(taken);
}

ssize_t Network::send_bytes(int fd, const void* bytes, size_t size) {
  Socket* const socket = open_socket_of(fd, "send");
  if (socket == nullptr || socket->connection < 0) return fail(EBADF);
  Connection& connection = connections_[static_cast<size_t>(socket->connection)];
  const Kind kind = connection.port == ports_.fix ? Kind::FIX : Kind::SNAP;
  const int64_t limit = connection.limits.empty() ? ALL : connection.limits.front();
  act("send", fd);
  if (on_send) {
    on_send(static_cast<size_t>(socket->connection), {static_cast<const char*>(bytes), size});
  }
  if (limit == BROKEN) {
    outputs_.note(kind, std::to_string(fd) + " broken", text_of(bytes, size));
    return fail(EPIPE);
  }
  if (limit == 0) {
    outputs_.note(kind, std::to_string(fd) + " full", "");
    // The gateway does not wait for room: its next send finds some.
    if (kind == Kind::FIX) connection.limits.pop_front();
    return fail(EAGAIN);
  }
  size_t taken = size;
  if (limit > 0) taken = std::min(size, static_cast<size_t>(limit));
  if (!connection.limits.empty()) connection.limits.pop_front();
  const std::string sent = text_of(bytes, taken);
  outputs_.note(kind, std::to_string(fd), sent);
  connection.received.push_back(sent);
  spend_time();
  return static_cast<ssize_t>(taken);
}

void Network::send_datagram_to(int fd, const void* bytes, size_t size, const sockaddr_in& to) {
  Socket* const socket = open_socket_of(fd, "send_datagram");
  if (socket == nullptr) return;
  const std::string sent = text_of(bytes, size);
  act("datagram", fd);
  outputs_.note(datagram_kind(*socket), address_text(to), sent);
  if (on_datagram) on_datagram(datagram_kind(*socket), sent);
  if (socket->multicast) feed_.push_back(sent);
  spend_time();
}

Kind Network::datagram_kind(const Socket& socket) const {
  if (socket.multicast) return Kind::FEED;
  return socket.port == ports_.control ? Kind::CONTROL : Kind::GAP_FILL;
}

/// A set with POLLOUT is one full connection, and this wait empties its buffer; any other is the
/// loop's.
int Network::wait(std::span<pollfd> set, int timeout_ms) {
  if (on_poll) on_poll(set, timeout_ms);
  if (set.size() == 1 && (set.front().events & POLLOUT) != 0) {
    act("wait for room", set.front().fd, std::to_string(timeout_ms));
    pass_ns(3 * NS_PER_MS);
    const Socket& socket = sockets_.at(set.front().fd);
    std::deque<int64_t>& limits = connections_[static_cast<size_t>(socket.connection)].limits;
    if (!limits.empty() && limits.front() == 0) limits.pop_front();
    set.front().revents = POLLOUT;
    return 1;
  }
  const Wait passed = on_wait();
  int ready = 0;
  for (pollfd& entry : set) {
    const auto socket = sockets_.find(entry.fd);
    const bool reads =
        (entry.events & POLLIN) != 0 && socket != sockets_.end() && readable(socket->second);
    entry.revents = reads ? POLLIN : 0;
    ready += reads ? 1 : 0;
  }
  const uint64_t time_out_ns = static_cast<uint64_t>(timeout_ms) * NS_PER_MS;
  pass_ns(ready != 0 ? passed.until_event_ns : passed.without_event_ns.value_or(time_out_ns));
  pass_ns(passed.asleep_ns);
  return ready;
}

void Network::close(int fd) {
  Socket* const socket = open_socket_of(fd, "close");
  if (socket == nullptr) return;
  act("close", fd);
  socket->open = false;
  if (socket->connection >= 0) {
    Connection& connection = connections_[static_cast<size_t>(socket->connection)];
    connection.closed = true;
    connection.inbound.clear();
  }
}

Network::Socket* Network::open_socket_of(int fd, const char* call) {
  const auto socket = sockets_.find(fd);
  if (socket != sockets_.end() && socket->second.open) return &socket->second;
  ++misuses_;
  act("misuse", fd, call);
  errno = EBADF;
  return nullptr;
}

Network::Socket* Network::bound_to(bool tcp, uint16_t port) {
  for (auto& [fd, socket] : sockets_) {
    if (socket.open && socket.tcp == tcp && socket.port == port && !socket.multicast &&
        socket.connection < 0) {
      return &socket;
    }
  }
  return nullptr;
}

ssize_t Network::fail(int error) {
  errno = error;
  return -1;
}

bool Network::readable(const Socket& socket) const {
  if (!socket.open) return false;
  if (socket.connection < 0) return !socket.waiting.empty() || !socket.datagrams.empty();
  const Connection& connection = connections_[static_cast<size_t>(socket.connection)];
  return !connection.inbound.empty() && connection.inbound.front().turn <= outputs_.turn();
}

void Network::act(std::string_view what, int fd, std::string_view more) {
  outputs_.note(Kind::ACTS, std::to_string(fd), std::string(what) + " " + std::string(more));
}

/// A send takes 10 to 60 microseconds.
void Network::spend_time() {
  constexpr uint64_t LEAST_NS = 10'000;
  constexpr uint64_t MORE_NS = 50'000;
  if (!sends_take_time) return;
  pass_ns(LEAST_NS + ++acts_ * 7919 % MORE_NS);
}

}  // namespace day

// --- The seam ---

namespace quorl {

int open_udp_socket() { return day::the_network->open_socket(false); }

int open_tcp_socket() { return day::the_network->open_socket(true); }

bool bind_reusable(int fd, in_addr_t address, uint16_t port) {
  return day::the_network->bind(fd, address, port);
}

bool start_listening(int fd, int backlog) { return day::the_network->listen(fd, backlog); }

int accept_connection(int listen_fd) { return day::the_network->accept(listen_fd); }

void set_nonblocking(int fd) { day::the_network->set_option(fd, "nonblocking"); }

void set_no_delay(int fd) { day::the_network->set_option(fd, "no_delay"); }

void set_multicast_source(int fd, in_addr interface) {
  sockaddr_in address{};
  address.sin_addr = interface;
  day::the_network->set_option(fd, "multicast from " + day::address_text(address));
}

ssize_t receive(int fd, void* bytes, size_t size) {
  return day::the_network->receive(fd, bytes, size);
}

ssize_t receive_datagram(int fd, void* bytes, size_t size, sockaddr_in& from) {
  return day::the_network->receive_datagram(fd, bytes, size, from);
}

ssize_t send_bytes(int fd, const void* bytes, size_t size) {
  return day::the_network->send_bytes(fd, bytes, size);
}

void send_datagram(int fd, const void* bytes, size_t size, const sockaddr_in& to) {
  day::the_network->send_datagram_to(fd, bytes, size, to);
}

int wait_for_events(std::span<pollfd> set, int timeout_ms) {
  return day::the_network->wait(set, timeout_ms);
}

void close_socket(int fd) { day::the_network->close(fd); }

}  // namespace quorl
