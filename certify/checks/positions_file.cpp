#include "certify/checks/positions_file.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <utility>

#include "certify/record/visible_text.h"

namespace certify {
namespace {

constexpr size_t FIELDS = 5;
constexpr size_t MOST_FLAWS = 100;
constexpr size_t LONGEST_SHOWN = 120;

constexpr std::pair<std::string_view, BelievedState> WORDS[] = {
    {"pending", BelievedState::PENDING},
    {"pendingnew", BelievedState::PENDING},
    {"sent", BelievedState::PENDING},
    {"open", BelievedState::OPEN},
    {"new", BelievedState::OPEN},
    {"live", BelievedState::OPEN},
    {"working", BelievedState::OPEN},
    {"resting", BelievedState::OPEN},
    {"accepted", BelievedState::OPEN},
    {"acknowledged", BelievedState::OPEN},
    {"0", BelievedState::OPEN},
    {"partiallyfilled", BelievedState::PARTIAL},
    {"partial", BelievedState::PARTIAL},
    {"partfilled", BelievedState::PARTIAL},
    {"partialfill", BelievedState::PARTIAL},
    {"1", BelievedState::PARTIAL},
    {"replaced", BelievedState::REPLACED},
    {"5", BelievedState::REPLACED},
    {"filled", BelievedState::FILLED},
    {"fill", BelievedState::FILLED},
    {"done", BelievedState::FILLED},
    {"executed", BelievedState::FILLED},
    {"complete", BelievedState::FILLED},
    {"2", BelievedState::FILLED},
    {"cancelled", BelievedState::CANCELLED},
    {"canceled", BelievedState::CANCELLED},
    {"expired", BelievedState::CANCELLED},
    {"4", BelievedState::CANCELLED},
    {"rejected", BelievedState::REJECTED},
    {"refused", BelievedState::REJECTED},
    {"8", BelievedState::REJECTED},
    {"closed", BelievedState::CLOSED},
};

std::string_view trimmed(std::string_view text) {
  const size_t first = text.find_first_not_of(" \t\r");
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(" \t\r") - first + 1);
}

std::optional<BelievedState> state_of(std::string_view text) {
  std::string word;
  for (const char c : text) {
    if (c != ' ' && c != '_' && c != '-') {
      word += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    }
  }
  const auto* const found = std::find_if(std::begin(WORDS), std::end(WORDS),
                                         [&](const auto& entry) { return entry.first == word; });
  if (found == std::end(WORDS)) return std::nullopt;
  return found->second;
}

template <typename Number>
std::optional<Number> number_of(std::string_view text) {
  Number number{};
  const char* const end = text.data() + text.size();
  const auto [read, error] = std::from_chars(text.data(), end, number);
  if (text.empty() || error != std::errc() || read != end) return std::nullopt;
  return number;
}

std::string quoted(std::string_view text) { return "'" + visible(text, LONGEST_SHOWN) + "'"; }

/// Fills the row; returns what is wrong, or nothing.
std::string read_row(const std::array<std::string_view, FIELDS>& fields, PositionRow& row) {
  if (fields[0].empty()) return "the cl_ord_id is missing";
  row.name = fields[0];
  const auto state = state_of(fields[1]);
  if (!state) return quoted(fields[1]) + " is no state";
  const auto cum = number_of<uint64_t>(fields[2]);
  if (!cum) return quoted(fields[2]) + " is no number of shares";
  const auto leaves = number_of<uint64_t>(fields[3]);
  if (!leaves) return quoted(fields[3]) + " is no number of shares";
  if (!fields[4].empty()) {
    row.average = number_of<double>(fields[4]);
    if (!row.average) return quoted(fields[4]) + " is no price";
  }
  row.state = *state;
  row.cum = *cum;
  row.leaves = *leaves;
  return {};
}

bool is_heading(std::string_view line) { return line.starts_with("cl_ord_id,"); }

std::string read_line(std::string_view line, PositionRow& row) {
  std::array<std::string_view, FIELDS> fields;
  const auto commas = static_cast<size_t>(std::count(line.begin(), line.end(), ','));
  if (commas + 1 != FIELDS) {
    return quoted(line) + " has " + std::to_string(commas + 1) +
           " field(s), not cl_ord_id,state,cum,leaves,avg_px";
  }
  for (std::string_view& field : fields) {
    const size_t comma = line.find(',');
    field = trimmed(line.substr(0, comma));
    line.remove_prefix(std::min(line.size(), comma == std::string_view::npos ? comma : comma + 1));
  }
  return read_row(fields, row);
}

}  // namespace

PositionsFile read_positions(std::string_view content) {
  PositionsFile file;
  for (unsigned number = 1; !content.empty(); ++number) {
    const size_t end = content.find('\n');
    const std::string_view line = trimmed(content.substr(0, end));
    content.remove_prefix(end == std::string_view::npos ? content.size() : end + 1);
    if (line.empty() || line[0] == '#' || is_heading(line)) continue;
    PositionRow row;
    row.line = number;
    const std::string flaw = read_line(line, row);
    if (flaw.empty()) {
      row.text = visible(line, LONGEST_SHOWN);
      file.rows.push_back(std::move(row));
      continue;
    }
    ++file.flaw_count;
    if (file.flaws.size() < MOST_FLAWS) {
      file.flaws.push_back("line " + std::to_string(number) + ": " + flaw);
    }
  }
  if (file.flaw_count > file.flaws.size()) {
    file.flaws.push_back(std::to_string(file.flaw_count - file.flaws.size()) + " more such lines");
  }
  return file;
}

}  // namespace certify
