// quorl-replay in front of those who follow a feed: what it sends is what was recorded, and it
// answers for it as the exchange would have.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "quorl/client/book.h"
#include "quorl/client/bytes.h"
#include "quorl/client/deep.h"
#include "quorl/client/errors.h"
#include "quorl/client/feed_subscriber.h"
#include "quorl/client/gap_fill_client.h"
#include "quorl/client/multicast_receiver.h"
#include "quorl/client/port_slot.h"
#include "quorl/client/recovering_subscriber.h"
#include "quorl/client/simulator.h"
#include "quorl/client/snap_client.h"
#include "quorl/client/tcp.h"
#include "quorl/client/temp_directory.h"
#include "tests/e2e/support/exchange.h"
#include "tests/tools/support/capture_bytes.h"
#include "tests/tools/support/made_feed.h"
#include "tests/tools/support/tool.h"

namespace tools_test {
namespace {

using client::Bytes;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr const char* RECORDED_GROUP = "239.1.2.3";
constexpr uint16_t RECORDED_PORT = 5555;

/// A directory for captures, and ports of our own to replay to.
class Replay : public testing::Test {
 protected:
  std::string path(const std::string& name = "day.pcap") const {
    return directory_.path() + "/" + name;
  }
  const client::Ports& ports() const { return slot_.ports(); }

  void has(const capture_bytes::PcapFile& file) const {
    capture_bytes::write_file(path(), file.bytes);
  }
  void has(const MadeFeed& feed) const { has(feed.on_file(RECORDED_GROUP, RECORDED_PORT)); }

  std::vector<std::string> words(const std::vector<std::string>& more = {}) const {
    std::vector<std::string> words = {path(),
                                      "--mcast",
                                      ports().group,
                                      "--port",
                                      std::to_string(ports().feed),
                                      "--snap-port",
                                      std::to_string(ports().snap),
                                      "--gapfill-port",
                                      std::to_string(ports().gap_fill)};
    words.insert(words.end(), more.begin(), more.end());
    return words;
  }
  std::unique_ptr<Tool> replays(const std::vector<std::string>& more = {}) const {
    return std::make_unique<Tool>("replay", words(more));
  }

  client::GapFillClient gap_fill(uint32_t session = hand_made::SESSION) const {
    return {ports().gap_fill, session};
  }
  /// Waits until the replay has come as far as this message.
  void await_sent(uint64_t seq) const {
    auto asking = gap_fill();
    const client::Deadline deadline = client::Deadline::after(client::PATIENCE);
    while (!deadline.expired()) {  // before its first packet there is no answer
      asking.send(encode(client::GapFillRequest{.session_id = hand_made::SESSION}));
      const auto status = asking.receive(std::chrono::milliseconds(50));
      if (status && status->header.first_seq > seq) return;
    }
    throw client::Timeout("number " + std::to_string(seq) + " has not been sent");
  }

  client::SnapClient snap(uint32_t session = hand_made::SESSION) const {
    return {ports().snap, session};
  }

 private:
  client::TempDirectory directory_;
  client::PortSlot slot_;
};

/// Everything that comes to the group, undecoded.
class Ear {
 public:
  explicit Ear(const client::Ports& ports) : receiver_(ports.group, ports.feed) {}

  /// Waits for so many packets in all; fewer come back if the time is over.
  std::vector<Bytes> hears(size_t count) {
    const client::Deadline deadline = client::Deadline::after(client::PATIENCE);
    while (heard_.size() < count && !deadline.expired()) {
      for (client::RawPacket& raw : receiver_.take(deadline))
        heard_.push_back(std::move(raw.bytes));
    }
    return heard_;
  }

  /// All that has come, once the replay is over: the kernel has it already.
  std::vector<Bytes> hears_all_of(size_t at_least) {
    hears(at_least);
    for (client::RawPacket& raw : receiver_.take()) heard_.push_back(std::move(raw.bytes));
    return heard_;
  }

 private:
  client::MulticastReceiver receiver_;
  std::vector<Bytes> heard_;
};

std::vector<Bytes> bytes_of(const MadeFeed& feed) {
  std::vector<Bytes> all;
  for (const MadeFeed::Packet& packet : feed.packets()) all.push_back(packet.bytes);
  return all;
}

Bytes under(uint32_t session, Bytes packet) {
  Bytes field;
  client::put_u32(field, session);
  std::copy(field.begin(), field.end(), packet.begin() + 8);
  return packet;
}

/// A run of the real exchange, recorded by quorl-record, and what a subscriber heard of it.
class RecordedDay {
 public:
  RecordedDay(const std::string& path, size_t packets,
              const std::vector<std::string>& arguments = {}) {
    client::Simulator simulator(e2e::living(arguments));
    client::FeedSubscriber feed(simulator.ports().group, simulator.ports().feed);
    Tool recorder("record", {path, simulator.ports().group, std::to_string(simulator.ports().feed),
                             "--count", std::to_string(packets)});
    recorder.complains("listening to");
    simulator.start();
    feed.await([&] { return feed.packets().size() >= packets; }, "the packets");
    if (recorder.end().status != 0) throw client::WireError("the recorder failed");
    simulator.terminate();
    for (size_t i = 0; i < packets; ++i) sent.push_back(feed.packets()[i].raw.bytes);
    for (const client::FeedMessage& message : feed.messages()) {
      if (message.packet < packets) messages.push_back(message);
    }
    for (const client::FeedMessage& message : messages) book.apply(message.message);
    session = simulator.session();
  }

  std::vector<Bytes> sent;
  std::vector<client::FeedMessage> messages;
  client::BookBuilder book;  // behind the last packet
  uint32_t session = 0;
};

TEST_F(Replay, sends_a_recorded_run_of_the_exchange_byte_by_byte) {
  const RecordedDay day(path(), 25);
  Ear ear(ports());
  auto replay = replays({"--speed", "4"});
  const Said said = replay->end();
  EXPECT_EQ(said.status, 0);
  EXPECT_EQ(said.out, "");
  EXPECT_EQ(ear.hears_all_of(25), day.sent);
  EXPECT_THAT(said.err, HasSubstr("as session " + std::to_string(day.session)));
  EXPECT_THAT(said.err,
              HasSubstr("sent 25 packets, " + std::to_string(day.messages.size()) + " messages"));
}

TEST_F(Replay, fills_the_gaps_of_a_run_with_drops_from_the_recording) {
  const RecordedDay day(path(), 20);
  Ear ear(ports());
  auto replay = replays({"--speed", "max", "--drop", "3,5", "--drop-every", "8", "--stay", "ever"});
  std::vector<Bytes> expected;
  for (size_t i = 0; i < day.sent.size(); ++i) {
    const size_t number = i + 1;
    if (number != 3 && number != 5 && number % 8 != 0) expected.push_back(day.sent[i]);
  }
  EXPECT_EQ(ear.hears(expected.size()), expected);
  replay->complains("dropped packet 16");

  auto filler = gap_fill(day.session);
  const auto filled = filler.fetch_all(1, day.messages.back().seq);
  ASSERT_EQ(filled.size(), day.messages.size());
  for (const client::FeedMessage& message : day.messages) {
    EXPECT_EQ(filled.at(message.seq).bytes, message.bytes);
    EXPECT_EQ(filled.at(message.seq).stream_offset, message.stream_offset);
  }
  replay->signal(SIGTERM);
  const Said said = replay->end();
  EXPECT_EQ(said.status, 0);
  EXPECT_THAT(said.err, HasSubstr("dropped packet 3, numbers"));
  EXPECT_THAT(said.err, HasSubstr("dropped 4 packets; gap fill: "));
}

TEST_F(Replay, is_followed_through_drops_to_the_book_of_the_recorded_day) {
  const RecordedDay day(path(), 40);
  client::RecoveringSubscriber subscriber(ports(), day.session);
  subscriber.follow_from_start();
  auto replay = replays({"--speed", "8", "--drop-every", "3", "--stay", "ever"});
  subscriber.await_seq(day.messages.back().seq);
  EXPECT_EQ(client::compare_levels(day.book.books(), subscriber.book().books()), "");
  EXPECT_EQ(subscriber.messages().size(), day.messages.size());
  for (const client::FeedMessage& message : day.messages) {
    EXPECT_EQ(subscriber.messages().at(message.seq).bytes, message.bytes);
  }
  EXPECT_GT(subscriber.counters().holes, 0u);
  EXPECT_EQ(subscriber.counters().images, 0u);
  EXPECT_EQ(subscriber.compare_with_image(), "");
}

TEST_F(Replay, is_joined_late_by_an_image) {
  const RecordedDay day(path(), 40);
  client::RecoveringSubscriber subscriber(ports());
  auto replay = replays({"--step"});
  for (int i = 0; i < 10; ++i) replay->type("");
  replay->prints("packet 10 of 40");
  subscriber.join_late();
  EXPECT_EQ(subscriber.counters().images, 1u);
  replay->type("30");
  subscriber.await_seq(day.messages.back().seq);
  EXPECT_EQ(client::compare_levels(day.book.books(), subscriber.book().books()), "");
  replay->close_input();
  EXPECT_EQ(replay->end().status, 0);
}

TEST_F(Replay, serves_the_image_of_the_present_place_at_every_step) {
  const RecordedDay day(path(), 15);
  auto replay = replays({"--step", "--stay", "ever"});
  replay->complains("as session");
  EXPECT_EQ(snap(day.session).exchange(encode(client::SnapRequest{.session_id = day.session})),
            client::to_bytes(std::string("\x02\0eR", 4)));  // nothing has been sent yet
  client::BookBuilder book;
  size_t applied = 0;
  for (size_t packet = 0; packet < day.sent.size(); ++packet) {
    replay->type("");
    replay->prints("packet " + std::to_string(packet + 1) + " of 15");
    const client::SnapImage image = snap(day.session).image();
    while (applied < day.messages.size() && day.messages[applied].packet <= packet) {
      book.apply(day.messages[applied++].message);
    }
    while (!book.consistent() && applied < day.messages.size()) {
      book.apply(day.messages[applied++].message);
    }
    EXPECT_EQ(image.seq, day.messages[applied - 1].seq);
    EXPECT_EQ(client::compare_levels(book.books(), image.book().books()), "") << packet;
  }
}

TEST_F(Replay, lets_a_packet_go_with_each_line_and_shows_it) {
  const MadeFeed feed = MadeFeed().opening().bids(4).heartbeat();
  has(feed);
  Ear ear(ports());
  auto replay = replays({"--step"});
  replay->complains("as session 77");
  replay->type("");
  replay->prints("packet 1 of 6, numbers 1 to 11");
  EXPECT_EQ(ear.hears(1).size(), 1u);
  replay->type("next");
  replay->prints("packet 2 of 6, numbers 12 to 12");
  replay->prints("  8 AAPL 1 @ 189 last");
  replay->type("2");
  replay->prints("packet 4 of 6, numbers 14 to 14");
  // The recording is not over, and its pace not that of the clock: nothing has gone by itself.
  EXPECT_EQ(gap_fill().status().next_seq, 15u);
  replay->type("q");
  const Said said = replay->end();
  EXPECT_EQ(said.status, 0);
  EXPECT_EQ(ear.hears_all_of(4).size(), 4u);
  EXPECT_THAT(said.err, HasSubstr("sent 4 packets, 14 messages"));
}

TEST_F(Replay, ends_its_steps_with_the_input) {
  has(MadeFeed().opening().bids(4).heartbeat());
  const Said said = run_tool("replay", words({"--step"}), "1\n5");
  EXPECT_EQ(said.status, 0);
  EXPECT_THAT(said.out, HasSubstr("packet 6 of 6, heartbeat, next is 16\n"));
}

TEST_F(Replay, is_never_ahead_of_its_pace) {
  has(MadeFeed().opening().bids(5));  // half a second
  for (const auto& [speed, at_least_ms] : {std::pair("1", 500), std::pair("2", 250)}) {
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(run_tool("replay", words({"--speed", speed})).status, 0);
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(at_least_ms));
  }
}

TEST_F(Replay, waits_for_nothing_at_the_highest_speed) {
  MadeFeed feed = MadeFeed().opening();
  feed.packets()[0].time_ns -= 3'600'000'000'000;  // an hour before the rest
  has(feed.bids(3));
  Ear ear(ports());
  EXPECT_EQ(run_tool("replay", words({"--speed", "max"})).status, 0);
  EXPECT_EQ(ear.hears_all_of(4), bytes_of(feed));
}

TEST_F(Replay, sends_each_round_under_a_session_of_its_own) {
  const MadeFeed feed = MadeFeed().opening().bids(2);
  has(feed);
  Ear ear(ports());
  const Said said = run_tool("replay", words({"--speed", "max", "--loop", "3"}));
  EXPECT_EQ(said.status, 0);
  std::vector<Bytes> expected;
  for (uint32_t round = 0; round < 3; ++round) {
    for (const Bytes& packet : bytes_of(feed)) {
      expected.push_back(under(hand_made::SESSION + round, packet));
    }
  }
  EXPECT_EQ(ear.hears_all_of(9), expected);
  EXPECT_THAT(said.err, HasSubstr("sent 9 packets, 39 messages in 3 rounds"));
}

TEST_F(Replay, loops_until_it_is_stopped) {
  has(MadeFeed().opening().bids(2));
  Ear ear(ports());
  Tool replay("replay", [this] {
    std::vector<std::string> all = {"--speed", "20", "--loop"};  // the file stands behind it
    for (const std::string& word : words()) all.push_back(word);
    return all;
  }());
  EXPECT_GE(ear.hears(20).size(), 20u);
  replay.signal(SIGINT);
  EXPECT_EQ(replay.end().status, 0);
}

TEST_F(Replay, answers_only_for_the_session_of_the_present_round) {
  has(MadeFeed().opening().bids(2));
  auto replay = replays({"--step", "--loop", "2", "--session", "500"});
  for (int i = 0; i < 3; ++i) replay->type("");
  replay->prints("packet 3 of 3");
  EXPECT_EQ(gap_fill(500).status().next_seq, 14u);
  replay->type("");
  replay->prints("packet 1 of 3", 10);
  auto now = gap_fill(501);
  EXPECT_EQ(now.status().next_seq, 12u);
  // Asked for the round that is over, it stays silent: only our own status query is answered.
  EXPECT_THAT(now.fetch_raw(encode(client::GapFillRequest{.session_id = 500})).packets, IsEmpty());
  EXPECT_EQ(now.fetch({{1, 100}}).messages.size(), 11u);
  EXPECT_EQ(snap(501).image().seq, 11u);
  EXPECT_EQ(std::get<client::SnapError>(snap(501).request({.session_id = 500})).code, 'S');
}

TEST_F(Replay, takes_a_new_session_from_the_clock) {
  has(MadeFeed().opening());
  Ear ear(ports());
  EXPECT_EQ(run_tool("replay", words({"--session", "new"})).status, 0);
  const auto packet = client::decode_tp_packet(ear.hears(1).at(0));
  const auto now = std::chrono::duration_cast<std::chrono::seconds>(
                       std::chrono::system_clock::now().time_since_epoch())
                       .count();
  EXPECT_NEAR(static_cast<double>(packet.header.session_id), static_cast<double>(now & 0x7fffffff),
              60);
}

TEST_F(Replay, refuses_what_the_exchange_refuses) {
  has(MadeFeed().opening());
  auto replay = replays({"--stay", "ever"});
  await_sent(11);
  auto filler = gap_fill();
  const auto refuses = [&filler](const client::GapFillRequest& request) {
    return filler.fetch_raw(encode(request)).packets.empty();
  };
  const client::GapFillRequest good{.session_id = hand_made::SESSION, .ranges = {{1, 2}}};
  EXPECT_FALSE(refuses(good));
  client::GapFillRequest bad = good;
  bad.kind = 2;
  EXPECT_TRUE(refuses(bad));
  bad = good;
  bad.ranges = {{1, 3}, {3, 4}};
  EXPECT_TRUE(refuses(bad));

  const auto error = [this](const client::SnapRequest& request) {
    return std::get<client::SnapError>(snap().request(request)).code;
  };
  EXPECT_EQ(error({.type = 'q', .session_id = hand_made::SESSION}), 'U');
  EXPECT_EQ(error({.name = "", .session_id = hand_made::SESSION}), 'A');
  EXPECT_EQ(error({.channel_id = 2, .session_id = hand_made::SESSION}), 'C');
  EXPECT_EQ(error({.session_id = 1}), 'S');
  EXPECT_EQ(error({.session_id = hand_made::SESSION, .minimum_seq = 12}), 'R');
  replay->complains("image refused with code R");

  // In two pieces it is a request all the same; at the end of the stream it is none.
  const Bytes request = encode(client::SnapRequest{.session_id = hand_made::SESSION});
  client::TcpStream pieces = client::TcpStream::connect(ports().snap);
  pieces.send_all(client::ByteView(request).first(20));
  EXPECT_EQ(snap().image().seq, 11u);
  pieces.send_all(client::ByteView(request).subspan(20));
  const client::Deadline end = client::Deadline::after(client::PATIENCE);
  EXPECT_FALSE(pieces.receive_to_end(end).empty());
  client::TcpStream ended = client::TcpStream::connect(ports().snap);
  ended.send_all(client::ByteView(request).first(request.size() - 1));
  ended.shutdown_write();
  EXPECT_THAT(ended.receive_to_end(end), IsEmpty());
}

TEST_F(Replay, serves_an_image_while_another_client_does_not_read_its_own) {
  // Larger than what the sockets of a connection hold.
  MadeFeed feed = MadeFeed().opening();
  for (int64_t packet = 0; packet < 2500; ++packet) {
    std::vector<Bytes> levels;
    for (int64_t i = 0; i < 45; ++i) {
      levels.push_back(hand_made::level({.price = 1000000 - 100 * (45 * packet + i)}));
    }
    feed.packet(levels);
  }
  has(feed);
  auto replay = replays({"--speed", "max", "--stay", "ever"});
  await_sent(11 + 45 * 2500);
  const Bytes request = encode(client::SnapRequest{.session_id = hand_made::SESSION});
  client::TcpStream stubborn = client::TcpStream::connect(ports().snap);
  const int small = 4096;
  ASSERT_EQ(::setsockopt(stubborn.fd(), SOL_SOCKET, SO_RCVBUF, &small, sizeof small), 0);
  stubborn.send_all(request);
  const Bytes image = snap().exchange(request);
  EXPECT_GT(image.size(), 8'000'000u);
  EXPECT_EQ(gap_fill().status().next_seq, 12 + 45 * 2500u);
}

TEST_F(Replay, is_not_held_up_by_one_who_asks_without_end) {
  MadeFeed feed = MadeFeed().opening();
  for (int packet = 0; packet < 30; ++packet) {
    feed.packet(std::vector<Bytes>(40, hand_made::level({.price = 1000000})));
  }
  has(feed);
  auto replay = replays({"--speed", "max", "--stay", "ever"});
  await_sent(11 + 40 * 30);
  const Bytes request =
      encode(client::GapFillRequest{.session_id = hand_made::SESSION, .ranges = {{1, 1000}}});
  auto asking = gap_fill();
  const std::jthread flood([&](const std::stop_token& stop) {
    while (!stop.stop_requested()) asking.send(request);
  });
  Ear ear(ports());
  EXPECT_GE(ear.hears(2).size(), 2U);  // heartbeats
  replay->signal(SIGINT);
  EXPECT_EQ(replay->end().status, 0);
}

TEST_F(Replay, sends_heartbeats_for_as_long_as_it_stays) {
  has(MadeFeed().opening());
  Ear ear(ports());
  EXPECT_EQ(run_tool("replay", words({"--stay", "1.2s"})).status, 0);
  const std::vector<Bytes> heard = ear.hears_all_of(2);
  ASSERT_EQ(heard.size(), 2u);
  const auto heartbeat = client::decode_tp_packet(heard[1], hand_made::SESSION);
  EXPECT_TRUE(heartbeat.is_heartbeat());
  EXPECT_EQ(heartbeat.header.first_seq, 12u);
  EXPECT_EQ(heartbeat.header.send_time_ns, hand_made::NOON + 1'000'000'000);
}

TEST_F(Replay, replays_the_most_frequent_feed_and_says_so) {
  capture_bytes::PcapFile file;
  MadeFeed(1).opening().add_to(file, RECORDED_GROUP, RECORDED_PORT);
  const MadeFeed chosen = MadeFeed(2).opening().bids(2);
  chosen.add_to(file, "239.1.2.4", RECORDED_PORT);
  has(file);
  Ear ear(ports());
  Said said = run_tool("replay", words({"--speed", "max"}));
  EXPECT_EQ(said.status, 0);
  EXPECT_EQ(ear.hears_all_of(3), bytes_of(chosen));
  EXPECT_THAT(said.err,
              HasSubstr("holds 2 feeds, replayed is 239.1.2.4:5555, session 2, 3 packets; "
                        "not: 239.1.2.3:5555, session 1, 1 packet\n"));
  for (const std::vector<std::string>& wish :
       {std::vector<std::string>{"--from", "239.1.2.3:5555"}, {"--from-session", "1"}}) {
    said = run_tool("replay", words(wish));
    EXPECT_EQ(said.status, 0);
    EXPECT_THAT(said.err, HasSubstr("as session 1\n"));
  }
  said = run_tool("replay", words({"--from-session", "3"}));
  EXPECT_EQ(said.status, 2);
  EXPECT_EQ(said.err,
            "quorl-replay: the feed asked for is not in " + path() +
                ", which holds [239.1.2.3:5555, session 1, 1 packet] [239.1.2.4:5555, session 2, "
                "3 packets]\n");
}

TEST_F(Replay, says_what_a_recording_from_the_middle_of_a_run_lacks) {
  MadeFeed feed = MadeFeed().opening().bids(6);
  feed.packets().erase(feed.packets().begin() + 3, feed.packets().begin() + 5);
  feed.packets().erase(feed.packets().begin());
  has(feed);
  const Said said = run_tool("replay", words({"--speed", "max"}));
  EXPECT_EQ(said.status, 0);
  EXPECT_THAT(said.err, HasSubstr("begins in the middle of a run, with number 12: images show only "
                                  "what has been said from there on\n"));
  EXPECT_THAT(said.err, HasSubstr("lacks 2 messages in 1 gap: "));
}

TEST_F(Replay, sends_what_is_whole_of_a_damaged_recording_and_ends_with_1) {
  const MadeFeed feed = MadeFeed().opening().bids(2);
  capture_bytes::PcapFile file = feed.on_file(RECORDED_GROUP, RECORDED_PORT);
  file.bytes.pop_back();
  has(file);
  Ear ear(ports());
  Said said = run_tool("replay", words());
  EXPECT_EQ(said.status, 1);
  EXPECT_THAT(said.err, HasSubstr(path() + " ends in the middle (truncated dump file"));
  EXPECT_EQ(ear.hears_all_of(2).size(), 2u);

  capture_bytes::PcapFile cut({.snap_length = 14 + 28 + 72});  // the opening is longer
  feed.add_to(cut, RECORDED_GROUP, RECORDED_PORT);
  has(cut);
  said = run_tool("replay", words());
  EXPECT_EQ(said.status, 1);
  EXPECT_THAT(said.err, HasSubstr("1 packet left out: cut by the capture's snap length"));
}

TEST_F(Replay, refuses_a_file_that_it_cannot_use_with_a_line_that_says_why) {
  const auto complaint = [this](const Bytes& content) {
    capture_bytes::write_file(path(), content);
    const Said said = run_tool("replay", words());
    EXPECT_EQ(said.status, 2);
    EXPECT_EQ(said.out, "");
    EXPECT_THAT(said.err, testing::StartsWith("quorl-replay: " + path()));
    EXPECT_EQ(std::count(said.err.begin(), said.err.end(), '\n'), 1);
    return said.err;
  };
  EXPECT_THAT(complaint({}), HasSubstr("is no capture file: truncated"));
  EXPECT_THAT(complaint(client::to_bytes("A day on the exchange\n")),
              HasSubstr("is no capture file: unknown file format"));
  EXPECT_THAT(complaint(capture_bytes::PcapFile({.link_type = capture_bytes::WIFI}).bytes),
              HasSubstr("was captured on a link of type 802.11"));
  EXPECT_THAT(complaint(capture_bytes::PcapFile().bytes),
              HasSubstr("holds no packet of a feed (0 frames, 0 UDP datagrams)"));
  capture_bytes::PcapFile foreign;
  foreign.frame(1, capture_bytes::ethernet(capture_bytes::udp_packet(RECORDED_GROUP, RECORDED_PORT,
                                                                     client::to_bytes("hello"))));
  EXPECT_THAT(complaint(foreign.bytes),
              HasSubstr("holds no packet of a feed (1 frame, 1 UDP datagram)"));
  Bytes cut_at_once = foreign.bytes;
  cut_at_once.resize(50);
  EXPECT_THAT(complaint(cut_at_once), HasSubstr("is damaged: truncated"));
  capture_bytes::PcapFile beginnings({.snap_length = 96});
  MadeFeed().opening().add_to(beginnings, RECORDED_GROUP, RECORDED_PORT);
  EXPECT_THAT(complaint(beginnings.bytes),
              HasSubstr("holds only the beginnings of packets: capture whole ones (1 packet cut)"));
  MadeFeed contradiction = MadeFeed().bids(2);
  contradiction.packets()[1].bytes[24] = 200;
  EXPECT_THAT(complaint(contradiction.on_file(RECORDED_GROUP, RECORDED_PORT).bytes),
              HasSubstr("holds packets that contradict each other"));
}

TEST_F(Replay, refuses_words_that_it_cannot_understand) {
  has(MadeFeed().opening());
  const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
      {{"--speed", "0"}, "--speed: 0 is no factor"},
      {{"--speed", "fast"}, "--speed: fast is no factor"},
      {{"--speed", "2", "--step"}, "--step"},
      {{"--loop", "0"}, "--loop: 0 is no number of rounds"},
      {{"--session", "mine"}, "--session: mine is no session number"},
      {{"--from", "239.1.2.3"}, "--from: 239.1.2.3 is no GROUP:PORT"},
      {{"--drop", "1,,3"}, "--drop: 1,,3 is no list"},
      {{"--drop", "0"}, "--drop: 0 is no list"},
      {{"--drop-every", "0"}, "--drop-every"},
      {{"--stay", "long"}, "--stay: long is no time"},
      {{"--iface", "lo"}, "--iface"},
      {{"--snap-port", "65536"}, "--snap-port"},
  };
  for (const auto& [more, complaint] : cases) {
    const Said said = run_tool("replay", words(more));
    EXPECT_EQ(said.status, 2) << complaint;
    EXPECT_THAT(said.err, HasSubstr(complaint));
  }
  EXPECT_THAT(run_tool("replay", {}).err, HasSubstr("FILE is required"));
}

TEST_F(Replay, leaves_ports_that_are_taken_to_their_owners) {
  has(MadeFeed().opening());
  auto owner = replays({"--step"});
  owner->complains("as session 77");
  Said said = run_tool("replay", words());
  EXPECT_EQ(said.status, 2);
  EXPECT_THAT(said.err, HasSubstr("cannot answer gap fill on port " +
                                  std::to_string(ports().gap_fill) + ": Address already in use"));
  const auto with_ports = [this](const std::string& gap_fill, const std::string& snap) {
    return run_tool("replay", {path(), ports().group, std::to_string(ports().feed),
                               "--gapfill-port", gap_fill, "--snap-port", snap});
  };
  said = with_ports("0", std::to_string(ports().snap));
  EXPECT_EQ(said.status, 2);
  EXPECT_THAT(said.err, HasSubstr("cannot serve images on port " + std::to_string(ports().snap) +
                                  ": Address already in use"));
  EXPECT_EQ(with_ports("0", "0").status, 0);
}

}  // namespace
}  // namespace tools_test
