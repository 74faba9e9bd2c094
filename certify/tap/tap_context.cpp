#include "certify/tap/tap_context.h"

namespace certify {

std::string_view name_of(Service service) {
  switch (service) {
    case Service::FIX:
      return "FIX";
    case Service::IMAGES:
      return "images";
    case Service::GAP_FILL:
      break;
  }
  return "gap fill";
}

std::string name_of(Line line) {
  return std::string(name_of(line.service)) + " " + std::to_string(line.number);
}

}  // namespace certify
