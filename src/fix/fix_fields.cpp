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
  for (size_t i = 0; i < count_; ++i) {
    if (is_indexed(fields_[i].tag)) behind_[static_cast<size_t>(fields_[i].tag)] = 0;
  }
  count_ = 0;
}

const FixField* FixFieldMap::find_from_the_back(int32_t tag) const {
  for (size_t i = count_; i > 0; --i) {
    if (fields_[i - 1].tag == tag) return &fields_[i - 1];
  }
  return nullptr;
}

void FixFieldMap::make_room() {
  room_ = 2 * room_ + LIKELY_FIELDS;
  fields_.resize(room_);
}

uint32_t FixFieldMap::number(int32_t tag) const { return low32_or(text(tag), 0); }

}  // namespace quorl
