#include <algorithm>
#include <map>

#include "certify/checks/session.h"
#include "certify/checks/session_check.h"
#include "certify/record/visible_text.h"

namespace certify {
namespace {

/// How many messages came lately: those of this second and of the one before.
class LatelyCount {
 public:
  void add(TimeNs at) {
    turn_to(at);
    ++now_;
  }
  uint64_t count(TimeNs at) {
    turn_to(at);
    return before_ + now_;
  }

 private:
  void turn_to(TimeNs at) {
    const TimeNs second = at / SECOND;
    if (second == second_) return;
    before_ = second == second_ + 1 ? now_ : 0;
    now_ = 0;
    second_ = second;
  }

  TimeNs second_ = 0;
  uint64_t before_ = 0;
  uint64_t now_ = 0;
};

/// What was on its way when a connection ended, and may have used numbers that nobody has seen.
struct OnItsWay {
  LatelyCount lately;
  uint64_t at_most = 0;
  bool any_number = false;
};

bool is_text(const WireMessage& message, int tag) { return !message.value(tag).empty(); }

class LogonCheck : public SessionCheck {
 public:
  using SessionCheck::SessionCheck;

 private:
  void judge(const Event& event, const Noted& noted) override {
    if (noted.connection == nullptr) return;
    if (std::holds_alternative<FixEnded>(event.what)) {
      on_ended(event, noted);
      note_wait(event.at, *noted.connection);
    }
    const WireMessage* message = sent_by_client(event);
    if (message == nullptr) return;
    // What is no good frame is session.frames' to blame, and a Logon may hide in it.
    const bool good = message->flaws().empty();
    if (noted.connection->messages_sent == 1 && message->type() != "A" && good) {
      seen();
      blame({.at = event.at,
             .what = "The first message on a connection is " + name_in_text(*message) +
                     " and no Logon.",
             .evidence = {quoted(event)}});
    }
    if (message->type() == "A" && good) on_logon(event, *message, noted);
    if (noted.session != nullptr) ways_[noted.session->comp_id].lately.add(event.at);
  }

  void on_logon(const Event& event, const WireMessage& message, const Noted& noted) {
    seen();
    std::string flaw = flaw_of_fields(message);
    if (flaw.empty() && noted.sent == SentKind::LOGON) flaw = flaw_of_number(event, message, noted);
    if (!flaw.empty()) {
      Fault fault{.at = event.at, .what = "A Logon " + flaw + ".", .evidence = {}};
      if (noted.before.last.at != 0) fault.evidence.push_back(text_of(noted.before.last));
      fault.evidence.push_back(quoted(event));
      blame(std::move(fault));
    }
    if (noted.session != nullptr) ways_.erase(noted.session->comp_id);
  }

  static std::string flaw_of_fields(const WireMessage& message) {
    if (!is_text(message, 98)) return "carries no EncryptMethod (98)";
    if (!is_text(message, 108)) return "carries no HeartBtInt (108)";
    if (!message.number(108)) {
      return "has a HeartBtInt (108) that is no number of seconds, '" +
             visible(message.value(108), 40) + "'";
    }
    return {};
  }

  std::string flaw_of_number(const Event& event, const WireMessage& message, const Noted& noted) {
    const std::string is = "bears 34=" + std::to_string(noted.number);
    const OwnNumbers& before = noted.before;
    if (message.is(141, "Y")) {
      return noted.number == 1 ? "" : is + " with 141=Y, which starts again at 1";
    }
    if (!before.certain || noted.number == before.next) return {};
    if (before.refused_logon != 0) return flaw_behind_refusal(noted, is);
    const std::string due = std::to_string(before.next);
    if (noted.number < before.next) {
      return is + " where the next number after all that the client has sent is " + due +
             ", and declares no reset (141=Y)";
    }
    // Numbers of an earlier life, which no one here has seen.
    if (before.last.at == 0) return {};
    return flaw_of_jump(event, noted, is);
  }

  /// `before.next` itself is right, as for an engine that counts on. So is what the refusal named.
  static std::string flaw_behind_refusal(const Noted& noted, const std::string& is) {
    const OwnNumbers& before = noted.before;
    if (noted.number == before.refused_expecting) return {};
    if (before.refused_expecting == 0) {
      if (noted.number == before.refused_logon) return {};
      return is + " behind a refused one with 34=" + std::to_string(before.refused_logon);
    }
    return is + " though a refusal has named " + std::to_string(before.refused_expecting) +
           " as the number expected, and declares no reset (141=Y)";
  }

  std::string flaw_of_jump(const Event& event, const Noted& noted, const std::string& is) {
    const uint64_t left_out = noted.number - noted.before.next;
    const std::string numbers = text_of(NumberRange{noted.before.next, noted.number - 1});
    const auto way = ways_.find(noted.session->comp_id);
    const bool on_their_way =
        way != ways_.end() && (way->second.any_number || left_out <= way->second.at_most);
    if (on_their_way) {
      remark(time_text(event.at) + ": a Logon " + is + "; " + numbers +
             " may have been lost with the connection before, and no one has seen them");
      return {};
    }
    return is + " and leaves out " + numbers + ", which the client has never sent";
  }

  /// How a connection ends decides whether something sent on it can have gone unseen: behind its
  /// own orderly end nothing can.
  void on_ended(const Event& event, const Noted& noted) {
    const auto& ended = std::get<FixEnded>(event.what);
    if (noted.session == nullptr) return;
    const FixConnection& connection = *noted.connection;
    const bool in_order = ended.by == Party::CLIENT && !ended.reset && !ended.by_link;
    if (in_order && connection.exchange_ended == 0) return;
    OnItsWay& way = ways_[noted.session->comp_id];
    way.at_most = std::max(way.at_most, way.lately.count(event.at) + 1);
    way.any_number = way.any_number || ended.by_link || view().disturbed();
  }

  // --- A client that connects and never says a word ---

  void on_last(TimeNs at) override {
    for (const auto& [number, connection] : view().connections()) {
      if (!connection.ended()) note_wait(at, connection);
    }
  }

  /// The connection has ended, as the first side of it has, or the run has.
  void note_wait(TimeNs at, const FixConnection& connection) {
    if (connection.last_sent != 0) return;  // garbage is session.frames' to blame
    for (const TimeNs ended : {connection.client_ended, connection.exchange_ended}) {
      if (ended != 0 && ended < at) return;
    }
    const TimeNs waited = at - connection.opened;
    if (waited <= ns_of(allow().answer)) return;
    seen();
    blame({.at = at,
           .what = "The client connected, waited for " + seconds_text(waited) +
                   " and never sent a Logon.",
           .evidence = {time_text(connection.opened) + "  FIX " +
                        std::to_string(connection.number) + " was opened"}});
  }

  std::map<std::string, OnItsWay> ways_;  // by SenderCompID
};

}  // namespace

std::unique_ptr<Check> make_logon_check(const char* name, const CheckContext& context) {
  return std::make_unique<LogonCheck>(name, context);
}

}  // namespace certify
