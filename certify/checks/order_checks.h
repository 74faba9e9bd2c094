#pragma once

#include <memory>

#include "certify/checks/check.h"

// The checks of orders, for the table in orders.cpp.

namespace certify {

std::unique_ptr<Check> make_order_tags_check(const char* name, const CheckContext& context);
std::unique_ptr<Check> make_names_unique_check(const char* name, const CheckContext& context);
std::unique_ptr<Check> make_names_live_check(const char* name, const CheckContext& context);
std::unique_ptr<Check> make_closed_left_alone_check(const char* name, const CheckContext& context);
std::unique_ptr<Check> make_replace_above_filled_check(const char* name,
                                                       const CheckContext& context);
std::unique_ptr<Check> make_order_session_up_check(const char* name, const CheckContext& context);
std::unique_ptr<Check> make_no_blind_repetition_check(const char* name,
                                                      const CheckContext& context);

}  // namespace certify
