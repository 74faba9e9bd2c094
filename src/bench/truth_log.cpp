#include "bench/truth_log.h"

#include <cstdio>
#include <string>

#include "base/clocks.h"
#include "base/price4.h"
#include "bench/scenario.h"
#include "feed/tp_publisher.h"
#include "market/engine.h"

namespace quorl {
namespace {

constexpr int LEVELS_PER_SIDE = 10;

void put_levels(std::string& line, const BookSide& side) {
  char entry[48];
  int written = 0;
  side.for_each_shown([&](Price4 price, uint32_t size) {
    std::snprintf(entry, sizeof entry, "%s[%.4f,%u]", written == 0 ? "" : ",", dollars_of(price),
                  size);
    line += entry;
    return ++written < LEVELS_PER_SIDE;
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
  if (!out.is_writable()) return;
  std::string line = "{\"seq\":" + std::to_string(engine.publisher->last_seq());
  line.append(",\"secid\":").append(std::to_string(stock.locate));
  line.append(",\"symbol\":\"").append(stock.symbol).append("\",\"bid\":[");
  put_levels(line, stock.book.bids());
  line.append("],\"ask\":[");
  put_levels(line, stock.book.asks());
  line.append("]}\n");
  out.write(line);
}

void write_mark(Engine& engine, std::string_view label) {
  OutputFile& out = engine.truth;
  if (!out.is_writable()) return;
  std::string line = "{\"mark\":\"";
  line.append(label).append("\",\"seq\":").append(std::to_string(engine.publisher->last_seq()));
  line.append("}\n");
  out.write(line);
  out.flush();
}

}  // namespace quorl
