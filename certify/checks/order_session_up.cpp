#include <chrono>
#include <set>
#include <string>

#include "certify/checks/order_checks.h"
#include "certify/checks/order_messages.h"

namespace certify {
namespace {

/// Keeps to what the wire says: a silence alone is no end of a session.
class OrderSessionUp : public Check {
 public:
  OrderSessionUp(const char* name, const CheckContext& context)
      : Check(name), grace_(std::chrono::nanoseconds(context.plan.allow.grace).count()) {}

  void on_event(const Event& event) override {
    const auto* heard = std::get_if<FixHeard>(&event.what);
    if (heard != nullptr && is_order_message(*heard) && !sessions_.closing()) {
      judge(*heard, event);
    }
    sessions_.take(event);
    if (heard == nullptr) return;
    // Behind a lapse that swallowed the reply to a Logon, whatever is heard next shows the session.
    const std::string& type = heard->message.type();
    if (heard->from == Party::CLIENT && type == "A") spoke_.erase(heard->connection);
    if (heard->from == Party::EXCHANGE && type != "5") spoke_.insert(heard->connection);
  }
  void finish(TimeNs) override {}

 private:
  void judge(const FixHeard& heard, const Event& event) {
    const FixConnection* const connection = sessions_.connection(heard.connection);
    // An order ahead of any Logon is for session.logon.
    if (connection == nullptr || connection->logon_sent == 0) return;
    seen();
    const std::string down = why_down(*connection, event.at);
    if (down.empty()) return;
    // A ResendRequest may be answered behind one's own Logout, and the exchange passes over it.
    if (connection->logout_heard == 0 && connection->logout_sent != 0 &&
        heard.message.possible_duplicate()) {
      return;
    }
    blame({event.at, "an order was sent " + down, {evidence_of(event)}});
  }

  std::string why_down(const FixConnection& connection, TimeNs now) const {
    if (connection.logout_sent != 0) {
      return "behind the client's own Logout of " + time_text(connection.logout_sent);
    }
    if (known(connection.logout_heard, now)) {
      return "after the exchange's Logout of " + time_text(connection.logout_heard);
    }
    if (known(connection.exchange_ended, now)) {
      return "on a connection that the exchange had ended at " +
             time_text(connection.exchange_ended);
    }
    if (connection.logged_on == 0 && !spoke_.contains(connection.number)) {
      return "before the Logon of " + time_text(connection.logon_sent) + " was answered";
    }
    return {};
  }

  bool known(TimeNs told, TimeNs now) const { return told != 0 && told + grace_ < now; }

  TimeNs grace_;
  SessionView sessions_;
  std::set<uint32_t> spoke_;  // connections on which the exchange has been heard since the Logon
};

}  // namespace

std::unique_ptr<Check> make_order_session_up_check(const char* name, const CheckContext& context) {
  return std::make_unique<OrderSessionUp>(name, context);
}

}  // namespace certify
