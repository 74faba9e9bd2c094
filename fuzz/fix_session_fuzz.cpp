#include <fcntl.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "base/clocks.h"
#include "bench/control_port.h"
#include "closed_exchange.h"
#include "fix/session.h"
#include "support/test_clock.h"

// A whole day of an exchange in text, one event a line. A message is its fields, "|" for SOH, and
// is framed with a right length and checksum, so that what the fuzzer invents reaches the handlers
// behind the codec. The first byte of a line says if it is something else:
//   $  the script of misbehaviours as in QUORL_SCENARIO, in place of the usual one; only as the
//      very first line
//   #  a remark
//   ~  so many times 100 ms pass as the line has bytes, and then a turn of the market
//   @  a command to the control port; "stop" is answered and no more
//   !  bytes to send as they stand
//   +  another client connects; what follows is said on its connection
//   -  the latest client hangs up; the one before it goes on

namespace quorl {
namespace {

constexpr char SOH_BYTE = '\x01';
constexpr size_t MOST_LINES = 40;
constexpr std::string_view USUAL_SCRIPT =  // each behaviour fires now and then
    "reject_every=5,partial_fill_every=3,fill_on_cancel_every=3,unsolicited_cancel_every=3,"
    "replace_reject_every=4";

std::string with_soh(std::string_view line) {
  std::string message(line);
  std::replace(message.begin(), message.end(), '|', SOH_BYTE);
  return message;
}

std::string framed(std::string_view line) {
  const std::string body = with_soh(line) + SOH_BYTE;
  std::string frame = with_soh("8=FIX.4.2|9=" + std::to_string(body.size()) + "|") + body;
  unsigned sum = 0;
  for (const char c : frame) sum += static_cast<unsigned char>(c);
  const std::string digits = std::to_string(1000 + sum % 256);
  return frame + "10=" + digits.substr(1) + SOH_BYTE;
}

/// A listener without a name in any file system; connections to it cannot leave the machine.
class Listener {
 public:
  Listener() : fd_(::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0)) {
    address_.sun_family = AF_UNIX;
    size_ = sizeof address_.sun_family;
    if (::bind(fd_, generic(), size_) != 0) std::abort();  // the system picks the name
    size_ = sizeof address_;
    if (::getsockname(fd_, generic(), &size_) != 0 || ::listen(fd_, 1) != 0) std::abort();
  }
  Listener(const Listener&) = delete;
  Listener& operator=(const Listener&) = delete;
  ~Listener() { ::close(fd_); }

  int fd() const { return fd_; }
  int connect() {
    const int peer = ::socket(AF_UNIX, SOCK_STREAM, 0);
    if (::connect(peer, generic(), size_) != 0) std::abort();
    ::fcntl(peer, F_SETFL, O_NONBLOCK);
    return peer;
  }

 private:
  sockaddr* generic() { return reinterpret_cast<sockaddr*>(&address_); }

  sockaddr_un address_{};
  socklen_t size_ = 0;
  int fd_;
};

constexpr const char* NOWHERE = "/dev/null";

/// Null for a script with a malformed number, which ends the program. All else that the opening
/// reads is the same each time. The truth of what happens is written, and read by nobody.
std::unique_ptr<fuzz::ClosedExchange> open_exchange(std::string_view script) {
  static const int truth_asked_for = ::setenv("BENCH_ORDER_TRUTH", NOWHERE, 1);
  if (truth_asked_for != 0) std::abort();
  const fuzz::ScenarioVariable variable(script);
  RunConfig config;
  config.symbols = "A:10";
  try {
    auto exchange = fuzz::open_exchange(config);
    exchange->engine.truth.open_for_appending(NOWHERE);
    return exchange;
  } catch (const std::logic_error&) {  // as std::stoi and std::stoul report both
    return nullptr;
  }
}

class Conversation {
 public:
  explicit Conversation(std::unique_ptr<fuzz::ClosedExchange> exchange)
      : exchange_(std::move(exchange)), gateway_(exchange_->engine, exchange_->clients, true) {
    connect();
  }
  Conversation(const Conversation&) = delete;
  Conversation& operator=(const Conversation&) = delete;
  ~Conversation() {
    while (!peers_.empty()) hang_up();
  }

  void takes_place(std::string_view line) {
    const std::string_view rest = line.substr(std::min<size_t>(line.size(), 1));
    switch (line.empty() ? '\0' : line.front()) {
      case '#':
        return;
      case '~':
        test::advance_ms(100 * line.size());
        return pass_a_turn();
      case '@':
        return command(rest);
      case '!':
        return say(with_soh(rest));
      case '+':
        return connect();
      case '-':
        return hang_up();
      default:
        return say(framed(line));
    }
  }

 private:
  void connect() {
    static Listener listener;
    peers_.push_back(listener.connect());
    gateway_.accept_clients(listener.fd());
  }

  void hang_up() {
    if (peers_.empty()) return;
    ::close(peers_.back());
    peers_.pop_back();
    gateway_.serve_clients(scratch_);  // the exchange closes its end
  }

  void command(std::string_view line) {
    run_control_command(
        line, {exchange_->engine, exchange_->config.interval_ms, gateway_.any_logged_on()});
  }

  /// What is said before the next turn of the market came in one turn of the exchange: the reports
  /// that it owes to others wait until then.
  void say(const std::string& bytes) {
    if (peers_.empty()) return;
    [[maybe_unused]] const auto sent =
        ::send(peers_.back(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
    gateway_.serve_clients(scratch_);
    exchange_->engine.publisher->flush_if_pending();
    hear();
  }

  void pass_a_turn() {
    Engine& engine = exchange_->engine;
    engine.walk_tick();
    engine.fire_unsolicited();
    engine.publisher->flush_if_pending();
    for (const auto& [index, message] : engine.drain_deferred()) {
      gateway_.send_gated(exchange_->clients[index], message);
    }
    gateway_.run_timers(steady_ms());
    gateway_.forget_closed_clients();
    hear();
  }

  void hear() {
    for (const int peer : peers_) {
      while (::recv(peer, heard_.data(), heard_.size(), 0) > 0) {
      }
    }
  }

  std::unique_ptr<fuzz::ClosedExchange> exchange_;
  FixGateway gateway_;
  std::vector<int> peers_;  // the clients' ends, in order of connecting
  std::array<char, 65536> scratch_;
  std::array<char, 65536> heard_;
};

}  // namespace
}  // namespace quorl

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace quorl;
  test::reset_clocks();
  std::string_view rest = fuzz::text_of(data, size);
  std::string_view script = USUAL_SCRIPT;
  if (rest.starts_with('$')) script = fuzz::take_until(rest, '\n').substr(1);
  auto exchange = open_exchange(script);
  if (exchange == nullptr) return 0;

  Conversation conversation(std::move(exchange));
  for (size_t lines = 0; lines < MOST_LINES && !rest.empty(); ++lines) {
    conversation.takes_place(fuzz::take_until(rest, '\n'));
  }
  return 0;
}
