#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>

#include "quorl/client/bytes.h"
#include "quorl/client/port_slot.h"
#include "quorl/client/udp.h"

namespace client = quorl::client;

namespace perf {

/// "S0:190,S1:190,...": a list for --symbols.
std::string symbol_list(size_t count);

/// Counts the ticks of the walk from the feed. A tick goes through the symbols in the order of
/// their listing and changes every book: it has ended when the last symbol shows.
class TickCounter {
 public:
  /// Of an exchange that lists symbol_list(symbols), 2 or more.
  TickCounter(const client::Ports& ports, size_t symbols);

  /// Takes what waits in the socket. Throws WrongReply for a message of no such symbol.
  void drain();
  /// Returns once `ticks` have ended in all. Throws WrongReply if no book changes for about as
  /// long as `patience`.
  void await_ticks(uint64_t ticks, std::chrono::milliseconds patience);

  /// One packet of the feed.
  void take(client::ByteView packet);

  uint64_t ticks() const { return ticks_; }

 private:
  client::UdpSocket socket_;
  const size_t last_symbol_;
  uint64_t ticks_ = 0;
  uint64_t book_changes_ = 0;
  size_t latest_symbol_ = 0;
};

}  // namespace perf
