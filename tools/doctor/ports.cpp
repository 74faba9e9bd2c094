#include "tools/doctor/ports.h"

#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <optional>
#include <vector>

#include "tools/doctor/descriptor.h"
#include "tools/doctor/processes.h"
#include "tools/doctor/start.h"

namespace tools::doctor {
namespace {

/// An address of this machine that nobody talks to.
constexpr in_addr_t DECOY = 0x7FFEFEFE;  // 127.254.254.254

/// Binds and closes at once. Returns errno, 0 if it worked.
int try_to_bind(int type, in_addr_t address, uint16_t port, bool shares) {
  const Descriptor socket(::socket(AF_INET, type | SOCK_CLOEXEC, 0));
  const int on = shares ? 1 : 0;
  (void)::setsockopt(socket.fd(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  sockaddr_in to{};
  to.sin_family = AF_INET;
  to.sin_addr.s_addr = htonl(address);
  to.sin_port = htons(port);
  return ::bind(socket.fd(), reinterpret_cast<const sockaddr*>(&to), sizeof to) == 0 ? 0 : errno;
}

/// Whether those who hold the port let others in. To ask by the very address would take their
/// datagrams for that moment. A holder of every address is asked by one that nobody uses, a holder
/// of one address by every address: its own is the nearer one, and keeps its datagrams.
bool is_shared(const std::vector<SocketEntry>& holders, uint16_t port) {
  const bool every_address = std::any_of(holders.begin(), holders.end(),
                                         [](const auto& h) { return h.on_every_address(); });
  const bool decoy = every_address || holders.empty();  // unseen: as careful as can be
  return try_to_bind(SOCK_DGRAM, decoy ? DECOY : INADDR_ANY, port, true) == 0;
}

struct Service {
  const char* flag;
  const char* name;
};

constexpr Service TCP_SERVICES[] = {{"--fix-port", "FIX"}, {"--snap-port", "DEEP SNAP"}};

std::string udp(uint16_t port) { return "UDP port " + std::to_string(port); }

std::optional<uint16_t> same_port(const Start& start, const char* one, const char* other) {
  const auto first = start.port(one);
  const auto second = start.port(other);
  if (!first || !second || *first != *second || *first == 0) return std::nullopt;
  return first;
}

}  // namespace

PortUse look_at_tcp_port(uint16_t port) {
  const int error = try_to_bind(SOCK_STREAM, INADDR_ANY, port, true);
  if (error == 0) return {};
  if (error != EADDRINUSE) return {.kind = PortUse::REFUSED, .error = error};
  return {.kind = PortUse::REFUSED, .error = error, .by = owners_of(sockets_on("tcp", port))};
}

PortUse look_at_udp_port(uint32_t address, uint16_t port) {
  const int error = try_to_bind(SOCK_DGRAM, address, port, false);
  if (error == 0) return {};
  if (error != EADDRINUSE) return {.kind = PortUse::REFUSED, .error = error};
  const std::vector<SocketEntry> holders = sockets_on("udp", port);
  return {.kind = is_shared(holders, port) ? PortUse::SHARED : PortUse::REFUSED,
          .error = error,
          .by = owners_of(holders)};
}

Findings ports_of_zero(const Start& start) {
  Findings findings;
  if (start.port("--port") == 0) {
    findings.push_back({start.told("--port"), "is port 0, to which no packet of the feed leaves"});
  }
  for (const Service& service : TCP_SERVICES) {
    if (start.port(service.flag) != 0) continue;
    findings.push_back(
        {start.told(service.flag), std::string("is port 0: the system chooses one for ") +
                                       service.name + ", and no line tells which"});
  }
  if (start.port("--gapfill-port") == 0) {
    findings.push_back({start.told("--gapfill-port"), "is port 0: there is no gap fill"});
  }
  if (start.last("--control-port") != nullptr && start.port("--control-port") == 0 &&
      start.value("--control-port") != "0") {
    findings.push_back({start.told("--control-port"), "is port 0: there is no control port"});
  }
  return findings;
}

Findings ports_used_twice(const Start& start) {
  Findings findings;
  if (const auto port = same_port(start, "--fix-port", "--snap-port")) {
    findings.push_back({start.told("--snap-port"),
                        "is the port of FIX too: the exchange cannot listen on TCP port " +
                            std::to_string(*port) + " twice and ends with status 1"});
  }
  if (const auto port = same_port(start, "--gapfill-port", "--control-port")) {
    findings.push_back({start.told("--control-port"),
                        "is the port of gap fill too: both are bound to " + udp(*port) +
                            ", and the requests of this machine reach the control port alone"});
  }
  if (const auto port = same_port(start, "--gapfill-port", "--port")) {
    findings.push_back({start.told("--gapfill-port"),
                        "is the port of the feed too: gap fill hears the feed on " + udp(*port) +
                            " as requests, and a subscriber may take its requests"});
  }
  if (const auto port = same_port(start, "--control-port", "--port")) {
    findings.push_back({start.told("--control-port"),
                        "is the port of the feed too: a subscriber that does not share " +
                            udp(*port) + " cannot bind it"});
  }
  return findings;
}

Findings taken_tcp_ports(const Start& start) {
  Findings findings;
  for (const Service& service : TCP_SERVICES) {
    const auto port = start.port(service.flag);
    if (!port || *port == 0) continue;
    const PortUse use = look_at_tcp_port(*port);
    if (use.kind == PortUse::FREE) continue;
    const std::string why = use.by.empty()
                                ? std::string("is refused (") + std::strerror(use.error) + ")"
                                : "is taken by " + use.by;
    findings.push_back({start.told(service.flag),
                        "TCP port " + std::to_string(*port) + " " + why +
                            ": the exchange ends with status 1, its opening packets sent"});
  }
  return findings;
}

Findings taken_udp_ports(const Start& start) {
  struct UdpService {
    const char* flag;
    const char* name;
    in_addr_t address;
  };
  constexpr UdpService SERVICES[] = {{"--gapfill-port", "gap fill", INADDR_ANY},
                                     {"--control-port", "a control port", INADDR_LOOPBACK}};
  Findings findings;
  for (const UdpService& service : SERVICES) {
    const auto port = start.port(service.flag);
    if (!port || *port == 0) continue;
    const PortUse use = look_at_udp_port(service.address, *port);
    if (use.kind == PortUse::FREE) continue;
    std::string what = udp(*port);
    if (use.kind == PortUse::SHARED) {
      what += " is bound by " + use.by +
              " and would be shared unnoticed: only one of the two hears what comes";
    } else {
      what += use.by.empty() ? std::string(" is refused (") + std::strerror(use.error) + ")"
                             : " is held by " + use.by + " alone";
      what += std::string(": the exchange says so in a line and runs without ") + service.name;
    }
    findings.push_back({start.told(service.flag), what});
  }
  return findings;
}

}  // namespace tools::doctor
