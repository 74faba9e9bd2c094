#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "certify/checks/positions_file.h"
#include "certify/checks/report_ledger.h"
#include "certify/plan/plan.h"

namespace certify {

/// How a line of a positions file, or its absence, stands to the truth.
struct PositionFinding {
  enum class Kind : uint8_t {
    RIGHT,
    WRONG,
    UNTOLD,      // wrong, but it is what the client had been told
    TAKEN_TWICE  // too high by fills that the client had, and then had again
  } kind = Kind::RIGHT;
  std::string what;
  std::vector<std::string> evidence;
  bool repeated = false;  // fills of this order were replayed to a client that had them
};

/// The orders of a run as the exchange decided them, every state with its time, and which of it
/// reached the client.
class PositionTruth {
 public:
  explicit PositionTruth(Milliseconds grace);

  void on_event(const Event& event);

  /// Holds a file that was taken at `taken` against what was true at any time of the grace before.
  /// One finding for each row, and one for each order that is missing in it though it is live or
  /// has fills.
  std::vector<PositionFinding> compare(const std::vector<PositionRow>& rows, TimeNs taken) const;

  bool consistent() const { return ledger_.consistent(); }

 private:
  struct State {
    TimeNs at = 0;
    ReportLedger::Report report = 0;
    uint32_t cum = 0;
    uint32_t leaves = 0;
    uint32_t last_qty = 0;
    BelievedState state = BelievedState::OPEN;
  };
  struct Order {
    uint64_t id = 0;   // 0 of a refused one
    std::string name;  // the latest
    std::vector<State> states;
  };
  struct Average {
    uint32_t cum = 0;
    double price = 0;
  };
  struct Matched {
    PositionFinding finding;
    size_t order = 0;
    bool speaks_for_it = false;
  };

  void decide(const quorl::client::OrderEvent& event);
  Order& order_of(const quorl::client::OrderEvent& event);
  void note_average(const WireMessage& report);
  Matched match(const PositionRow& row, const std::vector<bool>& spoken_for, TimeNs taken) const;
  Matched compare_order(const PositionRow& row, size_t index, TimeNs taken) const;
  PositionFinding judge_unknown(const PositionRow& row, TimeNs taken) const;
  std::vector<State> possible(const Order& order, TimeNs taken, bool told) const;
  State sum_of_told(const Order& order, TimeNs by) const;
  bool fits(const PositionRow& row, const State& state) const;
  bool right_average(const PositionRow& row, const Order& order) const;
  std::vector<uint32_t> repeated_fills(const Order& order) const;
  std::optional<PositionFinding> missing(const Order& order, TimeNs taken) const;

  TimeNs grace_;
  SessionView sessions_;
  ReportLedger ledger_;
  std::vector<Order> orders_;
  std::unordered_map<uint64_t, size_t> by_id_;
  std::unordered_map<std::string, std::vector<size_t>> by_name_;  // in order of time
  std::unordered_map<uint64_t, Average> averages_;                // told, by OrderID
  std::unordered_map<std::string, TimeNs> sent_;                  // when, by ClOrdID
};

}  // namespace certify
