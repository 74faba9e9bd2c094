#include "support/fix_wire_gateway.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <utility>

#include "base/clocks.h"
#include "support/fix_wire.h"

namespace quorl::test {
namespace {

std::vector<std::string> fields_named_in(std::string_view expected) {
  std::vector<std::string> fields;
  while (!expected.empty()) {
    const size_t end = std::min(expected.find('|'), expected.size());
    fields.emplace_back(expected.substr(0, end));
    expected.remove_prefix(std::min(end + 1, expected.size()));
  }
  return fields;
}

}  // namespace

// --- WirePeer ---

Client& WirePeer::client() { return gateway_->exchange.clients.at(index_); }
SessionMemory WirePeer::stream() { return {gateway_->exchange.engine, client().comp_id}; }

void WirePeer::writes(std::string_view bytes) {
  const int fd = gateway_->connections_[index_].fd;
  ASSERT_EQ(::write(fd, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
}

void WirePeer::says(std::string_view body) {
  writes(framed(body));
  gateway_->serves();
}

void WirePeer::takes_what_came() {
  WireGateway::Connection& connection = gateway_->connections_[index_];
  std::string bytes;
  std::array<char, 65536> piece;
  while (true) {
    const ssize_t got = ::recv(connection.fd, piece.data(), piece.size(), MSG_DONTWAIT);
    if (got <= 0) {
      connection.other_end_closed = connection.other_end_closed || got == 0 || errno != EAGAIN;
      break;
    }
    bytes.append(piece.data(), static_cast<size_t>(got));
  }
  for (std::string& message : split_messages(bytes)) {
    connection.inbox.push_back(std::move(message));
  }
}

std::string WirePeer::next_message(const char* file, int line) {
  takes_what_came();
  std::deque<std::string>& inbox = gateway_->connections_[index_].inbox;
  if (inbox.empty()) {
    ADD_FAILURE_AT(file, line) << "connection " << index_ << " hears nothing";
    return "";
  }
  std::string message = std::move(inbox.front());
  inbox.pop_front();
  return message;
}

void WirePeer::hears(std::string_view expected, const char* file, int line) {
  const std::string message = next_message(file, line);
  if (message.empty()) return;
  const FixFields fields = fields_of(message);
  for (const std::string& field : fields_named_in(expected)) {
    const bool absent = field.front() == '!';
    const std::string tag = field.substr(absent ? 1 : 0, field.find('='));
    const std::string value = absent ? "(absent)" : field.substr(field.find('=') + 1);
    if (value_of(fields, std::stoi(tag)) != value) {
      ADD_FAILURE_AT(file, line) << "expected " << field << " in " << readable(message);
    }
  }
}

void WirePeer::hears_exactly(std::string_view expected, const char* file, int line) {
  const std::string message = readable(next_message(file, line));
  if (message != expected) {
    ADD_FAILURE_AT(file, line) << "heard    " << message << "\nexpected " << expected;
  }
}

void WirePeer::hears_nothing(const char* file, int line) {
  takes_what_came();
  const WireGateway::Connection& connection = gateway_->connections_[index_];
  for (const std::string& message : connection.inbox) {
    ADD_FAILURE_AT(file, line) << "connection " << index_ << " hears " << readable(message);
  }
  if (connection.other_end_closed) ADD_FAILURE_AT(file, line) << "the other end has closed";
}

void WirePeer::is_disconnected(const char* file, int line) {
  takes_what_came();
  const WireGateway::Connection& connection = gateway_->connections_[index_];
  for (const std::string& message : connection.inbox) {
    ADD_FAILURE_AT(file, line) << "connection " << index_ << " hears " << readable(message);
  }
  if (!connection.other_end_closed) ADD_FAILURE_AT(file, line) << "the other end is open";
  if (client().fd != -1 || client().logged_on || !client().inbound.empty()) {
    ADD_FAILURE_AT(file, line) << "the record of the connection is not that of a closed one";
  }
}

void WirePeer::skips_all() {
  takes_what_came();
  gateway_->connections_[index_].inbox.clear();
}

void WirePeer::closes() {
  ::close(gateway_->connections_[index_].fd);
  gateway_->connections_[index_].fd = -1;
}

// --- WireGateway ---

WireGateway::WireGateway(const std::string& symbols, bool quiet)
    : exchange(symbols), sessions(exchange.engine, exchange.clients, quiet) {
  listen_fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;  // and no name: the kernel chooses a free one
  const bool listening =
      ::bind(listen_fd, reinterpret_cast<const sockaddr*>(&address), sizeof(sa_family_t)) == 0 &&
      ::listen(listen_fd, 64) == 0;
  if (!listening) std::abort();
}

WireGateway::~WireGateway() {
  ::close(listen_fd);
  for (const Connection& connection : connections_) {
    if (connection.fd >= 0) ::close(connection.fd);
  }
  for (const Client& client : exchange.clients) {
    if (client.fd >= 0) ::close(client.fd);
  }
}

int WireGateway::dials() const {
  sockaddr_un address{};
  socklen_t size = sizeof address;
  const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const bool connected =
      ::getsockname(listen_fd, reinterpret_cast<sockaddr*>(&address), &size) == 0 &&
      ::connect(fd, reinterpret_cast<const sockaddr*>(&address), size) == 0;
  if (!connected) std::abort();
  return fd;
}

WirePeer WireGateway::connects() {
  connections_.push_back({dials(), {}, false});
  sessions.accept_clients(listen_fd);
  if (exchange.clients.size() != connections_.size()) std::abort();
  return WirePeer(*this, connections_.size() - 1);
}

WirePeer WireGateway::logs_on(const std::string& comp_id, int heartbeat_s) {
  WirePeer peer = connects();
  const uint32_t seq = SessionMemory(exchange.engine, comp_id).next_in();
  peer.says("35=A|34=" + std::to_string(seq) + "|49=" + comp_id +
            "|56=IEXG|108=" + std::to_string(heartbeat_s));
  peer.hears("35=A|98=0");
  return peer;
}

void WireGateway::serves() { sessions.serve_clients(scratch_); }

void WireGateway::runs_timers() { sessions.run_timers(quorl::steady_ms()); }

void WireGateway::sends_deferred() {
  for (const auto& [index, message] : exchange.engine.drain_deferred()) {
    sessions.send_gated(exchange.clients[index], message);
  }
}

void WireGateway::is_silent_for(uint64_t ms) { exchange.scenario.lapse.start(ms); }

}  // namespace quorl::test
