#include "certify/run/event_tail.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <string_view>

#include "quorl/client/errors.h"

namespace client = quorl::client;

namespace certify {
namespace {

constexpr size_t MOST_BYTES_AT_ONCE = 1024 * 1024;

}  // namespace

EventTail::~EventTail() {
  if (fd_ >= 0) ::close(fd_);
}

std::vector<client::OrderEvent> EventTail::take() {
  while (partial_.size() < MOST_BYTES_AT_ONCE && read_more()) {
  }
  std::vector<client::OrderEvent> events;
  size_t begin = 0;
  for (size_t end = 0; (end = partial_.find('\n', begin)) != std::string::npos; begin = end + 1) {
    try {
      events.push_back(
          client::parse_order_event(std::string_view(partial_).substr(begin, end - begin)));
    } catch (const client::WireError&) {
      ++strange_;
    }
  }
  partial_.erase(0, begin);
  return events;
}

bool EventTail::read_more() {
  if (fd_ < 0) fd_ = ::open(path_.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd_ < 0) return false;
  static thread_local std::array<char, 64 * 1024> buffer;
  const ssize_t got = ::read(fd_, buffer.data(), buffer.size());
  if (got <= 0) return false;
  partial_.append(buffer.data(), static_cast<size_t>(got));
  return true;
}

}  // namespace certify
