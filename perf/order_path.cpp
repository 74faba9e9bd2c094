// What one resting order costs the exchange: processor time of the simulator's process per order,
// with a fixed number of orders in flight on one session and the walk standing still. The bare
// system calls that no exchange of this shape can avoid are measured beside it, in this process.
//
//   order_path [orders] [in flight] [binary]

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <memory>
#include <string>
#include <string_view>

#include "client/fix_session.h"
#include "client/simulator.h"
#include "client/tcp.h"

namespace {

using Clock = std::chrono::steady_clock;

/// Nanoseconds that the process has run, by the scheduler's account.
uint64_t processor_ns(pid_t pid) {
  std::ifstream in("/proc/" + std::to_string(pid) + "/schedstat");
  uint64_t ns = 0;
  in >> ns;
  return ns;
}

/// User and system time of the process, in clock ticks.
std::pair<uint64_t, uint64_t> user_and_system_ticks(pid_t pid) {
  std::ifstream in("/proc/" + std::to_string(pid) + "/stat");
  std::string word;
  std::pair<uint64_t, uint64_t> ticks;
  for (int i = 1; i <= 13; ++i) in >> word;
  in >> ticks.first >> ticks.second;
  return ticks;
}

/// Resting buys far below the market, spread over many prices.
class OrderWriter {
 public:
  explicit OrderWriter(uint32_t first_seq) : seq_(first_seq) {}

  void append_next(std::string& out) {
    const uint32_t n = count_++;
    std::string body = "35=D\x01";
    body += "34=" + std::to_string(seq_++) + "\x01";
    body +=
        "49=PERF\x01"
        "56=IEXG\x01"
        "52=20260101-00:00:00.000\x01";
    body += "11=ORD" + std::to_string(n) +
            "\x01"
            "55=AAPL\x01"
            "54=1\x01"
            "38=100\x01"
            "40=2\x01";
    body += "44=" + std::to_string(1 + n % 150) + "." + two_digits(n / 150 % 100) + "\x01";
    body +=
        "59=0\x01"
        "18=i\x01"
        "47=P\x01"
        "60=20260101-00:00:00.000\x01";
    const size_t begin = out.size();
    out +=
        "8=FIX.4.2\x01"
        "9=" +
        std::to_string(body.size()) + "\x01" + body;
    unsigned sum = 0;
    for (size_t i = begin; i < out.size(); ++i) sum += static_cast<unsigned char>(out[i]);
    std::array<char, 16> trailer{};
    std::snprintf(trailer.data(), trailer.size(), "10=%03u\x01", sum % 256);
    out += trailer.data();
  }

 private:
  static std::string two_digits(uint32_t n) {
    return {static_cast<char>('0' + n / 10), static_cast<char>('0' + n % 10)};
  }

  uint32_t seq_;
  uint32_t count_ = 0;
};

/// Counts whole messages by their trailers, over the edges of reads.
class MessageCounter {
 public:
  size_t count(std::string_view bytes) {
    size_t found = 0;
    for (const char c : bytes) {
      if (c ==
          "\x01"
          "10="[matched_]) {
        if (++matched_ == 4) {
          ++found;
          matched_ = 0;
        }
      } else {
        matched_ = c == '\x01' ? 1 : 0;
      }
    }
    return found;
  }

 private:
  size_t matched_ = 0;
};

/// A TCP connection of this process with itself.
bool connect_over_loopback(std::array<int, 2>& pair) {
  const int listener = ::socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  auto* const any = reinterpret_cast<sockaddr*>(&address);
  const bool listens = ::bind(listener, any, size) == 0 && ::listen(listener, 1) == 0 &&
                       ::getsockname(listener, any, &size) == 0;
  pair[0] = ::socket(AF_INET, SOCK_STREAM, 0);
  const bool connected = listens && ::connect(pair[0], any, size) == 0;
  pair[1] = connected ? ::accept(listener, nullptr, nullptr) : -1;
  ::close(listener);
  const int on = 1;
  ::setsockopt(pair[0], IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  return pair[1] >= 0;
}

/// One datagram to the group's kind of address and one send on a loopback connection, per order:
/// the least an acknowledgement takes on the way out.
double bare_calls_us(int orders) {
  const int udp = ::socket(AF_INET, SOCK_DGRAM, 0);
  sockaddr_in group{};
  group.sin_family = AF_INET;
  group.sin_port = htons(9);
  ::inet_pton(AF_INET, "239.255.77.77", &group.sin_addr);
  in_addr loopback{};
  ::inet_pton(AF_INET, "127.0.0.1", &loopback);
  ::setsockopt(udp, IPPROTO_IP, IP_MULTICAST_IF, &loopback, sizeof loopback);
  std::array<int, 2> pair{};
  if (!connect_over_loopback(pair)) return 0.0;
  const std::array<char, 350> bytes{};
  std::array<char, 65536> sink{};
  rusage before{};
  ::getrusage(RUSAGE_SELF, &before);
  for (int i = 0; i < orders; ++i) {
    [[maybe_unused]] ssize_t result =
        ::sendto(udp, bytes.data(), 72, 0, reinterpret_cast<sockaddr*>(&group), sizeof group);
    result = ::send(pair[0], bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (i % 64 == 63) result = ::recv(pair[1], sink.data(), sink.size(), 0);
  }
  rusage after{};
  ::getrusage(RUSAGE_SELF, &after);
  ::close(udp);
  ::close(pair[0]);
  ::close(pair[1]);
  const auto us = [](const timeval& t) {
    return static_cast<double>(t.tv_sec) * 1e6 + static_cast<double>(t.tv_usec);
  };
  return (us(after.ru_utime) - us(before.ru_utime) + us(after.ru_stime) - us(before.ru_stime)) /
         orders;
}

int number_argument(int argc, char** argv, int at, int fallback) {
  return at < argc ? std::max(1, std::atoi(argv[at])) : fallback;
}

int measure(int argc, char** argv) {
  const int orders = number_argument(argc, argv, 1, 100000);
  const int in_flight = number_argument(argc, argv, 2, 64);

  client::SimulatorOptions options;
  options.binary = argc > 3 ? argv[3] : QUORL_BINARY;
  options.arguments = client::still_market();
  client::Simulator simulator(options);
  simulator.start();
  client::TcpStream stream = client::TcpStream::connect(simulator.ports().fix);
  const std::string logon =
      client::frame_fix("35=A|34=1|49=PERF|56=IEXG|52=20260101-00:00:00.000|98=0|108=3600|");
  stream.send_all(client::to_bytes(logon));
  client::Bytes reply;
  stream.receive(reply, client::Deadline::after(client::PATIENCE));

  OrderWriter writer(2);
  MessageCounter counter;
  std::string out;
  std::array<char, 262144> in{};
  const uint64_t cpu_before = processor_ns(simulator.pid());
  const auto ticks_before = user_and_system_ticks(simulator.pid());
  const auto began = Clock::now();
  int sent = 0;
  int answered = 0;
  while (answered < orders) {
    out.clear();
    for (; sent < orders && sent - answered < in_flight; ++sent) writer.append_next(out);
    for (size_t at = 0; at < out.size();) {
      const ssize_t n = ::send(stream.fd(), out.data() + at, out.size() - at, MSG_NOSIGNAL);
      if (n > 0) at += static_cast<size_t>(n);
    }
    const ssize_t n = ::recv(stream.fd(), in.data(), in.size(), 0);
    if (n == 0) break;
    if (n > 0) answered += static_cast<int>(counter.count({in.data(), static_cast<size_t>(n)}));
    if (Clock::now() - began > std::chrono::seconds(120)) break;
  }
  const double wall_us =
      std::chrono::duration<double, std::micro>(Clock::now() - began).count() / orders;
  const double cpu_us =
      static_cast<double>(processor_ns(simulator.pid()) - cpu_before) / 1000.0 / orders;
  const auto ticks_after = user_and_system_ticks(simulator.pid());
  const double us_per_tick = 1e6 / static_cast<double>(::sysconf(_SC_CLK_TCK));
  const auto share = [&](uint64_t after, uint64_t before) {
    return static_cast<double>(after - before) * us_per_tick / orders;
  };
  std::printf(
      "orders %d in flight %d answered %d: %.2f us of processor time per resting order (user %.2f, "
      "system %.2f), %.2f us of wall time; bare sendto and send: %.2f us\n",
      orders, in_flight, answered, cpu_us, share(ticks_after.first, ticks_before.first),
      share(ticks_after.second, ticks_before.second), wall_us, bare_calls_us(orders));
  simulator.terminate();
  return answered == orders ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return measure(argc, argv);
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "%s\n", failure.what());
    return 1;
  }
}
