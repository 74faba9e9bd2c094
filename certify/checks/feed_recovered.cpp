#include <algorithm>
#include <array>
#include <deque>
#include <optional>

#include "certify/checks/feed_checks.h"
#include "certify/checks/feed_losses.h"
#include "certify/checks/feed_map.h"
#include "certify/checks/link_trouble.h"

namespace certify {
namespace {

constexpr TimeNs NEVER = INT64_MAX;
// Holes are looked through no more often: there can be thousands.
constexpr TimeNs BETWEEN_LOOKS = 100 * MILLISECOND;
constexpr size_t REQUESTS_SHOWN = 3;

/// What the feed lost must have been fetched, or an image must stand behind it. Only what was lost
/// while the client listened is owed: from when it has a place on, or, if it has joined by
/// listening or never asks for anything, from a while behind its start, or from what it asks for
/// first.
class Recovered : public Check {
 public:
  Recovered(const char* name, const CheckContext& context)
      : Check(name),
        session_(context.feed_session),
        recovery_(in_ns(context.plan.allow.recovery)),
        joining_(2 * in_ns(context.plan.allow.grace)) {}

  void on_event(const Event& event) override {
    if (over_) return;
    now_ = event.at;
    if (now_ >= next_look_) look_for_unrepaired();
    std::visit([this](const auto& what) { take(what); }, event.what);
  }

  void finish(TimeNs at) override {
    if (!over_) close(at);
  }

 private:
  template <typename Other>
  void take(const Other&) {}

  void take(const FeedHeard& heard) {
    if (heard.packet.header.session_id != session_) return;
    feed_.heard(heard.packet, now_);
    if (feed_.stretches() > 1) next_look_ = std::min(next_look_, now_ + recovery_);
  }

  void take(const FeedFault& fault) { losses_.add(fault); }

  void take(const ClientStarted&) {
    if (started_) return;
    started_ = now_;
    start_seq_ = feed_.next_number();
    for (const FeedHole& hole : feed_.holes()) feed_.settle(hole.end_offset);
  }

  void take(const GapRequested& request) {
    if (request.ranges.empty()) return;  // a question for the status
    // Who begins behind the start repairs a loss, and has joined by listening.
    const uint64_t first = request.ranges.front().first;
    if (!asked_ && started_ && first > 1 && first >= start_seq_ && asks_for_messages(request)) {
      listens_from_ = first;
    }
    asked_ = true;
    requests_.push_back(time_text(now_) + "  gap fill asked for " + ranges_text(request.ranges));
    if (requests_.size() > REQUESTS_SHOWN) requests_.pop_front();
  }

  void take(const GapReplied& reply) {
    const size_t before = feed_.holes().size();
    if (feed_.filled(reply.packet, now_) == 0) return;
    if (!reply.packet.messages.empty()) have_place();
    for (size_t i = feed_.holes().size(); i < before; ++i) seen();
  }

  void take(const ImageRequested& request) {
    asked_ = true;
    requests_.push_back(time_text(now_) + "  image asked for at " +
                        std::to_string(request.minimum_seq) + " or later");
    if (requests_.size() > REQUESTS_SHOWN) requests_.pop_front();
  }

  void take(const ImageReplied& reply) {
    if (!reply.complete) return;
    have_place();
    for (const FeedHole& hole : feed_.holes()) {
      if (hole.last.low > reply.seq) continue;
      if (is_owed(hole)) seen();
      feed_.settle(hole.end_offset);
    }
    image_seq_ = std::max(image_seq_, reply.seq);
  }

  /// Nobody can fetch anything through a link that is cut: the time begins anew.
  void take(const LinkSaid& said) {
    if (trouble_.take(said)) clock_begins_ = now_;
  }

  void take(const Closing&) { close(now_); }
  void take(const ClientEnded&) { close(now_); }

  void have_place() {
    if (!placed_ && !listens_from_) clock_begins_ = std::max(clock_begins_, now_);
    placed_ = true;
  }

  bool is_owed(const FeedHole& hole) const {
    return started_ && hole.shown >= *started_ && hole.last.low > image_seq_ &&
           !is_too_early(hole) && losses_.explain(hole);
  }

  /// It may not have listened yet, for all that its first request shows.
  bool is_too_early(const FeedHole& hole) const {
    return listens_from_ && hole.last.high < *listens_from_ && hole.shown < *started_ + joining_;
  }

  TimeNs due(const FeedHole& hole) const { return std::max(hole.shown, clock_begins_) + recovery_; }

  void look_for_unrepaired() {
    next_look_ = NEVER;
    // Without a place there is nothing to repair: feed.late_join asks whether the client gets one.
    const bool judging = started_ && (placed_ || listens_from_) && !trouble_.lasts();
    for (const FeedHole& hole : feed_.holes()) {
      if (judging && due(hole) <= now_) {
        judge(hole);
      } else {
        next_look_ = std::min(next_look_, std::max(due(hole), now_ + BETWEEN_LOOKS));
      }
    }
    losses_.forget_below(lowest_of_interest());
  }

  uint64_t lowest_of_interest() const {
    const auto holes = feed_.holes();
    const uint64_t lowest = holes.empty() ? feed_.next_number() : holes.front().first.low;
    return lowest > 2 ? lowest - 2 : 0;
  }

  void judge(const FeedHole& hole) {
    feed_.settle(hole.end_offset);
    if (is_owed(hole)) {
      seen();
      blame(fault_of(hole));
    } else if (hole.shown >= *started_ && hole.last.low > image_seq_ && !losses_.explain(hole)) {
      remark("The judge itself did not hear " + messages_text(hole.first.low, hole.last.high) +
             ", which the exchange did not drop: nobody is blamed for them.");
    }
  }

  Fault fault_of(const FeedHole& hole) const {
    Fault fault;
    fault.at = hole.shown;
    fault.what = "The feed lost " + messages_text(hole.first.low, hole.last.low) +
                 ", and neither gap fill nor an image brought them within " +
                 std::to_string(recovery_ / MILLISECOND) + " ms.";
    fault.evidence.push_back(
        time_text(hole.shown) + "  what came then shows the hole: stream offset " +
        std::to_string(hole.offset) + " to " + std::to_string(hole.end_offset) + " was missing");
    if (requests_.empty()) fault.evidence.emplace_back("The client has asked for nothing.");
    for (const std::string& request : requests_) fault.evidence.push_back(request);
    fault.evidence.push_back(time_text(now_) + "  still missing");
    return fault;
  }

  void close(TimeNs at) {
    now_ = at;
    over_ = true;
    if (!started_) return;
    if (asked_ && !placed_ && !listens_from_) return;
    uint64_t open = 0;
    for (const FeedHole& hole : feed_.holes()) {
      if (!asked_ && hole.shown < *started_ + joining_) continue;  // it may not have listened yet
      if (due(hole) <= now_ && !trouble_.lasts()) {
        judge(hole);
      } else if (is_owed(hole)) {
        ++open;
      }
    }
    if (open > 0) {
      remark("At the end " + std::to_string(open) +
             " losses were not repaired, but the time allowed for it had not passed.");
    }
  }

  uint32_t session_;
  TimeNs recovery_;
  TimeNs joining_;
  TimeNs now_ = 0;
  TimeNs next_look_ = NEVER;
  TimeNs clock_begins_ = 0;
  std::optional<TimeNs> started_;
  bool asked_ = false;   // the client has asked for gap fill or an image
  bool placed_ = false;  // and got some
  bool over_ = false;
  uint64_t image_seq_ = 0;
  uint64_t start_seq_ = 0;                // the next number, at the least, when the client started
  std::optional<uint64_t> listens_from_;  // what it asked for first, if it has joined by listening
  FeedMap feed_;
  FeedLosses losses_;
  LinkTrouble trouble_;
  std::deque<std::string> requests_;  // the latest
};

}  // namespace

std::unique_ptr<Check> make_feed_recovered(const char* name, const CheckContext& context) {
  return std::make_unique<Recovered>(name, context);
}

}  // namespace certify
