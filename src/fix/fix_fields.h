#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

namespace quorl {

constexpr char SOH = '\x01';
constexpr std::string_view EXCHANGE_COMP_ID = "IEXG";

/// The tags that are read, or put one by one. Reports and headers are composed as text, their tags
/// with them.
enum FixTag : int32_t {
  TAG_BEGIN_SEQ_NO = 7,
  TAG_CL_ORD_ID = 11,
  TAG_END_SEQ_NO = 16,
  TAG_EXEC_INST = 18,
  TAG_MSG_SEQ_NUM = 34,
  TAG_MSG_TYPE = 35,
  TAG_NEW_SEQ_NO = 36,
  TAG_ORDER_QTY = 38,
  TAG_ORD_TYPE = 40,
  TAG_ORIG_CL_ORD_ID = 41,
  TAG_POSS_DUP_FLAG = 43,
  TAG_PRICE = 44,
  TAG_REF_SEQ_NUM = 45,
  TAG_RULE_80A = 47,
  TAG_SENDER_COMP_ID = 49,
  TAG_SIDE = 54,
  TAG_SYMBOL = 55,
  TAG_TARGET_COMP_ID = 56,
  TAG_TEXT = 58,
  TAG_TIME_IN_FORCE = 59,
  TAG_ENCRYPT_METHOD = 98,
  TAG_HEART_BT_INT = 108,
  TAG_TEST_REQ_ID = 112,
  TAG_LOCATE_REQD = 114,
  TAG_ORIG_SENDING_TIME = 122,
  TAG_GAP_FILL_FLAG = 123,
  TAG_RESET_SEQ_NUM_FLAG = 141,
  TAG_SESSION_REJECT_REASON = 373,
};

/// One outgoing field. The value is borrowed for the call it is passed to.
struct FixField {
  int32_t tag;
  std::string_view value;
};

/// An ordered sequence of outgoing fields, kept as it goes on the wire ("tag=value" SOH ...), so
/// that composing and replaying a message copy one run of bytes. A tag may appear twice, and a
/// value is written as it stands: nothing checks.
class FixFieldList {
 public:
  FixFieldList() = default;
  FixFieldList(std::initializer_list<FixField> fields);

  void put(int32_t tag, std::string_view value);
  void put(int32_t tag, char value) { put(tag, std::string_view(&value, 1)); }
  void put_number(int32_t tag, int64_t value);

  std::string_view wire() const { return {memory_.data(), used_}; }

 private:
  /// Where the next field begins, with room for it.
  char* room_for(size_t bytes);
  void take_up_to(const char* end) { used_ = static_cast<size_t>(end - memory_.data()); }

  std::string memory_;  // sized ahead of its use
  size_t used_ = 0;
};

/// The fields of one received frame. A tag that occurs twice keeps its last value. The values are
/// views into the frame, which must outlive the map. Every tag that the exchange reads is found by
/// an index, any other one by a walk from the back.
class FixFieldMap {
 public:
  void clear();
  void set(int32_t tag, std::string_view value) {
    if (count_ == room_) make_room();
    fields_[count_++] = {tag, value};
    if (is_indexed(tag)) behind_[static_cast<size_t>(tag)] = static_cast<uint32_t>(count_);
  }

  bool has(int32_t tag) const { return find(tag) != nullptr; }
  /// Empty if the tag is absent or its value is empty.
  std::string_view text(int32_t tag) const {
    const FixField* field = find(tag);
    return field != nullptr ? field->value : std::string_view();
  }
  /// The first character of the value; `fallback` if the tag is absent or its value is empty.
  char first_char(int32_t tag, char fallback) const {
    const std::string_view value = text(tag);
    return value.empty() ? fallback : value.front();
  }
  /// The low 32 bits of a number read by the rules of std::stoull; 0 if there is none.
  uint32_t number(int32_t tag) const;

 private:
  static constexpr size_t INDEXED_TAGS = 256;  // those below
  static constexpr size_t LIKELY_FIELDS = 32;  // more than an order has

  static bool is_indexed(int32_t tag) { return static_cast<uint32_t>(tag) < INDEXED_TAGS; }
  const FixField* find(int32_t tag) const {
    if (!is_indexed(tag)) return find_from_the_back(tag);
    const uint32_t behind = behind_[static_cast<size_t>(tag)];
    return behind == 0 ? nullptr : &fields_[behind - 1];
  }
  const FixField* find_from_the_back(int32_t tag) const;
  void make_room();

  std::vector<FixField> fields_;  // in the order of the frame, and memory for more of them
  size_t room_ = 0;               // fields_.size(), at hand
  size_t count_ = 0;
  std::array<uint32_t, INDEXED_TAGS> behind_{};  // position of a tag's last field plus 1, or 0
};

}  // namespace quorl
