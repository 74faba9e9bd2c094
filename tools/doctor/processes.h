#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace tools::doctor {

/// A socket as a table of /proc/net tells of it.
struct SocketEntry {
  std::string address;  // as the table has it, in hex; all zeros is every address
  uint16_t port = 0;    // of this end
  unsigned state = 0;
  uint64_t inode = 0;

  static constexpr unsigned LISTENS = 0x0A;  // TCP
  bool on_every_address() const { return address.find_first_not_of('0') == std::string::npos; }
};

/// The entries of the text of /proc/net/tcp, tcp6, udp or udp6. A line that is none is left out.
std::vector<SocketEntry> parse_socket_table(std::string_view text);

/// Who is bound to a port in both tables of a protocol, "tcp" (listening only) or "udp".
std::vector<SocketEntry> sockets_on(const std::string& protocol, uint16_t port);

/// "quorl (pid 12)", more joined by "and"; "somebody whom /proc does not tell" if that is so.
std::string owners_of(const std::vector<SocketEntry>& sockets);

/// The processes but ourselves that hold the file open for writing, told the same way; empty if
/// there is none.
std::string writers_of(dev_t device, ino_t inode);

}  // namespace tools::doctor
