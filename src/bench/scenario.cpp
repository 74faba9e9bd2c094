#include "bench/scenario.h"

#include <cstdlib>

#include "base/log.h"

namespace quorl {
namespace {

struct ScenarioKey {
  std::string_view key;
  void (*set)(Scenario& scenario, const std::string& value);
};

uint32_t count_of(const std::string& value) { return static_cast<uint32_t>(std::stoul(value)); }

template <Script Scenario::*script>
void set_every(Scenario& scenario, const std::string& value) {
  (scenario.*script).every = count_of(value);
}

constexpr ScenarioKey SCENARIO_KEYS[] = {
    {"name", [](Scenario& s, const std::string& value) { s.name = value; }},
    {"disconnect_after",
     [](Scenario& s, const std::string& value) { s.disconnect_after = count_of(value); }},
    {"lapse_ms", [](Scenario& s, const std::string& value) { s.lapse_ms = std::stoi(value); }},
    {"reject_every", set_every<&Scenario::rejects>},
    {"partial_fill_every", set_every<&Scenario::partial_fills>},
    {"fill_on_cancel_every", set_every<&Scenario::fills_on_cancel>},
    {"unsolicited_cancel_every", set_every<&Scenario::unsolicited_cancels>},
    {"replace_reject_every", set_every<&Scenario::replace_rejects>},
};

void apply_item(Scenario& scenario, std::string_view item) {
  const size_t equals = item.find('=');
  if (equals == std::string_view::npos) return;
  for (const ScenarioKey& known : SCENARIO_KEYS) {
    if (known.key == item.substr(0, equals)) {
      known.set(scenario, std::string(item.substr(equals + 1)));
      return;
    }
  }
}

void apply_script(Scenario& scenario, std::string_view script) {
  size_t pos = 0;
  while (pos <= script.size()) {
    const size_t comma = script.find(',', pos);
    const size_t end = comma == std::string_view::npos ? script.size() : comma;
    apply_item(scenario, script.substr(pos, end - pos));
    pos = end + 1;
  }
}

}  // namespace

Scenario::Scenario() {
  const char* const path = std::getenv("BENCH_ORDER_TRUTH");
  if (path != nullptr && *path != '\0') order_truth.open_for_appending(path);

  const char* const script = std::getenv("QUORL_SCENARIO");
  if (script == nullptr || *script == '\0') return;
  apply_script(*this, script);
  print_log(
      "bench: scenario '%s' armed (disconnect after %u orders, lapse %d ms, reject every "
      "%u, partial every %u, fill-on-cancel every %u, unsolicited cancel every %u, "
      "replace reject every %u)\n",
      name.c_str(), disconnect_after, lapse_ms, rejects.every, partial_fills.every,
      fills_on_cancel.every, unsolicited_cancels.every, replace_rejects.every);
}

bool Script::fires(uint64_t count) {
  const bool recurring = every != 0 && count % every == 0;
  const bool one_shot = next != 0;
  if (one_shot) --next;
  return recurring || one_shot;
}

}  // namespace quorl
