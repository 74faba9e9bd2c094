#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "day/day_dice.h"
#include "day/day_market_view.h"
#include "day/day_network.h"

namespace day {

struct ListedSymbol {
  std::string name;
  int64_t opening_price = 0;  // ten-thousandths of a dollar
};

/// How the traders of a day behave.
struct TradingStyle {
  size_t accounts = 5;
  size_t most_connections = 7;      // two of one account at times
  uint32_t percent_active = 50;     // chance of a connection to do something in a turn
  uint32_t most_messages = 3;       // of such a connection, in one turn
  size_t most_orders = 110;         // of an account; above that it mostly cancels
  uint32_t session_mischief = 1;    // weight of what ends or disturbs a session
  bool patient_heartbeats = false;  // long intervals only
};

/// The clients at the FIX port: they log on and off, trade around the market that the feed shows,
/// follow their own orders by the reports they hear, and get everything wrong now and then.
class Traders {
 public:
  Traders(Network& network, Outputs& outputs, Dice& dice, MarketView& view,
          std::vector<ListedSymbol> symbols, uint16_t port, const TradingStyle& style);

  /// One round of all of them: hear, then speak. What is said arrives in `turn` or a little later.
  /// In a lull they say no more than keeps their sessions up.
  void act(uint64_t turn, bool lull);

 private:
  using Fields = std::vector<std::pair<int, std::string>>;

  struct Order {
    std::string cl_ord_id;
    size_t symbol = 0;
    char side = '1';
    uint32_t qty = 0;
    int64_t price = 0;
    uint32_t cum = 0;
    uint32_t leaves = 0;
    bool acknowledged = false;
    uint64_t sent_turn = 0;
  };
  struct ClosedOrder {
    std::string cl_ord_id;
    size_t symbol = 0;
    char side = '1';
    uint64_t closed_ms = 0;
  };
  struct Account {
    std::string name;
    uint32_t next_out = 1;  // of the client's own messages
    uint32_t next_in = 1;   // expected of the exchange
    uint32_t next_cl = 1;
    std::vector<Order> orders;
    std::deque<ClosedOrder> closed;                            // oldest first
    std::deque<std::pair<uint32_t, std::string>> sent_orders;  // sequence number, type and body
    uint64_t next_logon_turn = 1;
  };
  enum class Session { SILENT_STRANGER, LOGGING_ON, UP };
  struct Link {
    size_t connection = 0;
    size_t account = 0;
    Session session = Session::LOGGING_ON;
    uint64_t since_turn = 0;
    uint64_t last_sent_ms = 0;
    uint64_t last_heard_turn = 0;
    uint64_t heartbeat_ms = 30000;
    uint64_t last_arrival = 0;  // turn of the last piece on its way
    bool mute = false;          // says nothing more until it is timed out
    bool ended = false;         // by the client
    std::string outgoing;       // this turn's messages
  };

  class HeardFields;

  // The connections.
  void open_links();
  void log_on(Link& link);
  void speak_before_logon(Link& link);
  void deliver(Link& link);
  void hang_up(Link& link, bool reset);

  // Hearing.
  void hear(Link& link);
  void on_message(Link& link, const std::string& message);
  void on_report(Account& account, const HeardFields& fields);
  void on_cancel_reject(Account& account, const HeardFields& fields);
  void on_resend_request(Link& link, const HeardFields& fields);
  void follow_sequence(Link& link, const HeardFields& fields);

  // Speaking.
  void speak(Link& link, bool lull);
  void new_order(Link& link);
  void ladder_of_orders(Link& link);
  void broken_order(Link& link);
  void cancel(Link& link);
  void replace(Link& link);
  void broken_replace(Link& link);
  void session_message(Link& link);
  void mischief(Link& link);
  void resend_request(Link& link);
  void garbage(Link& link);

  Fields good_order(Account& account, size_t symbol, char side, uint32_t qty,
                    std::optional<int64_t> price, char tif);
  Fields replace_fields(Account& account, const Order& order, const std::string& new_id);
  std::string new_cl_ord_id(Account& account);
  /// An order to cancel or replace: mostly one that rests, else one closed just now, about two
  /// seconds ago, long ago, or never.
  std::string closed_or_unknown(Account& account);
  Order* some_order(Account& account);

  int64_t best(size_t symbol, bool buy);
  int64_t tick_at(int64_t price) const { return price < 10000 ? 1 : 100; }
  /// The price where everybody queues for a while.
  int64_t crowded_price(size_t symbol, bool buy);
  size_t some_symbol();
  char some_sell_side();

  void app_message(Link& link, std::string_view type, const Fields& body);
  void admin_message(Link& link, std::string_view type, const Fields& body);
  void message(Link& link, std::string_view type, const std::string& seq, const Fields& body,
               bool possible_duplicate = false);
  void close_order(Account& account, const std::string& cl_ord_id);
  Order* find_order(Account& account, const std::string& cl_ord_id);

  Network& network_;
  Outputs& outputs_;
  Dice& dice_;
  MarketView& view_;
  const std::vector<ListedSymbol> symbols_;
  const uint16_t port_;
  const TradingStyle style_;
  uint64_t turn_ = 0;
  std::vector<Account> accounts_;
  std::deque<Link> links_;
  struct Crowd {
    int64_t price = 0;
    uint64_t until_turn = 0;
  };
  std::map<std::pair<size_t, bool>, Crowd> crowds_;
};

}  // namespace day
