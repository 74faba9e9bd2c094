#include "certify/record/time.h"

#include <chrono>

namespace certify {
namespace {

TimeNs ns_of(std::chrono::nanoseconds time) { return time.count(); }

}  // namespace

TimeNs now_ns() {
  static const TimeNs offset = ns_of(std::chrono::system_clock::now().time_since_epoch()) -
                               ns_of(std::chrono::steady_clock::now().time_since_epoch());
  return offset + ns_of(std::chrono::steady_clock::now().time_since_epoch());
}

}  // namespace certify
