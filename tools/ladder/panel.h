#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "tools/ladder/grid.h"
#include "tools/ladder/market.h"

namespace ladder {

/// A rectangle of a grid.
struct Place {
  size_t row = 0;
  size_t column = 0;
  size_t rows = 0;
  size_t columns = 0;
};

constexpr size_t PANEL_COLUMNS = 39;  // at least, without what parts it from the next
constexpr size_t PANEL_ROWS = 12;     // at least: five levels a side

/// One symbol: its last price, spread, volume and price line, its levels as a ladder with the best
/// ones in the middle, and its trades beside them. `state` null: the feed has not named it.
void draw_panel(Grid& grid, const Place& place, const std::string& symbol, const SymbolState* state,
                uint64_t now_ns);

}  // namespace ladder
