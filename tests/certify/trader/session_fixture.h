#pragma once

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "certify/trader/session.h"
#include "quorl/client/fix_message.h"

namespace certify::trader {

/// A session whose other end and whose clock are the test's.
class SessionTest : public testing::Test, protected SessionOwner {
 protected:
  using FixMessage = quorl::client::FixMessage;

  explicit SessionTest(SessionOptions options = {}) : session(options, habits, *this) {}

  // --- What the test does ---

  void connects() { session.on_connected(now); }
  void line_breaks() {
    session.on_disconnected(now);
    hung_up = false;
  }
  /// "35=A|34=1|98=0|108=1": the header is added.
  void hears(const std::string& text) {
    quorl::client::FixHeader header{.sender = "IEXG", .target = session.options().comp_id};
    quorl::client::FixFields body;
    for (const quorl::client::FixField& field : quorl::client::fix_fields(text)) {
      if (field.tag == 35) {
        header.type = field.value;
      } else if (field.tag == 34) {
        header.seq = field.value;
      } else if (field.tag == 43) {
        header.extra = {{43, field.value}, {122, quorl::client::fix_timestamp_now()}};
      } else {
        body.push_back(field);
      }
    }
    session.on_bytes(quorl::client::compose_fix(header, body), now);
  }
  void logs_on() {
    connects();
    hears("35=A|34=1|98=0|108=1|141=Y");
    sent.clear();
  }
  /// Time passes, and whatever becomes due happens when it is due.
  void passes(Milliseconds time) {
    const Moment end = now + time;
    for (int i = 0; i < 1000 && session.next_due() <= end && !hung_up; ++i) {
      now = std::max(now, session.next_due());
      session.on_time(now);
    }
    now = end;
  }

  // --- What came of it ---

  /// All that was sent since the last question, without 8, 9, 49, 56, 52, 122 and 10.
  std::vector<std::string> says() { return std::exchange(sent, {}); }
  std::vector<std::string> takes() { return std::exchange(reports, {}); }

  Habits habits;
  Moment now = Moment{} + std::chrono::hours(1);
  std::vector<std::string> sent;
  std::vector<std::string> reports;  // "life seq"
  std::vector<std::string> remarks;
  bool hung_up = false;
  Session session;

 private:
  void on_bytes_to_send(std::string_view bytes) override {
    const FixMessage message = quorl::client::parse_fix(bytes);
    std::string text;
    for (const auto& [tag, value] : message.fields()) {
      if (tag == 8 || tag == 9 || tag == 49 || tag == 56 || tag == 52 || tag == 122 || tag == 10) {
        continue;
      }
      text += (text.empty() ? "" : "|") + std::to_string(tag) + "=" + value;
    }
    sent.push_back(text);
  }
  void on_hang_up() override { hung_up = true; }
  void on_report(const FixMessage& message, ReportPlace place) override {
    EXPECT_EQ(message.seq(), place.seq);
    reports.push_back(std::to_string(place.life) + " " + std::to_string(place.seq));
  }
  void on_remark(const std::string& remark) override { remarks.push_back(remark); }
};

}  // namespace certify::trader
