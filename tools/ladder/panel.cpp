#include "tools/ladder/panel.h"

#include <algorithm>
#include <array>
#include <optional>
#include <vector>

#include "tools/ladder/view.h"

namespace ladder {
namespace {

namespace client = quorl::client;

constexpr std::array<const char*, 8> LINE_GLYPHS = {"▁", "▂", "▃", "▄", "▅", "▆", "▇", "█"};
constexpr std::array<const char*, 7> BAR_ENDS = {"▏", "▎", "▍", "▌", "▋", "▊", "▉"};
constexpr size_t PANEL_HEAD_ROWS = 2;
constexpr size_t SIDE_WIDTH = 4;  // "ask "
constexpr size_t SHORTEST_BAR = 3;
constexpr size_t LONGEST_BAR = 40;
constexpr size_t TIME_WIDTH = 9;   // "23:58:01 "
constexpr size_t WIDE_PANEL = 56;  // trades with their times

const char* glyph_of(Tick tick) {
  if (tick == Tick::UP) return "▲";
  if (tick == Tick::DOWN) return "▼";
  return "·";
}

Style style_of(Tick tick) {
  if (tick == Tick::UP) return Style::UP;
  if (tick == Tick::DOWN) return Style::DOWN;
  return Style::PLAIN;
}

struct Level {
  client::Price4 price;
  uint32_t size;
};

template <typename Levels>
std::vector<Level> best_of(const Levels& levels, size_t count) {
  std::vector<Level> best;
  for (const auto& [price, size] : levels) {
    if (best.size() == count) break;
    best.push_back({price, size});
  }
  return best;
}

int decimals_of(client::Price4 price) {
  if (price % 100 == 0) return 2;
  return price % 10 == 0 ? 3 : 4;
}

/// What of the symbol fits, and how wide its columns are.
struct Content {
  Content(const SymbolState& state, size_t rows)
      : bids(best_of(state.bids, rows / 2)),
        asks(best_of(state.asks, rows / 2)),
        trades(state.trades.begin(),
               state.trades.begin() + static_cast<ptrdiff_t>(std::min(rows, state.trades.size()))) {
    for (const auto* side : {&bids, &asks}) {
      for (const Level& level : *side) measure(level.price, level.size, size_width);
    }
    for (const auto* side : {&bids, &asks}) {
      for (const Level& level : *side) largest = std::max(largest, level.size);
    }
    for (const Trade& trade : trades) measure(trade.price, trade.size, trade_width);
    for (const auto* side : {&bids, &asks}) {
      for (const Level& level : *side) widen(level.price);
    }
    for (const Trade& trade : trades) widen(trade.price);
  }

  void measure(client::Price4 price, uint32_t size, size_t& width) {
    decimals = std::max(decimals, decimals_of(price));
    width = std::max(width, std::to_string(size).size());
  }
  void widen(client::Price4 price) {
    price_width = std::max(price_width, fixed_price(price, decimals).size());
  }

  std::vector<Level> bids;
  std::vector<Level> asks;
  std::vector<Trade> trades;
  int decimals = 2;
  size_t price_width = 6;
  size_t size_width = 4;
  size_t trade_width = 3;
  uint32_t largest = 1;
};

std::string bar_of(uint32_t size, uint32_t largest, size_t columns) {
  const uint64_t eighths =
      std::max<uint64_t>(1, uint64_t{size} * columns * 8 / std::max<uint32_t>(1, largest));
  std::string bar;
  for (uint64_t i = 0; i < eighths / 8; ++i) bar += LINE_GLYPHS.back();
  if (eighths % 8 > 0) bar += BAR_ENDS[eighths % 8 - 1];
  return bar;
}

class Panel {
 public:
  Panel(Grid& grid, const Place& place, const std::string& symbol, const SymbolState& state,
        uint64_t now_ns)
      : grid_(grid),
        place_(place),
        symbol_(symbol),
        state_(state),
        now_ns_(now_ns),
        content_(state, place.rows - PANEL_HEAD_ROWS) {
    const size_t fixed = SIDE_WIDTH + content_.price_width + 1 + content_.size_width + 1;
    const size_t trades =
        2 + 2 + content_.price_width + 1 + content_.trade_width + (wide() ? TIME_WIDTH : 0);
    shows_trades_ = fixed + SHORTEST_BAR + trades <= place.columns;
    const size_t taken = fixed + (shows_trades_ ? trades : 0);
    bar_ = std::min(LONGEST_BAR, place.columns > taken ? place.columns - taken : 1);
    bar_column_ = place.column + fixed;
  }

  void draw() {
    draw_title();
    draw_line();
    draw_side(content_.asks, "ask", Style::SELL);
    draw_side(content_.bids, "bid", Style::BUY);
    if (shows_trades_) draw_trades();
  }

 private:
  bool wide() const { return place_.columns >= WIDE_PANEL; }

  void draw_title() {
    size_t column = place_.column;
    column += grid_.put(place_.row, column, printable(symbol_), Style::STRONG) + 2;
    if (!state_.trades.empty()) {
      const Trade& last = state_.trades.front();
      column += grid_.put(place_.row, column,
                          fixed_price(last.price, content_.decimals) + " " + glyph_of(last.tick),
                          style_of(last.tick)) +
                2;
    }
    const auto spread = state_.spread();
    const std::string text = spread ? fixed_price(*spread, content_.decimals) : "-";
    grid_.put(place_.row, column, "spread " + text, Style::PLAIN,
              place_.column + place_.columns - column);
  }

  void draw_line() {
    const std::string volume = "vol " + with_commas(state_.volume);
    if (state_.trades.empty()) {
      grid_.put(place_.row + 1, place_.column, "no trade yet", Style::FAINT);
      grid_.put_right(place_.row + 1, place_.column, place_.columns, volume);
      return;
    }
    // The span's text is at most "300s".
    const size_t width = place_.columns - std::min(place_.columns, volume.size() + 6);
    const auto prices = heights(state_.line.columns(width, now_ns_), LINE_GLYPHS.size() - 1);
    for (size_t i = 0; i < prices.size(); ++i) {
      if (!prices[i]) continue;
      const char* glyph = LINE_GLYPHS[static_cast<size_t>(*prices[i])];
      grid_.put(place_.row + 1, place_.column + i, glyph, Style::PLAIN);
    }
    const std::string span = std::to_string(state_.line.span(width, now_ns_).count()) + "s";
    grid_.put(place_.row + 1, place_.column + width + 1, span, Style::FAINT);
    grid_.put_right(place_.row + 1, place_.column, place_.columns, volume);
  }

  /// Offers upwards from the middle, bids downwards from it.
  void draw_side(const std::vector<Level>& levels, const char* side, Style style) {
    const bool upwards = style == Style::SELL;
    const size_t middle = place_.row + PANEL_HEAD_ROWS + (place_.rows - PANEL_HEAD_ROWS) / 2;
    for (size_t i = 0; i < levels.size(); ++i) {
      const size_t row = upwards ? middle - 1 - i : middle + i;
      size_t column = place_.column;
      grid_.put(row, column, side, Style::FAINT);
      column += SIDE_WIDTH;
      grid_.put_right(row, column, content_.price_width,
                      fixed_price(levels[i].price, content_.decimals), style);
      column += content_.price_width + 1;
      grid_.put_right(row, column, content_.size_width, std::to_string(levels[i].size));
      grid_.put(row, bar_column_, bar_of(levels[i].size, content_.largest, bar_), style);
    }
  }

  void draw_trades() {
    for (size_t i = 0; i < content_.trades.size(); ++i) {
      const Trade& trade = content_.trades[i];
      const size_t row = place_.row + PANEL_HEAD_ROWS + i;
      size_t column = bar_column_ + bar_ + 2;
      if (wide()) {
        grid_.put(row, column, time_of_day(trade.timestamp_ns), Style::FAINT);
        column += TIME_WIDTH;
      }
      grid_.put(row, column, glyph_of(trade.tick), style_of(trade.tick));
      grid_.put_right(row, column + 2, content_.price_width,
                      fixed_price(trade.price, content_.decimals), style_of(trade.tick));
      grid_.put_right(row, column + 2 + content_.price_width + 1, content_.trade_width,
                      std::to_string(trade.size));
    }
  }

  Grid& grid_;
  const Place& place_;
  const std::string& symbol_;
  const SymbolState& state_;
  uint64_t now_ns_;
  Content content_;
  bool shows_trades_ = false;
  size_t bar_ = 0;
  size_t bar_column_ = 0;
};

}  // namespace

void draw_panel(Grid& grid, const Place& place, const std::string& symbol, const SymbolState* state,
                uint64_t now_ns) {
  if (state != nullptr) {
    Panel(grid, place, symbol, *state, now_ns).draw();
    return;
  }
  const size_t used = grid.put(place.row, place.column, printable(symbol), Style::STRONG);
  grid.put(place.row, place.column + used + 2, "not listed", Style::ALARM);
}

}  // namespace ladder
