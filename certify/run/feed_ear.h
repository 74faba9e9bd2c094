#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "quorl/client/bytes.h"
#include "quorl/client/udp.h"

namespace certify {

/// The judge's own ear on the feed.
class FeedEar {
 public:
  /// Joins the group on the loopback. Throws quorl::client::SystemError.
  FeedEar(const std::string& group, uint16_t port);

  int fd() const { return socket_.fd(); }

  /// Hands over the packets that wait, up to a bound.
  void take(const std::function<void(quorl::client::ByteView packet)>& heard);

  /// Packets that the system threw away because the judge did not take them in time.
  uint32_t missed() const { return missed_; }

 private:
  quorl::client::UdpSocket socket_;
  uint32_t missed_ = 0;
};

}  // namespace certify
