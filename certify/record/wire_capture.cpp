#include "certify/record/wire_capture.h"

#include <netinet/in.h>

#include <algorithm>

#include "certify/record/byte_view.h"
#include "certify/record/stream_frame.h"
#include "tools/capture/udp_frame.h"

namespace client = quorl::client;

namespace certify {
namespace {

constexpr size_t LONGEST_SEGMENT = 32 * 1024;
constexpr uint32_t PORTS_OF_A_SERVICE = 10'000;
constexpr size_t ETHERNET_ADDRESS = 6;

Party other(Party party) { return party == Party::CLIENT ? Party::EXCHANGE : Party::CLIENT; }

uint16_t port_of(const ServicePorts& ports, Service service) {
  switch (service) {
    case Service::FIX:
      return ports.fix;
    case Service::IMAGES:
      return ports.images;
    case Service::GAP_FILL:
      break;
  }
  return ports.gap_fill;
}

}  // namespace

WireCapture::WireCapture(const std::string& folder, const ServicePorts& taps)
    : file_(folder + "/wire.pcap"), taps_(taps) {}

tools::Endpoint WireCapture::endpoint(Line line, Party party) const {
  uint16_t port = port_of(taps_, line.service);
  if (party == Party::CLIENT) {
    const uint32_t base = PORTS_OF_A_SERVICE * (static_cast<uint32_t>(line.service) + 1);
    port = static_cast<uint16_t>(base + line.number % PORTS_OF_A_SERVICE);
  }
  return {.address = INADDR_LOOPBACK, .port = port};
}

void WireCapture::segment(Line line, Party from, uint8_t flags, client::ByteView payload,
                          TimeNs at) {
  Stream& stream = streams_[{line.service, line.number}];
  uint32_t& next = stream.next[index_of(from)];
  const SegmentHead head{.seq = next, .ack = stream.next[index_of(other(from))], .flags = flags};
  file_.write(at, stream_frame(endpoint(line, from), endpoint(line, other(from)), head, payload));
  next += static_cast<uint32_t>(payload.size());
  if ((flags & (TCP_SYN | TCP_FIN)) != 0) ++next;
}

void WireCapture::on_opened(Line line, bool reached, TimeNs at) {
  if (line.service == Service::GAP_FILL) return;
  segment(line, Party::CLIENT, TCP_SYN, {}, at);
  if (!reached) {
    segment(line, Party::EXCHANGE, TCP_RST | TCP_ACK, {}, at);
    streams_.erase({line.service, line.number});
    return;
  }
  segment(line, Party::EXCHANGE, TCP_SYN | TCP_ACK, {}, at);
  segment(line, Party::CLIENT, TCP_ACK, {}, at);
}

void WireCapture::on_passed(const Passed& passed) {
  if (passed.line.service == Service::GAP_FILL) return datagram(passed);
  client::ByteView bytes = view_of(passed.bytes);
  while (!bytes.empty()) {
    const size_t size = std::min(bytes.size(), LONGEST_SEGMENT);
    segment(passed.line, passed.from, TCP_PSH | TCP_ACK, bytes.first(size), passed.told);
    bytes = bytes.subspan(size);
  }
}

void WireCapture::datagram(const Passed& passed) {
  client::Bytes frame =
      tools::ethernet_frame(endpoint(passed.line, passed.from),
                            endpoint(passed.line, other(passed.from)), view_of(passed.bytes));
  std::fill_n(frame.begin(), ETHERNET_ADDRESS, uint8_t{0});  // no group's
  file_.write(passed.told, frame);
}

void WireCapture::on_ended(const Ended& ended) {
  if (ended.line.service == Service::GAP_FILL) return;
  const bool reset = ended.reset || ended.by_link;
  segment(ended.line, ended.by, reset ? TCP_RST | TCP_ACK : TCP_FIN | TCP_ACK, {}, ended.at);
  const auto found = streams_.find({ended.line.service, ended.line.number});
  found->second.ended[index_of(ended.by)] = true;
  if (found->second.ended[0] && found->second.ended[1]) streams_.erase(found);
}

}  // namespace certify
