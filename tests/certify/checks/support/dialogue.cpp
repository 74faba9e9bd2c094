#include "tests/certify/checks/support/dialogue.h"

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <utility>

namespace certify {
namespace {

constexpr char SEPARATOR = '\x01';

std::string with_separators(std::string_view text) {
  std::string bytes(text);
  std::replace(bytes.begin(), bytes.end(), '|', SEPARATOR);
  return bytes;
}

bool names(std::string_view text, std::string_view tag) {
  const std::string field = std::string(tag) + "=";
  return text.starts_with(field) || text.find("|" + field) != std::string_view::npos;
}

/// "35=D|34=2|..." with the header fields that it does not name behind its first field.
std::string with_header(std::string_view text,
                        const std::vector<std::pair<std::string, std::string>>& header) {
  const size_t end = std::min(text.find('|'), text.size());
  std::string fields(text.substr(0, end));
  for (const auto& [tag, value] : header) {
    if (!names(text, tag)) fields += "|" + tag + "=" + value;
  }
  fields += text.substr(end);
  for (const auto& [tag, value] : header) {
    const std::string left_out = "|" + tag + "=-";
    const size_t at = fields.find(left_out);
    if (at != std::string::npos) fields.erase(at, left_out.size());
  }
  return fields;
}

}  // namespace

std::string framed(std::string_view fields) {
  const std::string body = with_separators(fields) + SEPARATOR;
  const std::string bytes =
      with_separators("8=FIX.4.2|9=" + std::to_string(body.size()) + "|") + body;
  unsigned sum = 0;
  for (const char byte : bytes) sum += static_cast<unsigned char>(byte);
  char checksum[8];
  std::snprintf(checksum, sizeof checksum, "10=%03u\x01", sum % 256);
  return bytes + checksum;
}

Dialogue& Dialogue::connects(bool reached) {
  connection_ = ++connections_;
  return happens(FixOpened{.connection = connection_, .reached = reached});
}

Dialogue& Dialogue::on(uint32_t connection) {
  connection_ = connection;
  return *this;
}

Dialogue& Dialogue::as(std::string comp_id) {
  comp_id_ = std::move(comp_id);
  return *this;
}

Dialogue& Dialogue::client(std::string_view text) {
  return hears(Party::CLIENT,
               framed(with_header(
                   text, {{"49", comp_id_}, {"56", "IEXG"}, {"34", "-"}, {"52", fix_time()}})));
}

Dialogue& Dialogue::exchange(std::string_view text) {
  return hears(Party::EXCHANGE,
               framed(with_header(
                   text, {{"49", "IEXG"}, {"56", comp_id_}, {"34", "-"}, {"52", fix_time()}})));
}

Dialogue& Dialogue::client_frame(std::string_view text) {
  return hears(Party::CLIENT, with_separators(text));
}

Dialogue& Dialogue::client_garbage(std::string_view bytes, bool at_end) {
  return happens(FixGarbage{.connection = connection_,
                            .from = Party::CLIENT,
                            .bytes = std::string(bytes),
                            .size = bytes.size(),
                            .at_end = at_end});
}

Dialogue& Dialogue::closes() { return ends(Party::CLIENT, false, false); }
Dialogue& Dialogue::resets() { return ends(Party::CLIENT, true, false); }
Dialogue& Dialogue::exchange_closes() { return ends(Party::EXCHANGE, false, false); }
Dialogue& Dialogue::cut() { return ends(Party::EXCHANGE, true, true); }

Dialogue& Dialogue::wait(std::chrono::milliseconds time) {
  now_ += std::chrono::nanoseconds(time).count();
  return *this;
}

Dialogue& Dialogue::happens(EventKind what) {
  now_ += MILLISECOND;
  events_.push_back({.at = now_, .what = std::move(what)});
  return *this;
}

Dialogue& Dialogue::logs_on(uint64_t number, uint64_t answer, unsigned heartbeat_s) {
  const std::string heartbeat = "|98=0|108=" + std::to_string(heartbeat_s);
  connects();
  client("35=A|34=" + std::to_string(number) + heartbeat);
  return exchange("35=A|34=" + std::to_string(answer) + heartbeat);
}

std::string Dialogue::fix_time(std::chrono::milliseconds from_now) const {
  const TimeNs at = now_ + std::chrono::nanoseconds(from_now).count();
  const time_t seconds = at / SECOND;
  std::tm utc{};
  gmtime_r(&seconds, &utc);
  char text[32];
  const size_t length = std::strftime(text, sizeof text, "%Y%m%d-%H:%M:%S", &utc);
  char milliseconds[8];
  std::snprintf(milliseconds, sizeof milliseconds, ".%03d",
                static_cast<int>(at % SECOND / MILLISECOND));
  return std::string(text, length) + milliseconds;
}

Dialogue& Dialogue::hears(Party from, std::string frame) {
  now_ += MILLISECOND;
  events_.push_back({.at = now_,
                     .what = FixHeard{.connection = connection_,
                                      .from = from,
                                      .message = WireMessage::read(frame),
                                      .taken = now_}});
  return *this;
}

Dialogue& Dialogue::ends(Party by, bool reset, bool by_link) {
  return happens(FixEnded{.connection = connection_, .by = by, .reset = reset, .by_link = by_link});
}

}  // namespace certify
