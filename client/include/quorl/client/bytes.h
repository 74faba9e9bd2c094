#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace quorl::client {

using Bytes = std::vector<uint8_t>;
using ByteView = std::span<const uint8_t>;

/// Reads little-endian fields from the front of a view. Reading past the end throws WireError
/// naming the field.
class ByteReader {
 public:
  /// `what` names the record in error texts.
  ByteReader(ByteView bytes, std::string_view what) : bytes_(bytes), what_(what) {}

  uint8_t u8(std::string_view field);
  uint16_t u16(std::string_view field);
  uint32_t u32(std::string_view field);
  uint64_t u64(std::string_view field);
  int64_t i64(std::string_view field);
  char character(std::string_view field);
  ByteView take(size_t count, std::string_view field);

  size_t left() const { return bytes_.size() - at_; }
  size_t position() const { return at_; }

  /// Throws unless every byte has been read.
  void expect_end() const;

 private:
  ByteView bytes_;
  std::string what_;
  size_t at_ = 0;
};

void put_u8(Bytes& out, uint8_t value);
void put_u16(Bytes& out, uint16_t value);
void put_u32(Bytes& out, uint32_t value);
void put_u64(Bytes& out, uint64_t value);
void put_bytes(Bytes& out, ByteView value);
void put_text(Bytes& out, std::string_view text);

/// `text` cut to `width`, or padded on the right with `pad`.
void put_padded(Bytes& out, std::string_view text, size_t width, char pad);

Bytes to_bytes(std::string_view text);
std::string to_text(ByteView bytes);

/// "01 80 ff", for failure messages.
std::string hex(ByteView bytes);

}  // namespace quorl::client
