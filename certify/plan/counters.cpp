#include <string>
#include <vector>

#include "certify/plan/judge_counters.h"
#include "certify/plan/plan.h"

namespace certify {

const std::vector<std::string>& counter_names() {
  static const std::vector<std::string> names = [] {
    std::vector<std::string> all = {
        "orders",         "accepts",
        "fills",          "partials",
        "cancels",        "replaces",
        "rejects",        "replace_rejects",
        "cancel_rejects", "unsolicited_cancels",
        "race_fills",     "late_cancels",
        "stale_cancels",  "logins",
        "logons",         "resend_requests",
        "replays",        "replayed",
        "next_seq",       "sent",
        "dropped",        "duplicated",
        "reordered",      "session",
    };
    const JudgeCounters heard;
    for (const auto& [name, value] : heard.values()) all.push_back(name);
    return all;
  }();
  return names;
}

}  // namespace certify
