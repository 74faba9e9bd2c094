#pragma once

#include <algorithm>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace quorl {

/// Composed messages in the order of their sending. They stand one behind the other in one piece
/// of memory that is kept from one use to the next.
class Outbox {
 public:
  void clear() {
    used_ = 0;
    messages_.clear();
  }

  bool empty() const { return messages_.empty(); }
  size_t size() const { return messages_.size(); }
  /// Good until the next message is added.
  std::string_view operator[](size_t index) const {
    return std::string_view(memory_).substr(messages_[index].begin, messages_[index].size);
  }

  /// Adds a message of `size` bytes and returns where they go: to be written before anything else
  /// is done with the outbox.
  char* add(size_t size) {
    if (memory_.size() - used_ < size) memory_.resize(2 * memory_.size() + size);
    messages_.push_back({used_, size});
    used_ += size;
    return memory_.data() + messages_.back().begin;
  }

  /// What was added last is sent ahead of all others.
  void send_last_first() { std::rotate(messages_.begin(), messages_.end() - 1, messages_.end()); }

 private:
  struct Message {
    size_t begin;
    size_t size;
  };

  std::string memory_;  // sized ahead of its use
  size_t used_ = 0;
  std::vector<Message> messages_;
};

}  // namespace quorl
