#include "certify/trader/belief.h"

#include <chrono>
#include <cstdio>
#include <fstream>
#include <limits>

#include "certify/trader/report_fields.h"
#include "quorl/client/errors.h"

namespace certify::trader {
namespace {

namespace client = quorl::client;

int64_t system_clock_ns() {
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  return std::chrono::duration_cast<std::chrono::nanoseconds>(now).count();
}

void write_file(const std::string& path, const std::string& text, std::ios::openmode mode) {
  std::ofstream file(path, mode);
  file << text << std::flush;
  if (!file) throw client::SystemError("cannot write " + path);
}

void replace_file(const std::string& path, const std::string& text) {
  const std::string whole = path + ".tmp";
  write_file(whole, text, std::ios::trunc);
  if (std::rename(whole.c_str(), path.c_str()) != 0) {
    throw client::SystemError("cannot write " + path);
  }
}

std::string state_word(const Order& order) {
  switch (order.state) {
    case Order::State::SENT:
      return "sent";
    case Order::State::LIVE:
      return order.cum == 0 ? "new" : "partially_filled";
    case Order::State::FILLED:
      return "filled";
    case Order::State::CANCELLED:
      return "cancelled";
    case Order::State::REJECTED:
      return "rejected";
    case Order::State::LOST:
      return "closed";
  }
  return "";
}

/// An order of which the exchange has never spoken is none.
std::string positions_text(const OrderDesk& desk) {
  std::string text = "cl_ord_id,state,cum,leaves,avg_px\n";
  for (const Order& order : desk.orders()) {
    if (!order.reported()) continue;
    text += order.name + "," + state_word(order) + "," + std::to_string(order.cum) + "," +
            std::to_string(order.leaves) + "," + order.average + "\n";
  }
  return text;
}

}  // namespace

void Belief::note(const client::FixMessage& report, ReportPlace place) {
  changed_ = true;
  if (!files_.events.empty()) waiting_[place] += event_line(report, system_clock_ns());
}

void Belief::write(const OrderDesk& desk, const MarketView& market, ReportPlace complete_below) {
  if (!files_.positions.empty() && changed_) {
    std::string text = positions_text(desk);
    habits_.before_positions(text);
    replace_file(files_.positions, text);
  }
  changed_ = false;
  if (!files_.events.empty()) write_events(complete_below);
  std::string book = files_.book.empty() ? "" : market.book_text();
  if (book.empty()) return;
  habits_.before_book(book);
  replace_file(files_.book, book);
}

void Belief::write_events(ReportPlace complete_below) {
  std::string text;
  const auto end = waiting_.lower_bound(complete_below);
  for (auto event = waiting_.begin(); event != end; ++event) text += event->second;
  waiting_.erase(waiting_.begin(), end);
  if (text.empty() && begun_) return;
  habits_.before_events(text);
  write_file(files_.events, text, begun_ ? std::ios::app : std::ios::trunc);
  begun_ = true;
}

void Belief::finish(const OrderDesk& desk, const MarketView& market) {
  constexpr uint32_t END = std::numeric_limits<uint32_t>::max();
  changed_ = true;
  write(desk, market, {END, END});
}

}  // namespace certify::trader
