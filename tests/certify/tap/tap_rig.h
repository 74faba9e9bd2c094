#pragma once

#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "certify/tap/sockets.h"
#include "certify/tap/taps.h"
#include "quorl/client/deadline.h"

namespace tap_test {

using namespace certify;
namespace client = quorl::client;

/// What a tap told, by line.
struct Told : TapListener {
  struct Of {
    bool opened = false;
    bool reached = false;
    std::string from_client;
    std::string from_exchange;
    std::vector<Passed> pieces;  // their bytes are gone
    std::vector<Ended> ends;
  };

  Of& of(Service service, uint32_t number) { return lines[{static_cast<int>(service), number}]; }
  Of& fix(uint32_t number) { return of(Service::FIX, number); }
  Of& gap_fill(uint32_t number) { return of(Service::GAP_FILL, number); }
  bool said(std::string_view text) const {
    for (const std::string& what : link) {
      if (what.find(text) != std::string::npos) return true;
    }
    return false;
  }

  void on_opened(Line line, bool reached, TimeNs at) override {
    Of& told = of(line.service, line.number);
    EXPECT_FALSE(told.opened);
    told.opened = true;
    told.reached = reached;
    ++opened;
    in_order(at);
  }
  void on_passed(const Passed& passed) override {
    Of& told = of(passed.line.service, passed.line.number);
    EXPECT_TRUE(told.opened && told.reached);
    EXPECT_LE(passed.taken, passed.told);
    (passed.from == Party::CLIENT ? told.from_client : told.from_exchange) += passed.bytes;
    if (keep_pieces) told.pieces.push_back(passed);
    in_order(passed.told);
  }
  void on_ended(const Ended& ended) override {
    of(ended.line.service, ended.line.number).ends.push_back(ended);
    in_order(ended.at);
  }
  void on_link(std::string_view what, TimeNs at) override {
    link.emplace_back(what);
    in_order(at);
  }

  void in_order(TimeNs at) {
    EXPECT_GE(at, latest);
    latest = at;
  }

  std::map<std::pair<int, uint32_t>, Of> lines;
  std::vector<std::string> link;
  uint32_t opened = 0;
  bool keep_pieces = true;
  TimeNs latest = 0;
};

inline sockaddr_in loopback(uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

/// One end of a TCP connection that never blocks.
class Peer {
 public:
  Peer() = default;
  explicit Peer(Descriptor socket) : socket_(std::move(socket)) {}
  /// The kernel takes the connection, whoever accepts it later.
  static Peer connect_to(uint16_t port) {
    Peer peer(stream_socket());
    const sockaddr_in to = loopback(port);
    (void)::connect(peer.fd(), reinterpret_cast<const sockaddr*>(&to), sizeof to);
    pollfd ready{peer.fd(), POLLOUT, 0};
    EXPECT_EQ(::poll(&ready, 1, 15000), 1);
    EXPECT_EQ(pending_error(peer.socket_), 0);
    return peer;
  }

  /// As much as is taken at once; the number of bytes.
  size_t say(std::string_view bytes) {
    const ssize_t sent = send(socket_, bytes);
    return sent < 0 ? 0 : static_cast<size_t>(sent);
  }
  /// All that has come, up to `most` bytes.
  const std::string& hear(size_t most = SIZE_MAX) {
    std::vector<char> buffer(65536);
    while (!ended && most > 0) {
      const Received got = receive(socket_, buffer.data(), std::min(most, buffer.size()));
      if (got.size > 0) {
        heard.append(buffer.data(), static_cast<size_t>(got.size));
        most -= static_cast<size_t>(got.size);
        continue;
      }
      if (got.size < 0 && errno == EAGAIN) break;
      ended = true;
      reset = got.size < 0;
    }
    return heard;
  }
  bool hears_end() { return hear(), ended; }
  bool hears_reset() { return hear(), reset; }
  void says_no_more() { EXPECT_EQ(::shutdown(fd(), SHUT_WR), 0); }
  void resets() { socket_.reset(); }
  void closes() { socket_.close(); }
  int fd() const { return socket_.get(); }
  bool open() const { return socket_.open(); }

  std::string heard;
  bool ended = false;  // by end of stream or reset
  bool reset = false;

 private:
  Descriptor socket_;
};

/// Where an exchange would listen.
class Port {
 public:
  Port() : socket_(listening_socket(0)) {}
  uint16_t number() const { return port_of(socket_); }
  Peer take() {
    return Peer(Descriptor(::accept4(socket_.get(), nullptr, nullptr, SOCK_NONBLOCK)));
  }
  void close() { socket_.close(); }

 private:
  Descriptor socket_;
};

/// Taps between ports of the test's, and a clock in its hand.
class TapRig {
 public:
  explicit TapRig(uint64_t seed = 1)
      : gap_fill(bound_datagram_socket(0)),
        taps({fix.number(), images.number(), port_of(gap_fill)}, {}, told, seed) {}

  /// One turn of a loop: waits a little if nothing is ready.
  void turn(int wait_ms) {
    std::vector<pollfd> set;
    taps.collect(set);
    const auto due = taps.due();
    (void)::poll(set.data(), set.size(), due && *due <= now ? 0 : wait_ms);
    taps.serve(now);
  }
  /// Turns until it holds. The clock stands still meanwhile.
  [[nodiscard]] bool until(const std::function<bool()>& holds) {
    const auto deadline = client::Deadline::after(client::PATIENCE);
    while (!holds()) {
      if (deadline.expired()) return false;
      turn(1);
    }
    return true;
  }
  /// Loopback delivers while it is sent: what a few turns do not move, the tap holds.
  void settle() {
    for (int i = 0; i < 20; ++i) turn(0);
  }
  /// What has been said by now counts as said before.
  void pass(TimeNs time) {
    settle();
    now += time;
    settle();
  }
  void order(std::string_view text) {
    ASSERT_EQ(flaw_of_link_order(text), std::nullopt);
    taps.order_link(text, now);
  }

  struct Connection {
    Peer client;
    Peer exchange;
  };
  Connection connect() { return connect(fix, taps.ports().fix); }
  Connection connect(Port& port, uint16_t tap) {
    Connection made;
    made.client = Peer::connect_to(tap);
    const uint32_t before = told.opened;
    EXPECT_TRUE(until([&] {
      if (!made.exchange.open()) made.exchange = port.take();
      return made.exchange.open() && told.opened > before;
    }));
    return made;
  }
  [[nodiscard]] bool comes(Peer& peer, std::string_view all) {
    return until([&] { return peer.hear().size() >= all.size(); }) && peer.heard == all;
  }

  Port fix;
  Port images;
  Descriptor gap_fill;
  Told told;
  TimeNs now = 1'000'000 * SECOND;
  Taps taps;
};

inline size_t descriptors_open() {
  size_t count = 0;
  for (int fd = 0; fd < 4096; ++fd) {
    sockaddr_storage address{};
    socklen_t size = sizeof address;
    count += ::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size) == 0 ? 1U : 0U;
  }
  return count;
}

}  // namespace tap_test
