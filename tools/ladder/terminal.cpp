#include "tools/ladder/terminal.h"

#include <langinfo.h>
#include <ncurses.h>

#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

namespace ladder {
namespace {

// Pairs of colours on the terminal's own background.
constexpr short GREEN = 1;
constexpr short RED = 2;
constexpr short CYAN = 3;
constexpr short YELLOW = 4;

/// The look of a style. Without colours bold and reverse tell what matters.
attr_t attributes_of(Style style) {
  switch (style) {
    case Style::PLAIN:
    case Style::BUY:
    case Style::SELL:
    case Style::UP:
    case Style::DOWN:
      return A_NORMAL;
    case Style::STRONG:
    case Style::GOOD:
    case Style::KEY:
      return A_BOLD;
    case Style::FAINT:
      return A_DIM;
    case Style::TITLE:
    case Style::ALARM:
      break;
  }
  return A_REVERSE;
}

short colour_of(Style style) {
  switch (style) {
    case Style::BUY:
    case Style::UP:
    case Style::GOOD:
      return GREEN;
    case Style::SELL:
    case Style::DOWN:
    case Style::ALARM:
      return RED;
    case Style::KEY:
      return YELLOW;
    case Style::TITLE:
      return CYAN;
    case Style::PLAIN:
    case Style::STRONG:
    case Style::FAINT:
      break;
  }
  return 0;
}

bool begin_colours() {
  if (!has_colors()) return false;
  start_color();
  use_default_colors();
  init_pair(GREEN, COLOR_GREEN, -1);
  init_pair(RED, COLOR_RED, -1);
  init_pair(CYAN, COLOR_CYAN, -1);
  init_pair(YELLOW, COLOR_YELLOW, -1);
  return true;
}

}  // namespace

bool locale_is_ascii() {
  std::setlocale(LC_CTYPE, "");
  return std::string_view(::nl_langinfo(CODESET)) != "UTF-8";
}

Terminal::Terminal(bool colours) : ascii_(locale_is_ascii()) {
  screen_ = newterm(nullptr, stdout, stdin);
  if (screen_ == nullptr) {
    const char* kind = std::getenv("TERM");
    throw NoTerminal("cannot draw on a terminal of the kind '" +
                     std::string(kind == nullptr ? "" : kind) + "' (TERM)");
  }
  cbreak();
  noecho();
  nonl();
  intrflush(stdscr, FALSE);
  keypad(stdscr, TRUE);
  set_escdelay(25);
  curs_set(0);
  colours_ = colours && begin_colours();
}

Terminal::~Terminal() {
  curs_set(1);
  endwin();
  delscreen(screen_);
}

size_t Terminal::rows() const { return static_cast<size_t>(getmaxy(stdscr)); }
size_t Terminal::columns() const { return static_cast<size_t>(getmaxx(stdscr)); }

void Terminal::show(const Grid& grid) {
  erase();
  for (size_t row = 0; row < grid.rows(); ++row) {
    for (size_t column = 0; column < grid.columns(); ++column) {
      const Cell& cell = grid.at(row, column);
      if (cell == Cell{}) continue;
      attr_set(attributes_of(cell.style), colours_ ? colour_of(cell.style) : short{0}, nullptr);
      const std::string glyph = ascii_ ? std::string(1, ascii_of(cell.glyph)) : cell.glyph;
      (void)mvaddstr(static_cast<int>(row), static_cast<int>(column), glyph.c_str());
    }
  }
  attr_set(A_NORMAL, 0, nullptr);
  refresh();
}

std::optional<int> Terminal::key(std::chrono::milliseconds patience) {
  timeout(static_cast<int>(patience.count()));
  const int code = getch();
  switch (code) {
    case ERR:
      return std::nullopt;
    case KEY_RESIZE:
      return static_cast<int>(Key::RESIZED);
    case '\t':
    case KEY_RIGHT:
    case KEY_DOWN:
      return static_cast<int>(Key::TAB);
    case KEY_BTAB:
    case KEY_LEFT:
    case KEY_UP:
      return static_cast<int>(Key::BACK_TAB);
    default:
      return code < 128 ? std::optional(code) : std::nullopt;
  }
}

}  // namespace ladder
