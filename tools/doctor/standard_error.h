#pragma once

#include "tools/doctor/finding.h"

namespace tools::doctor {

/// What the exchange would find as its standard error, which is taken to be that of the doctor.
/// Asked by its number before anything else is opened.
Findings odd_standard_error(int fd);

}  // namespace tools::doctor
