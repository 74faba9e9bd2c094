#include "quorl/client/fix_session.h"

#include <algorithm>
#include <utility>

#include "quorl/client/errors.h"
#include "quorl/client/fix_layout.h"

namespace quorl::client {
namespace {

void put_if_filled(FixFields& fields, int tag, const std::string& value) {
  if (!value.empty()) fields.push_back({tag, value});
}

bool is_plain_heartbeat(const FixMessage& message) {
  return message.type() == "0" && !message.has(112);
}

FixFields change_fields(const ChangeOrder& order) {
  FixFields fields;
  put_if_filled(fields, 11, order.cl_ord_id);
  put_if_filled(fields, 41, order.orig_cl_ord_id);
  put_if_filled(fields, 55, order.symbol);
  put_if_filled(fields, 54, order.side);
  put_if_filled(fields, 38, order.quantity);
  put_if_filled(fields, 44, order.price);
  return fields;
}

}  // namespace

FixSession::FixSession(uint16_t port, std::string comp_id)
    : port_(port), comp_id_(std::move(comp_id)) {}

void FixSession::connect() {
  stream_ = TcpStream::connect(port_);
  framer_ = FixFramer();
}

void FixSession::disconnect() { stream_.close(); }
void FixSession::abort() { stream_.abort(); }

void FixSession::expect_closed(std::chrono::milliseconds patience) {
  for (const FixMessage& message : read_to_close(patience)) {
    if (!is_plain_heartbeat(message)) {
      throw WireError("instead of the close came " + message.text());
    }
  }
}

std::vector<FixMessage> FixSession::read_to_close(std::chrono::milliseconds patience) {
  const Deadline deadline = Deadline::after(patience);
  std::vector<FixMessage> messages;
  while (auto message = receive(std::chrono::milliseconds(deadline.remaining_ms()))) {
    messages.push_back(std::move(*message));
  }
  if (connected()) throw Timeout("the exchange does not close the connection of " + comp_id_);
  return messages;
}

bool FixSession::send_bytes(std::string_view bytes) { return stream_.send_all(to_bytes(bytes)); }

std::string FixSession::send_message(const std::string& type, const FixFields& body,
                                     const SendOverrides& overrides) {
  FixHeader header;
  header.type = type;
  header.seq = overrides.seq ? *overrides.seq : std::to_string(next_out);
  header.sender = overrides.sender.value_or(comp_id_);
  header.target = overrides.target.value_or("IEXG");
  header.extra = overrides.header_extra;
  if (!overrides.seq) ++next_out;
  std::string bytes = compose_fix(header, body);
  send_bytes(bytes);
  return bytes;
}

void FixSession::new_order(const NewOrder& order) {
  FixFields fields;
  put_if_filled(fields, 11, order.cl_ord_id);
  put_if_filled(fields, 55, order.symbol);
  put_if_filled(fields, 54, order.side);
  put_if_filled(fields, 38, order.quantity);
  put_if_filled(fields, 40, order.type);
  put_if_filled(fields, 44, order.price);
  put_if_filled(fields, 59, order.tif);
  put_if_filled(fields, 18, order.exec_inst);
  put_if_filled(fields, 47, order.capacity);
  put_if_filled(fields, 114, order.locate);
  send_message("D", fields);
}

void FixSession::cancel(const ChangeOrder& order) { send_message("F", change_fields(order)); }
void FixSession::replace(const ChangeOrder& order) { send_message("G", change_fields(order)); }

void FixSession::heartbeat(const std::string& test_req_id) {
  FixFields fields;
  put_if_filled(fields, 112, test_req_id);
  send_message("0", fields);
}

void FixSession::test_request(const std::string& test_req_id) {
  FixFields fields;
  put_if_filled(fields, 112, test_req_id);
  send_message("1", fields);
}

void FixSession::resend_request(const std::string& begin, const std::string& end) {
  FixFields fields;
  put_if_filled(fields, 7, begin);
  put_if_filled(fields, 16, end);
  send_message("2", fields);
}

void FixSession::sequence_reset(const std::string& new_seq_no, bool gap_fill) {
  FixFields fields;
  if (gap_fill) fields.push_back({123, "Y"});
  put_if_filled(fields, 36, new_seq_no);
  send_message("4", fields);
}

std::optional<FixMessage> FixSession::frame_waiting() {
  const auto frame = framer_.next();
  if (!frame) return std::nullopt;
  FixMessage message = parse_fix(*frame);
  check_layout(message, comp_id_);
  account(message);
  received_.push_back(message);
  return message;
}

std::optional<FixMessage> FixSession::receive(std::chrono::milliseconds patience) {
  const Deadline deadline = Deadline::after(patience);
  for (;;) {
    if (auto message = frame_waiting()) return message;
    if (!connected()) break;
    Bytes bytes;
    if (stream_.receive(bytes, deadline) > 0) {
      framer_.append(to_text(bytes));
    } else if (connected()) {
      return std::nullopt;  // the deadline
    }
  }
  if (framer_.pending() > 0) throw WireError("the connection ends inside a message");
  return std::nullopt;
}

/// Follows the numbers of what comes. Replays and GapFills carry numbers of the past.
void FixSession::account(const FixMessage& message) {
  const uint32_t seq = message.seq();
  const bool is_gap_fill = message.type() == "4";
  const uint32_t behind = is_gap_fill ? static_cast<uint32_t>(message.number(36)) : seq + 1;
  if (seq < next_in) {
    const auto first = std::lower_bound(missing_.begin(), missing_.end(), seq);
    const auto last = std::lower_bound(first, missing_.end(), behind);
    const bool was_missing = first != last;
    missing_.erase(first, last);
    if (!message.is_possible_duplicate() && !was_missing) account_jump(message, seq);
  } else if (seq > next_in) {
    account_jump(message, seq);
  }
  next_in = std::max(next_in, behind);
}

void FixSession::account_jump(const FixMessage& message, uint32_t seq) {
  if (continuity == Continuity::UNCHECKED) return;
  if (continuity == Continuity::TRACK && seq > next_in) {
    for (uint32_t number = next_in; number < seq; ++number) missing_.push_back(number);
    return;
  }
  if (continuity == Continuity::STRICT && on_jump) {
    on_jump(message, next_in);
    return;
  }
  throw WireError("number " + std::to_string(seq) + " where " + std::to_string(next_in) +
                  " was due: " + message.text());
}

FixMessage FixSession::next(std::chrono::milliseconds patience) {
  const Deadline deadline = Deadline::after(patience);
  for (;;) {
    auto message = receive(std::chrono::milliseconds(deadline.remaining_ms()));
    if (message && !is_plain_heartbeat(*message)) return *message;
    if (message) continue;
    if (!connected()) throw WireError("the exchange has closed the connection of " + comp_id_);
    throw Timeout("nothing comes for " + comp_id_ +
                  (received_.empty() ? "" : "; the last message was " + received_.back().text()));
  }
}

FixMessage FixSession::expect(const std::string& type, std::chrono::milliseconds patience) {
  FixMessage message = next(patience);
  if (message.type() != type) {
    throw WireError("instead of 35=" + type + " came " + message.text());
  }
  return message;
}

FixMessage FixSession::expect_report(char exec_type, std::chrono::milliseconds patience) {
  return hears(std::string("35=8|150=") + exec_type, patience);
}

FixMessage FixSession::hears(std::string_view fields_with_bars,
                             std::chrono::milliseconds patience) {
  return check_fields(next(patience), fields_with_bars);
}

FixMessage FixSession::check_fields(FixMessage message, std::string_view fields_with_bars) const {
  for (const FixField& wanted : fix_fields(fields_with_bars)) {
    if (message.find(wanted.tag) != wanted.value) {
      throw WireError("no " + std::to_string(wanted.tag) + "=" + wanted.value + " of " +
                      std::string(fields_with_bars) + " in " + message.text());
    }
  }
  return message;
}

std::vector<FixMessage> FixSession::drain(std::chrono::milliseconds patience) {
  const Deadline deadline = Deadline::after(patience);
  const std::string id = "barrier-" + std::to_string(++barriers_);
  test_request(id);
  std::vector<FixMessage> before;
  for (;;) {
    FixMessage message = next(std::chrono::milliseconds(deadline.remaining_ms()));
    if (message.type() == "0" && message.get(112) == id) return before;
    before.push_back(std::move(message));
  }
}

void FixSession::hears_nothing() {
  const std::vector<FixMessage> came = drain();
  if (!came.empty()) throw WireError("where nothing was due came " + came.front().text());
}

void FixSession::send_logon(const LogonOptions& options) {
  if (!stream_.open()) connect();
  if (options.reset) {
    next_out = 1;
    next_in = 1;
    missing_.clear();
  }
  FixFields fields{{98, "0"}};
  put_if_filled(fields, 108, options.heartbeat_s);
  if (options.reset) fields.push_back({141, "Y"});
  send_message("A", fields);
}

FixMessage FixSession::logon(const LogonOptions& options) {
  if (!connected()) connect();
  send_logon(options);
  FixMessage reply = expect("A");
  if (reply.get(108) != options.heartbeat_s || reply.has(141) != options.reset) {
    throw WireError("the Logon reply does not echo the Logon: " + reply.text());
  }
  return reply;
}

void FixSession::logout() {
  send_message("5", {});
  const FixMessage reply = expect("5");
  if (reply.has(58)) throw WireError("a Logout with a Text: " + reply.text());
  expect_closed();
  disconnect();
}

}  // namespace quorl::client
