#include "tools/capture/endpoint.h"

#include <arpa/inet.h>

#include <charconv>
#include <stdexcept>

namespace tools {

std::string text_of(const Endpoint& endpoint) {
  std::string text;
  for (unsigned shift = 32; shift > 0; shift -= 8) {
    if (!text.empty()) text += '.';
    text += std::to_string((endpoint.address >> (shift - 8)) & 0xff);
  }
  return text + ":" + std::to_string(endpoint.port);
}

std::optional<Endpoint> parse_endpoint(const std::string& text) {
  const size_t colon = text.find(':');
  if (colon == std::string::npos) return std::nullopt;
  in_addr address{};
  if (::inet_pton(AF_INET, text.substr(0, colon).c_str(), &address) != 1) return std::nullopt;
  Endpoint endpoint{ntohl(address.s_addr), 0};
  const char* end = text.data() + text.size();
  const auto [behind, error] = std::from_chars(text.data() + colon + 1, end, endpoint.port);
  if (error != std::errc() || behind != end || endpoint.port == 0) return std::nullopt;
  return endpoint;
}

Endpoint endpoint_of(const std::string& address, uint16_t port) {
  in_addr parsed{};
  if (::inet_pton(AF_INET, address.c_str(), &parsed) != 1) {
    throw std::invalid_argument("'" + address + "' is no IPv4 address");
  }
  return {ntohl(parsed.s_addr), port};
}

Endpoint endpoint_of(const sockaddr_in& address) {
  return {ntohl(address.sin_addr.s_addr), ntohs(address.sin_port)};
}

sockaddr_in socket_address(const Endpoint& endpoint) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(endpoint.address);
  address.sin_port = htons(endpoint.port);
  return address;
}

}  // namespace tools
