#include "perf/figures.h"

#include <sys/utsname.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <exception>
#include <fstream>
#include <nlohmann/json.hpp>
#include <optional>

namespace perf {
namespace {

std::vector<double> values_of(const std::vector<Sample>& samples) {
  std::vector<double> values;
  for (const Sample& sample : samples) values.push_back(sample.value);
  return values;
}

std::vector<double> references_of(const std::vector<Sample>& samples) {
  std::vector<double> values;
  for (const Sample& sample : samples) values.push_back(sample.reference);
  return values;
}

std::vector<double> ratios_of(const std::vector<Sample>& samples) {
  std::vector<double> ratios;
  for (const Sample& sample : samples) ratios.push_back(sample.value / sample.reference);
  return ratios;
}

/// Three significant digits.
std::string number_text(double value) {
  char text[32];
  const int decimals = value >= 100 ? 0 : value >= 10 ? 1 : value >= 1 ? 2 : 3;
  std::snprintf(text, sizeof text, "%.*f", decimals, value);
  return text;
}

std::string spread_text(const Spread& spread) {
  return number_text(spread.median) + " (" + number_text(spread.least) + " .. " +
         number_text(spread.most) + ")";
}

nlohmann::json spread_json(const Spread& spread) {
  return {{"median", spread.median}, {"min", spread.least}, {"max", spread.most}};
}

/// Columns as wide as their widest cell, the first one left-aligned.
void print_columns(const std::vector<std::vector<std::string>>& rows) {
  std::vector<size_t> widths;
  for (const auto& row : rows) {
    widths.resize(std::max(widths.size(), row.size()));
    for (size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], row[i].size());
  }
  for (const auto& row : rows) {
    for (size_t i = 0; i < row.size(); ++i) {
      const int width = static_cast<int>(widths[i]);
      std::printf(i == 0 ? "%-*s" : "  %*s", width, row[i].c_str());
    }
    std::printf("\n");
  }
}

}  // namespace

Spread spread_of(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  const size_t middle = values.size() / 2;
  const double median =
      values.size() % 2 == 1 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
  return {median, values.front(), values.back()};
}

void Report::add(const Heading& heading, const std::string& build, const Sample& sample) {
  const auto at = std::find(builds_.begin(), builds_.end(), build) - builds_.begin();
  figure_of(heading).samples.at(static_cast<size_t>(at)).push_back(sample);
}

Report::Figure& Report::figure_of(const Heading& heading) {
  for (Figure& figure : figures_) {
    if (figure.heading.section == heading.section && figure.heading.name == heading.name) {
      return figure;
    }
  }
  figures_.push_back({heading, std::vector<std::vector<Sample>>(builds_.size())});
  return figures_.back();
}

void Report::attempt(const std::string& name, const std::function<void()>& work) {
  try {
    work();
  } catch (const std::exception& failure) {
    failures_.push_back(name + ": " + failure.what());
    std::fprintf(stderr, "bench: FAILED: %s\n", failures_.back().c_str());
  }
}

bool Report::is_sound(const Figure& figure) const {
  return std::all_of(figure.samples.begin(), figure.samples.end(), [&](const auto& samples) {
    return !samples.empty() &&
           std::all_of(samples.begin(), samples.end(), [&](const Sample& sample) {
             const bool has_reference = !figure.heading.reference.empty();
             return std::isfinite(sample.value) &&
                    (!has_reference || (std::isfinite(sample.reference) && sample.reference > 0));
           });
  });
}

bool Report::complete() const {
  return failures_.empty() && !figures_.empty() &&
         std::all_of(figures_.begin(), figures_.end(),
                     [this](const Figure& figure) { return is_sound(figure); });
}

void Report::print(const std::string& section) const {
  std::vector<std::vector<std::string>> rows;
  rows.push_back({section, "ratio", builds_.front(), "to", "unit"});
  if (builds_.size() > 1) rows.front().insert(rows.front().begin() + 2, builds_[1] + " / it");
  for (const Figure& figure : figures_) {
    if (figure.heading.section != section) continue;
    std::vector<std::string> row{figure.heading.name};
    if (!is_sound(figure)) {
      row.push_back("no figure");
    } else {
      const std::vector<Sample>& own = figure.samples.front();
      const bool has_ratio = !figure.heading.reference.empty();
      row.push_back(has_ratio ? spread_text(spread_of(ratios_of(own))) : "");
      if (builds_.size() > 1) {
        std::vector<double> gains;
        const std::vector<Sample>& other = figure.samples[1];
        for (size_t i = 0; i < std::min(own.size(), other.size()); ++i) {
          gains.push_back(other[i].value / own[i].value);
        }
        row.push_back(spread_text(spread_of(gains)));
      }
      row.push_back(spread_text(spread_of(values_of(own))));
      row.push_back(has_ratio ? number_text(spread_of(references_of(own)).median) + " " +
                                    figure.heading.reference
                              : "");
      row.push_back(figure.heading.unit);
    }
    rows.push_back(row);
  }
  if (rows.size() == 1) return;
  std::printf("\n");
  print_columns(rows);
}

void Report::print_failures() const {
  if (figures_.empty() && failures_.empty()) std::printf("nothing was measured\n");
  for (const std::string& failure : failures_) std::printf("FAILED: %s\n", failure.c_str());
  for (const Figure& figure : figures_) {
    if (!is_sound(figure)) std::printf("no figure: %s\n", figure.heading.name.c_str());
  }
}

void Report::write_json(const std::string& path) const {
  nlohmann::json all = {{"machine", machine_description()}, {"figures", nlohmann::json::array()}};
  for (const Figure& figure : figures_) {
    for (size_t i = 0; i < builds_.size(); ++i) {
      const std::vector<Sample>& samples = figure.samples[i];
      nlohmann::json entry = {{"section", figure.heading.section},
                              {"name", figure.heading.name},
                              {"unit", figure.heading.unit},
                              {"build", builds_[i]},
                              {"rounds", samples.size()}};
      if (!samples.empty()) entry["value"] = spread_json(spread_of(values_of(samples)));
      if (!samples.empty() && !figure.heading.reference.empty()) {
        entry["reference_is"] = figure.heading.reference;
        entry["reference"] = spread_json(spread_of(references_of(samples)));
        entry["ratio"] = spread_json(spread_of(ratios_of(samples)));
      }
      all["figures"].push_back(entry);
    }
  }
  all["failures"] = failures_;
  std::ofstream out(path);
  out << all.dump(2) << "\n";
  if (!out.flush()) throw std::runtime_error("cannot write " + path);
}

std::string machine_description() {
  std::string model = "unknown CPU";
  std::ifstream in("/proc/cpuinfo");
  for (std::string line; std::getline(in, line);) {
    if (!line.starts_with("model name")) continue;
    model = line.substr(line.find(':') + 2);
    break;
  }
  utsname system{};
  ::uname(&system);
  return model + ", " + std::to_string(::sysconf(_SC_NPROCESSORS_ONLN)) + " CPUs, " +
         system.sysname + " " + system.release;
}

}  // namespace perf
