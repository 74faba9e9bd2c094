#include "fix/receive_buffer.h"

namespace quorl {

void ReceiveBuffer::append(std::string_view received) {
  if (start_ != 0) {
    bytes_.erase(0, start_);
    start_ = 0;
  }
  bytes_.append(received);
}

void ReceiveBuffer::clear() {
  bytes_.clear();
  start_ = 0;
  progress = {};
}

void ReceiveBuffer::drop_front(size_t count) {
  if (count == 0) return;
  start_ += count;
  progress = {};
}

}  // namespace quorl
