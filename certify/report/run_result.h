#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "certify/checks/check.h"
#include "certify/plan/plan.h"

namespace certify {

/// What a run ends with.
struct RunResult {
  enum class Status : uint8_t {
    PASSED,
    FAILED,          // a check failed
    PROVES_NOTHING,  // the plan's misbehaviour did not come about, or a check it expects was not
                     // seen
    BROKEN,          // the exchange or the client could not be started, Ctrl-C, no space ...
  } status = Status::BROKEN;
  Plan plan;
  std::string folder;                 // with report.txt, report.json, timeline.txt ...
  std::string ended_by;               // "the plan: logons >= 2 and quiet for 2s"
  std::vector<std::string> unmet;     // requirements, with the counters' values
  std::vector<std::string> not_done;  // steps whose condition never came
  std::string broken;                 // why, if it is
  TimeNs began = 0;
  TimeNs ended = 0;
  std::map<std::string, uint64_t> counters;  // at the end
  TimeNs tap_delay_median = 0;               // what the taps added
  TimeNs tap_delay_most = 0;
  TimeNs stood_still = 0;      // the longest time for which the machine did not let the judge go on
  unsigned number_of_try = 1;  // those ahead of this one were disturbed by such a time
  std::string client_command;
  std::string client_ended;  // "exit status 0"
  uint64_t seed = 0;
  std::vector<Verdict> verdicts;
};

}  // namespace certify
