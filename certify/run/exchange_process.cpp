#include "certify/run/exchange_process.h"

#include <csignal>
#include <utility>

#include "quorl/client/errors.h"

namespace client = quorl::client;

namespace certify {
namespace {

constexpr uint64_t MOST_LOGGED = 256 * 1024 * 1024;

std::vector<std::string> arguments_of(const ExchangeProcess::Command& command,
                                      const client::Ports& ports) {
  std::vector<std::string> arguments = {"--mcast",        ports.group,
                                        "--port",         std::to_string(ports.feed),
                                        "--snap-port",    std::to_string(ports.snap),
                                        "--gapfill-port", std::to_string(ports.gap_fill),
                                        "--fix-port",     std::to_string(ports.fix),
                                        "--control-port", std::to_string(ports.control),
                                        "--truth-out",    command.folder + "/truth/market.jsonl",
                                        "--book-out",     command.folder + "/truth/book.json"};
  arguments.insert(arguments.end(), command.market.begin(), command.market.end());
  return arguments;
}

std::map<std::string, std::string> environment_of(const ExchangeProcess::Command& command) {
  std::map<std::string, std::string> environment = client::own_environment();
  environment["BENCH_ORDER_TRUTH"] = command.folder + "/truth/orders.jsonl";
  if (!command.scenario.empty()) environment["QUORL_SCENARIO"] = command.scenario;
  return environment;
}

}  // namespace

ExchangeProcess::ExchangeProcess(const Command& command)
    : command_(command),
      ports_(slot_.ports()),
      said_(command.folder + "/exchange.log", MOST_LOGGED) {
  if (!command.group.empty()) ports_.group = command.group;
  if (command.feed_port != 0) ports_.feed = command.feed_port;
}

void ExchangeProcess::start() {
  process_ = std::make_unique<client::ChildProcess>(
      client::ChildProcess::Command{.program = command_.program,
                                    .arguments = arguments_of(command_, ports_),
                                    .environment = environment_of(command_),
                                    .stderr_fd = said_.writing_end(),
                                    .apart = true});
  said_.close_writing_end();
}

void ExchangeProcess::collect(std::vector<pollfd>& set) const {
  if (!said_.ended()) set.push_back({said_.fd(), POLLIN, 0});
}

std::vector<std::string> ExchangeProcess::take_lines() {
  said_.take();
  partial_ += said_.latest();
  std::vector<std::string> lines;
  size_t begin = 0;
  for (size_t end = 0; (end = partial_.find('\n', begin)) != std::string::npos; begin = end + 1) {
    lines.push_back(partial_.substr(begin, end - begin));
  }
  partial_.erase(0, begin);
  return lines;
}

void ExchangeProcess::ask_to_end() { process_->signal(SIGTERM); }
void ExchangeProcess::kill() { process_->signal(SIGKILL); }

}  // namespace certify
