#include "feed/tp_publisher.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <string>
#include <vector>

#include "support/inside.h"
#include "support/test_clock.h"
#include "support/udp_inbox.h"

namespace quorl {
namespace {

using test::Bytes;
using test::hex;
using test::joined;
using test::next_fd;
using test::Packet;
using test::packets_of;
using test::PublisherState;
using test::Retained;
using test::retained_message;
using test::SESSION;
using test::state_of;
using test::UdpInbox;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;

/// A publisher that sends to us instead of a multicast group.
struct OwnFeed {
  OwnFeed() { test::reset_clocks(); }

  void append(const Bytes& message) { publisher.append(message.data(), message.size()); }
  void append(size_t size) { append(Bytes(size, 'm')); }

  /// A packet of one message of `size` bytes.
  void send_packet(size_t size = 1) {
    append(size);
    publisher.flush();
  }

  PublisherState state() const { return state_of(publisher); }

  std::vector<Packet> take() { return packets_of(inbox.take()); }

  /// The first_seq of each packet on the wire, in order of arrival.
  std::vector<uint64_t> first_seqs() {
    std::vector<uint64_t> numbers;
    for (const Packet& packet : take()) numbers.push_back(packet.first_seq);
    return numbers;
  }

  UdpInbox inbox;
  TpPublisher publisher{"127.0.0.1", inbox.port(), "127.0.0.1", SESSION};
};

in_addr_t multicast_interface_of(int fd) {
  in_addr address{};
  socklen_t size = sizeof address;
  EXPECT_EQ(0, ::getsockopt(fd, IPPROTO_IP, IP_MULTICAST_IF, &address, &size));
  return address.s_addr;
}

int byte_option_of(int fd, int option) {
  uint8_t value = 77;
  socklen_t size = sizeof value;
  EXPECT_EQ(0, ::getsockopt(fd, IPPROTO_IP, option, &value, &size));
  return value;
}

sockaddr_in bound_address_of(int fd) {
  sockaddr_in address{};
  socklen_t size = sizeof address;
  EXPECT_EQ(0, ::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size));
  return address;
}

/// A socket that has joined a multicast group on the loopback interface.
class GroupMember {
 public:
  static constexpr const char* GROUP = "233.54.26.111";

  GroupMember() : fd_(::socket(AF_INET, SOCK_DGRAM, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    EXPECT_EQ(0, ::bind(fd_, reinterpret_cast<const sockaddr*>(&address), sizeof address));
    ip_mreq membership{};
    ::inet_pton(AF_INET, GROUP, &membership.imr_multiaddr);
    membership.imr_interface.s_addr = htonl(INADDR_LOOPBACK);
    EXPECT_EQ(0, ::setsockopt(fd_, IPPROTO_IP, IP_ADD_MEMBERSHIP, &membership, sizeof membership));
  }
  ~GroupMember() { ::close(fd_); }
  GroupMember(const GroupMember&) = delete;
  GroupMember& operator=(const GroupMember&) = delete;

  uint16_t port() const { return ntohs(bound_address_of(fd_).sin_port); }

  /// The size of the next datagram, or -1 if none comes.
  ssize_t receive() const {
    constexpr int DELIVERY_LIMIT_MS = 10000;
    std::array<char, 2048> bytes;
    pollfd readable{fd_, POLLIN, 0};
    if (::poll(&readable, 1, DELIVERY_LIMIT_MS) != 1) return -1;
    return ::recv(fd_, bytes.data(), bytes.size(), 0);
  }

 private:
  int fd_;
};

// --- Construction ---

TEST(TpPublisher, begins_at_sequence_number_1_and_stream_offset_0_with_an_empty_packet) {
  OwnFeed feed;
  const PublisherState state = feed.state();
  EXPECT_EQ(state.session_id, SESSION);
  EXPECT_EQ(state.next_seq, 1u);
  EXPECT_EQ(state.stream_offset, 0u);
  EXPECT_EQ(state.packet_size, 40u);
  EXPECT_EQ(state.waiting, 0u);
  EXPECT_EQ(state.messages + state.packets + state.dropped, 0u);
  EXPECT_EQ(state.last_flush_ms, 0u);
  EXPECT_EQ(state.retained, 0u);
  feed.publisher.flush();
  const Packet first = feed.take().at(0);
  EXPECT_EQ(first.session_id, SESSION);
  EXPECT_EQ(first.first_seq, 1u);
}

TEST(TpPublisher, sends_to_the_group_from_the_interface) {
  const GroupMember member;
  TpPublisher publisher(GroupMember::GROUP, member.port(), "127.0.0.1", SESSION);
  publisher.append("x", 1);
  publisher.flush();
  EXPECT_EQ(member.receive(), 43);
}

TEST(TpPublisher, sends_with_a_ttl_of_1_and_loops_back) {
  const int fd = next_fd();
  const TpPublisher publisher("233.54.26.111", 25477, "127.0.0.1", SESSION);
  EXPECT_EQ(multicast_interface_of(fd), htonl(INADDR_LOOPBACK));
  EXPECT_EQ(byte_option_of(fd, IP_MULTICAST_TTL), 1);
  EXPECT_EQ(byte_option_of(fd, IP_MULTICAST_LOOP), 1);
}

TEST(TpPublisher, the_feed_socket_blocks_and_is_not_bound) {
  const int fd = next_fd();
  const TpPublisher publisher("127.0.0.1", 9, "127.0.0.1", SESSION);
  EXPECT_EQ(::fcntl(fd, F_GETFL) & O_NONBLOCK, 0);
  EXPECT_EQ(bound_address_of(fd).sin_port, 0);
}

TEST(TpPublisher, addresses_that_are_none_leave_the_zero_address_and_the_run_goes_on) {
  UdpInbox inbox;
  const int fd = next_fd();
  TpPublisher publisher("not an address", inbox.port(), "nor this", SESSION);
  EXPECT_EQ(multicast_interface_of(fd), 0u);
  publisher.append("x", 1);
  publisher.flush();
  EXPECT_THAT(inbox.take(), SizeIs(1));  // the system takes the zero address for this host
}

TEST(TpPublisher, its_socket_closes_with_it) {
  const int fd = next_fd();
  {
    const TpPublisher publisher("127.0.0.1", 9, "127.0.0.1", SESSION);
    EXPECT_NE(::fcntl(fd, F_GETFD), -1);
  }
  EXPECT_EQ(::fcntl(fd, F_GETFD), -1);
}

// --- Packets on the wire ---

TEST(TpPublisher, the_first_packet_byte_by_byte) {
  OwnFeed feed;
  feed.append(hex("53 4F"));
  feed.append(hex("AA BB CC"));
  feed.publisher.flush();
  EXPECT_THAT(feed.inbox.take(), ElementsAre(hex("01 00 04 80 01 00 00 00 44 33 22 11 09 00 02 00"
                                                 "00 00 00 00 00 00 00 00 01 00 00 00 00 00 00 00"
                                                 "15 CD 85 3D FE 9C 97 17"
                                                 "02 00 53 4F 03 00 AA BB CC")));
}

TEST(TpPublisher, the_second_packet_continues_numbers_and_offset) {
  OwnFeed feed;
  feed.append(hex("01"));
  feed.append(hex("02"));
  feed.publisher.flush();
  feed.append(hex("03 04"));
  test::set_system_ns(5);
  feed.publisher.flush();
  const auto datagrams = feed.inbox.take();
  ASSERT_THAT(datagrams, SizeIs(2));
  EXPECT_EQ(datagrams[1], hex("01 00 04 80 01 00 00 00 44 33 22 11 04 00 01 00"
                              "06 00 00 00 00 00 00 00 03 00 00 00 00 00 00 00"
                              "05 00 00 00 00 00 00 00"
                              "02 00 03 04"));
}

TEST(TpPublisher, nothing_leaves_before_a_flush) {
  OwnFeed feed;
  feed.append(10);
  EXPECT_THAT(feed.inbox.take(), IsEmpty());
  EXPECT_EQ(feed.state().waiting, 1u);
  EXPECT_EQ(feed.state().packet_size, 52u);
}

TEST(TpPublisher, flush_if_pending_sends_only_what_waits) {
  OwnFeed feed;
  feed.publisher.flush_if_pending();
  EXPECT_EQ(feed.state().packets, 0u);
  feed.append(1);
  feed.publisher.flush_if_pending();
  feed.publisher.flush_if_pending();
  EXPECT_EQ(feed.state().packets, 1u);
  EXPECT_THAT(feed.take(), SizeIs(1));
}

TEST(TpPublisher, flush_itself_does_not_test_for_emptiness) {
  OwnFeed feed;
  feed.publisher.flush();
  EXPECT_EQ(feed.state().packets, 1u);
  const auto packets = feed.take();
  ASSERT_THAT(packets, SizeIs(1));
  EXPECT_EQ(packets[0].size, 40u);
  EXPECT_EQ(packets[0].message_count, 0u);
}

TEST(TpPublisher, flush_stamps_the_system_clock_and_notes_the_steady_one) {
  OwnFeed feed;
  feed.append(1);
  test::advance_ms(7);
  feed.publisher.flush();
  EXPECT_EQ(feed.take().at(0).send_time, test::START_SYSTEM_NS + 7'000'000);
  EXPECT_EQ(feed.state().last_flush_ms, test::START_STEADY_MS + 7);
}

TEST(TpPublisher, messages_counts_what_append_was_given_and_packets_what_was_flushed) {
  OwnFeed feed;
  feed.append(1);
  feed.append(1);
  feed.publisher.flush();
  feed.append(1400);
  feed.append(1400);  // flushes the first of the two
  feed.append(2000);  // flushes the other, and can never be sent itself
  EXPECT_EQ(feed.state().messages, 5u);
  EXPECT_EQ(feed.state().packets, 3u);
}

TEST(TpPublisher, a_failed_send_is_ignored_and_counts_as_sent) {
  TpPublisher publisher("127.0.0.1", 0, "127.0.0.1", SESSION);  // nobody can send to port 0
  publisher.append("ab", 2);
  publisher.flush();
  EXPECT_EQ(state_of(publisher).packets, 1u);
  EXPECT_EQ(state_of(publisher).dropped, 0u);
  EXPECT_EQ(state_of(publisher).stream_offset, 4u);
  EXPECT_EQ(state_of(publisher).retained, 1u);
}

// --- The limits of a packet ---

TEST(TpPublisher, a_block_that_ends_at_byte_1500_fits) {
  OwnFeed feed;
  feed.append(100);
  feed.append(1356);  // 40 + 102 + 1358
  EXPECT_EQ(feed.state().packets, 0u);
  EXPECT_EQ(feed.state().packet_size, 1500u);
  feed.publisher.flush();
  const auto packets = feed.take();
  ASSERT_THAT(packets, SizeIs(1));
  EXPECT_EQ(packets[0].size, 1500u);
  EXPECT_EQ(packets[0].message_count, 2u);
}

TEST(TpPublisher, a_block_that_would_end_at_byte_1501_goes_into_the_next_packet) {
  OwnFeed feed;
  feed.append(100);
  feed.append(1357);
  EXPECT_EQ(feed.state().packets, 1u);
  feed.publisher.flush();
  const auto packets = feed.take();
  ASSERT_THAT(packets, SizeIs(2));
  EXPECT_EQ(packets[0].size, 142u);
  EXPECT_EQ(packets[1].size, 1399u);
}

TEST(TpPublisher, the_largest_message_of_all_has_1458_bytes) {
  OwnFeed feed;
  feed.append(1458);
  EXPECT_EQ(feed.state().packet_size, 1500u);
  feed.publisher.flush();
  EXPECT_EQ(feed.take().at(0).size, 1500u);
}

TEST(TpPublisher, a_message_that_fits_no_packet_takes_a_number_and_is_kept_but_never_sent) {
  OwnFeed feed;
  feed.send_packet(10);
  feed.append(1459);
  EXPECT_EQ(feed.state().packets, 1u);
  EXPECT_EQ(feed.state().waiting, 0u);
  EXPECT_EQ(feed.state().packet_size, 40u);
  EXPECT_EQ(feed.state().next_seq, 3u);
  EXPECT_EQ(feed.state().messages, 2u);
  ASSERT_EQ(feed.state().retained, 2u);
  const Retained kept = retained_message(feed.publisher, 1);
  EXPECT_EQ(kept.seq, 2u);
  EXPECT_EQ(kept.stream_offset, 12u);
  EXPECT_THAT(kept.bytes, SizeIs(1459));
  EXPECT_THAT(feed.take(), SizeIs(1));
}

TEST(TpPublisher, a_message_that_fits_no_packet_still_flushes_what_waits) {
  OwnFeed feed;
  feed.append(10);
  feed.append(5000);
  EXPECT_EQ(feed.state().packets, 1u);
  EXPECT_EQ(retained_message(feed.publisher, 1).stream_offset, 12u);
  feed.append(1);
  feed.publisher.flush();
  EXPECT_THAT(feed.first_seqs(), ElementsAre(1, 3));
}

TEST(TpPublisher, empty_messages_fill_a_packet_with_730_of_them) {
  OwnFeed feed;
  for (int i = 0; i < 731; ++i) feed.append(Bytes{});
  const auto packets = feed.take();
  ASSERT_THAT(packets, SizeIs(1));
  EXPECT_EQ(packets[0].size, 1500u);
  EXPECT_EQ(packets[0].message_count, 730u);
}

// --- The packet begun inside append ---

TEST(TpPublisher, a_packet_begun_inside_append_announces_one_number_too_high) {
  OwnFeed feed;
  feed.append(1400);  // 1
  feed.append(1000);  // 2: flushes 1 after having taken its number
  feed.append(100);   // 3
  feed.publisher.flush();
  feed.append(1);  // 4
  feed.publisher.flush();
  const auto packets = feed.take();
  ASSERT_THAT(packets, SizeIs(3));
  EXPECT_EQ(packets[0].first_seq, 1u);
  EXPECT_EQ(packets[1].first_seq, 3u);  // its first message is number 2
  EXPECT_EQ(packets[1].message_count, 2u);
  EXPECT_EQ(packets[1].stream_offset, 1402u);
  EXPECT_EQ(packets[2].first_seq, 4u);  // true again: an overlap of one
  EXPECT_EQ(packets[2].stream_offset, 1402u + 1002u + 102u);
}

TEST(TpPublisher, each_packet_begun_inside_append_is_one_too_high_and_not_more) {
  OwnFeed feed;
  for (int i = 0; i < 4; ++i) feed.append(1400);
  feed.publisher.flush();
  EXPECT_THAT(feed.first_seqs(), ElementsAre(1, 3, 4, 5));
}

TEST(TpPublisher, a_message_that_overflows_is_retained_with_its_true_number_and_its_true_offset) {
  OwnFeed feed;
  feed.append(1400);
  feed.append(1000);
  feed.append(100);
  ASSERT_EQ(feed.state().retained, 3u);
  EXPECT_EQ(retained_message(feed.publisher, 1).seq, 2u);
  EXPECT_EQ(retained_message(feed.publisher, 1).stream_offset, 1402u);
  EXPECT_EQ(retained_message(feed.publisher, 2).seq, 3u);
  EXPECT_EQ(retained_message(feed.publisher, 2).stream_offset, 2404u);
}

TEST(TpPublisher, a_packet_announces_the_next_number_as_of_the_flush_before_it) {
  OwnFeed feed;
  feed.append(5000);  // takes number 1 and flushes nothing
  feed.send_packet();
  feed.send_packet();
  EXPECT_THAT(feed.first_seqs(), ElementsAre(1, 3));
}

// --- What is kept ---

TEST(TpPublisher, retains_each_message_without_its_length_at_the_offset_of_its_block) {
  OwnFeed feed;
  feed.append(hex("0A 0B"));
  feed.append(hex("0C"));
  feed.publisher.flush();
  feed.append(hex("0D"));
  ASSERT_EQ(feed.state().retained, 3u);
  std::vector<Retained> retained;
  for (size_t i = 0; i < 3; ++i) retained.push_back(retained_message(feed.publisher, i));
  EXPECT_EQ(retained[0].seq, 1u);
  EXPECT_EQ(retained[0].stream_offset, 0u);
  EXPECT_EQ(retained[0].bytes, hex("0A 0B"));
  EXPECT_EQ(retained[1].seq, 2u);
  EXPECT_EQ(retained[1].stream_offset, 4u);
  EXPECT_EQ(retained[1].bytes, hex("0C"));
  EXPECT_EQ(retained[2].seq, 3u);
  EXPECT_EQ(retained[2].stream_offset, 7u);
}

TEST(TpPublisher, the_400001st_message_evicts_the_first) {
  TpPublisher publisher("127.0.0.1", 0, "127.0.0.1", SESSION);
  for (int i = 0; i < 400000; ++i) publisher.append("", 0);
  ASSERT_EQ(state_of(publisher).retained, 400000u);
  EXPECT_EQ(retained_message(publisher, 0).seq, 1u);
  publisher.append("", 0);
  EXPECT_EQ(state_of(publisher).retained, 400000u);
  EXPECT_EQ(retained_message(publisher, 0).seq, 2u);
  EXPECT_EQ(retained_message(publisher, 399999).seq, 400001u);
}

TEST(TpPublisher, next_block_offset_counts_what_waits_in_the_packet_under_assembly) {
  OwnFeed feed;
  feed.send_packet(10);
  feed.append(20);
  EXPECT_EQ(feed.state().stream_offset, 12u);
  EXPECT_EQ(feed.publisher.next_block_offset(), 34u);
}

// --- Heartbeats ---

TEST(TpPublisher, a_heartbeat_byte_by_byte) {
  OwnFeed feed;
  feed.append(hex("01"));
  feed.append(hex("02"));
  feed.publisher.flush();
  feed.inbox.take();
  test::advance_ms(1000);
  feed.publisher.send_heartbeat();
  // T plus one second: 15 97 20 79 FE 9C 97 17
  EXPECT_THAT(feed.inbox.take(), ElementsAre(hex("01 00 04 80 01 00 00 00 44 33 22 11 00 00 00 00"
                                                 "06 00 00 00 00 00 00 00 03 00 00 00 00 00 00 00"
                                                 "15 97 20 79 FE 9C 97 17")));
  EXPECT_EQ(feed.state().last_flush_ms, test::START_STEADY_MS + 1000);
}

TEST(TpPublisher, a_heartbeat_is_no_packet_of_the_counts_and_moves_no_number) {
  OwnFeed feed;
  feed.send_packet();
  feed.publisher.send_heartbeat();
  feed.publisher.send_heartbeat();
  EXPECT_EQ(feed.state().packets, 1u);
  EXPECT_EQ(feed.state().messages, 1u);
  EXPECT_EQ(feed.state().next_seq, 2u);
  EXPECT_EQ(feed.state().stream_offset, 3u);
  feed.send_packet();
  EXPECT_THAT(feed.first_seqs(), ElementsAre(1, 2, 2, 2));
}

TEST(TpPublisher, a_heartbeat_flushes_once_what_waits_and_still_follows) {
  OwnFeed feed;
  feed.append(1);
  feed.publisher.send_heartbeat();
  EXPECT_EQ(feed.state().packets, 1u);
  const auto packets = feed.take();
  ASSERT_THAT(packets, SizeIs(2));
  EXPECT_EQ(packets[0].message_count, 1u);
  EXPECT_EQ(packets[0].first_seq, 1u);
  EXPECT_EQ(packets[1].message_count, 0u);
  EXPECT_EQ(packets[1].size, 40u);
  EXPECT_EQ(packets[1].first_seq, 2u);
  EXPECT_EQ(packets[1].stream_offset, 3u);
}

TEST(TpPublisher, a_heartbeat_is_outside_the_faults) {
  OwnFeed feed;
  feed.publisher.faults = {.drop_every = 1, .drop_next = 1, .dup_next = 1, .reorder_next = 1};
  CaptureStderr();
  feed.publisher.send_heartbeat();
  EXPECT_EQ(GetCapturedStderr(), "");
  EXPECT_THAT(feed.take(), SizeIs(1));
  EXPECT_EQ(feed.publisher.faults.drop_next, 1u);
  EXPECT_EQ(feed.publisher.faults.dup_next, 1u);
  EXPECT_EQ(feed.publisher.faults.reorder_next, 1u);
}

TEST(TpPublisher, a_heartbeat_tells_the_true_next_number_where_the_packet_before_it_did_not) {
  OwnFeed feed;
  feed.append(1400);
  feed.append(1000);
  feed.publisher.flush();
  feed.publisher.send_heartbeat();
  EXPECT_THAT(feed.first_seqs(), ElementsAre(1, 3, 3));
}

TEST(TpPublisher, a_heartbeat_knows_of_a_number_that_was_taken_and_never_sent) {
  OwnFeed feed;
  feed.append(5000);
  feed.publisher.send_heartbeat();
  feed.send_packet();
  EXPECT_THAT(feed.first_seqs(), ElementsAre(2, 2));
}

// --- Faults ---

TEST(TpPublisher, a_dropped_packet_is_not_sent_and_leaves_a_hole_in_numbers_and_bytes) {
  OwnFeed feed;
  feed.publisher.faults.drop_next = 1;
  CaptureStderr();
  feed.append(10);
  feed.append(20);
  feed.publisher.flush();
  EXPECT_EQ(GetCapturedStderr(), "quorl fault: dropped seq 1 (packet 1, 2 message(s))\n");
  feed.send_packet(5);
  const auto packets = feed.take();
  ASSERT_THAT(packets, SizeIs(1));
  EXPECT_EQ(packets[0].first_seq, 3u);
  EXPECT_EQ(packets[0].stream_offset, 34u);
  EXPECT_EQ(feed.state().packets, 2u);
  EXPECT_EQ(feed.state().dropped, 1u);
  EXPECT_EQ(feed.state().duplicated + feed.state().reordered, 0u);
  EXPECT_EQ(feed.state().retained, 3u);
}

TEST(TpPublisher, a_dropped_packet_moves_the_time_of_the_last_flush) {
  OwnFeed feed;
  feed.publisher.faults.drop_next = 1;
  CaptureStderr();
  feed.send_packet();
  GetCapturedStderr();
  EXPECT_EQ(feed.state().last_flush_ms, test::START_STEADY_MS);
}

TEST(TpPublisher, a_duplicated_packet_goes_out_twice_alike_and_counts_once_in_the_stream) {
  OwnFeed feed;
  feed.publisher.faults.dup_next = 1;
  test::step_system_clock_by(1);
  CaptureStderr();
  feed.send_packet(10);
  EXPECT_EQ(GetCapturedStderr(), "quorl fault: duplicated seq 1\n");
  feed.send_packet(10);
  const auto datagrams = feed.inbox.take();
  ASSERT_THAT(datagrams, SizeIs(3));
  EXPECT_EQ(datagrams[0], datagrams[1]);
  EXPECT_EQ(packets_of(datagrams)[2].first_seq, 2u);
  EXPECT_EQ(packets_of(datagrams)[2].stream_offset, 12u);
  EXPECT_EQ(feed.state().packets, 2u);
  EXPECT_EQ(feed.state().duplicated, 1u);
  EXPECT_EQ(feed.state().dropped + feed.state().reordered, 0u);
}

TEST(TpPublisher, a_reordered_packet_leaves_behind_the_next_with_the_header_it_was_stamped_with) {
  OwnFeed feed;
  feed.publisher.faults.reorder_next = 1;
  CaptureStderr();
  feed.send_packet(10);
  EXPECT_EQ(GetCapturedStderr(), "quorl fault: reordered seq 1 (held behind the next packet)\n");
  EXPECT_THAT(feed.take(), IsEmpty());

  test::advance_ms(3);
  CaptureStderr();
  feed.send_packet(20);
  EXPECT_EQ(GetCapturedStderr(), "");
  const auto packets = feed.take();
  ASSERT_THAT(packets, SizeIs(2));
  EXPECT_EQ(packets[0].first_seq, 2u);
  EXPECT_EQ(packets[0].stream_offset, 12u);
  EXPECT_EQ(packets[0].send_time, test::START_SYSTEM_NS + 3'000'000);
  EXPECT_EQ(packets[1].first_seq, 1u);
  EXPECT_EQ(packets[1].stream_offset, 0u);
  EXPECT_EQ(packets[1].send_time, test::START_SYSTEM_NS);
  EXPECT_EQ(packets[1].size, 52u);
  EXPECT_EQ(feed.state().reordered, 1u);
  EXPECT_EQ(feed.state().dropped + feed.state().duplicated, 0u);
}

TEST(TpPublisher, a_held_packet_leaves_behind_the_duplicate_of_the_next) {
  OwnFeed feed;
  feed.publisher.faults.reorder_next = 1;
  CaptureStderr();
  feed.send_packet();
  feed.publisher.faults.dup_next = 1;
  feed.send_packet();
  EXPECT_EQ(GetCapturedStderr(),
            "quorl fault: reordered seq 1 (held behind the next packet)\n"
            "quorl fault: duplicated seq 2\n");
  EXPECT_THAT(feed.first_seqs(), ElementsAre(2, 2, 1));
}

TEST(TpPublisher, a_packet_to_be_reordered_and_duplicated_is_held_and_sent_once_later) {
  OwnFeed feed;
  feed.publisher.faults.dup_next = 1;
  feed.publisher.faults.reorder_next = 1;
  CaptureStderr();
  feed.send_packet();
  EXPECT_EQ(GetCapturedStderr(), "quorl fault: reordered seq 1 (held behind the next packet)\n");
  feed.send_packet();
  EXPECT_THAT(feed.first_seqs(), ElementsAre(2, 1));
  EXPECT_EQ(feed.state().duplicated, 0u);
  EXPECT_EQ(feed.state().reordered, 1u);
  EXPECT_EQ(feed.publisher.faults.dup_next, 0u);
  EXPECT_EQ(feed.publisher.faults.reorder_next, 0u);
}

TEST(TpPublisher, a_second_held_packet_replaces_the_first_which_is_never_seen) {
  OwnFeed feed;
  feed.publisher.faults.reorder_next = 2;
  CaptureStderr();
  for (int i = 0; i < 4; ++i) feed.send_packet();
  EXPECT_EQ(GetCapturedStderr(),
            "quorl fault: reordered seq 1 (held behind the next packet)\n"
            "quorl fault: reordered seq 2 (held behind the next packet)\n");
  EXPECT_THAT(feed.first_seqs(), ElementsAre(3, 2, 4));
  EXPECT_EQ(feed.state().reordered, 2u);
  EXPECT_EQ(feed.state().dropped, 0u);
}

TEST(TpPublisher, dropped_packets_keep_the_held_one_waiting_behind_them) {
  OwnFeed feed;
  feed.publisher.faults.reorder_next = 1;
  CaptureStderr();
  feed.send_packet();
  feed.publisher.faults.drop_next = 2;
  feed.send_packet();
  feed.send_packet();
  EXPECT_THAT(feed.take(), IsEmpty());
  feed.send_packet();
  EXPECT_EQ(GetCapturedStderr(),
            "quorl fault: reordered seq 1 (held behind the next packet)\n"
            "quorl fault: dropped seq 2 (packet 2, 1 message(s))\n"
            "quorl fault: dropped seq 3 (packet 3, 1 message(s))\n");
  EXPECT_THAT(feed.first_seqs(), ElementsAre(4, 1));
}

TEST(TpPublisher, heartbeats_go_by_without_releasing_the_held_packet) {
  OwnFeed feed;
  feed.publisher.faults.reorder_next = 1;
  CaptureStderr();
  feed.send_packet();
  GetCapturedStderr();
  feed.publisher.send_heartbeat();
  EXPECT_THAT(feed.first_seqs(), ElementsAre(2));
  feed.send_packet();
  EXPECT_THAT(feed.first_seqs(), ElementsAre(2, 1));
}

TEST(TpPublisher, all_three_faults_on_one_packet_drop_it_and_spare_the_other_two) {
  OwnFeed feed;
  feed.publisher.faults = {.drop_next = 1, .dup_next = 1, .reorder_next = 1};
  CaptureStderr();
  feed.send_packet();
  EXPECT_EQ(GetCapturedStderr(), "quorl fault: dropped seq 1 (packet 1, 1 message(s))\n");
  EXPECT_EQ(feed.publisher.faults.dup_next, 1u);
  EXPECT_EQ(feed.publisher.faults.reorder_next, 1u);
}

TEST(TpPublisher, fault_numbers_count_dropped_and_held_packets_but_no_copies_and_no_heartbeats) {
  OwnFeed feed;
  feed.publisher.faults = {.drop_every = 2, .dup_every = 3, .reorder_next = 1};
  CaptureStderr();
  for (int i = 0; i < 6; ++i) {
    feed.send_packet();
    feed.publisher.send_heartbeat();
  }
  EXPECT_EQ(GetCapturedStderr(),
            "quorl fault: reordered seq 1 (held behind the next packet)\n"
            "quorl fault: dropped seq 2 (packet 2, 1 message(s))\n"
            "quorl fault: duplicated seq 3\n"
            "quorl fault: dropped seq 4 (packet 4, 1 message(s))\n"
            "quorl fault: dropped seq 6 (packet 6, 1 message(s))\n");
}

TEST(TpPublisher, fault_lines_show_the_announced_first_number_even_where_it_is_one_too_high) {
  OwnFeed feed;
  feed.append(1400);
  feed.append(1400);
  feed.publisher.faults.drop_next = 1;
  CaptureStderr();
  feed.publisher.flush();
  EXPECT_EQ(GetCapturedStderr(), "quorl fault: dropped seq 3 (packet 2, 1 message(s))\n");
}

TEST(TpPublisher, a_recurring_drop_and_a_one_shot_on_one_packet_are_both_spent_on_it) {
  OwnFeed feed;
  feed.publisher.faults = {.drop_every = 1, .drop_next = 2};
  CaptureStderr();
  feed.send_packet();
  feed.send_packet();
  feed.publisher.faults.drop_every = 0;
  feed.send_packet();
  GetCapturedStderr();
  EXPECT_EQ(feed.state().dropped, 2u);
  EXPECT_THAT(feed.first_seqs(), ElementsAre(3));
}

TEST(TpPublisher, a_held_packet_dies_with_the_run) {
  UdpInbox inbox;
  CaptureStderr();
  {
    TpPublisher publisher("127.0.0.1", inbox.port(), "127.0.0.1", SESSION);
    publisher.faults.reorder_next = 1;
    publisher.append("x", 1);
    publisher.flush();
    publisher.append("y", 1);  // and so does what waits in the packet under assembly
  }
  GetCapturedStderr();
  EXPECT_THAT(inbox.take(), IsEmpty());
}

}  // namespace
}  // namespace quorl
