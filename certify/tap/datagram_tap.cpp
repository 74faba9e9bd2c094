#include "certify/tap/datagram_tap.h"

#include <algorithm>
#include <cerrno>
#include <string>
#include <vector>

namespace certify {
namespace {

constexpr size_t MOST_SOCKETS = 64;
/// Whoever sends faster than can be passed on must not hold up the other taps.
constexpr int MOST_DATAGRAMS_AT_ONCE = 64;
constexpr TimeNs NEXT_TRY = MILLISECOND;

}  // namespace

DatagramTap::DatagramTap(uint16_t exchange_port, uint16_t wanted, TapContext& context)
    : exchange_port_(exchange_port), context_(context), listening_(bound_datagram_socket(wanted)) {
  (void)context_.poller.add(listening_, ReadySocket::Place::LISTENING, {Service::GAP_FILL, 0});
}

void DatagramTap::on_ready(const ReadySocket& socket) {
  if (!socket.readable) return;
  if (socket.place == ReadySocket::Place::LISTENING) {
    requests_wait_ = true;
  } else if (sockets_.contains(socket.number)) {
    replies_wait_.insert(socket.number);
  }
}

void DatagramTap::serve() {
  take_requests();
  hand(Party::CLIENT);
  take_replies();
  hand(Party::EXCHANGE);
}

void DatagramTap::take_requests() {
  for (int i = 0; i < MOST_DATAGRAMS_AT_ONCE && requests_wait_ && requests_.has_room(); ++i) {
    const Received got = receive(listening_, context_.buffer.data(), context_.buffer.size());
    if (got.size >= 0) {
      take(Party::CLIENT, number_of(got.from), got);
    } else if (errno == EAGAIN) {
      requests_wait_ = false;
    }  // else the news that an earlier reply found nobody
  }
}

void DatagramTap::take_replies() {
  const std::vector<uint32_t> waiting(replies_wait_.begin(), replies_wait_.end());
  for (const uint32_t number : waiting) take_replies_of(number);
}

void DatagramTap::take_replies_of(uint32_t number) {
  const auto socket = sockets_.find(number);
  bool more = socket != sockets_.end();
  for (int i = 0; i < MOST_DATAGRAMS_AT_ONCE && more && replies_.has_room(); ++i) {
    const Received got =
        receive(socket->second.to_exchange, context_.buffer.data(), context_.buffer.size());
    if (got.size >= 0) {
      take(Party::EXCHANGE, number, got);
    } else if (errno == EAGAIN) {
      more = false;
    }  // else the news that an earlier request found nobody
  }
  if (!more) replies_wait_.erase(number);
}

/// The number of the client's socket, 0 if the system has none left for it.
uint32_t DatagramTap::number_of(const sockaddr_in& client) {
  const Address address{client.sin_addr.s_addr, client.sin_port};
  const auto known = numbers_.find(address);
  if (known != numbers_.end()) return known->second;
  if (sockets_.size() >= MOST_SOCKETS) give_up_oldest();
  Descriptor to_exchange = datagram_socket_to(exchange_port_);
  const Line line{Service::GAP_FILL, last_number_ + 1};
  if (!to_exchange.open() ||
      !context_.poller.add(to_exchange, ReadySocket::Place::EXCHANGE, line)) {
    return 0;
  }
  ++last_number_;
  numbers_.emplace(address, line.number);
  sockets_.emplace(line.number, Socket{client, std::move(to_exchange)});
  context_.listener.on_opened(line, true, context_.now);
  return line.number;
}

void DatagramTap::give_up_oldest() {
  const auto oldest = std::min_element(
      sockets_.begin(), sockets_.end(),
      [](const auto& left, const auto& right) { return left.second.spoke < right.second.spoke; });
  const sockaddr_in& client = oldest->second.client;
  numbers_.erase({client.sin_addr.s_addr, client.sin_port});
  replies_wait_.erase(oldest->first);
  sockets_.erase(oldest);
}

void DatagramTap::take(Party from, uint32_t number, const Received& got) {
  if (number == 0) {
    context_.listener.on_link("gap fill: no descriptor left, a request is lost", context_.now);
    return;
  }
  const TimeNs now = context_.now;
  const std::string_view bytes(context_.buffer.data(), static_cast<size_t>(got.size));
  sockets_.at(number).spoke = ++datagrams_;
  if (from == Party::CLIENT) {
    context_.listener.on_passed({.line = {Service::GAP_FILL, number},
                                 .from = from,
                                 .bytes = bytes,
                                 .taken = now,
                                 .told = now});
  }
  if (link(from).loses()) return tell_lost(from, number, 1);
  const bool measured = pipe(from).empty() && link(from).plain(now);
  pipe(from).put({.bytes = std::string(bytes),
                  .owner = number,
                  .taken = now,
                  .due = now + link(from).draw_delay(context_.random),
                  .arrived = measured ? got.arrived : 0});
}

void DatagramTap::hand(Party from) {
  while (try_again_at_ <= context_.now && pipe(from).ready(link(from), context_.now)) {
    if (!hand_front(from)) return;
    pipe(from).drop_front(context_.now);
  }
}

/// False if the system takes no datagram at this moment. What fails for another reason is lost, as
/// on any network; a client or an exchange that is not there loses its own.
bool DatagramTap::hand_front(Party from) {
  const Pipe::Piece& piece = pipe(from).front();
  const auto socket = sockets_.find(piece.owner);
  if (socket == sockets_.end()) return true;
  const auto pass_on = [&] {
    return from == Party::CLIENT ? send(socket->second.to_exchange, piece.bytes)
                                 : send_to(listening_, piece.bytes, socket->second.client);
  };
  ssize_t sent = pass_on();
  if (sent < 0 && errno == ECONNREFUSED) sent = pass_on();  // that was about an earlier one
  if (sent < 0 && (errno == EAGAIN || errno == ENOBUFS)) {
    try_again_at_ = context_.now + NEXT_TRY;
    return false;
  }
  if (sent < 0) return true;
  if (piece.arrived != 0) context_.delay.add(DelayFigures::clock_ns() - piece.arrived);
  if (from == Party::EXCHANGE) {
    context_.listener.on_passed({.line = {Service::GAP_FILL, piece.owner},
                                 .from = from,
                                 .bytes = piece.bytes,
                                 .taken = piece.taken,
                                 .told = context_.now});
  }
  return true;
}

std::optional<TimeNs> DatagramTap::due() const {
  std::optional<TimeNs> first;
  const auto consider = [&first](std::optional<TimeNs> due) {
    if (due && (!first || *due < *first)) first = due;
  };
  if (requests_wait_ && requests_.has_room()) consider(context_.now);
  if (!replies_wait_.empty() && replies_.has_room()) consider(context_.now);
  if (!requests_.empty()) consider(requests_.next_due(links_.to_exchange, context_.now));
  if (!replies_.empty()) consider(replies_.next_due(links_.to_client, context_.now));
  if (first) first = std::max(*first, try_again_at_);
  consider(links_.stall_end());
  return first;
}

void DatagramTap::order(const LinkOrder& order) {
  for (const Party from : {Party::CLIENT, Party::EXCHANGE}) {
    if (!(from == Party::CLIENT ? order.to_exchange : order.to_client)) continue;
    (from == Party::CLIENT ? links_.to_exchange : links_.to_client).order(order, context_.now);
    if (order.kind == LinkOrder::Kind::CLEAR) pipe(from).forget_times();
    if (order.kind == LinkOrder::Kind::CUT) lose_all(from);
  }
}

void DatagramTap::cut() {
  lose_all(Party::CLIENT);
  lose_all(Party::EXCHANGE);
}

void DatagramTap::lose_all(Party from) {
  std::map<uint32_t, size_t> counts;
  while (!pipe(from).empty()) {
    ++counts[pipe(from).front().owner];
    pipe(from).drop_front(context_.now);
  }
  for (const auto& [number, count] : counts) tell_lost(from, number, count);
}

void DatagramTap::tell_lost(Party from, uint32_t number, size_t count) {
  const std::string what = from == Party::CLIENT ? "request" : "reply datagram";
  context_.listener.on_link(name_of({Service::GAP_FILL, number}) + ": " + std::to_string(count) +
                                " " + what + (count == 1 ? "" : "s") + " lost",
                            context_.now);
}

void DatagramTap::close() {
  requests_.clear();
  replies_.clear();
  replies_wait_.clear();
  numbers_.clear();
  sockets_.clear();
  requests_wait_ = false;
  listening_.close();
}

}  // namespace certify
