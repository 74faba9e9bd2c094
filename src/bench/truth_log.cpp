#include "bench/truth_log.h"

#include <cstdio>
#include <fstream>

#include "bench/scenario.h"
#include "driver/clocks.h"
#include "feed/tp_publisher.h"
#include "market/engine.h"
#include "market/prices.h"

namespace quorl {
namespace {

constexpr int LEVELS_PER_SIDE = 10;

/// A stream that was never opened is good until its first write, so that is asked first.
bool writable(const std::ofstream& stream) { return stream.is_open() && stream.good(); }

template <typename ShownLevels>
void write_levels(std::ofstream& out, const ShownLevels& levels) {
  char entry[48];
  int written = 0;
  for (const auto& [price, size] : levels) {
    if (written == LEVELS_PER_SIDE) return;
    std::snprintf(entry, sizeof entry, "%s[%.4f,%u]", written == 0 ? "" : ",", dollars_of(price),
                  size);
    out << entry;
    ++written;
  }
}

}  // namespace

void write_order_event(Engine& engine, const OrderEvent& event) {
  std::ofstream& out = engine.scenario->order_truth;
  if (!writable(out)) return;
  out << "{\"t\":" << system_ns() << ",\"ev\":\"" << event.ev << "\",\"cl\":\"" << event.cl
      << "\",\"oid\":" << (event.oid.empty() ? "0" : event.oid) << ",\"symbol\":\"" << event.symbol
      << "\",\"side\":\"" << event.side << "\",\"qty\":" << event.qty << ",\"px\":";
  if (event.px == 0) {
    out << 0;
  } else {
    out << dollars_of(event.px);  // six significant digits, unlike the book lines
  }
  out << ",\"cum\":" << event.cum << ",\"leaves\":" << event.leaves
      << ",\"last_qty\":" << event.last_qty << ",\"text\":\"" << event.text << "\"";
  if (!event.ref.empty()) out << ",\"ref\":\"" << event.ref << "\"";
  out << "}\n";
  out.flush();
}

void write_book_line(Engine& engine, const Stock& stock) {
  std::ofstream& out = engine.truth;
  if (!writable(out)) return;
  out << "{\"seq\":" << engine.publisher->next_seq - 1 << ",\"secid\":" << stock.locate
      << ",\"symbol\":\"" << stock.symbol << "\",\"bid\":[";
  write_levels(out, stock.shown_bids);
  out << "],\"ask\":[";
  write_levels(out, stock.shown_asks);
  out << "]}\n";
}

void write_mark(Engine& engine, std::string_view label) {
  std::ofstream& out = engine.truth;
  if (!writable(out)) return;
  out << "{\"mark\":\"" << label << "\",\"seq\":" << engine.publisher->next_seq - 1 << "}\n";
  out.flush();
}

}  // namespace quorl
