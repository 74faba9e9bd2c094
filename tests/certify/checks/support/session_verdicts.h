#pragma once

#include <set>
#include <string>

#include "certify/checks/check.h"
#include "tests/certify/checks/support/dialogue.h"

namespace certify {

/// All session checks over one dialogue, at whose last event the run ends.
class SessionVerdicts {
 public:
  explicit SessionVerdicts(const Dialogue& dialogue, const Plan& plan = {});

  /// Names without "session.", so that one fault can be seen to fail one check.
  std::set<std::string> failed() const { return with(Outcome::FAILED); }
  Outcome of(const std::string& check) const;
  uint64_t faults(const std::string& check) const;
  /// What was blamed, for a test that fails.
  std::string text() const;

 private:
  std::set<std::string> with(Outcome outcome) const;
  const Verdict& verdict(const std::string& check) const;

  std::vector<Verdict> verdicts_;
};

}  // namespace certify
