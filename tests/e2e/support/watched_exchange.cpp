#include "tests/e2e/support/watched_exchange.h"

#include <utility>

#include "quorl/client/temp_directory.h"

namespace client = quorl::client;

namespace e2e {
namespace {

bool is_periodic(const std::string& line) {
  return line.starts_with("bench: stats ") || line.starts_with("[quorl] deep msgs ") ||
         line.starts_with("quorl faults: ");
}

client::SimulatorOptions with_order_events(client::SimulatorOptions options) {
  options.order_truth = true;
  return options;
}

}  // namespace

std::string describe(const client::OrderEvent& event) {
  std::string text = event.ev + " " + event.cl;
  if (!event.symbol.empty()) {
    text += " " + event.symbol + " " + event.side + " " + std::to_string(event.qty) + " @ " +
            event.px + " cum " + std::to_string(event.cum) + " leaves " +
            std::to_string(event.leaves) + " last " + std::to_string(event.last_qty);
  }
  if (!event.text.empty()) text += " \"" + event.text + "\"";
  if (event.ref) text += " ref " + *event.ref;
  return text;
}

std::vector<std::string> described(const std::vector<client::OrderEvent>& events) {
  std::vector<std::string> texts;
  for (const client::OrderEvent& event : events) texts.push_back(describe(event));
  return texts;
}

WatchedExchange::WatchedExchange(client::SimulatorOptions options)
    : Exchange(with_order_events(std::move(options))) {
  counted_ = control().stats().counters;
  lines_told_ = simulator().line_count();  // up to the banner, which has been waited for
}

void WatchedExchange::clear_the_book() {
  empty_book("AAPL");
  ignore_so_far();
}

Rises WatchedExchange::rises() {
  const client::BenchStats now = control().stats().counters;
  Rises risen;
  for (const auto& [name, count] : now) {
    if (count != counted_.at(name)) risen[name] = count - counted_.at(name);
  }
  counted_ = now;
  return risen;
}

std::vector<client::OrderEvent> WatchedExchange::events() {
  std::vector<client::OrderEvent> all =
      client::parse_order_events(client::read_file(simulator().order_truth_path()));
  all.erase(all.begin(), all.begin() + static_cast<std::ptrdiff_t>(events_told_));
  events_told_ += all.size();
  return all;
}

std::vector<std::string> WatchedExchange::lines() {
  const std::string barrier = "lines-" + std::to_string(++barriers_);
  control().ok("mark " + barrier);
  simulator().wait_for_line("bench: mark " + barrier + " at seq ", lines_told_);
  std::vector<std::string> fresh;
  for (const std::vector<std::string> all = simulator().lines();;) {
    const std::string& line = all.at(lines_told_++);
    if (line.starts_with("bench: mark " + barrier + " at seq ")) return fresh;
    if (!is_periodic(line)) fresh.push_back(line);
  }
}

void WatchedExchange::ignore_so_far() {
  (void)news();
  (void)rises();
  (void)events();
  (void)lines();
}

}  // namespace e2e
