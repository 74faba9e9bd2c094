#include "quorl/client/json_lines.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <limits>
#include <sstream>

#include "client/digits.h"
#include "quorl/client/errors.h"

namespace quorl::client {
namespace {

constexpr size_t MOST_TRUTH_LEVELS = 10;
constexpr size_t MOST_FILE_LEVELS = 5;

std::string default_text(double value) {
  std::ostringstream text;
  text << value;
  return text.str();
}

/// Walks a text piece by piece.
class TextWalk {
 public:
  explicit TextWalk(std::string_view text) : text_(text), left_(text) {}

  void piece(std::string_view expected) {
    if (!has(expected)) fail("\"" + std::string(expected) + "\"");
  }

  /// Takes the piece if it comes next.
  bool has(std::string_view expected) {
    if (!left_.starts_with(expected)) return false;
    left_.remove_prefix(expected.size());
    return true;
  }

  /// Everything ahead of `piece`, which is taken too. Values are written without escapes.
  std::string until(std::string_view piece) {
    const size_t end = left_.find(piece);
    if (end == std::string_view::npos) fail("\"" + std::string(piece) + "\"");
    std::string value(left_.substr(0, end));
    left_.remove_prefix(end + piece.size());
    return value;
  }

  uint64_t number() {
    uint64_t value = 0;
    const auto [end, error] = std::from_chars(left_.data(), left_.data() + left_.size(), value);
    const auto size = static_cast<size_t>(end - left_.data());
    if (error != std::errc() || (size > 1 && left_[0] == '0')) fail("a plain number");
    left_.remove_prefix(size);
    return value;
  }

  uint32_t number32() {
    const uint64_t value = number();
    if (value > std::numeric_limits<uint32_t>::max()) fail("a number of 32 bits");
    return static_cast<uint32_t>(value);
  }

  /// A float as streams write it by default: six significant digits, no trailing zeros.
  std::string float_text() {
    const size_t size = std::min(left_.find_first_not_of("+-.0123456789e"), left_.size());
    const std::string text(left_.substr(0, size));
    double value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size() || default_text(value) != text) {
      fail("a float of six significant digits");
    }
    left_.remove_prefix(size);
    return text;
  }

  /// A float with exactly four decimals.
  Price4 four_decimals() {
    const bool negative = has("-");
    const size_t point = left_.find('.');
    constexpr size_t DECIMALS = 4;
    if (point == std::string_view::npos || point == 0 || left_.size() < point + 1 + DECIMALS) {
      fail("a float of four decimals");
    }
    std::string digits(left_.substr(0, point));
    digits += left_.substr(point + 1, DECIMALS);
    if (!is_digits(digits) || digits.size() > 18) {
      fail("a float of four decimals");
    }
    left_.remove_prefix(point + 1 + DECIMALS);
    const Price4 value = std::stoll(digits);
    return negative ? -value : value;
  }

  std::string_view left() const { return left_; }

  void end() const {
    if (!left_.empty()) fail("the end");
  }

  [[noreturn]] void fail(const std::string& wanted) const {
    throw WireError("no " + wanted + " at \"" + std::string(left_) + "\" of \"" +
                    std::string(text_) + "\"");
  }

 private:
  std::string_view text_;
  std::string_view left_;
};

std::vector<TruthLevel> truth_levels(TextWalk& walk, bool buy) {
  std::vector<TruthLevel> levels;
  while (walk.left().starts_with(levels.empty() ? "[" : ",")) {
    walk.piece(levels.empty() ? "[" : ",[");
    TruthLevel level;
    level.price = walk.four_decimals();
    walk.piece(",");
    level.size = walk.number32();
    walk.piece("]");
    const bool in_order = levels.empty() || (buy ? level.price < levels.back().price
                                                 : level.price > levels.back().price);
    if (!in_order || level.size == 0 || levels.size() == MOST_TRUTH_LEVELS) {
      walk.fail("proper list of levels");
    }
    levels.push_back(level);
  }
  return levels;
}

std::vector<BookFileLevel> file_levels(TextWalk& walk) {
  std::vector<BookFileLevel> levels;
  while (walk.left().starts_with(levels.empty() ? "[" : ",")) {
    walk.piece(levels.empty() ? "[" : ",[");
    BookFileLevel level;
    level.price = walk.float_text();
    walk.piece(",");
    level.size = walk.number32();
    walk.piece("]");
    if (level.size == 0 || levels.size() == MOST_FILE_LEVELS) walk.fail("proper list of levels");
    levels.push_back(level);
  }
  return levels;
}

void check_event_word(const TextWalk& walk, const std::string& word) {
  constexpr std::array<std::string_view, 7> WORDS = {
      "new", "replace", "reject", "cancel", "fill", "cancel_reject", "replace_reject"};
  if (std::find(WORDS.begin(), WORDS.end(), word) == WORDS.end()) walk.fail("event word");
}

std::vector<std::string_view> whole_lines(std::string_view content) {
  std::vector<std::string_view> lines;
  for (size_t end = content.find('\n'); end != std::string_view::npos; end = content.find('\n')) {
    lines.push_back(content.substr(0, end));
    content.remove_prefix(end + 1);
  }
  return lines;
}

void require_line_end(std::string_view content) {
  if (!content.empty() && content.back() != '\n') {
    throw WireError("the last line has no end: " + std::string(content));
  }
}

}  // namespace

OrderEvent parse_order_event(std::string_view line) {
  TextWalk walk(line);
  OrderEvent event;
  walk.piece("{\"t\":");
  event.t_ns = walk.number();
  walk.piece(",\"ev\":\"");
  event.ev = walk.until("\",\"cl\":\"");
  check_event_word(walk, event.ev);
  event.cl = walk.until("\",\"oid\":");
  event.oid = walk.number();
  walk.piece(",\"symbol\":\"");
  event.symbol = walk.until("\",\"side\":\"");
  event.side = walk.until("\",\"qty\":");
  if (event.side != "B" && event.side != "S" && event.side != " ") walk.fail("side");
  event.qty = walk.number32();
  walk.piece(",\"px\":");
  event.px = walk.float_text();
  walk.piece(",\"cum\":");
  event.cum = walk.number32();
  walk.piece(",\"leaves\":");
  event.leaves = walk.number32();
  walk.piece(",\"last_qty\":");
  event.last_qty = walk.number32();
  walk.piece(",\"text\":\"");
  if (walk.left().find("\",\"ref\":\"") != std::string_view::npos) {
    event.text = walk.until("\",\"ref\":\"");
    event.ref = walk.until("\"}");
    if (event.ref->empty()) walk.fail("reason to write an empty ref");
  } else {
    event.text = walk.until("\"}");
  }
  walk.end();
  return event;
}

MarketTruthLine parse_market_truth(std::string_view line) {
  TextWalk walk(line);
  if (walk.has("{\"mark\":\"")) {
    MarkLine mark;
    mark.label = walk.until("\",\"seq\":");
    mark.seq = walk.number();
    walk.piece("}");
    walk.end();
    return mark;
  }
  BookLine book;
  walk.piece("{\"seq\":");
  book.seq = walk.number();
  walk.piece(",\"secid\":");
  book.secid = walk.number32();
  walk.piece(",\"symbol\":\"");
  book.symbol = walk.until("\",\"bid\":[");
  book.bids = truth_levels(walk, true);
  walk.piece("],\"ask\":[");
  book.asks = truth_levels(walk, false);
  walk.piece("]}");
  walk.end();
  return book;
}

BookFile parse_book_file(std::string_view content) {
  TextWalk walk(content);
  BookFile file;
  walk.piece("{\"ts_ns\":");
  file.ts_ns = walk.number();
  walk.piece(",\"symbols\":{");
  while (!walk.left().starts_with("}")) {
    walk.piece(file.symbols.empty() ? "\"" : ",\"");
    BookFileSymbol symbol;
    symbol.symbol = walk.until("\":{\"bid\":[");
    symbol.bids = file_levels(walk);
    walk.piece("],\"ask\":[");
    symbol.asks = file_levels(walk);
    walk.piece("],\"last\":");
    symbol.last = walk.float_text();
    walk.piece(",\"volume\":");
    symbol.volume = walk.number();
    walk.piece("}");
    file.symbols.push_back(std::move(symbol));
  }
  walk.piece("}}\n");
  walk.end();
  return file;
}

std::vector<BboLine> parse_bbo_file(std::string_view content) {
  require_line_end(content);
  std::vector<BboLine> lines;
  for (const std::string_view text : whole_lines(content)) {
    TextWalk walk(text);
    BboLine line;
    line.symbol = walk.until(" ");
    line.bid = walk.float_text();
    walk.piece(" ");
    line.ask = walk.float_text();
    walk.end();
    lines.push_back(std::move(line));
  }
  return lines;
}

std::vector<OrderEvent> parse_order_events(std::string_view content) {
  require_line_end(content);
  std::vector<OrderEvent> events;
  for (const std::string_view line : whole_lines(content)) {
    events.push_back(parse_order_event(line));
  }
  return events;
}

std::vector<MarketTruthLine> parse_market_truths(std::string_view content) {
  std::vector<MarketTruthLine> truths;
  for (const std::string_view line : whole_lines(content)) {
    truths.push_back(parse_market_truth(line));
  }
  return truths;
}

std::string six_digit_text(Price4 price) {
  return default_text(static_cast<double>(price) / 10000.0);
}

}  // namespace quorl::client
