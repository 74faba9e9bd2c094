#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <string>

#include "certify/record/capture_file.h"
#include "certify/tap/tap_listener.h"
#include "certify/tap/taps.h"
#include "tools/capture/endpoint.h"

namespace certify {

/// Writes wire.pcap: every byte that passed a tap, at the time it was told, in segments and
/// datagrams made for it, so that Wireshark shows all conversations. What a segment says besides
/// its bytes is made up: sequence numbers begin at 0 for every connection, and a client's port is
/// 10000, 20000 or 30000 (FIX, images, gap fill) and the number of its line, so that "FIX 3" is
/// port 10003. The exchange's ports are those of the taps.
class WireCapture : public TapListener {
 public:
  /// Throws CannotRecord.
  WireCapture(const std::string& folder, const ServicePorts& taps);

  void on_opened(Line line, bool reached, TimeNs at) override;
  void on_passed(const Passed& passed) override;
  void on_ended(const Ended& ended) override;
  void on_link(std::string_view, TimeNs) override {}

  void flush() { file_.flush(); }
  void close() { file_.close(); }
  const std::string& failure() const { return file_.failure(); }

 private:
  /// A connection: by Party the number of the next byte, and whether its sending has ended.
  struct Stream {
    std::array<uint32_t, 2> next = {};
    std::array<bool, 2> ended = {};
  };

  tools::Endpoint endpoint(Line line, Party party) const;
  void segment(Line line, Party from, uint8_t flags, quorl::client::ByteView payload, TimeNs at);
  void datagram(const Passed& passed);

  CaptureFile file_;
  ServicePorts taps_;
  std::map<std::pair<Service, uint32_t>, Stream> streams_;
};

}  // namespace certify
