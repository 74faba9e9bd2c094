#pragma once

#include <string>
#include <vector>

#include "tools/doctor/finding.h"

namespace tools::doctor {

struct Start;

/// One item of --symbols, split as the exchange splits it.
struct Listed {
  std::string symbol;
  std::string price = {};  // the text behind the first colon
  bool has_price = false;

  std::string told() const;  // "--symbols AAPL:190"
};

std::vector<Listed> listed_symbols(const std::string& symbols);

// Rules.
Findings empty_market(const Start& start);
Findings odd_symbols(const Start& start);
Findings same_symbols(const Start& start);
Findings odd_prices(const Start& start);

}  // namespace tools::doctor
