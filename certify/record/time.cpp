#include "certify/record/time.h"

namespace certify {
namespace {

TimeNs ns_of(std::chrono::nanoseconds time) { return time.count(); }

}  // namespace

TimeNs time_ns(std::chrono::steady_clock::time_point moment) {
  static const TimeNs offset = ns_of(std::chrono::system_clock::now().time_since_epoch()) -
                               ns_of(std::chrono::steady_clock::now().time_since_epoch());
  return offset + ns_of(moment.time_since_epoch());
}

TimeNs now_ns() { return time_ns(std::chrono::steady_clock::now()); }

}  // namespace certify
