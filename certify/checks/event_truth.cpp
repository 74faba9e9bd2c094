#include "certify/checks/event_truth.h"

#include <algorithm>
#include <chrono>
#include <utility>

#include "certify/record/visible_text.h"
#include "quorl/client/errors.h"

namespace certify {
namespace {

using quorl::client::OrderEvent;

constexpr size_t MOST_FLAWS = 100;

/// All but time and text; the order first, so that those of one order are neighbours in a map.
std::string key_of(const OrderEvent& event) {
  std::string key = event.cl + "\t" + std::to_string(event.oid) + "\t" + event.ev;
  key += " " + event.symbol + " " + event.side + " qty " + std::to_string(event.qty);
  key += " px " + event.px + " cum " + std::to_string(event.cum);
  key += " leaves " + std::to_string(event.leaves) + " last_qty " + std::to_string(event.last_qty);
  if (event.ref) key += " ref " + *event.ref;
  return key;
}

std::string order_of(const std::string& key) { return key.substr(0, key.find('\t')); }

/// The key for a reader.
std::string text_of(const std::string& key) {
  std::string text = key;
  std::replace(text.begin(), text.end(), '\t', ' ');
  return visible(text, 200);
}

}  // namespace

EventsFile read_events(std::string_view content) {
  EventsFile file;
  uint64_t flaws = 0;
  for (unsigned number = 1; !content.empty(); ++number) {
    const size_t end = content.find('\n');
    std::string_view line = content.substr(0, end);
    content.remove_prefix(end == std::string_view::npos ? content.size() : end + 1);
    if (line.ends_with('\r')) line.remove_suffix(1);
    if (line.empty()) continue;
    try {
      file.events.push_back(quorl::client::parse_order_event(line));
    } catch (const quorl::client::WireError& error) {
      if (++flaws > MOST_FLAWS) continue;
      file.flaws.push_back("line " + std::to_string(number) + ": " + visible(error.what(), 300));
    }
  }
  if (flaws > MOST_FLAWS) {
    file.flaws.push_back(std::to_string(flaws - MOST_FLAWS) + " more such lines");
  }
  return file;
}

EventTruth::EventTruth(Milliseconds grace) : grace_(std::chrono::nanoseconds(grace).count()) {}

void EventTruth::on_event(const Event& event) {
  if (const auto* decision = std::get_if<Decision>(&event.what)) {
    const OrderEvent& order = decision->order;
    const ReportLedger::Report report = ledger_.decide(order);
    decided_[key_of(order)].push_back({static_cast<TimeNs>(order.t_ns), report});
  }
  sessions_.take(event);
  const auto* heard = std::get_if<FixHeard>(&event.what);
  if (heard != nullptr && heard->from == Party::EXCHANGE) {
    ledger_.hear(event, comp_of(sessions_, *heard));
  }
}

std::vector<EventFinding> EventTruth::compare(const EventsFile& file, TimeNs taken) const {
  std::map<std::string, Tally> tallies;
  for (const auto& [key, decided] : decided_) {
    Tally& tally = tallies[key];
    for (const auto& [at, report] : decided) {
      if (at > taken) continue;
      ++tally.decided;
      tally.repeats += ledger_.repeats(report);
      if (at + grace_ >= taken) continue;
      ++tally.due;
      if (!ledger_.reached(report, taken - grace_)) ++tally.untold;
    }
  }
  for (const OrderEvent& event : file.events) ++tallies[key_of(event)].believed;

  std::vector<EventFinding> findings;
  for (const auto& [key, tally] : tallies) {
    std::string order = order_of(key);
    if (findings.empty() || findings.back().order != order) {
      findings.push_back({std::move(order), {}, {}});
    }
    weigh(key, tally, findings.back());
  }
  return findings;
}

void EventTruth::weigh(const std::string& event, const Tally& tally, EventFinding& finding) const {
  if (tally.repeats > 0 && tally.believed > 0) finding.repeated = true;
  if (tally.believed < tally.due) {
    const uint64_t missing = tally.due - tally.believed;
    const uint64_t untold = std::min(missing, tally.untold);
    finding.untold += untold;
    if (missing > untold) {
      finding.wrong.push_back("missing " + std::to_string(missing - untold) +
                              " time(s): " + text_of(event));
    }
  } else if (tally.believed > tally.decided) {
    const uint64_t extra = tally.believed - tally.decided;
    std::string line = std::to_string(extra) + " time(s) too many: " + text_of(event);
    (extra <= tally.repeats ? finding.twice : finding.wrong).push_back(std::move(line));
  }
}

}  // namespace certify
