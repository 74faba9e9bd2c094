#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "certify/checks/check.h"

namespace certify {

// One maker for each check of the group, each in the file of that name.
std::unique_ptr<Check> make_feed_recovered(const char* name, const CheckContext& context);
std::unique_ptr<Check> make_feed_only_missing(const char* name, const CheckContext& context);
std::unique_ptr<Check> make_feed_requests_formed(const char* name, const CheckContext& context);
std::unique_ptr<Check> make_feed_request_limits(const char* name, const CheckContext& context);
std::unique_ptr<Check> make_feed_late_join(const char* name, const CheckContext& context);

/// More ranges than this do not fit into a request that the exchange reads.
constexpr size_t MOST_RANGES = 127;

/// Whether the exchange answers it with messages, if it has any: well formed, and no question for
/// the status. One with too many ranges is no such request, and feed.request_limits says so.
bool asks_for_messages(const GapRequested& request);

/// "message 7", "messages 7 to 9".
std::string messages_text(uint64_t first, uint64_t last);
/// "7 to 9, 12 and 3 more ranges".
std::string ranges_text(const std::vector<quorl::client::SeqRange>& ranges);

TimeNs in_ns(Milliseconds time);

}  // namespace certify
