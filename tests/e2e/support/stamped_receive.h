#pragma once

#include <cstdint>

#include "client/bytes.h"
#include "client/deadline.h"

namespace e2e {

/// Bytes of a socket with the time at which the sender's call put the last of them into the
/// network. On one machine the stamps of two sockets tell which of two sends came first, however
/// late and in whatever order they are looked at.
struct Stamped {
  client::Bytes bytes;
  int64_t stamp_ns = 0;
};

/// Asks the kernel for stamps on all that arrives from now on.
void stamp_arrivals(int fd);

/// One read. Throws Timeout if nothing comes, and SystemError if it bears no stamp.
Stamped receive_stamped(int fd, client::Deadline deadline);

}  // namespace e2e
