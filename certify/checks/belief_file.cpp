#include "certify/checks/belief_file.h"

#include <fstream>

namespace certify {

std::optional<std::string> read_belief(const BeliefTaken& taken, const char* name) {
  constexpr size_t MOST = 64 * 1024 * 1024;
  constexpr size_t AT_ONCE = 64 * 1024;
  std::ifstream in(taken.folder + "/" + name, std::ios::binary);
  if (!in) return std::nullopt;
  std::string content;
  std::string piece(AT_ONCE, '\0');
  while (content.size() < MOST && in) {
    in.read(piece.data(), static_cast<std::streamsize>(piece.size()));
    content.append(piece, 0, static_cast<size_t>(in.gcount()));
  }
  return content;
}

std::string name_of(const BeliefTaken& taken, const char* name) {
  return taken.mark.empty() ? name : std::string(name) + " at mark " + taken.mark;
}

}  // namespace certify
