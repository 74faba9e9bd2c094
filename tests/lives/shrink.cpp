#include "lives/shrink.h"

#include <algorithm>
#include <cstddef>

namespace lives {
namespace {

class Shrinking {
 public:
  Shrinking(Script script, const std::function<bool(const Script&)>& breaks, unsigned most)
      : script_(std::move(script)), breaks_(breaks), left_(most) {}

  Script result() {
    leave_out_pieces();
    put_zeroes();
    return script_;
  }

 private:
  bool take_if_it_breaks(const Script& candidate) {
    if (left_ == 0) return false;
    --left_;
    if (!breaks_(candidate)) return false;
    script_ = candidate;
    return true;
  }

  void leave_out_pieces() {
    for (size_t piece = std::max<size_t>(script_.acts.size() / 2, 1); piece > 0; piece /= 2) {
      size_t at = 0;
      while (at < script_.acts.size()) {
        Script candidate = script_;
        const auto begin = candidate.acts.begin() + static_cast<ptrdiff_t>(at);
        const auto size = static_cast<ptrdiff_t>(std::min(piece, script_.acts.size() - at));
        candidate.acts.erase(begin, begin + size);
        if (!take_if_it_breaks(candidate)) at += piece;
      }
    }
  }

  void put_zeroes() {
    for (size_t at = 0; at < script_.acts.size(); ++at) {
      for (uint8_t Act::*number :
           {&Act::who, &Act::a, &Act::b, &Act::c, &Act::d, &Act::e, &Act::f}) {
        if (script_.acts[at].*number == 0) continue;
        Script candidate = script_;
        candidate.acts[at].*number = 0;
        take_if_it_breaks(candidate);
      }
    }
  }

  Script script_;
  const std::function<bool(const Script&)>& breaks_;
  unsigned left_;
};

}  // namespace

Script shrunk(Script script, const std::function<bool(const Script&)>& breaks, unsigned most) {
  return Shrinking(std::move(script), breaks, most).result();
}

}  // namespace lives
