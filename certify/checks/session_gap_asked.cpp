#include <algorithm>
#include <deque>
#include <limits>
#include <map>
#include <set>

#include "certify/checks/session.h"
#include "certify/checks/session_check.h"

namespace certify {
namespace {

class GapAskedCheck : public SessionCheck {
 public:
  using SessionCheck::SessionCheck;

 private:
  struct Hole {
    TimeNs due = 0;
    std::string comp_id;
    NumberRange range;
    std::string line;  // the message that showed it
    TimeNs moved = 0;  // when something of it came, or what lies ahead was asked for or answered
  };
  struct Way {
    NumberRanges unasked;   // missing, and not asked for since that could be seen
    TimeNs moved = 0;       // when the client could speak again, or said what may be a request
    std::set<uint32_t> up;  // connections on which it can ask
  };

  void on_time(TimeNs now) override {
    // What is put off is due later than now, so that each hole is looked at once.
    for (; !holes_.empty() && holes_.front().due < now; holes_.pop_front()) {
      expire(std::move(holes_.front()), now);
    }
  }

  void expire(Hole hole, TimeNs now) {
    Way& way = ways_[hole.comp_id];
    const auto missing = way.unasked.first_within(hole.range);
    if (!missing) {
      seen();
      return;
    }
    const TimeNs again = std::max(way.moved, hole.moved) + ns_of(allow().answer);
    if (way.up.empty() || again >= now) {
      hole.due = way.up.empty() ? now + ns_of(allow().answer) : again;
      put_off_.push_back(std::move(hole));
      return;
    }
    seen();
    way.unasked.remove(hole.range);
    blame({.at = hole.due,
           .what = "Of the exchange's messages " + text_of(*missing) +
                   " did not come, and no ResendRequest for that followed within " +
                   seconds_text(ns_of(allow().answer)) + ".",
           .evidence = {hole.line}});
  }

  void judge(const Event& event, const Noted& noted) override {
    for (Hole& hole : put_off_) holes_.push_back(std::move(hole));
    put_off_.clear();
    if (noted.connection == nullptr || noted.session == nullptr) return;
    Way& way = ways_[noted.session->comp_id];
    if (!can_speak(event, *noted.connection)) {
      way.up.erase(noted.connection->number);
    } else if (way.up.insert(noted.connection->number).second) {
      way.moved = event.at;
    }
    const WireMessage* heard = sent_by_exchange(event);
    if (heard != nullptr) on_heard(event, *heard, noted, way);
    const WireMessage* sent = sent_by_client(event);
    if (sent != nullptr) on_sent(event, *sent, noted, way);
  }

  /// A silence may have taken the answer to the Logon. Whoever then talks on though nothing but the
  /// rest has come takes the session for one that is up.
  bool can_speak(const Event& event, const FixConnection& connection) {
    const bool over =
        connection.logout_sent != 0 || connection.logout_heard != 0 || connection.ended();
    if (over || connection.logged_on != 0) {
      talks_on_.erase(connection.number);
      return !over;
    }
    if (sent_by_exchange(event) != nullptr) talks_on_.try_emplace(connection.number, false);
    const auto talks = talks_on_.find(connection.number);
    const WireMessage* sent = sent_by_client(event);
    if (talks == talks_on_.end()) return false;
    if (sent != nullptr) talks->second = sent->type() != "A";
    return talks->second;
  }

  /// Whoever waits for these numbers may leave for later what lies behind them, not ahead of them.
  void give_time(const std::string& comp_id, uint64_t from, TimeNs at) {
    for (Hole& hole : holes_) {
      if (hole.comp_id == comp_id && from <= hole.range.last) hole.moved = at;
    }
  }

  void on_heard(const Event& event, const WireMessage& message, const Noted& noted, Way& way) {
    if (noted.session->missing.empty()) way.unasked.clear();  // all has come, or a reset
    way.unasked.remove(noted.stands_for);
    if (message.is(43, "Y")) {
      // An answer, which one may wait out before one asks for more, known already or not.
      give_time(noted.session->comp_id, noted.stands_for.first, event.at);
    } else if (noted.filled) {
      // Only overtaken. That happens all the time, and is no reason to leave other holes alone.
      for (Hole& hole : holes_) {
        const bool of_it = noted.number >= hole.range.first && noted.number <= hole.range.last;
        if (of_it && hole.comp_id == noted.session->comp_id) hole.moved = event.at;
      }
    }
    if (!noted.hole) return;
    way.unasked.add(*noted.hole);
    holes_.push_back(
        {event.at + ns_of(allow().answer), noted.session->comp_id, *noted.hole, quoted(event)});
  }

  void on_sent(const Event& event, const WireMessage& message, const Noted& noted, Way& way) {
    if (!message.flaws().empty()) {
      way.moved = event.at;  // it may have been the request
    } else if (message.type() == "A" && message.is(141, "Y") && noted.number == 1) {
      way.unasked.clear();
    } else if (message.type() == "2") {
      const uint64_t last = message.number(16).value_or(0);
      const uint64_t first = message.number(7).value_or(0);
      way.unasked.remove({first, last == 0 ? std::numeric_limits<uint64_t>::max() : last});
      give_time(noted.session->comp_id, first, event.at);
    }
  }

  std::deque<Hole> holes_;    // about in order of time
  std::deque<Hole> put_off_;  // to be looked at again
  std::map<std::string, Way> ways_;
  // Connections on which something was heard ahead of the Logon's answer, and whether the client
  // has gone on to say more than a Logon.
  std::map<uint32_t, bool> talks_on_;
};

}  // namespace

std::unique_ptr<Check> make_gap_asked_check(const char* name, const CheckContext& context) {
  return std::make_unique<GapAskedCheck>(name, context);
}

}  // namespace certify
