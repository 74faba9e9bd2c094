#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace lives {

/// What the world does next. The numbers mean what the kind makes of them; any values will do.
enum class Kind : uint8_t {
  TURNS,   // the exchange takes a few turns
  SLEEP,   // and before the next one the whole machine stands still
  LOG_ON,  // on a connection of its own or again on an old one
  ORDER,
  CANCEL,
  REPLACE,
  ADMIN,  // heartbeat, TestRequest, SequenceReset, Logout, unknown type
  RESEND,
  HALF,  // a message in two pieces, a turn between them
  GARBAGE,
  HANG_UP,
  LIMIT_SENDS,  // short sends, full buffers, a broken pipe
  REFUSED_ACCEPT,
  COMMAND,  // to the control port
  GAP_REQUEST,
  IMAGE,
  CLOCK_STEP,  // of the system clock
  DISK,        // full, or free again
  CROWD,       // many orders at one price
};
constexpr size_t KINDS = 19;

/// Any number chooses one.
template <typename List>
const auto& pick(const List& list, size_t choice) {
  return list[choice % list.size()];
}

struct Act {
  Kind kind = Kind::TURNS;
  uint8_t who = 0;
  uint8_t a = 0;
  uint8_t b = 0;
  uint8_t c = 0;
  uint8_t d = 0;
  uint8_t e = 0;
  uint8_t f = 0;

  bool operator==(const Act&) const = default;
};

/// What a life is made of. `setup` chooses symbols, scenario, faults, and what is left out.
struct Script {
  uint32_t setup = 0;
  std::vector<Act> acts;
};

/// The life of a seed: `acts` of them, drawn by weight.
Script script_of_seed(uint64_t seed, size_t acts);
/// Any bytes are a script: four of setup, then eight for each act; what is left over is passed by.
Script script_of_bytes(std::span<const uint8_t> bytes);

/// As C++, to be pasted into a test.
std::string text_of(const Script& script);

}  // namespace lives
