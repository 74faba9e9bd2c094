#include <string>
#include <utility>

#include "certify/checks/order_checks.h"
#include "certify/checks/order_view.h"

// orders.names_live and orders.closed_left_alone divide between them what a cancel or replace may
// not name: what is closed belongs to the latter, everything else to the former.

namespace certify {
namespace {

const char* reason_of(Target::Kind kind) {
  switch (kind) {
    case Target::Kind::RETIRED:
      return "a replace had retired that name";
    case Target::Kind::REFUSED:
      return "the replace that would have brought that name had been refused";
    case Target::Kind::NOT_FOUND:
      return "the exchange had answered that it holds no such order";
    default:
      return "no order or replace of that name had been sent";
  }
}

/// What both have in common: a request is looked at before the view hears of it.
class TargetCheck : public Check {
 public:
  TargetCheck(const char* name, const CheckContext& context)
      : Check(name), view_(context.plan.allow.grace) {}

  void on_event(const Event& event) override {
    const auto* heard = std::get_if<FixHeard>(&event.what);
    const bool request = heard != nullptr && is_judged(*heard, view_.sessions()) &&
                         heard->message.type() != "D" && !heard->message.value(41).empty();
    if (request) {
      const std::string& comp = comp_of(view_.sessions(), *heard);
      judge(view_.target_of(comp, heard->message.value(41), event.at), *heard, event);
    }
    view_.on_event(event);
    const bool told = heard != nullptr && heard->from == Party::EXCHANGE;
    if (told && !view_.sessions().closing()) on_told(*heard);
  }
  void finish(TimeNs) override {}

 protected:
  virtual void judge(const Target& target, const FixHeard& heard, const Event& event) = 0;
  virtual void on_told(const FixHeard&) {}

  void blame_target(const std::string& what, const Target& target, const Event& event) {
    Fault fault{event.at, what, {}};
    if (target.told.at != 0) fault.evidence.push_back(target.told.text());
    fault.evidence.push_back(evidence_of(event));
    blame(std::move(fault));
  }

 private:
  OrderView view_;
};

class NamesLive : public TargetCheck {
 public:
  using TargetCheck::TargetCheck;

 protected:
  void judge(const Target& target, const FixHeard& heard, const Event& event) override {
    seen();
    if (target.kind == Target::Kind::LIVE || target.kind == Target::Kind::CLOSED) return;
    blame_target("the client named " + heard.message.value(41) + " for a live order, but " +
                     reason_of(target.kind),
                 target, event);
  }
};

class ClosedLeftAlone : public TargetCheck {
 public:
  using TargetCheck::TargetCheck;

 protected:
  /// Each order that is told to be closed is an occasion.
  void on_told(const FixHeard& heard) override {
    const WireMessage& message = heard.message;
    const std::string& report = message.value(150);
    if (message.type() != "8" || (report != "2" && report != "4" && report != "8")) return;
    if (!message.possible_duplicate()) seen();
  }

  void judge(const Target& target, const FixHeard& heard, const Event& event) override {
    if (target.kind != Target::Kind::CLOSED) return;
    const std::string way = target.told.report == '2'   ? "filled"
                            : target.told.report == '4' ? "cancelled"
                                                        : "refused";
    blame_target("the client named " + heard.message.value(41) +
                     " for a live order, though it had been told that the order was " + way,
                 target, event);
  }
};

}  // namespace

std::unique_ptr<Check> make_names_live_check(const char* name, const CheckContext& context) {
  return std::make_unique<NamesLive>(name, context);
}

std::unique_ptr<Check> make_closed_left_alone_check(const char* name, const CheckContext& context) {
  return std::make_unique<ClosedLeftAlone>(name, context);
}

}  // namespace certify
