#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "lives/fix_witness.h"
#include "lives/machine.h"
#include "market/engine.h"
#include "quorl/client/json_lines.h"

namespace lives {

/// Follows the order event file and holds it to the reports, to the orders that rest, and to the
/// counters.
class TruthWitness {
 public:
  /// Both must outlive it.
  TruthWitness(quorl::Engine& engine, const Machine& machine, std::string path)
      : engine_(engine), machine_(machine), path_(std::move(path)) {}

  /// Between two turns, with what has been composed since the last look; `complete` false: perhaps
  /// not all of it.
  void look(const std::vector<Composed>& composed, bool complete);

 private:
  struct Life {  // of one order
    uint64_t qty = 0;
    uint64_t cum = 0;
    uint64_t leaves = 0;
    bool ended = false;
  };

  using Lines = std::vector<quorl::client::OrderEvent>;

  Lines take_lines();
  void count(const quorl::client::OrderEvent& line);
  void follow(uint64_t order_id, const Lines& lines);
  void look_at_orders() const;
  void look_at_counters() const;

  quorl::Engine& engine_;
  const Machine& machine_;
  const std::string path_;
  size_t read_ = 0;
  std::map<uint64_t, Life> orders_;        // accepted, by OrderID
  std::map<std::string, uint64_t> lines_;  // by kind
};

}  // namespace lives
