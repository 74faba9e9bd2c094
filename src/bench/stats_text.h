#pragma once

#include <string>
#include <vector>

namespace quorl {

struct Client;
struct Scenario;
class TpPublisher;

/// "orders=0 accepts=0 ..." in 18 pairs, without a line end. "logins" and "logons" both show the
/// accepted Logons: benches parse both.
std::string bench_stats_text(const Scenario& scenario);

/// "quorl faults: sent ...", without a line end. A packet that was held back and one that went out
/// twice each count once as sent; heartbeats and gap-fill replies do not count.
std::string fault_stats_text(const TpPublisher& publisher);

/// " session=up" if any client is connected and logged on, else " session=down".
std::string session_text(const std::vector<Client>& clients);

}  // namespace quorl
