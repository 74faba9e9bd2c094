#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace ladder {

/// What a cell means; the terminal gives it a look, with colours or without. Nothing is told by it
/// alone.
enum class Style : uint8_t { PLAIN, STRONG, FAINT, TITLE, BUY, SELL, UP, DOWN, GOOD, ALARM, KEY };

struct Cell {
  std::string glyph = " ";  // UTF-8, one column wide
  Style style = Style::PLAIN;
  bool operator==(const Cell&) const = default;
};

/// A screen full of cells. What is put beyond its edges is cut off.
class Grid {
 public:
  Grid(size_t rows, size_t columns);

  size_t rows() const { return rows_; }
  size_t columns() const { return columns_; }
  const Cell& at(size_t row, size_t column) const;

  /// Puts text at a place, one code point a cell, at most `width` of them. Returns the number put.
  /// Text that comes from outside goes through printable() first.
  size_t put(size_t row, size_t column, std::string_view utf8, Style style = Style::PLAIN,
             size_t width = SIZE_MAX);
  /// The same, flush with the right edge of a field of `width` columns; what is too long loses its
  /// end.
  void put_right(size_t row, size_t column, size_t width, std::string_view utf8,
                 Style style = Style::PLAIN);

  /// One line a row, without spaces at its end. `ascii`: each glyph by ascii_of().
  std::string text(bool ascii) const;

 private:
  size_t rows_;
  size_t columns_;
  std::vector<Cell> cells_;
};

/// The number of code points.
size_t width_of(std::string_view utf8);

/// The text with '?' for all that is not printable ASCII: a symbol or a reply may hold anything.
std::string printable(std::string_view text);

/// The character that stands for one of the glyphs used here on a terminal that knows ASCII only.
char ascii_of(std::string_view glyph);

}  // namespace ladder
