#include <algorithm>
#include <limits>
#include <map>
#include <utility>

#include "certify/checks/session.h"
#include "certify/checks/session_check.h"

namespace certify {
namespace {

constexpr TimeNs NEVER = std::numeric_limits<TimeNs>::max();
constexpr uint64_t LONGEST_S = 86'400;  // beyond it no silence is judged
constexpr unsigned FLOOD = 3;           // Heartbeats in a row that came much too early

class HeartbeatsCheck : public SessionCheck {
 public:
  using SessionCheck::SessionCheck;

 private:
  struct Beat {
    TimeNs said = 0;         // latest sign of life
    TimeNs latest = 0;       // Heartbeat that answers nothing
    unsigned early = 0;      // of those, in a row
    unsigned questions = 0;  // TestRequests of the exchange that wait for a Heartbeat
    bool silence_told = false;
  };

  static TimeNs interval(const FixConnection& connection) {
    return static_cast<TimeNs>(std::min(connection.heartbeat_s, LONGEST_S)) * SECOND;
  }

  TimeNs longest_silence(const FixConnection& connection) const {
    const TimeNs usual = interval(connection);
    return usual + std::max(usual / 5, SECOND) + ns_of(allow().grace);
  }

  static bool judged(const FixConnection& connection) {
    return connection.up() && connection.logout_sent == 0 && connection.heartbeat_s > 0;
  }

  void on_time(TimeNs now) override {
    if (now <= look_at_) return;
    look_at_ = NEVER;
    for (const auto& [number, connection] : view().connections()) {
      if (!judged(connection)) continue;
      Beat& beat = beats_[number];
      if (beat.silence_told) continue;
      const TimeNs due =
          std::max(connection.last_sent, connection.logged_on) + longest_silence(connection);
      if (due < now) {
        blame_silence(connection, beat, due);
      } else {
        look_at_ = std::min(look_at_, due);
      }
    }
  }

  void blame_silence(const FixConnection& connection, Beat& beat, TimeNs at) {
    beat.silence_told = true;
    seen();
    const TimeNs since = std::max(connection.last_sent, connection.logged_on);
    blame({.at = at,
           .what = "The client was silent for " + seconds_text(at - since) +
                   " and more while logged on with 108=" + std::to_string(connection.heartbeat_s) +
                   ".",
           .evidence = {"FIX " + std::to_string(connection.number) + ": nothing came behind " +
                        time_text(since)}});
  }

  void judge(const Event& event, const Noted& noted) override {
    if (noted.connection == nullptr) return;
    const FixConnection& connection = *noted.connection;
    if (const auto* ended = std::get_if<FixEnded>(&event.what)) {
      return on_ended(event, *ended, connection);
    }
    if (!judged(connection)) return;
    Beat& beat = beats_[connection.number];
    if (const WireMessage* heard = sent_by_exchange(event)) {
      if (heard->type() == "1") ++beat.questions;
      look_at_ = std::min(look_at_, event.at + longest_silence(connection));
    } else if (const WireMessage* sent = sent_by_client(event)) {
      if (sent->type() == "0" && sent->flaws().empty()) on_heartbeat(event, connection, beat);
      beat.said = event.at;
      beat.silence_told = false;
      look_at_ = std::min(look_at_, event.at + longest_silence(connection));
    }
  }

  void on_heartbeat(const Event& event, const FixConnection& connection, Beat& beat) {
    if (beat.questions > 0) {
      --beat.questions;
      return;
    }
    const TimeNs half = interval(connection) / 2;
    if (event.at - std::max(beat.said, connection.logged_on) >= half) seen();
    const bool early = beat.latest != 0 && event.at - beat.latest < half && !view().disturbed();
    beat.early = early ? beat.early + 1 : 0;
    const TimeNs before = std::exchange(beat.latest, event.at);
    if (beat.early < FLOOD) return;
    beat.early = 0;
    seen();
    blame({.at = event.at,
           .what = std::to_string(FLOOD) + " Heartbeats in a row came in less than half of 108=" +
                   std::to_string(connection.heartbeat_s) + ", and answered nothing.",
           .evidence = {time_text(before) + "  the one before", quoted(event)}});
  }

  /// With a small 108 the exchange gives up before the allowance ends.
  void on_ended(const Event& event, const FixEnded& ended, const FixConnection& connection) {
    const auto found = beats_.find(connection.number);
    if (found == beats_.end()) return;
    Beat& beat = found->second;
    const TimeNs since = std::max(connection.last_sent, connection.logged_on);
    const bool given_up = event.at - since >= interval(connection) * 12 / 5;
    if (ended.by == Party::EXCHANGE && !ended.by_link && given_up && !beat.silence_told &&
        connection.client_ended == (ended.reset ? event.at : 0) && connection.heartbeat_s > 0 &&
        connection.logout_sent == 0 && connection.logout_heard == 0) {
      blame_silence(connection, beat, event.at);
    }
    beats_.erase(found);
  }

  std::map<uint32_t, Beat> beats_;  // by connection
  TimeNs look_at_ = NEVER;          // no silence can be too long before
};

}  // namespace

std::unique_ptr<Check> make_heartbeats_check(const char* name, const CheckContext& context) {
  return std::make_unique<HeartbeatsCheck>(name, context);
}

}  // namespace certify
