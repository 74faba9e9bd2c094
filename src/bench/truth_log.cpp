#include "bench/truth_log.h"

#include <cstdio>
#include <string>

#include "base/clocks.h"
#include "base/price4.h"
#include "base/text_writer.h"
#include "bench/scenario.h"
#include "feed/tp_publisher.h"
#include "market/engine.h"

namespace quorl {
namespace {

constexpr int LEVELS_AROUND = 10;

constexpr size_t LONGEST_PRICE = 32;  // characters

/// "%.4f" of the price in dollars.
void put_price(TextWriter& out, Price4 price) {
  // Within this bound the double nearest to price / 10000 prints, at four decimals, as the
  // integer's own digits.
  constexpr Price4 EXACT_BOUND = 1'000'000'000'000'000;
  if (price > EXACT_BOUND || price < -EXACT_BOUND) {
    char text[LONGEST_PRICE];
    std::snprintf(text, sizeof text, "%.4f", dollars_of(price));
    out.text(text);
    return;
  }
  if (price < 0) out.character('-');
  const auto magnitude = static_cast<uint64_t>(price < 0 ? -price : price);
  out.number(magnitude / 10000).character('.').digits(static_cast<uint32_t>(magnitude % 10000), 4);
}

void put_levels(TextWriter& out, const BookSide& side) {
  int written = 0;
  side.for_each_shown([&](Price4 price, uint32_t size) {
    out.text(written == 0 ? "[" : ",[");
    put_price(out, price);
    out.character(',').number(size).character(']');
    return ++written < LEVELS_AROUND;
  });
}

/// Six significant digits, unlike the book lines.
std::string short_price(Price4 price) {
  char text[32];
  std::snprintf(text, sizeof text, "%g", dollars_of(price));
  return text;
}

}  // namespace

void write_order_event(Engine& engine, const OrderEvent& event) {
  OutputFile& out = engine.scenario->order_truth;
  if (!out.is_writable()) return;
  std::string line = "{\"t\":" + std::to_string(system_ns());
  line.append(",\"ev\":\"").append(event.ev);
  line.append("\",\"cl\":\"").append(event.cl);
  line.append("\",\"oid\":").append(event.oid.empty() ? "0" : event.oid);
  line.append(",\"symbol\":\"").append(event.symbol);
  line.append("\",\"side\":\"").append(1, event.side);
  line.append("\",\"qty\":").append(std::to_string(event.qty));
  line.append(",\"px\":").append(event.px == 0 ? "0" : short_price(event.px));
  line.append(",\"cum\":").append(std::to_string(event.cum));
  line.append(",\"leaves\":").append(std::to_string(event.leaves));
  line.append(",\"last_qty\":").append(std::to_string(event.last_qty));
  line.append(",\"text\":\"").append(event.text).append("\"");
  if (!event.ref.empty()) line.append(",\"ref\":\"").append(event.ref).append("\"");
  line.append("}\n");
  out.write(line);
  out.flush();
}

void write_book_line(Engine& engine, const Stock& stock) {
  OutputFile& out = engine.truth;
  if (!out.is_writable()) return;  // every level update comes here: nothing is composed for nobody
  constexpr size_t LONGEST_LEVEL = LONGEST_PRICE + 16;
  constexpr size_t AROUND_LEVELS = 128;  // all else of fixed size
  static std::string memory;             // of one line, kept for the next
  memory.resize(AROUND_LEVELS + stock.symbol.size() + 2 * LEVELS_AROUND * LONGEST_LEVEL);
  TextWriter line(memory.data());
  line.text("{\"seq\":").number(engine.publisher->last_seq());
  line.text(",\"secid\":").number(stock.locate);
  line.text(",\"symbol\":\"").text(stock.symbol).text("\",\"bid\":[");
  put_levels(line, stock.book.bids());
  line.text("],\"ask\":[");
  put_levels(line, stock.book.asks());
  line.text("]}\n");
  out.write({memory.data(), static_cast<size_t>(line.position() - memory.data())});
}

void write_mark(Engine& engine, std::string_view label) {
  OutputFile& out = engine.truth;
  std::string line = "{\"mark\":\"";
  line.append(label).append("\",\"seq\":").append(std::to_string(engine.publisher->last_seq()));
  line.append("}\n");
  out.write(line);
  out.flush();
}

}  // namespace quorl
