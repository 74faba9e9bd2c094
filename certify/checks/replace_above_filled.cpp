#include <optional>
#include <string>

#include "certify/checks/order_checks.h"
#include "certify/checks/order_tags.h"
#include "certify/checks/order_view.h"

namespace certify {
namespace {

class ReplaceAboveFilled : public Check {
 public:
  ReplaceAboveFilled(const char* name, const CheckContext& context)
      : Check(name), view_(context.plan.allow.grace) {}

  void on_event(const Event& event) override {
    const auto* heard = std::get_if<FixHeard>(&event.what);
    if (heard != nullptr && heard->message.type() == "G" && is_judged(*heard, view_.sessions())) {
      judge(*heard, event);
    }
    view_.on_event(event);
  }
  void finish(TimeNs) override {}

 private:
  void judge(const FixHeard& heard, const Event& event) {
    const WireMessage& message = heard.message;
    const std::string& comp = comp_of(view_.sessions(), heard);
    const Target target = view_.target_of(comp, message.value(41), event.at);
    // A quantity without a good form is for orders.tags, a bad name for those of names.
    const std::optional<uint64_t> shares = shares_of(message.value(38));
    if (target.kind != Target::Kind::LIVE || target.order == nullptr || !shares) return;
    const Told* const executed = view_.executed(*target.order, event.at);
    if (executed == nullptr) return;
    seen();
    if (*shares > executed->cum) return;
    blame({event.at,
           "a replace of " + message.value(41) + " asked for " + message.value(38) +
               " shares, though the client had been told that " + std::to_string(executed->cum) +
               " were filled",
           {executed->text(), evidence_of(event)}});
  }

  OrderView view_;
};

}  // namespace

std::unique_ptr<Check> make_replace_above_filled_check(const char* name,
                                                       const CheckContext& context) {
  return std::make_unique<ReplaceAboveFilled>(name, context);
}

}  // namespace certify
