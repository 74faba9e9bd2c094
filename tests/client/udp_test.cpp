#include "quorl/client/udp.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <string>

#include "quorl/client/errors.h"
#include "quorl/client/port_slot.h"
#include "quorl/client/tcp.h"

namespace client = quorl::client;

namespace {

TEST(Udp, joins_a_group_through_the_interface_that_is_named) {
  const client::PortSlot slot;
  const std::string& group = slot.ports().group;
  const uint16_t feed = slot.ports().feed;
  EXPECT_NO_THROW((void)client::UdpSocket::in_group(group, feed, "127.0.0.1"));
  // An address for documentation, which no machine has.
  EXPECT_THROW((void)client::UdpSocket::in_group(group, feed, "192.0.2.77"), client::SystemError);
  EXPECT_THROW((void)client::UdpSocket::in_group(group, feed, "lo"), client::WireError);
}

TEST(Tcp, connects_to_an_address_and_complains_of_what_is_none) {
  const client::PortSlot slot;
  const auto soon = client::Deadline::after(std::chrono::seconds(1));
  EXPECT_THROW((void)client::TcpStream::connect("127.0.0.1", slot.ports().fix, soon),
               client::SystemError);
  EXPECT_THROW((void)client::TcpStream::connect("localhost", slot.ports().fix, soon),
               client::WireError);
}

}  // namespace
