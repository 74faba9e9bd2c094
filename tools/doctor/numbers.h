#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "tools/doctor/finding.h"

namespace tools::doctor {

struct Start;

/// How the exchange reads a number: the standard library's function of the name, of whose result it
/// keeps the low bits.
struct NumberKind {
  enum Parser { STOI, STOUL, STOULL, STOD };
  Parser parser = STOI;
  unsigned bits = 32;  // kept of a whole number
};

constexpr NumberKind PORT_NUMBER{NumberKind::STOI, 16};
constexpr NumberKind SIGNED_NUMBER{NumberKind::STOI, 32};
constexpr NumberKind COUNT_NUMBER{NumberKind::STOUL, 32};
constexpr NumberKind PACKET_NUMBER{NumberKind::STOULL, 64};
constexpr NumberKind FLOAT_NUMBER{NumberKind::STOD, 64};

struct Reading {
  bool ends_the_start = false;  // the parser throws, and nothing catches it
  double value = 0;             // what the exchange has then; exact up to 2^53
  std::string complaint = {};   // empty if the number is what its text says
};

/// Reads as the exchange does. White space around a number is no complaint.
Reading read_number(NumberKind kind, const std::string& text);

/// A text as a whole number, if the exchange gets one.
std::optional<uint16_t> read_port(const std::string& text);

// Rules.
Findings misread_numbers(const Start& start);
Findings odd_floats(const Start& start);
Findings odd_burst(const Start& start);

}  // namespace tools::doctor
