#pragma once

#include <unistd.h>

namespace tools::doctor {

/// Closes what it holds. -1 is nothing.
class Descriptor {
 public:
  explicit Descriptor(int fd) : fd_(fd) {}
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  ~Descriptor() {
    if (fd_ >= 0) ::close(fd_);
  }

  int fd() const { return fd_; }

 private:
  int fd_;
};

}  // namespace tools::doctor
