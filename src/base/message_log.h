#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <deque>
#include <memory>
#include <string_view>
#include <utility>

namespace quorl {

/// Messages in the order in which they came, each with a record `Meta` of fixed size: added behind,
/// dropped in front, read anywhere. The bytes lie one message behind the other in chunks, so that
/// keeping a message takes no memory of its own: sizeof(Meta) and 8 bytes beside what it says. A
/// chunk whose messages have all gone is the next one to be filled.
template <typename Meta>
class MessageLog {
 public:
  struct Entry {
    const Meta& meta;
    std::string_view bytes;
  };

  MessageLog() = default;
  MessageLog(MessageLog&&) noexcept = default;
  MessageLog& operator=(MessageLog&&) noexcept = default;

  size_t size() const { return places_.size(); }
  bool empty() const { return places_.empty(); }

  /// Oldest first; good until this entry goes. REQUIRES: index < size().
  Entry operator[](size_t index) const {
    const Place& place = places_[index];
    const Chunk& chunk = chunks_[place.chunk - first_chunk_];
    const bool last_in_chunk =
        index + 1 == places_.size() || places_[index + 1].chunk != place.chunk;
    const size_t end = last_in_chunk ? chunk.used : places_[index + 1].begin;
    return {place.meta, {chunk.bytes.get() + place.begin, end - place.begin}};
  }

  /// Copies the bytes, of any size.
  void push(const Meta& meta, std::string_view bytes) {
    if (chunks_.empty() || !chunks_.back().takes(bytes.size())) add_chunk(bytes.size());
    Chunk& chunk = chunks_.back();
    const auto number = first_chunk_ + static_cast<uint32_t>(chunks_.size() - 1);
    places_.push_back({meta, number, static_cast<uint32_t>(chunk.used)});
    if (!bytes.empty()) std::memcpy(chunk.bytes.get() + chunk.used, bytes.data(), bytes.size());
    chunk.used += bytes.size();
  }

  /// REQUIRES: !empty().
  void pop_front() {
    places_.pop_front();
    while (!chunks_.empty() && (places_.empty() || places_.front().chunk != first_chunk_)) {
      retire_first_chunk();
    }
  }

  /// Gives the memory back too.
  void clear() { *this = MessageLog(); }

 private:
  // The first chunk is small, as most logs are, and each further one twice as large.
  static constexpr size_t SMALLEST_CHUNK = 1024;
  static constexpr size_t LARGEST_CHUNK = 65536;

  struct Chunk {
    std::unique_ptr<char[]> bytes;
    size_t capacity = 0;
    size_t used = 0;

    /// A message above LARGEST_CHUNK is alone in a chunk of its size.
    bool is_ordinary() const { return capacity <= LARGEST_CHUNK; }
    bool takes(size_t size) const { return is_ordinary() && size <= capacity - used; }
  };

  struct Place {
    Meta meta;
    uint32_t chunk;  // counted from the beginning of the log, and may wrap
    uint32_t begin;  // in the chunk; it ends where the next one begins
  };

  void add_chunk(size_t message_size) {
    if (spare_.bytes != nullptr && spare_.takes(message_size)) {
      chunks_.push_back(std::exchange(spare_, {}));
      return;
    }
    const size_t doubled = chunks_.empty() ? 0 : chunks_.back().capacity * 2;
    const size_t capacity =
        std::max(message_size, std::clamp(doubled, SMALLEST_CHUNK, LARGEST_CHUNK));
    chunks_.push_back({std::make_unique_for_overwrite<char[]>(capacity), capacity, 0});
  }

  void retire_first_chunk() {
    Chunk& chunk = chunks_.front();
    if (chunk.is_ordinary() && chunk.capacity >= spare_.capacity) {
      spare_ = std::move(chunk);
      spare_.used = 0;
    }
    chunks_.pop_front();
    ++first_chunk_;
  }

  std::deque<Place> places_;
  std::deque<Chunk> chunks_;  // each holds a message that is still there
  uint32_t first_chunk_ = 0;  // number of the first of them
  Chunk spare_;               // the last one to retire; steady traffic needs no more
};

}  // namespace quorl
