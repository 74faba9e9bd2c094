#include <algorithm>
#include <deque>
#include <limits>
#include <map>

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
    TimeNs moved = 0;  // when something of it came
  };
  struct Way {
    NumberRanges unasked;     // missing, and not asked for since that could be seen
    TimeNs moved = 0;         // when an answer came, or the client asked or could speak again
    uint32_t connection = 0;  // on which it can ask; 0: none
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
    if (way.connection == 0 || again >= now) {
      hole.due = way.connection == 0 ? now + ns_of(allow().answer) : again;
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
    const bool could_speak = way.connection == noted.connection->number;
    const bool can_speak = noted.connection->up() && noted.connection->logout_sent == 0;
    if (can_speak && !could_speak) {
      way.connection = noted.connection->number;
      way.moved = event.at;
    } else if (!can_speak && could_speak) {
      way.connection = 0;
    }
    const WireMessage* heard = sent_by_exchange(event);
    if (heard != nullptr) on_heard(event, *heard, noted, way);
    const WireMessage* sent = sent_by_client(event);
    if (sent != nullptr) on_sent(event, *sent, noted, way);
  }

  void on_heard(const Event& event, const WireMessage& message, const Noted& noted, Way& way) {
    if (noted.session->missing.empty()) way.unasked.clear();  // all has come, or a reset
    way.unasked.remove(noted.stands_for);
    if (noted.filled && message.is(43, "Y")) {
      way.moved = event.at;  // an answer, which one may wait out before one asks for more
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

  static void on_sent(const Event& event, const WireMessage& message, const Noted& noted,
                      Way& way) {
    if (!message.flaws().empty()) {
      way.moved = event.at;  // it may have been the request
    } else if (message.type() == "A" && message.is(141, "Y") && noted.number == 1) {
      way.unasked.clear();
    } else if (message.type() == "2") {
      const uint64_t last = message.number(16).value_or(0);
      way.unasked.remove(
          {message.number(7).value_or(0), last == 0 ? std::numeric_limits<uint64_t>::max() : last});
      way.moved = event.at;
    }
  }

  std::deque<Hole> holes_;    // about in order of time
  std::deque<Hole> put_off_;  // to be looked at again
  std::map<std::string, Way> ways_;
};

}  // namespace

std::unique_ptr<Check> make_gap_asked_check(const char* name, const CheckContext& context) {
  return std::make_unique<GapAskedCheck>(name, context);
}

}  // namespace certify
