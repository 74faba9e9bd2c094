#include <algorithm>

#include "certify/checks/session.h"
#include "certify/checks/session_check.h"
#include "certify/record/visible_text.h"

namespace certify {
namespace {

constexpr size_t LONGEST_FRAME = 400;  // shown

/// Judges what the client sends as bytes. What is wrong here is nobody else's to blame.
class FramesCheck : public Check {
 public:
  explicit FramesCheck(const char* name) : Check(name) {}

  void on_event(const Event& event) override {
    if (over_) return;
    if (const WireMessage* message = sent_by_client(event)) {
      seen();
      if (!message->flaws().empty()) blame_frame(event, *message);
    } else if (const auto* garbage = std::get_if<FixGarbage>(&event.what)) {
      if (garbage->from == Party::CLIENT) on_garbage(event, *garbage);
    } else if (const auto* ended = std::get_if<FixEnded>(&event.what)) {
      on_ended(*ended);
    } else if (std::holds_alternative<Closing>(event.what)) {
      over_ = true;  // a client on its way out may be killed in the middle of a word
    }
  }

  void finish(TimeNs) override {}

 private:
  void blame_frame(const Event& event, const WireMessage& message) {
    blame({.at = event.at,
           .what = "A message is not well formed: " + message.flaws().front() + ".",
           .evidence = {quoted(event), "as it came: " + visible(message.raw(), LONGEST_FRAME)}});
  }

  void on_garbage(const Event& event, const FixGarbage& garbage) {
    if (garbage.at_end) {
      // Its end, told next, says who is to blame for what is missing.
      cut_ = {garbage.connection, event};
      return;
    }
    seen();
    blame({.at = event.at,
           .what = std::to_string(garbage.size) + " bytes of the client belong to no message.",
           .evidence = {quoted(event)}});
  }

  void on_ended(const FixEnded& ended) {
    const bool mine = cut_.connection == ended.connection && ended.by == Party::CLIENT;
    if (mine && !ended.by_link && !was_left(ended.connection)) {
      seen();
      blame({.at = cut_.event.at,
             .what = "The client ended its connection in the middle of a message.",
             .evidence = {quoted(cut_.event)}});
    }
    if (mine) cut_ = {};
    if (ended.by == Party::EXCHANGE) left_.push_back(ended.connection);
    if (left_.size() > MOST_LEFT) left_.erase(left_.begin());
  }

  /// The exchange had ended it before: what the client was sending had nowhere to go.
  bool was_left(uint32_t connection) const {
    return std::find(left_.begin(), left_.end(), connection) != left_.end();
  }

  static constexpr size_t MOST_LEFT = 100;  // ends are told in pairs, soon behind each other

  struct CutOff {
    uint32_t connection = 0;
    Event event;
  } cut_;
  std::vector<uint32_t> left_;
  bool over_ = false;
};

}  // namespace

std::unique_ptr<Check> make_frames_check(const char* name, const CheckContext&) {
  return std::make_unique<FramesCheck>(name);
}

}  // namespace certify
