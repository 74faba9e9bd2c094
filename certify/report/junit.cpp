#include "certify/report/junit.h"

#include <cstdio>
#include <ctime>
#include <ostream>
#include <pugixml.hpp>
#include <string>
#include <vector>

#include "certify/report/clean_text.h"
#include "certify/report/words.h"

namespace certify {
namespace {

constexpr const char* THE_RUN = "run";  // the case that no check stands for

struct Counts {
  size_t tests = 0;
  size_t failures = 0;
  size_t errors = 0;
  size_t skipped = 0;
};

void set(pugi::xml_node node, const char* name, const std::string& value) {
  node.append_attribute(name).set_value(clean_text(value).c_str());
}

std::string in_seconds(TimeNs time) {
  char text[32];
  std::snprintf(text, sizeof text, "%.3f", static_cast<double>(time) / SECOND);
  return text;
}

std::string date_and_time(TimeNs at) {
  const auto seconds = static_cast<time_t>(at / SECOND);
  std::tm utc{};
  ::gmtime_r(&seconds, &utc);
  char text[32];
  std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &utc);
  return text;
}

/// One line below the other, each of them clean.
void set_lines(pugi::xml_node node, const std::vector<std::string>& lines) {
  std::string text;
  for (const std::string& line : lines) text += clean_text(line) + "\n";
  node.text().set(text.c_str());
}

pugi::xml_node append_case(pugi::xml_node suite, const RunResult& run, const std::string& name) {
  const pugi::xml_node test_case = suite.append_child("testcase");
  set(test_case, "classname", run.plan.name);
  set(test_case, "name", name);
  return test_case;
}

void append_failure(pugi::xml_node test_case, const RunResult& run, const Verdict& verdict) {
  const pugi::xml_node failure = test_case.append_child("failure");
  set(failure, "message", verdict.faults.empty() ? "failed" : verdict.faults.front().what);
  set(failure, "type", verdict.check);
  std::vector<std::string> lines{meaning_of(verdict.check),
                                 counted(verdict.fault_count, "fault") + " in " +
                                     counted(verdict.occasions, "occasion") + ", see " +
                                     run.folder + "/timeline.txt"};
  for (const Fault& fault : verdict.faults) {
    lines.push_back(time_text(fault.at) + "  " + fault.what);
    for (const std::string& line : fault.evidence) lines.push_back("    " + line);
  }
  set_lines(failure, lines);
}

void append_check(pugi::xml_node suite, const RunResult& run, const Verdict& verdict,
                  Counts& counts) {
  ++counts.tests;
  pugi::xml_node test_case = append_case(suite, run, verdict.check);
  set(test_case, "time", "0.000");
  if (verdict.outcome == Outcome::FAILED) {
    ++counts.failures;
    append_failure(test_case, run, verdict);
  } else if (verdict.outcome != Outcome::PASSED) {
    ++counts.skipped;
    set(test_case.append_child("skipped"), "message",
        verdict.outcome == Outcome::NOT_SEEN ? "not seen: its occasion never came"
                                             : "skipped by the plan");
  }
}

/// Whether the run is good for anything: else no case would say so where no check failed.
void append_run(pugi::xml_node suite, const RunResult& run, Counts& counts) {
  ++counts.tests;
  pugi::xml_node test_case = append_case(suite, run, THE_RUN);
  set(test_case, "time", in_seconds(run.ended - run.began));
  if (run.status == RunResult::Status::PASSED || run.status == RunResult::Status::FAILED) return;
  ++counts.errors;
  pugi::xml_node error = test_case.append_child("error");
  const auto doubts = doubts_of(run);
  set(error, "message", doubts.empty() ? word_of(run.status) : doubts.front());
  set(error, "type", word_of(run.status));
  set_lines(error, doubts);
}

void set_counts(pugi::xml_node node, const Counts& counts) {
  set(node, "tests", std::to_string(counts.tests));
  set(node, "failures", std::to_string(counts.failures));
  set(node, "errors", std::to_string(counts.errors));
  set(node, "skipped", std::to_string(counts.skipped));
}

void append_property(pugi::xml_node properties, const char* name, const std::string& value) {
  const pugi::xml_node property = properties.append_child("property");
  set(property, "name", name);
  set(property, "value", value);
}

Counts append_suite(pugi::xml_node suites, const RunResult& run) {
  pugi::xml_node suite = suites.append_child("testsuite");
  set(suite, "name", run.plan.name);
  const pugi::xml_node properties = suite.append_child("properties");
  append_property(properties, "seed", std::to_string(run.seed));
  append_property(properties, "folder", run.folder);
  append_property(properties, "client", run.client_command);
  append_property(properties, "ended by", run.ended_by);
  Counts counts;
  append_run(suite, run, counts);
  for (const Verdict& verdict : run.verdicts) append_check(suite, run, verdict, counts);
  set_counts(suite, counts);
  set(suite, "time", in_seconds(run.ended - run.began));
  set(suite, "timestamp", date_and_time(run.began));
  return counts;
}

}  // namespace

void write_junit(std::span<const RunResult> runs, std::ostream& out) {
  pugi::xml_document document;
  pugi::xml_node declaration = document.append_child(pugi::node_declaration);
  set(declaration, "version", "1.0");
  set(declaration, "encoding", "UTF-8");
  pugi::xml_node suites = document.append_child("testsuites");
  set(suites, "name", "quorl-certify");
  Counts all;
  TimeNs time = 0;
  for (const RunResult& run : runs) {
    const Counts counts = append_suite(suites, run);
    all.tests += counts.tests;
    all.failures += counts.failures;
    all.errors += counts.errors;
    all.skipped += counts.skipped;
    time += run.ended - run.began;
  }
  set_counts(suites, all);
  set(suites, "time", in_seconds(time));
  document.save(out, "  ");
}

}  // namespace certify
