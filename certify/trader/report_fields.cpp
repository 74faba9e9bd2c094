#include "certify/trader/report_fields.h"

#include <cmath>
#include <limits>

#include "quorl/client/errors.h"
#include "quorl/client/fix_layout.h"
#include "quorl/client/json_lines.h"

namespace certify::trader {
namespace {

namespace client = quorl::client;
using client::FixMessage;

constexpr double PER_DOLLAR = 10000.0;

std::string event_word(const FixMessage& report) {
  if (report.type() == "9") return report.get(434) == "1" ? "cancel_reject" : "replace_reject";
  switch (report.get(150)[0]) {
    case '0':
      return "new";
    case '4':
      return "cancel";
    case '5':
      return "replace";
    case '8':
      return "reject";
    default:
      return "fill";
  }
}

/// The exchange says some things in other words to its file than to the client.
std::string event_text(const FixMessage& report) {
  const std::string text = report.find(58).value_or("");
  if (report.type() != "8" || report.get(150) != "4") return text;
  if (text.empty()) return "cancel";
  return text == "AdminCancel" ? "unsolicited" : text;
}

std::string number_of_order(const FixMessage& report) {
  const std::string id = report.get(37);
  return id == "NONE" ? "0" : id;
}

std::string side_letter(const FixMessage& report) { return report.get(54) == "1" ? "B" : "S"; }

std::string line(int64_t now_ns, const std::string& word, const std::string& name,
                 const std::string& order_id, const std::string& middle, const std::string& text,
                 const std::string& reference) {
  return "{\"t\":" + std::to_string(now_ns) + ",\"ev\":\"" + word + "\",\"cl\":\"" + name +
         "\",\"oid\":" + order_id + middle + ",\"text\":\"" + text + "\"" +
         (reference.empty() ? "" : ",\"ref\":\"" + reference + "\"") + "}\n";
}

std::string reject_line(const FixMessage& reject, int64_t now_ns) {
  const std::string word = event_word(reject);
  return line(now_ns, word, reject.get(41), number_of_order(reject),
              ",\"symbol\":\"\",\"side\":\" \",\"qty\":0,\"px\":0,\"cum\":0,\"leaves\":0,"
              "\"last_qty\":0",
              event_text(reject), word == "replace_reject" ? reject.get(11) : "");
}

}  // namespace

uint32_t share_field(const FixMessage& report, int tag) {
  const uint64_t shares = report.number(tag);
  if (shares > std::numeric_limits<uint32_t>::max()) {
    throw client::WireError("too many shares in " + report.text());
  }
  return static_cast<uint32_t>(shares);
}

client::Price4 price_field(const FixMessage& report, int tag) {
  const std::string text = report.get(tag);
  if (!client::is_price_text(text)) throw client::WireError("no price in " + report.text());
  return std::llround(std::stod(text) * PER_DOLLAR);
}

std::string event_line(const FixMessage& report, int64_t now_ns) {
  if (report.type() == "9") return reject_line(report, now_ns);
  const std::string word = event_word(report);
  const bool is_cancel = word == "cancel" && report.has(41);  // 11 is the request's
  const auto number = [&report](int tag) { return std::to_string(share_field(report, tag)); };
  const client::Price4 limit = report.has(44) ? price_field(report, 44) : 0;
  return line(now_ns, word, report.get(is_cancel ? 41 : 11), number_of_order(report),
              ",\"symbol\":\"" + report.get(55) + "\",\"side\":\"" + side_letter(report) +
                  "\",\"qty\":" + number(38) + ",\"px\":" + client::six_digit_text(limit) +
                  ",\"cum\":" + number(14) + ",\"leaves\":" + number(151) +
                  ",\"last_qty\":" + number(32),
              event_text(report), word == "replace" ? report.get(41) : "");
}

}  // namespace certify::trader
