#include "bench/output_files.h"

#include <cstdio>
#include <sstream>

#include "base/clocks.h"
#include "base/output_file.h"
#include "base/price4.h"
#include "market/engine.h"

namespace quorl {
namespace {

constexpr int LEVELS_PER_SIDE = 5;

void write_levels(std::ostream& out, const BookSide& side) {
  int written = 0;
  side.for_each_shown([&](Price4 price, uint32_t size) {
    out << (written == 0 ? "[" : ",[") << dollars_of(price) << ',' << size << ']';
    return ++written < LEVELS_PER_SIDE;
  });
}

double best_price(const BookSide& side) {
  return side.best() == nullptr ? 0.0 : dollars_of(side.best()->price);
}

/// The rename is tried even if the file could not be written: nothing here looks at a result.
template <typename WriteContent>
void replace_file(const std::string& path, const WriteContent& write_content) {
  const std::string temporary = path + ".tmp";
  std::ostringstream content;
  write_content(content);
  OutputFile out;
  out.open_emptied(temporary);
  out.write(content.view());
  out.close();
  [[maybe_unused]] const int result = std::rename(temporary.c_str(), path.c_str());
}

}  // namespace

void write_book(const Engine& engine, const std::string& path) {
  if (path.empty()) return;
  replace_file(path, [&engine](std::ostream& out) {
    out << "{\"ts_ns\":" << system_ns() << ",\"symbols\":{";
    const char* separator = "";
    for (const Stock& stock : engine.stocks) {
      out << separator << '"' << stock.symbol << "\":{\"bid\":[";
      write_levels(out, stock.book.bids());
      out << "],\"ask\":[";
      write_levels(out, stock.book.asks());
      out << "],\"last\":" << dollars_of(stock.last_price) << ",\"volume\":" << stock.volume << '}';
      separator = ",";
    }
    out << "}}\n";
  });
}

void write_bbo(const Engine& engine, const std::string& path) {
  if (path.empty()) return;
  replace_file(path, [&engine](std::ostream& out) {
    for (const Stock& stock : engine.stocks) {
      out << stock.symbol << ' ' << best_price(stock.book.bids()) << ' '
          << best_price(stock.book.asks()) << '\n';
    }
  });
}

}  // namespace quorl
