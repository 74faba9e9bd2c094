#pragma once

#include <cstdint>
#include <map>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

// What a file of stories says, read and not yet told. README.md describes the language.

namespace stories {

/// One field of a message as a story names it.
struct FieldWords {
  int tag = 0;
  std::string value;    // may hold names: "$id"
  bool absent = false;  // "!41": is not sent, or must not come
};

enum class Kind {
  // What a client does:
  CONNECT,
  DISCONNECT,  // orderly, without a Logout
  RESET,
  SEND,  // a message
  RAW,   // bytes
  // What else happens to the exchange:
  CONTROL,  // a command, and the reply that must come
  PASS,     // time
  REST,     // a client's order is sent, acknowledged and comes to rest
  // What must come of it:
  HEAR,  // the connection's next message
  CLOSED,
  FEED,
  COUNTS,
  LOG,
  EVENT,
};

struct Step {
  Kind kind = Kind::PASS;
  unsigned line = 0;
  std::string text;                           // as it stands in the file
  bool same_turn = false;                     // as the step above: "+" in front
  std::string connection = {};                // "ALPHA", "ALPHA#2"
  std::string words = {};                     // MsgType, bytes, command, or what must come
  std::string reply = {};                     // to a command
  std::vector<FieldWords> fields = {};        // of a message
  std::map<std::string, int64_t> rises = {};  // of counters
  uint64_t ms = 0;                            // of time
};

struct Story {
  std::string name;                    // "cancels/lost_race"
  std::vector<std::string> options;    // of the program, behind those of every story
  std::string script;                  // QUORL_SCENARIO
  bool begins_empty = true;            // the books are swept before it begins
  std::string inside_only;             // the reason why; empty: both drivers tell it
  std::vector<std::string> logged_on;  // connections that have logged on before it begins
  bool names_events = false;           // then every line of the order event file is named
  std::vector<Step> steps;
};

/// A file that cannot be read: "cancels.story:7: ...".
class BadStory : public std::runtime_error {
 public:
  explicit BadStory(const std::string& what) : std::runtime_error(what) {}
};

/// All stories of a file. `subject` is its name without ".story", and begins theirs. Throws
/// BadStory.
std::vector<Story> read_stories(std::string_view text, const std::string& subject);

/// SenderCompID of a connection's name: "ALPHA#2" is one of ALPHA's.
std::string comp_id_of(const std::string& connection);

}  // namespace stories
