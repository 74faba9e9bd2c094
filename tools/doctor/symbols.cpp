#include "tools/doctor/symbols.h"

#include <algorithm>
#include <cmath>

#include "tools/doctor/numbers.h"
#include "tools/doctor/start.h"

namespace tools::doctor {
namespace {

constexpr size_t SHOWN = 8;              // characters of a symbol on the feed
constexpr double LOWEST_BID_BELOW = 10;  // cents below the price that a book opens at
constexpr double CENTS_OF_FIELD = 92233720368547758.0;  // what a price of the feed can hold

std::string shown(const std::string& symbol) { return symbol.substr(0, SHOWN); }

bool breaks_json(const std::string& symbol) {
  return std::any_of(symbol.begin(), symbol.end(), [](char c) {
    return c == '"' || c == '\\' || static_cast<unsigned char>(c) < ' ';
  });
}

std::string oddity_of(const std::string& symbol) {
  if (symbol.empty()) return "lists a symbol without a name";
  if (symbol.front() == ' ' || symbol.back() == ' ') {
    return "has a space in its symbol: an order has to name it with the space";
  }
  if (breaks_json(symbol)) return "is written as it is: book and truth files are no JSON";
  if (symbol.size() > SHOWN) {
    return "shows on the feed as " + shown(symbol) + ": a symbol has 8 characters there";
  }
  return "";
}

std::string oddity_of_price(double dollars) {
  if (!std::isfinite(dollars)) return "is no price: the book opens at prices without sense";
  const double cents = std::round(dollars * 100);
  if (std::fabs(cents) >= CENTS_OF_FIELD) {
    return "is more than a price of the feed can hold: the book opens at another";
  }
  if (cents < 0) return "opens below zero";
  if (cents == 0) return "opens at zero";
  if (cents <= LOWEST_BID_BELOW) return "opens so low that bids stand at zero and below";
  return "";
}

}  // namespace

std::string Listed::told() const {
  const std::string text = has_price ? symbol + ":" + price : symbol;
  const bool bare = !text.empty() && text.find_first_of(" \t\n'\"") == std::string::npos;
  return "--symbols " + (bare ? text : "'" + text + "'");
}

std::vector<Listed> listed_symbols(const std::string& symbols) {
  std::vector<Listed> listed;
  for (size_t pos = 0; pos < symbols.size();) {
    const size_t end = std::min(symbols.find(',', pos), symbols.size());
    const std::string item = symbols.substr(pos, end - pos);
    const size_t colon = item.find(':');
    Listed one{.symbol = item.substr(0, colon)};
    one.has_price = colon != std::string::npos;
    if (one.has_price) one.price = item.substr(colon + 1);
    listed.push_back(one);
    pos = end + 1;
  }
  return listed;
}

Findings empty_market(const Start& start) {
  if (!start.value("--symbols").empty()) return {};
  return {{start.told("--symbols"), "lists no symbol: the market is empty"}};
}

Findings odd_symbols(const Start& start) {
  Findings findings;
  for (const Listed& one : listed_symbols(start.value("--symbols"))) {
    const std::string oddity = oddity_of(one.symbol);
    if (!oddity.empty()) findings.push_back({one.told(), oddity});
  }
  return findings;
}

/// Each against those in front of it.
Findings same_symbols(const Start& start) {
  Findings findings;
  const std::vector<Listed> listed = listed_symbols(start.value("--symbols"));
  for (auto one = listed.begin(); one != listed.end(); ++one) {
    const auto same = std::find_if(listed.begin(), one, [one](const Listed& earlier) {
      return earlier.symbol == one->symbol;
    });
    const auto alike = std::find_if(listed.begin(), one, [one](const Listed& earlier) {
      return shown(earlier.symbol) == shown(one->symbol);
    });
    if (same != one) {
      findings.push_back({one->told(), "is listed a second time: orders find the first one alone"});
    } else if (alike != one) {
      findings.push_back({one->told(), "shows on the feed as " + shown(one->symbol) + ", as " +
                                           alike->symbol + " does"});
    }
  }
  return findings;
}

Findings odd_prices(const Start& start) {
  Findings findings;
  for (const Listed& one : listed_symbols(start.value("--symbols"))) {
    if (!one.has_price) {
      findings.push_back({one.told(), "has no price and opens at 100"});
      continue;
    }
    const Reading price = read_number(FLOAT_NUMBER, one.price);
    if (!price.complaint.empty()) {
      findings.push_back({one.told(), "its price " + price.complaint});
      if (price.ends_the_start) continue;
    }
    const std::string oddity = oddity_of_price(price.value);
    if (!oddity.empty()) findings.push_back({one.told(), oddity});
  }
  return findings;
}

}  // namespace tools::doctor
