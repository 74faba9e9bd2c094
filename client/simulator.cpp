#include "quorl/client/simulator.h"

#include <fcntl.h>
#include <unistd.h>

#include <csignal>
#include <initializer_list>
#include <regex>
#include <utility>

#include "quorl/client/errors.h"

namespace quorl::client {
namespace {

constexpr unsigned MOST_RESTARTS = 4;

bool begins_with_any(const std::string& line, std::initializer_list<std::string_view> prefixes) {
  for (const std::string_view prefix : prefixes) {
    if (line.starts_with(prefix)) return true;
  }
  return false;
}

bool is_banner(const std::string& line) { return line.starts_with("[quorl] DEEP/IEX-TP "); }

bool tells_of_taken_port(const std::string& line) {
  return begins_with_any(
      line, {"quorl: cannot listen on ", "quorl: control port", "quorl: gap-fill port"});
}

}  // namespace

std::vector<std::string> still_market() { return {"--interval-ms", "-1"}; }

Simulator::Simulator(SimulatorOptions options)
    : options_(std::move(options)), slot_(std::make_unique<PortSlot>()), ports_(slot_->ports()) {
  if (!options_.gap_fill_port) ports_.gap_fill = ports_.snap;
  if (!options_.control_port) ports_.control = 0;
}

Simulator::~Simulator() = default;

void Simulator::start() {
  launch();
  if (!options_.wait_for_banner) return;
  while (!await_banner()) {
    if (restarts_ == MOST_RESTARTS) {
      throw WireError("the simulator's ports are taken, however often others are chosen");
    }
    ++restarts_;
    choose_other_ports();
    launch();
  }
}

void Simulator::launch() {
  int pipe_ends[2];
  if (::pipe2(pipe_ends, O_CLOEXEC) != 0) throw SystemError("pipe2");
  process_.reset();
  ChildProcess::Command how = command();
  how.stderr_fd = pipe_ends[1];
  try {
    process_ = std::make_unique<ChildProcess>(how);
  } catch (...) {
    ::close(pipe_ends[0]);
    ::close(pipe_ends[1]);
    throw;
  }
  ::close(pipe_ends[1]);
  stderr_ = std::make_unique<LineCollector>(pipe_ends[0]);
}

ChildProcess::Command Simulator::command() const {
  ChildProcess::Command command;
  command.program = options_.binary;
  const auto add = [&command](const std::string& name, const std::string& value) {
    command.arguments.push_back(name);
    command.arguments.push_back(value);
  };
  if (options_.own_ports) {
    add("--mcast", ports_.group);
    add("--port", std::to_string(ports_.feed));
    add("--snap-port", std::to_string(ports_.snap));
    add("--fix-port", std::to_string(ports_.fix));
    if (options_.gap_fill_port) add("--gapfill-port", std::to_string(ports_.gap_fill));
    if (options_.control_port) add("--control-port", std::to_string(ports_.control));
  }
  if (options_.market_truth) add("--truth-out", market_truth_path());
  if (options_.book_file) add("--book-out", book_path());
  if (options_.bbo_file) add("--bbo-out", bbo_path());
  command.arguments.insert(command.arguments.end(), options_.arguments.begin(),
                           options_.arguments.end());
  command.environment = own_environment();
  if (!options_.scenario.empty()) command.environment["QUORL_SCENARIO"] = options_.scenario;
  if (options_.order_truth) command.environment["BENCH_ORDER_TRUTH"] = order_truth_path();
  for (const auto& [name, value] : options_.environment) command.environment[name] = value;
  return command;
}

/// Returns false if a port was taken and the run is to be tried again.
bool Simulator::await_banner() {
  const bool restart = options_.own_ports && options_.restart_if_taken;
  const auto wanted = [restart](const std::string& line) {
    return is_banner(line) || (restart && tells_of_taken_port(line));
  };
  try {
    const std::string line = stderr_->wait_for(wanted, "the banner", 0, Deadline::after(PATIENCE));
    if (!is_banner(line)) return false;
    banner_ = line;
  } catch (const Timeout& missing) {
    if (!stderr_->ended()) throw;
    const ExitStatus status = process_->wait_exit(Deadline::after(PATIENCE));
    throw WireError("the simulator did not start (" + status.describe() + "): " + missing.what());
  }
  return true;
}

/// The group and the feed's port stay: nobody binds them against us.
void Simulator::choose_other_ports() {
  spoilt_slots_.push_back(std::make_unique<PortSlot>());
  const Ports& other = spoilt_slots_.back()->ports();
  ports_.snap = other.snap;
  ports_.fix = other.fix;
  ports_.gap_fill = options_.gap_fill_port ? other.gap_fill : other.snap;
  if (options_.control_port) ports_.control = other.control;
}

uint32_t Simulator::session() const {
  std::smatch match;
  static const std::regex pattern("session ([0-9]+), gap fill");
  if (!std::regex_search(banner_, match, pattern)) {
    throw WireError("the banner names no session: " + banner_);
  }
  return static_cast<uint32_t>(std::stoul(match[1].str()));
}

std::vector<std::string> Simulator::lines() const {
  std::vector<std::string> texts;
  for (const LogLine& line : stderr_->lines()) texts.push_back(line.text);
  return texts;
}

size_t Simulator::line_count() const { return stderr_->count(); }

size_t Simulator::count_lines(std::string_view containing, size_t from) const {
  size_t count = 0;
  const std::vector<LogLine> all = stderr_->lines();
  for (size_t i = from; i < all.size(); ++i) {
    if (all[i].text.find(containing) != std::string::npos) ++count;
  }
  return count;
}

std::string Simulator::wait_for_line(std::string_view text, size_t from,
                                     std::chrono::milliseconds patience) const {
  const auto wanted = [text](const std::string& line) {
    return line.find(text) != std::string::npos;
  };
  return wait_for_line_if(wanted, "\"" + std::string(text) + "\"", from, patience);
}

std::string Simulator::wait_for_match(const std::string& ecmascript_regex, size_t from,
                                      std::chrono::milliseconds patience) const {
  const std::regex pattern(ecmascript_regex);
  const auto wanted = [&pattern](const std::string& line) {
    return std::regex_search(line, pattern);
  };
  return wait_for_line_if(wanted, "/" + ecmascript_regex + "/", from, patience);
}

std::string Simulator::wait_for_line_if(const LineCollector::Predicate& wanted,
                                        std::string_view sought, size_t from,
                                        std::chrono::milliseconds patience) const {
  return stderr_->wait_for(wanted, sought, from, Deadline::after(patience));
}

pid_t Simulator::pid() const { return process_->pid(); }
bool Simulator::running() { return process_ != nullptr && !process_->poll_exit(); }
void Simulator::signal(int number) { process_->signal(number); }
void Simulator::stop_process() { process_->stop(Deadline::after(PATIENCE)); }
void Simulator::cont_process() { process_->cont(); }

ExitStatus Simulator::wait_exit(std::chrono::milliseconds patience) {
  const ExitStatus status = process_->wait_exit(Deadline::after(patience));
  stderr_->wait_end(Deadline::after(PATIENCE));
  return status;
}

ExitStatus Simulator::terminate() {
  signal(SIGTERM);
  return wait_exit();
}

}  // namespace quorl::client
