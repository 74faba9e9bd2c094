// How a stage comes to stand.
#include <filesystem>
#include <system_error>

#include "certify/run/stage.h"
#include "quorl/client/errors.h"

namespace client = quorl::client;

namespace certify {
namespace {

constexpr unsigned MOST_STARTS = 5;
constexpr TimeNs START_PATIENCE = 30 * SECOND;
constexpr int LOOK_MS = 20;

}  // namespace

void Stage::open(int stop) {
  std::error_code failed;
  std::filesystem::create_directory(folder_.file("truth"), failed);
  if (failed) throw RunBroken("cannot make " + folder_.file("truth") + ": " + failed.message());
  for (unsigned i = 0; !start_exchange(stop); ++i) {
    if (i == MOST_STARTS) throw RunBroken("the exchange's ports are taken, whichever are chosen");
    spoilt_.push_back(std::move(exchange_));
  }
  const client::Ports& ports = exchange_->ports();
  control_ = std::make_unique<ControlLink>(ports.control);
  tail_ = std::make_unique<EventTail>(folder_.file("truth/orders.jsonl"));
  reader_ = std::make_unique<WireReader>(*this, session_);
  taps_ = std::make_unique<Taps>(
      ServicePorts{.fix = ports.fix, .images = ports.snap, .gap_fill = ports.gap_fill},
      options_.ports, *reader_, seed_of(options_));
}

/// False if a port was taken meanwhile. The ear is there before the first packet; what it hears
/// waits until the session is known.
bool Stage::start_exchange(int stop) {
  exchange_ = std::make_unique<ExchangeProcess>(
      ExchangeProcess::Command{.program = options_.exchange,
                               .market = market_of(options_),
                               .scenario = options_.plan.scenario,
                               .folder = folder_.path()});
  const client::Ports& ports = exchange_->ports();
  ear_ = std::make_unique<FeedEar>(ports.group, ports.feed);
  exchange_->start();
  const TimeNs deadline = now_ns() + START_PATIENCE;
  std::string said;
  while (now_ns() < deadline) {
    pollfd set[] = {{stop, POLLIN, 0}, {exchange_->fd(), POLLIN, 0}};
    ::poll(set, 2, LOOK_MS);
    if (set[0].revents != 0) throw RunBroken("stopped before it began");
    for (const std::string& line : exchange_->take_lines()) {
      if (tells_of_taken_port(line)) return false;
      tell(now_ns(), ExchangeSaid{line});
      said += "; " + line;
      const auto session = session_in(line);
      if (tells_that_it_serves(line) && session) {
        session_ = *session;
        return true;
      }
    }
    if (const auto end = exchange_->poll_exit(); end && exchange_->fd() < 0) {
      throw RunBroken("the exchange did not start (" + end->describe() + ")" + said);
    }
  }
  throw RunBroken("the exchange does not serve within 30 s" + said);
}

}  // namespace certify
