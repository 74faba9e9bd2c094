#include "lives/whole_exchange.h"

#include <cstdlib>
#include <stdexcept>
#include <utility>

#include "base/stop.h"
#include "day/day_clock.h"
#include "driver/run_config.h"
#include "quorl/client/fix_message.h"
#include "quorl/client/snap_client.h"

namespace lives {
namespace {

namespace client = quorl::client;

quorl::RunConfig config_of(const std::vector<std::string>& options) {
  std::vector<const char*> argv = {
      "quorl", "--fix-port", "7001",      "--snap-port", "7002",        "--gapfill-port",
      "7004",  "--session",  "77",        "--symbols",   "AAPL:190.00", "--interval-ms",
      "-1",    "--book-out", "book.json", "--bbo-out",   "bbo.txt",     "--quiet"};
  for (const std::string& option : options) argv.push_back(option.c_str());
  quorl::RunConfig config;
  if (quorl::parse_options(static_cast<int>(argv.size()), argv.data(), config)) {
    throw std::invalid_argument("options of a test");
  }
  return config;
}

}  // namespace

WholeExchange::WholeExchange(const std::vector<std::string>& options,
                             const std::map<std::string, std::string>& environment) {
  day::reset_clock(OPENS_AT_NS);
  ::unsetenv("BENCH_ORDER_TRUTH");
  ::unsetenv("QUORL_SCENARIO");
  for (const auto& [name, value] : environment) ::setenv(name.c_str(), value.c_str(), 1);
  quorl::stop_requested = 0;
  machine.on_act = [this](std::string_view what) { add_act(std::string(what)); };
  outputs.on_note = [this](day::Kind kind, std::string_view where, std::string_view what) {
    if (kind == day::Kind::ACTS) note_act(std::stoi(std::string(where)), what);
  };
  network.on_poll = [this](std::span<const pollfd> set, int timeout_ms) {
    note_wait(set, timeout_ms);
  };
  network.on_wait = [] { return day::Network::Wait{0, 0}; };
  exchange_.emplace(config_of(options));
}

WholeExchange::~WholeExchange() {
  exchange_.reset();
  quorl::stop_requested = 0;
}

void WholeExchange::begin() {
  exchange_->begin();
  has_begun_ = true;
}

void WholeExchange::turn(uint64_t behind_ms) {
  if (!has_begun_) begin();
  day::pass_ns(behind_ms * day::NS_PER_MS);
  if (!exchange_->turn()) throw std::logic_error("nobody has asked it to stop");
  outputs.end_turn();
}

void WholeExchange::end() {
  quorl::stop_requested = 1;
  if (exchange_->turn()) throw std::logic_error("it does not stop");
  exchange_->print_final_lines();
  exchange_.reset();
}

size_t WholeExchange::logs_on(const std::string& comp_id, int heartbeat_s) {
  const size_t connection = network.connect(PORTS.fix);
  says(connection, "35=A|34=1|49=" + comp_id + "|56=IEXG|98=0|108=" + std::to_string(heartbeat_s));
  turn();
  return connection;
}

void WholeExchange::says(size_t connection, const std::string& body) {
  sends(connection, client::frame_fix(body + "|"));
}

void WholeExchange::sends(size_t connection, const std::string& bytes) {
  network.send(connection, bytes, outputs.turn());
}

std::string WholeExchange::image_request() {
  client::SnapRequest request;
  request.session_id = 77;
  const client::Bytes bytes = client::encode(request);
  return {bytes.begin(), bytes.end()};
}

std::vector<std::string> WholeExchange::take_acts() { return std::exchange(acts_, {}); }

void WholeExchange::note_act(int fd, std::string_view what) {
  const std::string act(what.substr(0, what.find_last_not_of(' ') + 1));
  if (act == "bind 7001") names_[fd] = "FIX listener";
  if (act == "bind 7002") names_[fd] = "SNAP listener";
  if (act.starts_with("accept ")) {
    const std::string service = names_[fd].substr(0, names_[fd].find(' '));
    names_[std::stoi(act.substr(7))] = service + " " + std::to_string(accepted_++);
    return add_act("accept " + service);
  }
  if (act == "close") names_.erase(fd);
  add_act(act);
}

void WholeExchange::note_wait(std::span<const pollfd> set, int timeout_ms) {
  if (set.size() == 1 && set.front().events == POLLOUT) {
    waits_for_room.push_back(name_of(set.front().fd) + " for " + std::to_string(timeout_ms) +
                             " ms");
    return;
  }
  waited_for.clear();
  for (const pollfd& entry : set) {
    waited_for.push_back(name_of(entry.fd) +
                         (entry.events == POLLIN ? "" : " for more than input"));
  }
  waited_at_most_ms = timeout_ms;
}

void WholeExchange::add_act(std::string act) { acts_.push_back(std::move(act)); }

std::string WholeExchange::name_of(int fd) const {
  const auto name = names_.find(fd);
  return name == names_.end() ? "?" : name->second;
}

}  // namespace lives
