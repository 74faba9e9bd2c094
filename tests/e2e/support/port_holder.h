#pragma once

#include <cstdint>

namespace e2e {

/// Another program's socket on a port, held so that nobody can share it.
class PortHolder {
 public:
  static PortHolder listening(uint16_t tcp_port);
  static PortHolder bound(uint16_t udp_port);

  PortHolder(PortHolder&& other) noexcept;
  PortHolder& operator=(PortHolder&&) = delete;
  ~PortHolder();

 private:
  PortHolder(int type, uint16_t port);

  int fd_ = -1;
};

}  // namespace e2e
