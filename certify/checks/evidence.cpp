#include "certify/checks/evidence.h"

#include <cstdlib>

#include "certify/record/visible_text.h"

namespace certify {

std::string quoted(const Event& event) { return time_text(event.at) + "  " + describe(event); }

std::string seconds_text(TimeNs time) {
  const TimeNs milliseconds = std::abs(time) / MILLISECOND;
  std::string text = std::to_string(milliseconds / 1000);
  if (milliseconds % 1000 != 0) {
    std::string part = std::to_string(1000 + milliseconds % 1000).substr(1);
    part.erase(part.find_last_not_of('0') + 1);
    text += "." + part;
  }
  return (time < 0 ? "-" : "") + text + " s";
}

std::string name_in_text(const WireMessage& message) {
  constexpr size_t LONGEST = 20;
  const std::string type = "35=" + visible(message.type(), LONGEST);
  const std::string* number = message.find(34);
  if (number == nullptr) return type + " without a number";
  return type + "|34=" + visible(*number, LONGEST);
}

}  // namespace certify
