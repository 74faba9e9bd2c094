#include "certify/checks/recovery_checks.h"

namespace certify {

std::span<const CheckKind> recovery_checks() {
  static constexpr CheckKind KINDS[] = {
      {"recovery.reports",
       "Every report that the exchange decided reached the client before the end.",
       make_recovery_reports_check},
      {"recovery.lapse",
       "In a silence of the exchange the client tested the line, and if it lasted, logged on "
       "again.",
       make_recovery_lapse_check},
  };
  return KINDS;
}

}  // namespace certify
