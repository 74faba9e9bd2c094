#pragma once

#include <string>

namespace tools_test {

/// Waits until somebody on this machine is a member of the group, an IPv4 address, as the kernel
/// tells it. Throws Timeout.
void await_joined(const std::string& group);

}  // namespace tools_test
