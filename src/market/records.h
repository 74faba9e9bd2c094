#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <string>
#include <string_view>

#include "base/price4.h"

namespace quorl {

struct Client;

/// One order, client or synthetic. An empty owner is the one and only test for a synthetic order.
struct Order {
  uint64_t id = 0;        // FIX OrderID; kept across replaces
  uint16_t locate = 0;    // one-based index of its Stock
  bool buy = true;        // true only for Side "1"
  Price4 price = 0;       // limit; 0 for a market order
  uint32_t leaves = 0;    // open shares
  uint32_t qty = 0;       // ordered shares
  uint32_t cum = 0;       // executed shares; a resting synthetic order is not credited
  double notional = 0.0;  // dollars: sum of fill quantity times fill price
  std::string owner;      // the client's SenderCompID
  std::string cl_ord_id;  // current ClOrdID
  char side = '1';        // tag 54 as received; a synthetic sell keeps '1'
  char tif = '0';         // tag 59 as received
  char ord_type = '2';    // tag 40 as received
  char exec_inst = 'i';   // tag 18 as received
  char capacity = 'P';    // tag 47 as received
};

/// The ids resting at one price of one side, next to trade at the front. It may hold an id that
/// has left Engine::orders; whoever walks it skips such an id.
using Level = std::deque<uint64_t>;

using BidLevels = std::map<Price4, Level, std::greater<>>;
using AskLevels = std::map<Price4, Level, std::less<>>;
using ShownBids = std::map<Price4, uint32_t, std::greater<>>;
using ShownAsks = std::map<Price4, uint32_t, std::less<>>;

/// One listed symbol and its book, client and synthetic orders together.
struct Stock {
  std::string symbol;     // as given on the command line; cut to 8 bytes on the wire only
  uint16_t locate = 0;    // position in Engine::stocks plus 1
  double mid = 0.0;       // dollars; the walk's own price, with a memory finer than a cent
  BidLevels bids;         // best (highest) first
  AskLevels asks;         // best (lowest) first
  ShownBids shown_bids;   // sizes as last published on the feed
  ShownAsks shown_asks;   // sizes as last published on the feed
  uint64_t volume = 0;    // shares traded
  Price4 last_price = 0;  // of the last trade; 0 until the first one
  char status = 'T';
};

/// A level whose size is no longer what the feed shows.
struct LevelChange {
  bool buy;
  Price4 price;
  uint32_t size;  // shares, now; 0 means the level is gone
};

/// A client's name for its order.
struct ClientOrderKey {
  std::string owner;
  std::string cl_ord_id;
};

/// The same pair by reference, so that a lookup copies no string.
struct ClientOrderKeyView {
  std::string_view owner;
  std::string_view cl_ord_id;
};

struct StringHash {
  using is_transparent = void;
  size_t operator()(std::string_view text) const { return std::hash<std::string_view>{}(text); }
};

struct ClientOrderKeyHash {
  using is_transparent = void;
  size_t operator()(const ClientOrderKeyView& key) const {
    return 31 * std::hash<std::string_view>{}(key.cl_ord_id) +
           std::hash<std::string_view>{}(key.owner);
  }
  size_t operator()(const ClientOrderKey& key) const {
    return operator()(ClientOrderKeyView{key.owner, key.cl_ord_id});
  }
};

struct ClientOrderKeyEqual {
  using is_transparent = void;
  template <typename A, typename B>
  bool operator()(const A& a, const B& b) const {
    return a.owner == b.owner && a.cl_ord_id == b.cl_ord_id;
  }
};

/// An exchange-initiated cancel still to fire. It names the ClOrdID and not the id: a replace
/// makes the order safe, and a new order under the same ClOrdID is cancelled in its place.
struct ScheduledCancel {
  std::string owner;
  std::string cl_ord_id;
  int64_t due_ms = 0;  // steady clock
};

/// A report owed to a client outside the handling of a message of its own. `compose` owns copies
/// of all it needs: orders and clients may be gone when it runs. It numbers, stores and logs the
/// report and returns the finished FIX message.
struct DeferredReport {
  std::string owner;
  std::function<std::string(Client&)> compose;
};

}  // namespace quorl
