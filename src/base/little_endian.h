#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <type_traits>

// All integers on the wire are little-endian. Records are written field by field, never as a block
// of memory, so that no padding and no alignment of this machine reaches the wire.

namespace quorl {

/// The symbol field of every message: cut to 8 bytes, padded on the right with spaces.
struct Symbol8 {
  std::array<char, 8> text;

  Symbol8() { text.fill(' '); }
  Symbol8(const std::string& symbol) : Symbol8() { symbol.copy(text.data(), text.size()); }
};

namespace wire {

template <typename T>
constexpr size_t size_of_field = sizeof(T);

template <typename T>
void put(uint8_t*& at, const T& field) {
  if constexpr (std::is_same_v<T, Symbol8>) {
    std::memcpy(at, field.text.data(), field.text.size());
  } else if constexpr (std::is_same_v<T, std::array<char, 4>>) {
    std::memcpy(at, field.data(), field.size());
  } else {
    static_assert(std::is_integral_v<T>);
    const auto value = static_cast<std::make_unsigned_t<T>>(field);
    for (size_t i = 0; i < sizeof(T); ++i) at[i] = static_cast<uint8_t>(value >> (8 * i));
  }
  at += sizeof(T);
}

}  // namespace wire

/// The fields one behind the other: integers little-endian, characters as they stand.
template <typename... Fields>
auto pack_le(const Fields&... fields) {
  std::array<uint8_t, (wire::size_of_field<Fields> + ...)> bytes;
  uint8_t* at = bytes.data();
  (wire::put(at, fields), ...);
  return bytes;
}

/// REQUIRES: sizeof(T) bytes at `bytes`, in any alignment.
template <typename T>
T read_le(const uint8_t* bytes) {
  static_assert(std::is_unsigned_v<T>);
  T value = 0;
  for (size_t i = 0; i < sizeof(T); ++i) {
    value = static_cast<T>(value | static_cast<T>(static_cast<T>(bytes[i]) << (8 * i)));
  }
  return value;
}

}  // namespace quorl
