#include "tests/e2e/support/said.h"

namespace client = quorl::client;

namespace e2e {
namespace {

std::string text_of(const client::FixField& field) {
  return std::to_string(field.tag) + "=" + field.value + "|";
}

}  // namespace

std::string said(const client::FixMessage& message) {
  std::string text;
  for (const client::FixField& field : message.fields()) {
    const bool is_envelope = field.tag == 8 || field.tag == 9 || field.tag == 10;
    if (!is_envelope && field.tag != 52) text += text_of(field);
  }
  return text;
}

std::string body_text(const client::FixMessage& message) {
  std::string text;
  for (const client::FixField& field : message.body()) {
    text += field.tag == 60 ? "60=now|" : text_of(field);
  }
  return text;
}

}  // namespace e2e
