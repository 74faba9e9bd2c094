#include "tools/watch/view.h"

#include <time.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <utility>
#include <vector>

#include "quorl/client/deep.h"
#include "quorl/client/errors.h"
#include "tools/seconds.h"

namespace client = quorl::client;

namespace tools {
namespace {

/// To the tenth, as nobody looks closer at a silence.
std::string about(std::chrono::steady_clock::duration span) {
  const auto whole = std::chrono::floor<std::chrono::duration<int64_t, std::deci>>(span);
  return seconds_text(whole);
}

struct ShownMessage {
  std::string symbol;  // empty for a System Event, and for what is no DEEP message
  std::string text;
};

ShownMessage shown(const client::TpMessage& message) {
  try {
    const client::DeepMessage deep = client::decode_deep(message.bytes);
    return {client::symbol_of(deep), client::describe(deep)};
  } catch (const client::WireError& wrong) {
    return {"", std::string("not a DEEP message: ") + wrong.what()};
  }
}

std::string headline(const client::TpPacket& packet, const Judgement& judgement) {
  const client::TpHeader& header = packet.header;
  if (packet.is_heartbeat()) return "heartbeat, next is " + std::to_string(header.first_seq);
  std::string text = "packet from " + std::to_string(header.first_seq) + ", " +
                     std::to_string(header.message_count) + " message(s), stream offset " +
                     std::to_string(header.stream_offset);
  if (judgement.first_seq && *judgement.first_seq != header.first_seq) {
    text += " (its true first number is " + std::to_string(*judgement.first_seq) + ")";
  }
  return text;
}

}  // namespace

std::string time_stamp(std::chrono::system_clock::time_point clock) {
  const auto micros =
      std::chrono::duration_cast<std::chrono::microseconds>(clock.time_since_epoch()).count();
  const time_t seconds = static_cast<time_t>(micros / 1000000);
  tm utc{};
  ::gmtime_r(&seconds, &utc);
  std::array<char, 64> text{};
  (void)std::snprintf(text.data(), text.size(), "%02d:%02d:%02d.%06lld ", utc.tm_hour, utc.tm_min,
                      utc.tm_sec, static_cast<long long>(micros % 1000000));
  return text.data();
}

View::View(ViewOptions options, Moment start, Print print)
    : options_(std::move(options)),
      print_(std::move(print)),
      limiter_(options_.lines_per_second),
      silence_(start),
      start_(start),
      now_(start) {}

void View::on_datagram(const client::Datagram& datagram, Moment now,
                       std::chrono::system_clock::time_point clock) {
  on_time(now, clock);
  client::TpPacket packet;
  try {
    packet = client::decode_tp_packet(datagram.bytes);
  } catch (const client::WireError& wrong) {
    ++strangers_;
    say("not an IEX-TP packet: " + counted(datagram.bytes.size(), "byte") + " from " +
            datagram.from_address + ":" + std::to_string(datagram.from_port) + ": " + wrong.what(),
        true);
    return;
  }
  if (const auto silence = silence_.heard(now)) {
    say("silence: over, packets come again after " + about(*silence), true);
  }
  const Judgement judgement = tracker_.follow(packet);
  for (const std::string& finding : judgement.findings) say(finding, true);
  show(packet, judgement);
}

void View::on_kernel_drops(uint32_t count, Moment now,
                           std::chrono::system_clock::time_point clock) {
  on_time(now, clock);
  kernel_drops_ += count;
  say("lost here: this machine threw away " + counted(count, "packet") +
          ", which were not read in time",
      true);
}

void View::show(const client::TpPacket& packet, const Judgement& judgement) {
  std::vector<std::string> lines;
  for (const client::TpMessage& message : packet.messages) {
    const ShownMessage text = shown(message);
    if (is_wanted(text.symbol)) lines.push_back("  " + text.text);
  }
  const bool is_of_interest = options_.symbols.empty() || !lines.empty();
  if (is_of_interest) ++shown_;
  if (is_of_interest || packet.is_heartbeat()) say(headline(packet, judgement), false);
  for (const std::string& line : lines) say(line, false);
}

bool View::is_wanted(const std::string& symbol) const {
  return options_.symbols.empty() || options_.symbols.contains(symbol);
}

View::Moment View::next_due() const {
  const auto left_out = limiter_.next_due();
  return left_out ? std::min(*left_out, silence_.next_due()) : silence_.next_due();
}

void View::on_time(Moment now, std::chrono::system_clock::time_point clock) {
  now_ = now;
  if (options_.with_time) stamp_ = time_stamp(clock);
  if (const auto left_out = limiter_.due(now)) say_left_out(*left_out);
  if (const auto length = silence_.tell_if_due(now)) {
    say("silence: no packet on " + options_.where + " for " + about(*length) +
            ": is the exchange there, on this interface (" + options_.interface_address + ")?",
        true);
  }
}

void View::say(const std::string& line, bool is_finding) {
  if (limiter_.admits(now_, is_finding)) print_(stamp_ + line);
}

void View::say_left_out(const LineLimiter::LeftOut& left_out) {
  std::string line = "-- " + counted(left_out.lines, "line") + " left out";
  if (left_out.findings > 0) line += ", " + counted(left_out.findings, "finding") + " among them";
  print_(stamp_ + line);
}

std::string View::summary(Moment now) {
  if (const auto left_out = limiter_.rest()) say_left_out(*left_out);
  const FeedCounts& counts = tracker_.counts();
  const std::string after = " in " + about(now - start_);
  if (counts.packets == 0 && strangers_ == 0) return "no packet on " + options_.where + after;
  std::string text = counted(counts.packets, "packet") + " (" +
                     counted(counts.heartbeats, "heartbeat") + "), " +
                     counted(counts.messages, "message") + after + "; " +
                     counted(counts.gaps, "gap") + ", " + counted(tracker_.missing(), "message") +
                     " still missing; " + counted(counts.duplicates, "duplicate") + "; " +
                     std::to_string(counts.out_of_order) + " out of order";
  if (counts.sessions > 1) text += "; " + counted(counts.sessions, "session");
  if (strangers_ > 0) text += "; " + std::to_string(strangers_) + " not IEX-TP";
  if (kernel_drops_ > 0) text += "; " + std::to_string(kernel_drops_) + " lost here";
  return text;
}

}  // namespace tools
