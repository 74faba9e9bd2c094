#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>

#include "certify/trader/belief.h"
#include "certify/trader/habits.h"
#include "certify/trader/market_view.h"
#include "certify/trader/order_desk.h"
#include "certify/trader/session.h"
#include "certify/trader/strategy.h"
#include "quorl/client/port_slot.h"
#include "quorl/client/tcp.h"
#include "tools/stop_signal.h"

namespace certify::trader {

struct TraderOptions {
  SessionOptions session;
  StrategyOptions strategy;
  BeliefFiles belief;
  std::string host = "127.0.0.1";
  quorl::client::Ports ports;  // control is not used
  bool feed = true;
  std::optional<std::chrono::milliseconds> time;  // to run; nothing: until a signal
};

/// A whole trader: session, orders, market and belief around one poll loop.
class Trader : private SessionOwner {
 public:
  /// `habits` and `stop` must live as long.
  Trader(TraderOptions options, Habits& habits, const tools::StopSignal& stop);

  /// Until the signal, its time, or its last order. What rests stays at rest; it logs out. Returns
  /// false if the exchange never accepted a Logon.
  bool run();

  // For habits.
  Session& session() { return session_; }
  OrderDesk& desk() { return desk_; }
  Strategy& strategy() { return strategy_; }
  const TraderOptions& options() const { return options_; }
  /// Closes the connection.
  void drop() { on_hang_up(); }

 private:
  void on_bytes_to_send(std::string_view bytes) override;
  void on_hang_up() override { hung_up_ = true; }
  void on_report(const quorl::client::FixMessage& message, ReportPlace place) override;
  void on_remark(const std::string& remark) override;

  void turn();
  void connect(Moment now);
  void receive(Moment now);
  void close_if_hung_up(Moment now);
  void trade(Moment now);
  void write_belief(Moment now);
  void wait(Moment now);
  bool wants_to_leave(Moment now) const;

  TraderOptions options_;
  Habits& habits_;
  const tools::StopSignal& stop_;
  Session session_;
  OrderDesk desk_;
  Strategy strategy_;
  Belief belief_;
  std::unique_ptr<MarketView> market_;
  quorl::client::TcpStream stream_;
  bool hung_up_ = false;            // the connection is to be closed
  std::optional<Moment> leave_by_;  // it is ending: it trades no more
  Moment began_;
  Moment belief_at_{};
};

}  // namespace certify::trader
