#include "fix/fix_fields.h"

#include <array>
#include <charconv>

#include "driver/number_parsers.h"

namespace quorl {

FixFieldList::FixFieldList(std::initializer_list<FixField> fields) {
  for (const FixField& field : fields) put(field.tag, field.value);
}

void FixFieldList::put(int32_t tag, std::string_view value) {
  append_number(tag);
  wire_.append(1, '=').append(value).append(1, SOH);
}

void FixFieldList::put_number(int32_t tag, int64_t value) {
  append_number(tag);
  wire_.push_back('=');
  append_number(value);
  wire_.push_back(SOH);
}

void FixFieldList::append_number(int64_t value) {
  std::array<char, 20> digits;
  const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), value).ptr;
  wire_.append(digits.data(), end);
}

const FixField* FixFieldMap::find(int32_t tag) const {
  for (auto field = fields_.rbegin(); field != fields_.rend(); ++field) {
    if (field->tag == tag) return &*field;
  }
  return nullptr;
}

std::string_view FixFieldMap::text(int32_t tag) const {
  const FixField* field = find(tag);
  return field ? field->value : std::string_view();
}

char FixFieldMap::first_char(int32_t tag, char fallback) const {
  const std::string_view value = text(tag);
  return value.empty() ? fallback : value.front();
}

uint32_t FixFieldMap::number(int32_t tag) const { return low32_or(text(tag), 0); }

}  // namespace quorl
