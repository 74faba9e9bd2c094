#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "lives/feed_witness.h"
#include "market/engine.h"
#include "quorl/client/fix_message.h"

namespace lives {

/// An application message that has been composed, sent or not.
struct Composed {
  std::string owner;
  uint32_t seq = 0;
  char type = '8';
  std::map<int, std::string> fields;  // of its body

  const std::string& value(int tag) const;
};

/// Hears every FIX message that leaves, as it was meant, however much of it a socket took, and
/// looks into the session memories between turns.
class FixWitness {
 public:
  /// Both must outlive it.
  FixWitness(quorl::Engine& engine, const FeedWitness& feed) : engine_(engine), feed_(feed) {}

  /// A Logon with 141=Y has been accepted: its numbers begin anew, its memory is empty. To be told
  /// ahead of the reply.
  void on_reset(const std::string& comp_id);
  void on_send(std::string_view bytes);

  /// Between two turns: takes what has been composed since the last look, in order of number within
  /// each owner. `complete` false: a memory was emptied, and something may have gone with it.
  std::vector<Composed> look(bool& complete);

 private:
  struct Stream {
    std::set<uint32_t> used;                     // numbers, of first sendings
    std::map<uint32_t, std::string> bodies;      // of application messages heard
    std::map<uint32_t, std::string> new_bodies;  // of this turn
    bool emptied = false;                        // in this turn
    size_t stored_seen = 0;
  };

  void on_message(const quorl::client::FixMessage& message);
  void on_first_sending(const quorl::client::FixMessage& message, Stream& stream);
  void on_replay(const quorl::client::FixMessage& message);
  void look_at_report(const Composed& report);
  void look_at_fill(const Composed& report);
  bool take_stored(const std::string& owner, const quorl::FixStream& stream,
                   std::vector<Composed>& composed);

  quorl::Engine& engine_;
  const FeedWitness& feed_;
  std::map<std::string, Stream> streams_;
  std::set<std::string> exec_ids_;
  struct Fill {
    uint64_t shares = 0;
    double dollars = 0.0;
    double average = 0.0;  // as reported
  };
  struct Fills {  // of one order
    uint64_t shares = 0;
    double dollars = 0.0;
    std::map<uint64_t, Fill> ahead;  // by the sum of shares behind it
  };
  void add_up(const std::string& order_id, Fills& fills) const;

  std::map<std::string, Fills> fills_;              // by OrderID
  bool lost_some_ = false;                          // with a memory that was emptied
  std::map<std::string, uint64_t> fills_of_trade_;  // fill reports by trade id
};

}  // namespace lives
