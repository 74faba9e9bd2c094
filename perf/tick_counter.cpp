#include "perf/tick_counter.h"

#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstring>
#include <string_view>

#include "perf/load.h"
#include "quorl/client/iex_tp.h"

namespace client = quorl::client;

namespace perf {
namespace {

constexpr size_t SYMBOL_AT = 10;  // behind type, flags and time stamp, in every message of a book
constexpr size_t SYMBOL_SIZE = 8;

bool is_book_change(uint8_t type) { return type == '8' || type == '5' || type == 'T'; }

uint16_t u16_at(const uint8_t* bytes) { return static_cast<uint16_t>(bytes[0] | bytes[1] << 8); }

}  // namespace

std::string symbol_list(size_t count) {
  std::string list;
  for (size_t i = 0; i < count; ++i) {
    if (i != 0) list += ',';
    list += "S" + std::to_string(i) + ":190";
  }
  return list;
}

TickCounter::TickCounter(const client::Ports& ports, size_t symbols)
    : socket_(client::UdpSocket::in_group(ports.group, ports.feed)), last_symbol_(symbols - 1) {}

void TickCounter::drain() {
  std::array<uint8_t, client::TP_MAX_PACKET> packet;
  for (;;) {
    const ssize_t size = ::recv(socket_.fd(), packet.data(), packet.size(), MSG_DONTWAIT);
    if (size < 0) return;
    take({packet.data(), static_cast<size_t>(size)});
  }
}

void TickCounter::take(client::ByteView packet) {
  for (size_t at = client::TP_HEADER_SIZE; at + 2 < packet.size();) {
    const size_t message_size = u16_at(packet.data() + at);
    const uint8_t* const message = packet.data() + at + 2;
    at += 2 + message_size;
    if (at > packet.size()) throw WrongReply("a feed packet is cut short");
    if (message_size < SYMBOL_AT + SYMBOL_SIZE || !is_book_change(message[0])) continue;
    ++book_changes_;
    const char* const symbol = reinterpret_cast<const char*>(message + SYMBOL_AT);
    size_t number = 0;
    if (symbol[0] != 'S' ||
        std::from_chars(symbol + 1, symbol + SYMBOL_SIZE, number).ec != std::errc()) {
      throw WrongReply("a message of another symbol: " + std::string(symbol, SYMBOL_SIZE));
    }
    if (number == last_symbol_ && latest_symbol_ != last_symbol_) ++ticks_;
    latest_symbol_ = number;
  }
}

void TickCounter::await_ticks(uint64_t ticks, std::chrono::milliseconds patience) {
  // Counted in waits, so that a process that was halted for a while does not find it gone. The
  // feed's heartbeats end a wait, too, but bring no change of a book.
  const int wait_ms = static_cast<int>(std::min<int64_t>(patience.count(), 1000));
  int64_t silent_ms = 0;
  for (drain(); ticks_ < ticks; drain()) {
    if (silent_ms >= patience.count()) throw WrongReply("no tick came");
    const uint64_t before = book_changes_;
    pollfd ready{socket_.fd(), POLLIN, 0};
    ::poll(&ready, 1, wait_ms);
    drain();
    silent_ms = book_changes_ == before ? silent_ms + wait_ms : 0;
  }
}

}  // namespace perf
