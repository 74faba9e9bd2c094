#include "quorl/client/recovering_fix_client.h"

#include <algorithm>
#include <utility>

#include "quorl/client/errors.h"

namespace quorl::client {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds ASK_AGAIN{500};
constexpr milliseconds PUMP_STEP{50};
constexpr unsigned MOST_LOGONS_PER_RUN = 50;

/// All that a replay must repeat.
bool same_message(const FixMessage& first, const FixMessage& again) {
  return first.type() == again.type() && first.seq() == again.seq() && first.body() == again.body();
}

}  // namespace

RecoveringFixClient::RecoveringFixClient(uint16_t port, std::string comp_id)
    : session_(port, std::move(comp_id)) {
  session_.continuity = Continuity::UNCHECKED;  // the numbers are followed here
}

void RecoveringFixClient::log_on(const std::string& heartbeat_s) {
  heartbeat_s_ = heartbeat_s;
  session_.connect();
  session_.send_logon({.heartbeat_s = heartbeat_s, .reset = false});
  ++logons_;
}

bool RecoveringFixClient::pump(milliseconds patience) {
  auto message = session_.receive(patience);
  while (message) {
    on_message(*message);
    message = session_.receive(milliseconds(0));
  }
  return session_.connected();
}

bool RecoveringFixClient::run_until(const std::function<bool()>& done, milliseconds patience) {
  const Deadline deadline = Deadline::after(patience);
  const unsigned most_logons = logons_ + MOST_LOGONS_PER_RUN;
  Deadline ask_again = Deadline::after(milliseconds(0));
  while (!done()) {
    if (deadline.expired()) return false;
    if (!pump(std::min(PUMP_STEP, milliseconds(deadline.remaining_ms())))) {
      if (logons_ == most_logons) throw WireError("dropped again and again");
      log_on(heartbeat_s_);
      ask_again = Deadline::after(milliseconds(0));
    } else if (!missing_.empty() && ask_again.expired()) {
      ask_for_missing();
      ask_again = Deadline::after(ASK_AGAIN);
    }
  }
  return true;
}

void RecoveringFixClient::recover(milliseconds patience) {
  const Deadline deadline = Deadline::after(patience);
  ++barriers_;
  answered_ = false;
  const auto complete_now = [this] { return answered_ && missing_.empty(); };
  while (!complete_now()) {
    if (deadline.expired()) {
      throw Timeout(session_.comp_id() + " misses " + std::to_string(missing_.size()) + " numbers" +
                    (answered_ ? "" : " and the answer to a TestRequest"));
    }
    // A lapse swallows the answer, a drop the request: so it is asked again.
    if (!answered_) session_.test_request("recover-" + std::to_string(barriers_));
    run_until(complete_now, std::min(ASK_AGAIN, milliseconds(deadline.remaining_ms())));
  }
}

void RecoveringFixClient::on_message(const FixMessage& message) {
  const std::string type = message.type();
  if (type == "8" || type == "9") return on_application(message);
  if (type == "4") return on_gap_fill(message);
  note_number(message.seq());
  if (type == "2") on_resend_request(message);
  if (type == "5") throw WireError("logged out: " + message.text());
  if (type == "0" && message.find(112) == "recover-" + std::to_string(barriers_)) answered_ = true;
}

void RecoveringFixClient::note_number(uint32_t seq) {
  for (uint32_t number = next_in_; number < seq; ++number) missing_.insert(number);
  next_in_ = std::max(next_in_, seq + 1);
  missing_.erase(seq);
}

void RecoveringFixClient::on_application(const FixMessage& message) {
  const uint32_t seq = message.seq();
  if (message.is_possible_duplicate()) ++replays_received_;
  const auto [known, is_new] = application_.try_emplace(seq, message);
  if (!is_new && !message.is_possible_duplicate()) {
    throw WireError("sent twice as new: " + message.text());
  }
  if (!is_new && !same_message(known->second, message)) {
    throw WireError("the replay " + message.text() + " differs from " + known->second.text());
  }
  if (is_new && message.type() == "8" &&
      !seq_of_exec_id_.try_emplace(message.get(17), seq).second) {
    throw WireError("an ExecID under two numbers: " + message.text());
  }
  note_number(seq);
}

void RecoveringFixClient::on_gap_fill(const FixMessage& message) {
  const auto first = message.seq();
  const auto behind = static_cast<uint32_t>(message.number(36));
  if (behind <= first) throw WireError("a GapFill of nothing: " + message.text());
  const auto covered = application_.lower_bound(first);
  if (covered != application_.end() && covered->first < behind) {
    throw WireError("the GapFill " + message.text() + " covers " + covered->second.text());
  }
  for (uint32_t number = next_in_; number < first; ++number) missing_.insert(number);
  missing_.erase(missing_.lower_bound(first), missing_.lower_bound(behind));
  next_in_ = std::max(next_in_, behind);
}

/// The exchange missed messages of a connection that broke. They are not sent again: an old order
/// is not to be executed late. One GapFill takes it to our next number, so no further gap shows.
void RecoveringFixClient::on_resend_request(const FixMessage& message) {
  const std::string begin = message.get(7);
  session_.send_message("4", {{123, "Y"}, {36, std::to_string(session_.next_out)}},
                        {.seq = begin, .header_extra = {{43, "Y"}}});
}

void RecoveringFixClient::ask_for_missing() {
  session_.resend_request(std::to_string(*missing_.begin()), std::to_string(*missing_.rbegin()));
  ++resend_requests_sent_;
}

std::vector<FixMessage> RecoveringFixClient::reports() const {
  std::vector<FixMessage> reports;
  for (const auto& [seq, message] : application_) {
    if (message.type() == "8") reports.push_back(message);
  }
  return reports;
}

std::vector<std::string> RecoveringFixClient::exec_ids() const {
  std::vector<std::string> ids;
  for (const FixMessage& report : reports()) ids.push_back(report.get(17));
  return ids;
}

}  // namespace quorl::client
