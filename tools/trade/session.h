#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "quorl/client/deadline.h"
#include "quorl/client/fix_message.h"
#include "quorl/client/tcp.h"
#include "tools/trade/incoming_numbers.h"

namespace tools {

struct SessionOptions {
  std::string address = "127.0.0.1";
  uint16_t port = 28500;
  std::string comp_id = "TRADER";
  uint32_t heartbeat_s = 30;  // 108
};

/// One FIX session from the initiator's side, over any number of connections, that never waits: it
/// sends, and takes what has come. Of itself it does no more than a session needs: Heartbeats, an
/// answer to a TestRequest, and a GapFill where the exchange asks for messages again (an old order
/// is not to be executed late).
class Session {
 public:
  using Moment = std::chrono::steady_clock::time_point;

  /// What it tells its owner, at once.
  struct Listener {
    std::function<void(std::string_view bytes, bool is_plain_heartbeat)> on_sent;
    /// A message, and how it stood on the wire.
    std::function<void(const quorl::client::FixMessage& message)> on_heard;
    /// What came is no message that could be read; the connection may be gone over it.
    std::function<void(const std::string& what)> on_unreadable;
    std::function<void(const std::string& remark)> on_remark;
  };

  Session(SessionOptions options, Listener listener);

  // The connection.
  /// Throws SystemError if the port refuses, Timeout.
  void connect(quorl::client::Deadline deadline);
  void close();
  bool connected() const { return stream_.open(); }
  /// The exchange has accepted a Logon on this connection.
  bool logged_on() const { return connected() && logged_on_; }
  int fd() const { return stream_.fd(); }  // -1 if not connected

  // Sending. Nothing happens without a connection.
  /// With 141=Y both numbers begin at 1 again.
  void send_logon(bool reset);
  /// Adds the head, with the next number. `seq`, if given, stands in its place and moves nothing.
  void send(const std::string& type, const quorl::client::FixFields& body,
            const std::optional<std::string>& seq = {},
            const quorl::client::FixFields& behind_52 = {});
  /// Fields as a user writes them: 35, 34, 49, 56 and 52 stand in for what would be written.
  void send_raw(const quorl::client::FixFields& fields);
  void send_bytes(std::string_view bytes);

  /// Takes what has come, without waiting. Once the exchange has closed, the session is no longer
  /// connected.
  void read();

  /// When on_time has something to do.
  Moment next_due() const;
  /// Sends a Heartbeat if one is due, and remarks once on a silence.
  void on_time(Moment now);

  uint32_t next_out = 1;  // number of the next message sent
  const IncomingNumbers& incoming() const { return incoming_; }
  const SessionOptions& options() const { return options_; }

 private:
  void take(std::string_view frame);
  void answer(const quorl::client::FixMessage& message);
  std::chrono::seconds silence_worth_a_remark() const;

  SessionOptions options_;
  Listener listener_;
  quorl::client::TcpStream stream_;
  quorl::client::FixFramer framer_;
  IncomingNumbers incoming_;
  bool logged_on_ = false;
  bool silence_told_ = false;
  Moment last_sent_{};
  Moment last_heard_{};
};

}  // namespace tools
