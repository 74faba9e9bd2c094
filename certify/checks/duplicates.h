#pragma once

#include <memory>

#include "certify/checks/check.h"

namespace certify {

/// A message that the client had and that comes again with 43=Y is not taken twice. The wire cannot
/// show it; what the client believes of positions and events can. Those differences are this
/// check's alone, and not those of belief.
std::unique_ptr<Check> make_duplicates_check(const char* name, const CheckContext& context);

}  // namespace certify
