#include "base/stop.h"

#include <poll.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <csignal>

namespace quorl {
namespace {

constexpr int LOOK_AGAIN_MS = 20;  // a stop that comes just ahead of a wait does not end it
int patience_ms = 100;             // with stalled readers, from a stop on

/// Whether another wait is in order.
bool may_wait(bool stopping) { return !stopping || patience_ms > 0; }

void interrupt(int) {}

/// While this lives, a call that blocks returns every now and then, with EINTR.
class Interruptions {
 public:
  Interruptions() {
    struct sigaction action {};
    action.sa_handler = interrupt;
    sigemptyset(&action.sa_mask);
    sigaction(SIGALRM, &action, &former_action_);
    const timeval period{.tv_sec = 0, .tv_usec = LOOK_AGAIN_MS * 1000};
    const itimerval timer{.it_interval = period, .it_value = period};
    setitimer(ITIMER_REAL, &timer, &former_timer_);
  }
  Interruptions(const Interruptions&) = delete;
  Interruptions& operator=(const Interruptions&) = delete;
  ~Interruptions() {
    setitimer(ITIMER_REAL, &former_timer_, nullptr);  // an alarm of whoever started us comes late
    sigaction(SIGALRM, &former_action_, nullptr);
  }

 private:
  struct sigaction former_action_ {};
  itimerval former_timer_{};
};

}  // namespace

std::atomic<unsigned char> stop_requested{0};
static_assert(std::atomic<unsigned char>::is_always_lock_free);  // written by a signal handler

bool wait_until_writable(int fd) {
  while (true) {
    const bool stopping = stop_requested.load() != 0;
    if (!may_wait(stopping)) return false;
    pollfd writable{fd, POLLOUT, 0};
    if (::poll(&writable, 1, LOOK_AGAIN_MS) > 0) return true;
    if (stopping) patience_ms -= LOOK_AGAIN_MS;
  }
}

ssize_t write_until_stopped(int fd, std::string_view bytes) {
  const size_t size = std::min<size_t>(bytes.size(), PIPE_BUF);
  pollfd writable{fd, POLLOUT, 0};
  if (::poll(&writable, 1, 0) > 0) return ::write(fd, bytes.data(), size);  // does not block
  const Interruptions interruptions;
  while (true) {
    const bool stopping = stop_requested.load() != 0;
    const ssize_t written = ::write(fd, bytes.data(), size);
    if (written >= 0 || errno != EINTR) return written;
    if (stopping) patience_ms -= LOOK_AGAIN_MS;
    if (!may_wait(stopping)) return -1;
  }
}

}  // namespace quorl
