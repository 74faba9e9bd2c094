#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "quorl/client/deadline.h"
#include "quorl/client/fix_message.h"
#include "quorl/client/fix_session.h"

namespace quorl::client {

/// An initiator that loses nothing: it reconnects, continues its numbers, asks again for every
/// number it has not seen, answers the exchange's own ResendRequests and TestRequests, and keeps
/// each application message exactly once. A replay must agree with the first transmission in all
/// but 9, 10, 43, 52 and 122; a GapFill must not cover a number that carried an application
/// message; no ExecID may come under two numbers. Throws WireError otherwise.
class RecoveringFixClient {
 public:
  RecoveringFixClient(uint16_t port, std::string comp_id);

  /// Connects and logs on without 141, continuing both numbers. A Logon that meets a lapse is not
  /// answered: the reply is then recovered as a number like any other.
  void log_on(const std::string& heartbeat_s = "30");

  /// Ends the connection without a word; `log_on` comes back.
  void drop_connection() { session_.abort(); }

  /// For sending orders; receive only through this object.
  FixSession& session() { return session_; }

  /// Takes over what has arrived, waiting for the first message until the deadline. Returns false
  /// once the connection is gone.
  bool pump(std::chrono::milliseconds patience);

  /// Pumps until `done()`; logs on again, a bounded number of times, whenever the connection is
  /// gone; asks again for what is still missing every half second. Returns whether it is done.
  bool run_until(const std::function<bool()>& done, std::chrono::milliseconds patience = PATIENCE);

  /// Recovers until a TestRequest is answered and no number is missing: everything that the
  /// exchange had composed for this client before the call is then here. Throws Timeout.
  void recover(std::chrono::milliseconds patience = PATIENCE);

  bool complete() const { return missing_.empty(); }
  const std::set<uint32_t>& missing() const { return missing_; }

  /// 35=8 and 35=9 by their MsgSeqNum, as first received.
  const std::map<uint32_t, FixMessage>& application_messages() const { return application_; }
  /// ExecutionReports in order of MsgSeqNum, which is the order of composing.
  std::vector<FixMessage> reports() const;
  std::vector<std::string> exec_ids() const;

  unsigned logons() const { return logons_; }
  unsigned resend_requests_sent() const { return resend_requests_sent_; }
  unsigned replays_received() const { return replays_received_; }

 private:
  void on_message(const FixMessage& message);
  void on_application(const FixMessage& message);
  void on_gap_fill(const FixMessage& message);
  void on_resend_request(const FixMessage& message);
  void note_number(uint32_t seq);
  void ask_for_missing();

  FixSession session_;
  std::string heartbeat_s_ = "30";
  std::set<uint32_t> missing_;
  std::map<uint32_t, FixMessage> application_;
  std::map<std::string, uint32_t> seq_of_exec_id_;
  uint32_t next_in_ = 1;   // one above the highest number seen
  bool answered_ = false;  // the TestRequest of recover()
  unsigned barriers_ = 0;
  unsigned logons_ = 0;
  unsigned resend_requests_sent_ = 0;
  unsigned replays_received_ = 0;
};

}  // namespace quorl::client
