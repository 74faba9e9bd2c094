#include "tools/ladder/grid.h"

#include <algorithm>
#include <utility>

namespace ladder {
namespace {

constexpr std::pair<std::string_view, char> ASCII[] = {
    {"▁", '_'}, {"▂", '.'}, {"▃", '-'}, {"▄", '='}, {"▅", '+'}, {"▆", '*'}, {"▇", '%'},
    {"█", '#'}, {"▉", '='}, {"▊", '='}, {"▋", '='}, {"▌", '='}, {"▍", '-'}, {"▎", '-'},
    {"▏", '-'}, {"▲", '^'}, {"▼", 'v'}, {"·", '.'}, {"─", '-'}, {"│", '|'}};

bool continues(char byte) { return (static_cast<unsigned char>(byte) & 0xC0) == 0x80; }

/// Takes one code point off the front of valid UTF-8.
std::string_view take_glyph(std::string_view& text) {
  size_t size = 1;
  while (size < text.size() && continues(text[size])) ++size;
  const std::string_view glyph = text.substr(0, size);
  text.remove_prefix(size);
  return glyph;
}

}  // namespace

Grid::Grid(size_t rows, size_t columns) : rows_(rows), columns_(columns), cells_(rows * columns) {}

const Cell& Grid::at(size_t row, size_t column) const { return cells_.at(row * columns_ + column); }

size_t Grid::put(size_t row, size_t column, std::string_view utf8, Style style, size_t width) {
  size_t count = 0;
  while (!utf8.empty() && count < width) {
    const std::string_view glyph = take_glyph(utf8);
    if (row < rows_ && column + count < columns_) {
      cells_[row * columns_ + column + count] = {std::string(glyph), style};
    }
    ++count;
  }
  return count;
}

void Grid::put_right(size_t row, size_t column, size_t width, std::string_view utf8, Style style) {
  const size_t used = std::min(width, width_of(utf8));
  put(row, column + width - used, utf8, style, used);
}

std::string Grid::text(bool ascii) const {
  std::string all;
  for (size_t row = 0; row < rows_; ++row) {
    std::string line;
    for (size_t column = 0; column < columns_; ++column) {
      const std::string& glyph = at(row, column).glyph;
      line += ascii ? std::string(1, ascii_of(glyph)) : glyph;
    }
    line.erase(line.find_last_not_of(' ') + 1);
    all += line + "\n";
  }
  return all;
}

size_t width_of(std::string_view utf8) {
  return static_cast<size_t>(
      std::count_if(utf8.begin(), utf8.end(), [](char byte) { return !continues(byte); }));
}

std::string printable(std::string_view text) {
  std::string clean(text);
  std::replace_if(
      clean.begin(), clean.end(), [](char c) { return c < ' ' || c > '~'; }, '?');
  return clean;
}

char ascii_of(std::string_view glyph) {
  if (glyph.size() == 1) return glyph[0];
  const auto* found = std::find_if(std::begin(ASCII), std::end(ASCII),
                                   [glyph](const auto& entry) { return entry.first == glyph; });
  return found == std::end(ASCII) ? '?' : found->second;
}

}  // namespace ladder
