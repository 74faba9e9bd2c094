#pragma once

#include <functional>
#include <limits>
#include <string>
#include <vector>

// What a run has measured, and how it is told: ratios first, since only they mean anything on
// another machine or another day.

namespace perf {

struct Heading {
  std::string section;    // the table
  std::string name;       // the row
  std::string unit;       // of value and reference
  std::string reference;  // what the ratio is to; empty: there is no ratio
};

/// One round's finding. Value and reference come from the same round.
struct Sample {
  double value = 0;
  double reference = std::numeric_limits<double>::quiet_NaN();
};

struct Spread {
  double median = 0;
  double least = 0;
  double most = 0;
};

/// `values` is not empty.
Spread spread_of(std::vector<double> values);

class Report {
 public:
  /// `builds` are the names of the programs measured, the one that is judged first.
  explicit Report(std::vector<std::string> builds) : builds_(std::move(builds)) {}

  void add(const Heading& heading, const std::string& build, const Sample& sample);

  /// Runs one piece of work; what it throws is kept as a failure under this name and shown at once.
  void attempt(const std::string& name, const std::function<void()>& work);

  bool failed() const { return !failures_.empty(); }
  /// Nothing has failed, and every figure is a number for each build.
  bool complete() const;

  void print(const std::string& section) const;
  void print_failures() const;
  void write_json(const std::string& path) const;

 private:
  struct Figure {
    Heading heading;
    std::vector<std::vector<Sample>> samples;  // by build
  };

  Figure& figure_of(const Heading& heading);
  bool is_sound(const Figure& figure) const;

  std::vector<std::string> builds_;
  std::vector<Figure> figures_;
  std::vector<std::string> failures_;
};

/// CPU model, number of CPUs, kernel.
std::string machine_description();

}  // namespace perf
