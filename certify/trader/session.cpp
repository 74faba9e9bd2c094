#include "certify/trader/session.h"

#include <algorithm>
#include <charconv>
#include <utility>

#include "quorl/client/errors.h"

namespace certify::trader {
namespace {

namespace client = quorl::client;
using client::FixFields;
using client::FixMessage;

constexpr Milliseconds ASK_AGAIN{2500};
constexpr unsigned MOST_ASKS = 3;
constexpr Milliseconds LOGOUT_PATIENCE{2000};
constexpr Milliseconds LEAST_LOGON_PATIENCE{2000};

bool is_application(const std::string& type) { return type == "D" || type == "F" || type == "G"; }

/// N of "MsgSeqNum too low, expecting N but received M".
std::optional<uint32_t> expected_number(const std::string& text) {
  constexpr std::string_view BEFORE = "expecting ";
  const size_t at = text.find(BEFORE);
  if (at == std::string::npos) return std::nullopt;
  const char* const begin = text.data() + at + BEFORE.size();
  uint32_t number = 0;
  const auto [end, error] = std::from_chars(begin, text.data() + text.size(), number);
  if (error != std::errc() || end == begin || number == 0) return std::nullopt;
  return number;
}

Milliseconds since(Moment then, Moment now) {
  return std::chrono::duration_cast<Milliseconds>(now - then);
}

}  // namespace

Session::Session(SessionOptions options, Habits& habits, SessionOwner& owner)
    : options_(std::move(options)), habits_(habits), owner_(owner) {
  incoming_.begin_anew();
}

void Session::on_connected(Moment now) {
  connect_at_.reset();
  framer_ = {};
  state_ = State::LOGGING_ON;
  connected_at_ = last_heard_ = now;
  tested_at_.reset();
  asked_.reset();
  barrier_.reset();
  passed_.reset();
  send_logon(now);
}

void Session::send_logon(Moment now) {
  FixFields body{{98, "0"}, {108, std::to_string(options_.heartbeat.count())}};
  const bool wanted = first_logon_ ? options_.reset : reset_refused_numbers_;
  if (habits_.resets_numbers(wanted)) {
    body.push_back({141, "Y"});
    next_out_ = 1;
    incoming_.begin_anew();
    sent_.clear();
    ++life_;
  }
  reset_refused_numbers_ = false;
  next_out_ = habits_.number_of_logon(next_out_);
  send("A", body, now);
}

void Session::on_disconnected(Moment now) {
  if (state_ != State::APART) owner_.on_remark("the connection is gone");
  const auto up = up_since_ ? since(*up_since_, now) : Milliseconds(0);
  state_ = State::APART;
  up_since_.reset();
  over_ = leaving_;
  if (!leaving_) connect_at_ = now + habits_.pause_before_connecting(pauses_.next(up));
}

void Session::on_no_connection(Moment now) {
  if (!leaving_) connect_at_ = now + pauses_.next(Milliseconds(0));
}

void Session::hang_up(const std::string& why) {
  owner_.on_remark(why);
  owner_.on_hang_up();
}

// --- Sending ---

void Session::send(const std::string& type, const FixFields& body, Moment now) {
  send_numbered(type, body, next_out_++, {}, now);
}

void Session::send_numbered(const std::string& type, FixFields body, uint32_t seq, FixFields extra,
                            Moment now) {
  client::FixHeader header{.type = type,
                           .seq = std::to_string(seq),
                           .sender = options_.comp_id,
                           .target = "IEXG",
                           .sending_time = client::fix_timestamp_now(),
                           .extra = std::move(extra)};
  if (is_application(type) && header.extra.empty()) {
    sent_.keep({seq, type, header.sending_time, body});
  }
  habits_.before_send(header, body);
  std::string bytes = client::compose_fix(header, body);
  habits_.before_bytes(bytes);
  last_sent_ = now;
  owner_.on_bytes_to_send(bytes);
}

void Session::log_out(Moment now) {
  if (leaving_) return;
  leaving_ = true;
  connect_at_.reset();
  if (state_ == State::UP && habits_.logs_out()) {
    send("5", {}, now);
    state_ = State::LOGGING_OUT;
    logout_at_ = now;
    return;
  }
  over_ = true;
  if (state_ != State::APART) owner_.on_hang_up();
}

void Session::settle(Moment now) {
  // One that is answered is good once nothing is missing; the next one would not be so any sooner.
  if (state_ != State::UP || barrier_ || passed_) return;
  barrier_ = {"settle-" + std::to_string(++tests_), now};
  test_line(barrier_->id, now);
}

void Session::test_line(const std::string& id, Moment now) { send("1", {{112, id}}, now); }

// --- Hearing ---

void Session::on_bytes(std::string_view bytes, Moment now) {
  last_heard_ = now;
  tested_at_.reset();
  framer_.append(bytes);
  try {
    // A message may lead to the end of the connection.
    while (state_ != State::APART) {
      const auto frame = framer_.next();
      if (!frame) return;
      take(*frame, now);
    }
  } catch (const client::WireError& wrong) {
    hang_up(wrong.what());
  }
}

/// What cannot be read is as if it had not come: its number is missing, and is asked for.
void Session::take(std::string_view frame, Moment now) {
  try {
    on_message(client::parse_fix(frame), now);
  } catch (const client::WireError& wrong) {
    owner_.on_remark(wrong.what());
  }
}

void Session::on_message(const FixMessage& message, Moment now) {
  const std::string type = message.type();
  const bool is_new = message.seq() >= incoming_.next().value_or(1) ||
                      incoming_.is_missing(message.seq()) || !message.is_possible_duplicate();
  note_number(message);
  if (!incoming_.complete() && !hole_since_) hole_since_ = now;
  if (type == "5") return on_logout(message, now);
  // A silence of the exchange swallows the answer to the Logon too. Its number is missing then.
  if (state_ == State::LOGGING_ON) come_up(now);
  if (type == "8" || type == "9") {
    if (is_new || !habits_.takes_each_report_once()) {
      owner_.on_report(message, {life_, message.seq()});
    }
  } else if (type == "1") {
    send("0", {{112, message.find(112).value_or("")}}, now);
  } else if (type == "2") {
    on_resend_request(message, now);
  } else if (type == "3") {
    owner_.on_remark("rejected: " + message.text());
  } else if (type == "0" && barrier_ && message.find(112) == barrier_->id) {
    passed_ = barrier_->sent;
    barrier_.reset();
  }
  note_settled();
}

void Session::note_number(const FixMessage& message) {
  const uint32_t due = incoming_.next().value_or(1);
  const uint32_t last_before = incoming_.complete() ? 0 : incoming_.last_missing();
  const std::string remark = incoming_.take(message);
  if (!remark.empty()) owner_.on_remark(remark);
  if (incoming_.next() < due) ++life_;  // the exchange has begun anew
  const uint32_t last = incoming_.complete() ? 0 : incoming_.last_missing();
  if (last != last_before && last != 0 && last > last_before) hole_since_.reset();
  if (last == 0) {
    if (asked_) owner_.on_remark("nothing is missing any more");
    hole_since_.reset();
    asked_.reset();
  }
}

void Session::come_up(Moment now) {
  state_ = State::UP;
  up_since_ = now;
  was_up_ = true;
  first_logon_ = false;
  // Earlier connections are over: what the exchange has taken from them is behind this answer.
  passed_ = connected_at_;
  owner_.on_remark("logged on, next number " + std::to_string(next_out_));
}

void Session::on_logout(const FixMessage& message, Moment now) {
  const std::string text = message.find(58).value_or("");
  if (state_ == State::LOGGING_ON) {
    first_logon_ = false;
    if (const auto expected = expected_number(text)) {
      next_out_ = *expected;
    } else {
      reset_refused_numbers_ = true;
    }
  } else if (state_ == State::UP) {
    send("5", {}, now);
  }
  hang_up("logged out" + (text.empty() ? "" : ": " + text));
}

/// One GapFill up to the number that is used next: an old order is not to be executed late, and
/// anything less would look like a gap again.
void Session::on_resend_request(const FixMessage& message, Moment now) {
  if (!habits_.answers_resend_request()) return;
  const auto from = static_cast<uint32_t>(std::max<uint64_t>(message.number(7), 1));
  if (from >= next_out_) return;
  owner_.on_remark("asked to send again from " + std::to_string(from));
  if (!options_.replays) return fill_gap(from, next_out_, now);
  const auto to = message.has(16) ? static_cast<uint32_t>(message.number(16)) : 0;
  replay(from, to == 0 ? next_out_ - 1 : std::min(to, next_out_ - 1), now);
}

void Session::replay(uint32_t from, uint32_t to, Moment now) {
  uint32_t gap = from;
  for (uint32_t seq = from; seq <= to; ++seq) {
    const SentMessages::Message* message = sent_.find(seq);
    if (message == nullptr) continue;
    if (gap < seq) fill_gap(gap, seq, now);
    send_numbered(message->type, message->body, seq, {{43, "Y"}, {122, message->sending_time}},
                  now);
    gap = seq + 1;
  }
  if (gap < next_out_) fill_gap(gap, next_out_, now);
}

void Session::fill_gap(uint32_t from, uint32_t behind, Moment now) {
  send_numbered("4", {{123, "Y"}, {36, std::to_string(behind)}}, from,
                {{43, "Y"}, {122, client::fix_timestamp_now()}}, now);
}

void Session::note_settled() {
  if (!passed_ || !incoming_.complete()) return;
  settled_ = std::max(settled_, *passed_);
  passed_.reset();
}

// --- In time ---

Milliseconds Session::silence_limit() const {
  const Milliseconds interval(options_.heartbeat);
  return interval + std::max(interval / 5, Milliseconds(400));
}

/// Shorter than the exchange's own, which is 2.5 intervals: nothing may be sent while it lasts.
Milliseconds Session::logon_patience() const {
  return std::max(2 * Milliseconds(options_.heartbeat), LEAST_LOGON_PATIENCE);
}

Moment Session::silence_due() const {
  if (!tested_at_) return last_heard_ + silence_limit();
  return *tested_at_ + silence_limit();
}

Moment Session::hole_due() const {
  if (state_ != State::UP || incoming_.complete() || !hole_since_) return Moment::max();
  if (!habits_.asks_for_holes()) return Moment::max();
  if (!asked_ || incoming_.last_missing() > asked_->last)
    return *hole_since_ + habits_.wait_before_asking();
  if (asked_->times >= MOST_ASKS && habits_.leaves_asked_alone()) return Moment::max();
  return asked_->at + (habits_.leaves_asked_alone() ? ASK_AGAIN : habits_.wait_before_asking());
}

Moment Session::next_due() const {
  switch (state_) {
    case State::APART:
      return connect_at_.value_or(Moment::max());
    case State::LOGGING_ON:
      return connected_at_ + logon_patience();
    case State::LOGGING_OUT:
      return logout_at_ + LOGOUT_PATIENCE;
    case State::UP:
      return std::min({last_sent_ + options_.heartbeat, silence_due(), hole_due()});
  }
  return Moment::max();
}

void Session::on_time(Moment now) {
  if (state_ == State::LOGGING_ON && now >= next_due()) {
    return hang_up("the Logon is not answered");
  }
  if (state_ == State::LOGGING_OUT && now >= next_due()) {
    return hang_up("the Logout is not answered");
  }
  if (state_ != State::UP) return;
  ask_for_holes(now);
  if (now >= silence_due()) watch_line(now);
  if (state_ == State::UP && now >= last_sent_ + options_.heartbeat) send("0", {}, now);
}

void Session::watch_line(Moment now) {
  if (!tested_at_) {
    tested_at_ = now;
    if (!habits_.tests_silent_line()) return;
    owner_.on_remark("silence: testing the line");
    test_line("silence-" + std::to_string(++tests_), now);
  } else if (habits_.drops_silent_line()) {
    hang_up("still silent: dropping the line");
  } else {
    tested_at_ = now;
  }
}

void Session::ask_for_holes(Moment now) {
  if (now < hole_due()) return;
  uint32_t from = incoming_.first_missing();
  const uint32_t last = incoming_.last_missing();
  const bool again = asked_ && last <= asked_->last;
  if (asked_ && !again) from = std::max(from, asked_->last + 1);
  asked_ = {last, now, again ? asked_->times + 1 : 1};
  owner_.on_remark("missing " + incoming_.missing_text());
  send("2", {{7, std::to_string(from)}, {16, std::to_string(last)}}, now);
}

bool Session::ready() const {
  const bool whole = incoming_.complete() || !habits_.trades_only_when_whole();
  return state_ == State::UP && whole && !tested_at_ && !barrier_;
}

ReportPlace Session::complete_below() const {
  return {life_, incoming_.complete() ? incoming_.next().value_or(1) : incoming_.first_missing()};
}

}  // namespace certify::trader
