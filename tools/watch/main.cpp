// quorl-watch: the feed line by line, with what is wrong about it.

#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <exception>
#include <optional>
#include <string>
#include <vector>

#include "quorl/client/deadline.h"
#include "quorl/client/errors.h"
#include "quorl/client/udp.h"
#include "tools/command_line.h"
#include "tools/stop_signal.h"
#include "tools/watch/view.h"

namespace client = quorl::client;

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;
using std::chrono::system_clock;

struct Options {
  tools::FeedAddress feed;
  std::string interface_address = "127.0.0.1";
  std::vector<std::string> symbols;
  uint64_t packets = 0;
  uint32_t lines_per_second = 0;
  milliseconds duration{0};  // 0: no end
  bool with_time = false;
};

std::string complaint_about_symbol(const std::string& text) {
  constexpr size_t MOST = 8;
  const bool is_good =
      !text.empty() && text.size() <= MOST &&
      std::all_of(text.begin(), text.end(), [](char c) { return c > ' ' && c <= '~'; });
  return is_good ? "" : "'" + text + "' is no symbol of 1 to 8 characters";
}

void add_options(CLI::App& line, Options& options) {
  add_feed_address(line, options.feed);
  tools::add_interface(line, options.interface_address);
  line.add_option("--symbol", options.symbols,
                  "Show only messages of this symbol; may be repeated, or a list with commas")
      ->delimiter(',')
      ->expected(1)
      ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
      ->check(CLI::Validator(complaint_about_symbol, "SYMBOL"));
  line.add_flag("--time", options.with_time, "Begin each line with the time of arrival, UTC");
  line.add_option("--limit", options.lines_per_second,
                  "Print at most N lines a second and count the others")
      ->check(CLI::Range(1, 1000000))
      ->type_name("N");
  line.add_option("--count", options.packets, "End after N packets have been shown")
      ->check(CLI::Range(int64_t{1}, INT64_MAX))
      ->type_name("N");
  tools::add_seconds(line, "--for", options.duration, "End after so many seconds");
}

/// Whole milliseconds until then, for poll: rounded up, at least 0.
int milliseconds_until(steady_clock::time_point moment) {
  constexpr int64_t MOST = 60000;  // a later look finds the rest
  const auto left = std::chrono::ceil<milliseconds>(moment - steady_clock::now()).count();
  return static_cast<int>(std::clamp<int64_t>(left, 0, MOST));
}

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
  Watch(const Options& options, client::UdpSocket& socket)
      : socket_(socket),
        start_(steady_clock::now()),
        view_({.where = options.feed.group + ":" + std::to_string(options.feed.port),
               .interface_address = options.interface_address,
               .symbols = {options.symbols.begin(), options.symbols.end()},
               .with_time = options.with_time,
               .lines_per_second = options.lines_per_second,
               .packets = options.packets},
              start_, [this](const std::string& text) { output_.line(text); }) {
    if (options.duration.count() > 0) end_ = start_ + options.duration;
  }

  int run(const tools::StopSignal& stop) {
    while (!is_over() && !stop.came()) {
      wait(stop);
      take_what_came();
      if (!is_over()) view_.on_time(steady_clock::now(), system_clock::now());
      output_.flush();
    }
    const std::string summary = view_.summary(steady_clock::now());
    output_.flush();
    std::fprintf(stderr, "quorl-watch: %s\n", summary.c_str());
    return view_.has_heard() ? tools::GOOD : tools::NOBODY_ANSWERED;
  }

 private:
  bool is_over() const {
    return output_.gone() || view_.done() || (end_ && steady_clock::now() >= *end_);
  }

  void wait(const tools::StopSignal& stop) {
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
  tools::View view_;
  uint32_t drops_told_ = 0;
};

}  // namespace

int main(int argc, char** argv) {
  tools::CommandLine line("quorl-watch",
                          "Prints the feed of an exchange message by message, until Ctrl-C, and "
                          "says what is wrong with it.");
  Options options;
  add_options(line, options);
  if (const auto status = line.read(argc, argv)) return *status;
  try {
    const tools::StopSignal stop;
    client::UdpSocket socket = client::UdpSocket::in_group(options.feed.group, options.feed.port,
                                                           options.interface_address);
    return Watch(options, socket).run(stop);
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "quorl-watch: %s\n", failure.what());
    return tools::SAID_NO;
  }
}
