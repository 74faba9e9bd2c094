#include "quorl/client/errors.h"

#include <cerrno>
#include <cstring>

namespace quorl::client {

SystemError::SystemError(const std::string& call)
    : std::runtime_error(call + ": " + std::strerror(errno)) {}

}  // namespace quorl::client
