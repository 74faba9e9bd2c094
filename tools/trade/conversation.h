#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "quorl/client/fix_message.h"
#include "tools/stop_signal.h"
#include "tools/trade/command.h"
#include "tools/trade/line_reader.h"
#include "tools/trade/orders.h"
#include "tools/trade/session.h"

namespace tools {

struct ConversationOptions {
  SessionOptions session;
  bool reset = true;       // the first Logon carries 141=Y
  bool reconnect = false;  // a lost connection is taken up again without being asked
  bool explain = false;    // names for numbers
  bool all = false;        // plain Heartbeats are shown too
  bool at_terminal = false;
  std::chrono::milliseconds timeout{5000};  // of expect, wait, and for a Logon or Logout
};

/// Reads commands and carries them out, and shows what goes out ("> "), what comes in ("< ") and
/// what there is to remark ("! "). At a terminal a mistake is said; in a script it ends it.
class Conversation {
 public:
  Conversation(ConversationOptions options, const StopSignal& stop);

  /// From the first Logon to the end. Returns the exit status.
  int run(LineReader& input);

 private:
  using Moment = std::chrono::steady_clock::time_point;
  enum class LogonResult { ON, REFUSED, NOBODY };

  struct Heard {
    std::string plain;      // as shown
    std::string explained;  // likewise, with names
    quorl::client::FixMessage message;
    bool is_refusal = false;
  };

  // What the session tells.
  void on_sent(std::string_view bytes, bool is_plain_heartbeat);
  void on_heard(const quorl::client::FixMessage& message);
  void remark(const std::string& text);
  void print(const std::string& line);

  // Waiting.
  bool pump(int input_fd, Moment until);
  bool wait_until(const std::function<bool()>& done, std::chrono::milliseconds patience);
  void notice_loss();
  void notice_missing();
  Moment missing_due() const;

  // The session.
  LogonResult log_on(bool reset);
  LogonResult try_log_on(bool reset);
  bool take_number_from_refusal();
  void come_back();
  void log_out();
  void ask_for(uint32_t from, uint32_t to);

  // Commands.
  void obey(const std::string& line);
  void fail(int status, const std::string& text);
  bool needs_session();
  void carry_out(const command::Nothing&) {}
  void carry_out(const command::Place& place);
  void carry_out(const command::Cancel& cancel);
  void carry_out(const command::Replace& replace);
  void carry_out(const command::Raw& raw);
  void carry_out(const command::RawBytes& raw);
  void carry_out(const command::Resend& resend);
  void carry_out(const command::Test& test);
  void carry_out(const command::SetNumber& set);
  void carry_out(const command::Reconnect& reconnect);
  void carry_out(const command::LogOut&);
  void carry_out(const command::Drop&);
  void carry_out(const command::Wait& wait);
  void carry_out(const command::Expect& expect);
  void carry_out(const command::ExpectClosed&);
  void carry_out(const command::Sleep& sleep);
  void carry_out(const command::SetTimeout& set);
  void carry_out(const command::ShowOrders&);
  void carry_out(const command::ShowStatus&);
  void carry_out(const command::Help&);
  void carry_out(const command::Quit&) { over_ = true; }

  // Expecting.
  void await_message(const std::function<bool(const Heard&)>& wanted, const std::string& sought);
  void pass(const Heard& heard);
  int status_at_end();

  ConversationOptions options_;
  const StopSignal& stop_;
  Session session_;
  Orders orders_;

  std::deque<Heard> heard_;  // what no expect or wait has passed yet, the latest of it
  std::string refusal_;      // the first that nobody expected, as it stood on the wire
  uint64_t refusals_ = 0;    // all of them

  bool had_session_ = false;  // and its end would be a loss
  bool lost_ = false;         // the exchange ended it, and nobody has dealt with that
  bool loss_unseen_ = false;  // by "expect closed"
  bool is_offered_ = false;   // the user has been asked whether to log on again
  bool coming_back_ = false;
  bool logging_on_ = false;
  std::string logon_problem_;               // why the latest Logon came to nothing
  std::optional<std::string> logout_text_;  // 58 of a Logout that answered it

  std::string missing_seen_;  // what was missing when that was last looked at
  Moment missing_since_{};
  uint32_t missing_told_ = 0;  // the highest missing number that has been told of

  unsigned tests_ = 0;  // names TestRequests
  uint64_t line_number_ = 0;
  bool over_ = false;
  std::optional<int> failure_;
};

}  // namespace tools
