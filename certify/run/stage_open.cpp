// How a stage comes to stand.
#include <utility>

#include "certify/run/stage.h"

namespace client = quorl::client;

namespace certify {

// The ear is there before the first packet; what it hears waits until the session is known.
void Stage::open(int stop) {
  ServingExchange serving = serve_exchange(
      {.program = options_.exchange,
       .market = market_of(options_),
       .scenario = options_.plan.scenario,
       .folder = folder_.path(),
       .group = options_.group,
       .feed_port = options_.feed_port},
      stop,
      [this](const client::Ports& ports) {
        ear_ = std::make_unique<FeedEar>(ports.group, ports.feed);
      },
      [this](const std::string& line) { tell(now_ns(), ExchangeSaid{line}); });
  exchange_ = std::move(serving.process);
  session_ = serving.session;
  const client::Ports& ports = exchange_->ports();
  control_ = std::make_unique<ControlLink>(ports.control);
  tail_ = std::make_unique<EventTail>(folder_.file("truth/orders.jsonl"));
  EventListener& listener = *this;
  reader_ = std::make_unique<WireReader>(listener, session_);
  tee_ = std::make_unique<TapTee>(*reader_);
  taps_ = std::make_unique<Taps>(
      ServicePorts{.fix = ports.fix, .images = ports.snap, .gap_fill = ports.gap_fill},
      options_.ports, *tee_, seed_of(options_));
}

void Stage::record_with(Recorder& recorder) {
  recorder_ = &recorder;
  tee_->set_first(recorder);
}

}  // namespace certify
