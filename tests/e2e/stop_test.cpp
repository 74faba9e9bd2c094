// A stop always stops: whatever reader of its output stalls, a signal ends the exchange in good
// order and soon. And until then a stalled reader loses nothing.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "quorl/client/child_process.h"
#include "quorl/client/control_client.h"
#include "quorl/client/deadline.h"
#include "quorl/client/errors.h"
#include "quorl/client/fix_session.h"
#include "quorl/client/port_slot.h"
#include "quorl/client/temp_directory.h"
#include "tests/e2e/support/built.h"
#include "tests/e2e/support/exchange.h"

namespace client = quorl::client;

namespace e2e {
namespace {

using client::Deadline;
using client::ExitStatus;
using std::chrono::milliseconds;
using testing::EndsWith;
using testing::HasSubstr;

constexpr milliseconds SOON{200};
constexpr milliseconds NO_MORE{200};  // an exchange that has not answered by then is held up

/// A descriptor that goes with the test.
class Descriptor {
 public:
  explicit Descriptor(int fd) : fd_(fd) {
    if (fd < 0) throw client::SystemError("a descriptor");
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  ~Descriptor() { ::close(fd_); }
  int get() const { return fd_; }

 private:
  int fd_;
};

/// A pipe with a name or without, whose reader reads when it is told to.
class StalledPipe {
 public:
  StalledPipe() {
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0) throw client::SystemError("pipe2");
    read_end_.emplace(ends[0]);
    write_end_.emplace(ends[1]);
    constexpr int TWO_PAGES = 8192;  // a page that is not full may count as full
    if (::fcntl(write_end(), F_SETPIPE_SZ, TWO_PAGES) < 0) {
      throw client::SystemError("F_SETPIPE_SZ");
    }
  }

  explicit StalledPipe(const std::string& fifo) {
    if (::mkfifo(fifo.c_str(), 0600) != 0) throw client::SystemError("mkfifo");
    read_end_.emplace(::open(fifo.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    write_end_.emplace(::open(fifo.c_str(), O_WRONLY | O_CLOEXEC));
  }

  int write_end() const { return write_end_->get(); }

  bool is_full() const {
    pollfd writable{write_end(), POLLOUT, 0};
    return ::poll(&writable, 1, 0) == 0;
  }

  /// All that waits now.
  std::string read_some() {
    ::fcntl(read_end_->get(), F_SETFL, O_NONBLOCK);
    std::string text;
    char piece[4096];
    for (ssize_t got = 1; got > 0;) {
      got = ::read(read_end_->get(), piece, sizeof piece);
      if (got > 0) text.append(piece, static_cast<size_t>(got));
    }
    return text;
  }

 private:
  std::optional<Descriptor> read_end_;
  std::optional<Descriptor> write_end_;  // ours, so that the pipe tells whether it is full
};

void wait_until(const std::string& what, const std::function<bool()>& true_now) {
  const Deadline deadline = Deadline::after(client::PATIENCE);
  while (!true_now()) {
    if (deadline.expired()) throw client::Timeout(what);
    std::this_thread::sleep_for(milliseconds(1));
  }
}

/// The exchange with ports of its own.
class Process {
 public:
  Process(const std::vector<std::string>& options, int stderr_fd,
          const std::map<std::string, std::string>& environment = {})
      : control_(slot_.ports().control), process_(command(options, stderr_fd, environment)) {}

  client::ControlClient& control() { return control_; }
  client::FixSession session(const std::string& comp_id) const {
    return {slot_.ports().fix, comp_id};
  }

  /// The loop turns, so a signal finds its handler.
  void serves() {
    wait_until("the exchange does not answer", [this] {
      control_.send("stats");
      return control_.receive(milliseconds(100)).has_value();
    });
    while (control_.receive(milliseconds(0))) {
    }
  }

  /// How long a signal takes to end the run, and how the run ends.
  milliseconds time_to_end(int signal, ExitStatus& status) {
    const auto begin = std::chrono::steady_clock::now();
    process_.signal(signal);
    status = process_.wait_exit(Deadline::after(client::PATIENCE));
    return std::chrono::duration_cast<milliseconds>(std::chrono::steady_clock::now() - begin);
  }

 private:
  client::ChildProcess::Command command(const std::vector<std::string>& options, int stderr_fd,
                                        const std::map<std::string, std::string>& environment) {
    const client::Ports& ports = slot_.ports();
    client::ChildProcess::Command command;
    command.program = built_program("quorl");
    command.arguments = {"--mcast",        ports.group,
                         "--port",         std::to_string(ports.feed),
                         "--snap-port",    std::to_string(ports.snap),
                         "--fix-port",     std::to_string(ports.fix),
                         "--gapfill-port", std::to_string(ports.gap_fill),
                         "--control-port", std::to_string(ports.control)};
    command.arguments.insert(command.arguments.end(), options.begin(), options.end());
    command.environment = environment;
    command.environment.merge(client::own_environment());
    command.stderr_fd = stderr_fd;
    return command;
  }

  client::PortSlot slot_;
  client::ControlClient control_;
  client::ChildProcess process_;
};

/// A machine may be busy: the quickest of a few tries counts, and each must end with status 0.
void expect_soon(const std::function<milliseconds(ExitStatus&)>& time_one_stop) {
  constexpr int TRIES = 5;
  milliseconds quickest = milliseconds::max();
  for (int i = 0; i < TRIES && quickest > SOON; ++i) {
    ExitStatus status;
    quickest = std::min(quickest, time_one_stop(status));
    ASSERT_EQ(status, STATUS_0) << status.describe();
  }
  EXPECT_LE(quickest, SOON);
}

/// Each mark prints a line: until standard error takes no more, and a command goes unanswered.
void fill_standard_error(Process& run, const StalledPipe& standard_error) {
  wait_until("the pipe does not fill", [&] {
    run.control().send("mark " + std::string(400, 'x'));
    const bool answered = run.control().receive(NO_MORE).has_value();
    return !answered && standard_error.is_full();
  });
}

TEST(Stop, ends_an_exchange_whose_standard_error_nobody_reads) {
  for (const int signal : {SIGTERM, SIGINT}) {
    expect_soon([signal](ExitStatus& status) {
      StalledPipe standard_error;
      Process run({"--interval-ms", "-1"}, standard_error.write_end());
      run.serves();
      fill_standard_error(run, standard_error);
      return run.time_to_end(signal, status);
    });
  }
}

TEST(Stop, ends_an_exchange_whose_market_truth_nobody_reads) {
  expect_soon([](ExitStatus& status) {
    const client::TempDirectory directory;
    const std::string path = directory.path() + "/truth";
    const StalledPipe truth(path);
    StalledPipe standard_error;
    Process run({"--symbols", "A:10", "--interval-ms", "0", "--truth-out", path},
                standard_error.write_end());
    wait_until("the FIFO does not fill", [&] { return truth.is_full(); });
    const milliseconds taken = run.time_to_end(SIGTERM, status);
    EXPECT_THAT(standard_error.read_some(), EndsWith("\n[quorl] stopped\n"));
    return taken;
  });
}

TEST(Stop, ends_an_exchange_whose_order_events_nobody_reads) {
  expect_soon([](ExitStatus& status) {
    const client::TempDirectory directory;
    const std::string path = directory.path() + "/orders";
    const StalledPipe orders(path);
    const StalledPipe standard_error;
    Process run({"--interval-ms", "-1"}, standard_error.write_end(), {{"BENCH_ORDER_TRUTH", path}});
    run.serves();
    client::FixSession alpha = run.session("ALPHA");
    alpha.logon();
    // An order that is refused writes a line too. The last ones find no room.
    while (!orders.is_full()) {
      alpha.new_order({.cl_ord_id = "a1", .quantity = "0", .price = "1"});
      wait_until("the FIFO does not fill",
                 [&] { return alpha.receive(milliseconds(1)).has_value() || orders.is_full(); });
    }
    for (int i = 0; i < 100; ++i) {  // what was full may still take a few
      alpha.new_order({.cl_ord_id = "a1", .quantity = "0", .price = "1"});
    }
    while (alpha.receive(NO_MORE)) {
    }
    return run.time_to_end(SIGTERM, status);
  });
}

TEST(Stop, leaves_all_lines_to_a_reader_that_was_only_slow) {
  StalledPipe standard_error;
  Process run({"--interval-ms", "-1"}, standard_error.write_end());
  run.serves();
  fill_standard_error(run, standard_error);
  std::string text;
  std::thread reader([&] {
    wait_until("the run has no last line", [&] {
      text += standard_error.read_some();
      return text.ends_with("[quorl] stopped\n");
    });
  });
  run.serves();  // it has gone on
  ExitStatus status;
  run.time_to_end(SIGTERM, status);
  reader.join();
  EXPECT_EQ(status, STATUS_0) << status.describe();
  size_t torn = 0;
  for (size_t at = 0; at < text.size();) {
    const size_t end = text.find('\n', at);
    const std::string line = text.substr(at, end - at);
    const bool known = line.starts_with("bench: ") || line.starts_with("[quorl] ") ||
                       line.starts_with("quorl faults: ");
    if (!known) ++torn;
    at = end == std::string::npos ? text.size() : end + 1;
  }
  EXPECT_EQ(torn, 0U);
  EXPECT_THAT(text, HasSubstr("bench: mark xxxx"));
}

}  // namespace
}  // namespace e2e
