#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>
#include <string_view>
#include <vector>

#include "fix/session.h"
#include "support/exchange.h"

// A FIX gateway with an exchange behind it and real sockets in front of it:
//
//   WireGateway gateway;
//   WirePeer alpha = gateway.logs_on("ALPHA");
//   alpha.says("35=1|34=2|112=hello");
//   alpha.hears("35=0|34=2|112=hello");
//
// The sockets are local stream sockets: what one end writes is there for the other at once, so no
// test ever waits.

namespace quorl::test {

class WireGateway;

/// The client's end of one connection. Copies speak for the same connection.
class WirePeer {
 public:
  /// These bytes as they stand; the gateway has not read them yet.
  void writes(std::string_view bytes);
  /// One whole message around "35=0|34=2", which the gateway reads and handles at once.
  void says(std::string_view body);

  /// Takes the next message. The tags named must match; "!58" says that a tag must be absent.
  void hears(std::string_view expected, const char* file = __builtin_FILE(),
             int line = __builtin_LINE());
  /// Takes the next message and compares every byte; SOH is written '|'.
  void hears_exactly(std::string_view expected, const char* file = __builtin_FILE(),
                     int line = __builtin_LINE());
  /// Nothing waits, and the connection is open.
  void hears_nothing(const char* file = __builtin_FILE(), int line = __builtin_LINE());
  /// Nothing waits, and the other end has closed.
  void is_disconnected(const char* file = __builtin_FILE(), int line = __builtin_LINE());
  /// Takes the next message as it came; empty, and a failed test, if there is none.
  std::string next_message(const char* file = __builtin_FILE(), int line = __builtin_LINE());
  void skips_all();

  /// Closes the client's end.
  void closes();

  Client& client();
  SessionMemory stream();

 private:
  friend class WireGateway;
  WirePeer(WireGateway& gateway, size_t index) : gateway_(&gateway), index_(index) {}
  void takes_what_came();

  WireGateway* gateway_;
  size_t index_;
};

class WireGateway {
 public:
  explicit WireGateway(const std::string& symbols = "AAPL:190.00", bool quiet = true);
  ~WireGateway();
  WireGateway(const WireGateway&) = delete;
  WireGateway& operator=(const WireGateway&) = delete;

  /// A connection that waits to be accepted.
  int dials() const;

  /// A connection that has been accepted, and is not logged on.
  WirePeer connects();

  /// Connects and logs on under the number that the stream expects; the reply has been heard.
  WirePeer logs_on(const std::string& comp_id, int heartbeat_s = 30);

  /// One read pass over all connections.
  void serves();

  /// The timers at the present time.
  void runs_timers();

  /// Composes what is owed and sends it, as the loop does.
  void sends_deferred();

  /// No FIX output for `ms` from now.
  void is_silent_for(uint64_t ms);

  Exchange exchange;
  FixGateway sessions;
  int listen_fd = -1;

 private:
  friend class WirePeer;
  struct Connection {
    int fd = -1;
    std::deque<std::string> inbox;  // whole messages
    bool other_end_closed = false;
  };
  std::vector<Connection> connections_;
  std::array<char, 65536> scratch_;
};

}  // namespace quorl::test
