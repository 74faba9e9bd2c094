#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace certify {

using Milliseconds = std::chrono::milliseconds;

/// "orders >= 3", "quiet for 2s", "after 1s", "at 10s". A condition is a list of which all must
/// hold ("and").
struct Term {
  enum class Kind : uint8_t {
    COUNTER,  // `name` compared with `value`
    QUIET,    // nothing passed the taps but heartbeats for `time`
    AFTER,    // `time` since the last step, or since the start if there was none
    AT,       // `time` since the client was started
    CLIENT_ENDED,
  } kind = Kind::COUNTER;
  std::string name = {};        // of a counter
  std::string comparison = {};  // >= > = < <=
  uint64_t value = 0;
  Milliseconds time{0};
};
using Condition = std::vector<Term>;

/// What a step does: a control command as it stands ("fill_on_cancel 2"), a word to the link
/// ("link delay 80ms jitter 20ms"), or a mark with belief taken ("mark NAME").
struct Step {
  unsigned line = 0;  // in the file
  Condition when;     // empty: at once, in its turn
  std::string action;
};

/// How much time and freedom a client has before it is blamed.
struct Allowances {
  Milliseconds grace{1000};      // from a message in the client's socket to its acting on it
  Milliseconds recovery{10000};  // from a loss on the feed to its repair
  Milliseconds answer{3000};     // to a TestRequest, a ResendRequest, a Logout
  unsigned connects = 10;        // within any 10 s, before it is a storm
  unsigned asks = 3;             // for the same missing messages
  unsigned repetitions = 1;      // of an order that was refused, unchanged
};

struct Belief {  // a file the client writes, `{run}` filled in
  enum class Kind : uint8_t { POSITIONS, EVENTS, BOOK } kind = Kind::POSITIONS;
  std::string path;
  std::string mark;  // empty: at the end
};

struct Plan {
  std::string path;  // as given
  std::string name;  // "lost-race"
  std::string title;
  std::string purpose;              // the comment at its head: what a good client does
  std::vector<std::string> market;  // options of quorl
  std::string scenario;             // QUORL_SCENARIO
  std::vector<Step> steps;
  Condition end;  // empty: only the client's end and the limit
  Milliseconds limit{60000};
  std::vector<Condition> require;  // of the counters at the end, else the run proves nothing
  std::set<std::string> skip;      // checks
  std::set<std::string> expect;    // checks that must have been seen, else the run proves nothing
  std::vector<Belief> belief;
  Allowances allow;
};

/// "FILE:LINE: what is wrong, 'word'", one for each mistake.
class PlanError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// All mistakes are found before it throws PlanError, one line for each. `checks`: the names that
/// `skip` and `expect` may use.
Plan read_plan(const std::string& path, std::string_view text, const std::set<std::string>& checks);
/// The same from a file; throws PlanError if it cannot be read.
Plan load_plan(const std::string& path, const std::set<std::string>& checks);

/// The counters that conditions may name: those of `stats` and what the judge itself counts.
const std::vector<std::string>& counter_names();

}  // namespace certify
