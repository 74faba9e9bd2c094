#pragma once

#include <string_view>

namespace certify {

/// The chapter "Checks" of docs/certify.md as it stands, put into the program when it is built.
extern const std::string_view CHECKS_CHAPTER;

}  // namespace certify
