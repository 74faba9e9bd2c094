#pragma once

#include <string>
#include <vector>

#include "certify/plan/plan.h"
#include "certify/run/run_folder.h"

namespace certify {

/// Copies what the client has written of its belief to a folder of the run for this mark, or for
/// the end, which has no mark: positions.csv, events.jsonl and book.json, those that are there.
/// Returns the folder. At a mark only files that the plan names for it count; a path that does not
/// begin with / is one in the run's folder.
std::string take_belief(const RunFolder& folder, const Plan& plan, const std::string& mark);

/// The files that the plan names for this mark, or for the end, and that are not there.
std::vector<std::string> missing_belief(const RunFolder& folder, const Plan& plan,
                                        const std::string& mark);

/// Copies the exchange's book file to the same folder, as `name`.
void take_truth_book(const RunFolder& folder, const std::string& mark, const std::string& name);

}  // namespace certify
