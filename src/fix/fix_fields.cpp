#include "fix/fix_fields.h"

#include "base/number_parsers.h"
#include "base/text_writer.h"

namespace quorl {
namespace {

constexpr size_t AROUND_VALUE = TextWriter::LONGEST_NUMBER + 2;  // tag, '=', SOH

}  // namespace

FixFieldList::FixFieldList(std::initializer_list<FixField> fields) {
  for (const FixField& field : fields) put(field.tag, field.value);
}

void FixFieldList::put(int32_t tag, std::string_view value) {
  TextWriter out(room_for(AROUND_VALUE + value.size()));
  out.number(tag).character('=').text(value).character(SOH);
  take_up_to(out.position());
}

void FixFieldList::put_number(int32_t tag, int64_t value) {
  TextWriter out(room_for(AROUND_VALUE + TextWriter::LONGEST_NUMBER));
  out.number(tag).character('=').number(value).character(SOH);
  take_up_to(out.position());
}

char* FixFieldList::room_for(size_t bytes) {
  if (memory_.size() - used_ < bytes) memory_.resize(2 * memory_.size() + bytes);
  return memory_.data() + used_;
}

void FixFieldMap::clear() {
  for (const FixField& field : fields_) {
    if (is_indexed(field.tag)) behind_[static_cast<size_t>(field.tag)] = 0;
  }
  fields_.clear();
}

void FixFieldMap::set(int32_t tag, std::string_view value) {
  fields_.push_back({tag, value});
  if (is_indexed(tag)) behind_[static_cast<size_t>(tag)] = static_cast<uint32_t>(fields_.size());
}

const FixField* FixFieldMap::find(int32_t tag) const {
  if (is_indexed(tag)) {
    const uint32_t behind = behind_[static_cast<size_t>(tag)];
    return behind == 0 ? nullptr : &fields_[behind - 1];
  }
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
