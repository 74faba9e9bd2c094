#include <algorithm>
#include <deque>
#include <optional>

#include "certify/checks/feed_checks.h"
#include "certify/checks/feed_map.h"

namespace certify {
namespace {

constexpr TimeNs BEGINNINGS_WITHIN = 10 * SECOND;

/// A request must not name what the client had had for longer than the grace. What it had is what
/// came by multicast once it had surely joined, and what gap fill brought. An image begins the
/// account anew: whoever takes one has lost its place, or is another process.
class OnlyMissing : public Check {
 public:
  OnlyMissing(const char* name, const CheckContext& context)
      : Check(name),
        session_(context.feed_session),
        grace_(in_ns(context.plan.allow.grace)),
        beginnings_allowed_(context.plan.allow.asks) {}

  void on_event(const Event& event) override {
    if (over_) return;
    now_ = event.at;
    std::visit([this](const auto& what) { take(what); }, event.what);
  }

  void finish(TimeNs) override {}

 private:
  struct Arrival {
    TimeNs at = 0;
    bool by_gap_fill = false;
    quorl::client::TpPacket packet;
  };

  template <typename Other>
  void take(const Other&) {}

  void take(const FeedHeard& heard) {
    if (heard.packet.header.session_id != session_ || !listens_from_) return;
    if (now_ >= *listens_from_) arrive({now_, false, heard.packet});
  }

  void take(const GapReplied& reply) {
    if (reply.packet.messages.empty()) return;
    if (!listens_from_) join();
    arrive({now_, true, reply.packet});
  }

  void take(const ImageReplied& reply) {
    if (!reply.complete) return;
    arrivals_.clear();
    has_.clear();
    join();
  }

  void take(const GapRequested& request) {
    if (!asks_for_messages(request)) return;
    seen();
    // A client that asks from the very beginning has just begun, or has begun again.
    if (request.ranges.front().first <= 1 && may_begin()) {
      arrivals_.clear();
      has_.clear();
      listens_from_.reset();
    }
    take_over_what_is_old();
    for (const auto& range : request.ranges) {
      if (const auto had = has_.certainly_there(range)) {
        blame_for(request, *had);
        return;
      }
    }
  }

  void take(const Closing&) { over_ = true; }

  /// Nobody begins again all the time: that is a client which asks for all there is.
  bool may_begin() {
    if (!listens_from_) return true;  // nothing has come yet
    std::erase_if(beginnings_, [this](TimeNs at) { return at + BEGINNINGS_WITHIN <= now_; });
    if (beginnings_.size() >= beginnings_allowed_) return false;
    beginnings_.push_back(now_);
    return true;
  }

  /// Whoever has just got its place may still have to fill up to where it heard the feed first.
  void join() { listens_from_ = now_ + 2 * grace_; }

  void arrive(Arrival arrival) {
    arrivals_.push_back(std::move(arrival));
    take_over_what_is_old();
  }

  void take_over_what_is_old() {
    while (!arrivals_.empty() && arrivals_.front().at + grace_ <= now_) {
      const Arrival& oldest = arrivals_.front();
      if (oldest.by_gap_fill) {
        has_.filled(oldest.packet, oldest.at);
      } else {
        has_.heard(oldest.packet, oldest.at);
      }
      arrivals_.pop_front();
    }
  }

  void blame_for(const GapRequested& request, const quorl::client::SeqRange& had) {
    blame({.at = now_,
           .what = "Gap fill was asked for " + messages_text(had.first, had.last) +
                   ", which had arrived.",
           .evidence = {time_text(now_) + "  gap fill asked for " + ranges_text(request.ranges),
                        time_text(now_ - grace_) +
                            "  and earlier: " + messages_text(had.first, had.last) +
                            " came, by multicast or by gap fill"}});
  }

  uint32_t session_;
  TimeNs grace_;
  TimeNs now_ = 0;
  bool over_ = false;
  unsigned beginnings_allowed_;         // within BEGINNINGS_WITHIN
  std::deque<TimeNs> beginnings_;       // those of a client that had its place
  std::optional<TimeNs> listens_from_;  // what multicast brings counts from then on
  std::deque<Arrival> arrivals_;        // within the grace
  FeedMap has_;                         // before it
};

}  // namespace

std::unique_ptr<Check> make_feed_only_missing(const char* name, const CheckContext& context) {
  return std::make_unique<OnlyMissing>(name, context);
}

}  // namespace certify
