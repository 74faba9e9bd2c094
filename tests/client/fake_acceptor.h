#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

#include "quorl/client/fix_message.h"

namespace client = quorl::client;

/// The other end of a FixSession, under the test's hand. It runs on the test's own thread: what it
/// sends ahead waits in the connection until the session reads it.
class FakeAcceptor {
 public:
  explicit FakeAcceptor(std::string target = "ALPHA") : target_(std::move(target)) {
    listen_fd_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    if (::bind(listen_fd_, reinterpret_cast<const sockaddr*>(&address), size) != 0 ||
        ::listen(listen_fd_, 8) != 0 ||
        ::getsockname(listen_fd_, reinterpret_cast<sockaddr*>(&address), &size) != 0) {
      throw std::runtime_error("no listening socket");
    }
    port_ = ntohs(address.sin_port);
  }
  FakeAcceptor(const FakeAcceptor&) = delete;
  FakeAcceptor& operator=(const FakeAcceptor&) = delete;
  ~FakeAcceptor() {
    close();
    ::close(listen_fd_);
  }

  uint16_t port() const { return port_; }

  /// Takes the connection that a session has made.
  void accept() {
    close();
    framer_ = client::FixFramer();
    fd_ = ::accept(listen_fd_, nullptr, nullptr);
  }

  void close() {
    if (fd_ >= 0) ::close(fd_);
    fd_ = -1;
  }

  /// Composes from "35=0|34=2|112=x"; sender, target and time are added behind 34.
  void sends(std::string_view type_seq_and_rest) {
    client::FixFields fields = client::fix_fields(type_seq_and_rest);
    const client::FixFields rest(fields.begin() + 2, fields.end());
    sends_bytes(client::compose_fix(
        {.type = fields[0].value, .seq = fields[1].value, .sender = "IEXG", .target = target_},
        rest));
  }

  void sends_bytes(std::string_view bytes) {
    if (::send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL) !=
        static_cast<ssize_t>(bytes.size())) {
      throw std::runtime_error("the session's connection takes nothing");
    }
  }

  /// The session's next message.
  client::FixMessage hears() {
    for (;;) {
      if (const auto frame = framer_.next()) return client::parse_fix(*frame);
      if (!read_some(10000)) throw std::runtime_error("the session sends nothing");
    }
  }

  /// The body of the session's next message, which must be of this type.
  std::string hears_body(const std::string& type) {
    const client::FixMessage message = hears();
    if (message.type() != type) throw std::runtime_error("heard " + message.text());
    std::string text;
    for (const client::FixField& field : message.body()) {
      text += std::to_string(field.tag) + "=" + field.value + "|";
    }
    return text;
  }

  /// Whether anything more of the session is here already.
  bool hears_more() { return framer_.pending() > 0 || read_some(0); }

 private:
  bool read_some(int timeout_ms) {
    pollfd ready{fd_, POLLIN, 0};
    if (::poll(&ready, 1, timeout_ms) != 1) return false;
    char buffer[65536];
    const ssize_t got = ::recv(fd_, buffer, sizeof buffer, 0);
    if (got <= 0) return false;
    framer_.append({buffer, static_cast<size_t>(got)});
    return true;
  }

  std::string target_;
  int listen_fd_ = -1;
  int fd_ = -1;
  uint16_t port_ = 0;
  client::FixFramer framer_;
};

/// Bodies of messages that a session's checks let pass.
namespace fix_body {

inline std::string accepted(const std::string& cl_ord_id, int exec_number) {
  return "37=7|11=" + cl_ord_id + "|17=E" + std::to_string(exec_number) +
         "|20=0|150=0|39=0|55=AAPL|54=1|38=500|18=i|40=2|47=P|59=0|44=190.5|32=0|31=0|151=500|14=0|"
         "6=0|60=20240102-03:04:05.006";
}

constexpr const char* REPLAYED = "43=Y|122=20240102-03:04:05.006|";

}  // namespace fix_body
