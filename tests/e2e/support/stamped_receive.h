#pragma once

#include <cstdint>

#include "quorl/client/bytes.h"
#include "quorl/client/deadline.h"

namespace client = quorl::client;

namespace e2e {

/// Bytes of a socket with the time at which the sender's call put the last of them into the
/// network. On one machine the stamps of two sockets tell which of two sends came first, however
/// late and in whatever order they are looked at.
struct Stamped {
  client::Bytes bytes;
  int64_t stamp_ns = 0;  // 0 if there is none
};

/// Asks the kernel for stamps. What arrives in the next moment may still bear none.
void stamp_arrivals(int fd);

/// One read. Throws Timeout if nothing comes.
Stamped receive_stamped(int fd, client::Deadline deadline);

}  // namespace e2e
