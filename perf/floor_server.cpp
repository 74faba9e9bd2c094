// The floor: a server that makes only the system calls that an order must cost, and knows nothing
// of a market. It takes the exchange's place in front of the same load generator, and what the
// exchange costs more than this is the exchange's own work.
//
// A turn makes the calls of the exchange's turn: recvfrom on the control port if there is one,
// accept on both TCP ports, recv on each connection until nothing is left, recvfrom on the gap-fill
// port, poll. An order costs one sendto (its feed packet) and one send for each report; joining
// reports in one send is not open to the exchange, so it is not to the floor. All replies are ready
// before the first order: only MsgSeqNum, ClOrdID and the feed's stream offset are written over.
//
// What an order is answered with follows from two of its fields: a cancel is a cancel, an order
// that is immediate (59=3) takes the order that rested last, any other rests.

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "quorl/client/bytes.h"
#include "quorl/client/iex_tp.h"

namespace client = quorl::client;

namespace {

constexpr char SOH = '\x01';
constexpr size_t SEQ_WIDTH = 8;
constexpr size_t ID_WIDTH = 8;
constexpr size_t LENGTH_AT = 12;    // behind 8=FIX.4.2 SOH 9=
constexpr size_t TRAILER_SIZE = 7;  // 10=nnn SOH
constexpr int WAIT_MS = 5;

struct Options {
  std::string group;
  uint16_t feed_port = 0;
  uint16_t snap_port = 0;
  uint16_t gap_fill_port = 0;
  uint16_t fix_port = 0;
  uint16_t control_port = 0;
};

/// A message that is sent again and again with another MsgSeqNum and ClOrdID.
class ReadyReply {
 public:
  /// `body` with bars for SOH. "34=" and "11=" are followed by 8 places each.
  explicit ReadyReply(std::string body) {
    for (char& c : body) {
      if (c == '|') c = SOH;
    }
    bytes_ =
        "8=FIX.4.2\x01"
        "9=" +
        std::to_string(body.size()) + SOH + body + "10=000\x01";
    seq_at_ = bytes_.find(
                  "\x01"
                  "34=") +
              4;
    id_at_ = bytes_.find(
                 "\x01"
                 "11=") +
             4;
  }

  void send(int fd, uint32_t seq, const char* id) {
    char* const digits = bytes_.data() + seq_at_;
    for (size_t i = SEQ_WIDTH; i-- > 0; seq /= 10) digits[i] = static_cast<char>('0' + seq % 10);
    if (id != nullptr) std::memcpy(bytes_.data() + id_at_, id, ID_WIDTH);
    [[maybe_unused]] const ssize_t sent = ::send(fd, bytes_.data(), bytes_.size(), MSG_NOSIGNAL);
  }

 private:
  std::string bytes_;
  size_t seq_at_ = 0;
  size_t id_at_ = 0;
};

std::string report(const std::string& type, const std::string& liquidity) {
  std::string body =
      "35=8|34=00000000|49=IEXG|56=PERF|52=20260101-00:00:00.000|37=31165|11=R0000000|17=E34567|"
      "20=0|150=" +
      type + "|39=" + type + "|55=AAPL|54=1|38=100|18=i|40=2|47=P|59=0|";
  if (type == "4") body += "41=R0000000|";
  body += "44=185.25|32=0|31=0|151=100|14=0|6=0|60=20260101-00:00:00.000|";
  if (!liquidity.empty()) body += "30=IEXG|375=IEXG|382=1|851=" + liquidity + "|880=12345|9730=TL|";
  return body;
}

/// A packet of ready messages of these sizes.
class ReadyPacket {
 public:
  explicit ReadyPacket(std::initializer_list<size_t> message_sizes) {
    std::vector<client::Bytes> messages;
    for (const size_t size : message_sizes) messages.emplace_back(size, uint8_t{0});
    client::TpHeader header;
    header.version = 1;
    header.protocol_id = client::DEEP_PROTOCOL_ID;
    header.channel_id = client::DEEP_CHANNEL_ID;
    header.session_id = 1;
    header.first_seq = 1;
    header.send_time_ns = 1;
    bytes_ = client::encode_tp_packet(header, messages);
  }

  void send(int fd, const sockaddr_in& to, uint64_t& stream_offset) {
    constexpr size_t OFFSET_AT = 16;
    std::memcpy(bytes_.data() + OFFSET_AT, &stream_offset, sizeof stream_offset);
    stream_offset += bytes_.size() - client::TP_HEADER_SIZE;
    [[maybe_unused]] const ssize_t sent = ::sendto(
        fd, bytes_.data(), bytes_.size(), 0, reinterpret_cast<const sockaddr*>(&to), sizeof to);
  }

 private:
  client::Bytes bytes_;
};

struct Connection {
  int fd = -1;
  uint32_t next_out = 1;
  size_t filled = 0;
  std::array<char, 1 << 20> in;  // more than any burst
  std::array<char, ID_WIDTH> last_rested{};
  std::vector<std::array<char, ID_WIDTH>> deferred;  // orders whose fill is told at the turn's end
};

sockaddr_in address_of(in_addr_t address, uint16_t port) {
  sockaddr_in to{};
  to.sin_family = AF_INET;
  to.sin_port = htons(port);
  to.sin_addr.s_addr = address;
  return to;
}

/// Ends the program if the port cannot be had.
int open_bound(int type, in_addr_t address, uint16_t port) {
  const int fd = ::socket(AF_INET, type, 0);
  const int on = 1;
  ::setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  const sockaddr_in to = address_of(htonl(address), port);
  if (::bind(fd, reinterpret_cast<const sockaddr*>(&to), sizeof to) != 0 ||
      (type == SOCK_STREAM && ::listen(fd, 8) != 0)) {
    // The words by which a launcher knows that other ports are worth a try.
    std::fprintf(stderr, "quorl: cannot listen on floor port %u: %s\n", static_cast<unsigned>(port),
                 std::strerror(errno));
    std::exit(1);
  }
  ::fcntl(fd, F_SETFL, O_NONBLOCK);
  return fd;
}

class Floor {
 public:
  explicit Floor(const Options& options)
      : control_fd_(options.control_port == 0
                        ? -1
                        : open_bound(SOCK_DGRAM, INADDR_LOOPBACK, options.control_port)),
        gap_fd_(open_bound(SOCK_DGRAM, INADDR_ANY, options.gap_fill_port)),
        fix_fd_(open_bound(SOCK_STREAM, INADDR_ANY, options.fix_port)),
        snap_fd_(open_bound(SOCK_STREAM, INADDR_ANY, options.snap_port)),
        feed_fd_(::socket(AF_INET, SOCK_DGRAM, 0)),
        group_(address_of(::inet_addr(options.group.c_str()), options.feed_port)) {
    const in_addr loopback{.s_addr = htonl(INADDR_LOOPBACK)};
    ::setsockopt(feed_fd_, IPPROTO_IP, IP_MULTICAST_IF, &loopback, sizeof loopback);
  }

  [[noreturn]] void run() {
    for (;;) {
      if (control_fd_ >= 0) drain_datagrams(control_fd_);
      accept_clients();
      for (const auto& client : clients_) serve(*client);
      std::erase_if(clients_, [](const auto& client) { return client->fd < 0; });
      ::accept(snap_fd_, nullptr, nullptr);
      send_deferred();
      drain_datagrams(gap_fd_);
      wait();
    }
  }

 private:
  static void drain_datagrams(int fd) {
    std::array<char, 2048> sink;
    sockaddr_in from{};
    socklen_t size = sizeof from;
    while (::recvfrom(fd, sink.data(), sink.size(), 0, reinterpret_cast<sockaddr*>(&from), &size) >=
           0) {
    }
  }

  void accept_clients() {
    for (int fd = ::accept(fix_fd_, nullptr, nullptr); fd >= 0;
         fd = ::accept(fix_fd_, nullptr, nullptr)) {
      const int on = 1;
      ::fcntl(fd, F_SETFL, O_NONBLOCK);
      ::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
      clients_.push_back(std::make_unique<Connection>());
      clients_.back()->fd = fd;
    }
  }

  /// Reads until nothing is left, then answers: a burst that arrives meanwhile waits for the next
  /// turn, as at the exchange.
  void serve(Connection& client) {
    for (;;) {
      const ssize_t got =
          ::recv(client.fd, client.in.data() + client.filled, client.in.size() - client.filled, 0);
      if (got > 0) {
        client.filled += static_cast<size_t>(got);
      } else if (got < 0 && errno == EAGAIN) {
        break;
      } else {
        ::close(client.fd);
        client.fd = -1;
        return;
      }
    }
    take_messages(client);
  }

  void take_messages(Connection& client) {
    const char* at = client.in.data();
    const char* const end = at + client.filled;
    while (end - at > static_cast<ptrdiff_t>(LENGTH_AT + 4)) {
      size_t body_size = 0;
      const char* const length_end = std::from_chars(at + LENGTH_AT, end, body_size).ptr;
      const char* const body = length_end + 1;
      const char* const next = body + body_size + TRAILER_SIZE;
      if (next > end) break;
      answer(client, {body, body_size});
      at = next;
    }
    client.filled = static_cast<size_t>(end - at);
    std::memmove(client.in.data(), at, client.filled);
  }

  void answer(Connection& client, std::string_view body) {
    switch (body[3]) {  // 35=
      case 'A':
        return logon_.send(client.fd, client.next_out++, nullptr);
      case '1':
        return heartbeat_.send(client.fd, client.next_out++, nullptr);
      case 'D':
        return answer_order(client, body);
      case 'F':
        cancelled_.send(client.fd, client.next_out++, id_in(body));
        return level_update_.send(feed_fd_, group_, stream_offset_);
      default:
        return;
    }
  }

  void answer_order(Connection& client, std::string_view body) {
    const char* const id = id_in(body);
    // From the end: 59=0 18=i 47=P 60=time, all of fixed width.
    constexpr size_t TIF_FROM_END = 2 + 5 + 5 + 25;
    constexpr size_t ORD_TYPE_BEFORE_TIF = 5 + 3;  // of an order without a price
    if (body.substr(body.size() - TIF_FROM_END - ORD_TYPE_BEFORE_TIF).starts_with("40=1")) {
      return answer_market_order(client, id);
    }
    if (body[body.size() - TIF_FROM_END] != '3') {
      level_update_.send(feed_fd_, group_, stream_offset_);
      accepted_.send(client.fd, client.next_out++, id);
      std::memcpy(client.last_rested.data(), id, ID_WIDTH);
      return;
    }
    trade_.send(feed_fd_, group_, stream_offset_);
    accepted_.send(client.fd, client.next_out++, id);
    taker_filled_.send(client.fd, client.next_out++, id);
    client.deferred.push_back(client.last_rested);
  }

  /// It sweeps a book, and there is none here.
  void answer_market_order(Connection& client, const char* id) {
    accepted_.send(client.fd, client.next_out++, id);
    cancelled_.send(client.fd, client.next_out++, id);
  }

  /// The ClOrdID stands behind 35, 34, 49, 56 and 52; all but 34 are of fixed width.
  static const char* id_in(std::string_view body) {
    constexpr size_t SEQ_AT = 5 + 3;
    constexpr size_t FROM_SEQ_END = 1 + 8 + 8 + 25 + 3;
    return body.data() + body.find(SOH, SEQ_AT) + FROM_SEQ_END;
  }

  void send_deferred() {
    for (const auto& client : clients_) {
      for (const auto& id : client->deferred) {
        resting_filled_.send(client->fd, client->next_out++, id.data());
      }
      client->deferred.clear();
    }
  }

  void wait() {
    poll_set_.assign({{fix_fd_, POLLIN, 0}, {snap_fd_, POLLIN, 0}});
    for (const auto& client : clients_) poll_set_.push_back({client->fd, POLLIN, 0});
    ::poll(poll_set_.data(), poll_set_.size(), WAIT_MS);
  }

  int control_fd_;
  int gap_fd_;
  int fix_fd_;
  int snap_fd_;
  int feed_fd_;
  sockaddr_in group_;
  uint64_t stream_offset_ = 0;
  std::vector<std::unique_ptr<Connection>> clients_;
  std::vector<pollfd> poll_set_;
  ReadyReply logon_{
      "35=A|34=00000000|49=IEXG|56=PERF|52=20260101-00:00:00.000|98=0|108=3600|"
      "141=Y|"};
  ReadyReply heartbeat_{"35=0|34=00000000|49=IEXG|56=PERF|52=20260101-00:00:00.000|112=now|"};
  ReadyReply accepted_{report("0", "")};
  ReadyReply cancelled_{report("4", "")};
  ReadyReply taker_filled_{report("2", "2")};
  ReadyReply resting_filled_{report("2", "1")};
  ReadyPacket level_update_{30};
  ReadyPacket trade_{38, 30};
};

}  // namespace

int main(int argc, char** argv) {
  // It is started like the exchange, whose other options mean nothing here.
  Options options;
  for (int i = 1; i + 1 < argc; i += 2) {
    const std::string_view name = argv[i];
    if (name == "--mcast") options.group = argv[i + 1];
    for (const auto& [known, port] : {std::pair{"--port", &options.feed_port},
                                      {"--snap-port", &options.snap_port},
                                      {"--gapfill-port", &options.gap_fill_port},
                                      {"--fix-port", &options.fix_port},
                                      {"--control-port", &options.control_port}}) {
      if (name == known) *port = static_cast<uint16_t>(std::atoi(argv[i + 1]));
    }
  }
  Floor floor(options);
  // Begins like the exchange's banner, so that one launcher waits for either.
  std::fprintf(stderr, "[quorl] DEEP/IEX-TP %s:%u (the floor: system calls without an exchange)\n",
               options.group.c_str(), static_cast<unsigned>(options.feed_port));
  floor.run();
}
