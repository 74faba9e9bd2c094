#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "base/clocks.h"
#include "day/day_clock.h"
#include "day/day_dice.h"
#include "day/day_market_view.h"
#include "day/day_network.h"
#include "day/day_outputs.h"
#include "day/day_traders.h"
#include "day/day_watchers.h"
#include "driver/exchange.h"
#include "driver/run_config.h"

// The recorded day: the whole exchange, from its command line to its final lines, lives through a
// long random day on clocks and sockets in the hand of this program, and digests of everything
// that leaves it are compared with those of the day they were recorded. Whatever a change of the
// inside lets slip (one byte, one order of two sends, one stale time stamp) shows here.
//
// To see what differs, run both builds with --day-record=FOLDER and compare the folders.

namespace day {
namespace {

struct Options {
  std::string record_folder;
  bool print_digests = false;
};
Options options;

struct DayPlan {
  std::string name;
  uint64_t seed = 0;
  uint64_t turns = 0;
  uint64_t opens_at_ns = 0;            // system clock
  std::vector<std::string> arguments;  // the options that are not the same on every day
  std::string scenario;                // QUORL_SCENARIO; empty unsets it
  std::string symbols;
  std::vector<ListedSymbol> traded;  // what the traders take from the list
  bool order_events = true;
  bool truth = true;
  bool control_port = true;
  bool ports_taken = false;  // the two UDP ports
  bool clock_steps = false;  // the system clock is set, back and ahead
  TradingStyle style;
};

struct Pinned {
  std::string_view day;
  std::string_view kind;
  uint64_t events;
  uint64_t bytes;
  std::vector<uint64_t> checkpoints;
};

const std::vector<Pinned> PINNED = {
#include "day/digests.inc"
};

/// From `offset` to the end.
std::string read_file(int fd, size_t offset) {
  std::string text;
  std::array<char, 65536> piece;
  ssize_t got = 0;
  while ((got = ::pread(fd, piece.data(), piece.size(), static_cast<off_t>(offset + text.size()))) >
         0) {
    text.append(piece.data(), static_cast<size_t>(got));
  }
  return text;
}

/// Standard error of this process into memory, as long as it lives.
class CapturedStderr {
 public:
  CapturedStderr() : original_(::dup(STDERR_FILENO)), memory_(::memfd_create("stderr", 0)) {
    ::dup2(memory_, STDERR_FILENO);
  }
  ~CapturedStderr() {
    ::dup2(original_, STDERR_FILENO);
    ::close(original_);
    ::close(memory_);
  }
  CapturedStderr(const CapturedStderr&) = delete;
  CapturedStderr& operator=(const CapturedStderr&) = delete;

  /// What has been written since the last call.
  std::string take() {
    std::string text = read_file(memory_, read_);
    read_ += text.size();
    return text;
  }

 private:
  int original_;
  int memory_;
  size_t read_ = 0;
};

/// A file that the exchange appends to, read as it grows.
class GrowingFile {
 public:
  explicit GrowingFile(std::string path) : path_(std::move(path)) {}
  ~GrowingFile() {
    if (fd_ >= 0) ::close(fd_);
  }
  GrowingFile(const GrowingFile&) = delete;
  GrowingFile& operator=(const GrowingFile&) = delete;

  std::string take() {
    if (fd_ < 0) fd_ = ::open(path_.c_str(), O_RDONLY);
    std::string text = read_file(fd_, read_);
    read_ += text.size();
    return text;
  }
  /// Up to the last line that begins with `start`, that one included; the rest stays.
  std::string take_through_last(std::string_view start) {
    rest_ += take();
    const size_t line = rest_.rfind("\n" + std::string(start));
    const size_t end = line == std::string::npos ? 0 : rest_.find('\n', line + 1) + 1;
    std::string text = rest_.substr(0, end);
    rest_.erase(0, end);
    return text;
  }
  std::string take_rest() {
    std::string text = std::exchange(rest_, {});
    return text + take();
  }

 private:
  std::string path_;
  int fd_ = -1;
  size_t read_ = 0;
  std::string rest_;
};

class Day {
 public:
  explicit Day(const DayPlan& plan);
  ~Day();
  Day(const Day&) = delete;
  Day& operator=(const Day&) = delete;

  void run();
  const Outputs& outputs() const { return outputs_; }
  uint64_t misuses() const { return network_.misuses(); }

 private:
  static constexpr Network::Ports PORTS = {7001, 7002, 7003, 7004};

  quorl::RunConfig configuration() const;
  std::string path(const char* name) const { return folder_ + "/" + name; }
  Network::Wait between_turns();
  void collect();
  void collect_file(Kind kind, const std::string& file);

  const DayPlan& plan_;
  std::string folder_;
  Outputs outputs_;
  Network network_;
  Dice dice_;
  MarketView view_;
  Traders traders_;
  Watchers watchers_;
  Bench bench_;
  GrowingFile order_events_;
  GrowingFile truth_;
  std::optional<CapturedStderr> stderr_;
};

constexpr uint32_t SESSION = 77;

std::string temporary_folder() {
  std::string pattern = (std::filesystem::temp_directory_path() / "quorl_day_XXXXXX").string();
  return ::mkdtemp(pattern.data());
}

Day::Day(const DayPlan& plan)
    : plan_(plan),
      folder_(temporary_folder()),
      outputs_(options.record_folder.empty() ? "" : options.record_folder + "/" + plan.name),
      network_(PORTS, outputs_),
      dice_(plan.seed),
      view_(SESSION),
      traders_(network_, outputs_, dice_, view_, plan.traded, PORTS.fix, plan.style),
      watchers_(network_, outputs_, dice_, view_, PORTS),
      bench_(network_, outputs_, dice_, PORTS.control),
      order_events_(path("orders.jsonl")),
      truth_(path("truth.jsonl")) {
  reset_clock(plan.opens_at_ns);
  network_.on_wait = [this] { return between_turns(); };
  if (plan.ports_taken) {
    network_.take_port(PORTS.control);
    network_.take_port(PORTS.gap_fill);
  }
}

Day::~Day() { std::filesystem::remove_all(folder_); }

quorl::RunConfig Day::configuration() const {
  std::vector<std::string> arguments = {"quorl",
                                        "--fix-port",
                                        std::to_string(PORTS.fix),
                                        "--snap-port",
                                        std::to_string(PORTS.snap),
                                        "--gapfill-port",
                                        std::to_string(PORTS.gap_fill),
                                        "--session",
                                        std::to_string(SESSION),
                                        "--symbols",
                                        plan_.symbols,
                                        "--book-out",
                                        path("book.json"),
                                        "--bbo-out",
                                        path("bbo.txt")};
  const auto add = [&arguments](const char* flag, const std::string& value) {
    arguments.insert(arguments.end(), {flag, value});
  };
  if (plan_.truth) add("--truth-out", path("truth.jsonl"));
  if (plan_.control_port) add("--control-port", std::to_string(PORTS.control));
  arguments.insert(arguments.end(), plan_.arguments.begin(), plan_.arguments.end());

  std::vector<const char*> argv;
  for (const std::string& argument : arguments) argv.push_back(argument.c_str());
  quorl::RunConfig config;
  config.session = quorl::default_session(quorl::system_ns());
  EXPECT_EQ(quorl::parse_options(static_cast<int>(argv.size()), argv.data(), config), std::nullopt);
  return config;
}

void Day::run() {
  if (plan_.order_events) {
    ::setenv("BENCH_ORDER_TRUTH", path("orders.jsonl").c_str(), 1);
  } else {
    ::unsetenv("BENCH_ORDER_TRUTH");
  }
  if (plan_.scenario.empty()) {
    ::unsetenv("QUORL_SCENARIO");
  } else {
    ::setenv("QUORL_SCENARIO", plan_.scenario.c_str(), 1);
  }
  stderr_.emplace();
  {
    quorl::Exchange exchange(configuration());
    exchange.begin();
    while (outputs_.turn() <= plan_.turns) exchange.turn();
    exchange.print_final_lines();
  }
  collect();
  outputs_.note(Kind::TRUTH, "", truth_.take_rest());
  stderr_.reset();
  outputs_.end_day();
}

/// Ends the turn: takes what it left, and lets the other side act.
Network::Wait Day::between_turns() {
  constexpr uint64_t NS_PER_MS = 1'000'000;
  constexpr int64_t NS_PER_HOUR = 3600'000'000'000;
  collect();
  outputs_.end_turn();
  const uint64_t turn = outputs_.turn();
  watchers_.act(turn);
  if (plan_.control_port) bench_.act(turn);
  traders_.act(turn);

  Network::Wait wait;
  wait.until_event_ns = dice_.below(5 * NS_PER_MS);
  if (dice_.one_in(900)) {
    constexpr uint64_t SLEEPS_MS[] = {100,  250,  300,  700,   999,  1000,
                                      2000, 2500, 6000, 10001, 30000};
    wait.asleep_ns = dice_.pick(SLEEPS_MS) * NS_PER_MS;
  }
  if (plan_.clock_steps && dice_.one_in(700)) {
    step_system_clock(dice_.one_in(2) ? -NS_PER_HOUR : NS_PER_HOUR);
  }
  return wait;
}

void Day::collect() {
  const std::string lines = stderr_->take();
  if (!lines.empty()) outputs_.note(Kind::STDERR, "", lines);
  if (plan_.order_events) {
    const std::string events = order_events_.take();
    if (!events.empty()) outputs_.note(Kind::ORDER_EVENTS, "", events);
  }
  if (plan_.truth && lines.find("bench: mark ") != std::string::npos) {
    outputs_.note(Kind::TRUTH, "", truth_.take_through_last("{\"mark\""));
  }
  collect_file(Kind::BOOK, path("book.json"));
  collect_file(Kind::BBO, path("bbo.txt"));
}

/// A file that is replaced as a whole. It is taken away: it comes again when it is written again.
void Day::collect_file(Kind kind, const std::string& file) {
  const int fd = ::open(file.c_str(), O_RDONLY);
  if (fd < 0) return;
  outputs_.note(kind, "", read_file(fd, 0));
  ::close(fd);
  ::unlink(file.c_str());
}

const Pinned* pinned_of(std::string_view day, std::string_view kind) {
  for (const Pinned& pinned : PINNED) {
    if (pinned.day == day && pinned.kind == kind) return &pinned;
  }
  return nullptr;
}

void print_digests(const DayPlan& plan, const Outputs& outputs) {
  constexpr size_t PER_LINE = 5;
  for (size_t i = 0; i < KINDS; ++i) {
    const Account& account = outputs.account(static_cast<Kind>(i));
    std::printf("{\"%s\", \"%s\", %llu, %llu, {", plan.name.c_str(),
                std::string(KIND_NAMES[i]).c_str(), static_cast<unsigned long long>(account.events),
                static_cast<unsigned long long>(account.bytes));
    for (size_t j = 0; j < account.checkpoints.size(); ++j) {
      std::printf("%s0x%016llx,", j % PER_LINE == 0 ? "\n " : " ",
                  static_cast<unsigned long long>(account.checkpoints[j]));
    }
    std::printf("}},\n");
  }
}

/// The first checkpoint at which the digests part; nothing if they are equal to the end.
std::optional<std::string> difference(const Pinned& pinned, const Account& account) {
  const size_t most = std::max(pinned.checkpoints.size(), account.checkpoints.size());
  for (size_t i = 0; i < most; ++i) {
    const uint64_t expected = i < pinned.checkpoints.size() ? pinned.checkpoints[i] : 0;
    const uint64_t got = i < account.checkpoints.size() ? account.checkpoints[i] : 0;
    if (expected == got) continue;
    char text[160];
    std::snprintf(text, sizeof text,
                  "turns %zu to %zu: expected %016llx, got %016llx (in all %llu events of %llu "
                  "bytes, expected %llu of %llu)",
                  i * Outputs::CHECKPOINT_TURNS + 1, (i + 1) * Outputs::CHECKPOINT_TURNS,
                  static_cast<unsigned long long>(expected), static_cast<unsigned long long>(got),
                  static_cast<unsigned long long>(account.events),
                  static_cast<unsigned long long>(account.bytes),
                  static_cast<unsigned long long>(pinned.events),
                  static_cast<unsigned long long>(pinned.bytes));
    return text;
  }
  return std::nullopt;
}

void live_through(const DayPlan& plan) {
  Day day(plan);
  day.run();
  if (options.print_digests) return print_digests(plan, day.outputs());
  for (size_t i = 0; i < KINDS; ++i) {
    const Pinned* const pinned = pinned_of(plan.name, KIND_NAMES[i]);
    ASSERT_NE(pinned, nullptr) << plan.name << ' ' << KIND_NAMES[i] << " is not pinned";
    const auto found = difference(*pinned, day.outputs().account(static_cast<Kind>(i)));
    EXPECT_FALSE(found.has_value()) << plan.name << ", " << KIND_NAMES[i] << ", " << *found;
  }
  EXPECT_EQ(day.misuses(), 0U) << "uses of a closed socket, or reads that would block";
}

constexpr uint64_t NOON_NS = 1'700'049'600'000'000'000;          // 2023-11-15 12:00:00
constexpr uint64_t LEAP_EVENING_NS = 1'709'251'170'123'456'789;  // 2024-02-29 23:59:30.123

TEST(RecordedDay, a_plain_day_is_as_it_was) {
  DayPlan plan;
  plan.name = "plain";
  plan.seed = 1;
  plan.turns = 15000;
  plan.opens_at_ns = NOON_NS;
  plan.symbols = "AAPL:190.00,MSFT:410.00,PENNY:0.85,BARE";
  plan.traded = {{"AAPL", 1900000}, {"MSFT", 4100000}, {"PENNY", 8500}, {"BARE", 1000000}};
  live_through(plan);
}

TEST(RecordedDay, a_day_of_scripted_mischief_is_as_it_was) {
  DayPlan plan;
  plan.name = "scripted";
  plan.seed = 2;
  plan.turns = 15000;
  plan.opens_at_ns = LEAP_EVENING_NS;
  plan.arguments = {"--seed",          "7",  "--drop-every", "13",    "--dup-every",   "7",
                    "--reorder-every", "11", "--drop-burst", "100:5", "--interval-ms", "25"};
  plan.scenario =
      "name=mischief,reject_every=9,partial_fill_every=4,fill_on_cancel_every=3,"
      "unsolicited_cancel_every=6,replace_reject_every=5,lapse_ms=400,disconnect_after=60,x,y=z";
  plan.symbols = "AAPL:190,AAPL:200,,LONGSYMBOL:3.3,SUB:0.0304,";
  plan.traded = {{"AAPL", 1900000}, {"LONGSYMBOL", 33000}, {"SUB", 304}, {"", 1000000}};
  plan.clock_steps = true;
  plan.style.session_mischief = 6;
  live_through(plan);
}

TEST(RecordedDay, a_day_of_many_symbols_is_as_it_was) {
  DayPlan plan;
  plan.name = "many symbols";
  plan.seed = 3;
  plan.turns = 8000;
  plan.opens_at_ns = NOON_NS;
  plan.arguments = {"--interval-ms", "8", "--touch-hit", "0.5", "--step-bps", "4", "--quiet"};
  plan.truth = false;
  for (int i = 0; i < 16; ++i) {
    const std::string name = "S" + std::to_string(i);
    plan.symbols += (i == 0 ? "" : ",") + name + ":" + std::to_string(10 + 7 * i) + ".5";
    plan.traded.push_back({name, 100000 + 70000 * i + 5000});
  }
  plan.style.accounts = 6;
  plan.style.patient_heartbeats = true;
  live_through(plan);
}

TEST(RecordedDay, a_day_without_control_and_gap_fill_is_as_it_was) {
  DayPlan plan;
  plan.name = "without ports";
  plan.seed = 4;
  plan.turns = 6000;
  plan.opens_at_ns = NOON_NS;
  plan.ports_taken = true;
  plan.order_events = false;
  plan.arguments = {"--seed", "99", "--touch-hit", "0", "--bbo-out", "/nonexistent/bbo.txt"};
  plan.scenario = "disconnect_after=100";
  plan.symbols = "XYZ:25";
  plan.traded = {{"XYZ", 250000}};
  live_through(plan);
}

}  // namespace
}  // namespace day

int main(int argc, char** argv) {
  ::testing::InitGoogleTest(&argc, argv);
  constexpr std::string_view RECORD = "--day-record=";
  for (int i = 1; i < argc; ++i) {
    const std::string_view argument = argv[i];
    if (argument.starts_with(RECORD)) {
      day::options.record_folder = argument.substr(RECORD.size());
    } else if (argument == "--day-print-digests") {
      day::options.print_digests = true;
    } else {
      std::fprintf(stderr, "recorded_day: unknown argument %s\n", argv[i]);
      return 2;
    }
  }
  return RUN_ALL_TESTS();
}
