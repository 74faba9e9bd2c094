#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "certify/tap/sockets.h"
#include "certify/tap/tap_listener.h"

namespace certify {

/// Which socket of the taps became ready. Numbers are never used twice, so news of a socket that
/// was closed a moment ago finds nobody.
struct ReadySocket {
  enum class Place : uint8_t { LISTENING, CLIENT, EXCHANGE } place = Place::LISTENING;
  Service service = Service::FIX;
  uint32_t number = 0;  // of the line
  bool readable = false;
  bool writable = false;
  bool broken = false;  // it has an error to tell: a reset
};

/// All sockets of the taps behind one descriptor. Tells of each change once: who hears that a
/// socket is readable reads until nothing is left, or remembers.
class Poller {
 public:
  Poller();  // throws client::SystemError

  int fd() const { return epoll_.get(); }
  /// Until it is closed. False if the system has no room for it.
  bool add(const Descriptor& socket, ReadySocket::Place place, Line line);
  /// What has changed; some may be left for the next call, fd() stays readable then. Good until
  /// the next call.
  std::span<const ReadySocket> changes();

 private:
  Descriptor epoll_;
  std::vector<ReadySocket> changes_;
};

}  // namespace certify
