#pragma once

#include <cstdint>

namespace quorl {

/// A non-blocking TCP listener on the wildcard address with a backlog of 8. Ends the process with
/// status 1, said on standard error under the service's `name`, if the port cannot be had.
int listen_or_exit(uint16_t port, const char* name);

}  // namespace quorl
