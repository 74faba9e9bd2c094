#include "certify/checks/silences.h"

#include <algorithm>
#include <charconv>
#include <string_view>

namespace certify {
namespace {

constexpr uint64_t DEFAULT_MS = 20000;          // of the command
constexpr uint64_t MOST_MS = 24 * 3600 * 1000;  // no run is longer

std::optional<uint64_t> number_behind(std::string_view text, std::string_view words) {
  const size_t at = text.find(words);
  if (at == std::string_view::npos) return std::nullopt;
  uint64_t number = 0;
  const char* const begin = text.data() + at + words.size();
  const auto result = std::from_chars(begin, text.data() + text.size(), number);
  if (result.ec != std::errc()) return std::nullopt;
  return std::min(number, MOST_MS);
}

}  // namespace

void Silences::on_event(const Event& event) {
  if (const auto* said = std::get_if<ExchangeSaid>(&event.what)) {
    if (const auto ms = number_behind(said->line, "bench: going silent for ")) begin(event.at, *ms);
  } else if (const auto* command = std::get_if<Commanded>(&event.what)) {
    const bool lapse = command->command == "lapse" || command->command.starts_with("lapse ");
    if (!lapse || !command->reply.starts_with("ok")) return;
    begin(event.at, number_behind(command->command, "lapse ").value_or(DEFAULT_MS));
  }
}

/// The command's own line on standard error comes behind it and says the same again.
void Silences::begin(TimeNs at, uint64_t ms) {
  if (!list_.empty()) list_.back().until = std::min(list_.back().until, at);
  if (ms > 0) list_.push_back({at, at + static_cast<TimeNs>(ms) * MILLISECOND});
}

std::optional<Silence> Silences::within(TimeNs from, TimeNs until) const {
  for (auto silence = list_.rbegin(); silence != list_.rend(); ++silence) {
    if (silence->from < until && silence->until > from) return *silence;
  }
  return std::nullopt;
}

}  // namespace certify
