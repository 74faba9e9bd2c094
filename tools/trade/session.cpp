#include "tools/trade/session.h"

#include <algorithm>
#include <utility>

#include "quorl/client/bytes.h"
#include "quorl/client/errors.h"

namespace client = quorl::client;

namespace tools {
namespace {

using std::chrono::steady_clock;

bool is_plain_heartbeat(const std::string& type, const client::FixFields& body) {
  return type == "0" && body.empty();
}

/// Takes the field out and returns its value.
std::optional<std::string> taken(client::FixFields& fields, int tag) {
  const auto found = std::ranges::find(fields, tag, &client::FixField::tag);
  if (found == fields.end()) return std::nullopt;
  const std::string value = found->value;
  fields.erase(found);
  return value;
}

}  // namespace

Session::Session(SessionOptions options, Listener listener)
    : options_(std::move(options)), listener_(std::move(listener)) {}

void Session::connect(client::Deadline deadline) {
  close();
  stream_ = client::TcpStream::connect(options_.address, options_.port, deadline);
  framer_ = client::FixFramer();
  silence_told_ = false;
  last_sent_ = last_heard_ = steady_clock::now();
}

void Session::close() {
  stream_ = client::TcpStream();
  logged_on_ = false;
}

void Session::send_logon(bool reset) {
  client::FixFields body{{98, "0"}, {108, std::to_string(options_.heartbeat_s)}};
  if (reset) {
    body.push_back({141, "Y"});
    next_out = 1;
    incoming_.begin_anew();
  }
  send("A", body);
}

void Session::send(const std::string& type, const client::FixFields& body,
                   const std::optional<std::string>& seq, const client::FixFields& behind_52) {
  const client::FixHeader header{.type = type,
                                 .seq = seq ? *seq : std::to_string(next_out),
                                 .sender = options_.comp_id,
                                 .target = "IEXG",
                                 .extra = behind_52};
  if (!seq) ++next_out;
  const std::string bytes = client::compose_fix(header, body);
  listener_.on_sent(bytes, is_plain_heartbeat(type, body));
  send_bytes(bytes);
}

void Session::send_raw(const client::FixFields& fields) {
  client::FixFields body = fields;
  client::FixHeader header;
  header.type = taken(body, 35).value_or("");
  const auto seq = taken(body, 34);
  header.seq = seq.value_or(std::to_string(next_out));
  header.sender = taken(body, 49).value_or(options_.comp_id);
  header.target = taken(body, 56).value_or("IEXG");
  header.sending_time = taken(body, 52).value_or("");
  if (!seq) ++next_out;
  const std::string bytes = client::compose_fix(header, body);
  listener_.on_sent(bytes, false);
  send_bytes(bytes);
}

/// A connection that takes nothing any more is noticed by the next read.
void Session::send_bytes(std::string_view bytes) {
  if (!connected()) return;
  (void)stream_.send_all(client::to_bytes(bytes));
  last_sent_ = steady_clock::now();
}

void Session::read() {
  if (!connected()) return;
  client::Bytes bytes;
  (void)stream_.receive(bytes, client::Deadline::after(std::chrono::milliseconds(0)));
  if (!bytes.empty()) {
    last_heard_ = steady_clock::now();
    silence_told_ = false;
  }
  const bool ended = stream_.ended();
  framer_.append(client::to_text(bytes));
  try {
    // A message may lead to the end of the connection, and with it of what stands behind it.
    while (connected()) {
      const auto frame = framer_.next();
      if (!frame) break;
      take(*frame);
    }
  } catch (const client::WireError& wrong) {
    listener_.on_unreadable(wrong.what());
    close();
  }
  if (ended && connected()) {
    if (framer_.pending() > 0) listener_.on_remark("the connection ends inside a message");
    close();
  }
}

void Session::take(std::string_view frame) {
  client::FixMessage message;
  try {
    message = client::parse_fix(frame);
  } catch (const client::WireError& wrong) {
    listener_.on_unreadable(wrong.what());
    return;
  }
  const std::string remark = incoming_.take(message);
  if (message.type() == "A") logged_on_ = true;
  listener_.on_heard(message);
  if (!remark.empty()) listener_.on_remark(remark);
  answer(message);
}

void Session::answer(const client::FixMessage& message) {
  if (message.type() == "1") send("0", {{112, message.find(112).value_or("")}});
  if (message.type() != "2") return;
  // Up to the next number to be sent, so that it does not look like a gap again.
  send("4", {{123, "Y"}, {36, std::to_string(next_out)}}, message.find(7).value_or("1"),
       {{43, "Y"}});
}

std::chrono::seconds Session::silence_worth_a_remark() const {
  return std::chrono::seconds(2 * options_.heartbeat_s);
}

Session::Moment Session::next_due() const {
  if (!logged_on()) return Moment::max();
  const Moment heartbeat = last_sent_ + std::chrono::seconds(options_.heartbeat_s);
  if (silence_told_) return heartbeat;
  return std::min(heartbeat, last_heard_ + silence_worth_a_remark());
}

void Session::on_time(Moment now) {
  if (!logged_on()) return;
  if (now >= last_sent_ + std::chrono::seconds(options_.heartbeat_s)) send("0", {});
  if (silence_told_ || now < last_heard_ + silence_worth_a_remark()) return;
  silence_told_ = true;
  listener_.on_remark(
      "nothing from the exchange for " + std::to_string(silence_worth_a_remark().count()) +
      " s, where a Heartbeat was due after " + std::to_string(options_.heartbeat_s) +
      " s: 'test' asks, 'reconnect' logs on again");
}

}  // namespace tools
