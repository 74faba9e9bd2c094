// What any program can throw at the sockets and options of the exchange, and that it serves
// everybody else as ever afterwards. The noise is the same in every run.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "quorl/client/bytes.h"
#include "quorl/client/fix_message.h"
#include "quorl/client/gap_fill_client.h"
#include "quorl/client/snap_client.h"
#include "quorl/client/tcp.h"
#include "quorl/client/udp.h"
#include "tests/e2e/support/exchange.h"

namespace client = quorl::client;

namespace e2e {
namespace {

using client::Bytes;
using client::FixFields;
using client::FixSession;
using client::TcpStream;
using client::UdpSocket;
using std::chrono::milliseconds;

class Noise {
 public:
  explicit Noise(uint64_t seed) : random_(seed) {}

  uint64_t below(uint64_t limit) { return random_() % limit; }
  bool one_in(uint64_t n) { return below(n) == 0; }

  Bytes bytes(size_t size) {
    Bytes bytes;
    while (bytes.size() < size) bytes.push_back(static_cast<uint8_t>(below(256)));
    return bytes;
  }

  const std::string& one_of(const std::vector<std::string>& texts) {
    return texts[below(texts.size())];
  }

  /// Flips, cuts out or doubles a few bytes.
  Bytes spoil(Bytes bytes) {
    for (uint64_t i = below(4) + 1; i > 0 && !bytes.empty(); --i) {
      const auto at = bytes.begin() + static_cast<ptrdiff_t>(below(bytes.size()));
      switch (below(3)) {
        case 0:
          *at = static_cast<uint8_t>(below(256));
          break;
        case 1:
          bytes.erase(at);
          break;
        default:
          bytes.insert(at, *at);
      }
    }
    return bytes;
  }

 private:
  std::mt19937_64 random_;
};

/// Orders, feed, image and control port all work, and the book of the feed is that of the image.
void expect_normal_service(Exchange& exchange) {
  ASSERT_TRUE(exchange.simulator().running());
  FixSession checker = exchange.session("CHECKER");
  checker.logon({.reset = true});
  FixSession maker = exchange.session("MAKER");
  maker.logon({.reset = true});
  exchange.control().ok("pause");
  exchange.empty_book("SPY");
  maker.new_order(
      {.cl_ord_id = "m1", .symbol = "SPY", .side = "2", .quantity = "200", .price = "520"});
  maker.hears("150=0|39=0|44=520");
  checker.new_order({.cl_ord_id = "c1", .symbol = "SPY", .quantity = "300", .price = "520.01"});
  checker.hears("150=0|39=0|151=300");
  checker.hears("150=1|39=1|32=200|31=520|151=100");
  maker.hears("150=2|11=m1|32=200|31=520");
  checker.hears_nothing();
  EXPECT_THAT(exchange.news(), testing::ElementsAre("5 SPY 200 @ 520 last", "T SPY 200 @ 520",
                                                    "5 SPY 0 @ 520", "8 SPY 100 @ 520.01 last"));
  const client::SnapImage image =
      client::SnapClient(exchange.ports().snap, exchange.simulator().session()).image();
  EXPECT_EQ(client::compare_levels(image.book().books(), exchange.book().books()), "");
  EXPECT_EQ(image.seq, exchange.feed().last_seq());
  const auto recovered =
      client::GapFillClient(exchange.ports().gap_fill, exchange.simulator().session())
          .fetch({{image.seq, image.seq}});
  ASSERT_EQ(recovered.messages.size(), 1U);
  EXPECT_EQ(recovered.messages.begin()->second.bytes, exchange.feed().messages().back().bytes);
  checker.logout();
  maker.logout();
  exchange.control().ok("resume");
  const size_t before = exchange.feed().messages().size();
  exchange.feed().await([&] { return exchange.feed().messages().size() > before + 100; },
                        "a living market");
}

/// Few connections may wait to be accepted: a herd of them is let in by and by.
void let_in(Exchange& exchange, int connections) {
  if (connections % 4 == 0) exchange.turn();
}

/// Takes what has come and forgets it, so that the exchange's replies do not fill the connection.
void forget_replies(TcpStream& stream) {
  Bytes replies;
  while (stream.open() && !stream.ended() &&
         stream.receive(replies, client::Deadline::after(milliseconds(0))) > 0) {
  }
}

TEST(Hostile, noise_on_the_fix_port_is_no_message) {
  Exchange exchange(living());
  Noise noise(1);
  const std::vector<std::string> pieces = {"8=FIX",
                                           "8=FIX.4.2|9=",
                                           "|9=",
                                           "|",
                                           "10=",
                                           "35=A|",
                                           "18446744073709551615|",
                                           "-1|",
                                           "-18446744073709551615|",
                                           "99999999999999999999999|",
                                           "5|",
                                           "0|",
                                           "=",
                                           "8=FI"};
  for (int i = 0; i < 120; ++i) {
    TcpStream stream = TcpStream::connect(exchange.ports().fix);
    for (uint64_t n = noise.below(30); n > 0; --n) {
      const Bytes bytes = noise.one_in(2)
                              ? noise.bytes(noise.below(300))
                              : client::to_bytes(client::with_soh(noise.one_of(pieces)));
      if (!bytes.empty() && !stream.send_all(bytes)) break;
    }
    if (noise.one_in(2)) stream.abort();
    let_in(exchange, i);
  }
  expect_normal_service(exchange);
}

TEST(Hostile, any_field_of_a_message_may_hold_anything) {
  Exchange exchange(living());
  Noise noise(2);
  const std::vector<std::string> types = {"D", "D", "D", "D", "F", "G", "0", "1", "4", "Q", ""};
  const std::vector<std::string> values = {"",
                                           "0",
                                           "1",
                                           "2",
                                           "5",
                                           "i",
                                           "P",
                                           "N",
                                           "Y",
                                           "AAPL",
                                           "SPY",
                                           "100",
                                           "300",
                                           "190",
                                           "190.01",
                                           "189.5",
                                           "-1",
                                           "nan",
                                           "inf",
                                           "-inf",
                                           "1e308",
                                           "1e-320",
                                           "4294967295",
                                           "2147483648",
                                           "18446744073709551616",
                                           "%s%n%d",
                                           "\"",
                                           "a1",
                                           "a2",
                                           "a3",
                                           "IEXG",
                                           "x=y",
                                           "0x1p60",
                                           "   7",
                                           std::string(5000, '9'),
                                           std::string("\0\xff\x80", 3)};
  const std::vector<int> tags = {1,  7,  11, 16, 18,  34,  36,  38,  40,  41, 43, 44,        47,
                                 49, 54, 55, 59, 108, 112, 114, 123, 141, 0,  -1, 2147483647};
  uint32_t seq = 0;
  TcpStream stream;
  const auto send = [&](const std::string& type, const FixFields& body) {
    return stream.send_all(client::to_bytes(client::compose_fix(
        {.type = type, .seq = std::to_string(++seq), .sender = "NOISE", .target = "IEXG"}, body)));
  };
  for (int i = 0; i < 4000; ++i) {
    if (!stream.open() || stream.ended()) {
      stream = TcpStream::connect(exchange.ports().fix);
      seq = 0;
      send("A", {{98, "0"}, {108, "30"}, {141, "Y"}});
    }
    FixFields body;
    if (noise.one_in(2)) {  // an order that has a chance
      body = {{11, noise.one_of({"a1", "a2", "a3", "a4", "a5", "a6"})},
              {41, noise.one_of({"a1", "a2", "a3", "a4"})},
              {55, "AAPL"},
              {54, noise.one_of({"1", "1", "2"})},
              {38, noise.one_of({"100", "200", "1", "10000000"})},
              {40, noise.one_of({"1", "2", "2", "2"})},
              {44, noise.one_of({"190", "100", "101", "300", "0.0001", "922337203685476"})},
              {59, noise.one_of({"0", "0", "3", "4"})},
              {18, "i"}};
    }
    for (uint64_t n = noise.below(3); n > 0; --n) {
      body.push_back({tags[noise.below(tags.size())], noise.one_of(values)});
    }
    if (noise.one_in(100)) {
      send("2", {{7, noise.one_of(values)}, {16, noise.one_of(values)}});
    } else if (noise.one_in(100)) {
      send("A", body);
    } else {
      send(noise.one_of(types), body);
    }
    if (i % 8 == 0) exchange.turn();  // so that little is sent into a connection that is closed
    forget_replies(stream);
  }
  stream.close();
  const client::ControlStats stats = exchange.turn();
  for (const char* counter : {"accepts", "fills", "cancels", "replaces", "replace_rejects",
                              "cancel_rejects", "logons", "resend_requests", "replayed"}) {
    EXPECT_GT(stats[counter], 0U) << "the noise was to reach " << counter;
  }
  expect_normal_service(exchange);
}

TEST(Hostile, spoilt_frames_of_a_session_are_survived) {
  Exchange exchange(living());
  Noise noise(3);
  TcpStream stream;
  uint32_t seq = 0;
  const auto frame = [&](const std::string& type, const FixFields& body) {
    return client::to_bytes(client::compose_fix(
        {.type = type, .seq = std::to_string(++seq), .sender = "SPOILT", .target = "IEXG"}, body));
  };
  for (int i = 0; i < 3000; ++i) {
    if (!stream.open() || stream.ended() || i % 100 == 0) {
      stream = TcpStream::connect(exchange.ports().fix);
      seq = 0;
      stream.send_all(frame("A", {{98, "0"}, {108, "30"}, {141, "Y"}}));
    }
    stream.send_all(noise.spoil(frame("D", {{11, "s" + std::to_string(i)},
                                            {55, "MSFT"},
                                            {54, "1"},
                                            {38, "100"},
                                            {40, "2"},
                                            {44, "1"},
                                            {18, "i"}})));
    if (i % 20 == 19) exchange.turn();  // read before the connection is closed
    forget_replies(stream);
  }
  stream.close();
  EXPECT_GT(exchange.counter("orders"), 0U);
  EXPECT_LT(exchange.counter("orders"), 3000U);
  expect_normal_service(exchange);
}

TEST(Hostile, reader_that_never_reads_holds_nobody_up) {
  Exchange exchange(living());
  FixSession deaf = exchange.logs_on("DEAF");
  std::string requests;
  while (requests.size() < 60000) {
    requests += client::compose_fix(
        {.type = "1", .seq = std::to_string(deaf.next_out++), .sender = "DEAF", .target = "IEXG"},
        {{112, std::string(900, 'x')}});
  }
  // Many times what the system buffers of replies for a connection.
  for (int i = 0; i < 300; ++i) ASSERT_TRUE(deaf.send_bytes(requests));
  expect_normal_service(exchange);
}

TEST(Hostile, frame_that_never_ends_holds_only_its_own_connection) {
  Exchange exchange(living());
  std::vector<TcpStream> streams;
  for (const std::string length : {"18446744073709551615", "18446744073709551600", "4294967296",
                                   "9223372036854775807", "1000000"}) {
    streams.push_back(TcpStream::connect(exchange.ports().fix));
    streams.back().send_all(client::to_bytes(client::with_soh("8=FIX.4.2|9=" + length + "|35=A|")));
    streams.back().send_all(Bytes(200000, 'x'));
  }
  exchange.turn();
  expect_normal_service(exchange);
  for (TcpStream& stream : streams) {
    Bytes reply;
    stream.receive(reply, client::Deadline::after(milliseconds(0)));
    EXPECT_TRUE(reply.empty());
    EXPECT_FALSE(stream.ended());
  }
}

TEST(Hostile, noise_on_the_snap_port_is_survived) {
  Exchange exchange(living());
  Noise noise(4);
  const Bytes request = client::encode(
      client::SnapRequest{.session_id = exchange.simulator().session(), .trailing = {}});
  for (int i = 0; i < 150; ++i) {
    TcpStream stream = TcpStream::connect(exchange.ports().snap);
    const Bytes bytes = noise.one_in(3) ? noise.bytes(noise.below(3000) + 1) : noise.spoil(request);
    if (!bytes.empty()) stream.send_all(bytes);
    if (noise.one_in(3)) stream.shutdown_write();
    if (noise.one_in(3)) stream.abort();
    let_in(exchange, i);
  }
  expect_normal_service(exchange);
}

TEST(Hostile, noise_on_the_gap_fill_port_is_survived) {
  Exchange exchange(living());
  Noise noise(5);
  UdpSocket socket = UdpSocket::on_loopback();
  for (int i = 0; i < 2000; ++i) {
    client::GapFillRequest request{.session_id = exchange.simulator().session()};
    for (uint64_t n = noise.below(4); n > 0; --n) {
      const uint64_t first = noise.one_in(3) ? noise.below(UINT64_MAX) : noise.below(50);
      request.ranges.push_back(
          {first, noise.one_in(3) ? noise.below(UINT64_MAX) : first + noise.below(5)});
    }
    if (noise.one_in(4)) request.range_count = static_cast<uint32_t>(noise.below(UINT32_MAX));
    if (noise.one_in(4)) request.trailing = noise.bytes(noise.below(50));
    const Bytes valid = client::encode(request);
    switch (noise.below(3)) {
      case 0:
        socket.send_to(exchange.ports().gap_fill, noise.bytes(noise.below(1600)));
        break;
      case 1:
        socket.send_to(exchange.ports().gap_fill, noise.spoil(valid));
        break;
      default:
        socket.send_to(exchange.ports().gap_fill, valid);
    }
    if (i % 50 == 0) exchange.turn();  // none is lost for want of room
  }
  exchange.turn();
  expect_normal_service(exchange);
}

TEST(Hostile, noise_on_the_control_port_is_answered_or_passed_over) {
  Exchange exchange(living());
  Noise noise(6);
  const std::vector<std::string> words = {"pause", "resume", "rate",  "mark",  "reject", "stats",
                                          "lapse", "STOP",   "stopp", "drop_", "",       "%n%s"};
  const std::vector<std::string> numbers = {"",   " 0",  " -0",  " 99999999999999999999",
                                            " x", "\t0", " 0 0", std::string("\0 5", 3)};
  UdpSocket socket = UdpSocket::on_loopback();
  for (int i = 0; i < 2000; ++i) {
    Bytes bytes = noise.bytes(noise.below(700));
    if (noise.one_in(2)) bytes = client::to_bytes(noise.one_of(words) + noise.one_of(numbers));
    socket.send_to(exchange.ports().control, bytes);
    if (i % 50 == 0) exchange.turn();  // none is lost for want of room
  }
  exchange.turn();
  for (const std::string command : {"resume", "rate", "lapse 0", "reject 0"}) {
    exchange.control().ok(command);
  }
  expect_normal_service(exchange);
}

TEST(Hostile, absurd_prices_and_steps_make_an_absurd_market_that_lives) {
  Exchange exchange(living({"--symbols", "A:nan,B:inf,C:-inf,D:1e300,E:-5,F:0,G:0.0001,H:9e14,SPY",
                            "--step-bps", "1e6", "--touch-hit", "nan", "--interval-ms", "1"}));
  const size_t opening = exchange.feed().messages().size();
  exchange.feed().await([&] { return exchange.feed().messages().size() > opening + 20000; },
                        "a living market");
  FixSession alpha = exchange.logs_on("ALPHA");
  for (const std::string symbol : {"A", "B", "C", "D", "E", "F", "G", "H"}) {
    for (const std::string side : {"1", "2"}) {
      alpha.new_order({.cl_ord_id = symbol + side, .symbol = symbol, .side = side, .type = "1"});
      const std::vector<client::FixMessage> reports = alpha.drain();
      ASSERT_GE(reports.size(), 2U);
      EXPECT_EQ(reports.front().get(150), "0");
    }
  }
  EXPECT_EQ(exchange.simulator().terminate().code, 0);
}

TEST(Hostile, thousand_connections_come_and_go) {
  Exchange exchange(living({"--quiet"}));
  for (int i = 0; i < 1000; ++i) {
    TcpStream::connect(exchange.ports().fix).abort();
    let_in(exchange, i);
  }
  expect_normal_service(exchange);
}

}  // namespace
}  // namespace e2e
