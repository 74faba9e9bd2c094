// How an exchange comes to serve.
#include <filesystem>
#include <regex>
#include <system_error>
#include <utility>

#include "certify/record/time.h"
#include "certify/run/exchange_process.h"

namespace client = quorl::client;

namespace certify {
namespace {

constexpr unsigned MOST_STARTS = 5;
constexpr TimeNs START_PATIENCE = 30 * SECOND;
constexpr int LOOK_MS = 20;

/// The session in the line that tells that all its ports listen.
std::optional<uint32_t> session_in(const std::string& line) {
  if (!line.starts_with("[quorl] DEEP/IEX-TP ")) return std::nullopt;
  static const std::regex pattern("session ([0-9]{1,10}), gap fill");
  std::smatch match;
  if (!std::regex_search(line, match, pattern)) return std::nullopt;
  return static_cast<uint32_t>(std::stoull(match[1].str()));
}

bool tells_of_taken_port(const std::string& line) {
  return line.starts_with("quorl: cannot listen on ") || line.starts_with("quorl: control port") ||
         line.starts_with("quorl: gap-fill port");
}

struct Beginning {
  std::vector<std::string> lines;
  std::optional<uint32_t> session;
  bool port_taken = false;
};

void read_lines(ExchangeProcess& exchange, Beginning& beginning) {
  for (std::string& line : exchange.take_lines()) {
    if (!beginning.session) beginning.session = session_in(line);
    beginning.port_taken = beginning.port_taken || tells_of_taken_port(line);
    beginning.lines.push_back(std::move(line));
  }
}

[[noreturn]] void fail(std::string why, const Beginning& beginning) {
  for (const std::string& line : beginning.lines) why += "; " + line;
  throw RunBroken(why);
}

Beginning await_service(ExchangeProcess& exchange, int stop) {
  Beginning beginning;
  const TimeNs deadline = now_ns() + START_PATIENCE;
  while (now_ns() < deadline) {
    pollfd set[] = {{stop, POLLIN, 0}, {exchange.fd(), POLLIN, 0}};
    (void)::poll(set, 2, LOOK_MS);
    if (set[0].revents != 0) throw RunBroken("stopped by a signal before it began");
    read_lines(exchange, beginning);
    if (beginning.session || beginning.port_taken) return beginning;
    if (exchange.fd() >= 0) continue;
    if (const auto end = exchange.poll_exit()) {
      fail("the exchange did not start (" + end->describe() + ")", beginning);
    }
  }
  fail("the exchange does not serve within 30 s", beginning);
}

/// A start that failed has been heard: its opening stands in the truth files.
void empty_truth(const std::string& folder) {
  std::error_code failed;
  std::filesystem::remove_all(folder + "/truth", failed);
  std::filesystem::create_directory(folder + "/truth", failed);
  if (failed) throw RunBroken("cannot make " + folder + "/truth: " + failed.message());
}

}  // namespace

ServingExchange serve_exchange(const ExchangeProcess::Command& command, int stop,
                               const std::function<void(const client::Ports& ports)>& before_start,
                               const std::function<void(const std::string& line)>& said) {
  std::vector<std::unique_ptr<ExchangeProcess>> spoilt;  // their ports stay claimed meanwhile
  for (unsigned i = 0; i < MOST_STARTS; ++i) {
    empty_truth(command.folder);
    auto exchange = std::make_unique<ExchangeProcess>(command);
    before_start(exchange->ports());
    exchange->start();
    const Beginning beginning = await_service(*exchange, stop);
    if (beginning.session && !beginning.port_taken) {
      for (const std::string& line : beginning.lines) said(line);
      return {std::move(exchange), *beginning.session};
    }
    exchange->kill();
    spoilt.push_back(std::move(exchange));
  }
  throw RunBroken("the ports of the exchange are taken, whichever are chosen");
}

}  // namespace certify
