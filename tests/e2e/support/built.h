#pragma once

#include <string>

/// The path of a program of the same build, such as "quorl" or "quorl-watch": it lies beside this
/// one.
std::string built_program(const std::string& name);
