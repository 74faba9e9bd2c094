#include "certify/checks/session_check.h"

#include <algorithm>

namespace certify {
namespace {

const WireMessage* message_of(const Event& event, Party from) {
  const auto* heard = std::get_if<FixHeard>(&event.what);
  return heard != nullptr && heard->from == from ? &heard->message : nullptr;
}

}  // namespace

void SessionCheck::on_event(const Event& event) {
  if (over_) return;
  now_ = std::max(now_, event.at);  // decisions come late
  on_time(now_);
  const Noted& noted = view_.take(event);
  judge(event, noted);
  if (!view_.closing()) return;
  over_ = true;
  on_last(event.at);
}

void SessionCheck::finish(TimeNs at) {
  if (over_) return;
  over_ = true;
  on_time(at);
  on_last(at);
}

TimeNs ns_of(Milliseconds time) { return std::chrono::nanoseconds(time).count(); }

const WireMessage* sent_by_client(const Event& event) { return message_of(event, Party::CLIENT); }
const WireMessage* sent_by_exchange(const Event& event) {
  return message_of(event, Party::EXCHANGE);
}

}  // namespace certify
