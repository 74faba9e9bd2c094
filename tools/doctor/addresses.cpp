#include "tools/doctor/addresses.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>
#include <optional>
#include <string>

#include "tools/doctor/descriptor.h"
#include "tools/doctor/start.h"

namespace tools::doctor {
namespace {

std::optional<in_addr> address_of(const std::string& text) {
  in_addr address{};
  if (::inet_pton(AF_INET, text.c_str(), &address) != 1) return std::nullopt;
  return address;
}

/// As the exchange does it, 0.0.0.0 for a text that is no address. Returns errno, 0 if it worked.
int take_interface(int fd, const std::string& text) {
  const in_addr address = address_of(text).value_or(in_addr{});
  const int result = ::setsockopt(fd, IPPROTO_IP, IP_MULTICAST_IF, &address, sizeof address);
  return result == 0 ? 0 : errno;
}

}  // namespace

Findings odd_group(const Start& start) {
  const std::string group = start.value("--mcast");
  const auto address = address_of(group);
  if (!address) {
    return {{start.told("--mcast"),
             "is no IPv4 address in digits: the feed goes to 0.0.0.0, where no group hears it"}};
  }
  if (!IN_MULTICAST(ntohl(address->s_addr))) {
    return {{start.told("--mcast"),
             "is no multicast group (224.0.0.0 to 239.255.255.255): the feed goes to that one "
             "address"}};
  }
  return {};
}

Findings odd_interface(const Start& start) {
  const std::string interface = start.value("--iface");
  if (!address_of(interface)) {
    return {{start.told("--iface"),
             "is no IPv4 address in digits: the system chooses where the feed leaves"}};
  }
  const Descriptor socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  if (take_interface(socket.fd(), interface) == 0) return {};
  return {{start.told("--iface"),
           "belongs to no interface of this machine: the system chooses where the feed leaves"}};
}

/// To connect a UDP socket looks for the way to the address, and sends nothing.
Findings unreachable_group(const Start& start) {
  const Descriptor socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  (void)take_interface(socket.fd(), start.value("--iface"));
  sockaddr_in to{};
  to.sin_family = AF_INET;
  to.sin_port = htons(start.port("--port").value_or(0));
  to.sin_addr = address_of(start.value("--mcast")).value_or(in_addr{});
  if (::connect(socket.fd(), reinterpret_cast<const sockaddr*>(&to), sizeof to) == 0) return {};
  const std::string why = std::strerror(errno);
  return {{start.told("--mcast"), "no packet of the feed can leave (" + why + ")"}};
}

}  // namespace tools::doctor
