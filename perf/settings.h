#pragma once

#include <string>
#include <vector>

#include "perf/server.h"

namespace perf {

struct Build {
  std::string name;
  std::string binary;
};

/// What one run of the benchmark measures, and how thoroughly.
struct Settings {
  std::vector<Build> builds;  // the one that is judged first; at most one more, to compare with
  std::string floor_binary;
  Placement one_cpu;      // server and load generator share it
  Placement two_cpus;     // equal to one_cpu where there is only one
  std::vector<int> cpus;  // all that we may use
  unsigned rounds = 5;
  bool quick = false;
  size_t in_flight = 64;
  std::string only;  // figures whose name has this in it; empty: all

  bool has_two_cpus() const { return two_cpus.server_cpu != two_cpus.load_cpu; }
  bool wants(const std::string& name) const { return name.find(only) != std::string::npos; }
  /// A number of orders, or what is left of it in a quick run.
  size_t scaled(size_t full, size_t in_a_quick_run) const { return quick ? in_a_quick_run : full; }
};

}  // namespace perf
