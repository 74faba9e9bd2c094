#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <set>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "quorl/client/deep.h"
#include "quorl/client/fix_message.h"
#include "stories/fix_end.h"
#include "stories/names.h"
#include "stories/story.h"
#include "stories/world.h"

namespace client = quorl::client;

namespace stories {

using client::FixMessage;

/// One story being told.
class Telling {
 public:
  Telling(const Story& story, World& world) : story_(story), world_(world) {}

  void run();
  bool disturbed() const { return disturbed_; }
  /// What has been done and has come, for who reads a failure.
  std::string course() const;

 private:
  // The beginning.
  void sweep();
  void log_on(const std::string& connection);
  FixMessage next_of(const std::string& connection);

  void carry_out(const Step& step);
  void do_acts(const std::vector<const Step*>& steps);
  Act act_of(const Step& step);
  std::vector<FieldWords> filled(const std::vector<FieldWords>& fields) const;

  void rest(const Step& step);
  void hear(const Step& step);
  void check_field(const FixMessage& message, const FieldWords& field);
  void check_closed(const Step& step);
  void check_feed(const Step& step);
  void check_counts(const std::map<std::string, int64_t>& rises);
  void check_line(std::deque<std::string>& came, const std::string& expected,
                  const std::string& what);

  /// Takes over all that has come.
  void collect();
  void collect_feed(bool wait);
  void collect_from(const std::string& connection, bool wait);
  /// Throws if something has come that no line has named.
  void demand_nothing_else();
  void drop_beats(const std::string& connection);
  void note(std::string what) { course_.push_back(std::move(what)); }
  [[noreturn]] static void fail(const std::string& why) { throw std::runtime_error(why); }

  const Story& story_;
  World& world_;
  FixEnd fix_;
  Names names_;
  std::set<std::string> open_;  // connections; one that the exchange has closed, until it is named
  std::deque<client::DeepMessage> feed_;
  std::deque<std::string> lines_;
  std::deque<std::string> events_;
  std::map<std::string, uint64_t> counted_;
  std::vector<std::string> course_;
  bool with_symbols_ = false;
  bool disturbed_ = false;
};

/// The symbols that a story's options list.
std::vector<std::string> symbols_of(const Story& story);

/// Every counter that a story can name, and those of the faults.
std::map<std::string, uint64_t> counters_of(const client::ControlStats& stats);

}  // namespace stories
