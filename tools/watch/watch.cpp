#include "tools/watch/watch.h"

#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <optional>

#include "quorl/client/deadline.h"
#include "quorl/client/errors.h"
#include "quorl/client/udp.h"
#include "tools/exit_status.h"
#include "tools/seconds.h"
#include "tools/stop_signal.h"

namespace client = quorl::client;

namespace tools {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;
using std::chrono::system_clock;

/// Standard output, until its reader goes away.
class Output {
 public:
  void line(const std::string& text) {
    if (std::fputs((text + "\n").c_str(), stdout) == EOF) gone_ = true;
  }
  void flush() {
    if (std::fflush(stdout) == EOF) gone_ = true;
  }
  bool gone() const { return gone_; }

 private:
  bool gone_ = false;
};

class Watch {
 public:
  Watch(const WatchOptions& options, client::UdpSocket& socket)
      : socket_(socket),
        start_(steady_clock::now()),
        view_(options.view, start_, [this](const std::string& text) { output_.line(text); }) {
    if (options.duration.count() > 0) end_ = start_ + options.duration;
  }

  int run(const StopSignal& stop) {
    while (!is_over() && !stop.came()) {
      wait(stop);
      take_what_came();
      if (!is_over()) view_.on_time(steady_clock::now(), system_clock::now());
      output_.flush();
    }
    const std::string summary = view_.summary(steady_clock::now());
    output_.flush();
    std::fprintf(stderr, "quorl-watch: %s\n", summary.c_str());
    return view_.has_heard() ? GOOD : NOBODY_ANSWERED;
  }

 private:
  bool is_over() const {
    return output_.gone() || view_.done() || (end_ && steady_clock::now() >= *end_);
  }

  void wait(const StopSignal& stop) {
    const auto due = end_ ? std::min(*end_, view_.next_due()) : view_.next_due();
    pollfd ready[] = {{socket_.fd(), POLLIN, 0}, {stop.fd(), POLLIN, 0}};
    if (::poll(ready, 2, milliseconds_until(due)) < 0 && errno != EINTR) {
      throw client::SystemError("poll");
    }
  }

  /// No more at once than lets a signal and the time have their turn.
  void take_what_came() {
    constexpr unsigned MOST_AT_ONCE = 256;
    for (unsigned taken = 0; taken < MOST_AT_ONCE && !is_over(); ++taken) {
      const auto datagram = socket_.receive(client::Deadline::after(milliseconds(0)));
      if (!datagram) return;
      const auto now = steady_clock::now();
      const auto clock = system_clock::now();
      if (const uint32_t lost = socket_.kernel_drops() - drops_told_; lost > 0) {
        drops_told_ += lost;
        view_.on_kernel_drops(lost, now, clock);
      }
      view_.on_datagram(*datagram, now, clock);
    }
  }

  client::UdpSocket& socket_;
  Output output_;
  steady_clock::time_point start_;
  std::optional<steady_clock::time_point> end_;
  View view_;
  uint32_t drops_told_ = 0;
};

}  // namespace

int watch(const WatchOptions& options) {
  const StopSignal stop;
  std::optional<client::UdpSocket> socket;
  try {
    socket = client::UdpSocket::in_group(options.group, options.port, options.interface_address);
  } catch (const client::SystemError& failure) {
    std::fprintf(stderr, "quorl-watch: cannot listen to %s through the interface %s: %s\n",
                 options.view.where.c_str(), options.interface_address.c_str(), failure.what());
    return SAID_NO;
  }
  return Watch(options, *socket).run(stop);
}

}  // namespace tools
