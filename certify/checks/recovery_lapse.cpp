#include <algorithm>
#include <chrono>
#include <map>
#include <optional>
#include <string>
#include <utility>

#include "certify/checks/recovery_checks.h"
#include "certify/checks/session_view.h"
#include "certify/checks/silences.h"

namespace certify {
namespace {

TimeNs ns_of(Milliseconds time) { return std::chrono::nanoseconds(time).count(); }

std::string seconds_text(TimeNs time) {
  const std::string tenths = std::to_string(time / (SECOND / 10));
  if (tenths.size() == 1) return "0." + tenths + " s";
  return tenths.substr(0, tenths.size() - 1) + "." + tenths.substr(tenths.size() - 1) + " s";
}

/// What a client with HeartBtInt h has to do while the exchange says nothing: to send a TestRequest
/// within one and a half times h and the grace, to end the connection within twice that, and to log
/// on again within the time for recovery. Any of them may come earlier.
class RecoveryLapse : public Check {
 public:
  RecoveryLapse(const char* name, const CheckContext& context)
      : Check(name),
        grace_(ns_of(context.plan.allow.grace)),
        recovery_(ns_of(context.plan.allow.recovery)) {}

  void on_event(const Event& event) override {
    silences_.on_event(event);
    if (std::holds_alternative<Closing>(event.what)) settle_all(event.at);
    if (std::holds_alternative<ClientEnded>(event.what)) settle_all(event.at);
    const Noted& noted = sessions_.take(event);
    if (noted.connection == nullptr || over_) return;
    if (const auto* heard = std::get_if<FixHeard>(&event.what)) {
      heard->from == Party::CLIENT ? on_sent(*noted.connection, *heard, event.at)
                                   : on_heard(*noted.connection, event.at);
    } else if (const auto* ended = std::get_if<FixEnded>(&event.what)) {
      on_ended(*noted.connection, *ended, event.at);
    }
  }

  void finish(TimeNs at) override { settle_all(at); }

 private:
  /// A connection that was logged on, since the last thing heard on it.
  struct Quiet {
    TimeNs since = 0;
    TimeNs interval = 0;  // 108
    std::string comp_id;
    TimeNs tested = 0;  // the first TestRequest since then
  };
  struct Away {  // left a silence, and has not come back
    TimeNs since = 0;
    Silence silence;
  };

  TimeNs test_due(const Quiet& quiet) const { return quiet.since + patience(quiet); }
  TimeNs drop_due(const Quiet& quiet) const { return quiet.since + 2 * patience(quiet); }
  TimeNs patience(const Quiet& quiet) const { return quiet.interval + quiet.interval / 2 + grace_; }

  void on_sent(const FixConnection& connection, const FixHeard& heard, TimeNs at) {
    const std::string& type = heard.message.type();
    const auto quiet = quiet_.find(connection.number);
    if (type == "A") {
      come_back(heard.message.value(49), at);
    } else if (quiet != quiet_.end() && type == "1" && quiet->second.tested == 0) {
      quiet->second.tested = at;
    } else if (quiet != quiet_.end() && type == "5") {
      judge(quiet->second, at, /*left=*/true);
      quiet_.erase(quiet);
    }
  }

  void on_heard(const FixConnection& connection, TimeNs at) {
    const auto quiet = quiet_.find(connection.number);
    if (quiet != quiet_.end()) judge(quiet->second, at, /*left=*/false);
    if (!connection.up() || connection.logout_sent != 0) {
      quiet_.erase(connection.number);
      return;
    }
    const auto interval =
        static_cast<TimeNs>(std::clamp<uint64_t>(connection.heartbeat_s, 1, 86400)) * SECOND;
    quiet_[connection.number] = {at, interval, connection.comp_id, 0};
  }

  void on_ended(const FixConnection& connection, const FixEnded& ended, TimeNs at) {
    const auto quiet = quiet_.find(connection.number);
    if (quiet == quiet_.end()) return;
    const bool left = ended.by == Party::CLIENT && !ended.by_link;
    judge(quiet->second, at, left);
    quiet_.erase(quiet);
  }

  /// The quiet has ended at `at`; `left`: because the client has gone.
  void judge(const Quiet& quiet, TimeNs at, bool left) {
    const std::optional<Silence> silence = silences_.within(quiet.since, at);
    if (!silence) return;
    if (at > test_due(quiet)) {
      seen();
      if (quiet.tested == 0 || quiet.tested > test_due(quiet)) {
        blame_silence(
            quiet, at, *silence,
            "sent no TestRequest within " + seconds_text(patience(quiet)) + " of silence");
      } else if (at > drop_due(quiet)) {
        blame_silence(quiet, at, *silence,
                      "held on to a connection that was silent for more than " +
                          seconds_text(2 * patience(quiet)));
      }
    }
    if (left && at > quiet.since + quiet.interval) away_[quiet.comp_id] = {at, *silence};
  }

  void blame_silence(const Quiet& quiet, TimeNs at, const Silence& silence,
                     const std::string& what) {
    Fault fault{at, quiet.comp_id + " " + what, {}};
    fault.evidence.push_back(time_text(silence.from) + "  the exchange is silent until " +
                             time_text(silence.until));
    fault.evidence.push_back(time_text(quiet.since) + "  the last message before it; 108 is " +
                             seconds_text(quiet.interval));
    fault.evidence.push_back(quiet.tested == 0
                                 ? std::string("no TestRequest")
                                 : time_text(quiet.tested) + "  the first TestRequest");
    fault.evidence.push_back(time_text(at) + "  the end of the silence or of the connection");
    blame(std::move(fault));
  }

  void come_back(const std::string& comp_id, TimeNs at) {
    const auto away = away_.find(comp_id);
    if (away == away_.end()) return;
    if (at > away->second.since + recovery_) blame_away(comp_id, away->second, at);
    away_.erase(away);
  }

  void blame_away(const std::string& comp_id, const Away& away, TimeNs at) {
    blame({at,
           comp_id + " left a silent connection and did not log on again within " +
               seconds_text(recovery_),
           {time_text(away.silence.from) + "  the exchange is silent until " +
                time_text(away.silence.until),
            time_text(away.since) + "  the client left"}});
  }

  /// Nothing more is asked of the client.
  void settle_all(TimeNs at) {
    if (over_) return;
    over_ = true;
    for (const auto& [number, quiet] : quiet_) judge(quiet, at, /*left=*/false);
    for (const auto& [comp_id, away] : away_) {
      if (at > away.since + recovery_) blame_away(comp_id, away, at);
    }
  }

  TimeNs grace_;
  TimeNs recovery_;
  SessionView sessions_;
  Silences silences_;
  std::map<uint32_t, Quiet> quiet_;
  std::map<std::string, Away> away_;
  bool over_ = false;
};

}  // namespace

std::unique_ptr<Check> make_recovery_lapse_check(const char* name, const CheckContext& context) {
  return std::make_unique<RecoveryLapse>(name, context);
}

}  // namespace certify
