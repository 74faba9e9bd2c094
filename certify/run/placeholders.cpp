#include "certify/run/placeholders.h"

namespace certify {
namespace {

std::string loopback(const Surroundings&) { return "127.0.0.1"; }

constexpr Placeholder PLACEHOLDERS[] = {
    {"fix_host", "QUORL_FIX_HOST", loopback},
    {"fix_port", "QUORL_FIX_PORT",
     [](const Surroundings& around) { return std::to_string(around.ports.fix); }},
    {"group", "QUORL_FEED_GROUP", [](const Surroundings& around) { return around.group; }},
    {"port", "QUORL_FEED_PORT",
     [](const Surroundings& around) { return std::to_string(around.feed_port); }},
    {"interface", "QUORL_INTERFACE", loopback},
    {"snap_port", "QUORL_SNAP_PORT",
     [](const Surroundings& around) { return std::to_string(around.ports.images); }},
    {"gapfill_port", "QUORL_GAPFILL_PORT",
     [](const Surroundings& around) { return std::to_string(around.ports.gap_fill); }},
    {"control_port", "QUORL_CONTROL_PORT",
     [](const Surroundings& around) { return std::to_string(around.control_port); }},
    {"session", "QUORL_SESSION",
     [](const Surroundings& around) { return std::to_string(around.session); }},
    {"symbols", "QUORL_SYMBOLS", [](const Surroundings& around) { return around.symbols; }},
    {"run", "QUORL_RUN", [](const Surroundings& around) { return around.folder; }},
    {"plan", "QUORL_PLAN", [](const Surroundings& around) { return around.plan; }},
};

/// The placeholder that `text` begins with, its braces included; null if there is none.
const Placeholder* placeholder_at(std::string_view text) {
  for (const Placeholder& one : PLACEHOLDERS) {
    if (text.size() >= one.name.size() + 2 && text[0] == '{' &&
        text.substr(1).starts_with(one.name) && text[one.name.size() + 1] == '}') {
      return &one;
    }
  }
  return nullptr;
}

}  // namespace

std::span<const Placeholder> placeholders() { return PLACEHOLDERS; }

std::string filled_in(std::string_view word, const Surroundings& surroundings) {
  std::string text;
  while (!word.empty()) {
    const Placeholder* const found = placeholder_at(word);
    if (found != nullptr) text += found->value(surroundings);
    if (found == nullptr) text += word.front();
    word.remove_prefix(found != nullptr ? found->name.size() + 2 : 1);
  }
  return text;
}

std::map<std::string, std::string> variables_of(const Surroundings& surroundings) {
  std::map<std::string, std::string> variables;
  for (const Placeholder& one : PLACEHOLDERS) {
    variables[std::string(one.variable)] = one.value(surroundings);
  }
  return variables;
}

}  // namespace certify
