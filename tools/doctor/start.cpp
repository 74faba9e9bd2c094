#include "tools/doctor/start.h"

#include <algorithm>

namespace tools::doctor {
namespace {

constexpr Option OPTIONS[] = {
    {.flag = "--mcast", .value_by_default = "233.54.26.111"},
    {.flag = "--port", .number = PORT_NUMBER, .value_by_default = "25477"},
    {.flag = "--iface", .value_by_default = "127.0.0.1"},
    {.flag = "--snap-port", .number = PORT_NUMBER, .value_by_default = "25479"},
    {.flag = "--gapfill-port", .number = PORT_NUMBER, .value_by_default = "0"},
    {.flag = "--fix-port", .number = PORT_NUMBER, .value_by_default = "28500"},
    {.flag = "--session", .number = COUNT_NUMBER},
    {.flag = "--symbols", .value_by_default = "AAPL:190.00,MSFT:410.00,SPY:520.00"},
    {.flag = "--interval-ms", .number = SIGNED_NUMBER, .value_by_default = "40"},
    {.flag = "--step-bps", .number = FLOAT_NUMBER, .value_by_default = "0.8"},
    {.flag = "--touch-hit", .number = FLOAT_NUMBER, .value_by_default = "0.15"},
    {.flag = "--book-out"},
    {.flag = "--bbo-out"},
    {.flag = "--seed", .number = COUNT_NUMBER, .value_by_default = "42"},
    {.flag = "--drop-every", .number = COUNT_NUMBER, .value_by_default = "0"},
    {.flag = "--drop-burst"},
    {.flag = "--dup-every", .number = COUNT_NUMBER, .value_by_default = "0"},
    {.flag = "--reorder-every", .number = COUNT_NUMBER, .value_by_default = "0"},
    {.flag = "--truth-out"},
    {.flag = "--control-port", .number = PORT_NUMBER, .value_by_default = "0"},
    {.flag = "--quiet", .takes_value = false},
};

const Option* option_of(std::string_view flag) {
  for (const Option& option : OPTIONS) {
    if (option.flag == flag) return &option;
  }
  return nullptr;
}

}  // namespace

std::string Given::text() const {
  if (!option->takes_value) return std::string(option->flag);
  const bool bare = !value.empty() && value.find_first_of(" \t\n'\"") == std::string::npos;
  return std::string(option->flag) + " " + (bare ? value : "'" + value + "'");
}

const Given* Start::last(std::string_view flag) const {
  const auto found = std::find_if(given.rbegin(), given.rend(),
                                  [flag](const Given& g) { return g.option->flag == flag; });
  return found == given.rend() ? nullptr : &*found;
}

std::string Start::value(std::string_view flag) const {
  if (const Given* const counts = last(flag)) return counts->value;
  return std::string(option_of(flag)->value_by_default);
}

std::string Start::told(std::string_view flag) const {
  if (const Given* const counts = last(flag)) return counts->text();
  if (flag == "--gapfill-port") return "--gapfill-port (by default that of --snap-port)";
  return std::string(flag) + " " + value(flag) + " (by default)";
}

std::optional<uint16_t> Start::port(std::string_view flag) const {
  const auto number = read_port(value(flag));
  if (flag == "--gapfill-port" && number == 0) return port("--snap-port");
  return number;
}

Start read_start(const std::vector<std::string>& words, std::string& complaint) {
  Start start;
  for (size_t i = 0; i < words.size(); ++i) {
    const Option* const option = option_of(words[i]);
    if (option == nullptr) {
      complaint = "quorl has no option " + words[i] + ": it would end with status 2";
      return start;
    }
    if (!option->takes_value) {
      start.given.push_back({option, ""});
    } else if (i + 1 == words.size()) {
      complaint = words[i] + " needs a value: quorl would end with status 2";
      return start;
    } else {
      start.given.push_back({option, words[++i]});
    }
  }
  return start;
}

Findings repeated_options(const Start& start) {
  Findings findings;
  for (const Option& option : OPTIONS) {
    const auto times = std::count_if(start.given.begin(), start.given.end(),
                                     [&option](const Given& g) { return g.option == &option; });
    if (times < 2 || !option.takes_value) continue;
    findings.push_back({start.last(option.flag)->text(),
                        "is what counts of the " + std::to_string(times) + " times that " +
                            std::string(option.flag) + " is given"});
  }
  return findings;
}

Findings swallowed_options(const Start& start) {
  Findings findings;
  for (const Given& given : start.given) {
    if (!given.value.starts_with("--")) continue;
    findings.push_back({given.text(), "takes the word behind it as its value, option or not"});
  }
  return findings;
}

}  // namespace tools::doctor
