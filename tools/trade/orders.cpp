#include "tools/trade/orders.h"

#include <algorithm>
#include <charconv>

#include "tools/trade/fix_names.h"

namespace client = quorl::client;

namespace tools {
namespace {

std::string base36(int64_t number) {
  std::string text;
  for (; number > 0; number /= 36) {
    text.insert(text.begin(), "0123456789abcdefghijklmnopqrstuvwxyz"[number % 36]);
  }
  return text;
}

/// The name of a value: "Filled" for 39=2.
std::string name_of(int tag, const std::string& value) {
  const std::string field = explained(std::to_string(tag) + "=" + value);
  return field.substr(field.find('=') + 1);
}

}  // namespace

Orders::Orders(std::chrono::system_clock::time_point start)
    : suffix_("-" +
              base36(std::chrono::duration_cast<std::chrono::milliseconds>(start.time_since_epoch())
                         .count())) {}

std::string Orders::new_id() { return "o" + std::to_string(++given_) + suffix_; }

std::string Orders::resolved(const std::string& name) const {
  uint32_t number = 0;
  const char* end = name.data() + name.size();
  if (name.size() < 2 || name[0] != 'o') return name;
  const auto [stop, error] = std::from_chars(name.data() + 1, end, number);
  const bool is_ours = error == std::errc() && stop == end && number > 0 && number <= given_;
  return is_ours ? name + suffix_ : name;
}

const Orders::Order* Orders::find(const std::string& id) const {
  // The latest counts: a name of the user's may come twice.
  const auto found = std::find_if(orders_.rbegin(), orders_.rend(),
                                  [&id](const Order& order) { return order.id == id; });
  return found == orders_.rend() ? nullptr : &*found;
}

void Orders::note_report(const client::FixMessage& report) {
  if (report.type() != "8") return;
  const bool is_new = exec_ids_.insert(report.find(17).value_or("")).second;
  if (report.is_possible_duplicate() && !is_new) return;  // an old story
  const std::string id = report.find(11).value_or("");
  const std::string replaced = report.find(41).value_or("");
  for (Order& order : orders_) {
    if (order.id == id) {
      order.status = report.find(39).value_or("");
      order.leaves = report.find(151).value_or("");
      order.quantity = report.find(38).value_or(order.quantity);
      order.price = report.find(44).value_or(order.price);
    } else if (order.id == replaced) {  // by a replace, or a cancel, whose request 11 names
      order.status = report.find(39).value_or("");
      order.leaves = "0";
    }
  }
}

std::vector<std::string> Orders::lines() const {
  std::vector<std::string> lines;
  for (const Order& order : orders_) {
    std::string line =
        order.id + " " + name_of(54, order.side) + " " + order.quantity + " " + order.symbol;
    if (!order.price.empty()) line += " @ " + order.price;
    line += order.status.empty() ? ": not answered"
                                 : ": " + name_of(39, order.status) + ", " + order.leaves + " open";
    lines.push_back(line);
  }
  return lines;
}

}  // namespace tools
