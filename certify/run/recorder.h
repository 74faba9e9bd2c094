#pragma once

#include <string>

#include "certify/record/events.h"
#include "certify/run/run_folder.h"

namespace certify {

/// Writes down what happens: timeline.txt, the wire as a FIX log, the feed as pcap.
class Recorder : public EventListener {
 public:
  explicit Recorder(const RunFolder& folder);
  void on_event(const Event& event) override;
  /// All is on disk. What could not be written, or nothing.
  std::string finish();
};

}  // namespace certify
