#include "certify/checks/check.h"
#include "certify/checks/order_checks.h"

namespace certify {

std::span<const CheckKind> order_checks() {
  static constexpr CheckKind KINDS[] = {
      {"orders.tags",
       "Orders, cancels and replaces carry the fields that the exchange requires, in their form.",
       make_order_tags_check},
      {"orders.names_unique",
       "No ClOrdID is used again while something of that name is live or may be.",
       make_names_unique_check},
      {"orders.names_live",
       "Cancels and replaces name an order that by what the client had been told could be live.",
       make_names_live_check},
      {"orders.closed_left_alone",
       "No cancel or replace of an order that the client had been told was closed.",
       make_closed_left_alone_check},
      {"orders.replace_above_filled",
       "A replace asks for more shares than the client knew to be filled.",
       make_replace_above_filled_check},
      {"orders.session_up",
       "Orders go out only on a session that the client had no reason to think down.",
       make_order_session_up_check},
      {"orders.no_blind_repetition", "What was refused is not sent again unchanged over and over.",
       make_no_blind_repetition_check},
  };
  return KINDS;
}

}  // namespace certify
