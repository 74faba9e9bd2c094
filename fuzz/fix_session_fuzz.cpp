#include <fcntl.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <string>
#include <string_view>

#include "closed_exchange.h"
#include "driver/clocks.h"
#include "fix/session.h"
#include "support/test_clock.h"

// A whole session in text, one message a line, "|" for SOH: each line is framed with a right
// length and checksum, so that what the fuzzer invents reaches the handlers behind the codec. A
// line that begins with "!" arrives unframed, one that begins with "~" lets so many times 100 ms
// pass as it has bytes.

namespace quorl {
namespace {

constexpr char SOH_BYTE = '\x01';
constexpr size_t MOST_LINES = 40;

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

class Conversation {
 public:
  Conversation()
      : exchange_(open_exchange()),
        gateway_(exchange_->engine, exchange_->clients, exchange_->silence_announced, true) {
    static Listener listener;
    peer_ = listener.connect();
    gateway_.accept_clients(listener.fd());
  }
  Conversation(const Conversation&) = delete;
  Conversation& operator=(const Conversation&) = delete;
  ~Conversation() {
    ::close(peer_);
    gateway_.serve_clients(scratch_);  // the exchange closes its end
  }

  void takes_place(std::string_view line) {
    if (line.starts_with('~')) {
      test::advance_ms(100 * line.size());
      pass_a_turn();
    } else if (line.starts_with('!')) {
      say(with_soh(line.substr(1)));
    } else {
      say(framed(line));
    }
  }

 private:
  static std::unique_ptr<fuzz::ClosedExchange> open_exchange() {
    RunConfig config;
    config.symbols = "A:10";
    auto exchange = fuzz::open_exchange(config);
    Scenario& scenario = exchange->scenario;  // every script fires now and then
    scenario.reject_every = 5;
    scenario.partial_fill_every = 3;
    scenario.fill_on_cancel_every = 3;
    scenario.unsolicited_cancel_every = 3;
    scenario.replace_reject_every = 4;
    return exchange;
  }

  void say(const std::string& bytes) {
    [[maybe_unused]] const auto sent = ::send(peer_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    gateway_.serve_clients(scratch_);
    exchange_->engine.publisher->flush_if_pending();
    hear();
  }

  void pass_a_turn() {
    Engine& engine = exchange_->engine;
    engine.walk_tick();
    engine.fire_unsolicited(exchange_->clients);
    engine.publisher->flush_if_pending();
    for (const auto& [index, message] : engine.drain_deferred(exchange_->clients)) {
      gateway_.send_gated(exchange_->clients[index], message);
    }
    gateway_.run_timers(steady_ms());
    hear();
  }

  void hear() {
    while (::recv(peer_, heard_.data(), heard_.size(), 0) > 0) {
    }
  }

  std::unique_ptr<fuzz::ClosedExchange> exchange_;
  FixGateway gateway_;
  int peer_ = -1;
  std::array<char, 65536> scratch_;
  std::array<char, 65536> heard_;
};

}  // namespace
}  // namespace quorl

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  quorl::test::reset_clocks();
  quorl::Conversation conversation;
  std::string_view rest = quorl::fuzz::text_of(data, size);
  for (size_t lines = 0; lines < quorl::MOST_LINES && !rest.empty(); ++lines) {
    conversation.takes_place(quorl::fuzz::take_until(rest, '\n'));
  }
  return 0;
}
