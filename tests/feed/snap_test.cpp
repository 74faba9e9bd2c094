#include "feed/snap.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <string>
#include <thread>
#include <vector>

#include "market/engine.h"
#include "support/exchange.h"
#include "support/inside.h"
#include "support/test_clock.h"
#include "support/udp_inbox.h"

namespace quorl {
namespace {

using test::Bytes;
using test::Exchange;
using test::hex;
using test::joined;
using test::number_at;
using test::standard_error_of;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

const Bytes ERROR_U = hex("02 00 65 55");
const Bytes ERROR_A = hex("02 00 65 41");
const Bytes ERROR_C = hex("02 00 65 43");
const Bytes ERROR_S = hex("02 00 65 53");
const Bytes ERROR_R = hex("02 00 65 52");

void put_number(Bytes& bytes, uint64_t number, size_t width) {
  for (size_t i = 0; i < width; ++i) bytes.push_back(static_cast<uint8_t>(number >> (8 * i)));
}

/// What a well-behaved subscriber sends; each test changes one thing.
struct ImageRequest {
  uint16_t length = 57;
  char type = 'r';
  std::string name = "ALPHA";
  char padding = '\0';
  uint32_t channel = 1;
  uint32_t session = 0x51554F52;  // of the exchange of these tests
  uint64_t minimum = 0;

  /// As many bytes as the length says, and the two of the length.
  Bytes frame() const {
    Bytes bytes;
    put_number(bytes, length, 2);
    bytes.push_back(static_cast<uint8_t>(type));
    for (size_t i = 0; i < 40; ++i) {
      bytes.push_back(static_cast<uint8_t>(i < name.size() ? name[i] : padding));
    }
    put_number(bytes, channel, 4);
    put_number(bytes, session, 4);
    put_number(bytes, minimum, 8);
    bytes.resize(size_t{length} + 2, 0xEE);
    return bytes;
  }
};

/// An image taken apart: every frame whole, and the messages of the data frames.
struct Image {
  explicit Image(const Bytes& reply) {
    size_t at = 0;
    while (at + 2 <= reply.size()) {
      const size_t end = at + 2 + number_at(reply, at, 2);
      if (end > reply.size()) {
        ADD_FAILURE() << "a frame leaves the reply";
        return;
      }
      const auto begin = reply.begin();
      frames.emplace_back(begin + static_cast<std::ptrdiff_t>(at),
                          begin + static_cast<std::ptrdiff_t>(end));
      at = end;
    }
    EXPECT_EQ(at, reply.size());
    for (const Bytes& frame : frames) {
      if (frame.at(2) == 'd') messages.emplace_back(frame.begin() + 45, frame.end());
    }
  }

  /// The message types in order.
  std::string types() const {
    std::string text;
    for (const Bytes& message : messages) text.push_back(static_cast<char>(message.at(0)));
    return text;
  }

  std::vector<Bytes> frames;
  std::vector<Bytes> messages;
};

Bytes answer(Exchange& exchange, const ImageRequest& request) {
  Bytes reply;
  standard_error_of([&] { reply = answer_snap_request(exchange.engine, request.frame()); });
  return reply;
}

bool is_image(const Bytes& reply) { return reply.size() > 4 && reply[2] == 's'; }

/// A change of the first book that is published and waits in the packet under assembly.
void rest_unflushed(Exchange& exchange, bool buy, Price4 price, uint32_t shares) {
  exchange.engine.begin_event();
  test::rest_synthetic(exchange.engine, exchange.stock(), buy, price, shares);
  exchange.engine.publish_dirty(exchange.stock());
}

// --- The image ---

TEST(SnapImage, of_a_small_market_byte_by_byte) {
  Exchange exchange{"AAPL:190.00"};
  exchange.rests({"AAPL buy 300 @ 190.00", "AAPL sell 200 @ 190.01"});
  rest_unflushed(exchange, true, 1899900, 100);
  exchange.engine.system_status = 'R';
  test::set_system_ns(test::START_SYSTEM_NS);
  test::step_system_clock_by(1);  // the segments are stamped first, then the messages

  const auto frame = [](const std::string& length, const std::string& payload_length,
                        const std::string& message_length, const std::string& message) {
    return hex(length + "64 01 00 04 80 01 00 00 00 52 4F 55 51" + payload_length +
               "01 00 60 00 00 00 00 00 00 00 03 00 00 00 00 00 00 00 15 CD 85 3D FE 9C 97 17" +
               message_length + message);
  };
  const std::string t = "16 CD 85 3D FE 9C 97 17";
  const std::string aapl = "41 41 50 4C 20 20 20 20";
  EXPECT_EQ(build_snap_image(exchange.engine),
            joined({
                hex("09 00 73 BA 02 00 00 00 00 00 00"),
                frame("4A 00", "21 00", "1F 00",
                      "44 00" + t + aapl + "64 00 00 00 E0 FD 1C 00 00 00 00 00 01"),
                frame("35 00", "0C 00", "0A 00", "53 52" + t),
                frame("41 00", "18 00", "16 00", "48 54" + t + aapl + "20 20 20 20"),
                frame("3D 00", "14 00", "12 00", "45 4F" + t + aapl),
                frame("3D 00", "14 00", "12 00", "4F 4E" + t + aapl),
                frame("3E 00", "15 00", "13 00", "50 00" + t + aapl + "20"),
                frame("49 00", "20 00", "1E 00",
                      "38 01" + t + aapl + "2C 01 00 00 E0 FD 1C 00 00 00 00 00"),
                frame("49 00", "20 00", "1E 00",
                      "38 01" + t + aapl + "64 00 00 00 7C FD 1C 00 00 00 00 00"),
                frame("49 00", "20 00", "1E 00",
                      "35 01" + t + aapl + "C8 00 00 00 44 FE 1C 00 00 00 00 00"),
                frame("3D 00", "14 00", "12 00", "49 20" + t + aapl),
                hex("09 00 78 03 00 00 00 00 00 00 00"),
            }));
}

TEST(SnapImage, directories_and_one_system_event_come_first_then_all_of_each_symbol_in_turn) {
  Exchange exchange{"AA:10.00,BB:20.00"};
  exchange.rests({"AA buy 100 @ 9.99", "AA sell 100 @ 10.01", "AA sell 100 @ 10.02",
                  "BB buy 100 @ 19.99", "BB buy 100 @ 19.98"});
  EXPECT_EQ(Image(build_snap_image(exchange.engine)).types(), "DDSHEOP855IHEOP88I");
}

TEST(SnapImage, shows_every_level_best_price_first_and_always_flags_1) {
  Exchange exchange{"AA:10.00"};
  std::vector<Price4> bids;
  std::vector<Price4> asks;
  for (int i = 0; i < 12; ++i) {
    rest_unflushed(exchange, true, 90000 + i * 100, 100);
    rest_unflushed(exchange, false, 110000 - i * 100, 100);
    bids.insert(bids.begin(), 90000 + i * 100);
    asks.insert(asks.begin(), 110000 - i * 100);
  }
  std::vector<Price4> shown_bids;
  std::vector<Price4> shown_asks;
  for (const Bytes& message : Image(build_snap_image(exchange.engine)).messages) {
    if (message[0] != '8' && message[0] != '5') continue;
    EXPECT_EQ(message[1], 1);
    const auto price = static_cast<Price4>(number_at(message, 22, 8));
    (message[0] == '8' ? shown_bids : shown_asks).push_back(price);
  }
  EXPECT_EQ(shown_bids, bids);
  EXPECT_EQ(shown_asks, asks);
}

TEST(SnapImage, shows_what_the_feed_has_said_and_not_the_raw_book) {
  Exchange exchange{"AA:10.00"};
  exchange.rests({"AA buy 100 @ 9.99"});
  test::rest_synthetic(exchange.engine, exchange.stock(), test::BUYS, 99800, 500);  // unpublished
  EXPECT_EQ(Image(build_snap_image(exchange.engine)).types(), "DSHEOP8I");
}

TEST(SnapImage, a_symbol_without_levels_has_its_five_statuses_and_its_directory_only) {
  Exchange exchange{"AA:10.00"};
  EXPECT_EQ(Image(build_snap_image(exchange.engine)).types(), "DSHEOPI");
}

TEST(SnapImage, a_market_without_symbols_is_one_system_event) {
  Exchange exchange{"AA:10.00"};
  exchange.engine.stocks.clear();
  const Bytes reply = build_snap_image(exchange.engine);
  EXPECT_EQ(Image(reply).types(), "S");
  EXPECT_EQ(number_at(reply, 3, 8), 22u + 55u);
}

TEST(SnapImage, the_directory_has_the_price_of_now_and_the_status_is_the_symbol_s_own) {
  Exchange exchange{"AA:10.00"};
  exchange.stock().mid = 10.125;
  exchange.stock().status = 'H';
  const Image image(build_snap_image(exchange.engine));
  EXPECT_EQ(number_at(image.messages.at(0), 22, 8), 101300u);
  EXPECT_EQ(image.messages.at(1).at(1), 'O');  // the market has not been opened
  EXPECT_EQ(image.messages.at(2).at(1), 'H');
}

TEST(SnapImage, the_first_frame_tells_the_whole_size_and_the_last_the_number_of_every_segment) {
  Exchange exchange{"AAPL:190.00,MSFT:410.00,SPY:520.00"};
  exchange.engine.open_market();
  const Bytes reply = build_snap_image(exchange.engine);
  const Image image(reply);
  EXPECT_EQ(number_at(reply, 3, 8), reply.size());
  const test::PublisherState state = test::state_of(exchange.publisher);
  const uint64_t last_seq = state.next_seq - 1;
  EXPECT_EQ(number_at(image.frames.back(), 3, 8), last_seq);
  for (size_t i = 1; i + 1 < image.frames.size(); ++i) {
    EXPECT_EQ(number_at(image.frames[i], 27, 8), last_seq);
    EXPECT_EQ(number_at(image.frames[i], 19, 8), state.stream_offset);
  }
}

TEST(SnapImage, leaves_the_feed_and_the_event_in_hand_alone) {
  Exchange exchange{"AA:10.00"};
  rest_unflushed(exchange, true, 99900, 100);
  exchange.engine.event_time = 77;
  test::rest_synthetic(exchange.engine, exchange.stock(), test::BUYS, 99800, 200);
  const uint64_t packet_size = test::state_of(exchange.publisher).packet_size;
  build_snap_image(exchange.engine);
  EXPECT_EQ(exchange.engine.event_time, 77u);
  const test::PublisherState state = test::state_of(exchange.publisher);
  EXPECT_EQ(state.next_seq, 2u);
  EXPECT_EQ(state.packet_size, packet_size);
  EXPECT_EQ(state.packets, 0u);
  EXPECT_EQ(state.retained, 1u);
  exchange.engine.publish_dirty(exchange.stock());
  exchange.feed_shows({"8 100 @ 9.99 last", "8 200 @ 9.98 last"});
}

TEST(SnapImage, each_one_built_is_counted) {
  Exchange exchange{"AA:10.00"};
  build_snap_image(exchange.engine);
  build_snap_image(exchange.engine);
  EXPECT_EQ(exchange.engine.snapshots_served, 2u);
}

TEST(SnapImage, a_data_frame_wraps_any_message_in_a_segment_of_its_own) {
  TpHeader header;
  header.session_id = 0x01020304;
  header.message_count = 1;
  header.stream_offset = 5;
  header.first_seq = 6;
  header.send_time = 7;
  Bytes out = hex("FF");
  const Bytes message = hex("AA BB CC");
  snap_frame(header, message.data(), message.size(), out);
  EXPECT_EQ(out, hex("FF 2E 00 64 01 00 04 80 01 00 00 00 04 03 02 01 05 00 01 00"
                     "05 00 00 00 00 00 00 00 06 00 00 00 00 00 00 00 07 00 00 00 00 00 00 00"
                     "03 00 AA BB CC"));
}

// --- The answer to one request ---

TEST(SnapRequest, a_good_one_gets_the_image_and_is_told_on_standard_error) {
  Exchange exchange{"AA:10.00"};
  exchange.rests({"AA buy 100 @ 9.99", "AA buy 100 @ 9.98"});
  Bytes reply;
  EXPECT_EQ(standard_error_of([&] {
              reply = answer_snap_request(exchange.engine, ImageRequest{.minimum = 1}.frame());
            }),
            "bench: DEEP SNAP served at seq 2 (623 bytes; requested minimum 1)\n");
  EXPECT_THAT(reply, SizeIs(623));
  EXPECT_TRUE(is_image(reply));
  EXPECT_EQ(exchange.engine.snapshots_served, 1u);
}

TEST(SnapRequest, any_other_type_or_a_length_of_56_is_error_u) {
  Exchange exchange{"AA:10.00"};
  EXPECT_EQ(answer(exchange, {.type = 'x'}), ERROR_U);
  EXPECT_EQ(answer(exchange, {.type = 'R'}), ERROR_U);
  EXPECT_EQ(answer(exchange, {.length = 56}), ERROR_U);
  EXPECT_TRUE(is_image(answer(exchange, {.length = 57})));
}

TEST(SnapRequest, one_of_a_single_byte_is_error_u) {
  Exchange exchange{"AA:10.00"};
  EXPECT_EQ(answer_snap_request(exchange.engine, hex("01 00 7A")), ERROR_U);
  EXPECT_EQ(answer_snap_request(exchange.engine, hex("01 00 72")), ERROR_U);
}

TEST(SnapRequest, bytes_behind_the_fixed_part_are_ignored) {
  Exchange exchange{"AA:10.00"};
  EXPECT_TRUE(is_image(answer(exchange, {.length = 58})));
  EXPECT_TRUE(is_image(answer(exchange, {.length = 65535})));
}

TEST(SnapRequest, a_name_of_nothing_but_padding_is_error_a) {
  Exchange exchange{"AA:10.00"};
  EXPECT_EQ(answer(exchange, {.name = "", .padding = ' '}), ERROR_A);
  EXPECT_EQ(answer(exchange, {.name = "", .padding = '\0'}), ERROR_A);
  EXPECT_EQ(answer(exchange, {.name = std::string(" \0 \0", 4), .padding = ' '}), ERROR_A);
}

TEST(SnapRequest, a_name_of_one_letter_is_enough_wherever_it_stands) {
  Exchange exchange{"AA:10.00"};
  EXPECT_TRUE(is_image(answer(exchange, {.name = "A"})));
  EXPECT_TRUE(is_image(answer(exchange, {.name = "A", .padding = ' '})));
  EXPECT_TRUE(is_image(answer(exchange, {.name = std::string(39, ' ') + "A"})));
  EXPECT_TRUE(is_image(answer(exchange, {.name = "\t"})));
}

TEST(SnapRequest, a_foreign_channel_is_error_c) {
  Exchange exchange{"AA:10.00"};
  EXPECT_EQ(answer(exchange, {.channel = 0}), ERROR_C);
  EXPECT_EQ(answer(exchange, {.channel = 2}), ERROR_C);
  EXPECT_EQ(answer(exchange, {.channel = 0x01000000}), ERROR_C);
}

TEST(SnapRequest, a_foreign_session_is_error_s) {
  Exchange exchange{"AA:10.00"};
  EXPECT_EQ(answer(exchange, {.session = 0x51554F53}), ERROR_S);
  EXPECT_EQ(answer(exchange, {.session = 0}), ERROR_S);
}

TEST(SnapRequest, a_minimum_above_the_last_number_given_out_is_error_r) {
  Exchange exchange{"AA:10.00"};
  EXPECT_TRUE(is_image(answer(exchange, {.minimum = 0})));
  EXPECT_EQ(answer(exchange, {.minimum = 1}), ERROR_R);
  exchange.rests({"AA buy 100 @ 9.99", "AA buy 100 @ 9.98"});
  EXPECT_TRUE(is_image(answer(exchange, {.minimum = 0})));
  EXPECT_TRUE(is_image(answer(exchange, {.minimum = 2})));
  EXPECT_EQ(answer(exchange, {.minimum = 3}), ERROR_R);
  EXPECT_EQ(answer(exchange, {.minimum = UINT64_MAX}), ERROR_R);
}

TEST(SnapRequest, a_number_that_still_waits_in_the_packet_has_been_given_out) {
  Exchange exchange{"AA:10.00"};
  rest_unflushed(exchange, true, 99900, 100);
  EXPECT_TRUE(is_image(answer(exchange, {.minimum = 1})));
}

TEST(SnapRequest, of_several_faults_the_first_of_the_order_u_a_c_s_r_answers) {
  Exchange exchange{"AA:10.00"};
  ImageRequest request{.type = 'x', .name = "", .channel = 2, .session = 3, .minimum = 9};
  EXPECT_EQ(answer(exchange, request), ERROR_U);
  request.type = 'r';
  EXPECT_EQ(answer(exchange, request), ERROR_A);
  request.name = "ALPHA";
  EXPECT_EQ(answer(exchange, request), ERROR_C);
  request.channel = 1;
  EXPECT_EQ(answer(exchange, request), ERROR_S);
  request.session = 0x51554F52;
  EXPECT_EQ(answer(exchange, request), ERROR_R);
}

TEST(SnapRequest, a_refusal_is_neither_told_nor_counted) {
  Exchange exchange{"AA:10.00"};
  EXPECT_EQ(standard_error_of([&] {
              answer_snap_request(exchange.engine, ImageRequest{.session = 3}.frame());
              answer_snap_request(exchange.engine, ImageRequest{.minimum = 3}.frame());
            }),
            "");
  EXPECT_EQ(exchange.engine.snapshots_served, 0u);
}

// --- The service ---

/// What a peer finds at its end of a connection.
struct Received {
  Bytes bytes;
  bool closed = false;
};

/// The service with connections that stand already; `turn` serves them once.
class Service {
 public:
  explicit Service(const std::string& symbols = "AA:10.00") : exchange(symbols) {}
  ~Service() {
    for (const SnapConnection& snap : snaps) {
      if (snap.fd >= 0) ::close(snap.fd);
    }
    for (const int peer : peers_) ::close(peer);
  }
  Service(const Service&) = delete;
  Service& operator=(const Service&) = delete;

  /// A fresh connection; returns the peer's end.
  int connect() {
    std::array<int, 2> ends{};
    EXPECT_EQ(0, ::socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0, ends.data()));
    snaps.push_back({ends[0], {}, static_cast<int64_t>(now_ms_)});
    peers_.push_back(ends[1]);
    return ends[1];
  }

  static void send(int peer, const Bytes& bytes) {
    ASSERT_EQ(static_cast<ssize_t>(bytes.size()),
              ::send(peer, bytes.data(), bytes.size(), MSG_NOSIGNAL));
  }

  static Received receive(int peer) {
    Received received;
    std::array<uint8_t, 4096> piece;
    ssize_t count = 0;
    while ((count = ::recv(peer, piece.data(), piece.size(), 0)) > 0) {
      received.bytes.insert(received.bytes.end(), piece.begin(), piece.begin() + count);
    }
    received.closed = count == 0;
    return received;
  }

  void advance_ms(uint64_t ms) {
    now_ms_ += ms;
    test::advance_ms(ms);
  }

  /// Returns what went to standard error.
  std::string turn() {
    return standard_error_of([this] { serve_snap_connections(exchange.engine, snaps, scratch_); });
  }

  Exchange exchange;
  std::vector<SnapConnection> snaps;

 private:
  uint64_t now_ms_ = test::START_STEADY_MS;
  std::vector<int> peers_;
  std::array<char, 65536> scratch_;
};

TEST(SnapService, one_request_gets_one_reply_and_the_end_of_the_connection) {
  Service service;
  const int peer = service.connect();
  Service::send(peer, ImageRequest{}.frame());
  EXPECT_THAT(service.turn(), testing::StartsWith("bench: DEEP SNAP served at seq 0 ("));
  const Received received = Service::receive(peer);
  EXPECT_TRUE(is_image(received.bytes));
  EXPECT_EQ(number_at(received.bytes, 3, 8), received.bytes.size());
  EXPECT_TRUE(received.closed);
  EXPECT_EQ(service.snaps[0].fd, -1);
}

TEST(SnapService, a_refused_request_gets_its_four_bytes_and_the_end_of_the_connection) {
  Service service;
  const int peer = service.connect();
  Service::send(peer, ImageRequest{.session = 1}.frame());
  EXPECT_EQ(service.turn(), "");
  const Received received = Service::receive(peer);
  EXPECT_EQ(received.bytes, ERROR_S);
  EXPECT_TRUE(received.closed);
  EXPECT_EQ(service.exchange.engine.snapshots_served, 0u);
}

TEST(SnapService, bytes_behind_the_first_request_go_with_the_connection) {
  Service service;
  const int peer = service.connect();
  Service::send(peer, joined({ImageRequest{.session = 1}.frame(), ImageRequest{}.frame()}));
  service.turn();
  service.turn();
  EXPECT_EQ(Service::receive(peer).bytes, ERROR_S);
  EXPECT_EQ(service.exchange.engine.snapshots_served, 0u);
}

TEST(SnapService, a_request_in_pieces_is_put_together_over_turns) {
  Service service;
  const int peer = service.connect();
  const Bytes frame = ImageRequest{}.frame();
  for (size_t i = 0; i + 1 < frame.size(); ++i) {
    Service::send(peer, {frame[i]});
    EXPECT_EQ(service.turn(), "");
  }
  EXPECT_THAT(Service::receive(peer).bytes, IsEmpty());
  EXPECT_THAT(service.snaps[0].inbound, SizeIs(58));
  Service::send(peer, {frame.back()});
  service.turn();
  EXPECT_TRUE(is_image(Service::receive(peer).bytes));
}

TEST(SnapService, the_longest_request_is_read_piece_by_piece_in_one_turn) {
  Service service;
  const int peer = service.connect();
  Bytes frame = ImageRequest{.length = 65535}.frame();
  ASSERT_THAT(frame, SizeIs(65537));
  frame.pop_back();
  Service::send(peer, frame);
  service.turn();
  EXPECT_THAT(service.snaps[0].inbound, SizeIs(65536));
  EXPECT_THAT(Service::receive(peer).bytes, IsEmpty());
  Service::send(peer, {0});
  service.turn();
  EXPECT_TRUE(is_image(Service::receive(peer).bytes));
}

TEST(SnapService, a_frame_of_length_1_is_complete_with_its_third_byte) {
  Service service;
  const int peer = service.connect();
  Service::send(peer, hex("01 00"));
  service.turn();
  EXPECT_FALSE(Service::receive(peer).closed);
  Service::send(peer, hex("7A"));
  service.turn();
  const Received received = Service::receive(peer);
  EXPECT_EQ(received.bytes, ERROR_U);
  EXPECT_TRUE(received.closed);
}

TEST(SnapService, a_frame_of_length_0_is_never_answered_and_ends_with_the_time_limit) {
  Service service;
  const int peer = service.connect();
  Service::send(peer, joined({hex("00 00"), ImageRequest{}.frame()}));
  service.turn();
  service.advance_ms(10000);
  service.turn();
  EXPECT_FALSE(Service::receive(peer).closed);
  service.advance_ms(1);
  EXPECT_EQ(service.turn(), "");
  const Received received = Service::receive(peer);
  EXPECT_TRUE(received.closed);
  EXPECT_THAT(received.bytes, IsEmpty());
}

TEST(SnapService, a_connection_without_a_request_closes_in_silence_after_more_than_10000_ms) {
  Service service;
  const int peer = service.connect();
  service.advance_ms(10000);
  service.turn();
  EXPECT_FALSE(Service::receive(peer).closed);
  EXPECT_GE(service.snaps[0].fd, 0);
  service.advance_ms(1);
  EXPECT_EQ(service.turn(), "");
  const Received received = Service::receive(peer);
  EXPECT_TRUE(received.closed);
  EXPECT_THAT(received.bytes, IsEmpty());
  EXPECT_EQ(service.snaps[0].fd, -1);
}

TEST(SnapService, the_time_limit_counts_from_acceptance_and_not_from_the_last_byte) {
  Service service;
  const int peer = service.connect();
  Service::send(peer, hex("39"));
  service.advance_ms(9999);
  service.turn();
  Service::send(peer, hex("00"));
  service.advance_ms(2);
  service.turn();
  EXPECT_TRUE(Service::receive(peer).closed);
}

TEST(SnapService, a_complete_request_is_answered_however_old_the_connection_is) {
  Service service;
  const int peer = service.connect();
  Service::send(peer, ImageRequest{}.frame());
  service.advance_ms(20000);
  service.turn();
  EXPECT_TRUE(is_image(Service::receive(peer).bytes));
}

TEST(SnapService, a_peer_that_ends_in_the_same_pass_gets_nothing_for_its_whole_request) {
  Service service;
  const int peer = service.connect();
  Service::send(peer, ImageRequest{}.frame());
  ::shutdown(peer, SHUT_WR);
  EXPECT_EQ(service.turn(), "");
  const Received received = Service::receive(peer);
  EXPECT_TRUE(received.closed);
  EXPECT_THAT(received.bytes, IsEmpty());
  EXPECT_EQ(service.snaps[0].fd, -1);
  EXPECT_EQ(service.exchange.engine.snapshots_served, 0u);
}

TEST(SnapService, a_read_error_closes_without_an_answer) {
  Service service;
  std::array<int, 2> pipe_ends{};
  ASSERT_EQ(0, ::pipe(pipe_ends.data()));  // recv on a pipe fails, and not by EAGAIN
  service.snaps.push_back({pipe_ends[0], ImageRequest{}.frame(), 0});
  EXPECT_EQ(service.turn(), "");
  EXPECT_EQ(service.snaps[0].fd, -1);
  EXPECT_EQ(::fcntl(pipe_ends[0], F_GETFD), -1);
  ::close(pipe_ends[1]);
}

TEST(SnapService, a_failed_send_loses_the_rest_ends_the_connection_and_raises_no_signal) {
  Service service;
  const int peer = service.connect();
  Service::send(peer, ImageRequest{}.frame());
  ::shutdown(peer, SHUT_RD);
  EXPECT_THAT(service.turn(), testing::StartsWith("bench: DEEP SNAP served"));
  EXPECT_EQ(service.snaps[0].fd, -1);
}

TEST(SnapService, a_reply_larger_than_the_socket_s_buffer_waits_for_its_reader) {
  Service service;
  for (int i = 0; i < 3000; ++i) rest_unflushed(service.exchange, true, 10000 + i * 100, 100);
  const int peer = service.connect();
  const int smallest = 1;
  ::setsockopt(service.snaps[0].fd, SOL_SOCKET, SO_SNDBUF, &smallest, sizeof smallest);
  Service::send(peer, ImageRequest{}.frame());

  Received received;
  std::thread reader([&] {
    while (!received.closed) {
      pollfd readable{peer, POLLIN, 0};
      if (::poll(&readable, 1, 10000) != 1) return;
      const Received more = Service::receive(peer);
      received.bytes.insert(received.bytes.end(), more.bytes.begin(), more.bytes.end());
      received.closed = more.closed;
    }
  });
  service.turn();
  reader.join();
  EXPECT_TRUE(received.closed);
  ASSERT_TRUE(is_image(received.bytes));
  EXPECT_EQ(number_at(received.bytes, 3, 8), received.bytes.size());
  EXPECT_GT(received.bytes.size(), 3000u * 75);
}

TEST(SnapService, connections_are_served_in_order_and_closed_ones_are_passed_over) {
  Service service;
  const int first = service.connect();
  const int second = service.connect();
  const int third = service.connect();
  Service::send(first, ImageRequest{.session = 1}.frame());
  service.turn();
  Service::send(second, ImageRequest{.minimum = 0}.frame());
  rest_unflushed(service.exchange, true, 99900, 100);
  Service::send(third, ImageRequest{.minimum = 1}.frame());
  EXPECT_THAT(service.turn(),
              testing::MatchesRegex("bench: DEEP SNAP served at seq 1 .*requested minimum 0.\n"
                                    "bench: DEEP SNAP served at seq 1 .*requested minimum 1.\n"));
  EXPECT_EQ(Service::receive(first).bytes, ERROR_S);
  EXPECT_TRUE(is_image(Service::receive(second).bytes));
  EXPECT_TRUE(is_image(Service::receive(third).bytes));
}

// --- Acceptance ---

int listener_on_free_port(sockaddr_in& address) {
  const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK, 0);
  address = {};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  EXPECT_EQ(0, ::bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address));
  EXPECT_EQ(0, ::listen(fd, 8));
  EXPECT_EQ(0, ::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size));
  return fd;
}

int connected_to(const sockaddr_in& address) {
  const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
  EXPECT_EQ(0, ::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address));
  return fd;
}

TEST(SnapAcceptance, takes_all_that_wait_sets_them_non_blocking_and_notes_the_time) {
  test::reset_clocks();
  sockaddr_in address{};
  const int listener = listener_on_free_port(address);
  const int first = connected_to(address);
  const int second = connected_to(address);
  test::UdpInbox{}.settle();
  std::vector<SnapConnection> snaps;
  accept_snap_connections(listener, snaps);
  ASSERT_THAT(snaps, SizeIs(2));
  for (const SnapConnection& snap : snaps) {
    EXPECT_NE(::fcntl(snap.fd, F_GETFL) & O_NONBLOCK, 0);
    EXPECT_THAT(snap.inbound, IsEmpty());
    EXPECT_EQ(snap.accepted_ms, static_cast<int64_t>(test::START_STEADY_MS));
    ::close(snap.fd);
  }
  accept_snap_connections(listener, snaps);
  EXPECT_THAT(snaps, SizeIs(2));
  ::close(first);
  ::close(second);
  ::close(listener);
}

TEST(SnapAcceptance, without_a_listener_nothing_is_accepted) {
  std::vector<SnapConnection> snaps;
  accept_snap_connections(-1, snaps);
  EXPECT_THAT(snaps, IsEmpty());
}

}  // namespace
}  // namespace quorl
