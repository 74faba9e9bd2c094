#include "certify/record/visible_text.h"

namespace certify {
namespace {

constexpr std::string_view CUT_OFF = "...";

void append_escaped(std::string& text, char c) {
  constexpr std::string_view DIGITS = "0123456789abcdef";
  const auto byte = static_cast<unsigned char>(c);
  text += "\\x";
  text += DIGITS[byte >> 4];
  text += DIGITS[byte & 15];
}

}  // namespace

std::string visible(std::string_view bytes, size_t most) {
  std::string text;
  for (const char c : bytes) {
    if (c >= ' ' && c <= '~') {
      text += c;
    } else {
      append_escaped(text, c);
    }
    if (text.size() > most) {
      text.resize(most > CUT_OFF.size() ? most - CUT_OFF.size() : 0);
      return text.append(CUT_OFF);
    }
  }
  return text;
}

}  // namespace certify
