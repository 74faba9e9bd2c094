#include "quorl/client/line_collector.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "quorl/client/errors.h"

namespace quorl::client {
namespace {

constexpr size_t QUOTED_LINES = 15;

}  // namespace

LineCollector::LineCollector(int fd) : fd_(fd), thread_([this] { read_to_end(); }) {}

LineCollector::~LineCollector() {
  thread_.join();
  ::close(fd_);
}

void LineCollector::read_to_end() {
  char buffer[4096];
  for (;;) {
    const ssize_t got = ::read(fd_, buffer, sizeof buffer);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) break;
    take({buffer, static_cast<size_t>(got)});
  }
  const std::lock_guard lock(mutex_);
  if (!partial_.empty()) lines_.push_back({partial_, std::chrono::steady_clock::now()});
  ended_ = true;
  changed_.notify_all();
}

void LineCollector::take(std::string_view piece) {
  const auto now = std::chrono::steady_clock::now();
  const std::lock_guard lock(mutex_);
  for (const char c : piece) {
    if (c != '\n') {
      partial_ += c;
    } else {
      lines_.push_back({partial_, now});
      partial_.clear();
    }
  }
  changed_.notify_all();
}

std::vector<LogLine> LineCollector::lines() const {
  const std::lock_guard lock(mutex_);
  return lines_;
}

size_t LineCollector::count() const {
  const std::lock_guard lock(mutex_);
  return lines_.size();
}

bool LineCollector::ended() const {
  const std::lock_guard lock(mutex_);
  return ended_;
}

std::string LineCollector::wait_for(const Predicate& wanted, std::string_view sought, size_t from,
                                    Deadline deadline) const {
  std::unique_lock lock(mutex_);
  size_t next = from;
  for (;;) {
    for (; next < lines_.size(); ++next) {
      if (wanted(lines_[next].text)) return lines_[next].text;
    }
    if (ended_)
      throw Timeout("standard error ended without " + std::string(sought) + quote_latest());
    if (deadline.expired()) throw Timeout("no line with " + std::string(sought) + quote_latest());
    changed_.wait_for(lock, std::chrono::milliseconds(deadline.remaining_ms()));
  }
}

void LineCollector::wait_end(Deadline deadline) const {
  std::unique_lock lock(mutex_);
  while (!ended_) {
    if (deadline.expired()) throw Timeout("standard error does not end" + quote_latest());
    changed_.wait_for(lock, std::chrono::milliseconds(deadline.remaining_ms()));
  }
}

std::string LineCollector::quote_latest() const {
  std::string text = "; the latest of " + std::to_string(lines_.size()) + " lines:";
  const size_t first = lines_.size() - std::min(lines_.size(), QUOTED_LINES);
  for (size_t i = first; i < lines_.size(); ++i) text += "\n  " + lines_[i].text;
  return text;
}

}  // namespace quorl::client
