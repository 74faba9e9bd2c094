#include "certify/record/message_name.h"

#include <array>
#include <span>
#include <string_view>

#include "certify/record/visible_text.h"

namespace certify {
namespace {

struct Name {
  std::string_view key;
  const char* text;
};

constexpr auto TYPES = std::to_array<Name>({
    {"0", "heartbeat"},
    {"1", "test request"},
    {"2", "resend request"},
    {"3", "session reject"},
    {"4", "sequence reset"},
    {"5", "logout"},
    {"8", "report"},
    {"9", "cancel refused"},
    {"A", "logon"},
    {"D", "new order"},
    {"F", "cancel"},
    {"G", "replace"},
});

constexpr auto REPORTS = std::to_array<Name>({
    // by ExecType (150)
    {"0", "accepted"},
    {"1", "partial fill"},
    {"2", "fill"},
    {"4", "cancelled"},
    {"5", "replaced"},
    {"8", "refused"},
});

const char* look_up(std::span<const Name> names, std::string_view key) {
  for (const Name& name : names) {
    if (name.key == key) return name.text;
  }
  return nullptr;
}

}  // namespace

std::string name_of(const WireMessage& message) {
  const std::string& type = message.type();
  if (type.empty()) return "no type";
  if (type == "4" && message.is(123, "Y")) return "gap fill";
  if (type == "9" && message.is(434, "2")) return "replace refused";
  if (type == "8") {
    if (const char* report = look_up(REPORTS, message.value(150))) return report;
  }
  if (const char* name = look_up(TYPES, type)) return name;
  constexpr size_t LONGEST_TYPE = 10;
  return "type " + visible(type, LONGEST_TYPE);
}

}  // namespace certify
