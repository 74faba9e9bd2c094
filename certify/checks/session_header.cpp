#include <algorithm>
#include <array>
#include <map>

#include "certify/checks/session.h"
#include "certify/checks/session_check.h"
#include "certify/record/visible_text.h"

namespace certify {
namespace {

// All that FIX 4.2 counts to the header, behind 8, 9 and 35.
constexpr std::array HEADER_TAGS = {49,  56,  115, 128, 90, 91, 34,  50,  142, 57,  143, 116,
                                    144, 129, 145, 43,  97, 52, 122, 212, 213, 347, 369, 370};
constexpr std::array NEEDED_TAGS = {35, 49, 56, 34, 52};
constexpr size_t LONGEST_VALUE = 40;  // shown

bool is_header_tag(int tag) {
  return std::find(HEADER_TAGS.begin(), HEADER_TAGS.end(), tag) != HEADER_TAGS.end();
}

std::string shown(const std::string& value) { return "'" + visible(value, LONGEST_VALUE) + "'"; }

/// What is wrong with the header, but for 49; empty if nothing is.
std::string flaw_of(const WireMessage& message) {
  for (const int tag : NEEDED_TAGS) {
    if (message.find(tag) == nullptr) return "tag " + std::to_string(tag) + " is missing";
  }
  const auto& fields = message.fields();
  if (fields.size() < 3 || fields[2].first != 35) return "35 is not the third field";
  const auto body = std::find_if(fields.begin() + 3, fields.end(),
                                 [](const auto& field) { return !is_header_tag(field.first); });
  const auto late = std::find_if(body, fields.end(),
                                 [](const auto& field) { return is_header_tag(field.first); });
  if (late != fields.end()) {
    return "header field " + std::to_string(late->first) + " stands behind body field " +
           std::to_string(body->first);
  }
  if (!message.number(34)) return "34 is " + shown(message.value(34)) + ", no plain number";
  if (!message.is(56, "IEXG")) return "56 is " + shown(message.value(56)) + ", not IEXG";
  return {};
}

class HeaderCheck : public Check {
 public:
  explicit HeaderCheck(const char* name) : Check(name) {}

  void on_event(const Event& event) override {
    if (std::holds_alternative<Closing>(event.what)) over_ = true;
    if (over_) return;
    if (const auto* opened = std::get_if<FixOpened>(&event.what)) {
      senders_.erase(opened->connection);
    } else if (const auto* ended = std::get_if<FixEnded>(&event.what)) {
      if (ended->by == Party::CLIENT || ended->reset) senders_.erase(ended->connection);
    } else if (const WireMessage* message = sent_by_client(event)) {
      if (message->flaws().empty()) judge(event, *message);
    }
  }

  void finish(TimeNs) override {}

 private:
  void judge(const Event& event, const WireMessage& message) {
    seen();
    std::string flaw = flaw_of(message);
    const std::string& sender = message.value(49);
    const auto [first, is_new] =
        senders_.try_emplace(std::get<FixHeard>(event.what).connection, sender);
    if (flaw.empty() && !is_new && sender != first->second) {
      flaw = "49 is " + shown(sender) + ", and was " + shown(first->second) +
             " before on this connection";
    }
    if (flaw.empty()) return;
    blame({.at = event.at,
           .what = "The header of " + name_in_text(message) + " is wrong: " + flaw + ".",
           .evidence = {quoted(event), "as it came: " + visible(message.raw(), LONGEST_FRAME)}});
  }

  static constexpr size_t LONGEST_FRAME = 400;  // shown

  std::map<uint32_t, std::string> senders_;  // by connection
  bool over_ = false;
};

}  // namespace

std::unique_ptr<Check> make_header_check(const char* name, const CheckContext&) {
  return std::make_unique<HeaderCheck>(name);
}

}  // namespace certify
