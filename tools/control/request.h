#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "quorl/client/deadline.h"

namespace tools {

/// What quorl-control is asked to do.
struct Request {
  std::vector<std::string> words = {};  // of the command; none with `wait` alone
  uint16_t port = 25500;
  std::chrono::milliseconds timeout{1000};
  std::chrono::milliseconds every{1000};
  bool wait = false;
  bool json = false;  // with the command stats, as `watch`
  bool watch = false;
  bool coloured = false;

  quorl::client::Deadline deadline() const { return quorl::client::Deadline::after(timeout); }
};

/// Says it on standard error and returns the status.
int complain(const std::string& complaint, int status);

/// Does it and returns the exit status. Throws WireError if what answers is no exchange.
int carry_out(const Request& request);

}  // namespace tools
