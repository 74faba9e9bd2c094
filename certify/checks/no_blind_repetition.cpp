#include <chrono>
#include <string>
#include <unordered_map>
#include <utility>

#include "certify/checks/order_checks.h"
#include "certify/checks/order_messages.h"
#include "certify/checks/order_tags.h"

namespace certify {
namespace {

/// What an order asks for, whatever its name: two with the same one are the same order again.
std::string wish_of(const WireMessage& message) {
  std::string wish = message.type();
  if (message.type() == "G") wish += "|41=" + message.value(41);
  for (const int tag : {55, 54, 38, 40, 44, 59}) {
    wish += "|" + std::to_string(tag) + "=" + message.value(tag);
  }
  return wish;
}

/// Refusals that belong to other checks: of names, of quantities that are filled, of orders not
/// live. What orders.tags finds wrong is left out when it is sent.
bool is_anothers(const WireMessage& refusal) {
  if (refusal.type() == "9" && (!refusal.is(102, "2") || !refusal.is(434, "2"))) return true;
  for (const char* words : {"uplicate ClOrdID", "at or below executed", "must match"}) {
    if (refusal.value(58).find(words) != std::string::npos) return true;
  }
  return false;
}

class NoBlindRepetition : public Check {
 public:
  NoBlindRepetition(const char* name, const CheckContext& context)
      : Check(name),
        soon_(std::chrono::nanoseconds(context.plan.allow.answer).count()),
        allowed_(context.plan.allow.repetitions) {}

  void on_event(const Event& event) override {
    const auto* heard = std::get_if<FixHeard>(&event.what);
    if (heard != nullptr && !sessions_.closing()) {
      const std::string& comp = comp_of(sessions_, *heard);
      if (is_fresh_order_message(*heard) && heard->message.type() != "F") {
        on_order(clients_[comp], *heard, event);
      } else if (heard->from == Party::EXCHANGE && !heard->message.possible_duplicate()) {
        on_report(clients_[comp], heard->message, event);
      }
    }
    sessions_.take(event);
  }
  void finish(TimeNs) override {}

 private:
  /// Refusals of one wish, without anything else about it in between.
  struct Streak {
    TimeNs told = 0;  // the latest refusal; 0: none that has not been repeated since
    TimeNs latest = 0;
    unsigned repeated = 0;
    std::string refusal;  // the first one
  };
  struct Client {
    std::unordered_map<std::string, std::string> open;  // wishes not yet answered, by ClOrdID
    std::unordered_map<std::string, Streak> streaks;    // by wish
  };

  /// Only an order that follows a refusal counts: several at once are not yet a repetition.
  void on_order(Client& client, const FixHeard& heard, const Event& event) {
    if (!flaws_of_order_fields(heard.message, nullptr).empty()) return;
    std::string wish = wish_of(heard.message);
    const auto streak = client.streaks.find(wish);
    if (streak != client.streaks.end()) {
      if (event.at - streak->second.latest > soon_) {
        client.streaks.erase(streak);
      } else if (streak->second.told != 0) {
        repeat(streak->second, event);
      }
    }
    client.open[heard.message.value(11)] = std::move(wish);
  }

  void repeat(Streak& streak, const Event& event) {
    streak.told = 0;
    ++streak.repeated;
    if (streak.repeated <= allowed_) return;
    blame(
        {event.at,
         "an order that had been refused was sent again unchanged, " +
             std::to_string(streak.repeated) + " times in a row (" + std::to_string(allowed_) +
             " allowed)",
         {streak.refusal, time_text(streak.latest) + "  the latest refusal", evidence_of(event)}});
  }

  void on_report(Client& client, const WireMessage& message, const Event& event) {
    if (message.type() != "8" && message.type() != "9") return;
    const auto open = client.open.find(message.value(11));
    if (open == client.open.end()) return;
    const std::string wish = std::move(open->second);
    client.open.erase(open);
    const bool refused = message.type() == "9" || message.is(150, "8");
    if (!refused) {
      client.streaks.erase(wish);
      return;
    }
    if (is_anothers(message)) return;
    seen();
    Streak& streak = client.streaks[wish];
    if (streak.refusal.empty()) streak.refusal = evidence_of(event);
    streak.told = streak.latest = event.at;
  }

  TimeNs soon_;
  unsigned allowed_;
  SessionView sessions_;
  std::unordered_map<std::string, Client> clients_;
};

}  // namespace

std::unique_ptr<Check> make_no_blind_repetition_check(const char* name,
                                                      const CheckContext& context) {
  return std::make_unique<NoBlindRepetition>(name, context);
}

}  // namespace certify
