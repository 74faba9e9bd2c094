#include <algorithm>
#include <chrono>
#include <map>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "certify/checks/recovery_checks.h"
#include "certify/checks/report_ledger.h"
#include "certify/checks/report_owners.h"
#include "certify/checks/silences.h"

namespace certify {
namespace {

TimeNs ns_of(Milliseconds time) { return std::chrono::nanoseconds(time).count(); }

using Report = ReportLedger::Report;

constexpr const char* NOTHING_SHOWED =
    "nothing that the client heard showed that they were missing";
constexpr const char* UNASKED = "they were never asked for: session.gap_asked tells";

struct Missing {  // decided, and not heard
  TimeNs at = 0;
  std::string owner;
  quorl::client::OrderEvent order;
};

struct Asked {  // of what was missing then
  TimeNs at = 0;
  NumberRange range;
};

/// What a CompID did and was told, as far as reports depend on it.
struct Recipient {
  TimeNs reset = 0;          // the latest Logon with 141=Y, or the reply to it
  TimeNs off = 0;            // when its latest connection ended or was logged out of
  bool left = false;         // by the client itself
  bool logged_out = false;   // likewise, with a Logout
  NumberRanges unasked;      // holes that no ResendRequest has reached into since they were seen
  TimeNs unasked_since = 0;  // since when there has been one, and the client could ask
  std::vector<Asked> asked;  // in order of time, those of which something is missing still
  TimeNs heard = 0;          // the latest message that is no replay
};

/// What the client has been told of an order.
struct Known {
  uint32_t cum = 0;
  char last = ' ';  // 150 of what it was told last, or of what closed it
};

/// "fill of 100", as the order event has it.
std::string text_of(const quorl::client::OrderEvent& order) {
  if (order.ev == "fill") return "fill of " + std::to_string(order.last_qty);
  return order.ev;
}

std::string text_of(const Known* known) {
  if (known == nullptr) return "it cannot know what became of it";
  if (known->last == '2') return "it believes it filled";
  if (known->last == '4') return "it believes it cancelled";
  return "it believes it open with " + std::to_string(known->cum) + " filled";
}

class RecoveryReports : public Check {
 public:
  RecoveryReports(const char* name, const CheckContext& context)
      : Check(name),
        grace_(ns_of(context.plan.allow.grace)),
        answer_(ns_of(context.plan.allow.answer)),
        recovery_(ns_of(context.plan.allow.recovery)) {}

  void on_event(const Event& event) override {
    silences_.on_event(event);
    if (std::holds_alternative<Closing>(event.what) && closing_ == 0) closing_ = event.at;
    if (const auto* ended = std::get_if<ClientEnded>(&event.what)) {
      if (ended->by_itself && closing_ == 0) gone_ = event.at;
    }
    if (const auto* decision = std::get_if<Decision>(&event.what)) on_decision(decision->order);
    const Noted& noted = sessions_.take(event);
    if (noted.connection == nullptr) return;
    if (const auto* heard = std::get_if<FixHeard>(&event.what)) {
      const std::string& comp = comp_of(sessions_, *heard);
      if (heard->from == Party::EXCHANGE) hear_report(comp, *heard, event);
      if (closing_ != 0) return;  // how the client leaves neither excuses nor blames it
      heard->from == Party::CLIENT ? on_sent(comp, noted, *heard, event.at)
                                   : on_heard(comp, noted, *heard, event);
    } else if (closing_ != 0) {
      return;
    } else if (const auto* ended = std::get_if<FixEnded>(&event.what)) {
      on_ended(*noted.connection, *ended, event.at);
    }
  }

  void finish(TimeNs at) override {
    end_ = closing_ != 0 ? closing_ : at;
    for (auto& [report, missing] : missing_) {
      if (ledger_.reached(report)) continue;
      // Heard of since then, perhaps.
      if (missing.owner.empty()) missing.owner = owners_.owner_of(missing.order);
      sort(missing);
    }
    if (!ledger_.consistent()) {
      return remark("order events and reports do not fit together: nothing is said of reports");
    }
    for (const auto& [key, faults] : faults_) blame_order(faults);
    for (const auto& [reason, names] : excused_) {
      remark(std::to_string(names.size()) +
             " report(s) never fetched, which is not held against "
             "the client: " +
             reason + " (" + some_of(names) + ")");
    }
  }

 private:
  // --- What happens ---

  void on_decision(const quorl::client::OrderEvent& order) {
    seen();
    const Report report = ledger_.decide(order);
    const std::string& owner = owners_.owner_of(order);
    if (ledger_.reached(report)) return;
    missing_.emplace(report, Missing{static_cast<TimeNs>(order.t_ns), owner, order});
    // A refusal that is heard is not told apart from its like: it is looked up at the end.
  }

  void on_sent(const std::string& comp, const Noted& noted, const FixHeard& heard, TimeNs at) {
    const WireMessage& message = heard.message;
    if (!message.taken_by_exchange()) return;
    Recipient& recipient = recipients_[comp];
    if (message.type() == "A" && message.is(141, "Y")) {
      recipient.reset = at;
      recipient.unasked.clear();
      recipient.asked.clear();
    } else if (message.type() == "2") {
      const uint64_t last = message.number(16).value_or(0);
      const NumberRange range{message.number(7).value_or(0), last == 0 ? ~uint64_t{0} : last};
      recipient.unasked.remove(range);
      if (noted.session != nullptr) note_asked(recipient, *noted.session, range, at);
    } else if (message.type() == "5") {
      set_off(recipient, at, /*left=*/true);
      recipient.logged_out = true;
    }
    if (is_order_message(heard)) owners_.sent(message, comp);
  }

  static void note_asked(Recipient& recipient, const CompSession& session, NumberRange range,
                         TimeNs at) {
    range.last = std::min(range.last, session.next_in - 1);
    std::erase_if(recipient.asked, [&](const Asked& asked) {
      const bool again = range.first <= asked.range.first && asked.range.last <= range.last;
      return again || !session.missing.first_within(asked.range);
    });
    recipient.asked.push_back({at, range});
  }

  void hear_report(const std::string& comp, const FixHeard& heard, const Event& event) {
    const WireMessage& message = heard.message;
    const auto [report, again] = ledger_.hear(event, comp);
    if (report != 0 && !again) missing_.erase(report);
    if (message.type() != "8") return;
    note_known(message);
    owners_.heard(message, comp);
  }

  void on_heard(const std::string& comp, const Noted& noted, const FixHeard& heard,
                const Event& event) {
    const WireMessage& message = heard.message;
    Recipient& recipient = recipients_[comp];
    if (!message.possible_duplicate()) recipient.heard = event.at;
    recipient.unasked.remove(noted.stands_for);
    if (noted.hole && recipient.unasked.empty()) recipient.unasked_since = event.at;
    if (noted.hole) recipient.unasked.add(*noted.hole);
    // Not by the Logon's reply alone: a silence may have swallowed that.
    if (message.type() != "5" && noted.connection->logout_sent == 0) {
      if (recipient.off != 0) recipient.unasked_since = event.at;
      recipient.off = 0;
      recipient.left = recipient.logged_out = false;
    }
    if (message.type() == "A" && message.is(141, "Y")) recipient.reset = heard.taken;
  }

  void note_known(const WireMessage& message) {
    const auto id = message.number(37);
    if (!id || message.value(150).empty()) return;
    Known& known = known_[*id];
    known.cum = std::max(known.cum, static_cast<uint32_t>(message.number(14).value_or(0)));
    const char report = message.value(150)[0];
    if (known.last != '2' && known.last != '4') known.last = report;
  }

  void on_ended(const FixConnection& connection, const FixEnded& ended, TimeNs at) {
    const auto found = recipients_.find(connection.comp_id);
    if (found == recipients_.end() || connection.logon_sent == 0) return;
    // Of two connections of one CompID the other may go on.
    for (const auto& [number, other] : sessions_.connections()) {
      if (number != connection.number && other.comp_id == connection.comp_id && other.up()) return;
    }
    set_off(found->second, at, ended.by == Party::CLIENT && !ended.by_link);
  }

  static void set_off(Recipient& recipient, TimeNs at, bool left) {
    if (recipient.off != 0) return;
    recipient.off = at;
    recipient.left = left;
  }

  // --- What is made of it ---

  /// A fault, or why it is none.
  void sort(const Missing& missing) {
    const std::string excuse = excuse_for(missing);
    if (!excuse.empty()) {
      const auto known = known_.find(missing.order.oid);
      excused_[excuse].push_back(missing.order.cl + ": " + text_of(missing.order) + ", " +
                                 text_of(known == known_.end() ? nullptr : &known->second));
      return;
    }
    const std::string key = missing.order.oid == 0 ? missing.order.cl : "";
    faults_[{missing.order.oid, key}].push_back(missing);
  }

  std::string excuse_for(const Missing& missing) const {
    if (missing.at + grace_ > end_) return "decided within the grace of the end";
    const auto found = recipients_.find(missing.owner);
    if (missing.owner.empty() || found == recipients_.end()) return "whose they are is not known";
    const Recipient& recipient = found->second;
    if (missing.at <= recipient.reset) return "a Logon with 141=Y threw them away";
    if (recipient.off == 0) return excuse_on_line(missing, recipient);
    return excuse_away(missing, recipient);
  }

  std::string excuse_on_line(const Missing& missing, const Recipient& recipient) const {
    const CompSession* const session = sessions_.session(missing.owner);
    if (session == nullptr || session->missing.empty()) {
      return NOTHING_SHOWED;
    }
    if (!recipient.unasked.empty()) return UNASKED;
    const TimeNs asked = asked_for(missing, *session, recipient);
    if (asked == 0) return NOTHING_SHOWED;
    const TimeNs due = asked + answer_ + grace_;
    // An answer may be lost in a silence, and is asked for again when the exchange speaks.
    if (recipient.heard <= due || end_ <= recipient.heard + grace_) {
      return "they were asked for, and the time for asking again had not come";
    }
    return {};
  }

  /// When the report was last asked for; 0: it was not. Its number is not known, but it was decided
  /// before that: of the numbers still missing, what was asked for longest ago may be it.
  static TimeNs asked_for(const Missing& missing, const CompSession& session,
                          const Recipient& recipient) {
    NumberRanges left = session.missing;
    TimeNs longest_ago = 0;
    for (auto asked = recipient.asked.rbegin(); asked != recipient.asked.rend(); ++asked) {
      if (asked->at <= missing.at) break;
      if (!left.first_within(asked->range)) continue;
      longest_ago = asked->at;
      left.remove(asked->range);
    }
    return longest_ago;
  }

  std::string excuse_away(const Missing& missing, const Recipient& recipient) const {
    if (recipient.logged_out && missing.at > recipient.off) {
      return "decided after the client had logged out";
    }
    // Who was not there for so long was not blamed for it.
    const bool had_to_ask = recipient.off > recipient.unasked_since + answer_;
    if (recipient.left && !recipient.unasked.empty() && had_to_ask) return UNASKED;
    if (gone_ != 0) {
      if (missing.at > gone_) return "decided after the client had ended";
      // It left of itself. What was dropped by the exchange or the link gave up.
      if (recipient.left && missing.at + grace_ > recipient.off) {
        return "decided as the client left";
      }
      return {};
    }
    if (recipient.logged_out && recipient.unasked.empty()) {
      return excuse_on_line(missing, recipient);
    }
    const TimeNs due =
        std::max({missing.at, recipient.off, silences_.last_end()}) + grace_ + recovery_;
    return end_ > due ? "" : "the client still had time to log on again";
  }

  void blame_order(const std::vector<Missing>& reports) {
    const quorl::client::OrderEvent& last = reports.back().order;
    const auto known = known_.find(last.oid);
    std::string what = last.cl + ": " + text_of(reports.front().order);
    if (reports.size() > 1) what += " and " + std::to_string(reports.size() - 1) + " more";
    what += " never fetched; " + text_of(known == known_.end() ? nullptr : &known->second);
    Fault fault{reports.front().at, what, {}};
    constexpr size_t MOST_LINES = 5;
    for (size_t i = 0; i < std::min(reports.size(), MOST_LINES); ++i) {
      const auto& order = reports[i].order;
      fault.evidence.push_back(time_text(reports[i].at) +
                               "  the exchange decided: " + text_of(order) + " of " + order.cl +
                               ", cum " + std::to_string(order.cum) + ", leaves " +
                               std::to_string(order.leaves));
    }
    const auto recipient = recipients_.find(reports.front().owner);
    if (recipient != recipients_.end() && recipient->second.off != 0) {
      fault.evidence.push_back(time_text(recipient->second.off) + "  " + recipient->first +
                               " went off the line and did not come back for it");
    }
    blame(std::move(fault));
  }

  static std::string some_of(const std::vector<std::string>& names) {
    constexpr size_t MOST = 3;
    std::string text;
    for (size_t i = 0; i < std::min(names.size(), MOST); ++i) {
      text += (i == 0 ? "" : "; ") + names[i];
    }
    return names.size() > MOST ? text + "; ..." : text;
  }

  TimeNs grace_;
  TimeNs answer_;
  TimeNs recovery_;
  TimeNs closing_ = 0;
  TimeNs gone_ = 0;  // the client ended by itself
  TimeNs end_ = 0;
  SessionView sessions_;
  Silences silences_;
  ReportLedger ledger_;
  ReportOwners owners_;
  std::map<std::string, Recipient> recipients_;
  std::map<Report, Missing> missing_;
  std::unordered_map<uint64_t, Known> known_;
  std::map<std::pair<uint64_t, std::string>, std::vector<Missing>> faults_;  // by order
  std::map<std::string, std::vector<std::string>> excused_;                  // by reason
};

}  // namespace

std::unique_ptr<Check> make_recovery_reports_check(const char* name, const CheckContext& context) {
  return std::make_unique<RecoveryReports>(name, context);
}

}  // namespace certify
