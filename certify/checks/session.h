#pragma once

#include <memory>

#include "certify/checks/check.h"

namespace certify {

// One file for each: session_frames.cpp, session_header.cpp ... What each demands is said in
// session.cpp.
std::unique_ptr<Check> make_frames_check(const char* name, const CheckContext& context);
std::unique_ptr<Check> make_header_check(const char* name, const CheckContext& context);
std::unique_ptr<Check> make_times_check(const char* name, const CheckContext& context);
std::unique_ptr<Check> make_numbers_check(const char* name, const CheckContext& context);
std::unique_ptr<Check> make_logon_check(const char* name, const CheckContext& context);
std::unique_ptr<Check> make_test_request_check(const char* name, const CheckContext& context);
std::unique_ptr<Check> make_heartbeats_check(const char* name, const CheckContext& context);
std::unique_ptr<Check> make_resend_answered_check(const char* name, const CheckContext& context);
std::unique_ptr<Check> make_gap_asked_check(const char* name, const CheckContext& context);
std::unique_ptr<Check> make_asked_once_check(const char* name, const CheckContext& context);
std::unique_ptr<Check> make_logout_check(const char* name, const CheckContext& context);
std::unique_ptr<Check> make_reconnects_check(const char* name, const CheckContext& context);

}  // namespace certify
