#pragma once

#include <netinet/in.h>

#include <cstddef>
#include <cstdint>

// The few socket steps that several services share.

namespace quorl {

/// Results are not looked at: a descriptor that cannot be set stays as it is.
void set_nonblocking(int fd);

/// Sets SO_REUSEADDR and binds to `address` (host byte order) and `port`. False, with errno, if
/// the bind fails.
bool bind_reusable(int fd, in_addr_t address, uint16_t port);

/// One sendto, flags 0, whose result nobody looks at: a datagram that cannot be sent counts as
/// sent.
void send_datagram(int fd, const void* bytes, size_t size, const sockaddr_in& to);

/// A non-blocking TCP listener on the wildcard address with a backlog of 8. Ends the process with
/// status 1, said on standard error under the service's `name`, if the port cannot be had.
int listen_or_exit(uint16_t port, const char* name);

}  // namespace quorl
