#include "certify/record/fix_log.h"

#include <array>
#include <cstdio>
#include <ctime>

namespace certify {
namespace {

std::string log_time(TimeNs at) {
  const auto seconds = static_cast<time_t>(at / SECOND);
  const auto millis = static_cast<int>(at % SECOND / MILLISECOND);
  std::tm utc{};
  ::gmtime_r(&seconds, &utc);
  std::array<char, 96> text{};
  std::snprintf(text.data(), text.size(), "%04d%02d%02d-%02d:%02d:%02d.%03d", utc.tm_year + 1900,
                utc.tm_mon + 1, utc.tm_mday, utc.tm_hour, utc.tm_min, utc.tm_sec, millis);
  return text.data();
}

}  // namespace

void FixLog::on_event(const Event& event) {
  const auto* heard = std::get_if<FixHeard>(&event.what);
  if (heard != nullptr) file_.write(log_time(event.at) + " : " + heard->message.raw() + "\n");
}

}  // namespace certify
