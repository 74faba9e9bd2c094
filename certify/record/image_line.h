#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "certify/record/events.h"

namespace certify {

/// One connection for an image, docs/snap.md: the request as the exchange judges it, and the reply,
/// of which nothing is kept but what the event needs. Each is told once.
class ImageLine {
 public:
  ImageLine(uint32_t connection, uint32_t session) : connection_(connection), session_(session) {}

  std::optional<ImageRequested> on_request(std::string_view bytes);
  std::optional<ImageReplied> on_reply(std::string_view bytes);

  /// What an end leaves unfinished: a request that never was whole, a reply that broke off.
  std::optional<ImageRequested> end_of_request(const Ended& ended);
  std::optional<ImageReplied> end_of_reply(const Ended& ended);

 private:
  ImageRequested judged_request() const;
  std::optional<ImageReplied> on_frame();
  ImageReplied replied();

  uint32_t connection_;
  uint32_t session_;

  std::string request_;  // up to the end of its frame
  bool requested_ = false;
  bool whole_request_ = false;
  bool client_left_ = false;

  std::string frame_;        // of the reply's frame: length, type and a number at most
  uint64_t frame_left_ = 0;  // bytes of its body that are not looked at
  uint64_t frames_ = 0;
  uint64_t announced_ = 0;  // bytes of the whole reply
  uint64_t bytes_ = 0;
  bool replied_ = false;
};

}  // namespace certify
