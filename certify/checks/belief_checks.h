#pragma once

#include <memory>

#include "certify/checks/check.h"

// The checks of what the client believes, for the table in belief.cpp.

namespace certify {

std::unique_ptr<Check> make_belief_positions_check(const char* name, const CheckContext& context);
std::unique_ptr<Check> make_belief_events_check(const char* name, const CheckContext& context);
std::unique_ptr<Check> make_belief_book_check(const char* name, const CheckContext& context);

}  // namespace certify
