#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "quorl/client/deadline.h"

namespace tools {

/// What came of a question to the control port.
struct Answer {
  enum Kind {
    REPLIED,
    REFUSED,      // the system says that nobody is bound to the port
    SILENT,       // nothing until the deadline
    INTERRUPTED,  // the waker spoke first
  };
  Kind kind = SILENT;
  std::string text = {};  // the reply as it came
};

/// One end of a conversation with the control port at 127.0.0.1. Hears nobody else, and, unlike a
/// socket that is not connected, hears that nobody is there. A reply that comes after its deadline
/// would answer the next question: each question takes a socket of its own.
class ControlSocket {
 public:
  /// Throws SystemError if the system has no socket.
  explicit ControlSocket(uint16_t port);
  ControlSocket(const ControlSocket&) = delete;
  ControlSocket& operator=(const ControlSocket&) = delete;
  ~ControlSocket();

  /// One datagram. That it is lost shows when no reply comes.
  void send(std::string_view text);

  /// `waker`: a descriptor that ends the wait by becoming readable, -1 for none.
  Answer wait(quorl::client::Deadline deadline, int waker = -1);

 private:
  int fd_;
  bool talks_to_itself_;  // it was given the very port that it is to ask
};

/// One question on a socket of its own.
Answer ask(uint16_t port, std::string_view text, quorl::client::Deadline deadline, int waker = -1);

/// Asks for the counters, which changes nothing, until there is a reply. A refusal is not final:
/// who starts an exchange may be faster than the exchange.
Answer wait_until_answering(uint16_t port, quorl::client::Deadline deadline);

}  // namespace tools
