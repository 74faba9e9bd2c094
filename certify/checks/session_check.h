#pragma once

#include "certify/checks/check.h"
#include "certify/checks/evidence.h"
#include "certify/checks/session_view.h"

namespace certify {

/// What the checks of FIX sessions share: each follows the sessions by a view of its own, and is
/// told of time before it is told of what happened. Ends with Closing, as the client's way out is
/// not judged.
class SessionCheck : public Check {
 public:
  SessionCheck(const char* name, const CheckContext& context)
      : Check(name), allow_(context.plan.allow) {}

  void on_event(const Event& event) final;
  void finish(TimeNs at) final;

 protected:
  /// Time has come this far, and nothing has happened but what was told before: what was due
  /// earlier than `now` has been missed.
  virtual void on_time(TimeNs now) { static_cast<void>(now); }
  /// `noted` is what the view made of the event, and points to the state behind it.
  virtual void judge(const Event& event, const Noted& noted) = 0;
  /// No more is judged: the run closes, or is over.
  virtual void on_last(TimeNs at) { static_cast<void>(at); }

  const SessionView& view() const { return view_; }
  const Allowances& allow() const { return allow_; }

 private:
  const Allowances& allow_;
  SessionView view_;
  TimeNs now_ = 0;
  bool over_ = false;
};

/// An allowance as the time of events has it.
TimeNs ns_of(Milliseconds time);

/// The message, if the event is one of that side; else null.
const WireMessage* sent_by_client(const Event& event);
const WireMessage* sent_by_exchange(const Event& event);

}  // namespace certify
