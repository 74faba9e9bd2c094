#include <map>

#include "certify/checks/session.h"
#include "certify/checks/session_check.h"
#include "certify/checks/utc_time.h"
#include "certify/record/visible_text.h"

namespace certify {
namespace {

constexpr TimeNs NEAR = 5 * SECOND;
// What a link has held back may be old when it is read. No time zone is so near to UTC.
constexpr TimeNs NEAR_BEHIND_A_BAD_LINK = 60 * SECOND;
constexpr size_t LONGEST_VALUE = 40;  // shown

std::string shown(const std::string& value) { return "'" + visible(value, LONGEST_VALUE) + "'"; }

/// Of two times the coarser form decides what can be said about their order.
bool earlier(const UtcTime& a, const UtcTime& b) {
  if (a.milliseconds && b.milliseconds) return a.at < b.at;
  return a.at / SECOND < b.at / SECOND;
}

class TimesCheck : public Check {
 public:
  TimesCheck(const char* name, const CheckContext& context)
      : Check(name), grace_(ns_of(context.plan.allow.grace)) {}

  void on_event(const Event& event) override {
    link_.take(event);
    if (const auto* ended = std::get_if<FixEnded>(&event.what)) {
      if (ended->by == Party::CLIENT || ended->reset) latest_.erase(ended->connection);
    } else if (const WireMessage* message = sent_by_client(event)) {
      // What the other two checks of form blame is theirs, and the way out is nobody's.
      if (!link_.closing() && message->flaws().empty() && message->find(52) != nullptr)
        judge(event, *message);
    }
  }

  void finish(TimeNs) override {}

 private:
  struct Latest {
    UtcTime time;
    std::string line;
  };

  void judge(const Event& event, const WireMessage& message) {
    seen();
    evidence_.clear();
    const std::string flaw = flaw_of(event, message);
    if (flaw.empty()) return;
    evidence_.push_back(quoted(event) + "  52=" + visible(message.value(52), LONGEST_VALUE));
    blame({.at = event.at,
           .what = "In " + name_in_text(message) + " " + flaw + ".",
           .evidence = std::move(evidence_)});
  }

  std::string flaw_of(const Event& event, const WireMessage& message) {
    for (const int tag : {52, 122, 60}) {
      const std::string* value = message.find(tag);
      if (value != nullptr && !read_utc_time(*value)) {
        return std::to_string(tag) + " is " + shown(*value) +
               ", not YYYYMMDD-HH:MM:SS or YYYYMMDD-HH:MM:SS.sss";
      }
    }
    const UtcTime sent = *read_utc_time(message.value(52));
    if (message.possible_duplicate()) {
      std::string flaw = flaw_of_original(message, sent);
      if (!flaw.empty()) return flaw;
    }
    const std::string distance = flaw_of_distance(event, message, sent);
    return distance.empty() ? flaw_of_order(event, message, sent) : distance;
  }

  static std::string flaw_of_original(const WireMessage& message, const UtcTime& sent) {
    const auto original = read_utc_time(message.value(122));
    if (!original || !earlier(sent, *original)) return {};
    return "122, when it was first sent, is " + shown(message.value(122)) + " and later than 52, " +
           shown(message.value(52));
  }

  std::string flaw_of_distance(const Event& event, const WireMessage& message,
                               const UtcTime& sent) const {
    const TimeNs late = event.at - sent.at;
    const TimeNs allowed = (link_.disturbed() ? NEAR_BEHIND_A_BAD_LINK : NEAR) + grace_;
    // A time without milliseconds may be a second behind itself.
    const TimeNs cut = sent.milliseconds ? 0 : SECOND;
    if (late <= allowed + cut && late >= -NEAR) return {};
    return "52 is " + shown(message.value(52)) + ", " + seconds_text(late < 0 ? -late : late) +
           (late < 0 ? " ahead of" : " behind") + " the time at which it came, in UTC";
  }

  std::string flaw_of_order(const Event& event, const WireMessage& message, const UtcTime& sent) {
    Latest& latest = latest_[std::get<FixHeard>(event.what).connection];
    std::string flaw;
    if (!latest.line.empty() && earlier(sent, latest.time)) {
      flaw = "52 goes back: it is " + shown(message.value(52)) + " behind a later one";
      evidence_.push_back(latest.line);
    }
    latest = {sent, time_text(event.at) + "  " + name_in_text(message) +
                        "|52=" + visible(message.value(52), LONGEST_VALUE)};
    return flaw;
  }

  TimeNs grace_;
  SessionView link_;                   // whether it misbehaves, and whether the run closes
  std::map<uint32_t, Latest> latest_;  // by connection
  std::vector<std::string> evidence_;
};

}  // namespace

std::unique_ptr<Check> make_times_check(const char* name, const CheckContext& context) {
  return std::make_unique<TimesCheck>(name, context);
}

}  // namespace certify
