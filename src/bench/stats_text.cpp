#include "bench/stats_text.h"

#include "bench/scenario.h"
#include "feed/tp_publisher.h"

namespace quorl {

std::string bench_stats_text(const Scenario& scenario) {
  const BenchCounters& c = scenario.counters;
  std::string text;
  const auto pair = [&text](const char* key, uint64_t count) {
    text.append(key).append(std::to_string(count));
  };
  pair("orders=", c.orders);
  pair(" accepts=", c.accepts);
  pair(" fills=", c.fills);
  pair(" partials=", c.partials);
  pair(" cancels=", c.cancels);
  pair(" replaces=", c.replaces);
  pair(" rejects=", c.rejects);
  pair(" replace_rejects=", c.replace_rejects);
  pair(" cancel_rejects=", c.cancel_rejects);
  pair(" unsolicited_cancels=", c.unsolicited_cancels);
  pair(" race_fills=", c.race_fills);
  pair(" late_cancels=", c.late_cancels);
  pair(" stale_cancels=", c.stale_cancels);
  pair(" logins=", c.logons);  // the twin of the next key: both are parsed
  pair(" logons=", c.logons);
  pair(" resend_requests=", c.resend_requests);
  pair(" replays=", c.replays);
  pair(" replayed=", c.replayed);
  return text;
}

std::string fault_stats_text(const TpPublisher& publisher) {
  const FeedCounts& c = publisher.counts();
  return "quorl faults: sent " + std::to_string(c.packets - c.dropped) + " dropped " +
         std::to_string(c.dropped) + " duplicated " + std::to_string(c.duplicated) + " reordered " +
         std::to_string(c.reordered);
}

std::string_view session_text(bool up) { return up ? " session=up" : " session=down"; }

}  // namespace quorl
