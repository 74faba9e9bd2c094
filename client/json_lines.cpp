#include "quorl/client/json_lines.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <limits>
#include <nlohmann/json.hpp>
#include <sstream>

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

/// A float as streams write it by default: six significant digits, no trailing zeros.
bool has_six_digits(std::string_view text) {
  double value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  return error == std::errc() && default_text(value) == text;
}

enum class Kind { OBJECT, OBJECT_END, ARRAY, ARRAY_END, KEY, TEXT, WHOLE, FRACTION };

struct Part {
  Kind kind;
  std::string text;  // of keys, texts and numbers; a fraction's as it was written
};

/// Takes a JSON text apart, and spells what it found as the exchange does: without blanks and
/// escapes.
class Parts : public nlohmann::json_sax<nlohmann::json> {
 public:
  explicit Parts(std::string_view text) {
    // On failure a callback below has said why.
    (void)nlohmann::json::sax_parse(text, this);
    if (problem_.empty() && spelling_ != text) problem_ = "spelt otherwise";
  }

  /// Empty if the text was read to its end and was spelt in the one way.
  const std::string& problem() const { return problem_; }
  const std::vector<Part>& all() const { return parts_; }

  bool start_object(size_t) override { return add(Kind::OBJECT, "", "{"); }
  bool end_object() override { return add(Kind::OBJECT_END, "", "}"); }
  bool start_array(size_t) override { return add(Kind::ARRAY, "", "["); }
  bool end_array() override { return add(Kind::ARRAY_END, "", "]"); }
  bool key(std::string& name) override { return add(Kind::KEY, name, '"' + name + "\":"); }
  bool string(std::string& text) override { return add(Kind::TEXT, text, '"' + text + '"'); }
  bool number_unsigned(uint64_t value) override { return add_number(std::to_string(value)); }
  bool number_integer(int64_t value) override { return add_number(std::to_string(value)); }
  bool number_float(double, const std::string& written) override {
    return add(Kind::FRACTION, written, written);
  }
  bool null() override { return refuse("null"); }
  bool boolean(bool) override { return refuse("a truth value"); }
  bool binary(binary_t&) override { return refuse("binary"); }
  bool parse_error(size_t, const std::string&, const nlohmann::detail::exception& error) override {
    return refuse(error.what());
  }

 private:
  bool add(Kind kind, const std::string& text, const std::string& spelt) {
    if (needs_comma(kind)) spelling_ += ',';
    spelling_ += spelt;
    parts_.push_back({kind, text});
    return true;
  }

  bool add_number(const std::string& digits) { return add(Kind::WHOLE, digits, digits); }

  bool needs_comma(Kind next) const {
    if (parts_.empty() || next == Kind::OBJECT_END || next == Kind::ARRAY_END) return false;
    const Kind last = parts_.back().kind;
    return last != Kind::OBJECT && last != Kind::ARRAY && last != Kind::KEY;
  }

  bool refuse(const std::string& why) {
    problem_ = why;
    return false;
  }

  std::vector<Part> parts_;
  std::string spelling_;
  std::string problem_;
};

/// Walks the parts of one text in their one order.
class PartWalk {
 public:
  explicit PartWalk(std::string_view text) : text_(text), parts_(text) {
    if (!parts_.problem().empty()) fail("proper text (" + parts_.problem() + ")");
  }

  /// Takes the part if it comes next.
  bool has(Kind kind) {
    if (at_ == parts_.all().size() || parts_.all()[at_].kind != kind) return false;
    ++at_;
    return true;
  }

  bool has_key(std::string_view name) {
    if (at_ == parts_.all().size() || parts_.all()[at_].text != name) return false;
    return has(Kind::KEY);
  }

  const std::string& take(Kind kind, const std::string& wanted) {
    if (!has(kind)) fail(wanted);
    return parts_.all()[at_ - 1].text;
  }

  PartWalk& key(const std::string& name) {
    if (!has_key(name)) fail("key " + name);
    return *this;
  }

  std::string text() { return take(Kind::TEXT, "text"); }

  uint64_t number() {
    const std::string& digits = take(Kind::WHOLE, "whole number");
    if (digits[0] == '-') fail("number from 0 on");
    return std::stoull(digits);
  }

  uint32_t number32() {
    const uint64_t value = number();
    if (value > std::numeric_limits<uint32_t>::max()) fail("number of 32 bits");
    return static_cast<uint32_t>(value);
  }

  std::string six_digits() {
    const bool whole = has(Kind::WHOLE);
    const std::string& written =
        whole ? parts_.all()[at_ - 1].text : take(Kind::FRACTION, "number");
    if (!has_six_digits(written)) fail("number of six significant digits");
    return written;
  }

  /// A float with exactly four decimals.
  Price4 four_decimals() {
    constexpr size_t DECIMALS = 4;
    constexpr size_t LONGEST =
        19;  // the point and as many digits as 64 bits hold, whatever they are
    std::string digits = take(Kind::FRACTION, "number of four decimals");
    const size_t point = digits.find('.');
    if (point == std::string::npos || digits.size() != point + 1 + DECIMALS ||
        digits.size() > LONGEST || digits.find_first_of("eE") != std::string::npos) {
      fail("number of four decimals");
    }
    return std::stoll(digits.erase(point, 1));
  }

  void end() const {
    if (at_ != parts_.all().size()) fail("end");
  }

  [[noreturn]] void fail(const std::string& wanted) const {
    const std::string place = at_ == 0 ? "" : " at part " + std::to_string(at_ + 1);
    throw WireError("no " + wanted + place + " of \"" + std::string(text_) + "\"");
  }

 private:
  std::string_view text_;
  Parts parts_;
  size_t at_ = 0;
};

std::vector<TruthLevel> truth_levels(PartWalk& walk, bool buy) {
  std::vector<TruthLevel> levels;
  walk.take(Kind::ARRAY, "list of levels");
  while (!walk.has(Kind::ARRAY_END)) {
    walk.take(Kind::ARRAY, "level");
    TruthLevel level;
    level.price = walk.four_decimals();
    level.size = walk.number32();
    walk.take(Kind::ARRAY_END, "end of the level");
    const bool in_order = levels.empty() || (buy ? level.price < levels.back().price
                                                 : level.price > levels.back().price);
    if (!in_order || level.size == 0 || levels.size() == MOST_TRUTH_LEVELS) {
      walk.fail("proper list of levels");
    }
    levels.push_back(level);
  }
  return levels;
}

std::vector<BookFileLevel> file_levels(PartWalk& walk) {
  std::vector<BookFileLevel> levels;
  walk.take(Kind::ARRAY, "list of levels");
  while (!walk.has(Kind::ARRAY_END)) {
    walk.take(Kind::ARRAY, "level");
    BookFileLevel level;
    level.price = walk.six_digits();
    level.size = walk.number32();
    walk.take(Kind::ARRAY_END, "end of the level");
    if (level.size == 0 || levels.size() == MOST_FILE_LEVELS) walk.fail("proper list of levels");
    levels.push_back(std::move(level));
  }
  return levels;
}

void check_event_word(const PartWalk& walk, const std::string& word) {
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

/// "SYMBOL BID ASK", a blank between.
BboLine parse_bbo_line(std::string_view text) {
  const size_t bid_at = text.find(' ') + 1;
  const size_t ask_at = text.find(' ', bid_at) + 1;
  if (bid_at == 0 || ask_at == 0) throw WireError("no two prices in " + std::string(text));
  BboLine line;
  line.symbol = text.substr(0, bid_at - 1);
  line.bid = text.substr(bid_at, ask_at - 1 - bid_at);
  line.ask = text.substr(ask_at);
  if (!has_six_digits(line.bid) || !has_six_digits(line.ask)) {
    throw WireError("no prices of six significant digits in " + std::string(text));
  }
  return line;
}

}  // namespace

OrderEvent parse_order_event(std::string_view line) {
  PartWalk walk(line);
  OrderEvent event;
  walk.take(Kind::OBJECT, "object");
  event.t_ns = walk.key("t").number();
  event.ev = walk.key("ev").text();
  check_event_word(walk, event.ev);
  event.cl = walk.key("cl").text();
  event.oid = walk.key("oid").number();
  event.symbol = walk.key("symbol").text();
  event.side = walk.key("side").text();
  if (event.side != "B" && event.side != "S" && event.side != " ") walk.fail("side");
  event.qty = walk.key("qty").number32();
  event.px = walk.key("px").six_digits();
  event.cum = walk.key("cum").number32();
  event.leaves = walk.key("leaves").number32();
  event.last_qty = walk.key("last_qty").number32();
  event.text = walk.key("text").text();
  if (walk.has_key("ref")) {
    event.ref = walk.text();
    if (event.ref->empty()) walk.fail("reason to write an empty ref");
  }
  walk.take(Kind::OBJECT_END, "end of the object");
  walk.end();
  return event;
}

MarketTruthLine parse_market_truth(std::string_view line) {
  PartWalk walk(line);
  walk.take(Kind::OBJECT, "object");
  if (walk.has_key("mark")) {
    MarkLine mark;
    mark.label = walk.text();
    mark.seq = walk.key("seq").number();
    walk.take(Kind::OBJECT_END, "end of the object");
    walk.end();
    return mark;
  }
  BookLine book;
  book.seq = walk.key("seq").number();
  book.secid = walk.key("secid").number32();
  book.symbol = walk.key("symbol").text();
  book.bids = truth_levels(walk.key("bid"), true);
  book.asks = truth_levels(walk.key("ask"), false);
  walk.take(Kind::OBJECT_END, "end of the object");
  walk.end();
  return book;
}

BookFile parse_book_file(std::string_view content) {
  require_line_end(content);
  PartWalk walk(content.substr(0, content.find('\n')));
  BookFile file;
  walk.take(Kind::OBJECT, "object");
  file.ts_ns = walk.key("ts_ns").number();
  walk.key("symbols").take(Kind::OBJECT, "object");
  while (!walk.has(Kind::OBJECT_END)) {
    BookFileSymbol symbol;
    symbol.symbol = walk.take(Kind::KEY, "symbol");
    walk.take(Kind::OBJECT, "object");
    symbol.bids = file_levels(walk.key("bid"));
    symbol.asks = file_levels(walk.key("ask"));
    symbol.last = walk.key("last").six_digits();
    symbol.volume = walk.key("volume").number();
    walk.take(Kind::OBJECT_END, "end of the object");
    file.symbols.push_back(std::move(symbol));
  }
  walk.take(Kind::OBJECT_END, "end of the object");
  walk.end();
  if (content.find('\n') + 1 != content.size()) walk.fail("end of the file");
  return file;
}

std::vector<BboLine> parse_bbo_file(std::string_view content) {
  require_line_end(content);
  std::vector<BboLine> lines;
  for (const std::string_view text : whole_lines(content)) lines.push_back(parse_bbo_line(text));
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
