#include <algorithm>
#include <deque>
#include <map>
#include <set>
#include <string>

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
  struct Opened {
    TimeNs at = 0;
    uint32_t connection = 0;
  };
  struct Refusals {
    TimeNs latest = 0;  // since the latest Logon
    unsigned in_row = 0;
  };

  void judge(const Event& event, const Noted& noted) override {
    if (const auto* opened = std::get_if<FixOpened>(&event.what)) return on_opened(event, *opened);
    if (const auto* ended = std::get_if<FixEnded>(&event.what)) {
      open_.erase(ended->connection);
      return;
    }
    if (noted.connection == nullptr || noted.session == nullptr) return;
    Refusals& refusals = refusals_[noted.session->comp_id];
    if (const WireMessage* heard = sent_by_exchange(event)) {
      if (heard->type() == "A") refusals.in_row = 0;
      if (heard->type() == "5" && noted.connection->refused) refusals.latest = event.at;
    } else if (const WireMessage* sent = sent_by_client(event)) {
      if (sent->type() == "A") on_logon(event, *noted.connection, refusals);
    }
  }

  void on_opened(const Event& event, const FixOpened& opened) {
    if (any_) seen();
    any_ = true;
    opened_.push_back({event.at, opened.connection});
    while (opened_.front().at <= event.at - WINDOW) opened_.pop_front();
    // Connections beside each other are no storm.
    const auto beside = std::count_if(opened_.begin(), opened_.end(), [this](const Opened& one) {
      return open_.contains(one.connection);
    });
    if (opened.reached) open_.insert(opened.connection);
    if (opened_.size() > allow().connects + static_cast<size_t>(beside)) {
      blame({.at = event.at,
             .what = std::to_string(opened_.size()) + " connections were opened within " +
                     seconds_text(event.at - opened_.front().at) + ".",
             .evidence = {time_text(opened_.front().at) + "  the first of them", quoted(event)}});
      opened_.clear();
    }
  }

  /// Whose a connection is its Logon tells.
  void on_logon(const Event& event, const FixConnection& connection, Refusals& refusals) {
    const TimeNs away = connection.opened - refusals.latest;
    const bool at_once = refusals.latest != 0 && away >= 0 && away < AT_ONCE;
    refusals.in_row = at_once ? refusals.in_row + 1 : 0;
    if (refusals.in_row > REFUSED_IN_ROW) {
      blame({.at = event.at,
             .what = "Refused " + std::to_string(refusals.in_row) +
                     " times in a row, the client was back each time in less than " +
                     seconds_text(AT_ONCE) + ".",
             .evidence = {time_text(refusals.latest) + "  the latest refusal", quoted(event)}});
      refusals.in_row = 0;
    }
    refusals.latest = 0;
  }

  std::deque<Opened> opened_;  // of the last ten seconds
  std::set<uint32_t> open_;
  bool any_ = false;
  std::map<std::string, Refusals> refusals_;  // by SenderCompID
};

}  // namespace

std::unique_ptr<Check> make_reconnects_check(const char* name, const CheckContext& context) {
  return std::make_unique<ReconnectsCheck>(name, context);
}

}  // namespace certify
