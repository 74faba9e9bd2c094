#include "lives/act.h"

#include <array>
#include <string_view>

#include "day/day_dice.h"

namespace lives {
namespace {

struct KindOfAct {
  std::string_view name;
  uint32_t weight;  // in the life of a seed
};

constexpr std::array<KindOfAct, KINDS> KINDS_OF_ACTS = {{
    {"TURNS", 300},        {"SLEEP", 12},   {"LOG_ON", 40},      {"ORDER", 260},
    {"CANCEL", 80},        {"REPLACE", 80}, {"ADMIN", 40},       {"RESEND", 20},
    {"HALF", 8},           {"GARBAGE", 8},  {"HANG_UP", 14},     {"LIMIT_SENDS", 12},
    {"REFUSED_ACCEPT", 6}, {"COMMAND", 50}, {"GAP_REQUEST", 20}, {"IMAGE", 14},
    {"CLOCK_STEP", 4},     {"DISK", 4},     {"CROWD", 6},
}};

uint8_t byte_at(std::span<const uint8_t> bytes, size_t at) { return bytes[at]; }

}  // namespace

Script script_of_seed(uint64_t seed, size_t acts) {
  day::Dice dice(seed);
  std::vector<uint32_t> weights;
  for (const KindOfAct& kind : KINDS_OF_ACTS) weights.push_back(kind.weight);
  const auto byte = [&dice] { return static_cast<uint8_t>(dice.below(256)); };
  Script script;
  script.setup = static_cast<uint32_t>(dice.below(uint64_t{1} << 32));
  for (size_t i = 0; i < acts; ++i) {
    const auto kind = static_cast<Kind>(dice.weighted(weights));
    Act& act = script.acts.emplace_back();
    act = {.kind = kind,
           .who = byte(),
           .a = byte(),
           .b = byte(),
           .c = byte(),
           .d = byte(),
           .e = byte(),
           .f = byte()};
  }
  return script;
}

Script script_of_bytes(std::span<const uint8_t> bytes) {
  constexpr size_t SETUP_SIZE = 4;
  constexpr size_t ACT_SIZE = 8;
  Script script;
  for (size_t i = 0; i < SETUP_SIZE && i < bytes.size(); ++i) {
    script.setup |= uint32_t{byte_at(bytes, i)} << (8 * i);
  }
  for (size_t at = SETUP_SIZE; at + ACT_SIZE <= bytes.size(); at += ACT_SIZE) {
    const auto number = [&](size_t place) { return byte_at(bytes, at + place); };
    script.acts.push_back({.kind = static_cast<Kind>(number(0) % KINDS),
                           .who = number(1),
                           .a = number(2),
                           .b = number(3),
                           .c = number(4),
                           .d = number(5),
                           .e = number(6),
                           .f = number(7)});
  }
  return script;
}

std::string text_of(const Script& script) {
  std::string text = "{" + std::to_string(script.setup) + "u, {";
  for (const Act& act : script.acts) {
    text += "\n    {Kind::" + std::string(KINDS_OF_ACTS[static_cast<size_t>(act.kind)].name);
    for (const uint8_t number : {act.who, act.a, act.b, act.c, act.d, act.e, act.f}) {
      text += ", " + std::to_string(number);
    }
    text += "},";
  }
  return text + "\n}}";
}

}  // namespace lives
