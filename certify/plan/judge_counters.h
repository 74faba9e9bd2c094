#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>

#include "certify/record/events.h"

namespace certify {

/// What conditions of plans can count and the exchange does not say in `stats`: heard from the
/// events of the run. By name, each from 0:
///   connects           FIX connections of the client that the exchange took
///   orders_sent, cancels_sent, replaces_sent
///                      D, F and G of the client, without those with 43=Y
///   gap_requests       gap-fill requests that name ranges
///   gap_replies        packets of gap fill that were handed to the client
///   image_requests     requests for an image
///   image_replies      images handed over whole
///   crossing_replaces  Replaced reports that came ahead of reports with lower numbers
///   disconnects        scripted drops of a connection
///   lapses             silences of the exchange
///   link_cuts          FIX connections that the plan's link has cut
///   logons_ahead       accepted Logons with a number above the expected one
///   logons_refused     Logons answered by a Logout
///   logons_reset       accepted Logons with 141=Y
///   scripted_replace_rejects
///                      replaces refused by script, and none of those that were really wrong
///   seq_gaps           other messages with a number too high, for which the exchange asked
class JudgeCounters : public EventListener {
 public:
  JudgeCounters();
  void on_event(const Event& event) override;
  /// All of them, those at 0 too.
  const std::map<std::string, uint64_t>& values() const { return values_; }

 private:
  void count(const char* name) { ++values_.find(name)->second; }
  void on(const FixOpened& opened);
  void on(const FixHeard& heard);
  void on(const FixEnded& ended);
  void on(const GapRequested& requested);
  void on(const GapReplied& replied);
  void on(const ImageRequested& requested);
  void on(const ImageReplied& replied);
  void on(const ExchangeSaid& said);
  template <typename Other>
  void on(const Other&) {}
  void on_sent(const WireMessage& message);
  void on_received(uint32_t connection, const WireMessage& message);

  std::map<std::string, uint64_t> values_;
  std::map<uint32_t, uint64_t> replaced_;  // number of the Replaced that came last, by connection
  std::set<uint32_t> cut_;                 // connections
};

}  // namespace certify
