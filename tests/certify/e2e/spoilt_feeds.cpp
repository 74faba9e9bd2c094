// Traders that follow the feed badly. They sit beside a good follower and ask what it would not.
#include <chrono>
#include <cstdlib>
#include <deque>
#include <string>

#include "certify/trader/trader.h"
#include "quorl/client/gap_fill_client.h"
#include "quorl/client/snap_client.h"
#include "tests/certify/e2e/spoilt_habits.h"

namespace certify::trader {
namespace {

namespace client = quorl::client;
using std::chrono::seconds;

uint32_t session_of_feed() {
  const char* const session = std::getenv("QUORL_SESSION");
  return session == nullptr ? 0 : static_cast<uint32_t>(std::stoul(session));
}

client::GapFillClient gap_fill_of(const client::Ports& ports) {
  return {ports.gap_fill, session_of_feed()};
}

/// Takes an image when it comes, and repairs nothing.
class CarelessOfLosses : public Habits {
  std::unique_ptr<MarketView> follow_market(const client::Ports& ports) override {
    (void)client::SnapClient(ports.snap, session_of_feed()).image();
    return std::make_unique<MarketView>();
  }
};

/// Joins by the first ten messages, and does not go on.
class StoppingHalfway : public Habits {
  std::unique_ptr<MarketView> follow_market(const client::Ports& ports) override {
    (void)gap_fill_of(ports).fetch({{1, 10}});
    return std::make_unique<MarketView>();
  }
};

/// Asks something besides once a second, when it has been here for a while.
class AskingBesides : public Habits {
 protected:
  virtual void ask(client::GapFillClient& gap_fill) = 0;

 private:
  void on_turn(Trader& trader, Moment now) override {
    if (next_ == Moment{}) next_ = now + seconds(2);
    if (now < next_) return;
    next_ = now + seconds(1);
    if (!gap_fill_) gap_fill_.emplace(gap_fill_of(trader.options().ports));
    ask(*gap_fill_);
  }
  Moment next_{};
  std::optional<client::GapFillClient> gap_fill_;
};

/// Asks for what came four seconds ago.
class AskingForWhatIsThere : public AskingBesides {
  void ask(client::GapFillClient& gap_fill) override {
    positions_.push_back(gap_fill.status().next_seq);
    if (positions_.size() <= 4) return;
    (void)gap_fill.fetch({{positions_.front(), positions_.front() + 5}});
    positions_.pop_front();
  }
  std::deque<uint64_t> positions_;
};

/// Asks in a version that there is not.
class AskingInBadForm : public AskingBesides {
  void ask(client::GapFillClient& gap_fill) override {
    const client::GapFillRequest request{
        .version = 9, .session_id = gap_fill.session(), .ranges = {{1, 1}}};
    gap_fill.send(client::encode(request));
  }
};

/// Asks for more than an answer holds, far ahead of the feed, so that it is of nothing it has.
class AskingForTooMuch : public AskingBesides {
  void ask(client::GapFillClient& gap_fill) override {
    const uint64_t first = gap_fill.status().next_seq + 10'000'000;
    const client::GapFillRequest request{.session_id = gap_fill.session(),
                                         .ranges = {{first, first + 1000}}};
    gap_fill.send(client::encode(request));
  }
};

}  // namespace

std::vector<Spoilt> spoilt_feeds() {
  return {{"feed.recovered", make_spoilt<CarelessOfLosses>},
          {"feed.only_missing", make_spoilt<AskingForWhatIsThere>},
          {"feed.requests_formed", make_spoilt<AskingInBadForm>},
          {"feed.request_limits", make_spoilt<AskingForTooMuch>},
          {"feed.late_join", make_spoilt<StoppingHalfway>}};
}

}  // namespace certify::trader
