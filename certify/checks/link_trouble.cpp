#include "certify/checks/link_trouble.h"

#include <string_view>

namespace certify {
namespace {

/// "images: stalled for 5 s" and what else lasts, until it is said to be over.
void follow(std::string_view what, std::string_view service, bool& down) {
  if (!what.starts_with(service)) return;
  what.remove_prefix(service.size());
  if (what.starts_with(": stalled") || what.starts_with(": cut, ")) down = true;
  if (what == ": the stall is over" || what.starts_with(": plain again")) down = false;
}

}  // namespace

bool LinkTrouble::take(const LinkSaid& said) {
  follow(said.what, "images", images_down_);
  follow(said.what, "gap fill", gap_fill_down_);
  return said.what.starts_with("images") || said.what.starts_with("gap fill");
}

}  // namespace certify
