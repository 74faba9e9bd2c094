#pragma once

#include <map>
#include <string>

#include "certify/trader/habits.h"
#include "certify/trader/market_view.h"
#include "certify/trader/order_desk.h"
#include "certify/trader/session.h"

namespace certify::trader {

/// Where the trader writes what it believes; an empty path: not.
struct BeliefFiles {
  std::string positions;  // a line for each order: cl_ord_id,state,cum,leaves,avg_px
  std::string events;     // in the format of the exchange's order event file
  std::string book;       // in the format of the exchange's book file
};

/// What the trader would stand by, in files that are replaced as a whole, so that whoever reads
/// them sees no half of one. Events are appended, in the order in which the exchange composed them.
class Belief {
 public:
  Belief(BeliefFiles files, Habits& habits) : files_(std::move(files)), habits_(habits) {}

  /// A report that was taken.
  void note(const quorl::client::FixMessage& report, ReportPlace place);

  /// Brings the files up to date. Events with places from `complete_below` on wait, as one that is
  /// still missing may come in between. Throws SystemError if a file cannot be written.
  void write(const OrderDesk& desk, const MarketView& market, ReportPlace complete_below);
  /// The same at the end: nothing waits.
  void finish(const OrderDesk& desk, const MarketView& market);

 private:
  void write_events(ReportPlace complete_below);

  BeliefFiles files_;
  Habits& habits_;
  std::map<ReportPlace, std::string> waiting_;  // event lines
  bool begun_ = false;                          // the event file is ours from its beginning
  bool changed_ = true;                         // the orders, since they were written
};

}  // namespace certify::trader
