#include "fix/connection.h"

#include "base/sockets.h"
#include "fix/stream_records.h"

namespace quorl {

void close_connection(Client& client) {
  close_socket(client.fd);
  client.fd = -1;
  client.logged_on = false;
  client.inbound = {};  // the record stays, its memory need not
}

void send_ignoring_result(int fd, std::string_view message) {
  [[maybe_unused]] const auto sent = send_bytes(fd, message.data(), message.size());
}

}  // namespace quorl
