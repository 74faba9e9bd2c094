#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "certify/record/time.h"

namespace certify {

/// What a plan can do to the link, said in one line:
///
///   delay TIME [jitter TIME]   each piece comes later by TIME, give or take up to the jitter,
///   drawn
///                              anew for each; what was read first still comes first. "delay 0ms"
///                              takes it away. At most 60s, the jitter no more than the delay.
///   stall TIME                 nothing moves for so long, then all goes on. At most 3600s.
///   trickle BYTES              a stream moves so many bytes at a time, one piece each millisecond
///   at
///                              most: "trickle 1" is at most 1 kB/s and tears every message into
///                              its bytes. Of gap fill, one whole datagram each millisecond.
///                              1 to 65536.
///   cut                        the connections there are reset on both sides, what is on its way
///   is
///                              lost, and new ones are taken again at once. Gap fill loses what is
///                              on its way.
///   clear                      the link is plain again: what it holds goes out at once.
///
/// followed by any of "fix", "images", "gapfill" (default: all) and by "to exchange" or "to client"
/// (default: both ways). A cut of one way only lasts until "clear": a network that loses one
/// direction delivers nothing of it, and TCP repeats its bytes until they come; so a stream's
/// bytes, ends and resets of that way wait, while gap fill's datagrams are lost.
///
/// Delay, stall and trickle add to each other; each order replaces an earlier one of its kind.
/// Ends and resets are pieces too: they keep their place and are late with the rest. How much is
/// held is bounded (256 kB a way), so that a delay also limits the throughput, as on a real long
/// line.
struct LinkOrder {
  enum class Kind : uint8_t { DELAY, STALL, TRICKLE, CUT, CLEAR } kind = Kind::CLEAR;
  TimeNs time = 0;                                 // of DELAY and STALL
  TimeNs jitter = 0;                               // 0 to `time`
  uint32_t bytes = 0;                              // of TRICKLE
  std::array<bool, 3> services{true, true, true};  // by the numbers of Service
  bool to_exchange = true;
  bool to_client = true;
};

/// Nothing if the text has a flaw.
std::optional<LinkOrder> read_link_order(std::string_view text);

/// What is wrong with it, or nothing: a sentence that names the word.
std::optional<std::string> flaw_of_link_order(std::string_view text);

/// "delayed by 80 ms, jitter 20 ms, to the client".
std::string describe(const LinkOrder& order);

/// "80 ms", "1.5 s", "2 us".
std::string span_text(TimeNs span);

}  // namespace certify
