// Traders that do not recover, and traders that believe what is not so.
#include <chrono>
#include <string>

#include "certify/trader/trader.h"
#include "tests/certify/e2e/spoilt_habits.h"

namespace certify::trader {
namespace {

/// Never comes back from a drop.
class StayingAway : public Habits {
  Milliseconds pause_before_connecting(Milliseconds) override { return std::chrono::hours(1); }
};

/// Sits through any silence.
class PatientInSilence : public Habits {
  bool tests_silent_line() override { return false; }
  bool drops_silent_line() override { return false; }
};

/// Its first order has a share more than it was told.
class BadPositions : public Habits {
  void before_positions(std::string& text) override {
    const size_t line = text.find('\n') + 1;
    const size_t state = text.find(',', line);
    const size_t cum = text.find(',', state + 1);
    if (line == 0 || cum == std::string::npos) return;
    text.insert(cum + 1, "1");
  }
};

/// It forgets an event.
class BadEvents : public Habits {
  void before_events(std::string& text) override {
    if (forgotten_ || text.empty()) return;
    forgotten_ = true;
    text.erase(0, text.find('\n') + 1);
  }
  bool forgotten_ = false;
};

/// Its best bid has more shares than the exchange shows.
class BadBook : public Habits {
  void before_book(std::string& text) override {
    const size_t size = text.find(',', text.find("[[")) + 1;
    if (size != 0) text.insert(size, "1");
  }
};

}  // namespace

std::vector<Spoilt> spoilt_recovery() {
  return {{"recovery.reports", make_spoilt<StayingAway>},
          {"recovery.lapse", make_spoilt<PatientInSilence>},
          {"belief.positions", make_spoilt<BadPositions>},
          {"belief.events", make_spoilt<BadEvents>},
          {"belief.book", make_spoilt<BadBook>}};
}

}  // namespace certify::trader
