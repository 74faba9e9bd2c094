#include "stories/fix_end.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <optional>

#include "quorl/client/fix_layout.h"

namespace stories {
namespace {

using client::SOH;

std::optional<FieldWords> named(const std::vector<FieldWords>& fields, int tag) {
  for (const FieldWords& field : fields) {
    if (field.tag == tag) return field;
  }
  return std::nullopt;
}

/// The field as the story names it, or with `value`.
std::string field_text(const std::vector<FieldWords>& fields, int tag, const std::string& value) {
  const std::optional<FieldWords> field = named(fields, tag);
  if (field && field->absent) return {};
  return std::to_string(tag) + "=" + (field ? field->value : value) + SOH;
}

std::string checksum_of(std::string_view bytes) {
  unsigned sum = 0;
  for (const char c : bytes) sum += static_cast<unsigned char>(c);
  std::array<char, 8> text{};
  std::snprintf(text.data(), text.size(), "%03u", sum % 256);
  return text.data();
}

/// Around a message, or in its head.
bool is_standard(int tag) {
  constexpr std::array<int, 8> TAGS = {8, 9, 35, 34, 49, 56, 52, 10};
  return std::find(TAGS.begin(), TAGS.end(), tag) != TAGS.end();
}

}  // namespace

std::string FixEnd::composed(const std::string& name, const std::string& type,
                             const std::vector<FieldWords>& fields) {
  Connection& its = connection(name);
  if (type == "A") {
    const std::optional<FieldWords> sender = named(fields, 49);
    its.comp_id = sender ? sender->value : comp_id_of(name);
    const std::optional<FieldWords> reset = named(fields, 141);
    if (reset && reset->value == "Y") streams_[its.comp_id] = {};
  }
  Stream& numbers = stream(name);
  std::string body = field_text(fields, 35, type) +
                     field_text(fields, 34, std::to_string(numbers.next_out)) +
                     field_text(fields, 49, comp_id_of(name)) + field_text(fields, 56, "IEXG") +
                     field_text(fields, 52, client::fix_timestamp_now());
  for (const FieldWords& field : fields) {
    if (!is_standard(field.tag) && !field.absent) body += field_text(fields, field.tag, {});
  }
  const std::optional<FieldWords> seq = named(fields, 34);
  const auto sent =
      seq ? static_cast<uint32_t>(std::strtoul(seq->value.c_str(), nullptr, 10)) : numbers.next_out;
  numbers.next_out = std::max(numbers.next_out, sent + 1);
  std::string message =
      field_text(fields, 8, "FIX.4.2") + field_text(fields, 9, std::to_string(body.size())) + body;
  message += field_text(fields, 10, checksum_of(message));
  return message;
}

void FixEnd::begin_connection(const std::string& name) {
  connections_[name] = {.comp_id = comp_id_of(name), .framer = {}, .waiting = {}};
}

void FixEnd::take(const std::string& name, std::string_view bytes) {
  Connection& its = connection(name);
  its.framer.append(bytes);
  while (const std::optional<std::string> frame = its.framer.next()) {
    its.waiting.push_back(client::parse_fix(*frame));
    client::check_layout(its.waiting.back(), its.comp_id);
  }
}

std::deque<client::FixMessage>& FixEnd::waiting(const std::string& name) {
  return connection(name).waiting;
}

size_t FixEnd::pending(const std::string& name) const {
  return connections_.at(name).framer.pending();
}

uint32_t& FixEnd::next_in(const std::string& name) { return stream(name).next_in; }

FixEnd::Connection& FixEnd::connection(const std::string& name) { return connections_.at(name); }

FixEnd::Stream& FixEnd::stream(const std::string& name) {
  return streams_[connection(name).comp_id];
}

}  // namespace stories
