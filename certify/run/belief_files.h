#pragma once

#include <string>

#include "certify/plan/plan.h"
#include "certify/run/run_folder.h"

namespace certify {

/// Copies what the client has written of its belief to a folder of the run for this mark, or for
/// the end, which has no mark: positions.csv, events.jsonl and book.json, those that are there.
/// Returns the folder. At a mark only files that the plan names for it count.
std::string take_belief(const RunFolder& folder, const Plan& plan, const std::string& mark);

/// Copies the exchange's book file to the same folder, as `name`.
void take_truth_book(const RunFolder& folder, const std::string& mark, const std::string& name);

}  // namespace certify
