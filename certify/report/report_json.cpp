#include "certify/report/report_json.h"

#include <nlohmann/json.hpp>
#include <ostream>
#include <string>

#include "certify/report/words.h"

namespace certify {
namespace {

using Json = nlohmann::ordered_json;

Json fault_as_json(const Fault& fault) {
  return {{"t", fault.at},
          {"time", time_text(fault.at)},
          {"what", fault.what},
          {"evidence", fault.evidence}};
}

Json verdict_as_json(const Verdict& verdict) {
  Json faults = Json::array();
  for (const Fault& fault : verdict.faults) faults.push_back(fault_as_json(fault));
  return {{"check", verdict.check},
          {"meaning", meaning_of(verdict.check)},
          {"outcome", word_of(verdict.outcome)},
          {"occasions", verdict.occasions},
          {"fault_count", verdict.fault_count},
          {"faults", std::move(faults)},
          {"remarks", verdict.remarks}};
}

Json plan_as_json(const Plan& plan) {
  return {{"name", plan.name},
          {"path", plan.path},
          {"title", plan.title},
          {"market", plan.market},
          {"scenario", plan.scenario}};
}

}  // namespace

void write_report_json(const RunResult& run, std::ostream& out) {
  Json checks = Json::array();
  for (const Verdict& verdict : run.verdicts) checks.push_back(verdict_as_json(verdict));
  const Json report = {
      {"status", word_of(run.status)},
      {"plan", plan_as_json(run.plan)},
      {"seed", run.seed},
      {"began", run.began},
      {"ended", run.ended},
      {"ended_by", run.ended_by},
      {"broken", run.broken},
      {"unmet", run.unmet},
      {"not_done", run.not_done},
      {"client", {{"command", run.client_command}, {"ended", run.client_ended}}},
      {"tap_delay_ns", {{"median", run.tap_delay_median}, {"most", run.tap_delay_most}}},
      {"folder", run.folder},
      {"counters", run.counters},
      {"checks", std::move(checks)},
  };
  constexpr int INDENT = 2;
  out << report.dump(INDENT, ' ', false, Json::error_handler_t::replace) << "\n";
}

}  // namespace certify
