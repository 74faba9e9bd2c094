#include "tools/ladder/view.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string_view>
#include <utility>

#include "tools/ladder/panel.h"

namespace ladder {
namespace {

namespace client = quorl::client;

constexpr size_t HEAD_ROWS = 3;
constexpr size_t KEY_COLUMNS = 26;  // a key and its meaning
constexpr size_t TALL = 30;         // rows from which there is room for all counters
constexpr size_t GUTTER = 2;        // between panels

/// Puts pieces behind each other in one row.
class Row {
 public:
  Row(Grid& grid, size_t row) : grid_(grid), row_(row) {}

  Row& add(std::string_view text, Style style = Style::PLAIN) {
    column_ += grid_.put(row_, column_, text, style);
    return *this;
  }
  Row& counter(std::string_view name, uint64_t value, Style style = Style::PLAIN) {
    return add(std::string(name) + " ", Style::FAINT).add(std::to_string(value), style).add("  ");
  }
  void begin(size_t row) {
    row_ = row;
    column_ = 1;
  }
  bool has_room_for(size_t width) const { return column_ + width <= grid_.columns(); }

 private:
  Grid& grid_;
  size_t row_;
  size_t column_ = 1;
};

std::string seconds_text(std::chrono::steady_clock::duration span) {
  const auto tenths =
      std::max<int64_t>(0, std::chrono::duration_cast<std::chrono::milliseconds>(span).count()) /
      100;
  return std::to_string(tenths / 10) + "." + std::to_string(tenths % 10) + " s";
}

void draw_too_small(Grid& grid) {
  const std::string words[] = {
      "quorl-ladder",
      "needs",
      std::to_string(LEAST_COLUMNS) + "x" + std::to_string(LEAST_ROWS) + ",",
      "this",
      "is",
      std::to_string(grid.columns()) + "x" + std::to_string(grid.rows()) + ":",
      "make",
      "the",
      "window",
      "larger.",
      "q",
      "quits"};
  size_t row = 0;
  size_t column = 0;
  for (const std::string& word : words) {
    if (column > 0 && column + word.size() > grid.columns()) {
      ++row;
      column = 0;
    }
    column += grid.put(row, column, word, Style::STRONG) + 1;
  }
}

/// Where the rows of the control port go, and how many keys stand in one.
struct ControlPlan {
  size_t keys_across = 0;
  size_t key_rows = 0;
  size_t counter_rows = 0;

  size_t rows() const { return 2 + counter_rows + key_rows; }  // a title, the feed's faults
};

/// A key, or two that belong together, and what it does.
struct KeySlot {
  std::string keys;
  std::string meaning;
};

std::vector<KeySlot> key_slots() {
  std::vector<KeySlot> slots;
  for (const KeyCommand& command : key_commands()) {
    if (command.key == '-') continue;  // stands with '+'
    if (command.key == '+') {
      slots.push_back({"+-", "walk faster, slower"});
    } else {
      slots.push_back({std::string(1, command.key), std::string(command.meaning)});
    }
  }
  slots.push_back({std::string(1, CLEAR_KEY), "take all back"});
  return slots;
}

ControlPlan plan_control(const Grid& grid) {
  const size_t across = grid.columns() / KEY_COLUMNS;
  const size_t count = key_slots().size();
  return {.keys_across = across,
          .key_rows = (count + across - 1) / across,
          .counter_rows = grid.rows() >= TALL ? size_t{3} : size_t{1}};
}

class View {
 public:
  View(const Scene& scene, size_t rows, size_t columns) : scene_(scene), grid_(rows, columns) {}

  Grid draw() {
    if (grid_.rows() < LEAST_ROWS || grid_.columns() < LEAST_COLUMNS) {
      draw_too_small(grid_);
      return grid_;
    }
    draw_title();
    if (scene_.help) {
      draw_help();
      return grid_;
    }
    const size_t below = scene_.desk != nullptr ? plan_control(grid_).rows() : 1;
    const Place middle{.row = HEAD_ROWS,
                       .column = 1,
                       .rows = grid_.rows() - HEAD_ROWS - below,
                       .columns = grid_.columns() - 2};
    draw_state();
    draw_counters_of_feed();
    draw_market(middle);
    if (scene_.desk != nullptr) {
      draw_control(grid_.rows() - below);
    } else {
      draw_footer();
    }
    return grid_;
  }

 private:
  void draw_title() {
    grid_.put(0, 0, std::string(grid_.columns(), ' '), Style::TITLE);
    const auto& session = scene_.health.session;
    Row(grid_, 0)
        .add("quorl-ladder  ", Style::TITLE)
        .add(scene_.feed, Style::TITLE)
        .add(session ? "  session " + std::to_string(*session) : "", Style::TITLE);
    grid_.put_right(0, 0, grid_.columns() - 1, time_of_day(scene_.now_ns) + " UTC", Style::TITLE);
  }

  void draw_state() {
    const Health& health = scene_.health;
    const bool well = health.state == FeedState::IN_STEP && !is_silent(health, scene_.now);
    Row row(grid_, 1);
    row.add(state_text(health, scene_.now), well ? Style::GOOD : Style::ALARM).add("  ");
    if (!health.trouble.empty()) {
      row.add(printable(health.trouble), Style::ALARM);
      return;
    }
    if (health.last_heard) {
      row.add("last packet ", Style::FAINT)
          .add(seconds_text(scene_.now - *health.last_heard) + " ago  ");
    }
    if (health.next_seq > 0) row.counter("next", health.next_seq);
    if (scene_.market.since_ns() > 0) {
      row.add("since ", Style::FAINT).add(time_of_day(scene_.market.since_ns()));
    }
  }

  void draw_counters_of_feed() {
    const auto& counters = scene_.health.counters;
    Row row(grid_, 2);
    row.counter("packets", counters.packets)
        .counter("gaps", counters.holes)
        .counter("filled", counters.filled)
        .counter("images", counters.images)
        .counter("dups", counters.duplicates)
        .counter("reordered", counters.out_of_order);
    // Rare, and worth the room only then.
    if (counters.jumped > 0) row.counter("jumped", counters.jumped, Style::ALARM);
    if (counters.kernel_drops > 0) row.counter("lost here", counters.kernel_drops, Style::ALARM);
    if (counters.foreign > 0) row.counter("foreign", counters.foreign, Style::ALARM);
  }

  void draw_market(const Place& place) {
    if (scene_.health.state == FeedState::WAITING) return draw_waiting(place);
    const std::vector<std::string> symbols = chosen_symbols(scene_.market, scene_.filter);
    if (symbols.empty()) return;  // the state tells why
    const size_t across =
        std::clamp<size_t>((place.columns + GUTTER) / (PANEL_COLUMNS + 1), 1, symbols.size());
    const size_t rows_wanted = (symbols.size() + across - 1) / across;
    const size_t down = std::clamp<size_t>(place.rows / PANEL_ROWS, 1, rows_wanted);
    const size_t shown = std::min(symbols.size(), across * down);
    const size_t width = (place.columns - GUTTER * (across - 1)) / across;
    const size_t height = place.rows / down;
    for (size_t i = 0; i < shown; ++i) {
      const std::string& symbol = symbols[(scene_.first_symbol + i) % symbols.size()];
      draw_panel(grid_,
                 {.row = place.row + i / across * height,
                  .column = place.column + i % across * (width + GUTTER),
                  .rows = height,
                  .columns = width},
                 symbol, scene_.market.find(symbol), scene_.now_ns);
    }
    if (shown == symbols.size() || !scene_.health.trouble.empty()) return;
    grid_.put_right(1, 0, grid_.columns() - 1,
                    std::to_string(shown) + " of " + std::to_string(symbols.size()) + ": tab",
                    Style::KEY);
  }

  void draw_waiting(const Place& place) {
    const size_t row = place.row + place.rows / 2 - 1;
    grid_.put(row, place.column + 2, "waiting for the exchange on " + scene_.feed, Style::STRONG);
    grid_.put(row + 1, place.column + 2, "(it sends a packet every second at the least)",
              Style::FAINT);
  }

  void draw_footer() {
    Row(grid_, grid_.rows() - 1)
        .add("q", Style::KEY)
        .add(" quit  ")
        .add("tab", Style::KEY)
        .add(" next symbol  ")
        .add("?", Style::KEY)
        .add(" help");
  }

  void draw_control(size_t first_row) {
    const ControlPlan plan = plan_control(grid_);
    draw_control_title(first_row);
    draw_fault_counters(first_row + 1);
    draw_order_counters(first_row + 2, plan.counter_rows);
    draw_keys(first_row + 2 + plan.counter_rows, plan);
  }

  void draw_control_title(size_t row) {
    std::string rule;
    for (size_t i = 0; i < grid_.columns(); ++i) rule += "─";
    grid_.put(row, 0, rule, Style::FAINT);
    Row title(grid_, row);
    title.add(" control " + scene_.desk->where() + " ");
    const Desk::Note& note = scene_.desk->note();
    if (!scene_.desk->number().empty()) {
      title.add(" " + scene_.desk->number() + ", then a key ", Style::STRONG);
    } else if (!note.text.empty()) {
      title.add(" " + note.text + " ", note.tone == Desk::Tone::GOOD  ? Style::GOOD
                                       : note.tone == Desk::Tone::BAD ? Style::ALARM
                                                                      : Style::PLAIN);
    }
    grid_.put_right(row, 0, grid_.columns() - 1, " ? help  q quit ", Style::KEY);
  }

  void draw_fault_counters(size_t row_number) {
    Row row(grid_, row_number);
    const auto& stats = scene_.desk->stats();
    if (!scene_.desk->answering(scene_.now)) {
      row.add("the control port does not answer", Style::ALARM);
      return;
    }
    if (!stats) return;
    for (const auto& [name, value] : counters_of(*stats)) {
      row.counter(name, value, moving(name));
      if (name == "next_seq") break;  // the last of the feed's
    }
    row.add("FIX ", Style::FAINT).add(stats->session_up ? "up" : "down");
  }

  Style moving(const std::string& counter) const {
    return scene_.desk->moved(counter, scene_.now) && counter != "sent" && counter != "next_seq"
               ? Style::STRONG
               : Style::PLAIN;
  }

  /// Those that are not 0, as far as there is room.
  void draw_order_counters(size_t first_row, size_t rows) {
    const auto& stats = scene_.desk->stats();
    if (!stats) return;
    auto counters = counters_of(*stats);
    const auto orders = std::find_if(counters.begin(), counters.end(),
                                     [](const auto& c) { return c.first == "orders"; });
    counters.erase(counters.begin(), orders);
    std::erase_if(counters, [](const auto& c) { return c.second == 0; });
    if (counters.empty()) {
      grid_.put(first_row, 1, "no orders, no logons yet", Style::FAINT);
      return;
    }
    constexpr size_t MORE = 12;  // "+17 more"
    size_t row_number = first_row;
    Row row(grid_, row_number);
    for (size_t i = 0; i < counters.size(); ++i) {
      const auto& [name, value] = counters[i];
      const size_t width = name.size() + 1 + std::to_string(value).size() + 2;
      const bool last_row = row_number + 1 == first_row + rows;
      if (!row.has_room_for(width + (last_row ? MORE : 0))) {
        if (last_row) {
          row.add("+" + std::to_string(counters.size() - i) + " more", Style::FAINT);
          return;
        }
        row.begin(++row_number);
      }
      row.counter(name, value, moving(name));
    }
  }

  void draw_keys(size_t first_row, const ControlPlan& plan) {
    const std::vector<KeySlot> slots = key_slots();
    const size_t width = grid_.columns() / plan.keys_across;
    for (size_t i = 0; i < slots.size(); ++i) {
      const size_t column = 1 + i / plan.key_rows * width;
      const size_t row = first_row + i % plan.key_rows;
      grid_.put(row, column, slots[i].keys, Style::KEY);
      grid_.put(row, column + (slots[i].keys.size() > 1 ? 3 : 2), slots[i].meaning, Style::PLAIN,
                width - 3);
    }
  }

  void draw_help() {
    size_t row = 1;
    const auto line = [this, &row](std::string_view key, std::string_view command,
                                   std::string_view detail) {
      grid_.put(row, 1, key, Style::KEY);
      grid_.put(row, 8, command, Style::STRONG);
      grid_.put(row, 30, detail);
      ++row;
    };
    if (scene_.desk != nullptr) {
      for (const KeyCommand& command : key_commands()) {
        const bool numbered = command.number >= 0;
        line(std::string(1, command.key), std::string(command.command) + (numbered ? " N" : ""),
             command.detail);
      }
      line(std::string(1, CLEAR_KEY), "... 0", "take back all armed and all recurring faults");
      line("digits", "N", "a number before a key: 3d is \"drop 3\"");
    } else {
      row = 3;
      line("", "", "With --control-port N, the port that the exchange was");
      line("", "", "given, keys make it misbehave.");
      ++row;
    }
    line("tab", "", "the next symbol; shift-tab: the one before");
    line("q", "", "quit");
    grid_.put(grid_.rows() - 1, 1, "any key: back", Style::FAINT);
  }

  const Scene& scene_;
  Grid grid_;
};

}  // namespace

Grid draw(const Scene& scene, size_t rows, size_t columns) {
  return View(scene, rows, columns).draw();
}

std::vector<std::string> chosen_symbols(const Market& market,
                                        const std::vector<std::string>& filter) {
  return filter.empty() ? market.symbols() : filter;
}

std::string fixed_price(client::Price4 price, int decimals) {
  char text[40];
  const long long whole = std::llabs(price) / 10000;
  const long long part = std::llabs(price) % 10000;
  std::snprintf(text, sizeof text, "%s%lld.%04lld", price < 0 ? "-" : "", whole, part);
  std::string result(text);
  result.resize(result.size() - static_cast<size_t>(4 - decimals));
  return result;
}

std::string with_commas(uint64_t number) {
  std::string digits = std::to_string(number);
  for (size_t at = digits.size(); at > 3;) {
    at -= 3;
    digits.insert(at, ",");
  }
  return digits;
}

std::string time_of_day(uint64_t since_epoch_ns) {
  const auto second = static_cast<unsigned>(since_epoch_ns / 1000000000 % 86400);
  char text[16];
  std::snprintf(text, sizeof text, "%02u:%02u:%02u", second / 3600, second / 60 % 60, second % 60);
  return text;
}

}  // namespace ladder
