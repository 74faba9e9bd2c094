#include <algorithm>
#include <deque>

#include "certify/checks/session.h"
#include "certify/checks/session_check.h"

namespace certify {
namespace {

class ResendAnsweredCheck : public SessionCheck {
 public:
  using SessionCheck::SessionCheck;

 private:
  struct Asked {
    TimeNs due = 0;
    uint32_t connection = 0;
    NumberRange range;
    NumberRanges owed;  // of it
    std::string line;
  };

  void on_time(TimeNs now) override {
    for (; !asked_.empty() && asked_.front().due < now; asked_.pop_front()) expire(asked_.front());
  }

  void expire(const Asked& asked) {
    seen();
    blame({.at = asked.due,
           .what = "A ResendRequest for " + text_of(asked.range) +
                   " was not answered in full: " + text_of(*asked.owed.first()) +
                   " did not come again, by replay or by GapFill, within " +
                   seconds_text(ns_of(allow().answer)) + ".",
           .evidence = {asked.line}});
  }

  void judge(const Event& event, const Noted& noted) override {
    if (noted.connection == nullptr) return;
    const FixConnection& connection = *noted.connection;
    const WireMessage* heard = sent_by_exchange(event);
    const WireMessage* sent = sent_by_client(event);
    if (heard != nullptr && heard->type() == "2" && noted.session != nullptr) {
      on_request(event, *heard, noted);
    }
    if (sent != nullptr && noted.sent != SentKind::UNREADABLE) on_sent(event, *sent, noted);
    const bool unreadable = std::holds_alternative<FixGarbage>(event.what) ||
                            (sent != nullptr && !sent->flaws().empty());
    const bool reset = sent != nullptr && sent->type() == "A";
    if (unreadable || reset || connection.ended() || connection.logout_heard != 0) {
      // It went with the connection, or the answer cannot be read.
      std::erase_if(asked_,
                    [&](const Asked& asked) { return asked.connection == connection.number; });
    }
  }

  void on_request(const Event& event, const WireMessage& request, const Noted& noted) {
    const uint64_t top = noted.session->out.next - 1;
    const uint64_t last = request.number(16).value_or(0);
    const NumberRange range{std::max<uint64_t>(request.number(7).value_or(0), 1),
                            last == 0 ? top : std::min(last, top)};
    if (range.last < range.first) return;
    asked_.push_back(
        {event.at + ns_of(allow().answer), noted.connection->number, range, {}, quoted(event)});
    asked_.back().owed.add(range);
  }

  void on_sent(const Event& event, const WireMessage& message, const Noted& noted) {
    NumberRange covered{noted.number, noted.number};
    std::string flaw;
    if (noted.sent == SentKind::FILL) {
      const uint64_t next = message.number(36).value_or(0);
      if (next > noted.number) covered.last = next - 1;
      if (next <= noted.number && noted.asked) {
        flaw = "is a GapFill whose 36 is not beyond its own number";
      }
    } else if (noted.sent == SentKind::AGAIN && noted.asked) {
      flaw = flaw_of_replay(message);
    } else if (noted.sent == SentKind::RESET && noted.asked) {
      flaw = "resets the numbers (no 123=Y), which is no answer to a ResendRequest";
      covered.last = std::max(covered.last, message.number(36).value_or(0));
    } else {
      return;
    }
    if (!flaw.empty()) {
      seen();
      blame({.at = event.at,
             .what = name_in_text(message) + ", which answers a ResendRequest, " + flaw + ".",
             .evidence = {quoted(event)}});
    }
    // What is answered is not looked through again: some are asked with every message.
    std::erase_if(asked_, [&](Asked& asked) {
      if (asked.connection != noted.connection->number) return false;
      asked.owed.remove(covered);
      if (asked.owed.empty()) seen();
      return asked.owed.empty();
    });
  }

  static std::string flaw_of_replay(const WireMessage& message) {
    if (message.session_level() && message.type() != "3") {
      return "is a session message, which is never sent again but gap-filled";
    }
    if (!message.possible_duplicate()) return "does not say 43=Y";
    if (message.value(122).empty()) return "does not say when it was first sent (122)";
    return {};
  }

  std::deque<Asked> asked_;  // in order of time
};

}  // namespace

std::unique_ptr<Check> make_resend_answered_check(const char* name, const CheckContext& context) {
  return std::make_unique<ResendAnsweredCheck>(name, context);
}

}  // namespace certify
