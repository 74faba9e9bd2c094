// Gap fill: what is answered and what is not, how an answer is cut into packets, and that it
// repeats byte for byte what was multicast.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <fstream>
#include <functional>
#include <limits>
#include <map>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "quorl/client/bytes.h"
#include "quorl/client/errors.h"
#include "quorl/client/gap_fill_client.h"
#include "quorl/client/iex_tp.h"
#include "quorl/client/simulator.h"
#include "quorl/client/udp.h"
#include "tests/e2e/support/exchange.h"

namespace client = quorl::client;

namespace e2e {
namespace {

using client::Bytes;
using client::GapFillAnswer;
using client::GapFillClient;
using client::GapFillRequest;
using client::SeqRange;
using client::TpMessage;
using client::TpPacket;
using testing::ElementsAre;

using Messages = std::map<uint64_t, TpMessage>;  // by true sequence number

/// A market at full speed.
client::SimulatorOptions fast(std::vector<std::string> arguments = {}) {
  arguments.insert(arguments.begin(), {"--interval-ms", "0"});
  return living(std::move(arguments));
}

GapFillClient gap_fill(Exchange& exchange) {
  return {exchange.ports().gap_fill, exchange.simulator().session()};
}

/// Lets the market run until `seq` has been published and pauses it. All has arrived by then.
/// Returns the last number given out.
uint64_t run_up_to(Exchange& exchange, uint64_t seq) {
  exchange.feed().await_seq(seq);
  exchange.control().ok("pause");
  (void)exchange.book();
  return exchange.feed().last_seq();
}

/// What the feed has shown, whole packets in order of arrival: no fault is set where this is used,
/// so the numbers are a mere count.
Messages multicast(Exchange& exchange) {
  Messages messages;
  for (const client::FeedPacket& packet : exchange.feed().packets()) {
    for (const TpMessage& message : packet.packet.messages) {
      messages.emplace(messages.size() + 1, message);
    }
  }
  return messages;
}

/// The first difference between messages first to last of the two; empty if there is none.
std::string difference(const Messages& expected, const Messages& actual, uint64_t first,
                       uint64_t last) {
  for (uint64_t seq = first; seq <= last; ++seq) {
    const auto found = actual.find(seq);
    if (found == actual.end()) return "number " + std::to_string(seq) + " is missing";
    const TpMessage& wanted = expected.at(seq);
    if (found->second.stream_offset != wanted.stream_offset) {
      return "number " + std::to_string(seq) + " is said to begin at " +
             std::to_string(found->second.stream_offset) + ", not at " +
             std::to_string(wanted.stream_offset);
    }
    if (found->second.bytes != wanted.bytes) {
      return "number " + std::to_string(seq) + " is " + client::hex(found->second.bytes) +
             " and not " + client::hex(wanted.bytes);
    }
  }
  if (actual.size() != last - first + 1) return "there are messages besides";
  return "";
}

std::vector<size_t> sizes(const std::vector<TpPacket>& packets) {
  std::vector<size_t> sizes;
  for (const TpPacket& packet : packets) sizes.push_back(packet.size());
  return sizes;
}

std::vector<size_t> counts(const std::vector<TpPacket>& packets) {
  std::vector<size_t> counts;
  for (const TpPacket& packet : packets) counts.push_back(packet.messages.size());
  return counts;
}

/// What waits unread at the UDP port, as the kernel's table counts it: an empty datagram too.
uint64_t unread(uint16_t port) {
  constexpr int HEX = 16;
  uint64_t sum = 0;
  std::ifstream table("/proc/net/udp");
  std::string line;
  std::getline(table, line);  // the heading
  while (std::getline(table, line)) {
    std::istringstream words(line);
    std::string number, local, remote, state, queues;
    words >> number >> local >> remote >> state >> queues;
    if (std::stoul(local.substr(local.find(':') + 1), nullptr, HEX) != port) continue;
    sum += std::stoull(queues.substr(queues.find(':') + 1), nullptr, HEX);
  }
  return sum;
}

/// Sends to an exchange that is stopped and waits until the kernel holds the datagram there.
void send_and_await(GapFillClient& client, const Exchange& exchange, const Bytes& datagram) {
  const uint16_t port = exchange.ports().gap_fill;
  const uint64_t before = unread(port);
  client.send(datagram);
  const client::Deadline deadline = client::Deadline::after(client::PATIENCE);
  while (unread(port) <= before) {
    if (deadline.expired()) throw client::Timeout("the datagram does not reach the exchange");
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
}

TEST(GapFill, everything_ever_multicast_comes_back_byte_for_byte_at_its_number_and_offset) {
  Exchange exchange(fast({"--touch-hit", "1"}));
  const uint64_t last = run_up_to(exchange, 5000);
  const Messages again = gap_fill(exchange).fetch_all(1, last);
  EXPECT_EQ(difference(multicast(exchange), again, 1, last), "");
}

TEST(GapFill, a_reply_is_an_ordinary_packet_of_the_feed) {
  Exchange exchange(still());
  (void)exchange.book();
  const auto first = exchange.feed().messages()[4];
  const auto second = exchange.feed().messages()[5];
  client::UdpSocket socket = client::UdpSocket::on_loopback();
  const uint64_t before = system_ns();
  socket.send_to(
      exchange.ports().gap_fill,
      encode(GapFillRequest{.session_id = exchange.simulator().session(), .ranges = {{5, 6}}}));
  const auto datagram = socket.receive(client::Deadline::after(client::PATIENCE));
  ASSERT_TRUE(datagram);
  const uint64_t send_time = client::decode_tp_packet(datagram->bytes).header.send_time_ns;
  EXPECT_GE(send_time, before);
  EXPECT_LE(send_time, system_ns());

  Bytes expected;
  client::put_u8(expected, 1);
  client::put_u8(expected, 0);
  client::put_u16(expected, 0x8004);
  client::put_u32(expected, 1);
  client::put_u32(expected, exchange.simulator().session());
  client::put_u16(expected, static_cast<uint16_t>(first.bytes.size() + second.bytes.size() + 4));
  client::put_u16(expected, 2);
  client::put_u64(expected, first.stream_offset);
  client::put_u64(expected, 5);
  client::put_u64(expected, send_time);
  for (const auto& message : {first, second}) {
    client::put_u16(expected, static_cast<uint16_t>(message.bytes.size()));
    client::put_bytes(expected, message.bytes);
  }
  EXPECT_EQ(client::hex(datagram->bytes), client::hex(expected));
}

TEST(GapFill, the_first_message_of_a_packet_that_announced_one_too_high_has_its_true_number) {
  Exchange exchange(still({"--symbols", symbols(20)}));
  (void)exchange.book();
  GapFillClient client = gap_fill(exchange);
  uint64_t first = 1;
  unsigned too_high = 0;
  for (const client::FeedPacket& packet : exchange.feed().packets()) {
    const TpPacket& shown = packet.packet;
    if (shown.is_heartbeat()) continue;
    const uint64_t last = first + shown.messages.size() - 1;
    const GapFillAnswer answer = client.fetch({{first, last}});
    ASSERT_EQ(answer.packets.size(), 1u);
    const TpPacket& filled = answer.packets[0];
    EXPECT_EQ(filled.header.first_seq, first);
    EXPECT_EQ(filled.header.stream_offset, shown.header.stream_offset);
    EXPECT_EQ(filled.header.payload_length, shown.header.payload_length);
    ASSERT_EQ(filled.messages.size(), shown.messages.size());
    for (size_t i = 0; i < shown.messages.size(); ++i) {
      EXPECT_EQ(client::hex(filled.messages[i].bytes), client::hex(shown.messages[i].bytes));
    }
    if (shown.header.first_seq != first) {
      EXPECT_EQ(shown.header.first_seq, first + 1);
      ++too_high;
    }
    first = last + 1;
  }
  EXPECT_GT(exchange.feed().packets()[1].packet.header.first_seq,
            exchange.feed().packets()[0].packet.messages.size() + 1);
  EXPECT_GE(too_high, 1u);
}

TEST(GapFill, level_updates_go_45_to_a_packet) {
  // Nothing trades at this speed and size of step, so the feed is level updates alone.
  Exchange exchange(fast({"--step-bps", "0", "--touch-hit", "0"}));
  const uint64_t last = run_up_to(exchange, 500);
  const GapFillAnswer answer = gap_fill(exchange).fetch({{last - 90, last}});
  EXPECT_THAT(counts(answer.packets), ElementsAre(45, 45, 1));
  EXPECT_THAT(sizes(answer.packets), ElementsAre(1480, 1480, 72));
}

TEST(GapFill, a_request_brings_1000_messages_and_no_word_of_the_rest) {
  Exchange exchange(fast());
  const uint64_t last = run_up_to(exchange, 3000);
  GapFillClient client = gap_fill(exchange);
  const Messages shown = multicast(exchange);
  EXPECT_EQ(difference(shown, client.fetch({{1, 5000}}).messages, 1, 1000), "");
  EXPECT_EQ(difference(shown, client.fetch({{1001, 5000}}).messages, 1001, 2000), "");
  EXPECT_EQ(difference(shown, client.fetch({{last - 999, last}}).messages, last - 999, last), "");
}

TEST(GapFill, the_1000_messages_are_shared_by_all_ranges_of_a_request) {
  Exchange exchange(fast());
  run_up_to(exchange, 3000);
  GapFillClient client = gap_fill(exchange);
  const Messages shown = multicast(exchange);

  const GapFillAnswer touching = client.fetch({{1, 800}, {801, 1600}});
  EXPECT_EQ(difference(shown, touching.messages, 1, 1000), "");
  const auto second =
      std::find_if(touching.packets.begin(), touching.packets.end(),
                   [](const TpPacket& packet) { return packet.header.first_seq == 801; });
  EXPECT_NE(second, touching.packets.end()) << "each range begins a packet of its own";

  const Messages apart = client.fetch({{101, 900}, {1501, 2300}, {2401, 2500}}).messages;
  ASSERT_EQ(apart.size(), 1000u);
  EXPECT_EQ(apart.begin()->first, 101u);
  EXPECT_EQ(apart.rbegin()->first, 1700u) << "the second range is cut after 200, the third empty";
  EXPECT_TRUE(apart.contains(900));
  EXPECT_TRUE(apart.contains(1501));
}

TEST(GapFill, what_was_never_given_out_is_left_out_without_a_word) {
  Exchange exchange(still());
  (void)exchange.book();
  const uint64_t last = exchange.feed().last_seq();
  constexpr uint64_t HIGHEST = std::numeric_limits<uint64_t>::max();
  const Messages shown = multicast(exchange);
  GapFillClient client = gap_fill(exchange);
  EXPECT_TRUE(client.fetch({{last + 1, last + 1}}).packets.empty());
  EXPECT_TRUE(client.fetch({{HIGHEST, HIGHEST}}).packets.empty());
  EXPECT_TRUE(client.fetch({{0, 0}}).packets.empty());
  EXPECT_EQ(difference(shown, client.fetch({{0, 2}}).messages, 1, 2), "");
  EXPECT_EQ(difference(shown, client.fetch({{last, HIGHEST}}).messages, last, last), "");
  EXPECT_EQ(difference(shown, client.fetch({{0, HIGHEST}}).messages, 1, last), "");
  const Messages parts = client.fetch({{0, 0}, {3, 3}, {last + 5, last + 9}}).messages;
  EXPECT_EQ(difference(shown, parts, 3, 3), "");
}

TEST(GapFill, the_oldest_messages_leave_the_history_of_400000_one_by_one) {
  // Each symbol opens with six messages about itself and forty orders, which never trade.
  constexpr unsigned SYMBOLS = 9000;
  constexpr uint64_t OPENING = 3 + SYMBOLS * 46;
  constexpr uint64_t KEPT = 400000;
  client::Simulator simulator(still({"--symbols", symbols(SYMBOLS)}));
  simulator.start();
  GapFillClient client(simulator.ports().gap_fill, simulator.session());
  ASSERT_EQ(client.status().next_seq, OPENING + 1);

  const uint64_t oldest = OPENING - KEPT + 1;
  EXPECT_TRUE(client.fetch({{1, oldest - 1}}).packets.empty());
  const GapFillAnswer front = client.fetch({{1, OPENING}});
  EXPECT_EQ(front.packets.at(0).header.first_seq, oldest);
  EXPECT_EQ(front.messages.size(), 1000u);
  EXPECT_EQ(client.fetch({{oldest - 1, oldest}}).messages.size(), 1u);
  EXPECT_EQ(client.fetch({{OPENING, OPENING}}).messages.size(), 1u);

  client::FixSession alpha(simulator.ports().fix, "ALPHA");
  alpha.logon();
  alpha.new_order({.cl_ord_id = "a1", .symbol = "S7", .price = "20"});
  alpha.hears("35=8|150=0|11=a1");
  EXPECT_EQ(client.fetch({{1, OPENING}}).packets.at(0).header.first_seq, oldest + 1);
  EXPECT_EQ(client.fetch({{OPENING + 1, OPENING + 1}}).messages.size(), 1u);
}

TEST(GapFill, no_ranges_ask_for_the_position_of_the_stream) {
  Exchange exchange(still());
  (void)exchange.book();
  const uint64_t before = system_ns();
  client::UdpSocket socket = client::UdpSocket::on_loopback();
  socket.send_to(exchange.ports().gap_fill,
                 encode(GapFillRequest{.session_id = exchange.simulator().session()}));
  const auto datagram = socket.receive(client::Deadline::after(client::PATIENCE));
  ASSERT_TRUE(datagram);
  ASSERT_EQ(datagram->bytes.size(), 40u);
  const auto header = client::decode_tp_header(datagram->bytes, exchange.simulator().session());
  EXPECT_EQ(header.payload_length, 0);
  EXPECT_EQ(header.message_count, 0);
  EXPECT_EQ(header.first_seq, exchange.control().stats().next_seq);
  EXPECT_EQ(header.first_seq, exchange.feed().last_seq() + 1);
  const auto& last = exchange.feed().messages().back();
  EXPECT_EQ(header.stream_offset, last.stream_offset + last.bytes.size() + 2);
  EXPECT_GE(header.send_time_ns, before);
  EXPECT_LE(header.send_time_ns, system_ns());
}

TEST(GapFill, bytes_behind_the_last_range_are_not_looked_at) {
  Exchange exchange(still());
  (void)exchange.book();
  GapFillClient client = gap_fill(exchange);
  GapFillRequest request{.session_id = client.session(), .ranges = {{2, 4}}};
  request.trailing = {0xff, 0, 1, 2, 3};
  const GapFillAnswer answer = client.fetch_raw(encode(request));
  ASSERT_EQ(answer.packets.size(), 1u);
  EXPECT_EQ(answer.packets[0].header.first_seq, 2u);
  EXPECT_EQ(answer.packets[0].messages.size(), 3u);

  // A position is asked for as well, if the count says that there are no ranges.
  request.range_count = 0;
  const GapFillAnswer status = client.fetch_raw(encode(request));
  EXPECT_TRUE(status.packets.empty());
  EXPECT_EQ(status.next_seq, exchange.feed().last_seq() + 1);
  const auto second = client.receive(client::PATIENCE);
  ASSERT_TRUE(second) << "the request itself was a status query too";
  EXPECT_TRUE(second->is_heartbeat());
}

TEST(GapFill, a_request_with_any_defect_is_not_answered_at_all) {
  Exchange exchange(still());
  (void)exchange.book();
  GapFillClient client = gap_fill(exchange);
  struct Defect {
    const char* name;
    std::function<Bytes(GapFillRequest)> make;
  };
  const auto with = [](const std::function<void(GapFillRequest&)>& spoil) {
    return [spoil](GapFillRequest request) {
      spoil(request);
      return encode(request);
    };
  };
  const auto cut_to = [](size_t size) {
    return [size](const GapFillRequest& request) {
      Bytes bytes = encode(request);
      bytes.resize(size);
      return bytes;
    };
  };
  const Defect defects[] = {
      {"version 0", with([](auto& r) { r.version = 0; })},
      {"version 2", with([](auto& r) { r.version = 2; })},
      {"kind 0", with([](auto& r) { r.kind = 0; })},
      {"kind 2, which is well-formed", with([](auto& r) { r.kind = 2; })},
      {"kind 2 without ranges", with([](auto& r) { r.kind = 2, r.ranges.clear(); })},
      {"kind 3", with([](auto& r) { r.kind = 3; })},
      {"another protocol", with([](auto& r) { r.protocol_id = 0x8003; })},
      {"another channel", with([](auto& r) { r.channel_id = 2; })},
      {"another session", with([](auto& r) { r.session_id += 1; })},
      {"another session without ranges",
       with([](auto& r) { r.session_id += 1, r.ranges.clear(); })},
      {"one range more than there is", with([](auto& r) { r.range_count = 3; })},
      {"a count whose bytes are 2^32", with([](auto& r) { r.range_count = 0x0fffffff; })},
      {"the highest count", with([](auto& r) { r.range_count = 0xffffffff; })},
      {"a range backwards", with([](auto& r) {
         r.ranges = {{6, 5}};
       })},
      {"the second range backwards", with([](auto& r) {
         r.ranges = {{1, 2}, {6, 5}};
       })},
      {"ranges that touch", with([](auto& r) {
         r.ranges = {{5, 9}, {9, 12}};
       })},
      {"ranges that overlap", with([](auto& r) {
         r.ranges = {{5, 9}, {7, 12}};
       })},
      {"ranges that descend", with([](auto& r) {
         r.ranges = {{5, 9}, {1, 2}};
       })},
      {"a bad range behind good ones", with([](auto& r) {
         r.ranges = {{1, 2}, {4, 5}, {5, 6}};
       })},
      {"the last byte missing", cut_to(16 + 2 * 16 - 1)},
      {"no ranges behind the head", cut_to(16)},
      {"15 bytes", cut_to(15)},
      {"one byte", cut_to(1)},
  };
  for (const Defect& defect : defects) {
    SCOPED_TRACE(defect.name);
    const Bytes bytes = defect.make({.session_id = client.session(), .ranges = {{1, 2}, {4, 5}}});
    const GapFillAnswer answer = client.fetch_raw(bytes);
    EXPECT_TRUE(answer.packets.empty());
    EXPECT_EQ(answer.next_seq, exchange.feed().last_seq() + 1);
    client.send(encode(GapFillRequest{.session_id = client.session(), .ranges = {{1, 1}}}));
    const auto next = client.receive(client::PATIENCE);
    ASSERT_TRUE(next);
    EXPECT_EQ(next->messages.size(), 1u) << "a status packet came for the bad request";
  }
  EXPECT_THAT(counts(client.fetch({{5, 9}, {10, 12}}).packets), ElementsAre(5, 3));
}

TEST(GapFill, a_datagram_holds_127_ranges_and_a_longer_one_is_cut_and_refused) {
  Exchange exchange(still());
  (void)exchange.book();
  ASSERT_GT(exchange.feed().last_seq(), 128u);
  GapFillClient client = gap_fill(exchange);
  std::vector<SeqRange> ranges;
  for (uint64_t seq = 1; seq <= 127; ++seq) ranges.push_back({seq, seq});
  const GapFillAnswer answer = client.fetch(ranges);
  EXPECT_EQ(answer.packets.size(), 127u);
  EXPECT_EQ(difference(multicast(exchange), answer.messages, 1, 127), "");
  ranges.push_back({128, 128});
  EXPECT_TRUE(client.fetch(ranges).packets.empty());
}

TEST(GapFill, an_empty_datagram_ends_a_turns_reading_and_what_is_behind_it_waits_for_the_next) {
  // The market ticks between any two turns, so an answer's next number tells its turn.
  Exchange exchange(fast());
  GapFillClient client = gap_fill(exchange);
  const Bytes status = encode(GapFillRequest{.session_id = client.session()});
  exchange.simulator().stop_process();
  for (const Bytes& datagram : {status, status, Bytes(), status}) {
    send_and_await(client, exchange, datagram);
  }
  exchange.simulator().cont_process();
  std::vector<uint64_t> next_seqs;
  while (next_seqs.size() < 3) {
    const auto answer = client.receive(client::PATIENCE);
    ASSERT_TRUE(answer);
    next_seqs.push_back(answer->header.first_seq);
  }
  EXPECT_EQ(next_seqs[0], next_seqs[1]);
  EXPECT_GT(next_seqs[2], next_seqs[1]);
}

TEST(GapFill, requests_of_one_turn_are_each_answered_to_the_socket_that_asked) {
  Exchange exchange(still());
  (void)exchange.book();
  GapFillClient first = gap_fill(exchange);
  GapFillClient second = gap_fill(exchange);
  const auto ask = [&exchange](GapFillClient& client, SeqRange range) {
    send_and_await(client, exchange,
                   encode(GapFillRequest{.session_id = client.session(), .ranges = {range}}));
  };
  exchange.simulator().stop_process();
  ask(first, {1, 3});
  ask(second, {4, 8});
  ask(first, {9, 9});
  exchange.simulator().cont_process();
  const auto first_seq_and_count = [](GapFillClient& client) {
    const auto packet = client.receive(client::PATIENCE);
    if (!packet) return std::pair<uint64_t, size_t>(0, 0);
    return std::pair<uint64_t, size_t>(packet->header.first_seq, packet->messages.size());
  };
  EXPECT_EQ(first_seq_and_count(first), (std::pair<uint64_t, size_t>(1, 3)));
  EXPECT_EQ(first_seq_and_count(first), (std::pair<uint64_t, size_t>(9, 1)));
  EXPECT_EQ(first_seq_and_count(second), (std::pair<uint64_t, size_t>(4, 5)));
}

TEST(GapFill, faults_of_the_feed_touch_neither_the_history_nor_the_answers) {
  Exchange exchange(fast({"--drop-every", "1"}));
  exchange.control().ok("reorder 1000");
  exchange.control().ok("dup 1000");
  const client::Deadline deadline = client::Deadline::after(client::PATIENCE);
  while (exchange.control().stats().next_seq < 1500) ASSERT_FALSE(deadline.expired());
  exchange.control().ok("pause");
  const client::ControlStats stats = exchange.control().stats();
  EXPECT_EQ(stats.faults.sent, 0u);
  GapFillClient client = gap_fill(exchange);
  const Messages all = client.fetch_all(1, stats.next_seq - 1);
  EXPECT_EQ(all.size(), stats.next_seq - 1);
  uint64_t offset = 0;
  for (const auto& [seq, message] : all) {
    ASSERT_EQ(message.stream_offset, offset) << "number " << seq;
    offset = message.end_offset();
  }
  EXPECT_EQ(client.status().stream_offset, offset);
  EXPECT_EQ(exchange.control().stats().faults.dropped, stats.faults.dropped)
      << "an answer is no packet of the feed";
  EXPECT_EQ(exchange.control().stats().next_seq, stats.next_seq);
}

TEST(GapFill, without_a_port_of_its_own_it_listens_on_the_number_of_the_snap_port) {
  client::SimulatorOptions options = still();
  options.gap_fill_port = false;
  Exchange exchange(options);
  EXPECT_EQ(exchange.ports().gap_fill, exchange.ports().snap);
  EXPECT_EQ(gap_fill(exchange).fetch({{1, 3}}).messages.size(), 3u);
}

}  // namespace
}  // namespace e2e
