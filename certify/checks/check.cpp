#include "certify/checks/check.h"

#include <cstddef>
#include <string>
#include <utility>

namespace certify {
namespace {

// More of the same proves nothing more, and a client that goes wrong with each of 100000 orders
// must not fill the memory with it.
constexpr size_t MOST_SHOWN = 10;

}  // namespace

Verdict Check::verdict() const {
  Verdict verdict = verdict_;
  if (verdict.fault_count > 0) {
    verdict.outcome = Outcome::FAILED;
  } else {
    verdict.outcome = verdict.occasions > 0 ? Outcome::PASSED : Outcome::NOT_SEEN;
  }
  return verdict;
}

void Check::blame(Fault fault) {
  ++verdict_.fault_count;
  if (verdict_.faults.size() < MOST_SHOWN) verdict_.faults.push_back(std::move(fault));
}

void Check::remark(std::string text) {
  if (verdict_.remarks.size() < MOST_SHOWN) verdict_.remarks.push_back(std::move(text));
}

}  // namespace certify
