// Writes the reports of runs that never were: sample_reports DIR.

#include <filesystem>
#include <fstream>
#include <iostream>
#include <string>

#include "certify/report/junit.h"
#include "certify/report/report_json.h"
#include "tests/certify/report/support/sample_runs.h"

int main(int argc, char** argv) {
  if (argc != 2) return 2;
  const std::filesystem::path folder = argv[1];
  std::filesystem::create_directories(folder);
  const auto runs = certify::sample_runs();
  for (size_t i = 0; i < runs.size(); ++i) {
    std::ofstream report(folder / (std::to_string(i) + ".json"));
    certify::write_report_json(runs[i], report);
    if (!report.flush()) return 1;
  }
  std::ofstream junit(folder / "junit.xml");
  certify::write_junit(runs, junit);
  return junit.flush() ? 0 : 1;
}
