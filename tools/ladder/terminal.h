#pragma once

#include <chrono>
#include <cstddef>
#include <optional>
#include <stdexcept>

#include "tools/ladder/grid.h"

struct screen;  // ncurses's SCREEN

namespace ladder {

/// Keys that are no characters.
enum class Key : int { TAB = 256, BACK_TAB, RESIZED };

/// A terminal that cannot be drawn on.
class NoTerminal : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// The terminal in full-screen mode for as long as this object lives; then as it was before. There
/// is one at a time.
class Terminal {
 public:
  /// Standard input and output must be a terminal. `colours`: if it has any. Throws NoTerminal if
  /// its kind, TERM, is not known.
  explicit Terminal(bool colours);
  Terminal(const Terminal&) = delete;
  Terminal& operator=(const Terminal&) = delete;
  ~Terminal();

  size_t rows() const;
  size_t columns() const;

  /// Brings the screen to what the grid says; only what differs is sent.
  void show(const Grid& grid);

  /// The next key: a character, or a Key as an int. Nothing within `patience`, or if a signal came.
  std::optional<int> key(std::chrono::milliseconds patience);

 private:
  screen* screen_;
  bool colours_ = false;
  bool ascii_ = false;
};

/// Whether text for the outside is to be ASCII, by the locale of the environment.
bool locale_is_ascii();

}  // namespace ladder
