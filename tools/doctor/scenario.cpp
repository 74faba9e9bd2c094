#include "tools/doctor/scenario.h"

#include <algorithm>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tools/doctor/numbers.h"
#include "tools/doctor/start.h"

namespace tools::doctor {
namespace {

struct Key {
  std::string_view name;
  std::optional<NumberKind> number;  // none: a text
};

constexpr Key KEYS[] = {
    {"name", std::nullopt},
    {"disconnect_after", COUNT_NUMBER},
    {"lapse_ms", SIGNED_NUMBER},
    {"reject_every", COUNT_NUMBER},
    {"partial_fill_every", COUNT_NUMBER},
    {"fill_on_cancel_every", COUNT_NUMBER},
    {"unsolicited_cancel_every", COUNT_NUMBER},
    {"replace_reject_every", COUNT_NUMBER},
};

struct Item {
  std::string text;
  std::string key;  // all of the text if there is no "="
  std::string value = {};
  bool has_value = false;

  std::string told() const { return "QUORL_SCENARIO " + text; }
};

const Key* key_of(std::string_view name) {
  for (const Key& key : KEYS) {
    if (key.name == name) return &key;
  }
  return nullptr;
}

/// As the exchange takes them, but for empty ones, which nobody means.
std::vector<Item> items_of(const std::string& scenario) {
  std::vector<Item> items;
  for (size_t pos = 0; pos <= scenario.size();) {
    const size_t end = std::min(scenario.find(',', pos), scenario.size());
    const std::string text = scenario.substr(pos, end - pos);
    pos = end + 1;
    if (text.empty()) continue;
    const size_t equals = text.find('=');
    Item item{.text = text, .key = text.substr(0, equals)};
    item.has_value = equals != std::string::npos;
    if (item.has_value) item.value = text.substr(equals + 1);
    items.push_back(item);
  }
  return items;
}

std::string without_spaces(const std::string& text) {
  const size_t first = text.find_first_not_of(' ');
  return first == std::string::npos ? ""
                                    : text.substr(first, text.find_last_not_of(' ') - first + 1);
}

/// The items that set a number.
template <typename Judge>
Findings judge_numbers(const Start& start, const Judge& judge) {
  Findings findings;
  for (const Item& item : items_of(start.scenario)) {
    const Key* const key = key_of(item.key);
    if (!item.has_value || key == nullptr || !key->number) continue;
    const std::string what = judge(*key, read_number(*key->number, item.value));
    if (!what.empty()) findings.push_back({item.told(), what});
  }
  return findings;
}

}  // namespace

Findings scenario_words(const Start& start) {
  Findings findings;
  for (const Item& item : items_of(start.scenario)) {
    if (!item.has_value) {
      findings.push_back({item.told(), "has no '=' and is passed over"});
    } else if (key_of(item.key) == nullptr) {
      const bool spaced = key_of(without_spaces(item.key)) != nullptr;
      findings.push_back({item.told(), spaced ? "has a space about its key and is passed over"
                                              : "is no key of a scenario and is passed over"});
    }
  }
  return findings;
}

Findings scenario_numbers(const Start& start) {
  return judge_numbers(start, [](const Key& key, const Reading& reading) -> std::string {
    if (!reading.complaint.empty()) return reading.complaint;
    if (key.name == "lapse_ms" && reading.value < 0) return "is never: no silence is that short";
    return "";
  });
}

Findings scenario_repetitions(const Start& start) {
  Findings findings;
  const std::vector<Item> items = items_of(start.scenario);
  for (const Key& key : KEYS) {
    const auto sets = [&key](const Item& item) { return item.has_value && item.key == key.name; };
    const auto times = std::count_if(items.begin(), items.end(), sets);
    if (times < 2) continue;
    const auto last = std::find_if(items.rbegin(), items.rend(), sets);
    findings.push_back({last->told(), "is what counts of the " + std::to_string(times) +
                                          " times that " + std::string(key.name) + " is given"});
  }
  return findings;
}

Findings scenario_without_rule(const Start& start) {
  if (start.scenario.empty()) return {};
  const Findings armed =
      judge_numbers(start, [](const Key& key, const Reading& reading) -> std::string {
        const bool fires = key.name == "lapse_ms" ? reading.value > 0 : reading.value != 0;
        return reading.ends_the_start || fires ? "armed" : "";
      });
  if (!armed.empty()) return {};
  return {{"QUORL_SCENARIO " + start.scenario, "arms nothing"}};
}

}  // namespace tools::doctor
