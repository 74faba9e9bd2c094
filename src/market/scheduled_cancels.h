#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace quorl {

/// An exchange-initiated cancel still to fire. It names the ClOrdID and not the id: a replace
/// makes the order safe, and a new order under the same ClOrdID is cancelled in its place.
struct ScheduledCancel {
  std::string owner;
  std::string cl_ord_id;
  int64_t due_ms = 0;  // steady clock
};

/// Those still to fire. Looking for a due one costs the same however many wait.
class ScheduledCancels {
 public:
  bool empty() const { return heap_.empty(); }
  size_t size() const { return heap_.size(); }

  void schedule(ScheduledCancel cancel);
  /// Takes out all that are due, in the order of their scheduling, whatever their times are.
  std::vector<ScheduledCancel> take_due(int64_t now_ms);
  /// A copy of all, in the order of their scheduling.
  std::vector<ScheduledCancel> all() const;

 private:
  struct Entry {
    uint64_t number;  // of the scheduling
    ScheduledCancel cancel;
  };

  std::vector<Entry> heap_;  // the first due at the front
  uint64_t scheduled_ = 0;
};

}  // namespace quorl
