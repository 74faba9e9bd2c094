#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <random>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "bench/scenario.h"
#include "feed/tp_publisher.h"
#include "fix/stream_records.h"
#include "market/engine.h"
#include "support/inside.h"

// An exchange without its driver, for the unit tests, and the small language they speak with it:
//
//   Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
//   exchange.rests({"AAPL sell 300 @ 190.01"});
//   FixPeer client = exchange.logs_on("ALPHA");
//   client.says("35=D|11=a1|55=AAPL|54=1|38=100|40=1|18=i");
//   client.hears("35=8|150=0|39=0");
//   client.hears("35=8|150=2|39=2|32=100|31=190.01");
//   exchange.feed_shows({"T 100 @ 190.01", "5 200 @ 190.01 last"});
//
// What goes out is read by decoders of this file's own, which share nothing with the encoders.

namespace quorl::test {

class Exchange;

/// "190.01" as 1900100, digit by digit; at most four decimals.
Price4 price4(std::string_view dollars);

/// One DEEP message as a subscriber decodes it; fields that its type lacks are 0.
struct FeedMessage {
  std::string bytes;
  char type = 0;
  uint8_t flags = 0;  // the second byte, whatever it means for the type
  uint64_t timestamp_ns = 0;
  std::string symbol;  // the 8 bytes as they stand
  uint32_t size = 0;
  Price4 price = 0;
  uint64_t trade_id = 0;
};

/// One IEX-TP packet as it came.
struct FeedPacket {
  std::string bytes;
  uint32_t session_id = 0;
  uint16_t payload_length = 0;
  uint16_t message_count = 0;
  uint64_t stream_offset = 0;
  uint64_t first_seq = 0;
  uint64_t send_time = 0;
  std::vector<FeedMessage> messages;
};

/// The fields of a composed FIX message, in the order of the wire.
using FixFields = std::vector<std::pair<int, std::string>>;

/// Reads a message that the exchange has composed. Fails the test if its BodyLength or CheckSum is
/// wrong.
FixFields fields_of(const std::string& message);

/// The last value of a tag, or `absent`.
std::string value_of(const FixFields& fields, int tag, const std::string& absent = "(absent)");

/// A message of the language with some of its fields changed, added, or ("!18") left out.
std::string altered(std::string_view message, std::string_view changes);

/// An order to sell that many tests begin with, and the same with changes.
inline constexpr std::string_view SELL_100 =
    "35=D|11=a1|55=AAPL|54=2|38=100|40=2|44=190.00|59=0|18=i";
std::string sell(std::string_view changes = "");

/// What `act` wrote to the standard error stream.
std::string standard_error_of(const std::function<void()>& act);

/// How many outputs `act` took from `rng`. Fails the test beyond 100000.
uint64_t draws_taken(std::mt19937_64& rng, const std::function<void()>& act);

/// A random source whose next outputs are these, at most 312 of them.
std::mt19937_64 rng_yielding(const std::vector<uint64_t>& outputs);

/// One logged-on client of the exchange. Its messages go to the engine's handlers at once; what
/// they return waits to be heard. Copies speak for the same client.
class FixPeer {
 public:
  /// "35=D|11=a1|...": header and trailer are added. 35 is D, F or G.
  void says(std::string_view message);
  /// The same for values that no frame can carry, such as one with '|' or SOH in it.
  void says_fields(char msg_type, const FixFields& fields);

  /// Takes the next message. The tags named must match; "!41" says that a tag must be absent.
  void hears(std::string_view expected, const char* file = __builtin_FILE(),
             int line = __builtin_LINE());
  /// Nothing waits.
  void hears_nothing(const char* file = __builtin_FILE(), int line = __builtin_LINE());
  /// Takes the next message as it came; empty, and a failed test, if there is none.
  std::string next_message(const char* file = __builtin_FILE(), int line = __builtin_LINE());
  /// Drops all that waits.
  void skips_all();

  /// The connection is gone; the orders stay.
  void disconnects();

  Client& client();
  SessionMemory stream();

 private:
  friend class Exchange;
  FixPeer(Exchange& exchange, size_t index) : exchange_(&exchange), index_(index) {}

  std::deque<std::string>& inbox();
  void hand_over(std::string_view msg_type, const FixFieldMap& fields);

  Exchange* exchange_;
  size_t index_;
};

class Exchange {
 public:
  /// Lists "AAPL:190.00,MSFT:410.00" (or nothing) and opens nothing: books are empty and the feed
  /// is silent. Sets the clocks to their start and the random source to seed 42. The walk has the
  /// defaults of the command line.
  static Exchange with_empty_book(const std::string& symbols) { return Exchange(symbols); }

  /// The same; with a `feed_port` the feed goes to that port of 127.0.0.1, and what is asked here
  /// about it does not see it.
  explicit Exchange(const std::string& symbols, uint16_t feed_port = 0);
  ~Exchange();
  Exchange(const Exchange&) = delete;
  Exchange& operator=(const Exchange&) = delete;

  /// Adds synthetic orders, "AAPL sell 300 @ 190.01" each, behind what rests already, and counts
  /// what the feed shows of them as seen. Returns their ids.
  std::vector<uint64_t> rests(const std::vector<std::string>& orders);

  /// A synthetic aggressor without a limit, "AAPL buy 300", as the walk sends to the touch.
  void is_hit(const std::string& aggressor);

  /// A further connection of `comp_id`, logged on.
  FixPeer logs_on(const std::string& comp_id);

  /// Composes the reports that are owed and gives them to the peers.
  void drains_deferred();

  /// Flushes, and compares all that came on the feed since the last look: "T 300 @ 190.01" for a
  /// trade (" odd" behind an odd lot), "5 0 @ 190.01" or "8 ..." for a level (" last" with event
  /// flag 1). With several symbols listed each line begins with its own: "AAPL T 300 @ 190.01".
  void feed_shows(const std::vector<std::string>& expected, const char* file = __builtin_FILE(),
                  int line = __builtin_LINE());
  /// The same messages decoded, for what the language has no word for.
  std::vector<FeedMessage> feed();
  /// The packets that have left since the last look; flushes nothing.
  std::vector<FeedPacket> packets();

  /// Compares a book with its orders in priority, sells from the best, then buys from the best:
  /// "sell 300 @ 190.01", with the owner and ClOrdID behind a client's: "buy 100 @ 190.00 ALPHA
  /// a1".
  void book_holds(const std::vector<std::string>& expected, size_t stock = 0,
                  const char* file = __builtin_FILE(), int line = __builtin_LINE());

  /// From now on the order events are written to a file of this exchange's own.
  void writes_order_events();
  /// The lines of that file, each without its time: from "ev" to the closing brace.
  std::vector<std::string> order_events() const;

  Stock& stock(size_t index = 0) { return engine.stocks.at(index); }
  /// The order that rests under a client's name for it. Fails the test if there is none.
  const Order& order(const std::string& owner, const std::string& cl_ord_id);

 private:
  /// A scenario in the environment of whoever runs the tests must not arm one here.
  struct CleanEnvironment {
    CleanEnvironment();
  };
  struct FeedSocket {
    FeedSocket();
    ~FeedSocket();
    int fd = -1;
    uint16_t port = 0;
  };

  CleanEnvironment clean_environment_;
  FeedSocket feed_socket_;

 public:
  TpPublisher publisher;
  std::mt19937_64 rng{42};
  Scenario scenario;
  Engine engine;
  std::vector<Client> clients;

 private:
  friend class FixPeer;
  void take_datagrams();

  std::vector<FeedPacket> unseen_packets_;
  uint64_t messages_received_ = 0;
  std::string order_event_path_;                       // empty until a test asks for the file
  std::map<size_t, std::deque<std::string>> inboxes_;  // by index of the client
};

}  // namespace quorl::test
