#include "tools/ladder/program.h"

#include <poll.h>

#include <csignal>
#include <cstddef>
#include <cstdint>
#include <utility>

#include "quorl/client/control_client.h"
#include "quorl/client/deadline.h"
#include "quorl/client/errors.h"
#include "tools/ladder/desk.h"
#include "tools/ladder/follower.h"
#include "tools/ladder/terminal.h"
#include "tools/ladder/view.h"

namespace ladder {
namespace {

namespace client = quorl::client;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr milliseconds FRAME{100};      // from one picture to the next, unless a key comes
constexpr unsigned MOST_REPLIES = 100;  // taken at a time: the keys must not wait

/// The desk and the socket to the control port. Nothing here waits.
class ControlLink {
 public:
  explicit ControlLink(uint16_t port) : port_(port), desk_("127.0.0.1:" + std::to_string(port)) {}

  const Desk& desk() const { return desk_; }

  void press(char key) { send(desk_.press(key, steady_clock::now())); }

  void turn() {
    for (unsigned i = 0; i < MOST_REPLIES && take_reply(); ++i) {
    }
    send(desk_.due(steady_clock::now()));
  }

 private:
  void send(const std::vector<std::string>& datagrams) {
    for (const std::string& datagram : datagrams) port_.send(datagram);
  }

  /// False if none is there.
  bool take_reply() {
    try {
      const auto reply = port_.receive(milliseconds(0));
      if (reply) desk_.heard(*reply, steady_clock::now());
      return reply.has_value();
    } catch (const client::WireError&) {
      return true;  // of somebody else, who is nobody's business here
    }
  }

  client::ControlClient port_;
  Desk desk_;
};

uint64_t system_ns() {
  return static_cast<uint64_t>(std::chrono::duration_cast<std::chrono::nanoseconds>(
                                   std::chrono::system_clock::now().time_since_epoch())
                                   .count());
}

volatile std::sig_atomic_t ended_by_signal = 0;

void note_signal(int number) { ended_by_signal = number; }

void catch_signals() {
  struct sigaction action {};
  action.sa_handler = note_signal;  // no SA_RESTART: the wait for a key ends
  for (const int number : {SIGINT, SIGTERM, SIGHUP}) ::sigaction(number, &action, nullptr);
}

}  // namespace

class Program::Parts {
 public:
  explicit Parts(Settings settings) : settings_(std::move(settings)), follower_(settings_.ports) {
    if (settings_.ports.control != 0) control_.emplace(settings_.ports.control);
  }

  void run_on_terminal(bool colours) {
    catch_signals();
    Terminal terminal(colours);
    while (ended_by_signal == 0) {
      if (control_) control_->turn();
      terminal.show(picture(terminal.rows(), terminal.columns()));
      const auto key = terminal.key(FRAME);
      if (key && !obey(*key)) return;
    }
  }

  std::optional<std::string> once(std::chrono::seconds patience) {
    if (!follower_.await_in_step(client::Deadline::after(patience))) return std::nullopt;
    const auto answered = client::Deadline::after(Desk::ANSWER_TIME);
    while (control_ && !control_->desk().stats() && !answered.expired()) {
      control_->turn();
      (void)::poll(nullptr, 0, 1);
    }
    return picture(LEAST_ROWS, LEAST_COLUMNS).text(locale_is_ascii());
  }

  std::string feed_text() const {
    return settings_.ports.group + ":" + std::to_string(settings_.ports.feed);
  }

  std::string trouble() const {
    std::string text;
    follower_.look([&text](const Market&, const Health& health) { text = health.trouble; });
    return text;
  }

 private:
  Grid picture(size_t rows, size_t columns) const {
    Grid grid(0, 0);
    follower_.look([&](const Market& market, const Health& health) {
      grid = draw({.market = market,
                   .health = health,
                   .desk = control_ ? &control_->desk() : nullptr,
                   .feed = feed_text(),
                   .filter = settings_.symbols,
                   .first_symbol = first_symbol_,
                   .help = help_,
                   .now_ns = system_ns(),
                   .now = steady_clock::now()},
                  rows, columns);
    });
    return grid;
  }

  /// False for the key that ends it.
  bool obey(int key) {
    if (key == 'q') return false;
    if (key == static_cast<int>(Key::RESIZED)) return true;
    if (std::exchange(help_, false)) return true;
    if (key == '?') help_ = true;
    if (key == static_cast<int>(Key::TAB)) turn_symbols(1);
    if (key == static_cast<int>(Key::BACK_TAB)) turn_symbols(-1);
    if (control_ && key < 128) control_->press(static_cast<char>(key));
    return true;
  }

  void turn_symbols(int by) {
    size_t count = 0;
    follower_.look([&](const Market& market, const Health&) {
      count = chosen_symbols(market, settings_.symbols).size();
    });
    if (count > 0) first_symbol_ = (first_symbol_ + (by > 0 ? 1 : count - 1)) % count;
  }

  Settings settings_;
  Follower follower_;
  std::optional<ControlLink> control_;
  size_t first_symbol_ = 0;
  bool help_ = false;
};

Program::Program(Settings settings) : parts_(std::make_unique<Parts>(std::move(settings))) {}
Program::~Program() = default;

void Program::run_on_terminal(bool colours) { parts_->run_on_terminal(colours); }

std::optional<std::string> Program::once(std::chrono::seconds patience) {
  return parts_->once(patience);
}

std::string Program::feed_text() const { return parts_->feed_text(); }
std::string Program::trouble() const { return parts_->trouble(); }

}  // namespace ladder
