#include "quorl/client/bytes.h"

#include <algorithm>

#include "quorl/client/errors.h"

namespace quorl::client {
namespace {

template <typename Value>
Value little_endian(ByteView bytes) {
  Value value = 0;
  for (size_t i = bytes.size(); i-- > 0;) {
    value = static_cast<Value>((static_cast<uint64_t>(value) << 8) | bytes[i]);
  }
  return value;
}

void put_little_endian(Bytes& out, uint64_t value, size_t width) {
  for (size_t i = 0; i < width; ++i) out.push_back(static_cast<uint8_t>(value >> (8 * i)));
}

}  // namespace

ByteView ByteReader::take(size_t count, std::string_view field) {
  if (count > left()) {
    throw WireError(what_ + " ends inside its " + std::string(field) + ": " + hex(bytes_));
  }
  const ByteView taken = bytes_.subspan(at_, count);
  at_ += count;
  return taken;
}

uint8_t ByteReader::u8(std::string_view field) { return take(1, field)[0]; }
uint16_t ByteReader::u16(std::string_view field) { return little_endian<uint16_t>(take(2, field)); }
uint32_t ByteReader::u32(std::string_view field) { return little_endian<uint32_t>(take(4, field)); }
uint64_t ByteReader::u64(std::string_view field) { return little_endian<uint64_t>(take(8, field)); }
int64_t ByteReader::i64(std::string_view field) { return static_cast<int64_t>(u64(field)); }
char ByteReader::character(std::string_view field) { return static_cast<char>(u8(field)); }

void ByteReader::expect_end() const {
  if (left() != 0) {
    throw WireError(what_ + " has " + std::to_string(left()) + " bytes too many: " + hex(bytes_));
  }
}

void put_u8(Bytes& out, uint8_t value) { out.push_back(value); }
void put_u16(Bytes& out, uint16_t value) { put_little_endian(out, value, 2); }
void put_u32(Bytes& out, uint32_t value) { put_little_endian(out, value, 4); }
void put_u64(Bytes& out, uint64_t value) { put_little_endian(out, value, 8); }

void put_bytes(Bytes& out, ByteView value) { out.insert(out.end(), value.begin(), value.end()); }

void put_text(Bytes& out, std::string_view text) {
  out.insert(out.end(), text.begin(), text.end());
}

void put_padded(Bytes& out, std::string_view text, size_t width, char pad) {
  const std::string_view cut = text.substr(0, width);
  put_text(out, cut);
  out.insert(out.end(), width - cut.size(), static_cast<uint8_t>(pad));
}

Bytes to_bytes(std::string_view text) { return Bytes(text.begin(), text.end()); }
std::string to_text(ByteView bytes) { return std::string(bytes.begin(), bytes.end()); }

std::string hex(ByteView bytes) {
  constexpr char DIGITS[] = "0123456789abcdef";
  std::string text;
  for (const uint8_t byte : bytes) {
    if (!text.empty()) text += ' ';
    text += DIGITS[byte >> 4];
    text += DIGITS[byte & 15];
  }
  return text;
}

}  // namespace quorl::client
