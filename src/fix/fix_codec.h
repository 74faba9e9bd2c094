#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "fix/fix_fields.h"
#include "fix/fix_text.h"

namespace quorl {

/// Bytes received and not yet framed. Taking a frame moves a start mark, and the bytes in front of
/// it are dropped once per append, so that a burst of frames is not copied down again and again.
class ReceiveBuffer {
 public:
  void append(std::string_view received);
  void clear();
  void drop_front(size_t count);

  std::string_view bytes() const { return std::string_view(bytes_).substr(start_); }
  bool empty() const { return start_ == bytes_.size(); }
  size_t size() const { return bytes_.size() - start_; }

  /// Offset of the first `needle` at or after the front, or npos. The search is resumed behind what
  /// an earlier search for the same needle has ruled out: one needle per buffer.
  size_t find_resuming(std::string_view needle);

 private:
  std::string bytes_;
  size_t start_ = 0;
  size_t searched_ = 0;  // no needle begins between start_ and this offset of bytes_
};

/// Takes the next complete frame with a valid checksum out of `buffer` into `frame`. False when no
/// further whole frame can be had now. Garbage, frames with a bad length and frames with a bad
/// checksum are dropped without a word. Call it until it returns false.
bool extract_frame(ReceiveBuffer& buffer, std::string& frame);

/// Splits a frame into its fields; stops at the first piece that is not "tag=value" SOH. `frame`
/// must outlive the result.
FixFieldMap parse_fields(const std::string& frame);
FixFieldMap parse_fields(std::string&& frame) = delete;

/// The whole wire message: head, the session's fields, `header_fields`, `body_fields`, trailer.
/// SendingTime is read from the clock here.
std::string compose_message(std::string_view msg_type, uint32_t seq, std::string_view sender,
                            std::string_view target, const FixFieldList& body_fields,
                            const FixFieldList& header_fields);

}  // namespace quorl
