#pragma once

#include <sys/types.h>

#include <atomic>
#include <string_view>

// The request to stop, and how it ends what a stalled reader of standard error or of a file would
// hold up. Such a reader may hold up the process for as long as it likes; but from a stop on, all
// waits for such readers last 100 ms together, and then what was to be written is given up.

namespace quorl {

/// Set to 1 by the signal handler: the one thing that is written outside the loop's thread. The
/// loop reads it once a turn.
extern std::atomic<unsigned char> stop_requested;

/// For a descriptor that does not block: waits until it takes bytes, or has failed so that the next
/// write tells. False: give up.
bool wait_until_writable(int fd);

/// For a descriptor that others may share, so that it has to stay as it is, blocking as a rule: as
/// write, of at most PIPE_BUF bytes. Negative with errno EINTR: give up.
ssize_t write_until_stopped(int fd, std::string_view bytes);

}  // namespace quorl
