#pragma once

#include <netinet/in.h>
#include <poll.h>

#include <cerrno>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "day/day_outputs.h"

namespace day {

/// A network in memory. Its exchange side stands behind the calls of base/sockets.h, which are
/// linked here in place of the real ones; a descriptor is never given out twice, so that any use
/// of a closed one shows. All that the exchange does is noted in the outputs of the day.
///
/// What the world sends arrives with a turn: a call of the exchange draws no chance, so that how
/// often it looks for bytes that are not there changes nothing.
class Network {
 public:
  /// In place of a datagram's or a send's limit: as much as there is.
  static constexpr int64_t ALL = -1;
  static constexpr int64_t BROKEN = -2;  // the send fails and goes on failing

  struct Ports {
    uint16_t fix = 0;
    uint16_t snap = 0;
    uint16_t control = 0;
    uint16_t gap_fill = 0;
  };

  /// Becomes the network of this process until it is destroyed.
  Network(const Ports& ports, Outputs& outputs);
  ~Network();
  Network(const Network&) = delete;
  Network& operator=(const Network&) = delete;

  /// How long a wait of the loop takes.
  struct Wait {
    uint64_t until_event_ns = 0;  // if something comes for a descriptor of its set; else, to the
                                  // time-out
    uint64_t asleep_ns = 0;       // on top of either: the whole machine stood still
    std::optional<uint64_t> without_event_ns = {};  // in place of the time-out
  };
  /// Called in each wait of the loop, which ends a turn: the other side acts now.
  std::function<Wait()> on_wait;
  bool sends_take_time = true;  // a little each; false: the clock stands still between the waits
  /// If set: every send of a connection, whole, however much of it is then taken; every datagram.
  std::function<void(size_t connection, std::string_view bytes)> on_send;
  std::function<void(Kind kind, std::string_view bytes)> on_datagram;
  /// If set: what each wait waits for, and for how long at most.
  std::function<void(std::span<const pollfd> set, int timeout_ms)> on_poll;

  // --- The world's side ---

  void take_port(uint16_t port) { taken_ports_.insert(port); }  // a bind there fails

  /// A new connection to a TCP port; good for the day.
  size_t connect(uint16_t port);
  size_t connections() const { return connections_.size(); }  // ever made
  /// The next accept on the port fails once: for want of a descriptor, or because the connection
  /// that waited is gone.
  void fail_next_accept(uint16_t port, int error = EMFILE);

  /// `bytes` can be read from `turn` on, as one piece, behind all that was sent before.
  void send(size_t connection, std::string bytes, uint64_t turn);
  void send_datagram(uint16_t port, std::string bytes, uint16_t from_port);
  /// The end of the stream, or its reset.
  void end(size_t connection, bool reset, uint64_t turn);
  /// How much each of the next sends takes, in turn: 0 is a full buffer, which a wait empties.
  void limit_sends(size_t connection, std::deque<int64_t> limits);

  /// What has come on the connection since the last call, one entry for each send.
  std::vector<std::string> take_received(size_t connection);
  std::vector<std::string> take_feed() { return std::exchange(feed_, {}); }
  bool closed_by_exchange(size_t connection) const { return connections_[connection].closed; }

  /// Uses of a descriptor that make no sense: of a closed one, or a read that would block forever.
  uint64_t misuses() const { return misuses_; }

  // --- The exchange's side ---

  int open_socket(bool tcp);
  bool bind(int fd, in_addr_t address, uint16_t port);
  bool listen(int fd, int backlog);
  int accept(int listen_fd);
  void set_option(int fd, std::string_view name);
  ssize_t receive(int fd, void* bytes, size_t size);
  ssize_t receive_datagram(int fd, void* bytes, size_t size, sockaddr_in& from);
  ssize_t send_bytes(int fd, const void* bytes, size_t size);
  void send_datagram_to(int fd, const void* bytes, size_t size, const sockaddr_in& to);
  int wait(std::span<pollfd> set, int timeout_ms);
  void close(int fd);

 private:
  struct Piece {
    std::string bytes;  // empty at the end of the stream
    uint64_t turn = 0;
    bool reset = false;
  };
  struct Connection {
    uint16_t port = 0;
    int fd = -1;  // -1 until it is accepted
    bool closed = false;
    std::deque<Piece> inbound;  // the first may have been read in part
    size_t read = 0;            // bytes of the first
    std::deque<int64_t> limits;
    std::vector<std::string> received;
  };
  struct Datagram {
    std::string bytes;
    uint16_t from_port = 0;
  };
  struct Socket {
    bool tcp = false;
    bool nonblocking = false;
    bool listening = false;
    bool multicast = false;
    bool open = true;
    uint16_t port = 0;
    int64_t connection = -1;         // index
    std::deque<size_t> waiting;      // of a listener: not yet accepted
    std::deque<Datagram> datagrams;  // of a UDP socket
    int accept_error = 0;            // of the next accept; 0: none
  };

  Socket* open_socket_of(int fd, const char* call);
  Socket* bound_to(bool tcp, uint16_t port);
  ssize_t fail(int error);
  bool readable(const Socket& socket) const;
  Kind datagram_kind(const Socket& socket) const;
  void act(std::string_view what, int fd, std::string_view more = {});
  void spend_time();

  const Ports ports_;
  Outputs& outputs_;
  int next_fd_ = 3;
  std::map<int, Socket> sockets_;
  std::vector<Connection> connections_;
  std::set<uint16_t> taken_ports_;
  std::vector<std::string> feed_;
  uint64_t acts_ = 0;
  uint64_t misuses_ = 0;
};

}  // namespace day
