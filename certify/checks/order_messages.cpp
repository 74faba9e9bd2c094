#include "certify/checks/order_messages.h"

namespace certify {

bool is_order_message(const FixHeard& heard) {
  if (heard.from != Party::CLIENT || !heard.message.taken_by_exchange()) return false;
  const std::string& type = heard.message.type();
  return type == "D" || type == "F" || type == "G";
}

bool is_fresh_order_message(const FixHeard& heard) {
  return is_order_message(heard) && !heard.message.possible_duplicate() &&
         !heard.message.is(97, "Y");
}

bool is_judged(const FixHeard& heard, const SessionView& sessions) {
  return is_fresh_order_message(heard) && !sessions.closing();
}

const std::string& comp_of(const SessionView& sessions, const FixHeard& heard) {
  const FixConnection* const connection = sessions.connection(heard.connection);
  if (connection != nullptr && !connection->comp_id.empty()) return connection->comp_id;
  return heard.message.value(heard.from == Party::CLIENT ? 49 : 56);
}

std::string evidence_of(const Event& event) { return time_text(event.at) + "  " + describe(event); }

}  // namespace certify
