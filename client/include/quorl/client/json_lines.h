#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "quorl/client/deep.h"

namespace quorl::client {

/// One line of the order event file.
struct OrderEvent {
  uint64_t t_ns = 0;
  std::string ev;  // new, replace, reject, cancel, fill, cancel_reject, replace_reject
  std::string cl;
  uint64_t oid = 0;
  std::string symbol;
  std::string side;  // "B", "S" or " "
  uint32_t qty = 0;
  std::string px;  // as written: six significant digits
  uint32_t cum = 0;
  uint32_t leaves = 0;
  uint32_t last_qty = 0;
  std::string text;
  std::optional<std::string> ref;
};

struct TruthLevel {
  Price4 price = 0;
  uint32_t size = 0;
  bool operator==(const TruthLevel&) const = default;
};

/// The state of one symbol after the level update `seq`, at most 10 levels a side, best first.
struct BookLine {
  uint64_t seq = 0;
  uint32_t secid = 0;
  std::string symbol;
  std::vector<TruthLevel> bids;
  std::vector<TruthLevel> asks;
};

struct MarkLine {
  std::string label;
  uint64_t seq = 0;
};

using MarketTruthLine = std::variant<BookLine, MarkLine>;

/// A level of the book file; the price as written, with six significant digits.
struct BookFileLevel {
  std::string price;
  uint32_t size = 0;
};

struct BookFileSymbol {
  std::string symbol;
  std::vector<BookFileLevel> bids;  // at most 5, best first
  std::vector<BookFileLevel> asks;
  std::string last;
  uint64_t volume = 0;
};

struct BookFile {
  uint64_t ts_ns = 0;
  std::vector<BookFileSymbol> symbols;
};

struct BboLine {
  std::string symbol;
  std::string bid;  // as written; "0" for an empty side
  std::string ask;
};

// Each reader demands the exact text, piece by piece: keys, order, quotes, no blanks, numbers in
// their one form. A line is given without its line end, a file whole. All throw WireError. The
// exchange escapes nothing: a line with a quotation mark or a backslash in a ClOrdID is no JSON,
// and no library reads it, but it is what the exchange writes and is read here as it stands.
OrderEvent parse_order_event(std::string_view line);
MarketTruthLine parse_market_truth(std::string_view line);
BookFile parse_book_file(std::string_view content);
std::vector<BboLine> parse_bbo_file(std::string_view content);

/// All lines of an order event file, each complete. A file that ends without a line end throws.
std::vector<OrderEvent> parse_order_events(std::string_view content);
/// All whole lines; what a run that ended abruptly left behind the last line end is dropped.
std::vector<MarketTruthLine> parse_market_truths(std::string_view content);

/// A price as the order events and the book file write it: at most six significant digits.
std::string six_digit_text(Price4 price);

}  // namespace quorl::client
