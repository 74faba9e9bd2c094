#include "certify/plan/judge_counters.h"

#include <string_view>
#include <variant>

namespace certify {
namespace {

struct SaidLine {
  std::string_view begins;
  std::string_view contains;
  const char* counter;
};

constexpr SaidLine SAID_LINES[] = {
    {"bench: dropping the connection of ", "", "disconnects"},
    {"bench: going silent for ", "", "lapses"},
    {"bench: logon of ", " rejected (", "logons_refused"},
    {"bench: logon ", " 141=Y (", "logons_reset"},
    {"bench: logon ", "ahead of ours", "logons_ahead"},
    {"bench: client ", " seq gap expected ", "seq_gaps"},
    {"bench: scripted replace reject for ", "", "scripted_replace_rejects"},
};

}  // namespace

JudgeCounters::JudgeCounters() {
  for (const char* const name :
       {"connects", "orders_sent", "cancels_sent", "replaces_sent", "gap_requests", "gap_replies",
        "image_requests", "image_replies", "crossing_replaces", "link_cuts"}) {
    values_[name] = 0;
  }
  for (const SaidLine& line : SAID_LINES) values_[line.counter] = 0;
}

void JudgeCounters::on_event(const Event& event) {
  std::visit([this](const auto& what) { on(what); }, event.what);
}

void JudgeCounters::on(const FixOpened& opened) {
  if (opened.reached) count("connects");
}

void JudgeCounters::on(const FixHeard& heard) {
  if (heard.message.possible_duplicate()) return;
  if (heard.from == Party::CLIENT) return on_sent(heard.message);
  on_received(heard.connection, heard.message);
}

void JudgeCounters::on_sent(const WireMessage& message) {
  if (message.type() == "D") count("orders_sent");
  if (message.type() == "F") count("cancels_sent");
  if (message.type() == "G") count("replaces_sent");
}

/// The fills of a replace that crosses follow it with lower numbers.
void JudgeCounters::on_received(uint32_t connection, const WireMessage& message) {
  const auto number = message.number(34);
  if (!number) return;
  if (message.type() == "8" && message.is(150, "5")) {
    replaced_[connection] = *number;
    return;
  }
  const auto replaced = replaced_.find(connection);
  if (replaced == replaced_.end()) return;
  if (*number < replaced->second) count("crossing_replaces");
  replaced_.erase(replaced);
}

void JudgeCounters::on(const FixEnded& ended) {
  replaced_.erase(ended.connection);
  if (ended.by_link && cut_.insert(ended.connection).second) count("link_cuts");
}

void JudgeCounters::on(const GapRequested& requested) {
  if (!requested.ranges.empty()) count("gap_requests");
}

void JudgeCounters::on(const GapReplied& replied) {
  if (!replied.packet.messages.empty()) count("gap_replies");
}

void JudgeCounters::on(const ImageRequested&) { count("image_requests"); }

void JudgeCounters::on(const ImageReplied& replied) {
  if (replied.complete && replied.error == 0) count("image_replies");
}

void JudgeCounters::on(const ExchangeSaid& said) {
  for (const SaidLine& line : SAID_LINES) {
    if (said.line.starts_with(line.begins) && said.line.find(line.contains) != std::string::npos) {
      count(line.counter);
    }
  }
}

}  // namespace certify
