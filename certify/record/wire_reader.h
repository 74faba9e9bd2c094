#pragma once

#include <cstdint>
#include <memory>

#include "certify/record/events.h"
#include "certify/tap/tap_listener.h"

namespace certify {

/// Reads what passes the taps: cuts FIX streams into messages as the exchange would, gap-fill
/// datagrams into requests and replies, image connections into request and reply. Nothing throws,
/// whatever the client sends; memory per line is bounded by the largest frame that can be, 1 MB.
class WireReader : public TapListener {
 public:
  /// `session` is the feed's. The listener must live as long.
  WireReader(EventListener& listener, uint32_t session);
  ~WireReader() override;

  void on_opened(Line line, bool reached, TimeNs at) override;
  void on_passed(const Passed& passed) override;
  void on_ended(const Ended& ended) override;
  void on_link(std::string_view what, TimeNs at) override;

 private:
  struct Lines;
  std::unique_ptr<Lines> lines_;
};

}  // namespace certify
