#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "certify/checks/order_messages.h"

namespace certify {

/// Which reports the exchange decided, and which of them reached the client. ExecIDs count the
/// execution reports of a run from E1, as the order events come: so the line of an event and its
/// report are known for each other. A cancel reject has no ExecID; those that read alike are
/// counted.
class ReportLedger {
 public:
  /// A report by its number: of ExecutionReports that of the ExecID, from 1; of cancel rejects a
  /// number of their own, with REJECTS added.
  using Report = uint64_t;
  static constexpr Report REJECTS = uint64_t{1} << 62;

  struct Heard {
    Report report = 0;   // 0: the event is no report
    bool again = false;  // the client had it before
  };

  /// What a message of the exchange brought.
  Heard hear(const Event& event, const std::string& comp);
  /// The number of the report that this line is about. To be called once for each line, in order.
  Report decide(const quorl::client::OrderEvent& order);

  /// False: order events and reports do not fit together, a line was lost or could not be read.
  /// Nothing can be said then.
  bool consistent() const { return consistent_; }

  bool reached(Report report) const;
  /// By that time, to the millisecond.
  bool reached(Report report, TimeNs by) const;
  /// How often the client had it again after it had had it.
  unsigned repeats(Report report) const;

 private:
  using Moment = uint32_t;        // milliseconds since the first message, from 1; 0: never
  struct Alike {                  // cancel rejects that cannot be told apart
    std::vector<Moment> heard;    // in order of time
    std::vector<Report> decided;  // the first of them is taken for the first heard
  };

  Heard hear_reject(const WireMessage& message, const std::string& comp, Moment now);
  Moment moment_of(TimeNs at) const;
  Moment heard(Report report) const;
  static std::string likeness(const WireMessage& message);
  static std::string likeness(const quorl::client::OrderEvent& order);

  /// Of an ExecutionReport, in a few bits: OrderID, CumQty and LeavesQty.
  void compare(Report report, uint32_t print);

  TimeNs begin_ = 0;             // of the first message
  std::vector<Moment> heard_;    // first, by the number of the ExecID
  std::vector<uint32_t> print_;  // likewise; 0: not known
  bool consistent_ = true;
  std::unordered_map<Report, unsigned> repeats_;  // of the few that were repeated
  Report executions_ = 0;                         // decided
  Report rejects_ = 0;                            // likewise
  std::unordered_map<std::string, Alike> alike_;
  std::unordered_map<Report, std::pair<std::string, size_t>> place_;  // of a reject among its like
  std::map<std::string, std::set<uint64_t>> reject_numbers_;  // 34 by CompID, since its reset
};

}  // namespace certify
