#include <deque>

#include "certify/checks/session.h"
#include "certify/checks/session_check.h"

namespace certify {
namespace {

class TestRequestCheck : public SessionCheck {
 public:
  using SessionCheck::SessionCheck;

 private:
  struct Asked {
    TimeNs due = 0;
    uint32_t connection = 0;
    std::string id;  // 112
    std::string line;
  };

  void on_time(TimeNs now) override {
    for (; !asked_.empty() && asked_.front().due < now; asked_.pop_front()) {
      seen();
      blame({.at = asked_.front().due,
             .what = "A TestRequest was not answered within " +
                     seconds_text(ns_of(allow().answer)) + " by a Heartbeat with its 112.",
             .evidence = {asked_.front().line}});
    }
  }

  void judge(const Event& event, const Noted& noted) override {
    if (noted.connection == nullptr) return;
    const FixConnection& connection = *noted.connection;
    const WireMessage* heard = sent_by_exchange(event);
    const WireMessage* sent = sent_by_client(event);
    if (heard != nullptr && heard->type() == "1") {
      asked_.push_back(
          {event.at + ns_of(allow().answer), connection.number, heard->value(112), quoted(event)});
    } else if (sent != nullptr && sent->type() == "0" && sent->flaws().empty()) {
      on_heartbeat(connection.number, sent->value(112));
    }
    // What cannot be read may be the answer; an end takes the question with it.
    const bool unreadable = std::holds_alternative<FixGarbage>(event.what) ||
                            (sent != nullptr && !sent->flaws().empty());
    if (unreadable || connection.ended() || connection.logout_sent != 0 ||
        connection.logout_heard != 0) {
      std::erase_if(asked_,
                    [&](const Asked& asked) { return asked.connection == connection.number; });
    }
  }

  void on_heartbeat(uint32_t connection, const std::string& id) {
    const auto answered = std::find_if(asked_.begin(), asked_.end(), [&](const Asked& asked) {
      return asked.connection == connection && asked.id == id;
    });
    if (answered == asked_.end()) return;
    seen();
    asked_.erase(answered);
  }

  std::deque<Asked> asked_;  // in order of time
};

}  // namespace

std::unique_ptr<Check> make_test_request_check(const char* name, const CheckContext& context) {
  return std::make_unique<TestRequestCheck>(name, context);
}

}  // namespace certify
