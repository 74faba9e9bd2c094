#include "feed/tp_publisher.h"

#include <arpa/inet.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "base/clocks.h"
#include "base/log.h"
#include "base/sockets.h"

namespace quorl {
namespace {

in_addr address_of(const std::string& dotted_quad) {
  in_addr address{};
  ::inet_pton(AF_INET, dotted_quad.c_str(), &address);
  return address;
}

int open_gap_fill_socket(uint16_t port) {
  const int fd = open_udp_socket();
  if (!bind_reusable(fd, INADDR_ANY, port)) {
    print_log("quorl: gap-fill port: %s\n", std::strerror(errno));
    close_socket(fd);
    return -1;
  }
  set_nonblocking(fd);
  return fd;
}

}  // namespace

TpPublisher::TpPublisher(const std::string& group, uint16_t port,
                         const std::string& interface_address, uint16_t gap_port, uint32_t session)
    : session_id(session) {
  header.session_id = session;
  fd = open_udp_socket();
  dest.sin_family = AF_INET;
  dest.sin_port = htons(port);
  dest.sin_addr = address_of(group);

  set_multicast_source(fd, address_of(interface_address));
  if (gap_port != 0) gap_fd = open_gap_fill_socket(gap_port);
  begin_packet();
}

TpPublisher::~TpPublisher() {
  if (fd >= 0) close_socket(fd);
  if (gap_fd >= 0) close_socket(gap_fd);
}

void TpPublisher::append(const void* message, size_t size) {
  const uint64_t seq = next_seq++;
  const auto* const bytes = static_cast<const uint8_t*>(message);
  retained.push_back({seq, next_block_offset(), {bytes, bytes + size}});
  if (retained.size() > MAX_RETAINED_MESSAGES) retained.pop_front();

  ++messages;
  if (fits(size)) return place(message, size);
  const bool too_large = header.message_count == 0;
  if (!too_large) {
    // next_seq is already past this message, so the packet begun by this flush announces a
    // first_seq one above its first message. Clients are tested against exactly that: do not
    // repair it here. Gap fill shows the true number.
    flush();
    if (fits(size)) place(message, size);
  }
  retained.back().stream_offset = stream_offset;
}

bool TpPublisher::fits(size_t size) const {
  return fill + size + BLOCK_PREFIX_SIZE <= limit && header.message_count != MAX_MESSAGE_COUNT;
}

void TpPublisher::place(const void* message, size_t size) {
  fill += put_block(packet.data() + fill, message, size);
  ++header.message_count;
}

void TpPublisher::flush() {
  ++packets;
  const PacketFate fate = decide_fate(faults, packets);
  header.payload_length = static_cast<uint16_t>(fill - TP_HEADER_SIZE);
  stamp();
  carry_out(fate);
  // The stream runs on, dropped or not: what a fault took can be recovered.
  stream_offset += fill - TP_HEADER_SIZE;
  begin_packet();
  last_flush_ms = steady_ms();
}

void TpPublisher::flush_if_pending() {
  if (header.message_count != 0) flush();
}

void TpPublisher::flush_unless_fits(size_t batch_size) {
  if (fill + batch_size > limit) flush_if_pending();
}

void TpPublisher::begin_packet() {
  fill = TP_HEADER_SIZE;
  header.message_count = 0;
  header.first_seq = next_seq;
  header.stream_offset = stream_offset;
}

void TpPublisher::stamp() {
  header.send_time = system_ns();
  const auto bytes = encode(header);
  std::memcpy(packet.data(), bytes.data(), bytes.size());
}

void TpPublisher::carry_out(const PacketFate& fate) {
  const auto first_seq = static_cast<unsigned long long>(header.first_seq);
  if (fate.drop) {
    ++dropped;
    print_log("quorl fault: dropped seq %llu (packet %llu, %u message(s))\n", first_seq,
              static_cast<unsigned long long>(packets),
              static_cast<unsigned>(header.message_count));
    return;
  }
  if (fate.reorder) {
    // A packet that is already held is replaced and never reaches the wire.
    held.assign(packet.data(), packet.data() + fill);
    ++reordered;
    print_log("quorl fault: reordered seq %llu (held behind the next packet)\n", first_seq);
    return;
  }
  send_datagram(fd, packet.data(), fill, dest);
  if (fate.duplicate) {
    send_datagram(fd, packet.data(), fill, dest);
    ++duplicated;
    print_log("quorl fault: duplicated seq %llu\n", first_seq);
  }
  if (!held.empty()) {
    send_datagram(fd, held.data(), held.size(), dest);
    held.clear();
  }
}

void TpPublisher::send_heartbeat() {
  flush_if_pending();
  begin_packet();
  header.payload_length = 0;
  stamp();
  send_datagram(fd, packet.data(), TP_HEADER_SIZE, dest);
  last_flush_ms = steady_ms();
}

}  // namespace quorl
