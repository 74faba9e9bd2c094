#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace quorl {

struct FaultPlan;

/// The parsed command line. Complete before anything is opened; afterwards only `interval_ms`
/// changes, by the control command "rate".
struct RunConfig {
  std::string mcast = "233.54.26.111";  // multicast group of the feed
  std::string iface = "127.0.0.1";      // address of the interface the feed sends from
  std::string symbols = "AAPL:190.00,MSFT:410.00,SPY:520.00";  // listed, with opening prices
  std::string book_out;                                        // empty means none
  std::string bbo_out;                                         // empty means none
  std::string truth_out;                                       // empty means none
  std::string drop_burst;      // FROM:LEN of a burst of dropped packets; empty means none
  uint16_t port = 25477;       // UDP, the feed
  uint16_t snap_port = 25479;  // TCP, DEEP SNAP
  uint16_t gapfill_port = 0;   // UDP; 0 takes the number of snap_port once all options are read
  uint16_t fix_port = 28500;   // TCP
  uint16_t control_port = 0;   // UDP on 127.0.0.1; 0 means no control port
  uint32_t session = 0;        // IEX-TP session id; by default the clock's seconds, low 31 bits
  int32_t interval_ms = 40;    // period of the price walk; 0 is every turn, negative is never
  double step_bps = 0.8;       // standard deviation of one walk step, in basis points
  double touch_hit = 0.15;     // probability per symbol and tick
  uint32_t seed = 42;          // of the one random source
  uint32_t drop_every = 0;     // drop each Nth packet; 0 is off
  uint32_t dup_every = 0;      // send each Nth packet twice; 0 is off
  uint32_t reorder_every = 0;  // hold back each Nth packet; 0 is off
  bool quiet = false;          // suppresses two log lines and nothing else
};

/// The session id of a run that names none: the system clock's seconds, low 31 bits.
uint32_t default_session(uint64_t now_ns);

/// Reads the arguments behind the program's name into `config` and resolves the gap-fill port.
/// Returns the exit status if the run must end here: an unknown flag or a missing value, said on
/// standard error. A malformed number throws what std::stoi and its sisters throw.
std::optional<int> parse_options(int argc, const char* const* argv, RunConfig& config);

/// The fault settings the run starts with. Throws on a malformed `drop_burst`.
FaultPlan fault_plan_of(const RunConfig& config);

/// A symbol to be listed.
struct Listing {
  std::string symbol;
  double price = 0.0;  // dollars, at the open; any that a double can hold
};

/// Reads a "SYMBOL:PRICE,SYMBOL:PRICE" list. An item without a price opens at 100.0; nothing is
/// trimmed, and a repeated symbol is listed again. Throws on a malformed price.
std::vector<Listing> parse_symbols(const std::string& symbols);

}  // namespace quorl
