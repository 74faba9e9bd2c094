#pragma once

#include <string>
#include <vector>

#include "certify/run/certification.h"
#include "certify/run/no_plan.h"
#include "certify/run/run_options.h"

namespace certify {

/// What is to be run, made of what was asked for.
struct Preparation {
  std::vector<RunOptions> runs;
  NoPlanOptions no_plan;
  std::vector<std::string> mistakes;  // of options and plans, a line each; if any, nothing is run
};

/// Reads the plans and looks whether all that is needed is there. Starts nothing.
Preparation prepare(const CertifyOptions& options);

}  // namespace certify
