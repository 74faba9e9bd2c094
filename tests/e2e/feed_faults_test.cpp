// Packets dropped, repeated and held back: what is seen of it on the multicast wire, on standard
// error and in the counters, and what is not touched by it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <variant>
#include <vector>

#include "quorl/client/deep.h"
#include "quorl/client/gap_fill_client.h"
#include "quorl/client/snap_client.h"
#include "tests/e2e/support/watched_exchange.h"

namespace client = quorl::client;

namespace e2e {
namespace {

using client::FaultStats;
using client::FeedPacket;
using client::FixSession;
using client::Price4;
using client::TpPacket;
using testing::ElementsAre;
using testing::IsEmpty;

using Lines = std::vector<std::string>;

/// A still market in which every order placed is one packet with one message. Packets are named by
/// their place behind the opening, from 1 on.
class FaultyFeed {
 public:
  explicit FaultyFeed(const std::vector<std::string>& arguments = {})
      : exchange(still(arguments)), alpha_(exchange.logs_on("ALPHA")) {
    (void)exchange.lines();
    opening_ = exchange.control().stats().faults;
  }

  void sets(const std::string& command) { exchange.control().ok(command); }

  void publish(unsigned count) {
    for (; count > 0; --count) {
      const auto name = static_cast<unsigned>(seq_.size() + 1);
      alpha_.new_order(
          {.cl_ord_id = "p" + std::to_string(name), .price = client::price_text(price(name))});
      alpha_.hears("35=8|150=0");
      seq_.push_back(exchange.control().stats().next_seq - 1);
    }
  }

  /// The names of the packets on the wire, in the order of their arrival. Waits until there are as
  /// many as that; a test ends with a packet that must come, so that nothing is still to come.
  std::vector<unsigned> wire(size_t count) {
    exchange.feed().await([&] { return come().size() >= count; },
                          std::to_string(count) + " packets");
    return names_of(come());
  }

  /// Those packets as they came, duplicates too.
  std::vector<FeedPacket> come() {
    std::vector<FeedPacket> packets;
    for (const FeedPacket& packet : exchange.feed().packets()) {
      if (name_of(packet)) packets.push_back(packet);
    }
    return packets;
  }

  /// The packet of that name.
  TpPacket packet(unsigned name) {
    for (const FeedPacket& packet : exchange.feed().packets()) {
      if (name_of(packet) == name) return packet.packet;
    }
    throw std::logic_error("packet " + std::to_string(name) + " has not come");
  }

  uint64_t seq(unsigned name) const { return seq_.at(name - 1); }
  /// Its number in the run, which decides its fate.
  uint64_t number(unsigned name) const { return opening_.sent + opening_.dropped + name; }

  std::string dropped_line(unsigned name) const {
    return "quorl fault: dropped seq " + std::to_string(seq(name)) + " (packet " +
           std::to_string(number(name)) + ", 1 message(s))";
  }
  std::string held_line(unsigned name) const {
    return "quorl fault: reordered seq " + std::to_string(seq(name)) +
           " (held behind the next packet)";
  }
  std::string duplicated_line(unsigned name) const {
    return "quorl fault: duplicated seq " + std::to_string(seq(name));
  }

  /// Since the opening.
  FaultStats counted() {
    const FaultStats now = exchange.control().stats().faults;
    return {.sent = now.sent - opening_.sent,
            .dropped = now.dropped - opening_.dropped,
            .duplicated = now.duplicated - opening_.duplicated,
            .reordered = now.reordered - opening_.reordered};
  }

  WatchedExchange exchange;

 private:
  static client::Price4 price(unsigned name) { return to_price4("100") + 100 * Price4{name}; }

  static std::optional<unsigned> name_of(const FeedPacket& packet) {
    if (packet.packet.messages.size() != 1) return std::nullopt;
    const client::DeepMessage message = client::decode_deep(packet.packet.messages[0].bytes);
    const auto* update = std::get_if<client::LevelUpdate>(&message);
    if (update == nullptr || update->price <= price(0) || update->price > price(99)) {
      return std::nullopt;
    }
    return static_cast<unsigned>((update->price - price(0)) / 100);
  }

  static std::vector<unsigned> names_of(const std::vector<FeedPacket>& packets) {
    std::vector<unsigned> names;
    for (const FeedPacket& packet : packets) names.push_back(name_of(packet).value());
    return names;
  }

  FixSession alpha_;
  FaultStats opening_;
  std::vector<uint64_t> seq_;  // of each packet's message
};

// --- Each fault by itself ---

TEST(FeedFaults, dropped_packet_leaves_a_hole_that_gap_fill_closes) {
  FaultyFeed feed;
  feed.sets("drop 1");
  feed.publish(3);
  EXPECT_THAT(feed.wire(2), ElementsAre(2, 3));
  EXPECT_THAT(feed.exchange.lines(), ElementsAre(feed.dropped_line(1)));
  EXPECT_EQ(feed.counted(), (FaultStats{.sent = 2, .dropped = 1}));

  // Numbers and offsets run on as if it had been sent.
  const TpPacket behind = feed.packet(2);
  EXPECT_EQ(behind.header.first_seq, feed.seq(1) + 1);
  const client::Ports& ports = feed.exchange.ports();
  client::GapFillClient gap_fill(ports.gap_fill, feed.exchange.simulator().session());
  const auto answer = gap_fill.fetch({{feed.seq(1), feed.seq(1)}});
  ASSERT_EQ(answer.messages.count(feed.seq(1)), 1U);
  const client::TpMessage& lost = answer.messages.at(feed.seq(1));
  EXPECT_EQ(lost.end_offset(), behind.header.stream_offset);
  EXPECT_EQ(client::describe(client::decode_deep(lost.bytes)), "8 AAPL 100 @ 100.01 last");
}

TEST(FeedFaults, duplicate_follows_at_once_and_is_the_same_bytes) {
  FaultyFeed feed;
  feed.sets("dup 1");
  feed.publish(2);
  EXPECT_THAT(feed.wire(3), ElementsAre(1, 1, 2));
  EXPECT_THAT(feed.exchange.lines(), ElementsAre(feed.duplicated_line(1)));
  EXPECT_EQ(feed.counted(), (FaultStats{.sent = 2, .duplicated = 1}));
  const std::vector<FeedPacket> packets = feed.come();
  EXPECT_EQ(packets.at(0).raw.bytes, packets.at(1).raw.bytes);
  EXPECT_EQ(packets.at(2).packet.header.first_seq, feed.seq(1) + 1);
}

TEST(FeedFaults, packet_held_back_leaves_behind_the_next_one_as_it_was_stamped) {
  FaultyFeed feed;
  feed.sets("reorder 1");
  feed.publish(3);
  EXPECT_THAT(feed.wire(3), ElementsAre(2, 1, 3));
  EXPECT_THAT(feed.exchange.lines(), ElementsAre(feed.held_line(1)));
  EXPECT_EQ(feed.counted(), (FaultStats{.sent = 3, .reordered = 1}));
  EXPECT_LT(feed.packet(1).header.send_time_ns, feed.packet(2).header.send_time_ns);
  EXPECT_EQ(feed.packet(1).end_offset(), feed.packet(2).header.stream_offset);
}

// --- Every Nth ---

TEST(FeedFaults, every_nth_packet_of_the_run_is_dropped) {
  FaultyFeed feed;
  feed.sets("drop_every 3");
  feed.publish(7);
  feed.sets("drop_every 0");
  feed.publish(3);
  std::vector<unsigned> expected;
  Lines lines;
  for (unsigned name = 1; name <= 10; ++name) {
    if (name <= 7 && feed.number(name) % 3 == 0) {
      lines.push_back(feed.dropped_line(name));
    } else {
      expected.push_back(name);
    }
  }
  EXPECT_EQ(feed.wire(expected.size()), expected);
  EXPECT_EQ(feed.exchange.lines(), lines);
  EXPECT_EQ(feed.counted().dropped, lines.size());
}

TEST(FeedFaults, every_nth_packet_of_the_run_is_duplicated) {
  FaultyFeed feed;
  feed.sets("dup_every 2");
  feed.publish(5);
  feed.sets("dup_every 0");
  feed.publish(1);
  std::vector<unsigned> expected;
  Lines lines;
  for (unsigned name = 1; name <= 6; ++name) {
    expected.push_back(name);
    if (name <= 5 && feed.number(name) % 2 == 0) {
      expected.push_back(name);
      lines.push_back(feed.duplicated_line(name));
    }
  }
  EXPECT_EQ(feed.wire(expected.size()), expected);
  EXPECT_EQ(feed.exchange.lines(), lines);
  EXPECT_EQ(feed.counted(), (FaultStats{.sent = 6, .duplicated = lines.size()}));
}

TEST(FeedFaults, every_nth_packet_of_the_run_is_held_back) {
  FaultyFeed feed;
  feed.sets("reorder_every 3");
  feed.publish(7);
  feed.sets("reorder_every 0");
  feed.publish(3);
  std::vector<unsigned> expected;
  Lines lines;
  for (unsigned name = 1; name <= 10; ++name) {
    if (name <= 7 && feed.number(name) % 3 == 0) {
      lines.push_back(feed.held_line(name));
      continue;
    }
    expected.push_back(name);
    if (name - 1 <= 7 && name > 1 && feed.number(name - 1) % 3 == 0) expected.push_back(name - 1);
  }
  EXPECT_EQ(feed.wire(expected.size()), expected);
  EXPECT_EQ(feed.exchange.lines(), lines);
  EXPECT_EQ(feed.counted(), (FaultStats{.sent = 10, .reordered = lines.size()}));
}

// --- From the command line ---

// So many that the opening has packets whose announced number is one too high.
const std::vector<std::string> TWENTY_SYMBOLS = {"--symbols",
                                                 "A:10,B:10,C:10,D:10,E:10,F:10,G:10,H:10,I:10,"
                                                 "J:10,K:10,L:10,M:10,N:10,O:10,P:10,Q:10,R:10,"
                                                 "S:10,T:10"};

std::vector<std::string> of_twenty_symbols(std::vector<std::string> arguments) {
  arguments.insert(arguments.end(), TWENTY_SYMBOLS.begin(), TWENTY_SYMBOLS.end());
  return arguments;
}

/// The packets of the opening, each with the line that a run of the same seed prints if it drops
/// it.
std::vector<std::string> opening_if_dropped() {
  WatchedExchange exchange(still(TWENTY_SYMBOLS));
  (void)exchange.book();
  std::vector<std::string> lines;
  for (const FeedPacket& packet : exchange.feed().packets()) {
    if (packet.packet.is_heartbeat()) continue;
    lines.push_back("quorl fault: dropped seq " + std::to_string(packet.packet.header.first_seq) +
                    " (packet " + std::to_string(lines.size() + 1) + ", " +
                    std::to_string(packet.packet.header.message_count) + " message(s))");
  }
  return lines;
}

/// Runs the opening with these options and expects that exactly these packets are lost.
void expect_opening_losses(const std::vector<std::string>& arguments,
                           const std::vector<size_t>& packets) {
  WatchedExchange exchange(still(of_twenty_symbols(arguments)));
  const std::vector<std::string> opening = opening_if_dropped();
  std::vector<std::string> expected;
  for (const size_t n : packets) expected.push_back(opening.at(n - 1));
  std::vector<std::string> lines;
  for (const std::string& line : exchange.simulator().lines()) {
    if (line.starts_with("quorl fault:")) lines.push_back(line);
  }
  EXPECT_EQ(lines, expected);
  EXPECT_EQ(exchange.control().stats().faults,
            (FaultStats{.sent = opening.size() - packets.size(), .dropped = packets.size()}));
}

TEST(FeedFaults, drop_every_counts_from_the_first_packet_of_the_opening) {
  std::vector<size_t> even;
  for (size_t n = 2; n <= opening_if_dropped().size(); n += 2) even.push_back(n);
  ASSERT_GE(even.size(), 3U);
  expect_opening_losses({"--drop-every", "2"}, even);
}

TEST(FeedFaults, burst_drops_its_length_from_its_first_packet_on) {
  expect_opening_losses({"--drop-burst", "2:3"}, {2, 3, 4});
}

TEST(FeedFaults, burst_without_a_length_is_one_packet) {
  expect_opening_losses({"--drop-burst", "3"}, {3});
}

TEST(FeedFaults, burst_from_packet_0_ends_one_early_as_there_is_none) {
  expect_opening_losses({"--drop-burst", "0:3"}, {1, 2});
}

TEST(FeedFaults, dup_and_reorder_options_act_on_every_nth_packet) {
  FaultyFeed feed({"--dup-every", "2", "--reorder-every", "3"});
  feed.publish(12);
  std::vector<unsigned> expected;
  for (unsigned name = 1; name <= 12; ++name) {
    const uint64_t n = feed.number(name);
    if (n % 3 == 0) continue;  // and so a sixth packet's copy is lost
    expected.push_back(name);
    if (n % 2 == 0) expected.push_back(name);
    if (n % 3 == 1 && name > 1) expected.push_back(name - 1);
  }
  feed.sets("dup_every 0");
  feed.sets("reorder_every 0");
  feed.publish(1);
  expected.push_back(13);
  if (feed.number(12) % 3 == 0) expected.push_back(12);
  EXPECT_EQ(feed.wire(expected.size()), expected);
}

// --- What they leave alone ---

TEST(FeedFaults, heartbeats_are_outside_the_faults_and_do_not_release_what_is_held_back) {
  FaultyFeed feed;
  feed.sets("reorder 1");
  feed.publish(1);
  feed.sets("drop_every 1");
  feed.sets("dup_every 1");
  feed.sets("reorder_every 1");
  const FaultStats before = feed.counted();
  client::FeedSubscriber& subscriber = feed.exchange.feed();
  const TpPacket heartbeat = subscriber.packets()[subscriber.await_heartbeat()].packet;
  EXPECT_EQ(heartbeat.header.first_seq, feed.seq(1) + 1);
  EXPECT_EQ(feed.counted(), before);
  EXPECT_THAT(feed.come(), IsEmpty());

  for (const std::string fault : {"drop_every 0", "dup_every 0", "reorder_every 0"}) {
    feed.sets(fault);
  }
  feed.publish(2);
  EXPECT_THAT(feed.wire(3), ElementsAre(2, 1, 3));
  EXPECT_EQ(feed.packet(2).header.stream_offset, heartbeat.header.stream_offset);
  EXPECT_LT(feed.packet(1).header.send_time_ns, heartbeat.header.send_time_ns);
  EXPECT_EQ(feed.packet(1).end_offset(), heartbeat.header.stream_offset);
}

TEST(FeedFaults, book_and_orders_know_nothing_of_a_fault) {
  FaultyFeed feed;
  feed.sets("drop_every 1");
  feed.publish(2);
  const client::SnapImage image =
      client::SnapClient(feed.exchange.ports().snap, feed.exchange.simulator().session()).image();
  EXPECT_EQ(image.seq, feed.seq(2));
  const client::BidLevels bids = image.book().book("AAPL").bids;
  EXPECT_EQ(bids.at(to_price4("100.01")), 100U);
  EXPECT_EQ(bids.at(to_price4("100.02")), 100U);
}

}  // namespace
}  // namespace e2e
