// Writes the feed to a capture file, every packet as it comes.
//
//   quorl-record FILE.pcap [group [port]]

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <iterator>
#include <memory>
#include <optional>
#include <string>

#include "quorl/client/errors.h"
#include "tools/capture/capture_writer.h"
#include "tools/capture/counted.h"
#include "tools/capture/endpoint.h"
#include "tools/capture/span.h"
#include "tools/capture/stop_signals.h"
#include "tools/capture/udp_frame.h"
#include "tools/command_line.h"
#include "tools/record/group_listener.h"
#include "tools/record/heard.h"

namespace client = quorl::client;

namespace {

using Clock = std::chrono::steady_clock;

struct Options {
  std::string file;
  tools::FeedAddress feed;
  std::string interface = "127.0.0.1";
  std::optional<std::chrono::nanoseconds> span;
  std::optional<uint64_t> count;
  bool force = false;
};

std::optional<int> read(Options& options, int argc, char** argv) {
  tools::CommandLine line("quorl-record",
                          "Writes the feed of an exchange to a capture file, until Ctrl-C.");
  line.add_option("FILE", options.file, "The pcap file to write; - is standard output")->required();
  add_feed_address(line, options.feed);
  line.add_option("--iface", options.interface, "Address of the interface to listen on")
      ->check(CLI::ValidIPV4)
      ->capture_default_str();
  tools::add_span(line, "--for", options.span, "End after this time: 10s, 500ms, 2m");
  line.add_option("--count", options.count, "End after so many packets")
      ->check(CLI::Range(uint64_t{1}, UINT64_MAX));
  line.add_flag("--force", options.force, "Replace FILE if it exists");
  return line.read(argc, argv);
}

void say(const std::string& text) { std::fprintf(stderr, "quorl-record: %s\n", text.c_str()); }

class Recorder {
 public:
  explicit Recorder(const Options& options)
      : options_(options),
        group_(tools::endpoint_of(options.feed.group, options.feed.port)),
        listener_(group_, options.interface),
        file_(options.file, options.force ? tools::CaptureWriter::IfThere::REPLACE
                                          : tools::CaptureWriter::IfThere::REFUSE) {}

  int run() {
    say("listening to " + tools::text_of(group_) + " on " + options_.interface + ", writing " +
        options_.file);
    if (options_.span) end_ = Clock::now() + *options_.span;
    int status = tools::GOOD;
    try {
      while (!over()) {
        wait();
        take_what_waits();
      }
      take_the_rest();
      file_.close();
    } catch (const tools::CannotWrite& failure) {
      say(std::string(failure.what()) + "; it holds the first " +
          tools::counted(file_.frames(), "packet"));
      status = tools::SAID_NO;
    }
    sum_up();
    return status == tools::GOOD && heard_.packets() == 0 ? tools::NOBODY_ANSWERED : status;
  }

 private:
  bool counted_out() const { return options_.count && heard_.packets() >= *options_.count; }

  bool over() { return signals_.came() || counted_out() || (end_ && Clock::now() >= *end_); }

  /// Until a packet or a signal comes or the time is over.
  void wait() const {
    pollfd fds[] = {{listener_.fd(), POLLIN, 0}, {signals_.fd(), POLLIN, 0}};
    timespec left{};
    if (end_) {
      const auto span = std::max(*end_ - Clock::now(), Clock::duration::zero());
      left.tv_sec = static_cast<time_t>(std::chrono::floor<std::chrono::seconds>(span).count());
      left.tv_nsec = (span % std::chrono::seconds(1)).count();
    }
    (void)::ppoll(fds, std::size(fds), end_ ? &left : nullptr, nullptr);
  }

  /// In portions, so that a feed that never pauses leaves a moment for the signals and the clock.
  /// Behind each the file is whole: it can be read while it is written. False once nothing waits.
  bool take_what_waits() {
    constexpr int PORTION = 256;
    bool more = true;
    for (int i = 0; i < PORTION && more && !counted_out(); ++i) {
      const auto datagram = listener_.take();
      more = datagram.has_value();
      if (!more) break;
      file_.write(datagram->time_ns,
                  tools::ethernet_frame(datagram->from, group_, datagram->bytes));
      heard_.datagram(datagram->time_ns, datagram->bytes);
    }
    file_.flush();
    return more && !counted_out();
  }

  /// What came before the end has been heard, though not yet taken. Under a feed that never pauses
  /// this ends somewhere too.
  void take_the_rest() {
    constexpr int MOST_PORTIONS = 100;
    for (int i = 0; i < MOST_PORTIONS && take_what_waits(); ++i) {
    }
  }

  void sum_up() const {
    if (heard_.packets() == 0) {
      say("nothing was heard at " + tools::text_of(group_));
      return;
    }
    say("heard " + heard_.summary());
    if (listener_.kernel_drops() > 0) {
      say("this machine lost " + std::to_string(listener_.kernel_drops()) +
          " packets: it was too busy, or its receive buffer is too small");
    }
  }

  const Options& options_;
  tools::StopSignals signals_;
  tools::Endpoint group_;
  tools::GroupListener listener_;
  tools::CaptureWriter file_;
  tools::Heard heard_;
  std::optional<Clock::time_point> end_;
};

}  // namespace

int main(int argc, char** argv) {
  Options options;
  if (const auto status = read(options, argc, argv)) return *status;
  if (options.file == "-" && ::isatty(STDOUT_FILENO) == 1) {
    say("a capture is not for a terminal: name a file, or send standard output elsewhere");
    return tools::USED_WRONGLY;
  }
  // A limit on the size of files and a reader that has gone are told of as errors of writing.
  ::signal(SIGXFSZ, SIG_IGN);
  ::signal(SIGPIPE, SIG_IGN);
  std::unique_ptr<Recorder> recorder;
  try {
    recorder = std::make_unique<Recorder>(options);
  } catch (const tools::FileExists& there) {
    say(std::string(there.what()) + "; --force replaces it");
    return tools::USED_WRONGLY;
  } catch (const tools::CannotWrite& failure) {
    say(failure.what());
    return tools::USED_WRONGLY;
  } catch (const client::SystemError& failure) {
    say(failure.what());
    return tools::USED_WRONGLY;
  }
  try {
    return recorder->run();
  } catch (const client::SystemError& failure) {
    say(failure.what());
    return tools::SAID_NO;
  }
}
