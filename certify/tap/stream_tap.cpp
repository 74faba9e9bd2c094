#include "certify/tap/stream_tap.h"

#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <string>
#include <utility>
#include <vector>

namespace certify {
namespace {

constexpr int MOST_TAKEN_AT_ONCE = 64;
constexpr TimeNs SHORTAGE_PAUSE = 50 * MILLISECOND;

bool is_shortage(int error) {
  return error == EMFILE || error == ENFILE || error == ENOBUFS || error == ENOMEM;
}

}  // namespace

StreamTap::StreamTap(Service service, uint16_t exchange_port, uint16_t wanted, TapContext& context)
    : service_(service),
      exchange_port_(exchange_port),
      context_(context),
      listening_(listening_socket(wanted)) {
  (void)context_.poller.add(listening_, ReadySocket::Place::LISTENING, {service_, 0});
}

void StreamTap::on_ready(const ReadySocket& socket) {
  if (socket.place == ReadySocket::Place::LISTENING) {
    connections_wait_ = true;
  } else if (const auto found = lines_.find(socket.number); found != lines_.end()) {
    found->second->on_ready(socket);
    busy_.insert(socket.number);
  }
}

void StreamTap::serve() {
  take_connections();
  for (auto next = busy_.begin(); next != busy_.end();) {
    const auto found = lines_.find(*next);
    StreamLine& line = *found->second;
    line.move();
    const bool over = line.over();
    next = over || !line.due() ? busy_.erase(next) : std::next(next);
    if (!over) continue;
    lines_.erase(found);
    take_again_at_ = 0;  // there are descriptors again
  }
}

void StreamTap::take_connections() {
  if (context_.now < take_again_at_) return;
  for (int i = 0; i < MOST_TAKEN_AT_ONCE && connections_wait_; ++i) {
    if (!spare_.open()) spare_ = stream_socket();
    if (!spare_.open()) return on_shortage();
    Descriptor client(::accept4(listening_.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
    if (client.open()) {
      open_line(std::move(client));
    } else if (is_shortage(errno)) {
      return on_shortage();
    } else if (errno == EAGAIN) {
      connections_wait_ = short_told_ = false;
    }  // else it was interrupted, or this one has gone again
  }
}

void StreamTap::on_shortage() {
  take_again_at_ = context_.now + SHORTAGE_PAUSE;
  if (std::exchange(short_told_, true)) return;
  context_.listener.on_link(
      std::string(name_of(service_)) + ": no descriptor left, connections wait", context_.now);
}

void StreamTap::open_line(Descriptor client) {
  const Line line{service_, ++last_number_};
  Descriptor exchange = std::exchange(spare_, Descriptor());
  prepare_stream(client);
  prepare_stream(exchange);
  // Connecting comes first: a socket that does nothing is told of as one that has ended.
  if (!begin_connect(exchange, exchange_port_) ||
      !context_.poller.add(client, ReadySocket::Place::CLIENT, line) ||
      !context_.poller.add(exchange, ReadySocket::Place::EXCHANGE, line)) {
    client.reset();
    context_.listener.on_opened(line, false, context_.now);
    return;
  }
  lines_.emplace(line.number, std::make_unique<StreamLine>(line, std::move(client),
                                                           std::move(exchange), context_, links_));
}

std::optional<TimeNs> StreamTap::due() const {
  std::optional<TimeNs> first = links_.stall_end();
  const auto consider = [&first](std::optional<TimeNs> due) {
    if (due && (!first || *due < *first)) first = due;
  };
  if (connections_wait_) consider(std::max(context_.now, take_again_at_));
  for (const uint32_t number : busy_) consider(lines_.at(number)->due());
  return first;
}

void StreamTap::order(const LinkOrder& order) {
  if (order.to_exchange) links_.to_exchange.order(order, context_.now);
  if (order.to_client) links_.to_client.order(order, context_.now);
  for (const auto& [number, line] : lines_) {
    const bool clear = order.kind == LinkOrder::Kind::CLEAR;
    if (clear && order.to_exchange) line->on_cleared(Party::CLIENT);
    if (clear && order.to_client) line->on_cleared(Party::EXCHANGE);
    busy_.insert(number);  // when it is due has changed
  }
}

void StreamTap::cut() {
  for (const auto& [number, line] : lines_) {
    line->cut();
    busy_.insert(number);
  }
}

void StreamTap::close() {
  for (const auto& [number, line] : lines_) line->close();
  busy_.clear();
  lines_.clear();
  connections_wait_ = false;
  listening_.close();
  spare_.close();
}

}  // namespace certify
