#pragma once

#include <string>
#include <string_view>

namespace quorl {

struct Scenario;
class TpPublisher;

/// "orders=0 accepts=0 ..." in 18 pairs, without a line end. "logins" and "logons" both show the
/// accepted Logons: benches parse both.
std::string bench_stats_text(const Scenario& scenario);

/// "quorl faults: sent ...", without a line end. A packet that was held back and one that went out
/// twice each count once as sent; heartbeats and gap-fill replies do not count.
std::string fault_stats_text(const TpPublisher& publisher);

/// " session=up" or " session=down": whether any client is connected and logged on. A literal, so
/// that its data() is a C string.
std::string_view session_text(bool up);

}  // namespace quorl
