#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "quorl/client/json_lines.h"

namespace certify {

/// Reads an order event file while it grows.
class EventTail {
 public:
  explicit EventTail(std::string path) : path_(std::move(path)) {}
  EventTail(const EventTail&) = delete;
  EventTail& operator=(const EventTail&) = delete;
  ~EventTail();

  /// The lines that have been completed since the last call, up to a bound. A line that is none, as
  /// a client can bring about by the names it gives its orders, is counted and left out.
  std::vector<quorl::client::OrderEvent> take();

  uint64_t strange_lines() const { return strange_; }

 private:
  bool read_more();

  std::string path_;
  int fd_ = -1;
  std::string partial_;
  uint64_t strange_ = 0;
};

}  // namespace certify
