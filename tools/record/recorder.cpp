#include "tools/record/recorder.h"

#include <poll.h>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <iterator>

#include "tools/capture/counted.h"
#include "tools/capture/udp_frame.h"
#include "tools/exit_status.h"

namespace tools {

void say(const std::string& text) { std::fprintf(stderr, "quorl-record: %s\n", text.c_str()); }

Recorder::Recorder(const RecordOptions& options)
    : options_(options),
      group_(endpoint_of(options.group, options.port)),
      listener_(group_, options.interface),
      file_(options.file,
            options.force ? CaptureWriter::IfThere::REPLACE : CaptureWriter::IfThere::REFUSE) {}

int Recorder::run() {
  say("listening to " + text_of(group_) + " on " + options_.interface + ", writing " +
      options_.file);
  if (options_.span) end_ = Clock::now() + *options_.span;
  int status = GOOD;
  try {
    while (!over()) {
      wait();
      take_what_waits();
    }
    take_the_rest();
    file_.close();
  } catch (const CannotWrite& failure) {
    say(std::string(failure.what()) + "; it holds the first " + counted(file_.frames(), "packet"));
    status = SAID_NO;
  }
  sum_up();
  return status == GOOD && heard_.packets() == 0 ? NOBODY_ANSWERED : status;
}

bool Recorder::over() const {
  return signal_.came() || counted_out() || (end_ && Clock::now() >= *end_);
}

/// Until a packet or a signal comes or the time is over.
void Recorder::wait() const {
  pollfd fds[] = {{listener_.fd(), POLLIN, 0}, {signal_.fd(), POLLIN, 0}};
  timespec left{};
  if (end_) {
    const auto span = std::max(*end_ - Clock::now(), Clock::duration::zero());
    left.tv_sec = static_cast<time_t>(std::chrono::floor<std::chrono::seconds>(span).count());
    left.tv_nsec = (span % std::chrono::seconds(1)).count();
  }
  (void)::ppoll(fds, std::size(fds), end_ ? &left : nullptr, nullptr);
}

bool Recorder::take_one() {
  const auto datagram = listener_.take();
  if (!datagram) return false;
  file_.write(datagram->time_ns, ethernet_frame(datagram->from, group_, datagram->bytes));
  heard_.datagram(datagram->time_ns, datagram->bytes);
  return true;
}

/// In portions, so that a feed that never pauses leaves a moment for the signals and the clock.
/// Behind each the file is whole: it can be read while it is written. False once nothing waits.
bool Recorder::take_what_waits() {
  constexpr int PORTION = 256;
  bool more = true;
  for (int i = 0; i < PORTION && more && !counted_out(); ++i) more = take_one();
  file_.flush();
  return more && !counted_out();
}

/// What came before the end has been heard, though not yet taken. Under a feed that never pauses
/// this ends somewhere too.
void Recorder::take_the_rest() {
  constexpr int MOST_PORTIONS = 100;
  for (int i = 0; i < MOST_PORTIONS && take_what_waits(); ++i) {
  }
}

void Recorder::sum_up() const {
  if (heard_.packets() == 0) {
    say("nothing was heard at " + text_of(group_));
    return;
  }
  say("heard " + heard_.summary());
  if (listener_.kernel_drops() > 0) {
    say("this machine lost " + std::to_string(listener_.kernel_drops()) +
        " packets: it was too busy, or its receive buffer is too small");
  }
}

}  // namespace tools
