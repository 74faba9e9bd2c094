#include <algorithm>
#include <deque>
#include <map>
#include <optional>

#include "certify/checks/feed_checks.h"
#include "certify/checks/feed_map.h"
#include "certify/checks/link_trouble.h"

namespace certify {
namespace {

constexpr TimeNs STORM_WINDOW = 10 * SECOND;
constexpr size_t ATTEMPTS_SHOWN = 4;
constexpr size_t MOST_AHEAD = 1000;

/// How far a client has come that joins by gap fill: replies can overtake each other.
class Reach {
 public:
  void begin(uint64_t first) { next_ = first; }
  /// Returns whether it has come further.
  bool add(uint64_t first, uint64_t end) {
    const uint64_t before = next_;
    if (ahead_.size() < MOST_AHEAD) ahead_[first] = std::max(ahead_[first], end);
    while (!ahead_.empty() && ahead_.begin()->first <= next_) {
      next_ = std::max(next_, ahead_.begin()->second);
      ahead_.erase(ahead_.begin());
    }
    return next_ > before;
  }
  uint64_t next() const { return next_; }

 private:
  uint64_t next_ = 1;
  std::map<uint64_t, uint64_t> ahead_;  // first and end of what lies behind a hole
};

/// A client that asks for what was sent before it started must end up with a place in the feed: an
/// image, or all messages from those it began with up to its start. Requests that are wrong in
/// themselves are the matter of feed.requests_formed and feed.request_limits; what is lost later
/// that of feed.recovered.
class LateJoin : public Check {
 public:
  LateJoin(const char* name, const CheckContext& context)
      : Check(name),
        session_(context.feed_session),
        recovery_(in_ns(context.plan.allow.recovery)),
        most_images_(context.plan.allow.connects) {}

  void on_event(const Event& event) override {
    if (over_) return;
    now_ = event.at;
    blame_if_given_up();
    std::visit([this](const auto& what) { take(what); }, event.what);
  }

  void finish(TimeNs at) override {
    if (!over_) close(at);
  }

 private:
  template <typename Other>
  void take(const Other&) {}

  void take(const FeedHeard& heard) {
    const auto& header = heard.packet.header;
    if (header.session_id != session_) return;
    know_next(header.first_seq + header.message_count);
    // Announced one too high, it would make a client that has all look one message short.
    const uint64_t certain = header.first_seq + header.message_count;
    sent_ = std::max(sent_, heard.packet.is_heartbeat() ? certain : certain - 1);
  }

  void take(const ClientStarted&) {
    if (!sent_before_) sent_before_ = sent_;
  }

  void take(const GapRequested& request) {
    if (request.ranges.empty()) return;
    if (!asks_for_messages(request)) return try_wrongly();
    const uint64_t first = request.ranges.front().first;
    if (!joining_) {
      // Who begins behind the start repairs a loss, and has joined by listening.
      if (first >= sent_before_.value_or(0)) placed_ = true;
      reach_.begin(first);
    }
    attempt("gap fill asked for " + ranges_text(request.ranges));
  }

  void take(const GapReplied& reply) {
    know_next(reply.packet.header.first_seq + reply.packet.messages.size());
    if (placed_ || !joining_ || reply.packet.messages.empty()) return;
    const uint64_t first = reply.packet.header.first_seq;
    if (!reach_.add(first, first + reply.packet.messages.size())) return;
    last_try_ = now_;
    if (reach_.next() >= sent_before_.value_or(0)) placed_ = true;
  }

  void take(const ImageRequested& request) {
    if (!request.well_formed) return try_wrongly();
    minimum_ = request.minimum_seq;
    attempt("image asked for at " + std::to_string(request.minimum_seq) + " or later");
  }

  void take(const ImageReplied& reply) {
    if (reply.complete) {
      know_next(reply.seq + 1);
      placed_ = true;
      count_image();
      return;
    }
    last_try_ = now_;
    note(reply.error == 0 ? "image broken off" : std::string("image refused: ") + reply.error);
    if (reply.error == 'R' && minimum_ > next_ + 1) blame_for_minimum();
  }

  void take(const FeedFault& fault) {
    if (fault.kind != FeedFault::Kind::DOUBLED) images_.clear();
  }

  void take(const LinkSaid& said) {
    if (!trouble_.take(said)) return;
    last_try_ = now_;
    images_.clear();
  }

  void take(const Closing&) { close(now_); }
  void take(const ClientEnded&) { close(now_); }

  void know_next(uint64_t number) { next_ = std::max(next_, number); }

  void attempt(const std::string& what) {
    if (!joining_) {
      joining_ = true;
      if (!placed_) seen();
    }
    wrong_ = false;
    last_try_ = now_;
    if (!placed_) note(what);
  }

  void try_wrongly() { wrong_ = true; }

  void note(const std::string& what) {
    attempts_.push_back(time_text(now_) + "  " + what);
    if (attempts_.size() > ATTEMPTS_SHOWN) attempts_.pop_front();
  }

  void blame_if_given_up() {
    if (placed_ || !joining_ || wrong_ || blamed_ || trouble_.lasts()) return;
    if (now_ - last_try_ < recovery_) return;
    blamed_ = true;
    Fault fault{.at = last_try_,
                .what =
                    "The client joined the running feed, never got a place in it, and has not "
                    "asked again for " +
                    std::to_string((now_ - last_try_) / MILLISECOND) + " ms.",
                .evidence = {attempts_.begin(), attempts_.end()}};
    if (reach_.next() > 1) {
      fault.evidence.push_back("Gap fill had brought it to " + std::to_string(reach_.next() - 1) +
                               "; when it started, the feed had come to " +
                               std::to_string(sent_before_.value_or(1) - 1) + " at least.");
    }
    blame(std::move(fault));
  }

  void blame_for_minimum() {
    blame({.at = now_,
           .what = "An image was asked for at a number far ahead of the feed, where none can be.",
           .evidence = {time_text(now_) + "  asked for at " + std::to_string(minimum_) +
                        " or later, refused: R; the next number is " + std::to_string(next_)}});
  }

  /// Images stand in for what was lost. Taken one after the other without any loss, they stand in
  /// for following the feed.
  void count_image() {
    images_.push_back(now_);
    while (images_.front() + STORM_WINDOW < now_) images_.pop_front();
    if (images_.size() <= most_images_) return;
    blame({.at = now_,
           .what = std::to_string(images_.size()) +
                   " images were taken one after the other though nothing was lost: the client "
                   "does not follow the feed.",
           .evidence = {time_text(images_.front()) + "  the first of them",
                        time_text(now_) + "  the last"}});
    images_.clear();
  }

  void close(TimeNs at) {
    now_ = at;
    blame_if_given_up();
    over_ = true;
    if (joining_ && !placed_ && !blamed_ && !wrong_) {
      remark("The client had no place in the feed yet when the run ended.");
    }
  }

  uint32_t session_;
  TimeNs recovery_;
  size_t most_images_;
  TimeNs now_ = 0;
  TimeNs last_try_ = 0;
  bool over_ = false;
  bool joining_ = false;  // it has asked for something
  bool placed_ = false;
  bool wrong_ = false;  // its latest request was malformed
  bool blamed_ = false;
  uint64_t sent_ = 0;                    // the next number, at the least
  uint64_t next_ = 0;                    // the next number, at the most
  uint64_t minimum_ = 0;                 // of the latest image asked for
  std::optional<uint64_t> sent_before_;  // sent_ when the client started
  Reach reach_;
  LinkTrouble trouble_;
  std::deque<TimeNs> images_;  // within the window, without a loss between them
  std::deque<std::string> attempts_;
};

}  // namespace

std::unique_ptr<Check> make_feed_late_join(const char* name, const CheckContext& context) {
  return std::make_unique<LateJoin>(name, context);
}

}  // namespace certify
