// Resends both ways: what a client asks for again, what it is asked for, and what resets mean.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/types.h>
#include <time.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <iterator>
#include <map>
#include <string>
#include <vector>

#include "quorl/client/errors.h"
#include "quorl/client/fix_message.h"
#include "quorl/client/fix_session.h"
#include "tests/e2e/support/exchange.h"

namespace client = quorl::client;

namespace e2e {
namespace {

using client::Continuity;
using client::FixFields;
using client::FixMessage;
using client::FixSession;
using testing::ElementsAre;
using testing::IsEmpty;

/// What a resend brought, one text each: "8 34=2", "4 34=4 36=6".
std::vector<std::string> told(const std::vector<FixMessage>& messages) {
  std::vector<std::string> texts;
  for (const FixMessage& message : messages) {
    std::string text = message.type() + " 34=" + message.get(34);
    if (message.type() == "4") text += " 36=" + message.get(36);
    if (message.type() == "2") text += " 7=" + message.get(7) + " 16=" + message.get(16);
    texts.push_back(text);
  }
  return texts;
}

bool is_application_message(const FixMessage& message) {
  return message.type() == "8" || message.type() == "9";
}

/// What a resend of everything must bring, in the words of told(): each application message under
/// its number, and one GapFill for each run of others. `received` is all that has come, the resend
/// too; the Heartbeats ahead of it count, for the turn that sends a deferred fill may send one that
/// is not due.
std::vector<std::string> resend_of_all(const std::vector<FixMessage>& received) {
  const auto resend = std::find_if(received.begin(), received.end(), [](const FixMessage& message) {
    return message.is_possible_duplicate();
  });
  std::vector<std::string> texts;
  for (auto message = received.begin(); message != resend; ++message) {
    if (is_application_message(*message)) {
      texts.push_back(message->type() + " 34=" + message->get(34));
      continue;
    }
    const std::string first = message->get(34);
    while (message + 1 != resend && !is_application_message(message[1])) ++message;
    texts.push_back("4 34=" + first + " 36=" + std::to_string(message->seq() + 1));
  }
  return texts;
}

/// Processor time that the process has used. Unlike a clock it stands still while others have the
/// processor.
std::chrono::nanoseconds processor_time_of(pid_t pid) {
  clockid_t clock{};
  timespec used{};
  errno = ::clock_getcpuclockid(pid, &clock);
  if (errno != 0 || ::clock_gettime(clock, &used) != 0) {
    throw client::SystemError("the processor time of the exchange");
  }
  return std::chrono::seconds(used.tv_sec) + std::chrono::nanoseconds(used.tv_nsec);
}

/// Asks, and returns all that comes before a TestRequest behind it is answered.
std::vector<std::string> asked(FixSession& session, const std::string& begin,
                               const std::string& end) {
  session.resend_request(begin, end);
  return told(session.drain());
}

/// An exchange in whose market nothing moves, and the lines it prints.
class Resend : public testing::Test {
 protected:
  FixSession logs_on(const std::string& comp_id) { return exchange.logs_on(comp_id); }

  /// A session that has heard 34=1 Logon, 2 and 3 reports, 4 Heartbeat; next comes 5.
  FixSession with_four_messages() {
    FixSession alpha = logs_on("ALPHA");
    alpha.new_order({.cl_ord_id = "a1", .price = "1"});
    alpha.hears("35=8|34=2|150=0|11=a1");
    alpha.cancel({.cl_ord_id = "c1", .orig_cl_ord_id = "a1"});
    alpha.hears("35=8|34=3|150=4|11=c1");
    alpha.test_request("x");
    alpha.hears("35=0|34=4|112=x");
    return alpha;
  }

  void expect_line(const std::string& line) { exchange.simulator().wait_for_line(line); }
  std::chrono::nanoseconds processor_time() {
    return processor_time_of(exchange.simulator().pid());
  }
  size_t lines(const std::string& text) {
    (void)exchange.turn();
    exchange.control().ok("mark lines");
    exchange.simulator().wait_for_line("bench: mark lines", marked_);
    marked_ = exchange.simulator().line_count();
    return exchange.simulator().count_lines(text);
  }

  Exchange exchange{still()};

 private:
  size_t marked_ = 0;
};

TEST_F(Resend, a_replay_differs_from_the_first_transmission_in_its_header_alone) {
  exchange.empty_book("AAPL");
  FixSession alpha = logs_on("ALPHA");
  const std::string before = client::fix_timestamp_now();
  alpha.new_order({.cl_ord_id = "rests", .side = "2", .quantity = "300", .price = "190.10"});
  alpha.new_order({.cl_ord_id = "hits", .quantity = "500", .price = "190.10"});
  alpha.new_order({.cl_ord_id = "bad", .quantity = "0"});
  alpha.replace({.cl_ord_id = "r1", .orig_cl_ord_id = "hits", .quantity = "600", .price = "190"});
  alpha.cancel({.cl_ord_id = "c1", .orig_cl_ord_id = "r1"});
  alpha.cancel({.cl_ord_id = "c2", .orig_cl_ord_id = "never"});
  alpha.replace({.cl_ord_id = "r2", .orig_cl_ord_id = "rests", .quantity = "1", .price = "1"});
  // Two acknowledgements, two fills, refusal, replaced, cancelled and two 35=9.
  std::vector<FixMessage> first;
  for (int i = 0; i < 9; ++i) first.push_back(alpha.next());

  alpha.resend_request("1", "0");
  const std::vector<FixMessage> again = alpha.drain();
  ASSERT_EQ(told(again), resend_of_all(alpha.received()));
  std::vector<FixMessage> replays;
  std::copy_if(again.begin(), again.end(), std::back_inserter(replays), is_application_message);
  ASSERT_EQ(replays.size(), first.size());
  for (size_t i = 0; i < first.size(); ++i) {
    const FixMessage& replay = replays[i];
    SCOPED_TRACE(replay.text());
    std::vector<int> tags = first[i].tags();
    tags.insert(tags.begin() + 7, {43, 122});
    EXPECT_EQ(replay.tags(), tags) << "43 and 122 stand behind 52";
    for (const client::FixField& field : first[i].fields()) {
      if (field.tag == 9 || field.tag == 10 || field.tag == 52) continue;
      EXPECT_EQ(replay.find(field.tag), field.value) << "tag " << field.tag;
    }
    EXPECT_EQ(replay.get(43), "Y");
    EXPECT_LE(before, replay.get(122));
    EXPECT_LE(replay.get(122), first[i].get(52)) << "stored, then sent";
    EXPECT_LE(again[0].get(52), replay.get(52));
  }
}

TEST_F(Resend, a_lapse_swallows_a_resend_whole_and_it_is_counted_all_the_same) {
  FixSession alpha = with_four_messages();
  exchange.control().ok("lapse 600000");
  alpha.resend_request("1", "0");
  expect_line("bench: resend done: replayed 2 application message(s), 2 GapFill(s)");
  alpha.new_order({.cl_ord_id = "a2", .price = "1"});  // its report takes 5
  alpha.test_request("unheard");                       // 6
  (void)exchange.turn();
  EXPECT_EQ(exchange.counter("replayed"), 2u);
  exchange.control().ok("lapse 0");
  alpha.continuity = Continuity::TRACK;
  EXPECT_THAT(alpha.drain(), IsEmpty());
  EXPECT_THAT(alpha.missing(), ElementsAre(5, 6));
  EXPECT_THAT(asked(alpha, "1", "0"), ElementsAre("4 34=1 36=2", "8 34=2", "8 34=3", "4 34=4 36=5",
                                                  "8 34=5", "4 34=6 36=8"));
  EXPECT_THAT(alpha.missing(), IsEmpty());
  EXPECT_EQ(exchange.counter("replayed"), 5u);
}

/// Each cancel of an unknown order makes one application message.
void hears_rejects(FixSession& session, unsigned count) {
  constexpr unsigned AT_ONCE = 250;
  for (unsigned done = 0; done < count; done += AT_ONCE) {
    for (unsigned i = 0; i < AT_ONCE; ++i) {
      session.cancel({.cl_ord_id = "c" + std::to_string(done + i), .orig_cl_ord_id = "never"});
    }
    for (unsigned i = 0; i < AT_ONCE; ++i) session.hears("35=9|41=never");
  }
}

TEST_F(Resend, twenty_thousand_stored_messages_are_gone_through_and_resent_within_seconds) {
  constexpr unsigned STORED = 20000;
  constexpr std::chrono::seconds LIMIT{5};
  FixSession alpha = logs_on("ALPHA");
  hears_rejects(alpha, STORED);
  std::map<uint32_t, FixFields> bodies;
  for (const FixMessage& message : alpha.received()) {
    if (message.type() == "9") bodies.emplace(message.seq(), message.body());
  }
  ASSERT_EQ(bodies.size(), STORED);

  // In a lapse nothing goes out: the search and the composing alone.
  exchange.control().ok("lapse 600000");
  auto before = processor_time();
  alpha.resend_request("1", "0");
  expect_line("bench: resend done: replayed 20000 application message(s), 1 GapFill(s)");
  EXPECT_LT(processor_time() - before, LIMIT);
  exchange.control().ok("lapse 0");

  // The exchange queues nothing, so what is asked for at once must fit the connection's buffers.
  before = processor_time();
  unsigned replayed = 0;
  constexpr unsigned AT_ONCE = 1000;
  for (unsigned first = 2; first < STORED + 2; first += AT_ONCE) {
    alpha.resend_request(std::to_string(first), std::to_string(first + AT_ONCE - 1));
    for (unsigned seq = first; seq < first + AT_ONCE; ++seq, ++replayed) {
      const FixMessage replay = alpha.expect("9");
      ASSERT_EQ(replay.seq(), seq);
      ASSERT_TRUE(replay.is_possible_duplicate());
      ASSERT_EQ(replay.body(), bodies.at(seq));
    }
  }
  EXPECT_LT(processor_time() - before, LIMIT);
  EXPECT_EQ(replayed, STORED);
  alpha.hears_nothing();
}

TEST_F(Resend, numbers_that_hold_nothing_are_not_looked_for_one_by_one) {
  constexpr unsigned NUMBERS = 20000;
  constexpr unsigned REQUESTS = 20;
  FixSession alpha = logs_on("ALPHA");
  hears_rejects(alpha, NUMBERS);
  exchange.control().ok("lapse 600000");
  for (unsigned i = 0; i < NUMBERS; ++i) alpha.test_request("");  // each answer spends a number
  (void)exchange.turn();
  const auto before = processor_time();
  for (unsigned i = 1; i <= REQUESTS; ++i)
    alpha.resend_request(std::to_string(NUMBERS + 1 + i), "0");
  expect_line("7=20021 16=0 -> serving 20021..40001");
  (void)exchange.turn();
  EXPECT_LT(processor_time() - before, std::chrono::seconds(5));
  EXPECT_EQ(lines("bench: resend done: replayed 0 application message(s), 1 GapFill(s)"), REQUESTS);
}

TEST_F(Resend, several_thousand_messages_come_in_answer_to_one_request) {
  constexpr unsigned STORED = 4000;
  FixSession alpha = logs_on("ALPHA");
  hears_rejects(alpha, STORED);
  alpha.resend_request("1", "0");
  const std::vector<FixMessage> again = alpha.drain();
  ASSERT_EQ(again.size(), STORED + 1);
  for (unsigned i = 1; i <= STORED; ++i) ASSERT_EQ(again[i].seq(), i + 1);
}

}  // namespace
}  // namespace e2e
