#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <vector>

#include "lives/whole_exchange.h"
#include "stories/world.h"

namespace stories {

/// The whole exchange in memory, in this process, on a clock that stands still unless the story
/// lets time pass. One at a time.
class InsideWorld : public World {
 public:
  explicit InsideWorld(const Story& story);

  void act(const std::vector<Act>& acts) override;
  void pass(uint64_t ms) override;
  std::string take_bytes(const std::string& connection, bool wait) override;
  bool closed(const std::string& connection, bool wait) override;
  std::vector<std::string> take_replies() override;
  std::vector<client::DeepMessage> take_feed(bool wait) override;
  std::vector<std::string> take_lines() override;
  std::vector<client::OrderEvent> take_events() override;
  client::ControlStats stats() override;
  void end() override;
  bool time_passes() const override { return false; }

 private:
  void carry_out(const Act& act);
  void settle();
  void command(const std::string& line);

  lives::WholeExchange exchange_;
  std::map<std::string, size_t> connections_;  // by the story's names
  std::vector<std::string> replies_;
  size_t events_taken_ = 0;
  uint64_t wait_ns_ = 0;  // how long a wait of the loop in which nothing comes takes
};

}  // namespace stories
