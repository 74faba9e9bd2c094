#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tools/doctor/finding.h"
#include "tools/doctor/numbers.h"

namespace tools::doctor {

/// One option of the exchange.
struct Option {
  std::string_view flag;
  bool takes_value = true;
  std::optional<NumberKind> number = {};  // none: a text, or a flag
  std::string_view value_by_default = {};
};

/// One occurrence of an option on the command line.
struct Given {
  const Option* option;
  std::string value;  // empty for a flag

  std::string text() const;  // "--port 70000", quoted if the value has spaces or is empty
};

/// What the exchange would start with: its command line and its two environment variables, read as
/// it reads them.
struct Start {
  std::vector<Given> given;      // in order
  std::string order_truth = {};  // BENCH_ORDER_TRUTH; empty: none
  std::string scenario = {};     // QUORL_SCENARIO; empty: none

  /// The occurrence that counts, or null if there is none.
  const Given* last(std::string_view flag) const;

  /// The text that counts, by default the exchange's own.
  std::string value(std::string_view flag) const;

  /// "--port 70000", or "--port 25477 (by default)".
  std::string told(std::string_view flag) const;

  /// The number the exchange has for a port; nothing if its text ends the start. A gap-fill port of
  /// 0 follows the snap port, as in the exchange.
  std::optional<uint16_t> port(std::string_view flag) const;
};

/// Reads the words behind the program's name. The next word is always an option's value, whatever
/// it looks like. On a word that is no option, or a value that is missing, returns in `complaint`
/// why the exchange would not start.
Start read_start(const std::vector<std::string>& words, std::string& complaint);

// Rules.
Findings repeated_options(const Start& start);
Findings swallowed_options(const Start& start);

}  // namespace tools::doctor
