#include <algorithm>
#include <deque>
#include <map>

#include "certify/checks/session.h"
#include "certify/checks/session_check.h"

namespace certify {
namespace {

class AskedOnceCheck : public SessionCheck {
 public:
  using SessionCheck::SessionCheck;

 private:
  struct Asked {
    TimeNs latest = 0;
    unsigned times = 0;  // and nothing missing came in between
  };
  struct Way {
    NumberRanges had;  // in the socket for longer than the grace, while the connection stood
    std::map<uint64_t, Asked> asked;  // by 7, not longer ago than an answer may take
  };
  struct Fresh {
    TimeNs had_at = 0;
    uint32_t connection = 0;
    std::string comp_id;
    NumberRange range;
  };

  void on_time(TimeNs now) override {
    for (; !fresh_.empty() && fresh_.front().had_at < now; fresh_.pop_front()) {
      ways_[fresh_.front().comp_id].had.add(fresh_.front().range);
    }
  }

  void judge(const Event& event, const Noted& noted) override {
    if (noted.connection == nullptr) return;
    if (noted.connection->ended()) {
      // It may never have read what came last.
      std::erase_if(
          fresh_, [&](const Fresh& fresh) { return fresh.connection == noted.connection->number; });
    }
    if (noted.session == nullptr) return;
    const std::string& comp_id = noted.session->comp_id;
    const WireMessage* sent = sent_by_client(event);
    if (const WireMessage* heard = sent_by_exchange(event)) {
      if (noted.filled) ways_[comp_id].asked.clear();
      if (heard->type() == "A" && heard->is(141, "Y")) forget(comp_id);
      fresh_.push_back(
          {event.at + ns_of(allow().grace), noted.connection->number, comp_id, noted.stands_for});
    } else if (sent != nullptr && sent->flaws().empty()) {
      if (sent->type() == "A") ways_[comp_id].asked.clear();
      if (sent->type() == "A" && sent->is(141, "Y")) forget(comp_id);
      if (sent->type() == "2") on_request(event, *sent, ways_[comp_id]);
    }
  }

  void forget(const std::string& comp_id) {
    ways_.erase(comp_id);
    std::erase_if(fresh_, [&](const Fresh& fresh) { return fresh.comp_id == comp_id; });
  }

  void on_request(const Event& event, const WireMessage& message, Way& way) {
    seen();
    const uint64_t first = std::max<uint64_t>(message.number(7).value_or(0), 1);
    // Who asks again into a long silence is right to.
    std::erase_if(way.asked, [&](const auto& asked) {
      return event.at - asked.second.latest >= ns_of(allow().answer);
    });
    Asked& asked = way.asked[first];
    asked.latest = event.at;
    ++asked.times;
    if (way.had.contains(first)) {
      blame({.at = event.at,
             .what = "A ResendRequest begins at " + std::to_string(first) +
                     ", which had come more than " + seconds_text(ns_of(allow().grace)) +
                     " before.",
             .evidence = {quoted(event)}});
    } else if (asked.times > allow().asks) {
      blame({.at = event.at,
             .what = "The same was asked for " + std::to_string(asked.times) + " times, from " +
                     std::to_string(first) + " on, and nothing of it came in between.",
             .evidence = {quoted(event)}});
    }
  }

  std::deque<Fresh> fresh_;  // in order of time, of one grace
  std::map<std::string, Way> ways_;
};

}  // namespace

std::unique_ptr<Check> make_asked_once_check(const char* name, const CheckContext& context) {
  return std::make_unique<AskedOnceCheck>(name, context);
}

}  // namespace certify
