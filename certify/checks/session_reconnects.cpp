#include <deque>
#include <set>

#include "certify/checks/session.h"
#include "certify/checks/session_check.h"

namespace certify {
namespace {

constexpr TimeNs WINDOW = 10 * SECOND;
// Behind a refusal. Engines come back after whole seconds, give or take a little.
constexpr TimeNs AT_ONCE = 500 * MILLISECOND;
constexpr unsigned REFUSED_IN_ROW = 3;  // and come back at once: more is hammering

class ReconnectsCheck : public SessionCheck {
 public:
  using SessionCheck::SessionCheck;

 private:
  void judge(const Event& event, const Noted& noted) override {
    if (const auto* opened = std::get_if<FixOpened>(&event.what)) return on_opened(event, *opened);
    if (const auto* ended = std::get_if<FixEnded>(&event.what)) {
      open_.erase(ended->connection);
      return;
    }
    const WireMessage* heard = sent_by_exchange(event);
    if (heard == nullptr || noted.connection == nullptr) return;
    if (heard->type() == "A") refused_in_row_ = 0;
    if (heard->type() == "5" && noted.connection->refused) refused_ = event.at;
  }

  void on_opened(const Event& event, const FixOpened& opened) {
    if (any_) seen();
    any_ = true;
    opened_.push_back(event.at);
    while (opened_.front() <= event.at - WINDOW) opened_.pop_front();
    // Connections beside each other are no storm.
    const size_t beside = open_.size();
    if (opened.reached) open_.insert(opened.connection);
    if (opened_.size() > allow().connects + beside) {
      blame({.at = event.at,
             .what = std::to_string(opened_.size()) + " connections were opened within " +
                     seconds_text(event.at - opened_.front()) + ".",
             .evidence = {time_text(opened_.front()) + "  the first of them", quoted(event)}});
      opened_.clear();
    }
    const bool at_once = refused_ != 0 && event.at - refused_ < AT_ONCE;
    refused_in_row_ = at_once ? refused_in_row_ + 1 : 0;
    if (refused_in_row_ > REFUSED_IN_ROW) {
      blame({.at = event.at,
             .what = "Refused " + std::to_string(refused_in_row_) +
                     " times in a row, the client was back each time in less than " +
                     seconds_text(AT_ONCE) + ".",
             .evidence = {time_text(refused_) + "  the latest refusal", quoted(event)}});
      refused_in_row_ = 0;
    }
    refused_ = 0;
  }

  std::deque<TimeNs> opened_;  // of the last ten seconds
  std::set<uint32_t> open_;
  bool any_ = false;
  TimeNs refused_ = 0;  // since the latest opening
  unsigned refused_in_row_ = 0;
};

}  // namespace

std::unique_ptr<Check> make_reconnects_check(const char* name, const CheckContext& context) {
  return std::make_unique<ReconnectsCheck>(name, context);
}

}  // namespace certify
