// DEEP SNAP: who is refused and why, the image byte for byte, its place in a feed at full speed,
// and readers that come in pieces, fall silent or are slow.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/sockios.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <chrono>
#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <variant>
#include <vector>

#include "quorl/client/bytes.h"
#include "quorl/client/errors.h"
#include "quorl/client/gap_fill_client.h"
#include "quorl/client/snap_client.h"
#include "quorl/client/stats_text.h"
#include "quorl/client/tcp.h"
#include "tests/e2e/support/exchange.h"

namespace client = quorl::client;

namespace e2e {
namespace {

using client::Bytes;
using client::ByteView;
using client::Deadline;
using client::GapFillRequest;
using client::PATIENCE;
using client::Price4;
using client::SnapClient;
using client::SnapImage;
using client::SnapRequest;
using client::TcpStream;
using std::chrono::milliseconds;
using std::chrono::steady_clock;
using testing::ElementsAre;
using testing::HasSubstr;

SnapClient snap(Exchange& exchange) {
  return {exchange.ports().snap, exchange.simulator().session()};
}

/// A request that is in order.
SnapRequest request(Exchange& exchange) { return {.session_id = exchange.simulator().session()}; }

/// The reply as it comes, "02 00 65 55" for the error U; whatever is wrong with the request.
std::string reply(Exchange& exchange, const SnapRequest& request) {
  return client::hex(snap(exchange).exchange(encode(request)));
}

std::string error(char code) {
  return client::hex(client::to_bytes(std::string("\x02\x00", 2) + 'e' + code));
}

bool is_image(const std::string& reply) { return reply.starts_with("09 00 73 "); }

Deadline patience() { return Deadline::after(PATIENCE); }

/// Returns once the other end's kernel has all that was sent, the end of the stream too.
void await_delivered(const TcpStream& stream) {
  const Deadline deadline = patience();
  for (;;) {
    int on_the_way = 0;
    if (::ioctl(stream.fd(), SIOCOUTQ, &on_the_way) != 0) throw client::SystemError("SIOCOUTQ");
    if (on_the_way == 0) return;
    if (deadline.expired()) throw client::Timeout("what was sent is not delivered");
    std::this_thread::sleep_for(milliseconds(1));
  }
}

/// Keeps the kernel from taking more and more for a reader that takes nothing.
void keep_window_small(const TcpStream& stream) {
  const int size = 65536;
  if (::setsockopt(stream.fd(), SOL_SOCKET, SO_RCVBUF, &size, sizeof size) != 0) {
    throw client::SystemError("SO_RCVBUF");
  }
}

/// Writes an image's frames by hand.
class ImageText {
 public:
  ImageText(uint32_t session, const SnapImage& of) : session_(session), of_(of) {}

  /// A message of `type` with `second` behind it and the image's time.
  Bytes message(char type, uint8_t second) const {
    Bytes bytes;
    client::put_u8(bytes, static_cast<uint8_t>(type));
    client::put_u8(bytes, second);
    client::put_u64(bytes, of_.timestamp_ns);
    return bytes;
  }
  Bytes message(char type, uint8_t second, const std::string& symbol) const {
    Bytes bytes = message(type, second);
    client::put_padded(bytes, symbol, 8, ' ');
    return bytes;
  }

  void frame(const Bytes& message) {
    client::put_u16(frames_, static_cast<uint16_t>(message.size() + 43));
    client::put_text(frames_, "d");
    client::put_u8(frames_, 1);
    client::put_u8(frames_, 0);
    client::put_u16(frames_, 0x8004);
    client::put_u32(frames_, 1);
    client::put_u32(frames_, session_);
    client::put_u16(frames_, static_cast<uint16_t>(message.size() + 2));
    client::put_u16(frames_, 1);
    client::put_u64(frames_, of_.stream_offset);
    client::put_u64(frames_, of_.seq);
    client::put_u64(frames_, of_.send_time_ns);
    client::put_u16(frames_, static_cast<uint16_t>(message.size()));
    client::put_bytes(frames_, message);
  }

  void directory(const std::string& symbol, uint64_t close) {
    Bytes bytes = message('D', 0, symbol);
    client::put_u32(bytes, 100);
    client::put_u64(bytes, close);
    client::put_u8(bytes, 1);
    frame(bytes);
  }

  void level(char type, const std::string& symbol, Price4 price, uint32_t size) {
    Bytes bytes = message(type, 1, symbol);
    client::put_u32(bytes, size);
    client::put_u64(bytes, static_cast<uint64_t>(price));
    frame(bytes);
  }

  void symbol(const std::string& symbol, const client::SymbolBook& book) {
    Bytes trading = message('H', 'T', symbol);
    client::put_text(trading, "    ");
    frame(trading);
    frame(message('E', 'O', symbol));
    frame(message('O', 'N', symbol));
    Bytes short_sale = message('P', 0, symbol);
    client::put_text(short_sale, " ");
    frame(short_sale);
    for (const auto& [price, size] : book.bids) level('8', symbol, price, size);
    for (const auto& [price, size] : book.asks) level('5', symbol, price, size);
    frame(message('I', ' ', symbol));
  }

  Bytes whole() const {
    Bytes bytes = number_frame('s', frames_.size() + 22);
    client::put_bytes(bytes, frames_);
    client::put_bytes(bytes, number_frame('x', of_.seq));
    return bytes;
  }

 private:
  static Bytes number_frame(char type, uint64_t number) {
    Bytes bytes;
    client::put_u16(bytes, 9);
    client::put_u8(bytes, static_cast<uint8_t>(type));
    client::put_u64(bytes, number);
    return bytes;
  }

  uint32_t session_;
  const SnapImage& of_;
  Bytes frames_;
};

TEST(Snap, the_image_of_two_symbols_byte_for_byte) {
  Exchange exchange(still({"--symbols", "LONGSYMBOL1:10.005,MSFT:410"}));
  auto alpha = exchange.logs_on("ALPHA");
  alpha.new_order({.cl_ord_id = "a1", .symbol = "MSFT", .quantity = "7", .price = "1.2345"});
  alpha.hears("35=8|150=8");  // no tick of this market
  alpha.new_order({.cl_ord_id = "a2", .symbol = "MSFT", .quantity = "7", .price = "1.23"});
  alpha.hears("35=8|150=0|11=a2");
  const client::BookBuilder book = exchange.book();

  const uint64_t before = system_ns();
  const Bytes bytes = snap(exchange).exchange(encode(request(exchange)));
  const uint64_t after = system_ns();
  const uint32_t session = exchange.simulator().session();
  const auto image = std::get<SnapImage>(client::decode_snap_reply(bytes, session));
  const auto& last = exchange.feed().messages().back();
  EXPECT_EQ(image.seq, exchange.feed().last_seq());
  EXPECT_EQ(image.stream_offset, last.stream_offset + last.bytes.size() + 2);
  EXPECT_LE(before, image.send_time_ns);
  EXPECT_LE(image.send_time_ns, image.timestamp_ns);
  EXPECT_LE(image.timestamp_ns, after);

  ImageText text(session, image);
  text.directory("LONGSYMB", 100100);
  text.directory("MSFT", 4100000);
  text.frame(text.message('S', 'R'));
  text.symbol("LONGSYMB", book.book("LONGSYMB"));
  text.symbol("MSFT", book.book("MSFT"));
  EXPECT_EQ(book.book("MSFT").bids.rbegin()->first, 12300) << "the worst bid is there too";
  EXPECT_EQ(client::hex(bytes), client::hex(text.whole()));
}

TEST(Snap, an_image_agrees_with_a_feed_at_full_speed_at_its_own_number) {
  constexpr unsigned IMAGES = 50;
  Exchange exchange(living({"--interval-ms", "0", "--touch-hit", "0.5"}));
  auto alpha = exchange.logs_on("ALPHA");
  client::BookBuilder book;
  size_t applied = 0;
  std::set<uint64_t> seqs;
  uint64_t minimum = 0;
  for (unsigned i = 0; i < IMAGES; ++i) {
    alpha.new_order({.cl_ord_id = "a" + std::to_string(i), .type = "1"});
    const SnapImage image = snap(exchange).image(minimum);
    exchange.feed().await_seq(image.seq);
    const auto& messages = exchange.feed().messages();
    for (; applied < messages.size() && messages[applied].seq <= image.seq; ++applied) {
      book.apply(messages[applied].message);
    }
    const auto& last = messages[applied - 1];
    ASSERT_EQ(last.seq, image.seq);
    ASSERT_EQ(last.stream_offset + last.bytes.size() + 2, image.stream_offset);
    ASSERT_TRUE(book.consistent()) << "the image stands within an event";
    ASSERT_EQ(client::compare_levels(book.books(), image.book().books()), "");
    ASSERT_THAT(image.symbols(), ElementsAre("AAPL", "MSFT", "SPY"));
    EXPECT_GE(image.seq, minimum);
    minimum = image.seq;
    seqs.insert(image.seq);
  }
  EXPECT_GT(seqs.size(), IMAGES / 2) << "the market was to move meanwhile";
}

TEST(Snap, the_directory_of_an_image_follows_the_moving_price) {
  Exchange exchange(living({"--interval-ms", "0", "--step-bps", "20", "--symbols", "A:100"}));
  exchange.feed().await_seq(300);
  const auto close = std::get<client::SecurityDirectory>(snap(exchange).image().messages.at(0));
  EXPECT_NE(close.previous_close, 1000000) << "100.00 to the cent after so many ticks";
  EXPECT_EQ(close.previous_close % 100, 0);
}

TEST(Snap, a_symbol_with_an_empty_book_has_its_statuses_and_no_levels) {
  Exchange exchange(still({"--symbols", "AAPL:190"}));
  exchange.empty_book("AAPL");
  std::string types;
  for (const auto& message : snap(exchange).image().messages) types += client::type_of(message);
  EXPECT_EQ(types, "DSHEOPI");
}

TEST(Snap, a_market_without_symbols_has_an_image_of_one_system_event) {
  Exchange exchange(still({"--symbols", ""}));
  const SnapImage image = snap(exchange).image();
  ASSERT_EQ(image.messages.size(), 1u);
  EXPECT_EQ(image.seq, 3u);
}

TEST(Snap, an_image_uses_no_numbers_and_shows_nothing_on_the_feed) {
  Exchange exchange(still());
  const uint64_t next_seq = exchange.control().stats().next_seq;
  (void)exchange.news();
  const SnapImage first = snap(exchange).image();
  const SnapImage second = snap(exchange).image();
  EXPECT_EQ(first.seq, second.seq);
  EXPECT_EQ(first.stream_offset, second.stream_offset);
  EXPECT_EQ(exchange.control().stats().next_seq, next_seq);
  EXPECT_TRUE(exchange.news().empty());
}

TEST(Snap, what_is_wrong_with_a_request_is_told_in_a_fixed_order) {
  Exchange exchange(still());
  const uint64_t last = exchange.control().stats().next_seq - 1;
  const SnapRequest good = request(exchange);
  const auto spoilt = [&good, last](bool name, bool channel, bool session, bool minimum) {
    SnapRequest request = good;
    if (name) request.name = "";
    if (channel) request.channel_id = 2;
    if (session) request.session_id += 1;
    if (minimum) request.minimum_seq = last + 1;
    return request;
  };
  EXPECT_EQ(reply(exchange, spoilt(true, true, true, true)), error('A'));
  EXPECT_EQ(reply(exchange, spoilt(true, false, false, false)), error('A'));
  EXPECT_EQ(reply(exchange, spoilt(false, true, true, true)), error('C'));
  EXPECT_EQ(reply(exchange, spoilt(false, true, false, false)), error('C'));
  EXPECT_EQ(reply(exchange, spoilt(false, false, true, true)), error('S'));
  EXPECT_EQ(reply(exchange, spoilt(false, false, true, false)), error('S'));
  EXPECT_EQ(reply(exchange, spoilt(false, false, false, true)), error('R'));
  EXPECT_PRED1(is_image, reply(exchange, spoilt(false, false, false, false)));

  SnapRequest other_type = spoilt(true, true, true, true);
  other_type.type = 'R';
  EXPECT_EQ(reply(exchange, other_type), error('U'));
  other_type = good;
  other_type.type = 's';
  EXPECT_EQ(reply(exchange, other_type), error('U'));
}

TEST(Snap, a_frame_is_a_request_from_57_bytes_on) {
  Exchange exchange(still());
  Bytes bytes = encode(request(exchange));
  ASSERT_EQ(bytes.size(), 59u);
  bytes.pop_back();
  bytes[0] = 56;
  EXPECT_EQ(client::hex(snap(exchange).exchange(bytes)), error('U'));
  EXPECT_EQ(client::hex(snap(exchange).exchange(client::to_bytes(std::string("\x01\x00z", 3)))),
            error('U'));
  EXPECT_EQ(client::hex(snap(exchange).exchange(client::to_bytes(std::string("\x01\x00r", 3)))),
            error('U'));

  SnapRequest longer = request(exchange);
  longer.trailing = {1, 2, 3};
  EXPECT_PRED1(is_image, reply(exchange, longer));
  longer.trailing = Bytes(65535 - 57, 'x');
  EXPECT_PRED1(is_image, reply(exchange, longer));
}

TEST(Snap, a_name_is_what_is_left_without_the_blanks_and_nuls_at_its_end) {
  Exchange exchange(still());
  const auto with_name = [&exchange](const std::string& name, char padding) {
    SnapRequest named = request(exchange);
    named.name = name;
    named.name_padding = padding;
    return reply(exchange, named);
  };
  EXPECT_EQ(with_name("", ' '), error('A'));
  EXPECT_EQ(with_name("", '\0'), error('A'));
  EXPECT_EQ(with_name(std::string(" \0 \0", 4), ' '), error('A'));
  EXPECT_PRED1(is_image, with_name("x", '\0'));
  EXPECT_PRED1(is_image, with_name("x", ' '));
  EXPECT_PRED1(is_image, with_name("       x", ' '));
  EXPECT_PRED1(is_image, with_name("\t", ' '));
  EXPECT_PRED1(is_image, with_name(std::string(40, 'x'), ' '));
}

TEST(Snap, the_last_number_given_out_is_the_highest_minimum_that_is_served) {
  Exchange exchange(still());
  const uint64_t last = exchange.control().stats().next_seq - 1;
  SnapRequest asked = request(exchange);
  for (const uint64_t minimum : {uint64_t{0}, last - 1, last}) {
    asked.minimum_seq = minimum;
    EXPECT_PRED1(is_image, reply(exchange, asked)) << minimum;
  }
  for (const uint64_t minimum : {last + 1, last + 1000, UINT64_MAX}) {
    asked.minimum_seq = minimum;
    EXPECT_EQ(reply(exchange, asked), error('R')) << minimum;
  }
}

TEST(Snap, each_image_and_no_refusal_has_its_line) {
  Exchange exchange(still());
  const uint64_t last = exchange.control().stats().next_seq - 1;
  const size_t image = snap(exchange).image(17).total_bytes;
  exchange.simulator().wait_for_line("bench: DEEP SNAP served at seq " + std::to_string(last) +
                                     " (" + std::to_string(image) +
                                     " bytes; requested minimum 17)");
  SnapRequest refused = request(exchange);
  refused.session_id += 1;
  EXPECT_EQ(reply(exchange, refused), error('S'));
  (void)snap(exchange).image();
  exchange.simulator().wait_for_line("requested minimum 0)");
  EXPECT_EQ(exchange.simulator().count_lines("SNAP served"), 2u);
}

TEST(Snap, a_request_in_pieces_is_put_together) {
  Exchange exchange(still());
  const Bytes bytes = encode(request(exchange));
  TcpStream stream = TcpStream::connect(exchange.ports().snap);
  for (size_t at = 0; at < bytes.size(); at += 20) {
    ASSERT_TRUE(stream.send_all(ByteView(bytes).subspan(at, std::min<size_t>(20, 59 - at))));
    await_delivered(stream);
    (void)exchange.control().stats();  // the turn that answers this reads the piece
  }
  const Bytes reply = stream.receive_to_end(patience());
  EXPECT_TRUE(std::holds_alternative<SnapImage>(
      client::decode_snap_reply(reply, exchange.simulator().session())));
}

TEST(Snap, a_connection_brings_one_reply_whatever_stands_behind_the_first_frame) {
  Exchange exchange(still());
  Bytes twice = encode(request(exchange));
  client::put_bytes(twice, encode(request(exchange)));
  const Bytes reply = snap(exchange).exchange(twice);
  EXPECT_TRUE(std::holds_alternative<SnapImage>(
      client::decode_snap_reply(reply, exchange.simulator().session())));
  Bytes bad_then_good = client::to_bytes(std::string("\x01\x00z", 3));
  client::put_bytes(bad_then_good, encode(request(exchange)));
  EXPECT_EQ(client::hex(snap(exchange).exchange(bad_then_good)), error('U'));
}

TEST(Snap, a_request_whose_end_of_stream_is_read_with_it_is_not_answered) {
  Exchange exchange(still());
  const Bytes bytes = encode(request(exchange));
  exchange.simulator().stop_process();
  TcpStream ended = TcpStream::connect(exchange.ports().snap);
  ASSERT_TRUE(ended.send_all(bytes));
  ended.shutdown_write();
  await_delivered(ended);
  TcpStream open = TcpStream::connect(exchange.ports().snap);
  ASSERT_TRUE(open.send_all(bytes));
  await_delivered(open);
  exchange.simulator().cont_process();
  EXPECT_TRUE(ended.receive_to_end(patience()).empty());
  EXPECT_FALSE(open.receive_to_end(patience()).empty());
  exchange.control().ok("mark behind");
  exchange.simulator().wait_for_line("bench: mark behind");
  EXPECT_EQ(exchange.simulator().count_lines("SNAP served"), 1u);
}

TEST(Snap, a_reader_that_stops_holds_the_process_and_a_slow_one_gets_everything) {
  // The image is larger than what the kernel takes off the exchange's hands.
  Exchange exchange(still({"--symbols", symbols(4000)}));
  TcpStream stream = TcpStream::connect(exchange.ports().snap);
  keep_window_small(stream);
  ASSERT_TRUE(stream.send_all(encode(request(exchange))));
  const std::string line = exchange.simulator().wait_for_line("bench: DEEP SNAP served at seq ");
  exchange.control().send("stats");
  EXPECT_FALSE(exchange.control().receive(milliseconds(300))) << "nothing else is served";

  Bytes reply;
  const Deadline deadline = Deadline::after(2 * PATIENCE);
  while (!stream.ended()) {
    (void)stream.receive(reply, deadline);
    ASSERT_FALSE(deadline.expired()) << reply.size() << " bytes have come";
    std::this_thread::sleep_for(milliseconds(1));  // no hurry
  }
  const auto image =
      std::get<SnapImage>(client::decode_snap_reply(reply, exchange.simulator().session()));
  EXPECT_THAT(line, HasSubstr("(" + std::to_string(reply.size()) + " bytes;"));
  EXPECT_EQ(image.symbols().size(), 4000u);
  EXPECT_TRUE(exchange.control().receive(PATIENCE)) << "the process goes on";
}

TEST(Snap, a_reader_that_goes_away_in_the_middle_harms_nobody) {
  Exchange exchange(still({"--symbols", symbols(4000)}));
  TcpStream stream = TcpStream::connect(exchange.ports().snap);
  keep_window_small(stream);
  ASSERT_TRUE(stream.send_all(encode(request(exchange))));
  exchange.simulator().wait_for_line("bench: DEEP SNAP served at seq ");
  stream.abort();
  EXPECT_EQ(snap(exchange).image().symbols().size(), 4000u);
}

TEST(Snap, ten_seconds_end_a_connection_without_a_request_and_bring_the_counts_of_both_services) {
  Exchange exchange(still());
  const auto opened = steady_clock::now();
  TcpStream length_0 = TcpStream::connect(exchange.ports().snap);
  ASSERT_TRUE(length_0.send_all(Bytes(100, 0)));
  TcpStream partial = TcpStream::connect(exchange.ports().snap);
  ASSERT_TRUE(partial.send_all(ByteView(encode(request(exchange))).first(58)));
  await_delivered(partial);

  for (int i = 0; i < 3; ++i) (void)snap(exchange).image();
  SnapRequest refused = request(exchange);
  refused.name = "";
  EXPECT_EQ(reply(exchange, refused), error('A'));
  client::GapFillClient gap_fill(exchange.ports().gap_fill, exchange.simulator().session());
  EXPECT_EQ(gap_fill.status().next_seq, exchange.control().stats().next_seq);  // the first
  (void)gap_fill.fetch({{1, 2}});                                              // and two more
  GapFillRequest bad{.kind = 2, .session_id = gap_fill.session()};
  (void)gap_fill.fetch_raw(encode(bad));  // one more, by the query behind it
  gap_fill.send({});                      // no request at all
  (void)exchange.turn();

  const size_t from = exchange.simulator().line_count();
  const std::string line = exchange.simulator().wait_for_line("[quorl] deep msgs ", from);
  const client::DeepStats stats = client::parse_deep_stats_line(line);
  EXPECT_EQ(stats.snapshots, 3u);
  EXPECT_EQ(stats.gap_fills, 4u);
  EXPECT_EQ(stats.messages, exchange.control().stats().next_seq - 1);

  EXPECT_TRUE(length_0.receive_to_end(patience()).empty());
  EXPECT_TRUE(partial.receive_to_end(patience()).empty());
  EXPECT_GE(steady_clock::now() - opened, milliseconds(10000));
  exchange.control().ok("mark behind");
  exchange.simulator().wait_for_line("bench: mark behind");
  EXPECT_EQ(exchange.simulator().count_lines("SNAP"), 4u) << "the banner and three images";
}

}  // namespace
}  // namespace e2e
