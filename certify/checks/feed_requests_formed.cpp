#include <map>
#include <optional>

#include "certify/checks/feed_checks.h"

namespace certify {
namespace {

// 'R' asks for patience. Who asks again sooner than this has shown none.
constexpr TimeNs PATIENCE_WITH_R = 50 * MILLISECOND;

/// What the exchange refuses for its form, by what it was, not by the silence that answers it.
class RequestsFormed : public Check {
 public:
  RequestsFormed(const char* name, const CheckContext& context)
      : Check(name), grace_(in_ns(context.plan.allow.grace)) {}

  void on_event(const Event& event) override {
    if (over_) return;
    now_ = event.at;
    std::visit([this](const auto& what) { take(what); }, event.what);
  }

  void finish(TimeNs) override {}

 private:
  struct Request {
    TimeNs at = 0;
    uint64_t minimum = 0;
    bool well_formed = false;
    bool hasty = false;  // right behind an 'R'
  };

  template <typename Other>
  void take(const Other&) {}

  void take(const GapRequested& request) {
    if (request.ranges.size() > MOST_RANGES) return;  // feed.request_limits' matter
    seen();
    if (request.well_formed) return;
    blame({.at = now_,
           .what = "A request for gap fill is one that the exchange does not answer: " +
                   request.flaw + ".",
           .evidence = {time_text(now_) + "  gap fill " + std::to_string(request.line) + ": " +
                        request.flaw}});
  }

  void take(const ImageRequested& request) {
    seen();
    const bool hasty = refused_at_ && now_ - *refused_at_ < PATIENCE_WITH_R;
    requests_[request.connection] = {now_, request.minimum_seq, request.well_formed, hasty};
    if (request.well_formed) return;
    blame({.at = now_,
           .what = "A request for an image is one that the exchange refuses: " + request.flaw + ".",
           .evidence = {time_text(now_) + "  image " + std::to_string(request.connection) + ": " +
                        request.flaw}});
  }

  void take(const ImageReplied& reply) {
    const auto found = requests_.find(reply.connection);
    const Request request = found == requests_.end() ? Request{} : found->second;
    if (found != requests_.end()) requests_.erase(found);
    if (!request.well_formed) return;  // has been blamed
    if (reply.error == 'R') return on_too_early(reply, request);
    if (reply.error != 0) return on_refused(reply, request);
    if (reply.client_left && now_ - request.at < grace_) on_left(reply, request);
  }

  void on_too_early(const ImageReplied& reply, const Request& request) {
    if (request.hasty) {
      blame({.at = now_,
             .what = "An image was refused for now ('R'), and asked for again at once.",
             .evidence = {time_text(refused_at_.value_or(0)) + "  refused: R, ask again later",
                          requested_text(reply, request),
                          time_text(now_) + "  refused: R once more"}});
    }
    refused_at_ = now_;
  }

  void on_refused(const ImageReplied& reply, const Request& request) {
    blame({.at = now_,
           .what = std::string("A request for an image was refused: ") + reply.error + ".",
           .evidence = {requested_text(reply, request),
                        time_text(now_) + "  refused: " + reply.error}});
  }

  void on_left(const ImageReplied& reply, const Request& request) {
    blame({.at = now_,
           .what = "The client ended its side of the connection before the image had come, which "
                   "makes the exchange close it without an answer.",
           .evidence = {requested_text(reply, request), time_text(now_) + "  no answer"}});
  }

  static std::string requested_text(const ImageReplied& reply, const Request& request) {
    return time_text(request.at) + "  image " + std::to_string(reply.connection) +
           ": asked for at " + std::to_string(request.minimum) + " or later";
  }

  void take(const Closing&) { over_ = true; }

  TimeNs grace_;
  TimeNs now_ = 0;
  bool over_ = false;
  std::optional<TimeNs> refused_at_;      // with 'R'
  std::map<uint32_t, Request> requests_;  // by connection, up to the reply
};

}  // namespace

std::unique_ptr<Check> make_feed_requests_formed(const char* name, const CheckContext& context) {
  return std::make_unique<RequestsFormed>(name, context);
}

}  // namespace certify
