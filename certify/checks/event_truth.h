#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "certify/checks/report_ledger.h"
#include "certify/plan/plan.h"

namespace certify {

/// A client's order event file: in the format of the exchange's own, all but `t` and `text` of
/// which is held against it.
struct EventsFile {
  std::vector<quorl::client::OrderEvent> events;
  std::vector<std::string> flaws;  // "line 3: ...", the first hundred, and how many more
};
EventsFile read_events(std::string_view content);

/// How the events of one order in a file stand to those that the exchange decided.
struct EventFinding {
  std::string order;               // its ClOrdID
  std::vector<std::string> wrong;  // missing, or decided by nobody; a line each
  std::vector<std::string> twice;  // taken again when they came again with 43=Y
  uint64_t untold = 0;             // missing, and no report of it had reached the client
  bool repeated = false;           // some were replayed to a client that had them
};

/// The order events of a run, as decided.
class EventTruth {
 public:
  explicit EventTruth(Milliseconds grace);

  void on_event(const Event& event);

  /// One finding for each order of the file or the run. What was decided within the grace before
  /// `taken` may be missing.
  std::vector<EventFinding> compare(const EventsFile& file, TimeNs taken) const;

  bool consistent() const { return ledger_.consistent(); }

 private:
  struct Decided {
    TimeNs at = 0;
    ReportLedger::Report report = 0;
  };
  struct Tally {  // of events that read alike
    uint64_t decided = 0;
    uint64_t due = 0;     // of these, longer than the grace ago
    uint64_t untold = 0;  // of these, not heard by the client until then
    uint64_t repeats = 0;
    uint64_t believed = 0;
  };

  void weigh(const std::string& event, const Tally& tally, EventFinding& finding) const;

  TimeNs grace_;
  SessionView sessions_;
  ReportLedger ledger_;
  std::unordered_map<std::string, std::vector<Decided>> decided_;  // by what they read like
};

}  // namespace certify
