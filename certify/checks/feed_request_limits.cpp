#include <map>

#include "certify/checks/feed_checks.h"
#include "certify/checks/link_trouble.h"

namespace certify {
namespace {

constexpr uint64_t MOST_MESSAGES = 1000;
// Different beginnings that are remembered as unanswered; a client that asks for more at a time is
// not followed in all.
constexpr size_t MOST_FOLLOWED = 1000;

/// How many messages a request names, at most just above the limit: hostile ranges do not overflow.
uint64_t messages_in(const GapRequested& request) {
  uint64_t sum = 0;
  for (const auto& range : request.ranges) {
    if (range.last < range.first) continue;
    const uint64_t most = range.last - range.first;
    if (most >= MOST_MESSAGES || sum > MOST_MESSAGES) return MOST_MESSAGES + 1;
    sum += most + 1;
  }
  return sum;
}

/// Size of requests, and asking for the same again and again though no answer comes.
class RequestLimits : public Check {
 public:
  RequestLimits(const char* name, const CheckContext& context)
      : Check(name), asks_(context.plan.allow.asks), grace_(in_ns(context.plan.allow.grace)) {}

  void on_event(const Event& event) override {
    if (over_) return;
    now_ = event.at;
    std::visit([this](const auto& what) { take(what); }, event.what);
  }

  void finish(TimeNs) override {}

 private:
  struct Asked {
    TimeNs first = 0;
    uint64_t count = 0;
    bool blamed = false;
  };

  template <typename Other>
  void take(const Other&) {}

  void take(const GapRequested& request) {
    if (request.ranges.empty()) return;
    const bool too_many = request.ranges.size() > MOST_RANGES;
    if (!request.well_formed && !too_many) return;  // feed.requests_formed's matter
    seen();
    if (too_many) {
      blame_for(request, "A request for gap fill has " + std::to_string(request.ranges.size()) +
                             " ranges; 127 are read.");
    } else if (messages_in(request) > MOST_MESSAGES) {
      blame_for(request,
                "A request for gap fill names more than 1000 messages, and one request "
                "brings no more.");
    } else {
      count(request);
    }
  }

  /// A request counts with its first number, which moves on with every answer.
  void count(const GapRequested& request) {
    if (trouble_.lasts()) return;
    if (asked_.size() >= MOST_FOLLOWED) asked_.clear();
    Asked& asked = asked_[request.ranges.front().first];
    if (asked.count == 0) asked.first = now_;
    ++asked.count;
    // The exchange answers in its own time: some hasty ones are no endless asking.
    if (asked.blamed || asked.count <= asks_ || now_ - asked.first < grace_) return;
    asked.blamed = true;
    blame({.at = now_,
           .what = "The same messages were asked for " + std::to_string(asked.count) +
                   " times, though nothing came; " + std::to_string(asks_) + " are allowed.",
           .evidence = {time_text(asked.first) + "  asked for the first time",
                        time_text(now_) + "  gap fill asked for " + ranges_text(request.ranges)}});
  }

  void take(const GapReplied& reply) {
    const uint64_t first = reply.packet.header.first_seq;
    asked_.erase(asked_.lower_bound(first),
                 asked_.lower_bound(first + reply.packet.messages.size()));
  }

  void take(const LinkSaid& said) {
    if (trouble_.take(said)) asked_.clear();
  }

  void take(const Closing&) { over_ = true; }

  void blame_for(const GapRequested& request, std::string what) {
    blame({.at = now_,
           .what = std::move(what),
           .evidence = {time_text(now_) + "  gap fill asked for " + ranges_text(request.ranges)}});
  }

  uint64_t asks_;
  TimeNs grace_;
  TimeNs now_ = 0;
  bool over_ = false;
  LinkTrouble trouble_;
  std::map<uint64_t, Asked> asked_;  // without an answer, by the first number asked for
};

}  // namespace

std::unique_ptr<Check> make_feed_request_limits(const char* name, const CheckContext& context) {
  return std::make_unique<RequestLimits>(name, context);
}

}  // namespace certify
