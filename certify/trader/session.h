#pragma once

#include <compare>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "certify/trader/habits.h"
#include "certify/trader/moment.h"
#include "certify/trader/pauses.h"
#include "certify/trader/sent_messages.h"
#include "quorl/client/fix_message.h"
#include "tools/trade/incoming_numbers.h"

namespace certify::trader {

struct SessionOptions {
  std::string comp_id = "TRADER";
  std::chrono::seconds heartbeat{1};  // 108
  bool reset = true;                  // the first Logon begins with number 1 (141=Y)
  bool replays = false;  // asked to send again, it does so with 43=Y, instead of one GapFill
};

/// Where a report stands among all that the exchange has composed for us: the Replaced that
/// overtakes its fills has the higher place.
struct ReportPlace {
  uint32_t life = 0;  // of the numbers: each reset begins another
  uint32_t seq = 0;
  auto operator<=>(const ReportPlace&) const = default;
};

/// Who has a session hears of it, at once.
class SessionOwner {
 public:
  virtual ~SessionOwner() = default;
  virtual void on_bytes_to_send(std::string_view bytes) = 0;
  /// The connection is to be closed; Session::on_disconnected follows.
  virtual void on_hang_up() = 0;
  /// An ExecutionReport or OrderCancelReject, each once, in the order in which they came.
  virtual void on_report(const quorl::client::FixMessage& message, ReportPlace place) = 0;
  virtual void on_remark(const std::string& remark) = 0;
};

/// A FIX session from the initiator's side, over any number of connections. It has no socket and no
/// clock: whoever has them tells what came and what time it is.
class Session {
 public:
  Session(SessionOptions options, Habits& habits, SessionOwner& owner);

  // What happens to it.
  void on_connected(Moment now);  // logs on
  void on_bytes(std::string_view bytes, Moment now);
  void on_disconnected(Moment now);
  void on_no_connection(Moment now);  // an attempt that failed
  void on_time(Moment now);

  /// When on_time has something to do.
  Moment next_due() const;
  /// When to connect; nothing while there is a connection, or once it has logged out.
  std::optional<Moment> connect_at() const { return connect_at_; }

  void send(const std::string& type, const quorl::client::FixFields& body, Moment now);
  /// Whoever is not logged on leaves without a word. Over once it is answered, or not in time.
  void log_out(Moment now);

  /// Orders may be sent: logged on, nothing is missing, and the line is not in doubt.
  bool ready() const;
  bool up() const { return state_ == State::UP; }
  /// Its Logon is not answered yet.
  bool logging_on() const { return state_ == State::LOGGING_ON; }
  bool was_up() const { return was_up_; }
  /// It has left.
  bool over() const { return over_; }

  /// Whatever was sent before this moment and has not been answered never arrived. settle() asks
  /// for a later one, by a TestRequest: reports come before its answer.
  Moment settled() const { return settled_; }
  void settle(Moment now);

  /// The number of the exchange below which nothing is missing.
  ReportPlace complete_below() const;
  uint32_t next_out() const { return next_out_; }
  const SessionOptions& options() const { return options_; }

 private:
  enum class State { APART, LOGGING_ON, UP, LOGGING_OUT };
  struct Ask {
    uint32_t last = 0;  // the highest number asked for
    Moment at{};
    unsigned times = 0;  // without effect
  };
  struct Barrier {
    std::string id;
    Moment sent{};
  };

  void send_logon(Moment now);
  void send_numbered(const std::string& type, quorl::client::FixFields body, uint32_t seq,
                     quorl::client::FixFields extra, Moment now);
  void take(std::string_view frame, Moment now);
  void note_number(const quorl::client::FixMessage& message);
  void on_message(const quorl::client::FixMessage& message, Moment now);
  void come_up(Moment now);
  void on_logout(const quorl::client::FixMessage& message, Moment now);
  void on_resend_request(const quorl::client::FixMessage& message, Moment now);
  void replay(uint32_t from, uint32_t to, Moment now);
  void fill_gap(uint32_t from, uint32_t behind, Moment now);
  void note_settled();
  void watch_line(Moment now);
  void ask_for_holes(Moment now);
  void hang_up(const std::string& why);
  void test_line(const std::string& id, Moment now);
  Moment hole_due() const;
  Milliseconds silence_limit() const;
  Milliseconds logon_patience() const;
  Moment silence_due() const;

  SessionOptions options_;
  Habits& habits_;
  SessionOwner& owner_;
  quorl::client::FixFramer framer_;
  tools::IncomingNumbers incoming_;
  SentMessages sent_;
  Pauses pauses_;

  State state_ = State::APART;
  bool first_logon_ = true;
  bool reset_refused_numbers_ = false;  // the numbers were refused and none was named
  bool was_up_ = false;
  bool leaving_ = false;  // no connection behind this one
  bool over_ = false;
  uint32_t next_out_ = 1;
  uint32_t life_ = 0;  // of the exchange's numbers
  std::optional<Moment> connect_at_ = Moment{};
  Moment connected_at_{};
  std::optional<Moment> up_since_;
  Moment last_sent_{};
  Moment last_heard_{};
  Moment logout_at_{};
  std::optional<Moment> tested_at_;  // the silence that lasts
  std::optional<Moment> hole_since_;
  std::optional<Ask> asked_;
  std::optional<Barrier> barrier_;
  std::optional<Moment> passed_;  // a barrier that is good once nothing is missing
  Moment settled_{};
  unsigned tests_ = 0;
};

}  // namespace certify::trader
