#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace quorl {

/// How far the framing has got with the frame at the front of a buffer, so that bytes that come in
/// dribbles are not looked at again with each of them. Offsets from the front.
struct FrameProgress {
  static constexpr size_t UNKNOWN = std::string_view::npos;

  size_t searched = 0;            // nothing that is sought begins before this offset
  size_t length_field = UNKNOWN;  // of the SOH in front of BodyLength
  size_t frame_size = 0;          // 0 until BodyLength has been read
  bool endless = false;           // BodyLength is beyond any buffer: the frame never completes
};

/// Bytes received and not yet framed, without an upper bound. Taking a frame moves a start mark,
/// and the bytes in front of it are dropped once per append, so that a burst of frames is not
/// copied down again and again.
class ReceiveBuffer {
 public:
  void append(std::string_view received);
  void clear();
  /// REQUIRES: at most size() bytes. The progress starts over unless nothing is dropped.
  void drop_front(size_t count);

  std::string_view bytes() const { return std::string_view(bytes_).substr(start_); }
  bool empty() const { return start_ == bytes_.size(); }
  size_t size() const { return bytes_.size() - start_; }

  FrameProgress progress;

 private:
  std::string bytes_;
  size_t start_ = 0;
};

}  // namespace quorl
