#pragma once

#include <string>

#include "quorl/client/bytes.h"
#include "tools/capture/endpoint.h"

namespace tools {

/// Sends to a multicast group as the exchange does: time to live 1, looped back.
class FeedSender {
 public:
  /// `interface` is the address of the interface to send from. Throws client::SystemError.
  FeedSender(const Endpoint& group, const std::string& interface);
  FeedSender(const FeedSender&) = delete;
  FeedSender& operator=(const FeedSender&) = delete;
  ~FeedSender();

  /// Throws client::SystemError.
  void send(quorl::client::ByteView packet);

 private:
  Endpoint group_;
  int fd_;
};

}  // namespace tools
