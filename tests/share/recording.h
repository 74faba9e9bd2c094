#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "quorl/client/gap_fill_client.h"
#include "quorl/client/iex_tp.h"
#include "quorl/client/snap_client.h"
#include "quorl/client/temp_directory.h"
#include "tests/share/capture_file.h"

namespace client = quorl::client;

namespace share {

/// Where a capture's exchange talks, whatever ports the recorded one had.
struct CapturedPorts {
  uint16_t feed = 25477;
  uint16_t gap_fill = 25479;
  uint16_t snap = 25479;
  uint16_t fix = 28500;
};

/// A datagram of gap fill and what came for it.
struct RecordedRequest {
  client::GapFillRequest request;
  std::string refused;  // the exchange's reason; empty if it answers
  std::vector<client::Bytes> replies;
  size_t feed_packets = 0;  // that had come before
};

struct RecordedImage {
  client::SnapRequest request;
  client::Bytes reply;
  size_t feed_packets = 0;
};

/// FIX as it was said, one message an element.
struct RecordedFix {
  bool from_client = false;
  std::string bytes;
};

/// What a client heard of a run of the exchange in which everything happened that the wires can
/// show: lost, repeated and late packets, numbers one too high, trades, heartbeats, requests of all
/// kinds. Bytes as they came.
struct Recording {
  uint32_t session = 0;
  std::vector<client::Bytes> feed;  // in order of arrival
  std::vector<RecordedRequest> gap_fill;
  std::vector<RecordedImage> images;
  std::vector<RecordedFix> fix;
  std::map<uint64_t, uint64_t> seq_at;  // true numbers by stream offset, from gap fill

  /// The one of this program: it is made with the first call.
  static const Recording& of_a_run();
};

/// The frames of a recording in a capture.
struct Frames {
  std::vector<size_t> feed;
  std::vector<size_t> gap_fill;  // of the requests
  std::vector<std::vector<size_t>> gap_fill_replies;
  std::vector<std::vector<size_t>> images;  // of their segments, requests first
  std::vector<size_t> fix;
};

/// Puts a whole recording into the file, on these ports. Segments of images are cut small, at
/// places that no reader would wish for.
Frames put_recording(CaptureFile& file, const Recording& recording, const CapturedPorts& ports);

constexpr uint32_t GROUP = 0xe9361a6f;  // 233.54.26.111
constexpr uint16_t FEED_SOURCE_PORT = 40000;
constexpr uint16_t CLIENT_PORT = 50000;

}  // namespace share
