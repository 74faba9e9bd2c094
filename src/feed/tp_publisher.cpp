#include "feed/tp_publisher.h"

#include <arpa/inet.h>

#include "base/clocks.h"
#include "base/log.h"

namespace quorl {
namespace {

in_addr address_of(const std::string& dotted_quad) {
  in_addr address{};
  ::inet_pton(AF_INET, dotted_quad.c_str(), &address);
  return address;
}

}  // namespace

TpPublisher::TpPublisher(const std::string& group, uint16_t port,
                         const std::string& interface_address, uint32_t session_id)
    : session_id_(session_id), socket_(open_udp_socket()), packet_(session_id) {
  group_.sin_family = AF_INET;
  group_.sin_port = htons(port);
  group_.sin_addr = address_of(group);
  set_multicast_source(socket_.fd, address_of(interface_address));
  packet_.begin(next_seq_, stream_offset_);
}

void TpPublisher::append(const void* message, size_t size) {
  const std::string_view bytes(static_cast<const char*>(message), size);
  ++next_seq_;
  ++counts_.messages;
  // next_seq_ is already past this message, so the packet begun by this flush announces a
  // first_seq one above its first message. Clients are tested against exactly that: do not
  // repair it here. Gap fill shows the true number.
  if (!packet_.fits(size)) flush_if_pending();
  retained_.push(next_block_offset(), bytes);
  if (retained_.size() > MAX_RETAINED_MESSAGES) retained_.pop_front();
  if (packet_.fits(size)) packet_.add(bytes);
}

RetainedMessage TpPublisher::retained(uint64_t seq) const {
  const auto entry = retained_[seq - oldest_retained_seq()];
  return {.stream_offset = entry.meta, .bytes = entry.bytes};
}

void TpPublisher::flush() {
  ++counts_.packets;
  const PacketFate fate = decide_fate(faults, counts_.packets);
  carry_out(fate, packet_.stamped());
  // The stream runs on, dropped or not: what a fault took can be recovered.
  stream_offset_ += packet_.payload_size();
  packet_.begin(next_seq_, stream_offset_);
  last_flush_ms_ = steady_ms();
}

void TpPublisher::flush_if_pending() {
  if (pending() != 0) flush();
}

void TpPublisher::flush_unless_fits(size_t batch_size) {
  if (packet_.size() + batch_size > MAX_PACKET_SIZE) flush_if_pending();
}

void TpPublisher::carry_out(const PacketFate& fate, std::span<const uint8_t> packet) {
  const auto first_seq = static_cast<unsigned long long>(packet_.first_seq());
  if (fate.drop) {
    ++counts_.dropped;
    print_log("quorl fault: dropped seq %llu (packet %llu, %u message(s))\n", first_seq,
              static_cast<unsigned long long>(counts_.packets), static_cast<unsigned>(pending()));
    return;
  }
  if (fate.reorder) {
    // A packet that is already held is replaced and never reaches the wire.
    held_.assign(packet.begin(), packet.end());
    ++counts_.reordered;
    print_log("quorl fault: reordered seq %llu (held behind the next packet)\n", first_seq);
    return;
  }
  send(packet);
  if (fate.duplicate) {
    send(packet);
    ++counts_.duplicated;
    print_log("quorl fault: duplicated seq %llu\n", first_seq);
  }
  if (!held_.empty()) {
    send(held_);
    held_.clear();
  }
}

void TpPublisher::send(std::span<const uint8_t> packet) const {
  send_datagram(socket_.fd, packet.data(), packet.size(), group_);
}

void TpPublisher::send_heartbeat() {
  flush_if_pending();
  packet_.begin(next_seq_, stream_offset_);
  send(packet_.stamped());
  last_flush_ms_ = steady_ms();
}

}  // namespace quorl
