#include "tools/stop_signal.h"

#include <poll.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <csignal>

#include "quorl/client/errors.h"

namespace tools {

StopSignal::StopSignal() {
  sigset_t signals;
  ::sigemptyset(&signals);
  ::sigaddset(&signals, SIGINT);
  ::sigaddset(&signals, SIGTERM);
  if (::sigprocmask(SIG_BLOCK, &signals, nullptr) != 0) {
    throw quorl::client::SystemError("sigprocmask");
  }
  fd_ = ::signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK);
  if (fd_ < 0) throw quorl::client::SystemError("signalfd");
}

StopSignal::~StopSignal() {
  if (fd_ >= 0) ::close(fd_);
}

// The signal is left where it is, so that every later look finds it too.
bool StopSignal::came() const {
  pollfd ready{fd_, POLLIN, 0};
  return ::poll(&ready, 1, 0) > 0;
}

}  // namespace tools
