// A FIX session by hand: each line typed is an order or a request, each message is shown as it
// stands on the wire, with '|' for its separators.
//
//   quorl-trade [CompID [port]]
//
//   buy AAPL 100 190.05      a limit order; without a price, a market order
//   sell AAPL 100 190.05
//   cancel ID                ID as the order's tag 11
//   replace ID 200 190.01
//   resend FROM TO           ask for what was missed; TO 0 is "all there is"
//   quit

#include <poll.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <map>
#include <sstream>
#include <string>

#include "quorl/client/fix_message.h"
#include "quorl/client/fix_session.h"
#include "tools/command_line.h"

namespace client = quorl::client;

namespace {

constexpr std::chrono::milliseconds A_MOMENT{100};

class Trader {
 public:
  Trader(const std::string& comp_id, uint16_t port) : session_(port, comp_id) {
    session_.continuity = client::Continuity::UNCHECKED;
    // A new number line, so that the tool can be started as often as one likes.
    session_.logon({.heartbeat_s = "30", .reset = true});
    std::printf("< %s\n", session_.received().back().text().c_str());
  }

  /// False once the session has ended.
  bool show_what_came() {
    while (const auto message = session_.receive(A_MOMENT)) {
      if (message->type() == "0") {
        session_.heartbeat();
      } else {
        std::printf("< %s\n", message->text().c_str());
      }
    }
    std::fflush(stdout);
    return session_.connected();
  }

  /// False for "quit".
  bool obey(const std::string& line) {
    std::istringstream words(line);
    std::string verb;
    std::string first;
    std::string second;
    std::string third;
    words >> verb >> first >> second >> third;
    if (verb == "quit") return false;
    if (verb == "buy" || verb == "sell") {
      place(verb == "buy" ? "1" : "2", first, second, third);
    } else if (verb == "cancel") {
      session_.cancel({.cl_ord_id = next_id(),
                       .orig_cl_ord_id = first,
                       .symbol = orders_[first].symbol,
                       .side = orders_[first].side});
    } else if (verb == "replace") {
      replace(first, second, third);
    } else if (verb == "resend") {
      session_.resend_request(first, second);
    } else if (!verb.empty()) {
      std::printf(
          "buy SYMBOL QTY [PRICE] | sell SYMBOL QTY [PRICE] | cancel ID | "
          "replace ID QTY PRICE | resend FROM TO | quit\n");
    }
    return true;
  }

  void log_out() {
    if (session_.connected()) session_.logout();
  }

 private:
  void place(const std::string& side, const std::string& symbol, const std::string& quantity,
             const std::string& price) {
    const std::string id = next_id();
    orders_[id] = {.symbol = symbol, .side = side};
    session_.new_order({.cl_ord_id = id,
                        .symbol = symbol,
                        .side = side,
                        .quantity = quantity,
                        .type = price.empty() ? "1" : "2",
                        .price = price});
  }

  void replace(const std::string& orig, const std::string& quantity, const std::string& price) {
    const std::string id = next_id();
    orders_[id] = orders_[orig];
    session_.replace({.cl_ord_id = id,
                      .orig_cl_ord_id = orig,
                      .symbol = orders_[orig].symbol,
                      .side = orders_[orig].side,
                      .quantity = quantity,
                      .price = price});
  }

  std::string next_id() { return "o" + std::to_string(++ids_); }

  client::FixSession session_;
  std::map<std::string, client::NewOrder> orders_;  // symbol and side of what was sent
  unsigned ids_ = 0;
};

bool line_waits() {
  pollfd input{STDIN_FILENO, POLLIN, 0};
  return std::cin.rdbuf()->in_avail() > 0 || ::poll(&input, 1, 0) > 0;
}

}  // namespace

int main(int argc, char** argv) {
  tools::CommandLine options("quorl-trade",
                             "A FIX session by hand with an exchange on this machine.");
  std::string comp_id = "TRADER";
  uint16_t port = 28500;
  options.add_option("CompID", comp_id, "The session's SenderCompID")->capture_default_str();
  tools::add_port(options, "port", port, "TCP port of FIX");
  if (const auto status = options.read(argc, argv)) return *status;
  try {
    Trader trader(comp_id, port);
    std::string line;
    while (trader.show_what_came()) {
      if (!line_waits()) continue;
      if (!std::getline(std::cin, line) || !trader.obey(line)) break;
    }
    trader.show_what_came();
    trader.log_out();
    return tools::GOOD;
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "quorl-trade: %s\n", failure.what());
    return tools::SAID_NO;
  }
}
