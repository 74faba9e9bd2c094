#include "tools/control/stop_signals.h"

#include <poll.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <csignal>

#include "quorl/client/deadline.h"
#include "quorl/client/errors.h"

namespace client = quorl::client;

namespace tools {
namespace {

sigset_t stop_set() {
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, SIGINT);
  sigaddset(&set, SIGTERM);
  return set;
}

}  // namespace

StopSignals::StopSignals() : fd_(-1) {
  const sigset_t set = stop_set();
  ::sigprocmask(SIG_BLOCK, &set, nullptr);
  fd_ = ::signalfd(-1, &set, SFD_CLOEXEC);
  if (fd_ < 0) throw client::SystemError("signalfd");
}

StopSignals::~StopSignals() { ::close(fd_); }

bool StopSignals::come_within(std::chrono::milliseconds span) const {
  const client::Deadline deadline = client::Deadline::after(span);
  do {
    pollfd ready{fd_, POLLIN, 0};
    if (::poll(&ready, 1, deadline.remaining_ms()) > 0) return true;
  } while (!deadline.expired());
  return false;
}

}  // namespace tools
