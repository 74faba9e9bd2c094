#pragma once

#include <string_view>

namespace quorl {

struct Client;

/// Closes the socket and leaves the record in place, with its comp_id. No disconnect of any kind
/// touches an order: they stay on the book.
void close_connection(Client& client);

/// One send, no retry, no outgoing queue: on a full socket buffer the bytes are lost or cut, and
/// an application message is still on its stream.
void send_ignoring_result(int fd, std::string_view message);

}  // namespace quorl
