#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "day/day_dice.h"
#include "day/day_market_view.h"
#include "day/day_network.h"

namespace day {

/// Those who follow the feed: they ask for images of the market by TCP and for lost messages by
/// UDP, rightly and wrongly.
class Watchers {
 public:
  Watchers(Network& network, Outputs& outputs, Dice& dice, MarketView& view,
           const Network::Ports& ports);

  void act(uint64_t turn);

 private:
  struct Visit {  // one connection of the DEEP SNAP service
    size_t connection = 0;
    std::string reply;
    bool ended = false;
  };

  void visit();
  std::string image_request();
  void ask_for_messages();
  std::string gap_request();

  Network& network_;
  Outputs& outputs_;
  Dice& dice_;
  MarketView& view_;
  const Network::Ports ports_;
  uint64_t turn_ = 0;
  std::vector<Visit> visits_;
};

/// The test bench at the control port. It never says "stop".
class Bench {
 public:
  Bench(Network& network, Outputs& outputs, Dice& dice, uint16_t port, int usual_rate_ms);

  /// In a lull the walk is paused, so that the feed has nothing to say either.
  void act(uint64_t turn, bool lull);

 private:
  void say(const std::string& line);
  std::string command();

  Network& network_;
  Outputs& outputs_;
  Dice& dice_;
  const uint16_t port_;
  const std::string usual_rate_;
  uint64_t marks_ = 0;
  bool lull_ = false;
  uint64_t repair_turn_ = 0;  // when the walk is set going again
};

}  // namespace day
