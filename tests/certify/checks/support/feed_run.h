#pragma once

#include <gmock/gmock.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "certify/checks/check.h"

namespace certify::feed_test {

/// A feed, a client that asks for things, and one check that hears of it. Time is in milliseconds
/// from the start and moves by at() only. Every message is 30 bytes.
class FeedRun {
 public:
  static constexpr uint32_t SESSION = 7;

  explicit FeedRun(const std::string& check, const Allowances& allow = {}) {
    plan_.allow = allow;
    for (const CheckKind& kind : feed_checks()) {
      if (kind.name == check) check_ = kind.make(kind.name, context_);
    }
    if (!check_) throw std::invalid_argument("no check " + check);
  }

  FeedRun& at(int64_t ms) {
    now_ = BEGIN + ms * MILLISECOND;
    return *this;
  }

  void starts() { tell(ClientStarted{}); }
  void closes() { tell(Closing{}); }
  void ends() { tell(ClientEnded{.how = "exit status 0", .by_itself = true}); }

  /// The next packet, with so many messages; made even if nobody hears it.
  struct Made {
    uint64_t first = 0;  // true
    uint64_t count = 0;
  };
  Made makes(uint64_t count) {
    const Made made{next_, count};
    next_ += count;
    return made;
  }
  void hears(const Made& made) { tell(FeedHeard{packet(made, made.first)}); }
  void hears_one_too_high(const Made& made) { tell(FeedHeard{packet(made, made.first + 1)}); }
  void heartbeat() { tell(FeedHeard{packet({next_, 0}, next_)}); }

  /// Packets of `size` messages that come, one each millisecond, up to the time given.
  void runs_until(int64_t ms, uint64_t size = 2) {
    while (now_ < BEGIN + ms * MILLISECOND) {
      now_ += MILLISECOND;
      hears(makes(size));
    }
  }
  Made loses(uint64_t count) {
    const Made made = makes(count);
    tell(FeedFault{.kind = FeedFault::Kind::DROPPED, .first_seq = made.first, .messages = count});
    return made;
  }
  Made holds_back(uint64_t count) {
    const Made made = makes(count);
    tell(FeedFault{.kind = FeedFault::Kind::HELD, .first_seq = made.first});
    return made;
  }

  void asks(std::vector<quorl::client::SeqRange> ranges) {
    tell(GapRequested{.line = 1, .well_formed = true, .ranges = std::move(ranges)});
  }
  void asks(const Made& made) { asks({{made.first, made.first + made.count - 1}}); }
  void asks_status() { tell(GapRequested{.line = 1, .well_formed = true}); }
  void asks_wrongly(const std::string& flaw) { tell(GapRequested{.line = 1, .flaw = flaw}); }
  void is_sent(const Made& made) {
    tell(GapReplied{.line = 1, .packet = packet(made, made.first)});
  }
  void fetches(const Made& made) {
    asks(made);
    is_sent(made);
  }

  void asks_image(uint64_t minimum = 0) {
    tell(ImageRequested{.connection = ++images_, .well_formed = true, .minimum_seq = minimum});
  }
  void asks_image_wrongly(const std::string& flaw) {
    tell(ImageRequested{.connection = ++images_, .flaw = flaw});
  }
  void is_refused(char code) { tell(ImageReplied{.connection = images_, .error = code}); }
  void image_breaks_off() { tell(ImageReplied{.connection = images_, .bytes = 100}); }
  void image_is_left() { tell(ImageReplied{.connection = images_, .client_left = true}); }
  void has_image() {
    tell(ImageReplied{.connection = images_, .complete = true, .seq = next_ - 1, .bytes = 2000});
  }
  void takes_image() {
    asks_image();
    has_image();
  }

  void link_says(const std::string& what) { tell(LinkSaid{what}); }

  uint64_t next() const { return next_; }

  Verdict verdict() {
    check_->finish(now_);
    return check_->verdict();
  }

 private:
  static constexpr TimeNs BEGIN = 1'800'000'000 * SECOND;
  static constexpr uint64_t BLOCK = 32;  // bytes of a message and its length

  void tell(EventKind what) { check_->on_event({now_, std::move(what)}); }

  static quorl::client::TpPacket packet(const Made& made, uint64_t announced) {
    quorl::client::TpPacket packet;
    packet.header.session_id = SESSION;
    packet.header.first_seq = announced;
    packet.header.message_count = static_cast<uint16_t>(made.count);
    packet.header.payload_length = static_cast<uint16_t>(made.count * BLOCK);
    packet.header.stream_offset = (made.first - 1) * BLOCK;
    for (uint64_t i = 0; i < made.count; ++i) {
      packet.messages.push_back(
          {.stream_offset = (made.first - 1 + i) * BLOCK, .bytes = quorl::client::Bytes(30)});
    }
    return packet;
  }

  Plan plan_;
  CheckContext context_{.plan = plan_, .feed_session = SESSION, .market_truth = {}};
  std::unique_ptr<Check> check_;
  TimeNs now_ = BEGIN;
  uint64_t next_ = 1;
  uint32_t images_ = 0;
};

MATCHER(passed, "") { return arg.outcome == Outcome::PASSED; }
MATCHER(not_seen, "") { return arg.outcome == Outcome::NOT_SEEN; }
MATCHER_P(failed_with, what, "") {
  *result_listener << "faults: " << arg.fault_count;
  for (const Fault& fault : arg.faults) *result_listener << "\n  " << fault.what;
  return arg.outcome == Outcome::FAILED && arg.fault_count == 1 &&
         testing::Value(arg.faults.front().what, testing::HasSubstr(what));
}

}  // namespace certify::feed_test
