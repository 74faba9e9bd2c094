#include <map>
#include <string>
#include <utility>

#include "certify/checks/order_checks.h"
#include "certify/checks/order_view.h"

namespace certify {
namespace {

class NamesUnique : public Check {
 public:
  NamesUnique(const char* name, const CheckContext& context)
      : Check(name), view_(context.plan.allow.grace) {}

  void on_event(const Event& event) override {
    const auto* heard = std::get_if<FixHeard>(&event.what);
    if (heard != nullptr && is_judged(*heard, view_.sessions())) judge(*heard, event);
    view_.on_event(event);
    if (const auto* decision = std::get_if<Decision>(&event.what)) decide(decision->order);
  }
  // What the exchange never acted on was free to be sent again: nothing is left to say.
  void finish(TimeNs) override {}

 private:
  using Owned = std::pair<std::string, std::string>;  // CompID and ClOrdID

  void judge(const FixHeard& heard, const Event& event) {
    const std::string& name = heard.message.value(11);
    if (name.empty()) return;  // orders.tags
    seen();
    const std::string& comp = comp_of(view_.sessions(), heard);
    const NameUse use = view_.use_of(comp, name);
    if (use == NameUse::FREE) return;
    const ViewedName& before = *view_.name(comp, name);
    Fault fault = fault_of(name, before, event);
    // A connection that has ended may have taken the first message with it. If the exchange acted
    // on it, its report waits for the client, which should have asked before it sent again.
    const bool unsure = use == NameUse::UNSURE && before.decided == 0;
    if (!unsure) return blame(std::move(fault));
    unsure_.emplace(Owned{comp, name}, std::move(fault));
  }

  static Fault fault_of(const std::string& name, const ViewedName& before, const Event& event) {
    const std::string matter = before.kind == ViewedName::Kind::ORDER ? "an order" : "a request";
    return {event.at,
            "ClOrdID " + name + " was used again while " + matter +
                " of that name was live or could be, as far as the client had been told",
            {time_text(before.sent) + "  first used, on FIX " + std::to_string(before.connection),
             evidence_of(event)}};
  }

  void decide(const quorl::client::OrderEvent& order) {
    if (unsure_.empty() || (order.ev != "new" && order.ev != "reject")) return;
    for (auto entry = unsure_.begin(); entry != unsure_.end();) {
      const auto& [comp, name] = entry->first;
      const ViewedName* const first = name == order.cl ? view_.name(comp, name) : nullptr;
      if (first == nullptr || first->decided == 0) {
        ++entry;
        continue;
      }
      if (first->decided < entry->second.at) blame(std::move(entry->second));
      entry = unsure_.erase(entry);
    }
  }

  OrderView view_;
  std::map<Owned, Fault> unsure_;
};

}  // namespace

std::unique_ptr<Check> make_names_unique_check(const char* name, const CheckContext& context) {
  return std::make_unique<NamesUnique>(name, context);
}

}  // namespace certify
