#pragma once

#include <netinet/in.h>

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string_view>
#include <utility>

#include "certify/tap/link.h"
#include "certify/tap/pipe.h"
#include "certify/tap/sockets.h"
#include "certify/tap/tap_context.h"

namespace certify {

/// Relays gap-fill datagrams. Each of the client's sockets, known by address and port, has one of
/// the tap's own to the exchange, by which the replies find their way; beyond 64 of them the one
/// that was silent for longest is given up, and counts as a new one if it speaks again.
class DatagramTap {
 public:
  /// Throws client::SystemError if the port cannot be had. The context must live as long.
  DatagramTap(uint16_t exchange_port, uint16_t wanted, TapContext& context);

  uint16_t port() const { return port_of(listening_); }

  void on_ready(const ReadySocket& socket);
  void serve();
  std::optional<TimeNs> due() const;
  /// Of a state of the link, not a cut both ways.
  void order(const LinkOrder& order);
  void cut();
  void close();
  /// Since it was last asked.
  bool stall_just_ended() { return links_.stall_just_ended(context_.now); }

 private:
  using Address = std::pair<uint32_t, uint16_t>;  // in network order
  struct Socket {
    sockaddr_in client{};
    Descriptor to_exchange;
    uint64_t spoke = 0;  // counts datagrams: the least was silent for longest
  };

  void take_requests();
  void take_replies();
  void take_replies_of(uint32_t number);
  uint32_t number_of(const sockaddr_in& client);
  void give_up_oldest();
  void take(Party from, uint32_t number, const Received& got);
  void hand(Party from);
  bool hand_front(Party from);
  void lose_all(Party from);
  void tell_lost(Party from, uint32_t number, size_t count);
  Pipe& pipe(Party from) { return from == Party::CLIENT ? requests_ : replies_; }
  const Link& link(Party from) const {
    return from == Party::CLIENT ? links_.to_exchange : links_.to_client;
  }

  uint16_t exchange_port_;
  TapContext& context_;
  Descriptor listening_;
  bool requests_wait_ = false;
  uint32_t last_number_ = 0;
  uint64_t datagrams_ = 0;
  TimeNs try_again_at_ = 0;  // after the system would take no datagram
  Links links_;
  Pipe requests_;
  Pipe replies_;
  std::map<uint32_t, Socket> sockets_;  // by number
  std::map<Address, uint32_t> numbers_;
  std::set<uint32_t> replies_wait_;  // numbers of those that may have one
};

}  // namespace certify
