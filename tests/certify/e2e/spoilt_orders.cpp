// Traders with one bad habit of their orders.
#include <chrono>
#include <set>
#include <string>
#include <utility>

#include "certify/trader/trader.h"
#include "tests/certify/e2e/spoilt_habits.h"

namespace certify::trader {
namespace {

namespace client = quorl::client;
using std::chrono::milliseconds;
using std::chrono::seconds;

/// What the check allows for a report to be read, and more.
constexpr Milliseconds LONG_KNOWN{1500};

/// Quantities with an exponent, which this exchange happens to read.
class BadTags : public Habits {
  void before_send(client::FixHeader& header, client::FixFields& body) override {
    if (header.type != "D") return;
    for (client::FixField& field : body) {
      if (field.tag == 38 && field.value == "100") field.value = "1e2";
    }
  }
};

/// Each fifth order goes out under the name of one that is live.
class NamesAgain : public Habits {
  void on_turn(Trader& trader, Moment) override {
    live_.clear();
    for (const Order* order : trader.desk().open()) {
      if (order->state == Order::State::LIVE && !order->request) live_ = order->name;
    }
  }
  void before_send(client::FixHeader& header, client::FixFields& body) override {
    if (header.type != "D" || ++orders_ % 5 != 0 || live_.empty()) return;
    for (client::FixField& field : body) {
      if (field.tag == 11) field.value = live_;
    }
  }
  std::string live_;
  unsigned orders_ = 0;
};

/// Does something of its own now and then, while it may trade.
class NowAndThen : public Habits {
 protected:
  explicit NowAndThen(Milliseconds period) : period_(period) {}
  virtual void act(Trader& trader, Moment now) = 0;

 private:
  void on_turn(Trader& trader, Moment now) override {
    if (!trader.session().ready() || now < next_) return;
    next_ = now + period_;
    act(trader, now);
  }
  Milliseconds period_;
  Moment next_{};
};

/// Cancels orders that have never been.
class NamingNobody : public NowAndThen {
 public:
  NamingNobody() : NowAndThen(seconds(1)) {}

 private:
  void act(Trader& trader, Moment now) override {
    const std::string name = trader.strategy().fresh_name();
    trader.session().send("F", {{41, "nobody"}, {11, name}, {55, "AAPL"}, {54, "1"}}, now);
  }
};

/// Cancels once more what has been filled or cancelled.
class TouchingClosed : public NowAndThen {
 public:
  TouchingClosed() : NowAndThen(milliseconds(500)) {}

 private:
  void act(Trader& trader, Moment now) override {
    for (const Order& order : trader.desk().orders()) {
      const bool closed =
          order.state == Order::State::FILLED || order.state == Order::State::CANCELLED;
      if (!closed || touched_.contains(order.name)) continue;
      if (!closed_at_.try_emplace(order.name, now).second &&
          now - closed_at_[order.name] >= LONG_KNOWN) {
        touched_.insert(order.name);
        const std::string name = trader.strategy().fresh_name();
        trader.session().send(
            "F", {{41, order.name}, {11, name}, {55, order.symbol}, {54, {order.side}}}, now);
        return;
      }
    }
  }
  std::map<std::string, Moment> closed_at_;
  std::set<std::string> touched_;
};

/// Replaces an order for no more than what it knows to be filled. So that there is one, it buys
/// more than there is to be had.
class ReplacingBelow : public NowAndThen {
 public:
  ReplacingBelow() : NowAndThen(milliseconds(100)) {}

 private:
  void act(Trader& trader, Moment now) override {
    const client::Price4 last = trader.desk().last_price("AAPL");
    if (!bought_ && last != 0) {
      bought_ = true;
      trader.strategy().send({.name = trader.strategy().fresh_name(),
                              .symbol = "AAPL",
                              .quantity = 100000,
                              .price = last + 300,
                              .sent = now,
                              .touch_at = now + seconds(60)},
                             now);
    }
    for (Order* order : trader.desk().open()) {
      if (order->state != Order::State::LIVE || order->request || order->cum == 0) continue;
      const auto [known, is_new] = known_.try_emplace(order->name, Known{order->cum, now});
      order->touch_at = now + seconds(60);  // nobody else is to come first
      if (is_new || now - known->second.at < LONG_KNOWN) continue;
      known->second.at = now + seconds(60);  // once
      trader.strategy().replace(*order, known->second.cum, order->price, now);
      return;
    }
  }
  struct Known {
    uint32_t cum = 0;
    Moment at{};
  };
  std::map<std::string, Known> known_;
  bool bought_ = false;
};

/// Trades on right behind its Logon, whether that is accepted or not.
/// Both leave together, so that the answer cannot come in between.
class TradingWhileDown : public Habits {
  void before_bytes(std::string& bytes) override {
    if (sent_ && logon_.empty()) return;
    bytes.insert(0, std::exchange(logon_, ""));
    if (!sent_) logon_ = std::exchange(bytes, "");
  }
  void on_turn(Trader& trader, Moment now) override {
    if (!trader.session().logging_on() || sent_) return;
    sent_ = true;
    trader.strategy().send({.name = trader.strategy().fresh_name(),
                            .symbol = "AAPL",
                            .quantity = 100,
                            .sent = now,
                            .touch_at = now + seconds(60)},
                           now);
  }
  bool sent_ = false;
  std::string logon_;  // held back
};

/// Sends what was refused again as it was, under a new name.
class Stubborn : public Habits {
  void on_turn(Trader& trader, Moment now) override {
    if (!trader.session().ready()) return;
    for (size_t i = seen_; i < trader.desk().orders().size(); ++i) {
      const Order& order = trader.desk().orders()[i];
      if (order.state == Order::State::SENT) return;  // in its turn
      seen_ = i + 1;
      if (order.state != Order::State::REJECTED) continue;
      Order again = order;
      again.name = trader.strategy().fresh_name();
      again.state = Order::State::SENT;
      again.place = {};
      again.sent = now;
      trader.strategy().send(again, now);
      return;
    }
  }
  size_t seen_ = 0;
};

}  // namespace

std::vector<Spoilt> spoilt_orders() {
  return {{"orders.tags", make_spoilt<BadTags>},
          {"orders.names_unique", make_spoilt<NamesAgain>},
          {"orders.names_live", make_spoilt<NamingNobody>},
          {"orders.closed_left_alone", make_spoilt<TouchingClosed>},
          {"orders.replace_above_filled", make_spoilt<ReplacingBelow>},
          {"orders.session_up", make_spoilt<TradingWhileDown>},
          {"orders.no_blind_repetition", make_spoilt<Stubborn>}};
}

}  // namespace certify::trader
