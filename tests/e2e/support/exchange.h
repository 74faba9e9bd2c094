#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "quorl/client/book.h"
#include "quorl/client/control_client.h"
#include "quorl/client/feed_subscriber.h"
#include "quorl/client/fix_session.h"
#include "quorl/client/simulator.h"

namespace client = quorl::client;

namespace e2e {

/// The binary under test on ports of its own, its market alive. `arguments` come last and win.
client::SimulatorOptions living(std::vector<std::string> arguments = {});

/// The same, with a market in which nothing happens after the opening but what clients do.
client::SimulatorOptions still(std::vector<std::string> arguments = {});

/// The end that a simulator comes to when it is asked to stop.
inline constexpr client::ExitStatus STATUS_0{.exited = true, .code = 0, .signal = 0};

/// What the exchange's own stamps are compared with.
uint64_t system_ns();

/// So many symbols that openings and images are large: "S1:50,S2:50,...".
std::string symbols(unsigned count);

/// Prices as the orders of a test name them: to_price4("190.05") is 1900500.
client::Price4 to_price4(const std::string& text);

/// A running simulator with its other ends at hand, and the book as its feed shows it. The loop
/// turns by the time the constructor returns, so a signal finds its handler.
class Exchange {
 public:
  explicit Exchange(client::SimulatorOptions options);

  client::Simulator& simulator() { return simulator_; }
  client::FeedSubscriber& feed() { return feed_; }
  client::ControlClient& control() { return control_; }
  const client::Ports& ports() const { return simulator_.ports(); }

  /// A session that has not connected, and one that has logged on.
  client::FixSession session(const std::string& comp_id) const;
  client::FixSession logs_on(const std::string& comp_id,
                             const client::LogonOptions& options = {}) const;

  /// A barrier: what had been sent to any socket of the exchange has been read and acted upon.
  /// Returns the statistics behind it.
  client::ControlStats turn();

  /// A barrier like turn(), behind which all that has been published has arrived, and the book
  /// shows it.
  const client::BookBuilder& book();
  const client::SymbolBook& book(const std::string& symbol);

  /// A barrier for standard error: every line that has been printed has been collected. Returns
  /// their number; the last of them is a mark of our own.
  size_t settle_lines();

  /// Lines that hold the text, behind such a barrier.
  size_t count_lines(const std::string& text);

  /// A counter of the stats text.
  uint64_t counter(const std::string& name);

  /// Trades away all that rests in the symbol's book. Only clients' orders come to it afterwards,
  /// if the market stands still. Takes order, trade and report numbers.
  void empty_book(const std::string& symbol);

  /// What the feed has published since the last call of this or of empty_book, each message one
  /// line: "T AAPL 300 @ 190.01", "5 AAPL 0 @ 190.01", "8 AAPL 100 @ 190 last".
  std::vector<std::string> news();

 private:
  client::Simulator simulator_;
  client::FeedSubscriber feed_;
  client::ControlClient control_;
  client::BookBuilder book_;
  size_t applied_ = 0;  // messages of the feed that the book has taken
  size_t told_ = 0;     // messages of the feed that news() has told or left out
  unsigned marks_ = 0;  // names those of settle_lines()
};

/// The price of the side's best level; throws if the side is empty.
client::Price4 best_bid(const client::SymbolBook& book);
client::Price4 best_ask(const client::SymbolBook& book);

}  // namespace e2e
