#include "certify/checks/session.h"
#include "certify/checks/session_check.h"

namespace certify {
namespace {

/// Judges the client's own numbers, but for those of its Logons (session.logon) and of what it
/// sends in answer to a ResendRequest (session.resend_answered).
class NumbersCheck : public SessionCheck {
 public:
  using SessionCheck::SessionCheck;

 private:
  void judge(const Event& event, const Noted& noted) override {
    const WireMessage* message = sent_by_client(event);
    if (message == nullptr || noted.session == nullptr) return;
    if (noted.sent == SentKind::UNREADABLE || noted.sent == SentKind::LOGON) return;
    if (!noted.before.certain || on_two_lines(noted)) return;
    seen();
    const std::string flaw = flaw_of(*message, noted);
    if (flaw.empty()) return;
    Fault fault{.at = event.at, .what = name_in_text(*message) + " " + flaw + ".", .evidence = {}};
    if (noted.before.last.at != 0) fault.evidence.push_back(text_of(noted.before.last));
    fault.evidence.push_back(quoted(event));
    blame(std::move(fault));
  }

  /// Two connections of one SenderCompID share its numbers; in which order the client took them
  /// cannot be told from the order in which they came.
  bool on_two_lines(const Noted& noted) const {
    const uint32_t last = noted.before.last.connection;
    if (last == 0 || last == noted.connection->number) return false;
    const FixConnection* other = view().connection(last);
    return other != nullptr && !other->ended();
  }

  static std::string left_out(const Noted& noted) {
    const uint64_t next = noted.before.next;
    return "leaves out " + text_of(NumberRange{next, noted.number - 1}) + ": the next number is " +
           std::to_string(next);
  }

  static std::string flaw_of(const WireMessage& message, const Noted& noted) {
    const uint64_t next = noted.before.next;
    const std::string due = std::to_string(next);
    switch (noted.sent) {
      case SentKind::NEW:
        if (noted.number > next) return left_out(noted);
        if (!message.possible_duplicate()) return {};
        return "says 43=Y, and no message of that number was sent before";
      case SentKind::FILL:
        if (noted.number > next) return left_out(noted);
        if (noted.number == next || noted.asked) return {};
        return "fills numbers that were used, and no ResendRequest had asked for them";
      case SentKind::REPEAT:
        return "takes a number again: the next one is " + due +
               ", and it is no answer to a ResendRequest";
      case SentKind::AGAIN:
        if (noted.asked) return {};
        return "comes again with 43=Y, and no ResendRequest had asked for it";
      case SentKind::RESET:
        if (message.number(36).value_or(0) >= next) return {};
        return "takes the client's own numbers back from " + due + " to 36=" + message.value(36);
      case SentKind::LOGON:
      case SentKind::UNREADABLE:
        return {};
    }
    return {};
  }
};

}  // namespace

std::unique_ptr<Check> make_numbers_check(const char* name, const CheckContext& context) {
  return std::make_unique<NumbersCheck>(name, context);
}

}  // namespace certify
