#include "certify/record/fix_cutter.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "certify/record/exchange_framing.h"

namespace certify {
namespace {

constexpr uint64_t NEVER_WHOLE = std::numeric_limits<uint64_t>::max();

/// Bytes at the end that could be the beginning of "8=FIX".
size_t tail_of_a_prefix(std::string_view bytes) {
  size_t size = std::min(bytes.size(), FIX_PREFIX.size() - 1);
  while (!bytes.ends_with(FIX_PREFIX.substr(0, size))) --size;
  return size;
}

void keep_first(std::string& kept, std::string_view bytes) {
  kept += bytes.substr(0, FixCutter::MOST_GARBAGE - std::min(FixCutter::MOST_GARBAGE, kept.size()));
}

}  // namespace

std::vector<FixCutter::Cut> FixCutter::append(std::string_view bytes) {
  buffer_ += bytes;
  while (step()) {
  }
  tell_garbage();
  make_room();
  return std::exchange(cuts_, {});
}

std::optional<FixCutter::Cut> FixCutter::end() {
  const uint64_t size = skipped_ + pending().size();
  if (size == 0) return std::nullopt;
  keep_first(head_, pending());
  Cut cut{.bytes = std::move(head_), .size = size};
  buffer_.clear();
  begin_ = 0;
  start_over();
  return cut;
}

bool FixCutter::step() {
  if (!in_frame_) return find_prefix();
  if (frame_size_ == 0) return find_length() && take_length();
  return take_frame();
}

bool FixCutter::find_prefix() {
  const size_t old_tail = std::exchange(kept_tail_, 0);
  const size_t prefix = pending().find(FIX_PREFIX);
  if (prefix == NOT_FOUND) {
    kept_tail_ = tail_of_a_prefix(pending());
    waste(pending().size() - kept_tail_);
    return false;
  }
  waste(prefix);
  tell_garbage();
  in_frame_ = true;
  prefix_split_ = prefix < old_tail;
  return true;
}

/// The whole field, the separator behind it included.
bool FixCutter::find_length() {
  if (length_field_ == NOT_FOUND) {
    length_field_ = pending().find(LENGTH_PREFIX, searched_);
    if (length_field_ == NOT_FOUND) {
      searched_ = pending().size() - std::min(pending().size(), LENGTH_PREFIX.size() - 1);
      if (pending().size() > MOST) skip(std::exchange(searched_, 0));
      return false;
    }
    searched_ = length_field_ + LENGTH_PREFIX.size();
  }
  const size_t end = pending().find(FIX_SEPARATOR, searched_);
  searched_ = end == NOT_FOUND ? pending().size() : end;
  if (end != NOT_FOUND) return true;
  if (pending().size() <= MOST) return false;
  give_up_frame(searched_);  // a length of so many digits is none
  return false;
}

bool FixCutter::take_length() {
  const size_t begin = length_field_ + LENGTH_PREFIX.size();
  const auto body = lenient_u64(pending().substr(begin, searched_ - begin));
  if (!body) {
    give_up_frame(length_field_);  // the next prefix may stand within the field itself
    return true;
  }
  const uint64_t around_body = skipped_ + searched_ + 1 + TRAILER_SIZE;
  frame_size_ = *body > NEVER_WHOLE - around_body ? NEVER_WHOLE : around_body + *body;
  return true;
}

bool FixCutter::take_frame() {
  if (frame_size_ > MOST) {
    skip(static_cast<size_t>(std::min<uint64_t>(pending().size(), frame_size_ - skipped_)));
    if (skipped_ < frame_size_) return false;
    cuts_.push_back({.bytes = std::move(head_), .size = frame_size_});
  } else {
    const auto size = static_cast<size_t>(frame_size_);
    if (pending().size() < size) return false;
    cuts_.push_back({.is_frame = true,
                     .bytes = std::string(pending().substr(0, size)),
                     .size = size,
                     .prefix_split = prefix_split_});
    begin_ += size;
  }
  start_over();
  return true;
}

/// Of the frame's front: counted, not kept.
void FixCutter::skip(size_t count) {
  keep_first(head_, pending().substr(0, count));
  skipped_ += count;
  begin_ += count;
}

void FixCutter::waste(size_t count) {
  keep_first(garbage_, pending().substr(0, count));
  garbage_size_ += count;
  begin_ += count;
}

void FixCutter::give_up_frame(size_t count) {
  garbage_size_ += skipped_;
  keep_first(garbage_, head_);
  waste(count);
  start_over();
}

void FixCutter::start_over() {
  in_frame_ = prefix_split_ = false;
  kept_tail_ = searched_ = 0;
  length_field_ = NOT_FOUND;
  frame_size_ = skipped_ = 0;
  head_.clear();
}

void FixCutter::tell_garbage() {
  if (garbage_size_ == 0) return;
  cuts_.push_back({.bytes = std::move(garbage_), .size = std::exchange(garbage_size_, 0)});
  garbage_.clear();
}

/// Moves what is pending only if it is less than what has gone.
void FixCutter::make_room() {
  if (begin_ < buffer_.size() - begin_) return;
  buffer_.erase(0, begin_);
  begin_ = 0;
  constexpr size_t LARGE = 64 * 1024;
  if (buffer_.empty() && buffer_.capacity() > LARGE) buffer_.shrink_to_fit();
}

}  // namespace certify
