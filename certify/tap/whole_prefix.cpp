#include "certify/tap/whole_prefix.h"

#include <algorithm>
#include <utility>

namespace certify {
namespace {

constexpr std::string_view PREFIX = "8=FIX";

size_t begun_prefix(std::string_view bytes) {
  for (size_t size = std::min(PREFIX.size() - 1, bytes.size()); size > 0; --size) {
    if (bytes.ends_with(PREFIX.substr(0, size))) return size;
  }
  return 0;
}

}  // namespace

std::string WholePrefix::join(std::string_view bytes, bool more) {
  std::string whole = release();
  whole += bytes;
  if (more) {
    const size_t begun = begun_prefix(whole);
    held_ = whole.substr(whole.size() - begun);
    whole.resize(whole.size() - begun);
  }
  return whole;
}

std::string WholePrefix::release() { return std::exchange(held_, {}); }

}  // namespace certify
