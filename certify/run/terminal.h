#pragma once

#include <cstddef>
#include <string>

#include "certify/run/runs.h"

namespace certify {

/// Tells a person how runs go, on standard error: on a terminal in one line that moves, elsewhere
/// in a line for each run that has ended.
class Terminal : public RunsWatcher {
 public:
  /// `attach`: how to reach the exchange is told when it serves.
  Terminal(size_t runs, bool attach);
  ~Terminal() override;  // leaves no half line

  void on_ready(const RunOptions& options, const Surroundings& surroundings) override;
  void on_progress(const Progress& progress) override;
  void on_end(const RunResult& result) override;

 private:
  void clear();

  size_t runs_;
  size_t ended_ = 0;
  bool attach_;
  bool moves_;  // standard error is a terminal
  bool line_stands_ = false;
};

/// Columns of the terminal at `fd`; 0 if it is none.
size_t columns_of(int fd);

}  // namespace certify
