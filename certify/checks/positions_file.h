#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace certify {

/// What a client may say of the state of an order.
enum class BelievedState : uint8_t {
  PENDING,    // sent, and nothing heard of it
  OPEN,       // live, executed or not
  PARTIAL,    // live and partly executed
  REPLACED,   // live under a new name, or the old name of an order
  FILLED,     // closed with all shares executed
  CANCELLED,  // closed by a cancel, or by what an immediate order could not fill
  REJECTED,   // refused
  CLOSED      // closed, however
};

/// One line: `cl_ord_id,state,cum,leaves,avg_px`.
struct PositionRow {
  unsigned line = 0;  // in the file, from 1
  std::string text;   // as it stands
  std::string name;
  BelievedState state = BelievedState::OPEN;
  uint64_t cum = 0;
  uint64_t leaves = 0;
  std::optional<double> average;  // nothing: the field is empty
};

struct PositionsFile {
  std::vector<PositionRow> rows;
  std::vector<std::string> flaws;  // "line 3: 'many' is no number of shares", the first hundred
  uint64_t flaw_count = 0;
};

/// Reads a file of positions, with or without the line of headings. Lines may end in CR LF; empty
/// ones and those that begin with '#' are passed over. A state is a word or the code of tag 39,
/// large or small, its parts parted by blanks, '_' or '-' or nothing: pending (sent), open (new,
/// live, working, resting, accepted, 0), partially filled (partial, 1), replaced (5), filled (done,
/// executed, complete, 2), cancelled (canceled, expired, 4), rejected (refused, 8), closed.
PositionsFile read_positions(std::string_view content);

}  // namespace certify
