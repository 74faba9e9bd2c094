#include "tools/doctor/numbers.h"

#include <cmath>
#include <cstdio>
#include <stdexcept>

#include "tools/doctor/start.h"

namespace tools::doctor {
namespace {

constexpr const char* PARSER_NAMES[] = {"stoi", "stoul", "stoull", "stod"};

constexpr double ONE_WHOLE_BPS = 10000;

/// What the standard library made of a text, before any bit is cut off.
struct Parsed {
  uint64_t bits = 0;    // of a whole number, in two's complement
  double number = 0;    // of a float
  size_t consumed = 0;  // characters
};

Parsed parse(NumberKind::Parser parser, const std::string& text) {
  Parsed parsed;
  switch (parser) {
    case NumberKind::STOI:
      parsed.bits = static_cast<uint64_t>(static_cast<int64_t>(std::stoi(text, &parsed.consumed)));
      break;
    case NumberKind::STOUL:
      parsed.bits = std::stoul(text, &parsed.consumed);
      break;
    case NumberKind::STOULL:
      parsed.bits = std::stoull(text, &parsed.consumed);
      break;
    case NumberKind::STOD:
      parsed.number = std::stod(text, &parsed.consumed);
      break;
  }
  return parsed;
}

/// A signed number of 32 bits is the only one that keeps its minus.
bool keeps_sign(NumberKind kind) { return kind.parser == NumberKind::STOI && kind.bits == 32; }

uint64_t cut(uint64_t bits, unsigned width) {
  return width >= 64 ? bits : bits & ((uint64_t{1} << width) - 1);
}

bool is_blank(const std::string& text) {
  return text.find_first_not_of(" \t\n\v\f\r") == std::string::npos;
}

bool has_minus(const std::string& text) {
  const size_t first = text.find_first_not_of(" \t\n\v\f\r");
  return first != std::string::npos && text[first] == '-';
}

std::string number_text(double value) {
  char text[32];
  std::snprintf(text, sizeof text, "%g", value);
  return text;
}

Reading thrown(NumberKind kind, const std::string& why) {
  return {.ends_the_start = true,
          .complaint = why + ": the exchange ends by an abort (" + PARSER_NAMES[kind.parser] + ")"};
}

}  // namespace

Reading read_number(NumberKind kind, const std::string& text) {
  Parsed parsed;
  try {
    parsed = parse(kind.parser, text);
  } catch (const std::invalid_argument&) {
    return thrown(kind, "is no number");
  } catch (const std::out_of_range&) {
    return thrown(kind, "is out of range");
  }
  Reading reading;
  std::string read_as;
  std::string reason;
  if (kind.parser == NumberKind::STOD) {
    reading.value = parsed.number;
    read_as = number_text(parsed.number);
  } else if (keeps_sign(kind)) {
    reading.value = static_cast<double>(static_cast<int64_t>(parsed.bits));
    read_as = std::to_string(static_cast<int64_t>(parsed.bits));
  } else {
    const uint64_t kept = cut(parsed.bits, kind.bits);
    reading.value = static_cast<double>(kept);
    read_as = std::to_string(kept);
    if (has_minus(text) && parsed.bits != 0) {
      reason = "a minus wraps around";
    } else if (kept != parsed.bits) {
      reason = "only its low " + std::to_string(kind.bits) + " bits are kept";
    }
  }
  if (const std::string rest = text.substr(parsed.consumed); !is_blank(rest)) {
    if (!reason.empty()) reason += ", and ";
    reason += "'" + rest + "' behind it is passed over";
  }
  if (!reason.empty()) reading.complaint = "is read as " + read_as + ": " + reason;
  return reading;
}

std::optional<uint16_t> read_port(const std::string& text) {
  const Reading reading = read_number(PORT_NUMBER, text);
  if (reading.ends_the_start) return std::nullopt;
  return static_cast<uint16_t>(reading.value);
}

/// Each occurrence, also one that a later one replaces: it is read, and may end the start.
Findings misread_numbers(const Start& start) {
  Findings findings;
  for (const Given& given : start.given) {
    if (!given.option->number) continue;
    const Reading reading = read_number(*given.option->number, given.value);
    if (!reading.complaint.empty()) findings.push_back({given.text(), reading.complaint});
  }
  return findings;
}

Findings odd_floats(const Start& start) {
  Findings findings;
  if (const Given* const step = start.last("--step-bps")) {
    const Reading reading = read_number(FLOAT_NUMBER, step->value);
    if (!reading.ends_the_start && !std::isfinite(reading.value)) {
      findings.push_back({step->text(), "is no step: the first one loses all prices"});
    } else if (reading.value < 0) {
      findings.push_back({step->text(), "walks as widely as without the minus"});
    } else if (reading.value >= ONE_WHOLE_BPS) {
      findings.push_back(
          {step->text(), "is a step of a whole price and more: prices fall below zero"});
    }
  }
  if (const Given* const touch = start.last("--touch-hit")) {
    const Reading reading = read_number(FLOAT_NUMBER, touch->value);
    if (reading.ends_the_start) return findings;
    if (std::isnan(reading.value) || reading.value < 0) {
      findings.push_back({touch->text(), "is no probability: the touch is never hit, as with 0"});
    } else if (reading.value > 1) {
      findings.push_back(
          {touch->text(), "is no probability: the touch is hit at every tick, as with 1"});
    }
  }
  return findings;
}

Findings odd_burst(const Start& start) {
  const Given* const burst = start.last("--drop-burst");
  if (burst == nullptr || burst->value.empty()) return {};
  Findings findings;
  const size_t colon = burst->value.find(':');
  const Reading from = read_number(PACKET_NUMBER, burst->value.substr(0, colon));
  const Reading length = colon == std::string::npos
                             ? Reading{.value = 1}
                             : read_number(COUNT_NUMBER, burst->value.substr(colon + 1));
  if (!from.complaint.empty()) findings.push_back({burst->text(), "FROM " + from.complaint});
  if (!length.complaint.empty()) findings.push_back({burst->text(), "LEN " + length.complaint});
  if (from.ends_the_start || length.ends_the_start) return findings;
  if (length.value == 0) {
    findings.push_back({burst->text(), "drops nothing: a burst of 0 packets is none"});
  } else if (from.value == 0 && length.value == 1) {
    findings.push_back({burst->text(), "drops nothing: the first packet is number 1"});
  } else if (from.value == 0) {
    findings.push_back({burst->text(), "drops one packet less: the first packet is number 1"});
  }
  return findings;
}

}  // namespace tools::doctor
