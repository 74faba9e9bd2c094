#include "certify/checks/belief_checks.h"

namespace certify {

std::span<const CheckKind> belief_checks() {
  static constexpr CheckKind KINDS[] = {
      {"belief.positions",
       "The client's file of positions says what the exchange knows of its orders.",
       make_belief_positions_check},
      {"belief.events", "The client's order event file holds the events that the exchange decided.",
       make_belief_events_check},
      {"belief.book", "The client's book file shows the levels that the exchange shows.",
       make_belief_book_check},
  };
  return KINDS;
}

}  // namespace certify
