#include "certify/checks/report_ledger.h"

#include <algorithm>
#include <charconv>

namespace certify {
namespace {

/// The number in "E12"; 0 for anything else.
uint64_t number_of(const std::string& exec_id) {
  uint64_t number = 0;
  if (!exec_id.starts_with('E')) return 0;
  const char* const end = exec_id.data() + exec_id.size();
  const auto [read, error] = std::from_chars(exec_id.data() + 1, end, number);
  // No run comes near; what claims to be beyond is not the exchange's.
  constexpr uint64_t MOST = 1'000'000'000;
  return error == std::errc() && read == end && number <= MOST ? number : 0;
}

uint32_t print_of(uint64_t id, uint64_t cum, uint64_t leaves) {
  return static_cast<uint32_t>(1 + (id * 2654435761U + cum * 40503U + leaves * 97U) % 4294967291U);
}

bool is_reject(const quorl::client::OrderEvent& order) {
  return order.ev == "cancel_reject" || order.ev == "replace_reject";
}

}  // namespace

ReportLedger::Heard ReportLedger::hear(const Event& event, const std::string& comp) {
  const auto& message = std::get<FixHeard>(event.what).message;
  if (message.type() == "A" && message.is(141, "Y")) reject_numbers_.erase(comp);
  if (begin_ == 0) begin_ = event.at;
  const Moment now = moment_of(event.at);
  if (message.type() == "9") return hear_reject(message, comp, now);
  if (message.type() != "8") return {};
  const Report report = number_of(message.value(17));
  if (report == 0) return {};
  if (heard_.size() <= report) heard_.resize(std::max<size_t>(report + 1, 2 * heard_.size()));
  const bool again = heard_[report] != 0;
  if (!again) heard_[report] = now;
  compare(report, print_of(message.number(37).value_or(0), message.number(14).value_or(0),
                           message.number(151).value_or(0)));
  if (again) ++repeats_[report];
  return {report, again};
}

ReportLedger::Heard ReportLedger::hear_reject(const WireMessage& message, const std::string& comp,
                                              Moment now) {
  const bool first = reject_numbers_[comp].insert(message.number(34).value_or(0)).second;
  Alike& alike = alike_[likeness(message)];
  if (first) alike.heard.push_back(now);
  // Which one it is does not matter: they read alike.
  const size_t index = alike.heard.empty() ? 0 : alike.heard.size() - 1;
  const Report report = index < alike.decided.size() ? alike.decided[index] : REJECTS;
  if (!first && report != REJECTS) ++repeats_[report];
  return {report, !first};
}

ReportLedger::Report ReportLedger::decide(const quorl::client::OrderEvent& order) {
  if (!is_reject(order)) {
    compare(++executions_, print_of(order.oid, order.cum, order.leaves));
    return executions_;
  }
  const Report report = REJECTS + ++rejects_;
  std::string like = likeness(order);
  Alike& alike = alike_[like];
  place_.emplace(report, std::pair(std::move(like), alike.decided.size()));
  alike.decided.push_back(report);
  return report;
}

void ReportLedger::compare(Report report, uint32_t print) {
  if (print_.size() <= report) print_.resize(std::max<size_t>(report + 1, 2 * print_.size()));
  if (print_[report] == 0) print_[report] = print;
  if (print_[report] != print) consistent_ = false;
}

bool ReportLedger::reached(Report report) const { return heard(report) != 0; }

bool ReportLedger::reached(Report report, TimeNs by) const {
  const Moment moment = heard(report);
  return moment != 0 && by >= begin_ && moment <= moment_of(by);
}

ReportLedger::Moment ReportLedger::heard(Report report) const {
  if (report < REJECTS) return report < heard_.size() ? heard_[report] : 0;
  const auto place = place_.find(report);
  if (place == place_.end()) return 0;
  const std::vector<Moment>& heard = alike_.at(place->second.first).heard;
  return place->second.second < heard.size() ? heard[place->second.second] : 0;
}

ReportLedger::Moment ReportLedger::moment_of(TimeNs at) const {
  return static_cast<Moment>(std::max<TimeNs>(at - begin_, 0) / MILLISECOND + 1);
}

unsigned ReportLedger::repeats(Report report) const {
  const auto found = repeats_.find(report);
  return found == repeats_.end() ? 0 : found->second;
}

// The order event of a cancel's refusal does not name the request.
std::string ReportLedger::likeness(const WireMessage& message) {
  const bool of_replace = message.is(434, "2");
  const std::string id = message.is(37, "NONE") ? "0" : message.value(37);
  return message.value(41) + '\n' + id + '\n' + message.value(58) + '\n' +
         (of_replace ? message.value(11) : std::string());
}

std::string ReportLedger::likeness(const quorl::client::OrderEvent& order) {
  return order.cl + '\n' + std::to_string(order.oid) + '\n' + order.text + '\n' +
         order.ref.value_or("");
}

}  // namespace certify
