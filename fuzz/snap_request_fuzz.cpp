#include <algorithm>
#include <string>
#include <variant>
#include <vector>

#include "base/sockets.h"
#include "exchange_in_memory.h"
#include "feed/snap.h"
#include "quorl/client/snap_client.h"

// The bytes of one connection to the DEEP SNAP service, in two reads: the first byte says where
// they are cut. What comes back is read as a subscriber reads it.

namespace quorl {
namespace {

namespace client = quorl::client;
using fuzz::check;
using fuzz::ClosedExchange;
using fuzz::ExchangeInMemory;

constexpr uint16_t PORT = ExchangeInMemory::PORTS.snap;

void check_reply(const std::string& reply, const ClosedExchange& exchange) {
  if (reply.empty()) return;
  const client::Bytes bytes(reply.begin(), reply.end());
  const client::SnapReply read =
      client::decode_snap_reply(bytes, ExchangeInMemory::SESSION);  // or throws, uncaught
  const auto* const image = std::get_if<client::SnapImage>(&read);
  if (image == nullptr) return;
  check(image->seq == exchange.publisher.last_seq());
  check(image->symbols() == std::vector<std::string>{"A"});
}

void serve(const std::string& bytes, size_t cut) {
  // One for all, as no request changes it, and never closed: its own network is gone by then.
  static const auto* const in_memory = new ExchangeInMemory;
  ClosedExchange& exchange = *in_memory->exchange;
  day::reset_clock(1'700'000'100'000'000'000);
  day::Outputs outputs("");
  day::Network network(ExchangeInMemory::PORTS, outputs);
  const OwnedSocket listener(open_tcp_socket());
  check(bind_reusable(listener.fd, 0, PORT) && start_listening(listener.fd, 1));
  const size_t connection = network.connect(PORT);
  std::vector<SnapConnection> snaps;
  static std::vector<char> scratch(65536);
  const auto turn = [&] {
    serve_snap_connections(exchange.engine, snaps, scratch);
    outputs.end_turn();
  };
  accept_snap_connections(listener.fd, snaps);
  network.send(connection, bytes.substr(0, cut), outputs.turn());
  turn();
  network.send(connection, bytes.substr(cut), outputs.turn());
  turn();
  network.end(connection, /*reset=*/false, outputs.turn());
  turn();
  check(snaps.size() == 1 && snaps[0].fd < 0);  // it has seen the end
  check(network.misuses() == 0);
  std::string reply;
  for (const std::string& piece : network.take_received(connection)) reply += piece;
  check_reply(reply, exchange);
}

}  // namespace
}  // namespace quorl

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  const std::string bytes(quorl::fuzz::text_of(data + 1, size - 1));
  quorl::serve(bytes, std::min<size_t>(data[0], bytes.size()));
  return 0;
}
