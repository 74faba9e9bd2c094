#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace certify {

/// Cuts one way of a FIX connection into frames as the exchange does, docs/fix.md "Framing", but
/// for two things. A prefix "8=FIX" that comes in pieces is put together, since how the exchange
/// happened to read it cannot be known here; it is marked. And a frame above MOST is never given
/// out as one. Takes time in proportion to the bytes, in pieces of whatever size.
class FixCutter {
 public:
  static constexpr size_t MOST = 1 << 20;      // bytes of a frame that is kept
  static constexpr size_t MOST_GARBAGE = 200;  // bytes of garbage that are kept

  struct Cut {
    bool is_frame = false;      // with an announced size, good or not; else garbage
    std::string bytes = {};     // of garbage the first
    uint64_t size = 0;          // all
    bool prefix_split = false;  // see FixHeard
  };

  /// What these bytes complete, in order. Garbage is given out with the piece it came in.
  std::vector<Cut> append(std::string_view bytes);

  /// At the end of the stream: the beginning of a frame that never was completed.
  std::optional<Cut> end();

 private:
  static constexpr size_t NOT_FOUND = std::string_view::npos;

  std::string_view pending() const { return std::string_view(buffer_).substr(begin_); }
  bool step();
  bool find_prefix();
  bool find_length();
  bool take_length();
  bool take_frame();
  void skip(size_t count);
  void waste(size_t count);
  void give_up_frame(size_t count);
  void start_over();
  void tell_garbage();
  void make_room();

  std::string buffer_;
  size_t begin_ = 0;  // of what is pending in it
  std::vector<Cut> cuts_;

  // The frame that is being received; positions count from begin_.
  bool in_frame_ = false;
  bool prefix_split_ = false;
  size_t kept_tail_ = 0;             // bytes that may become a prefix
  size_t searched_ = 0;              // holds nothing that is looked for
  size_t length_field_ = NOT_FOUND;  // of its separator in front
  uint64_t frame_size_ = 0;          // 0: not known yet
  uint64_t skipped_ = 0;             // bytes of it that were not kept
  std::string head_;                 // the first of those

  std::string garbage_;
  uint64_t garbage_size_ = 0;
};

}  // namespace certify
