#pragma once

#include <array>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

// Everything that leaves the exchange, in one running digest for each kind of output.

namespace day {

enum class Kind {
  FIX,           // each send, with its connection
  FEED,          // each datagram to the group
  GAP_FILL,      // each reply, with its address
  SNAP,          // each send, with its connection
  CONTROL,       // each reply, with its address
  STDERR,        // what each turn wrote
  ORDER_EVENTS,  // what each turn wrote
  TRUTH,         // up to each mark, and the whole at the end
  BOOK,          // each file
  BBO,           // each file
  ACTS,          // every call of a socket that changes something, and its order among all others
};
constexpr size_t KINDS = 11;
constexpr std::array<std::string_view, KINDS> KIND_NAMES = {
    "fix",          "feed",  "gap_fill", "snap", "control", "stderr",
    "order_events", "truth", "book",     "bbo",  "acts"};

/// One kind's record of a day.
struct Account {
  uint64_t digest = 0;
  uint64_t events = 0;
  uint64_t bytes = 0;
  std::vector<uint64_t> checkpoints;  // the digest after each CHECKPOINT_TURNS, and at the end
};

class Outputs {
 public:
  static constexpr uint64_t CHECKPOINT_TURNS = 1000;

  /// With a folder, everything is also written there, a file for each kind, a line for each event
  /// with its turn: two programs' days can be compared with diff.
  explicit Outputs(const std::string& record_folder);

  /// If set: every event as it is noted.
  std::function<void(Kind kind, std::string_view where, std::string_view bytes)> on_note;

  /// One event. `where` is the connection or the address, as text.
  void note(Kind kind, std::string_view where, std::string_view bytes);
  /// A line of the record alone, about what the other side did.
  void remark(std::string_view text);

  void end_turn();
  /// The last checkpoint of every kind.
  void end_day();

  uint64_t turn() const { return turn_; }  // the one that runs, counted from 1
  const Account& account(Kind kind) const { return accounts_[static_cast<size_t>(kind)]; }

 private:
  struct FileCloser {
    void operator()(std::FILE* file) const { std::fclose(file); }
  };
  using File = std::unique_ptr<std::FILE, FileCloser>;

  void write_record(Kind kind, std::string_view where, std::string_view bytes);
  void take_checkpoint();

  uint64_t turn_ = 1;
  std::array<Account, KINDS> accounts_;
  std::array<File, KINDS> records_;
  File remarks_;
};

}  // namespace day
