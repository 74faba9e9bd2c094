#include "certify/run/stage.h"

#include <algorithm>
#include <utility>

#include "certify/run/feed_fault.h"
#include "quorl/client/errors.h"
#include "quorl/client/iex_tp.h"

namespace client = quorl::client;

namespace certify {
namespace {

constexpr TimeNs BETWEEN_COUNTS = 20 * MILLISECOND;
// An exchange waits for nobody but an image's reader who does not read; this long the client under
// test may hold it up.
constexpr TimeNs ANSWER_PATIENCE = 30 * SECOND;

}  // namespace

Stage::Stage(const RunOptions& options, const RunFolder& folder, EventListener& listener)
    : options_(options), folder_(folder), listener_(listener) {}

void Stage::tell(TimeNs at, EventKind what) { listener_.on_event({at, std::move(what)}); }

Surroundings Stage::surroundings() const {
  return {.ports = taps_->ports(),
          .group = exchange_->ports().group,
          .feed_port = exchange_->ports().feed,
          .control_port = exchange_->ports().control,
          .session = session_,
          .symbols = symbols_of(options_.plan.market),
          .folder = folder_.path(),
          .plan = options_.plan.name};
}

void Stage::collect(std::vector<pollfd>& set) const {
  taps_->collect(set);
  set.push_back({ear_->fd(), POLLIN, 0});
  set.push_back({control_->fd(), POLLIN, 0});
  if (intruder_) set.push_back({intruder_->fd(), POLLIN, 0});
  exchange_->collect(set);
}

// The feed first: of it alone anything is lost that waits too long.
void Stage::serve(TimeNs now) {
  ear_->take([this](client::ByteView packet) { hear(packet); });
  hear_exchange(now);
  taps_->serve(now);
  take_decisions();
  take_replies(now);
  if (intruder_ && intruder_->gone(now)) intruder_.reset();
}

void Stage::hear(client::ByteView packet) {
  const TimeNs at = now_ns();
  try {
    FeedHeard heard{client::decode_tp_packet(packet, session_)};
    if (recorder_ != nullptr) recorder_->on_feed(packet, at);
    tell(at, std::move(heard));
  } catch (const client::WireError&) {
    // Not of this exchange: whatever else a machine sends to the group.
  }
}

void Stage::hear_exchange(TimeNs now) {
  for (std::string& line : exchange_->take_lines()) {
    if (const auto fault = feed_fault_in(line)) tell(now, *fault);
    tell(now, ExchangeSaid{std::move(line)});
  }
  if (!exchange_end_) exchange_end_ = exchange_->poll_exit();
  if (exchange_end_) control_->give_up();
}

void Stage::take_replies(TimeNs now) {
  for (ControlLink::Reply& reply : control_->take(now)) {
    if (reply.command != "stats") {
      tell(now, Commanded{std::move(reply.command), std::move(reply.text)});
    } else if (auto counters = counters_in(reply.text)) {
      counters_ = std::move(*counters);
      ++times_counted_;
      tell(now, Counted{counters_});
    }
  }
  if (exchange_end_) return;
  does_not_answer_ = control_->waits_since(now) > ANSWER_PATIENCE;
  if (control_->idle() && now - asked_at_ >= BETWEEN_COUNTS) {
    asked_at_ = now;
    control_->send("stats", now);
  }
}

void Stage::take_decisions() {
  for (client::OrderEvent& order : tail_->take()) {
    const auto at = static_cast<TimeNs>(order.t_ns);
    tell(at, Decision{std::move(order)});
  }
}

void Stage::command(const std::string& text, TimeNs now) {
  if (exchange_end_) return;
  told_to_stop_ = told_to_stop_ || text == "stop";
  control_->send(text, now);
}

bool Stage::acknowledged() const { return control_->idle() && !intruder_; }

void Stage::on_event(const Event& event) {
  const auto* const heard = std::get_if<FixHeard>(&event.what);
  if (heard != nullptr && heard->from == Party::CLIENT) {
    const std::optional<uint64_t> seq = heard->message.number(34);
    if (heard->message.type() == "A") comp_id_ = heard->message.value(49);
    if (seq && heard->message.value(49) == comp_id_) next_seq_ = *seq + 1;
  }
  listener_.on_event(event);
}

void Stage::intrude(uint64_t ahead, TimeNs now) {
  if (exchange_end_ || comp_id_.empty()) return;
  intruder_ = std::make_unique<Intruder>(exchange_->ports().fix, comp_id_, next_seq_ + ahead, now);
}

std::string Stage::trouble() const {
  if (exchange_end_ && !told_to_stop_) {
    return "the exchange ended by itself: " + exchange_end_->describe();
  }
  return does_not_answer_ ? "the exchange does not answer at its control port" : "";
}

void Stage::ask_exchange_to_end() {
  told_to_stop_ = true;
  exchange_->ask_to_end();
}

void Stage::kill_exchange() { exchange_->kill(); }

}  // namespace certify
