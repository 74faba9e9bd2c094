#include "fix/connection.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <string>

#include "fix/stream_records.h"

namespace quorl::test {
namespace {

class Connection : public testing::Test {
 protected:
  Connection() {
    std::array<int, 2> ends{};
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, ends.data()) != 0) {
      std::abort();
    }
    client.fd = ends[0];
    far_end = ends[1];
  }
  ~Connection() override {
    ::close(far_end);
    if (client.fd >= 0) ::close(client.fd);
  }

  /// All that waits at the far end.
  std::string heard() const {
    std::string bytes;
    std::array<char, 65536> piece;
    ssize_t got = 0;
    while ((got = ::recv(far_end, piece.data(), piece.size(), 0)) > 0) {
      bytes.append(piece.data(), static_cast<size_t>(got));
    }
    return bytes;
  }

  Client client;
  int far_end = -1;
};

TEST_F(Connection, closing_closes_the_socket_and_empties_what_was_received) {
  const int fd = client.fd;
  client.logged_on = true;
  client.inbound.append("8=FIX.4.2");
  close_connection(client);
  EXPECT_EQ(client.fd, -1);
  EXPECT_FALSE(client.logged_on);
  EXPECT_TRUE(client.inbound.empty());
  EXPECT_EQ(::fcntl(fd, F_GETFD), -1);
  char byte = 0;
  EXPECT_EQ(::recv(far_end, &byte, 1, 0), 0);
}

TEST_F(Connection, closing_leaves_the_rest_of_the_record) {
  client.comp_id = "ALPHA";
  client.last_seq = 7;
  client.heartbeat_s = 5;
  client.last_rx_ms = 11;
  client.last_tx_ms = 12;
  close_connection(client);
  EXPECT_EQ(client.comp_id, "ALPHA");
  EXPECT_EQ(client.last_seq, 7U);
  EXPECT_EQ(client.heartbeat_s, 5);
  EXPECT_EQ(client.last_rx_ms, 11);
  EXPECT_EQ(client.last_tx_ms, 12);
}

TEST_F(Connection, what_is_sent_arrives_as_it_stands) {
  const std::string bytes("8=FIX\x01\0\xff", 8);
  send_ignoring_result(client.fd, bytes);
  EXPECT_EQ(heard(), bytes);
}

TEST_F(Connection, sending_to_a_closed_peer_raises_no_signal) {
  ::close(far_end);
  far_end = -1;
  send_ignoring_result(client.fd, "one");  // SIGPIPE would end the test program
  send_ignoring_result(client.fd, "two");
}

TEST_F(Connection, sending_into_a_full_socket_neither_waits_nor_tries_again) {
  const std::string message(10000, 'x');
  size_t sent = 0;
  for (; sent < 100'000'000; sent += message.size()) send_ignoring_result(client.fd, message);
  const std::string arrived = heard();
  EXPECT_GE(arrived.size(), message.size());
  EXPECT_LT(arrived.size(), sent);
  send_ignoring_result(client.fd, "behind");
  EXPECT_EQ(heard(), "behind");  // nothing was queued in front of it
}

}  // namespace
}  // namespace quorl::test
