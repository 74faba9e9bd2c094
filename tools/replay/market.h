#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "quorl/client/book.h"
#include "quorl/client/bytes.h"
#include "quorl/client/deep.h"

namespace tools {

/// The market as the messages so far have shown it, to make images of. Takes what comes, unlike
/// client::BookBuilder: a recording may begin in the middle of a day.
class Market {
 public:
  /// Returns false for what is no DEEP message of the exchange; it changes nothing.
  bool apply(quorl::client::ByteView message);

  /// Messages have been lost: the event that was open, if any, may have ended among them.
  void skip_lost_messages() { inside_event_ = false; }

  /// The book is not consistent: an event has begun and its last message has not come.
  bool inside_event() const { return inside_event_; }

  /// The messages of an image in their order, all with this timestamp. A symbol whose Security
  /// Directory has not been heard carries the middle of its book as its previous close.
  std::vector<quorl::client::Bytes> image(uint64_t timestamp_ns) const;

 private:
  struct Stock {
    std::string symbol;
    std::optional<quorl::client::Price4> previous_close;
    quorl::client::BidLevels bids;
    quorl::client::AskLevels asks;
    quorl::client::Price4 last_price = 0;  // 0 until a trade has been heard

    quorl::client::Price4 close_or_middle() const;
  };

  Stock& stock(const std::string& symbol);
  void on_level(const quorl::client::LevelUpdate& update);

  std::vector<Stock> stocks_;             // in the order in which they were first named
  std::map<std::string, size_t> places_;  // index into stocks_
  char system_event_ = 'R';               // the latest; a feed joined late is in regular hours
  bool inside_event_ = false;
};

}  // namespace tools
