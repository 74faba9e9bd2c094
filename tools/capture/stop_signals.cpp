#include "tools/capture/stop_signals.h"

#include <sys/signalfd.h>
#include <unistd.h>

#include <csignal>

#include "quorl/client/errors.h"

namespace tools {

StopSignals::StopSignals() {
  sigset_t stop;
  ::sigemptyset(&stop);
  ::sigaddset(&stop, SIGINT);
  ::sigaddset(&stop, SIGTERM);
  ::sigprocmask(SIG_BLOCK, &stop, nullptr);
  fd_ = ::signalfd(-1, &stop, SFD_NONBLOCK | SFD_CLOEXEC);
  if (fd_ < 0) throw quorl::client::SystemError("signalfd");
}

StopSignals::~StopSignals() { ::close(fd_); }

bool StopSignals::came() {
  signalfd_siginfo info{};
  if (::read(fd_, &info, sizeof info) == sizeof info) came_ = true;
  return came_;
}

}  // namespace tools
