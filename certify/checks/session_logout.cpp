#include <algorithm>
#include <deque>

#include "certify/checks/order_messages.h"
#include "certify/checks/session.h"
#include "certify/checks/session_check.h"

namespace certify {
namespace {

class LogoutCheck : public SessionCheck {
 public:
  using SessionCheck::SessionCheck;

 private:
  struct Left {  // a Logout of the exchange that waits for the client to leave
    TimeNs due = 0;
    uint32_t connection = 0;
    std::string line;
  };

  void on_time(TimeNs now) override {
    for (; !left_.empty() && left_.front().due < now; left_.pop_front()) {
      blame({.at = left_.front().due,
             .what = "The exchange's Logout was neither answered nor followed by an end within " +
                     seconds_text(ns_of(allow().answer)) + ".",
             .evidence = {left_.front().line}});
    }
  }

  void judge(const Event& event, const Noted& noted) override {
    if (noted.connection == nullptr) return;
    const FixConnection& connection = *noted.connection;
    const WireMessage* heard = sent_by_exchange(event);
    const WireMessage* sent = sent_by_client(event);
    if (heard != nullptr && heard->type() == "5") on_logout_heard(event, connection);
    if (sent != nullptr && sent->flaws().empty()) on_sent(event, *sent, connection);
    if (const auto* ended = std::get_if<FixEnded>(&event.what)) {
      on_ended(event, *ended, connection);
    }
    const bool answered = sent != nullptr && sent->type() == "5";
    if (answered || connection.ended()) {
      std::erase_if(left_, [&](const Left& left) { return left.connection == connection.number; });
    }
  }

  void on_logout_heard(const Event& event, const FixConnection& connection) {
    seen();
    if (connection.logout_sent != 0) return;  // the answer
    left_.push_back({event.at + ns_of(allow().answer), connection.number, quoted(event)});
  }

  void on_sent(const Event& event, const WireMessage& message, const FixConnection& connection) {
    // Orders into a session that is down are orders.session_up's to blame.
    if (is_order_message(std::get<FixHeard>(event.what))) return;
    const bool logout = message.type() == "5";
    if (connection.logout_heard != 0 && !logout &&
        event.at > connection.logout_heard + ns_of(allow().grace)) {
      blame_word(event, message, "the exchange's Logout", connection.logout_heard);
    } else if (connection.logout_sent != 0 && connection.logout_sent < event.at && !logout &&
               connection.logout_heard == 0 && !is_answer(message)) {
      blame_word(event, message, "the client's own Logout", connection.logout_sent);
    }
  }

  static bool is_answer(const WireMessage& message) {
    return message.possible_duplicate() || message.type() == "4" ||
           (message.type() == "0" && !message.value(112).empty());
  }

  void blame_word(const Event& event, const WireMessage& message, const std::string& logout,
                  TimeNs at) {
    seen();
    blame({.at = event.at,
           .what = name_in_text(message) + " was sent behind " + logout + ".",
           .evidence = {time_text(at) + "  " + logout, quoted(event)}});
  }

  /// Its own Logout waits for the answer or for the exchange's end.
  void on_ended(const Event& event, const FixEnded& ended, const FixConnection& connection) {
    const bool first = connection.exchange_ended == 0 || connection.exchange_ended == event.at;
    if (connection.logout_sent == 0 || !first) return;
    seen();
    if (ended.by != Party::CLIENT || ended.by_link || connection.logout_heard != 0) return;
    if (event.at - connection.logout_sent >= ns_of(allow().answer)) return;
    blame(
        {.at = event.at,
         .what = "The client ended its connection " +
                 seconds_text(event.at - connection.logout_sent) +
                 " behind its Logout and did not wait for the answer.",
         .evidence = {time_text(connection.logout_sent) + "  the client's Logout", quoted(event)}});
  }

  std::deque<Left> left_;  // in order of time
};

}  // namespace

std::unique_ptr<Check> make_logout_check(const char* name, const CheckContext& context) {
  return std::make_unique<LogoutCheck>(name, context);
}

}  // namespace certify
