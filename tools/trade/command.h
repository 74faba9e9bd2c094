#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "quorl/client/fix_message.h"

namespace tools::command {

struct Nothing {};  // an empty line or a comment

/// A NewOrderSingle. The fields lack 11 unless the user named the order.
struct Place {
  quorl::client::FixFields fields;
};
struct Cancel {
  std::string order;                // ClOrdID, or the short name of one
  quorl::client::FixFields fields;  // further ones
};
struct Replace {
  std::string order;
  quorl::client::FixFields fields;  // 38, 44 unless it stays, further ones
};

struct Raw {
  quorl::client::FixFields fields;  // in their order; what a header lacks is added
};
struct RawBytes {
  std::string bytes;  // as they go out
};

/// Without numbers: all that is missing.
struct Resend {
  std::optional<uint32_t> from;
  uint32_t to = 0;  // 0: all there is
};
struct Test {
  std::string id;  // empty: one that is made up
};
struct SetNumber {
  uint32_t next_out;
};
struct Reconnect {
  bool reset = false;
};
struct LogOut {};
struct Drop {};

struct Wait {
  std::string text;
};
struct Expect {
  quorl::client::FixFields fields;
};
struct ExpectClosed {};
struct Sleep {
  std::chrono::milliseconds time;
};
struct SetTimeout {
  std::chrono::milliseconds time;
};

struct ShowOrders {};
struct ShowStatus {};
struct Help {};
struct Quit {};

using Command = std::variant<Nothing, Place, Cancel, Replace, Raw, RawBytes, Resend, Test,
                             SetNumber, Reconnect, LogOut, Drop, Wait, Expect, ExpectClosed, Sleep,
                             SetTimeout, ShowOrders, ShowStatus, Help, Quit>;

struct Complaint {
  std::string text;  // one line, with what would have been right
};

/// One line as it was typed or read from a script.
std::variant<Command, Complaint> parse(const std::string& line);

/// A line for each command.
std::vector<std::string> help();

}  // namespace tools::command
