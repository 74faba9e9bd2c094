#include "perf/load.h"

#include <poll.h>
#include <sys/socket.h>
#include <time.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <string>
#include <utility>

#include "quorl/client/errors.h"
#include "quorl/client/iex_tp.h"

namespace client = quorl::client;

namespace perf {
namespace {

constexpr char SOH = '\x01';
constexpr std::string_view ANY_TIME = "20260101-00:00:00.000";
constexpr std::string_view FRAME_HEAD =
    "8=FIX.4.2\x01"
    "9=";
constexpr size_t TRAILER_SIZE = 7;  // 10=nnn SOH
constexpr int RECEIVE_BUFFER = 4 * 1024 * 1024;
constexpr size_t INPUT_SIZE = 1024 * 1024;
constexpr unsigned SPINS_PER_LOOK_AT_THE_CLOCK = 4096;

void append_number(std::string& out, uint64_t number) {
  std::array<char, 20> digits;
  const auto end = std::to_chars(digits.begin(), digits.end(), number).ptr;
  out.append(digits.data(), end);
}

void append_price(std::string& out, uint32_t cents) {
  append_number(out, cents / 100);
  out += '.';
  out += static_cast<char>('0' + cents / 10 % 10);
  out += static_cast<char>('0' + cents % 10);
}

/// Eight bytes: the request's number behind a letter, always of one width.
std::array<char, 8> cl_ord_id_of(RequestId request) {
  std::array<char, 8> text{'R'};
  for (size_t i = 7; i >= 1; --i, request /= 10) text[i] = static_cast<char>('0' + request % 10);
  return text;
}

std::string_view view(const std::array<char, 8>& text) { return {text.data(), text.size()}; }

void append_field(std::string& out, std::string_view tag_and_equals, std::string_view value) {
  out += tag_and_equals;
  out += value;
  out += SOH;
}

void append_checksum(std::string& out, size_t begin) {
  unsigned sum = 0;
  for (size_t i = begin; i < out.size(); ++i) sum += static_cast<unsigned char>(out[i]);
  sum %= 256;
  out += "10=";
  out += static_cast<char>('0' + sum / 100);
  out += static_cast<char>('0' + sum / 10 % 10);
  out += static_cast<char>('0' + sum % 10);
  out += SOH;
}

std::string readable(std::string_view message) {
  std::string text(message);
  for (char& c : text) {
    if (c == SOH) c = '|';
  }
  return text;
}

/// Reads the fields of a message from the front.
class FieldReader {
 public:
  explicit FieldReader(std::string_view message) : left_(message) {}

  /// The value of the next field with this tag; skips what stands before it. Empty without one.
  std::string_view next(std::string_view tag_and_equals) {
    while (!left_.empty()) {
      const size_t end = left_.find(SOH);
      if (end == std::string_view::npos) break;
      const std::string_view field = left_.substr(0, end);
      left_.remove_prefix(end + 1);
      if (field.starts_with(tag_and_equals)) return field.substr(tag_and_equals.size());
    }
    return {};
  }

 private:
  std::string_view left_;
};

double own_processor_s() {
  timespec used{};
  ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &used);
  return static_cast<double>(used.tv_sec) + static_cast<double>(used.tv_nsec) / 1e9;
}

bool parse_number(std::string_view text, uint32_t& number) {
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  return error == std::errc() && end == text.data() + text.size();
}

}  // namespace

Session::Session(std::string comp_id, Waiting waiting)
    : comp_id_(std::move(comp_id)), waiting_(waiting), in_(INPUT_SIZE) {}

void Session::connect(uint16_t port) {
  in_begin_ = in_end_ = 0;
  stream_ = client::TcpStream::connect(port);
  // Room for whatever a burst is answered with: the exchange does not send anything twice.
  ::setsockopt(stream_.fd(), SOL_SOCKET, SO_RCVBUF, &RECEIVE_BUFFER, sizeof RECEIVE_BUFFER);
}

void Session::log_on() {
  next_out_ = next_in_ = 1;
  std::string body;
  append_field(body, "98=", "0");
  append_field(body, "108=", "3600");
  append_field(body, "141=", "Y");
  append("A", body);
  ++owed_;
  exchange();
}

RequestId Session::new_order(const NewOrder& order, std::string_view replies) {
  const auto request = static_cast<RequestId>(due_.size());
  due_.push_back({.exec_types = std::string(replies)});
  owed_ += replies.size();
  ++queued_;
  std::string body;
  body.reserve(160);
  append_field(body, "11=", view(cl_ord_id_of(request)));
  append_field(body, "55=", order.symbol);
  append_field(body, "54=", {&order.side, 1});
  body += "38=";
  append_number(body, order.quantity);
  body += SOH;
  append_field(body, "40=", order.price_cents == 0 ? "1" : "2");
  if (order.price_cents != 0) {
    body += "44=";
    append_price(body, order.price_cents);
    body += SOH;
  }
  append_field(body, "59=", {&order.tif, 1});
  append_field(body, "18=", "i");
  append_field(body, "47=", "P");
  append_field(body, "60=", ANY_TIME);
  append("D", body);
  return request;
}

RequestId Session::cancel(RequestId order, std::string_view replies) {
  const auto request = static_cast<RequestId>(due_.size());
  due_.push_back({.exec_types = std::string(replies)});
  owed_ += replies.size();
  ++queued_;
  std::string body;
  body.reserve(100);
  append_field(body, "11=", view(cl_ord_id_of(request)));
  append_field(body, "41=", view(cl_ord_id_of(order)));
  append_field(body, "55=", "AAPL");
  append_field(body, "54=", "1");
  append_field(body, "60=", ANY_TIME);
  append("F", body);
  return request;
}

void Session::sweep(char side) {
  constexpr uint32_t MOST_SHARES = 10000000;
  due_[new_order({.side = side, .quantity = MOST_SHARES}, "04")].sweeps = true;
  exchange();
}

void Session::will_hear(RequestId request, char exec_type) {
  Due& due = due_[request];
  if (due.heard == due.exec_types.size()) {
    due.exec_types.clear();
    due.heard = 0;
  }
  due.exec_types += exec_type;
  ++owed_;
}

void Session::test_request() {
  std::string body;
  append_field(body, "112=", "now");
  append("1", body);
  ++owed_;
}

void Session::append(std::string_view type, std::string_view body) {
  std::string head;
  head.reserve(80);
  append_field(head, "35=", type);
  head += "34=";
  append_number(head, next_out_++);
  head += SOH;
  append_field(head, "49=", comp_id_);
  append_field(head, "56=", "IEXG");
  append_field(head, "52=", ANY_TIME);
  const size_t begin = out_.size();
  out_ += FRAME_HEAD;
  append_number(out_, head.size() + body.size());
  out_ += SOH;
  out_ += head;
  out_ += body;
  append_checksum(out_, begin);
}

void Session::exchange() {
  send();
  await_replies();
}

void Session::send() {
  if (!stream_.send_all({reinterpret_cast<const uint8_t*>(out_.data()), out_.size()})) {
    throw WrongReply("the exchange has closed the connection of " + comp_id_);
  }
  out_.clear();
  queued_ = 0;
}

void Session::await_replies() {
  while (owed_ > 0) {
    const std::string_view message = next_message();
    check(message);
  }
}

std::string_view Session::next_message() {
  for (;;) {
    const std::string_view waiting(in_.data() + in_begin_, in_end_ - in_begin_);
    const size_t length_at = FRAME_HEAD.size();
    const size_t length_end = waiting.find(SOH, length_at);
    if (length_end != std::string_view::npos) {
      uint32_t body_size = 0;
      if (!waiting.starts_with(FRAME_HEAD) ||
          !parse_number(waiting.substr(length_at, length_end - length_at), body_size)) {
        throw WrongReply("no FIX message: " + readable(waiting.substr(0, 300)));
      }
      const size_t size = length_end + 1 + body_size + TRAILER_SIZE;
      if (waiting.size() >= size) {
        in_begin_ += size;
        return waiting.substr(length_end + 1, body_size);
      }
    }
    receive_some();
  }
}

size_t Session::receive_some() {
  if (in_begin_ == in_end_) in_begin_ = in_end_ = 0;
  if (in_end_ == in_.size()) {
    std::memmove(in_.data(), in_.data() + in_begin_, in_end_ - in_begin_);
    in_end_ -= in_begin_;
    in_begin_ = 0;
  }
  const double spun_before_s = own_processor_s();
  int waits = 0;
  for (unsigned spins = 1;; ++spins) {
    const ssize_t got = ::recv(stream_.fd(), in_.data() + in_end_, in_.size() - in_end_, 0);
    if (got > 0) {
      in_end_ += static_cast<size_t>(got);
      return static_cast<size_t>(got);
    }
    if (got == 0 || (errno != EAGAIN && errno != EINTR)) {
      throw WrongReply("the connection of " + comp_id_ + " ended with " + std::to_string(owed_) +
                       " replies owed");
    }
    bool given_up = false;
    if (waiting_ == Waiting::SLEEPING) {
      pollfd ready{stream_.fd(), POLLIN, 0};
      given_up = ::poll(&ready, 1, 1000) == 0 && ++waits == REPLY_PATIENCE_S;
    } else if (spins % SPINS_PER_LOOK_AT_THE_CLOCK == 0) {
      given_up = own_processor_s() - spun_before_s > REPLY_PATIENCE_S;
    }
    if (given_up) {
      throw WrongReply(std::to_string(owed_) + " replies to " + comp_id_ + " did not come");
    }
  }
}

void Session::check(std::string_view message) {
  FieldReader fields(message);
  const std::string_view type = fields.next("35=");
  uint32_t seq = 0;
  if (!parse_number(fields.next("34="), seq) || seq != next_in_) {
    throw WrongReply("MsgSeqNum " + std::to_string(next_in_) + " was due: " + readable(message));
  }
  ++next_in_;
  if (type == "8") {
    const std::string_view cl_ord_id = fields.next("11=");
    return check_report(message, cl_ord_id, fields.next("150="));
  }
  if (type == "0" && fields.next("112=").empty()) {
    ++heartbeats_;  // nobody asked for it: a deferred report can draw one out of turn
    return;
  }
  if (type != "A" && type != "0") throw WrongReply("not asked for: " + readable(message));
  --owed_;
}

void Session::check_report(std::string_view message, std::string_view cl_ord_id,
                           std::string_view exec_type) {
  uint32_t request = 0;
  const bool ours = cl_ord_id.size() == 8 && cl_ord_id[0] == 'R' &&
                    parse_number(cl_ord_id.substr(1), request) && request < due_.size();
  if (!ours) throw WrongReply("a report for no order of ours: " + readable(message));
  Due& due = due_[request];
  if (due.sweeps && due.heard == 1 && exec_type == PARTLY_FILLED) return;
  if (due.heard == due.exec_types.size() || exec_type.size() != 1 ||
      exec_type[0] != due.exec_types[due.heard]) {
    throw WrongReply("owed were \"" + due.exec_types.substr(due.heard) +
                     "\": " + readable(message));
  }
  ++due.heard;
  --owed_;
}

size_t Session::fetch_again(uint32_t first, uint32_t last) {
  std::string body;
  append_field(body, "7=", std::to_string(first));
  append_field(body, "16=", std::to_string(last));
  append("2", body);
  send();
  size_t replayed = 0;
  for (uint32_t next = first; next <= last;) {
    FieldReader fields(next_message());
    const std::string_view type = fields.next("35=");
    uint32_t seq = 0;
    if (!parse_number(fields.next("34="), seq) || seq != next) {
      throw WrongReply("a replay of " + std::to_string(next) + " was due, not " +
                       std::to_string(seq));
    }
    if (type == "4") {
      if (!parse_number(fields.next("36="), next)) throw WrongReply("a GapFill without 36");
      continue;
    }
    if (fields.next("43=") != "Y") throw WrongReply("a replay without 43=Y");
    ++replayed;
    ++next;
  }
  return replayed;
}

FeedCounter::FeedCounter(const client::Ports& ports)
    : socket_(client::UdpSocket::in_group(ports.group, ports.feed)) {}

void FeedCounter::drain() {
  constexpr size_t AT_ONCE = 64;
  std::array<std::array<uint8_t, client::TP_HEADER_SIZE>, AT_ONCE> headers;
  std::array<iovec, AT_ONCE> pieces;
  std::array<mmsghdr, AT_ONCE> slots{};
  for (size_t i = 0; i < AT_ONCE; ++i) {
    pieces[i] = {headers[i].data(), headers[i].size()};
    slots[i].msg_hdr.msg_iov = &pieces[i];
    slots[i].msg_hdr.msg_iovlen = 1;
  }
  for (;;) {
    const int count = ::recvmmsg(socket_.fd(), slots.data(), AT_ONCE, MSG_DONTWAIT, nullptr);
    if (count <= 0) return;
    for (size_t i = 0; i < static_cast<size_t>(count); ++i) {
      if (slots[i].msg_len != client::TP_HEADER_SIZE)
        throw WrongReply("a feed packet is too short");
      const client::TpHeader header = client::decode_tp_header(headers[i], std::nullopt);
      if (begun_ && header.stream_offset != next_offset_) {
        throw WrongReply("the feed has a hole at offset " + std::to_string(next_offset_));
      }
      begun_ = true;
      next_offset_ = header.stream_offset + header.payload_length;
      messages_ += header.message_count;
      if (header.message_count != 0) ++packets_;
    }
  }
}

void FeedCounter::settle() {
  drain();
  pollfd ready{socket_.fd(), POLLIN, 0};
  for (int waits = 0; waits < 1000 && ::poll(&ready, 1, 20) > 0; ++waits) drain();
}

void FeedCounter::await_packets(uint64_t packets) {
  drain();
  for (int waits = 0; packets_ < packets; ++waits) {  // a heartbeat a second ends a wait, too
    if (waits == REPLY_PATIENCE_S) {
      throw WrongReply(std::to_string(packets_) + " feed packets came, " + std::to_string(packets) +
                       " were due");
    }
    pollfd ready{socket_.fd(), POLLIN, 0};
    ::poll(&ready, 1, 1000);
    const uint64_t before = packets_;
    drain();
    if (packets_ != before) waits = 0;
  }
}

}  // namespace perf
