#include "certify/report/progress_line.h"

#include <string>
#include <vector>

#include "certify/report/clean_text.h"
#include "certify/report/words.h"

namespace certify {
namespace {

constexpr std::string_view BETWEEN = "  ";

void append(std::string& list, uint64_t count, const std::string& noun) {
  if (count == 0) return;
  if (!list.empty()) list += ", ";
  list += counted(count, noun);
}

std::string recovered_text(const Progress& progress) {
  std::string list;
  append(list, progress.replayed, "report");
  append(list, progress.filled, "message");
  append(list, progress.images, "image");
  return list.empty() ? "" : "recovered " + list;
}

}  // namespace

std::string progress_line(const Progress& progress, size_t width) {
  std::string line =
      clean_text(progress.plan) + std::string(BETWEEN) + about_seconds(progress.elapsed);
  const std::string pieces[] = {"orders " + std::to_string(progress.orders),
                                "fills " + std::to_string(progress.fills),
                                progress.armed.empty() ? "" : "armed " + clean_text(progress.armed),
                                recovered_text(progress)};
  for (const std::string& piece : pieces) {
    // What does not fit is left out as a whole: half a number would be a wrong one.
    if (piece.empty() || columns_of(line) + BETWEEN.size() + columns_of(piece) > width) continue;
    line.append(BETWEEN).append(piece);
  }
  return width == 0 ? "" : cut_to(line, width);
}

}  // namespace certify
