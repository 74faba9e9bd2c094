#include "certify/report/clean_text.h"

#include <algorithm>
#include <cstdint>
#include <string>

namespace certify {
namespace {

uint8_t byte_at(std::string_view text, size_t i) { return static_cast<uint8_t>(text[i]); }

bool continues(char byte) { return (static_cast<uint8_t>(byte) & 0xC0) == 0x80; }

size_t size_of_glyph(uint8_t lead) {
  if (lead < 0x80) return 1;
  if (lead >= 0xC2 && lead < 0xE0) return 2;
  if (lead >= 0xE0 && lead < 0xF0) return 3;
  if (lead >= 0xF0 && lead < 0xF5) return 4;
  return 0;
}

/// The character at the front and how many bytes it takes; no bytes if what stands there is none.
struct Glyph {
  size_t size = 0;
  uint32_t code = 0;
};

Glyph glyph_at(std::string_view text) {
  constexpr uint32_t LEAST[] = {0, 0, 0x80, 0x800, 0x10000};  // by size: longer forms are refused
  constexpr uint8_t LEAD_BITS[] = {0, 0x7F, 0x1F, 0x0F, 0x07};
  const size_t size = size_of_glyph(byte_at(text, 0));
  if (size == 0 || size > text.size()) return {};
  uint32_t code = byte_at(text, 0) & LEAD_BITS[size];
  for (size_t i = 1; i < size; ++i) {
    if (!continues(text[i])) return {};
    code = (code << 6) | (byte_at(text, i) & 0x3FU);
  }
  if (code < LEAST[size] || code > 0x10FFFF || (code >= 0xD800 && code < 0xE000)) return {};
  return {size, code};
}

bool turns_direction(uint32_t code) {
  return code == 0x61C || code == 0x200E || code == 0x200F || (code >= 0x202A && code <= 0x202E) ||
         (code >= 0x2066 && code <= 0x2069);
}

/// What a terminal may act upon, or XML does not have.
bool may_be_shown(uint32_t code) {
  if (code < 0x20 || (code >= 0x7F && code < 0xA0)) return false;
  if (code == 0x2028 || code == 0x2029) return false;  // ends of lines
  return !turns_direction(code) && (code & 0xFFFE) != 0xFFFE;
}

void append_escaped(std::string& clean, std::string_view bytes) {
  constexpr char DIGITS[] = "0123456789abcdef";
  for (const char byte : bytes) {
    const auto value = static_cast<uint8_t>(byte);
    clean += "\\x";
    clean += DIGITS[value >> 4];
    clean += DIGITS[value & 0x0F];
  }
}

}  // namespace

std::string clean_text(std::string_view text) {
  std::string clean;
  clean.reserve(text.size());
  while (!text.empty()) {
    const Glyph glyph = glyph_at(text);
    const std::string_view bytes = text.substr(0, std::max<size_t>(glyph.size, 1));
    if (glyph.size > 0 && may_be_shown(glyph.code)) {
      clean += bytes;
    } else {
      append_escaped(clean, bytes);
    }
    text.remove_prefix(bytes.size());
  }
  return clean;
}

size_t columns_of(std::string_view utf8) {
  return static_cast<size_t>(
      std::count_if(utf8.begin(), utf8.end(), [](char byte) { return !continues(byte); }));
}

std::string cut_to(std::string_view utf8, size_t width) {
  if (width == 0 || columns_of(utf8) <= width) return std::string(utf8);
  size_t end = 0;
  for (size_t columns = 0; columns + 1 < width; ++columns) {
    ++end;
    while (continues(utf8[end])) ++end;
  }
  return std::string(utf8.substr(0, end)) + "…";
}

std::string fold(std::string_view utf8, size_t width, size_t indent) {
  const std::string margin(indent, ' ');
  std::string folded = margin;
  size_t used = indent;
  while (!utf8.empty()) {
    const std::string_view word = utf8.substr(0, utf8.find(' '));
    utf8.remove_prefix(std::min(utf8.size(), word.size() + 1));
    const size_t columns = columns_of(word);
    if (used > indent && width > 0 && used + 1 + columns > width) {
      folded += "\n" + margin;
      used = indent;
    } else if (used > indent) {
      folded += " ";
      ++used;
    }
    folded += word;
    used += columns;
  }
  return folded;
}

}  // namespace certify
