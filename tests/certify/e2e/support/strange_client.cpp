// Clients that no exchange deserves, and one that trades a lot: strange_client WAY [NUMBER], with
// the exchange's ports in the environment, as quorl-certify gives them.
#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <cstdlib>
#include <functional>
#include <iostream>
#include <map>
#include <string>

#include "quorl/client/bytes.h"
#include "quorl/client/control_client.h"
#include "quorl/client/deadline.h"
#include "quorl/client/errors.h"
#include "quorl/client/fix_session.h"
#include "quorl/client/tcp.h"

namespace client = quorl::client;

namespace {

constexpr std::chrono::seconds PATIENCE{60};

uint16_t port_in(const char* variable) {
  return static_cast<uint16_t>(std::atoi(std::getenv(variable)));
}
uint16_t fix_port() { return port_in("QUORL_FIX_PORT"); }

/// Until a signal ends the program.
[[noreturn]] void stay() {
  for (;;) ::pause();
}

/// Ends once all of it has arrived.
void garbage(unsigned) {
  client::TcpStream stream = client::TcpStream::connect(fix_port());
  std::string noise;
  for (unsigned i = 0; i < 200'000; ++i) noise += static_cast<char>(i * 2654435761U >> 13);
  stream.send_all(client::to_bytes(noise + "8=FIX.4.2\x01" + "9=5\x01" + "35=?\x01" + noise));
  stream.shutdown_write();
  (void)stream.receive_to_end(client::Deadline::after(PATIENCE));
}

void no_logon(unsigned) {
  client::FixSession session(fix_port(), "STRANGE");
  session.connect();
  stay();
}

/// It is there, and does not end by a SIGTERM.
void stubborn(unsigned) {
  ::signal(SIGTERM, SIG_IGN);
  client::FixSession session(fix_port(), "STRANGE");
  session.connect();
  stay();
}

void close_at_once(unsigned times) {
  for (unsigned i = 0; i < times; ++i) {
    client::FixSession session(fix_port(), "STRANGE");
    session.connect();
    session.disconnect();
  }
}

client::NewOrder order(unsigned number) {
  return {.cl_ord_id = "s" + std::to_string(number), .price = "150.00"};
}

void never_reads(unsigned orders) {
  client::FixSession session(fix_port(), "STRANGE");
  session.connect();
  session.send_message("A", {{98, "0"}, {108, "30"}, {141, "Y"}});
  for (unsigned i = 1; i <= orders; ++i) session.new_order(order(i));
  stay();
}

/// Orders as fast as they can be sent, until each is accepted, then a Logout. Some may be filled.
void flood(unsigned orders) {
  client::FixSession session(fix_port(), "STRANGE");
  session.connect();
  session.logon({.heartbeat_s = "30", .reset = true});
  constexpr unsigned ON_THEIR_WAY = 500;
  unsigned accepted = 0;
  for (unsigned i = 1; i <= orders; ++i) {
    session.new_order(order(i));
    while (i - accepted >= ON_THEIR_WAY || (i == orders && accepted < orders)) {
      if (session.next(PATIENCE).find(150) == "0") ++accepted;
    }
  }
  session.send_message("5", {});
  while (session.next(PATIENCE).type() != "5") {
  }
  session.expect_closed();
}

/// The exchange is told to end by who has no business to.
void stop_exchange(unsigned) {
  client::ControlClient(port_in("QUORL_CONTROL_PORT")).send("stop");
  stay();
}

}  // namespace

int main(int argc, char** argv) {
  const std::map<std::string, std::function<void(unsigned)>> ways = {
      {"garbage", garbage},         {"no-logon", no_logon}, {"close-at-once", close_at_once},
      {"never-reads", never_reads}, {"flood", flood},       {"stop-exchange", stop_exchange},
      {"stubborn", stubborn}};
  ::signal(SIGPIPE, SIG_IGN);
  try {
    ways.at(argc > 1 ? argv[1] : "")(argc > 2 ? static_cast<unsigned>(std::atoi(argv[2])) : 0);
  } catch (const std::exception& failure) {
    std::cerr << failure.what() << '\n';
    return 1;
  }
  return 0;
}
