#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>

#include "quorl/client/fix_message.h"

namespace certify::trader {

/// The latest orders and requests that were sent, for one who is asked to send them again.
class SentMessages {
 public:
  struct Message {
    uint32_t seq = 0;
    std::string type;
    std::string sending_time;
    quorl::client::FixFields body;
  };

  void keep(Message message) {
    messages_.push_back(std::move(message));
    if (messages_.size() > MOST) messages_.pop_front();
  }
  void clear() { messages_.clear(); }

  /// Null for a session message, and for what is too long ago.
  const Message* find(uint32_t seq) const {
    for (auto message = messages_.rbegin(); message != messages_.rend(); ++message) {
      if (message->seq == seq) return &*message;
      if (message->seq < seq) break;
    }
    return nullptr;
  }

 private:
  static constexpr size_t MOST = 1000;
  std::deque<Message> messages_;  // by rising number
};

}  // namespace certify::trader
