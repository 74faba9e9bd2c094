#include "certify/checks/order_tags.h"

#include <algorithm>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "certify/checks/order_checks.h"
#include "certify/record/message_name.h"

namespace certify {
namespace {

constexpr uint64_t MOST_SHARES = 10'000'000;
constexpr size_t LONGEST_NAME = 20;

bool all_digits(std::string_view text) {
  return !text.empty() &&
         std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

/// Digits, a point and more digits if wanted: no sign, blank or exponent.
struct Decimal {
  std::string_view whole = {};
  std::string_view part = {};  // without zeros at its end
};
std::optional<Decimal> decimal_of(std::string_view text) {
  const size_t point = text.find('.');
  Decimal decimal{.whole = text.substr(0, point)};
  if (point != std::string_view::npos) {
    decimal.part = text.substr(point + 1);
    if (!decimal.part.empty() && !all_digits(decimal.part)) return std::nullopt;
    decimal.part = decimal.part.substr(0, decimal.part.find_last_not_of('0') + 1);
  }
  if (!all_digits(decimal.whole)) return std::nullopt;
  decimal.whole.remove_prefix(std::min(decimal.whole.find_first_not_of('0'), decimal.whole.size()));
  return decimal;
}

bool good_name(const std::string& text) {
  return text.size() <= LONGEST_NAME && text.find_first_of("\",@|") == std::string::npos;
}

/// Above 0, to the cent from one dollar up, and to the ten-thousandth below.
bool good_price(const std::string& text) {
  const std::optional<Decimal> price = decimal_of(text);
  if (!price) return false;
  const bool from_one_dollar = !price->whole.empty();
  if (from_one_dollar) return price->part.size() <= 2;
  return !price->part.empty() && price->part.size() <= 4;
}

bool one_of(const std::string& value, std::string_view set) {
  return value.size() == 1 && set.find(value[0]) != std::string_view::npos;
}

/// What is wrong with the fields of one message, a sentence each.
class Flaws {
 public:
  explicit Flaws(const WireMessage& message) : message_(message) {}

  void required(int tag, const char* name) {
    if (message_.value(tag).empty()) add(name, tag, "is missing");
  }
  /// Of one that is there.
  void form(int tag, const char* name, bool good, const std::string& wanted) {
    const std::string& value = message_.value(tag);
    if (!value.empty() && !good) add(name, tag, "is '" + value + "', not " + wanted);
  }
  void add(const char* name, int tag, const std::string& what) {
    list_.push_back(std::string(name) + " (" + std::to_string(tag) + ") " + what);
  }

  std::vector<std::string> take() { return std::move(list_); }

 private:
  const WireMessage& message_;
  std::vector<std::string> list_;
};

void names(const WireMessage& m, Flaws& flaws) {
  flaws.required(11, "ClOrdID");
  flaws.form(11, "ClOrdID", good_name(m.value(11)), "1 to 20 bytes without \" , @ and |");
}

void quantity_and_price(const WireMessage& m, Flaws& flaws) {
  flaws.required(38, "OrderQty");
  flaws.form(38, "OrderQty", shares_of(m.value(38)).has_value(),
             "a whole number of shares from 1 to 10000000 in plain digits");
  if (m.is(40, "1")) return;  // the price of a market order is not looked at
  flaws.form(44, "Price", good_price(m.value(44)),
             "a price above 0 in plain digits, in whole cents from one dollar up");
}

std::vector<std::string> flaws_of_new_order(const WireMessage& m) {
  Flaws flaws(m);
  names(m, flaws);
  flaws.required(55, "Symbol");
  flaws.required(54, "Side");
  flaws.form(54, "Side", one_of(m.value(54), "1256"), "one of 1, 2, 5 and 6");
  quantity_and_price(m, flaws);
  if (!m.is(40, "1")) flaws.required(44, "Price");
  if (m.value(18).empty()) flaws.add("ExecInst", 18, "is missing, and has to be i");
  flaws.form(18, "ExecInst", m.value(18).starts_with('i'), "i");
  flaws.form(40, "OrdType", one_of(m.value(40), "12"), "1 or 2");
  flaws.form(59, "TimeInForce", one_of(m.value(59), "034"), "one of 0, 3 and 4");
  flaws.form(47, "Rule80A", one_of(m.value(47), "APR"), "one of A, P and R");
  if (one_of(m.value(54), "56") && !m.is(114, "N")) {
    flaws.add("LocateReqd", 114, "is not N, as a short sale needs it");
  }
  return flaws.take();
}

std::vector<std::string> flaws_of_cancel(const WireMessage& m) {
  Flaws flaws(m);
  flaws.required(11, "ClOrdID");  // its own form is not looked at
  flaws.required(41, "OrigClOrdID");
  return flaws.take();
}

std::vector<std::string> flaws_of_replace(const WireMessage& m, const ViewedOrder* order) {
  Flaws flaws(m);
  names(m, flaws);
  flaws.required(41, "OrigClOrdID");
  flaws.required(55, "Symbol");
  flaws.required(54, "Side");
  quantity_and_price(m, flaws);
  if (order != nullptr) {
    flaws.form(55, "Symbol", m.is(55, order->symbol), "the order's '" + order->symbol + "'");
    flaws.form(54, "Side", m.is(54, order->side), "the order's '" + order->side + "'");
  }
  return flaws.take();
}

class OrderTags : public Check {
 public:
  OrderTags(const char* name, const CheckContext& context)
      : Check(name), view_(context.plan.allow.grace) {}

  void on_event(const Event& event) override {
    const auto* heard = std::get_if<FixHeard>(&event.what);
    if (heard != nullptr && is_judged(*heard, view_.sessions())) judge(*heard, event);
    view_.on_event(event);
  }
  void finish(TimeNs) override {}

 private:
  void judge(const FixHeard& heard, const Event& event) {
    seen();
    const WireMessage& message = heard.message;
    const std::string& comp = comp_of(view_.sessions(), heard);
    const std::vector<std::string> flaws =
        flaws_of_order_fields(message, view_.target_of(comp, message.value(41), event.at).order);
    if (flaws.empty()) return;
    std::string what = name_of(message) + " " + message.value(11) + ": " + flaws[0];
    for (size_t i = 1; i < flaws.size(); ++i) what += "; " + flaws[i];
    blame({event.at, what, {evidence_of(event)}});
  }

  OrderView view_;
};

}  // namespace

std::optional<uint64_t> shares_of(const std::string& text) {
  const std::optional<Decimal> decimal = decimal_of(text);
  constexpr size_t MOST_DIGITS = 8;  // of MOST_SHARES
  if (!decimal || !decimal->part.empty() || decimal->whole.empty()) return std::nullopt;
  if (decimal->whole.size() > MOST_DIGITS) return std::nullopt;
  const uint64_t shares = std::stoull(std::string(decimal->whole));
  return shares <= MOST_SHARES ? std::optional(shares) : std::nullopt;
}

std::vector<std::string> flaws_of_order_fields(const WireMessage& message,
                                               const ViewedOrder* order) {
  if (message.type() == "D") return flaws_of_new_order(message);
  return message.type() == "F" ? flaws_of_cancel(message) : flaws_of_replace(message, order);
}

std::unique_ptr<Check> make_order_tags_check(const char* name, const CheckContext& context) {
  return std::make_unique<OrderTags>(name, context);
}

}  // namespace certify
