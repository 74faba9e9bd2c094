#include "base/sockets.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "driver/listener.h"
#include "support/udp_inbox.h"

namespace quorl {
namespace {

using test::ReservedUdpPort;
using test::UdpInbox;
using testing::ElementsAre;

/// A descriptor that goes with the test.
struct Socket {
  explicit Socket(int type) : fd(::socket(AF_INET, type, 0)) {}
  ~Socket() { ::close(fd); }
  Socket(const Socket&) = delete;
  Socket& operator=(const Socket&) = delete;
  const int fd;
};

sockaddr_in name_of(int fd) {
  sockaddr_in name{};
  socklen_t size = sizeof name;
  EXPECT_EQ(0, ::getsockname(fd, reinterpret_cast<sockaddr*>(&name), &size));
  return name;
}

sockaddr_in loopback(uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(port);
  return address;
}

int reuse_of(int fd) {
  int on = -1;
  socklen_t size = sizeof on;
  EXPECT_EQ(0, ::getsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, &size));
  return on;
}

/// A TCP port that somebody listens on.
struct TakenTcpPort {
  TakenTcpPort() {
    const sockaddr_in any = loopback(0);
    EXPECT_EQ(0, ::bind(listener.fd, reinterpret_cast<const sockaddr*>(&any), sizeof any));
    EXPECT_EQ(0, ::listen(listener.fd, 1));
    number = ntohs(name_of(listener.fd).sin_port);
  }
  Socket listener{SOCK_STREAM};
  uint16_t number = 0;
};

TEST(Sockets, set_nonblocking_adds_its_flag_to_those_that_are_set) {
  const Socket socket(SOCK_STREAM);
  ::fcntl(socket.fd, F_SETFL, O_ASYNC);
  set_nonblocking(socket.fd);
  EXPECT_EQ(::fcntl(socket.fd, F_GETFL) & (O_NONBLOCK | O_ASYNC), O_NONBLOCK | O_ASYNC);
}

TEST(Sockets, set_nonblocking_says_nothing_of_a_descriptor_that_is_none) {
  set_nonblocking(-1);
  const Socket socket(SOCK_STREAM);
  EXPECT_EQ(::fcntl(socket.fd, F_GETFL) & O_NONBLOCK, 0);
}

TEST(Sockets, bind_reusable_takes_a_port_of_one_address) {
  const Socket socket(SOCK_DGRAM);
  ASSERT_TRUE(bind_reusable(socket.fd, INADDR_LOOPBACK, 0));
  EXPECT_EQ(name_of(socket.fd).sin_addr.s_addr, htonl(INADDR_LOOPBACK));
  EXPECT_EQ(reuse_of(socket.fd), 1);
}

TEST(Sockets, bind_reusable_fails_where_another_holds_the_port_for_itself) {
  ReservedUdpPort port;
  port.refuse_sharing();
  const Socket socket(SOCK_DGRAM);
  errno = 0;
  EXPECT_FALSE(bind_reusable(socket.fd, INADDR_ANY, port.number()));
  EXPECT_EQ(errno, EADDRINUSE);
}

TEST(Sockets, bind_reusable_shares_a_udp_port_whose_holder_shares_it_too) {
  const ReservedUdpPort port;
  const Socket socket(SOCK_DGRAM);
  ASSERT_TRUE(bind_reusable(socket.fd, INADDR_ANY, port.number()));
  EXPECT_EQ(name_of(socket.fd).sin_port, htons(port.number()));
}

TEST(Sockets, send_datagram_sends_one_datagram) {
  UdpInbox inbox;
  const Socket socket(SOCK_DGRAM);
  send_datagram(socket.fd, "abcd", 3, loopback(inbox.port()));
  EXPECT_THAT(inbox.take(), ElementsAre(test::hex("61 62 63")));
}

TEST(Sockets, send_datagram_ignores_a_failure) {
  UdpInbox inbox;
  const Socket socket(SOCK_DGRAM);
  send_datagram(-1, "abc", 3, loopback(inbox.port()));
  send_datagram(socket.fd, "abc", 3, loopback(0));
  send_datagram(socket.fd, std::string(70000, 'x').data(), 70000, loopback(inbox.port()));
  EXPECT_THAT(inbox.take(), testing::IsEmpty());
}

TEST(Sockets, a_listener_does_not_block_and_takes_every_address_with_a_backlog_of_8) {
  const int fd = listen_or_exit(0, "FIX");
  EXPECT_NE(::fcntl(fd, F_GETFL) & O_NONBLOCK, 0);
  EXPECT_EQ(reuse_of(fd), 1);
  const sockaddr_in name = name_of(fd);
  EXPECT_EQ(name.sin_addr.s_addr, htonl(INADDR_ANY));
  tcp_info info{};
  socklen_t size = sizeof info;
  EXPECT_EQ(0, ::getsockopt(fd, IPPROTO_TCP, TCP_INFO, &info, &size));
  EXPECT_EQ(info.tcpi_sacked, 8u);  // the backlog, on a listening socket

  const Socket peer(SOCK_STREAM);
  const sockaddr_in here = loopback(ntohs(name.sin_port));
  EXPECT_EQ(0, ::connect(peer.fd, reinterpret_cast<const sockaddr*>(&here), sizeof here));
  ::close(fd);
}

TEST(Sockets, an_owned_one_closes_with_its_owner) {
  const int fd = open_udp_socket();
  const int other_fd = open_udp_socket();
  {
    const OwnedSocket owner(fd);
    OwnedSocket later_owner;
    later_owner.fd = other_fd;
    EXPECT_NE(::fcntl(fd, F_GETFD), -1);
  }
  EXPECT_EQ(::fcntl(fd, F_GETFD), -1);
  EXPECT_EQ(::fcntl(other_fd, F_GETFD), -1);
  const OwnedSocket of_none;  // and closes nothing
}

TEST(SocketsDeathTest, a_taken_fix_port_ends_the_process_with_status_1) {
  const TakenTcpPort port;
  EXPECT_EXIT(listen_or_exit(port.number, "FIX"), testing::ExitedWithCode(1),
              "^quorl: cannot listen on FIX port " + std::to_string(port.number) +
                  ": Address already in use\n$");
}

TEST(SocketsDeathTest, a_taken_snap_port_ends_the_process_with_status_1) {
  const TakenTcpPort port;
  EXPECT_EXIT(listen_or_exit(port.number, "DEEP SNAP"), testing::ExitedWithCode(1),
              "^quorl: cannot listen on DEEP SNAP port " + std::to_string(port.number) +
                  ": Address already in use\n$");
}

}  // namespace
}  // namespace quorl
