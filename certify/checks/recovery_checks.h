#pragma once

#include <memory>

#include "certify/checks/check.h"

// The checks of recovery, for the table in recovery.cpp.

namespace certify {

std::unique_ptr<Check> make_recovery_reports_check(const char* name, const CheckContext& context);
std::unique_ptr<Check> make_recovery_lapse_check(const char* name, const CheckContext& context);

}  // namespace certify
