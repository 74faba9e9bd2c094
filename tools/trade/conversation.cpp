#include "tools/trade/conversation.h"

#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <utility>
#include <variant>

#include "quorl/client/errors.h"
#include "tools/exit_status.h"
#include "tools/seconds.h"
#include "tools/trade/fix_names.h"

namespace client = quorl::client;

namespace tools {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr size_t MOST_HEARD = 10000;

/// A Replaced report overtakes the fills it led to: what is missing only that long is not.
constexpr milliseconds OVERTAKING{250};

constexpr milliseconds INTERRUPTED_GOODBYE{2000};

constexpr unsigned MOST_COME_BACKS = 7;
constexpr milliseconds FIRST_PAUSE{100};
constexpr milliseconds LONGEST_PAUSE{3200};

bool is_plain_heartbeat(const client::FixMessage& message) {
  return message.type() == "0" && !message.has(112);
}

/// The exchange says no.
bool is_refusal(const client::FixMessage& message) {
  const std::string type = message.type();
  return type == "9" || type == "3" || (type == "8" && message.find(150) == "8") ||
         (type == "5" && message.has(58));
}

std::string in_bars(const client::FixFields& fields) {
  std::string text;
  for (const client::FixField& field : fields) {
    text += (text.empty() ? "" : "|") + std::to_string(field.tag) + "=" + field.value;
  }
  return text;
}

bool has(const client::FixFields& fields, int tag) {
  return std::ranges::find(fields, tag, &client::FixField::tag) != fields.end();
}

std::string value_of(const client::FixFields& fields, int tag) {
  const auto found = std::ranges::find(fields, tag, &client::FixField::tag);
  return found == fields.end() ? "" : found->value;
}

/// `more` takes the place of what stands there already, or comes behind it.
void put_all(client::FixFields& fields, const client::FixFields& more) {
  for (const client::FixField& field : more) {
    const auto known = std::ranges::find(fields, field.tag, &client::FixField::tag);
    if (known == fields.end()) {
      fields.push_back(field);
    } else {
      known->value = field.value;
    }
  }
}

}  // namespace

Conversation::Conversation(ConversationOptions options, const StopSignal& stop)
    : options_(std::move(options)),
      stop_(stop),
      session_(options_.session,
               {.on_sent = [this](auto bytes, bool plain) { on_sent(bytes, plain); },
                .on_heard = [this](const auto& message) { on_heard(message); },
                .on_unreadable = [this](const auto& what) { remark("unreadable: " + what); },
                .on_remark = [this](const auto& text) { remark(text); }}),
      orders_(std::chrono::system_clock::now()) {}

int Conversation::run(LineReader& input) {
  if (log_on(options_.reset) != LogonResult::ON) {
    if (stop_.came()) return SAID_NO;
    std::fprintf(stderr, "quorl-trade: %s\n", logon_problem_.c_str());
    return logout_text_ ? SAID_NO : NOBODY_ANSWERED;
  }
  while (!over_ && !failure_ && !stop_.came()) {
    const auto line = input.next();
    if (!line && input.at_end()) break;
    if (line) {
      pump(-1, steady_clock::now());
      ++line_number_;
      obey(*line);
    } else if (pump(input.fd(), Moment::max())) {
      input.read();
    }
  }
  log_out();
  return status_at_end();
}

// What the session tells.

void Conversation::on_sent(std::string_view bytes, bool is_plain) {
  if (is_plain && !options_.all) return;
  print("> " + (options_.explain ? explained(bytes) : client::with_bars(bytes)));
}

void Conversation::on_heard(const client::FixMessage& message) {
  orders_.note_report(message);
  if (logging_on_ && message.type() == "5") logout_text_ = message.find(58).value_or("");
  // What refuses a Logon is told by its caller.
  const bool is_no = is_refusal(message) && !logging_on_;
  heard_.push_back({client::with_bars(message.raw()), explained(message.raw()), message, is_no});
  if (!is_plain_heartbeat(message) || options_.all) {
    print("< " + (options_.explain ? heard_.back().explained : heard_.back().plain));
  }
  if (heard_.size() > MOST_HEARD) {
    pass(heard_.front());
    heard_.pop_front();
  }
}

void Conversation::remark(const std::string& text) { print("! " + text); }

void Conversation::print(const std::string& line) {
  (void)std::puts(line.c_str());
  (void)std::fflush(stdout);
}

// Waiting.

/// Waits until something happens, at most until the moment, and deals with it. Returns whether
/// there is input; -1 stands for not looking there.
bool Conversation::pump(int input_fd, Moment until) {
  const Moment due = std::min({until, session_.next_due(), missing_due()});
  pollfd ready[] = {{stop_.fd(), POLLIN, 0}, {session_.fd(), POLLIN, 0}, {input_fd, POLLIN, 0}};
  if (::poll(ready, 3, milliseconds_until(due)) < 0 && errno != EINTR) {
    throw client::SystemError("poll");
  }
  session_.read();
  session_.on_time(steady_clock::now());
  notice_loss();
  notice_missing();
  return ready[2].revents != 0;
}

/// Returns whether it is done. A signal ends it early.
bool Conversation::wait_until(const std::function<bool()>& done, milliseconds patience) {
  const Moment end = steady_clock::now() + patience;
  while (!done()) {
    if (stop_.came() || steady_clock::now() >= end) return false;
    pump(-1, end);
  }
  return true;
}

void Conversation::notice_loss() {
  if (!had_session_ || session_.connected()) return;
  had_session_ = false;
  lost_ = true;
  loss_unseen_ = true;
  const std::string number = std::to_string(session_.next_out);
  if (options_.reconnect) {
    remark("the exchange has closed the connection");
    come_back();
  } else if (options_.at_terminal) {
    remark("the exchange has closed the connection: log on again with number " + number +
           "? [Y/n]");
    is_offered_ = true;
  } else {
    remark("the exchange has closed the connection: 'reconnect' logs on again with number " +
           number);
  }
}

void Conversation::notice_missing() {
  const IncomingNumbers& numbers = session_.incoming();
  const std::string missing = numbers.missing_text();
  if (missing != missing_seen_) {
    missing_seen_ = missing;
    missing_since_ = steady_clock::now();
  }
  if (numbers.next().value_or(1) <= missing_told_) missing_told_ = 0;  // begun anew
  if (steady_clock::now() < missing_due()) return;
  missing_told_ = numbers.last_missing();
  if (options_.reconnect && session_.logged_on()) {
    remark("missed: " + missing);
    ask_for(numbers.first_missing(), numbers.last_missing());
  } else {
    remark("missed: " + missing + ": 'resend' asks for it again");
  }
}

/// When what is missing is to be told; never if that has been done.
Conversation::Moment Conversation::missing_due() const {
  const IncomingNumbers& numbers = session_.incoming();
  if (numbers.complete() || numbers.last_missing() <= missing_told_) return Moment::max();
  return missing_since_ + OVERTAKING;
}

// The session.

/// A Logon whose number the exchange refuses as too low is tried once more with the one it names.
Conversation::LogonResult Conversation::log_on(bool reset) {
  const bool is_first = !session_.incoming().next();
  LogonResult result = try_log_on(reset);
  if (result == LogonResult::REFUSED && take_number_from_refusal()) {
    remark("logging on again with number " + std::to_string(session_.next_out));
    result = try_log_on(reset);
  }
  if (result != LogonResult::ON) {
    session_.close();
    return result;
  }
  if (is_first && !reset && session_.incoming().next().value_or(1) > 2) {
    remark("this session has been spoken to before: 'resend 1' asks for all of it again");
  }
  had_session_ = true;
  lost_ = false;
  is_offered_ = false;
  return result;
}

Conversation::LogonResult Conversation::try_log_on(bool reset) {
  const std::string where = options_.session.address + ":" + std::to_string(options_.session.port);
  had_session_ = false;
  logout_text_.reset();
  try {
    session_.connect(client::Deadline::after(options_.timeout));
  } catch (const std::exception& failure) {
    logon_problem_ = "no exchange at " + where + ": " + failure.what();
    return LogonResult::NOBODY;
  }
  logging_on_ = true;
  session_.send_logon(reset);
  (void)wait_until([this] { return session_.logged_on() || !session_.connected(); },
                   options_.timeout);
  logging_on_ = false;
  if (session_.logged_on()) return LogonResult::ON;
  if (logout_text_) {
    logon_problem_ = "the exchange at " + where + " refuses the Logon: " + *logout_text_;
    return LogonResult::REFUSED;
  }
  logon_problem_ =
      "the exchange at " + where +
      (session_.connected() ? " does not answer the Logon within " + seconds_text(options_.timeout)
                            : " closes the connection instead of an answer");
  return LogonResult::NOBODY;
}

bool Conversation::take_number_from_refusal() {
  constexpr std::string_view BEFORE = "MsgSeqNum too low, expecting ";
  const size_t at = logout_text_->find(BEFORE);
  if (at == std::string::npos) return false;
  const std::string digits = logout_text_->substr(at + BEFORE.size());
  const unsigned long number = std::strtoul(digits.c_str(), nullptr, 10);
  if (number == 0 || number > UINT32_MAX) return false;
  session_.next_out = static_cast<uint32_t>(number);
  return true;
}

void Conversation::come_back() {
  if (std::exchange(coming_back_, true)) return;
  LogonResult result = LogonResult::NOBODY;
  milliseconds pause = FIRST_PAUSE;
  for (unsigned tries = 0; tries < MOST_COME_BACKS && !stop_.came(); ++tries) {
    result = log_on(false);
    if (result != LogonResult::NOBODY) break;
    remark(logon_problem_);
    if (tries + 1 == MOST_COME_BACKS) break;
    (void)wait_until([] { return false; }, pause);
    pause = std::min(2 * pause, LONGEST_PAUSE);
  }
  coming_back_ = false;
  if (result == LogonResult::REFUSED) fail(SAID_NO, logon_problem_);
  if (result == LogonResult::NOBODY && !stop_.came()) fail(NOBODY_ANSWERED, logon_problem_);
}

void Conversation::log_out() {
  if (!session_.connected()) return;
  had_session_ = false;  // its end is no loss
  session_.send("5", {});
  const auto closed = [this] { return !session_.connected(); };
  // A signal that ends the conversation does not spare the goodbye, but nobody waits long for it.
  const milliseconds patience =
      stop_.came() ? std::min(options_.timeout, INTERRUPTED_GOODBYE) : options_.timeout;
  const Moment end = steady_clock::now() + patience;
  while (!closed() && steady_clock::now() < end) {
    pollfd ready{session_.fd(), POLLIN, 0};
    (void)::poll(&ready, 1, milliseconds_until(end));
    session_.read();
  }
  if (!closed()) {
    remark("no answer to the Logout within " + seconds_text(patience));
    session_.close();
  }
}

void Conversation::ask_for(uint32_t from, uint32_t to) {
  session_.send("2", {{7, std::to_string(from)}, {16, std::to_string(to)}});
}

// Commands.

void Conversation::obey(const std::string& line) {
  if (std::exchange(is_offered_, false)) {
    if (line.empty() || line == "y" || line == "yes") {
      carry_out(command::Reconnect{});
      return;
    }
    if (line == "n" || line == "no") return;
  }
  const auto parsed = command::parse(line);
  if (const auto* complaint = std::get_if<command::Complaint>(&parsed)) {
    fail(USED_WRONGLY, complaint->text);
    return;
  }
  std::visit([this](const auto& command) { carry_out(command); },
             std::get<command::Command>(parsed));
}

/// At a terminal the user is told; a script ends with the status, its first failure counts.
void Conversation::fail(int status, const std::string& text) {
  if (stop_.came()) return;
  if (options_.at_terminal) {
    remark(text);
    return;
  }
  if (failure_) return;
  failure_ = status;
  const std::string where = line_number_ == 0 ? "" : "line " + std::to_string(line_number_) + ": ";
  std::fprintf(stderr, "quorl-trade: %s%s\n", where.c_str(), text.c_str());
}

bool Conversation::needs_session() {
  if (session_.connected()) return true;
  fail(SAID_NO,
       "not connected: 'reconnect' logs on again with number " + std::to_string(session_.next_out));
  return false;
}

void Conversation::carry_out(const command::Place& place) {
  if (!needs_session()) return;
  client::FixFields fields = place.fields;
  if (!has(fields, 11)) fields.insert(fields.begin(), {11, orders_.new_id()});
  orders_.note_sent({.id = value_of(fields, 11),
                     .symbol = value_of(fields, 55),
                     .side = value_of(fields, 54),
                     .status = "",
                     .leaves = "",
                     .quantity = value_of(fields, 38),
                     .price = value_of(fields, 44)});
  session_.send("D", fields);
}

void Conversation::carry_out(const command::Cancel& cancel) {
  if (!needs_session()) return;
  const std::string id = orders_.resolved(cancel.order);
  const Orders::Order* order = orders_.find(id);
  client::FixFields fields;
  if (!has(cancel.fields, 11)) fields.push_back({11, orders_.new_id()});
  fields.push_back({41, id});
  if (order != nullptr) put_all(fields, {{55, order->symbol}, {54, order->side}});
  put_all(fields, cancel.fields);
  session_.send("F", fields);
}

void Conversation::carry_out(const command::Replace& replace) {
  if (!needs_session()) return;
  const std::string id = orders_.resolved(replace.order);
  const Orders::Order* order = orders_.find(id);
  client::FixFields fields;
  if (!has(replace.fields, 11)) fields.push_back({11, orders_.new_id()});
  fields.push_back({41, id});
  if (order != nullptr) put_all(fields, {{55, order->symbol}, {54, order->side}});
  put_all(fields, replace.fields);
  orders_.note_sent({.id = value_of(fields, 11),
                     .symbol = value_of(fields, 55),
                     .side = value_of(fields, 54),
                     .status = "",
                     .leaves = "",
                     .quantity = value_of(fields, 38),
                     .price = value_of(fields, 44)});
  session_.send("G", fields);
}

void Conversation::carry_out(const command::Raw& raw) {
  if (needs_session()) session_.send_raw(raw.fields);
}

void Conversation::carry_out(const command::RawBytes& raw) {
  if (!needs_session()) return;
  on_sent(raw.bytes, false);
  session_.send_bytes(raw.bytes);
}

void Conversation::carry_out(const command::Resend& resend) {
  if (!needs_session()) return;
  const IncomingNumbers& numbers = session_.incoming();
  if (resend.from) {
    ask_for(*resend.from, resend.to);
  } else if (numbers.complete()) {
    remark("nothing is missing");
  } else {
    ask_for(numbers.first_missing(), numbers.last_missing());
  }
}

void Conversation::carry_out(const command::Test& test) {
  if (!needs_session()) return;
  session_.send("1", {{112, test.id.empty() ? "test-" + std::to_string(++tests_) : test.id}});
}

void Conversation::carry_out(const command::SetNumber& set) { session_.next_out = set.next_out; }

void Conversation::carry_out(const command::Reconnect& reconnect) {
  const LogonResult result = log_on(reconnect.reset);
  loss_unseen_ = false;
  if (result == LogonResult::REFUSED) fail(SAID_NO, logon_problem_);
  if (result == LogonResult::NOBODY) fail(NOBODY_ANSWERED, logon_problem_);
}

void Conversation::carry_out(const command::LogOut&) {
  if (needs_session()) log_out();
}

void Conversation::carry_out(const command::Drop&) {
  had_session_ = false;
  session_.close();
}

void Conversation::carry_out(const command::Wait& wait) {
  await_message(
      [&wait](const Heard& heard) {
        return heard.plain.find(wait.text) != std::string::npos ||
               heard.explained.find(wait.text) != std::string::npos;
      },
      "wait " + wait.text);
}

void Conversation::carry_out(const command::Expect& expect) {
  client::FixFields wanted = expect.fields;
  for (client::FixField& field : wanted) {
    if (field.tag == 11 || field.tag == 41) field.value = orders_.resolved(field.value);
  }
  await_message(
      [&wanted](const Heard& heard) {
        return std::ranges::all_of(wanted, [&heard](const client::FixField& field) {
          return heard.message.find(field.tag) == field.value;
        });
      },
      "expect " + in_bars(expect.fields));
}

void Conversation::carry_out(const command::ExpectClosed&) {
  const bool came =
      wait_until([this] { return loss_unseen_ || failure_.has_value(); }, options_.timeout);
  if (came && !failure_) {
    loss_unseen_ = false;
    lost_ = false;
  } else {
    fail(SAID_NO,
         session_.connected()
             ? "expect closed: the connection stands after " + seconds_text(options_.timeout)
             : "expect closed: the exchange has not closed it, it was not open");
  }
}

void Conversation::carry_out(const command::Sleep& sleep) {
  (void)wait_until([this] { return failure_.has_value(); }, sleep.time);
}

void Conversation::carry_out(const command::SetTimeout& set) { options_.timeout = set.time; }

void Conversation::carry_out(const command::ShowOrders&) {
  const std::vector<std::string> lines = orders_.lines();
  for (const std::string& line : lines) remark(line);
  if (lines.empty()) remark("no orders");
}

void Conversation::carry_out(const command::ShowStatus&) {
  const IncomingNumbers& numbers = session_.incoming();
  const std::string state = session_.logged_on()   ? "logged on"
                            : session_.connected() ? "connected, not logged on"
                                                   : "not connected";
  const std::string next_in = numbers.next() ? std::to_string(*numbers.next()) : "not known";
  remark(options_.session.comp_id + " at " + options_.session.address + ":" +
         std::to_string(options_.session.port) + ": " + state + ", next number out " +
         std::to_string(session_.next_out) + ", next in " + next_in +
         (numbers.complete() ? ", nothing missing" : ", missing " + numbers.missing_text()));
}

void Conversation::carry_out(const command::Help&) {
  for (const std::string& line : command::help()) remark(line);
}

// Expecting.

void Conversation::await_message(const std::function<bool(const Heard&)>& wanted,
                                 const std::string& sought) {
  bool found = false;
  const auto look = [&] {
    while (!found && !heard_.empty()) {
      const Heard heard = std::move(heard_.front());
      heard_.pop_front();
      found = wanted(heard);
      if (!found) pass(heard);
    }
    return found || !session_.connected() || failure_.has_value();
  };
  (void)wait_until(look, options_.timeout);
  if (found) return;
  fail(SAID_NO,
       sought + (session_.connected() ? ": not heard within " + seconds_text(options_.timeout)
                                      : ": not heard, and there is no connection"));
}

/// A message that is left behind without anybody having asked for it.
void Conversation::pass(const Heard& heard) {
  if (heard.is_refusal && refusals_++ == 0) refusal_ = heard.plain;
}

int Conversation::status_at_end() {
  if (failure_) return *failure_;
  if (options_.at_terminal) return GOOD;
  for (const Heard& heard : heard_) pass(heard);
  if (stop_.came()) {
    std::fprintf(stderr, "quorl-trade: ended by a signal\n");
    return SAID_NO;
  }
  if (refusals_ > 0) {
    const std::string more =
        refusals_ > 1 ? " (and " + std::to_string(refusals_ - 1) + " more)" : "";
    std::fprintf(stderr, "quorl-trade: refused, which the script did not expect: %s%s\n",
                 refusal_.c_str(), more.c_str());
    return SAID_NO;
  }
  if (lost_) {
    std::fprintf(stderr,
                 "quorl-trade: the exchange closed the connection, which the script did not "
                 "expect\n");
    return SAID_NO;
  }
  return GOOD;
}

}  // namespace tools
