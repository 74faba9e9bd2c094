#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdint>
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

#if defined(__SANITIZE_ADDRESS__)
#define QUORL_DAY_SANITIZED
#include <sanitizer/common_interface_defs.h>
#endif

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
  std::string scenario;                // QUORL_SCENARIO
  bool environment = true;             // without it neither variable is set
  std::string symbols;
  std::vector<ListedSymbol> traded;           // what the traders take from the list
  std::string order_events = "orders.jsonl";  // BENCH_ORDER_TRUTH, in the day's folder or absolute
  std::string truth = "truth.jsonl";          // --truth-out, the same; empty leaves the option out
  bool files = true;                          // the book and the BBO file
  bool control_port = true;
  int usual_rate_ms = 40;     // to which the bench returns
  bool gap_fill_port = true;  // of its own, and not DEEP SNAP's number
  bool ports_taken = false;   // the two UDP ports
  bool clock_steps = false;   // the system clock is set, back and ahead
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

/// Standard error of this process into memory, as long as it lives. A process that aborts still
/// says there what it has to say.
class CapturedStderr {
 public:
  CapturedStderr() : original_(::dup(STDERR_FILENO)), memory_(::memfd_create("stderr", 0)) {
    ::dup2(memory_, STDERR_FILENO);
    captured = this;
    std::signal(SIGABRT, [](int) { captured->show_last_lines(); });
#ifdef QUORL_DAY_SANITIZED
    __sanitizer_set_report_fd(reinterpret_cast<void*>(static_cast<intptr_t>(original_)));
#endif
  }
  ~CapturedStderr() {
    std::signal(SIGABRT, SIG_DFL);
#ifdef QUORL_DAY_SANITIZED
    __sanitizer_set_report_fd(reinterpret_cast<void*>(intptr_t{STDERR_FILENO}));
#endif
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
  /// Safe in a signal handler.
  void show_last_lines() const {
    std::array<char, 600> lines;
    const off_t end = ::lseek(memory_, 0, SEEK_END);
    const off_t begin = std::max<off_t>(0, end - static_cast<off_t>(lines.size()));
    const ssize_t got = ::pread(memory_, lines.data(), lines.size(), begin);
    [[maybe_unused]] const ssize_t shown =
        ::write(original_, lines.data(), static_cast<size_t>(std::max<ssize_t>(got, 0)));
  }

  inline static CapturedStderr* captured = nullptr;
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
    if (fd_ < 0) return {};
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
  quorl::RunConfig configuration() const;
  /// In the day's folder, unless it is absolute already.
  std::string path(const std::string& name) const {
    return (std::filesystem::path(folder_) / name).string();
  }
  Network::Wait between_turns();
  void collect();
  void collect_file(Kind kind, const std::string& file);

  const DayPlan& plan_;
  const Network::Ports ports_;
  const std::string folder_;
  Outputs outputs_;
  Network network_;
  Dice dice_;
  MarketView view_;
  Traders traders_;
  Watchers watchers_;
  Bench bench_;
  GrowingFile order_events_;
  GrowingFile truth_;
  uint64_t lull_until_turn_ = 0;
  std::optional<CapturedStderr> stderr_;
};

constexpr uint32_t SESSION = 77;

std::string temporary_folder() {
  std::string pattern = (std::filesystem::temp_directory_path() / "quorl_day_XXXXXX").string();
  return ::mkdtemp(pattern.data());
}

Network::Ports ports_of(const DayPlan& plan) {
  Network::Ports ports{.fix = 7001, .snap = 7002, .control = 7003, .gap_fill = 7004};
  if (!plan.gap_fill_port) ports.gap_fill = ports.snap;
  return ports;
}

Day::Day(const DayPlan& plan)
    : plan_(plan),
      ports_(ports_of(plan)),
      folder_(temporary_folder()),
      outputs_(options.record_folder.empty() ? "" : options.record_folder + "/" + plan.name),
      network_(ports_, outputs_),
      dice_(plan.seed),
      view_(SESSION),
      traders_(network_, outputs_, dice_, view_, plan.traded, ports_.fix, plan.style),
      watchers_(network_, outputs_, dice_, view_, ports_),
      bench_(network_, outputs_, dice_, ports_.control, plan.usual_rate_ms),
      order_events_(plan.order_events.starts_with('/') ? "" : path(plan.order_events)),
      truth_(path(plan.truth)) {
  reset_clock(plan.opens_at_ns);
  network_.on_wait = [this] { return between_turns(); };
  if (plan.ports_taken) {
    network_.take_port(ports_.control);
    network_.take_port(ports_.gap_fill);
  }
}

Day::~Day() { std::filesystem::remove_all(folder_); }

quorl::RunConfig Day::configuration() const {
  std::vector<std::string> arguments = {"quorl"};
  const auto add = [&arguments](const char* flag, const std::string& value) {
    arguments.insert(arguments.end(), {flag, value});
  };
  add("--fix-port", std::to_string(ports_.fix));
  add("--snap-port", std::to_string(ports_.snap));
  if (plan_.gap_fill_port) add("--gapfill-port", std::to_string(ports_.gap_fill));
  if (plan_.control_port) add("--control-port", std::to_string(ports_.control));
  add("--session", std::to_string(SESSION));
  add("--symbols", plan_.symbols);
  if (plan_.files) {
    add("--book-out", path("book.json"));
    add("--bbo-out", path("bbo.txt"));
  }
  if (!plan_.truth.empty()) add("--truth-out", path(plan_.truth));
  arguments.insert(arguments.end(), plan_.arguments.begin(), plan_.arguments.end());

  std::vector<const char*> argv;
  for (const std::string& argument : arguments) argv.push_back(argument.c_str());
  quorl::RunConfig config;
  config.session = quorl::default_session(quorl::system_ns());
  EXPECT_EQ(quorl::parse_options(static_cast<int>(argv.size()), argv.data(), config), std::nullopt);
  return config;
}

void Day::run() {
  const std::string events = plan_.order_events.empty() ? "" : path(plan_.order_events);
  if (plan_.environment) {
    ::setenv("BENCH_ORDER_TRUTH", events.c_str(), 1);
    ::setenv("QUORL_SCENARIO", plan_.scenario.c_str(), 1);
  } else {
    ::unsetenv("BENCH_ORDER_TRUTH");
    ::unsetenv("QUORL_SCENARIO");
  }
  stderr_.emplace();
  {
    quorl::Exchange exchange(configuration());
    exchange.begin();
    while (outputs_.turn() <= plan_.turns) exchange.turn();
    exchange.print_final_lines();
  }
  collect();
  const std::string rest = truth_.take_rest();
  if (!rest.empty()) outputs_.note(Kind::TRUTH, "", rest);
  stderr_.reset();
  outputs_.end_day();
}

/// Ends the turn: takes what it left, and lets the other side act.
Network::Wait Day::between_turns() {
  constexpr int64_t NS_PER_HOUR = 3600'000'000'000;
  collect();
  outputs_.end_turn();
  const uint64_t turn = outputs_.turn();
  if (dice_.one_in(2500)) lull_until_turn_ = turn + 250 + dice_.below(300);
  const bool lull = turn < lull_until_turn_;
  watchers_.act(turn);
  if (plan_.control_port) bench_.act(turn, lull);
  traders_.act(turn, lull);

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
  const std::string events = order_events_.take();
  if (!events.empty()) outputs_.note(Kind::ORDER_EVENTS, "", events);
  if (lines.find("bench: mark ") != std::string::npos) {
    const std::string marked = truth_.take_through_last("{\"mark\"");
    if (!marked.empty()) outputs_.note(Kind::TRUTH, "", marked);
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
    if (account.events == 0) continue;
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
    const Account& account = day.outputs().account(static_cast<Kind>(i));
    const Pinned* const pinned = pinned_of(plan.name, KIND_NAMES[i]);
    if (pinned == nullptr) {
      EXPECT_EQ(account.events, 0U) << plan.name << ", " << KIND_NAMES[i] << ", had no events";
      continue;
    }
    const auto found = difference(*pinned, account);
    EXPECT_FALSE(found.has_value()) << plan.name << ", " << KIND_NAMES[i] << ", " << *found;
  }
  EXPECT_EQ(day.misuses(), 0U) << "uses of a closed socket, or reads that would block";
}

constexpr uint64_t NOON_NS = 1'700'049'600'000'000'000;          // 2023-11-15 12:00:00
constexpr uint64_t LEAP_EVENING_NS = 1'709'251'170'123'456'789;  // 2024-02-29 23:59:30.123

DayPlan day_of(const char* name, uint64_t seed, uint64_t turns, uint64_t opens_at_ns = NOON_NS) {
  DayPlan plan;
  plan.name = name;
  plan.seed = seed;
  plan.turns = turns;
  plan.opens_at_ns = opens_at_ns;
  return plan;
}

TEST(RecordedDay, a_plain_day_is_as_it_was) {
  DayPlan plan = day_of("plain", 1, 12000);
  plan.symbols = "AAPL:190.00,MSFT:410.00,PENNY:0.85,BARE";
  plan.traded = {{"AAPL", 1900000}, {"MSFT", 4100000}, {"PENNY", 8500}, {"BARE", 1000000}};
  live_through(plan);
}

TEST(RecordedDay, a_day_of_scripted_mischief_is_as_it_was) {
  DayPlan plan = day_of("scripted", 2, 12000, LEAP_EVENING_NS);
  plan.arguments = {"--seed",          "7",  "--drop-every", "13",    "--dup-every",   "7",
                    "--reorder-every", "11", "--drop-burst", "100:5", "--interval-ms", "25"};
  plan.scenario =
      "name=mischief,reject_every=9,partial_fill_every=4,fill_on_cancel_every=3,"
      "unsolicited_cancel_every=6,replace_reject_every=5,lapse_ms=400,disconnect_after=60,x,y=z";
  plan.symbols = "AAPL:190,AAPL:200,,LONGSYMBOL:3.3,SUB:0.0304,TINY:0.01,ZERO:0,BELOW:-2,";
  plan.traded = {{"AAPL", 1900000}, {"LONGSYMBOL", 33000}, {"SUB", 304}, {"", 1000000},
                 {"TINY", 100},     {"ZERO", 0},           {"BELOW", 1}};
  plan.clock_steps = true;
  plan.style.session_mischief = 6;
  live_through(plan);
}

/// Long enough on the feed that its history is forgotten at the old end.
TEST(RecordedDay, a_day_of_many_symbols_is_as_it_was) {
  DayPlan plan = day_of("many symbols", 3, 6500);
  plan.arguments = {"--interval-ms", "1", "--touch-hit", "0.5", "--step-bps", "4", "--quiet"};
  plan.truth = "";
  for (int i = 0; i < 16; ++i) {
    const std::string name = "S" + std::to_string(i);
    plan.symbols += (i == 0 ? "" : ",") + name + ":" + std::to_string(10 + 7 * i) + ".5";
    plan.traded.push_back({name, 100000 + 70000 * i + 5000});
  }
  plan.usual_rate_ms = 1;
  plan.style.accounts = 6;
  plan.style.percent_active = 25;
  plan.style.patient_heartbeats = true;
  live_through(plan);
}

TEST(RecordedDay, a_day_without_control_and_gap_fill_is_as_it_was) {
  DayPlan plan = day_of("without ports", 4, 4000);
  plan.ports_taken = true;
  plan.order_events = "/dev/full";
  plan.truth = "nowhere/truth.jsonl";
  plan.arguments = {"--seed",           "99",           "--touch-hit", "0", "--bbo-out",
                    "/nowhere/bbo.txt", "--drop-burst", "30"};
  plan.scenario = "disconnect_after=100";
  plan.symbols = "XYZ:25";
  plan.traded = {{"XYZ", 250000}};
  plan.style.accounts = 2;
  plan.style.session_mischief = 20;
  live_through(plan);
}

/// Hardly anybody trades and the prices stand still: the feed has nothing but its heartbeats.
TEST(RecordedDay, a_sleepy_day_is_as_it_was) {
  DayPlan plan = day_of("sleepy", 5, 5000, LEAP_EVENING_NS);
  plan.arguments = {"--interval-ms", "-1"};
  plan.environment = plan.control_port = plan.gap_fill_port = plan.files = false;
  plan.order_events = "";
  plan.symbols = "XYZ:25";
  plan.traded = {{"XYZ", 250000}};
  plan.style.accounts = 2;
  plan.style.percent_active = 1;
  plan.style.session_mischief = 100;
  live_through(plan);
}

/// One account hears more reports than the exchange keeps for it.
TEST(RecordedDay, a_day_of_one_account_is_as_it_was) {
  DayPlan plan = day_of("one account", 6, 4000);
  plan.truth = plan.order_events = "";
  plan.symbols = "XYZ:25,PENNY:0.5";
  plan.traded = {{"XYZ", 250000}, {"PENNY", 5000}};
  plan.control_port = false;
  plan.style.accounts = 1;
  plan.style.most_connections = 2;
  plan.style.percent_active = 100;
  plan.style.most_messages = 60;
  plan.style.most_orders = 40;
  plan.style.session_mischief = 0;
  plan.style.patient_heartbeats = true;
  live_through(plan);
}

/// Each rule of a scenario alone: it arms the stats line, and nothing else may fire.
TEST(RecordedDay, short_days_of_one_rule_are_as_they_were) {
  for (const char* rule :
       {"reject_every=3", "partial_fill_every=2", "fill_on_cancel_every=2",
        "unsolicited_cancel_every=2", "replace_reject_every=2", "lapse_ms=1500"}) {
    DayPlan plan = day_of(rule, 7, 1000);
    plan.scenario = rule;
    plan.truth = "";
    plan.control_port = false;
    if (plan.scenario.starts_with("lapse")) {  // and any port for DEEP SNAP, none for gap fill
      plan.gap_fill_port = false;
      plan.arguments = {"--snap-port", "0"};
    }
    plan.symbols = "XYZ:25";
    plan.traded = {{"XYZ", 250000}};
    plan.style.accounts = 3;
    live_through(plan);
  }
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
