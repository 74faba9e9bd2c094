#pragma once

#include <string>

#include "certify/record/feed_capture.h"
#include "certify/record/fix_log.h"
#include "certify/record/timeline.h"
#include "certify/record/wire_capture.h"

namespace certify {

/// All that a run writes while it goes on: timeline.txt, fix.log, wire.pcap and feed.pcap.
class Recorder : public EventListener, public TapListener {
 public:
  /// `taps` are the ports that the client is given. Throws CannotRecord.
  Recorder(const std::string& folder, const tools::Endpoint& group, const ServicePorts& taps);

  void on_event(const Event& event) override;

  void on_opened(Line line, bool reached, TimeNs at) override {
    wire_.on_opened(line, reached, at);
  }
  void on_passed(const Passed& passed) override { wire_.on_passed(passed); }
  void on_ended(const Ended& ended) override { wire_.on_ended(ended); }
  void on_link(std::string_view, TimeNs) override {}

  void on_feed(quorl::client::ByteView packet, TimeNs at) { feed_.heard(packet, at); }

  /// Brings to the disk what waits.
  void flush();
  /// Brings the timeline in its order and ends the files. Nothing may come behind it.
  void finish();

  /// The first file that could not be written, and why: "cannot write runs/1/wire.pcap: No space
  /// left on device". Empty while all is well. The others are written on.
  std::string failure() const;

 private:
  Timeline timeline_;
  FixLog fix_log_;
  WireCapture wire_;
  FeedCapture feed_;
};

}  // namespace certify
