#include "tests/e2e/support/exchange.h"

#include <chrono>
#include <cmath>
#include <stdexcept>
#include <utility>

#include "tests/e2e/support/built.h"

namespace client = quorl::client;

namespace e2e {
namespace {

uint16_t control_port_of_started(client::Simulator& simulator, client::FeedSubscriber& feed) {
  simulator.start();
  feed.expect_session(simulator.session());
  return simulator.ports().control;
}

}  // namespace

client::SimulatorOptions living(std::vector<std::string> arguments) {
  client::SimulatorOptions options;
  options.binary = built_program("quorl");
  options.arguments = std::move(arguments);
  return options;
}

client::SimulatorOptions still(std::vector<std::string> arguments) {
  client::SimulatorOptions options = living(client::still_market());
  options.arguments.insert(options.arguments.end(), arguments.begin(), arguments.end());
  return options;
}

uint64_t system_ns() {
  return static_cast<uint64_t>(std::chrono::duration_cast<std::chrono::nanoseconds>(
                                   std::chrono::system_clock::now().time_since_epoch())
                                   .count());
}

std::string symbols(unsigned count) {
  std::string text;
  for (unsigned i = 1; i <= count; ++i) text += "S" + std::to_string(i) + ":50,";
  text.pop_back();
  return text;
}

client::Price4 to_price4(const std::string& text) { return std::llround(std::stod(text) * 10000); }

Exchange::Exchange(client::SimulatorOptions options)
    : simulator_(std::move(options)),
      feed_(simulator_.ports().group, simulator_.ports().feed),
      control_(control_port_of_started(simulator_, feed_)) {
  (void)control_.stats();
}

client::FixSession Exchange::session(const std::string& comp_id) const {
  return client::FixSession(ports().fix, comp_id);
}

client::FixSession Exchange::logs_on(const std::string& comp_id,
                                     const client::LogonOptions& options) const {
  client::FixSession session(ports().fix, comp_id);
  session.logon(options);
  return session;
}

/// An empty datagram ends the service of the control port for one turn, so the answer to what
/// stands behind it comes from a turn that began when all else had been read.
client::ControlStats Exchange::turn() {
  control_.send("");
  return control_.stats();
}

const client::BookBuilder& Exchange::book() {
  feed_.await_seq(turn().next_seq - 1);
  for (; applied_ < feed_.messages().size(); ++applied_) {
    book_.apply(feed_.messages()[applied_].message);
  }
  return book_;
}

const client::SymbolBook& Exchange::book(const std::string& symbol) { return book().book(symbol); }

size_t Exchange::settle_lines() {
  (void)turn();
  const std::string label = "settled-" + std::to_string(++marks_);
  control_.ok("mark " + label);
  simulator_.wait_for_line("bench: mark " + label + " at seq ");
  return simulator_.line_count();
}

size_t Exchange::count_lines(const std::string& text) {
  (void)settle_lines();
  return simulator_.count_lines(text);
}

uint64_t Exchange::counter(const std::string& name) { return turn()[name]; }

void Exchange::empty_book(const std::string& symbol) {
  client::FixSession sweeper = session("SWEEPER");
  sweeper.logon({.reset = true});
  for (const char* side : {"1", "2"}) {
    sweeper.new_order({.cl_ord_id = std::string("sweep") + side,
                       .symbol = symbol,
                       .side = side,
                       .quantity = "10000000",
                       .type = "1"});
    while (sweeper.hears("35=8").get(150) != "4") {
    }
  }
  sweeper.logout();
  (void)book();
  told_ = feed_.messages().size();
}

std::vector<std::string> Exchange::news() {
  (void)book();
  std::vector<std::string> lines = feed_.described(told_);
  told_ = feed_.messages().size();
  return lines;
}

client::Price4 best_bid(const client::SymbolBook& book) {
  if (book.bids.empty()) throw std::logic_error("no bids");
  return book.bids.begin()->first;
}

client::Price4 best_ask(const client::SymbolBook& book) {
  if (book.asks.empty()) throw std::logic_error("no asks");
  return book.asks.begin()->first;
}

}  // namespace e2e
