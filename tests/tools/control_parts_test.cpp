// What quorl-control is made of.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <thread>

#include "quorl/client/bytes.h"
#include "quorl/client/deadline.h"
#include "quorl/client/errors.h"
#include "quorl/client/port_slot.h"
#include "quorl/client/udp.h"
#include "tools/control/command_words.h"
#include "tools/control/control_socket.h"
#include "tools/control/stats_report.h"

namespace client = quorl::client;

namespace tools {
namespace {

using std::chrono::milliseconds;

TEST(CommandWords, are_joined_by_one_space) {
  EXPECT_EQ(joined({}), "");
  EXPECT_EQ(joined({"drop", "3"}), "drop 3");
  EXPECT_EQ(joined({"mark", "a  b", ""}), "mark a  b ");
}

TEST(CommandWords, that_say_nothing_are_no_command) {
  EXPECT_EQ(complaint_about(""), "the command is empty");
  EXPECT_EQ(complaint_about(" \t\n"), "the command is empty");
  EXPECT_EQ(complaint_about("pause"), "");
}

TEST(CommandWords, fit_into_what_the_exchange_reads) {
  EXPECT_EQ(complaint_about(std::string(511, 'x')), "");
  EXPECT_EQ(complaint_about(std::string(512, 'x')),
            "the command has 512 bytes, of which the exchange would read 511");
}

TEST(CommandWords, warn_of_a_label_that_is_not_kept_as_it_is) {
  EXPECT_EQ(caution_about("mark phase2"), "");
  EXPECT_EQ(caution_about("mark"), "");
  EXPECT_EQ(caution_about("drop 3 4"), "");
  EXPECT_EQ(caution_about("mark phase 2"), "the label of the mark is 'phase': it ends at a space");
  EXPECT_EQ(caution_about("mark a\"b"),
            "the label is written as it is: the mark's line is no JSON");
}

constexpr const char* REPLY =
    "ok orders=12 accepts=11 fills=3 partials=0 cancels=0 replaces=0 rejects=1 replace_rejects=0 "
    "cancel_rejects=0 unsolicited_cancels=0 race_fills=0 late_cancels=0 stale_cancels=0 logins=1 "
    "logons=1 resend_requests=0 replays=0 replayed=0 next_seq=900 quorl faults: sent 40 dropped 2 "
    "duplicated 0 reordered 0 session=up\n";

TEST(StatsReport, is_one_json_object) {
  EXPECT_EQ(
      stats_as_json(stats_of_reply(REPLY)),
      "{\"accepts\":11,\"cancel_rejects\":0,\"cancels\":0,\"faults\":{\"dropped\":2,"
      "\"duplicated\":0,\"reordered\":0,\"sent\":40},\"fills\":3,\"late_cancels\":0,"
      "\"logins\":1,\"logons\":1,\"next_seq\":900,\"orders\":12,\"partials\":0,\"race_fills\":"
      "0,\"rejects\":1,\"replace_rejects\":0,\"replaces\":0,\"replayed\":0,\"replays\":0,"
      "\"resend_requests\":0,\"session_up\":true,\"stale_cancels\":0,"
      "\"unsolicited_cancels\":0}");
}

TEST(StatsReport, is_made_of_a_reply_to_stats_alone) {
  EXPECT_THROW((void)stats_of_reply("ok pause\n"), client::WireError);
  EXPECT_THROW((void)stats_of_reply("hello"), client::WireError);
}

TEST(StatsReport, shows_where_the_counters_stand) {
  EXPECT_EQ(standing(stats_of_reply(REPLY), false),
            "accepts 11  fills 3  logins 1  logons 1  orders 12  rejects 1  next_seq 900  sent 40  "
            "dropped 2  session up");
}

TEST(StatsReport, shows_what_moved_and_by_how_much) {
  const client::ControlStats before = stats_of_reply(REPLY);
  client::ControlStats now = before;
  EXPECT_EQ(moved(before, now, false), "nothing moved");
  now.counters["fills"] = 5;
  now.next_seq = 910;
  now.faults.reordered = 1;
  now.session_up = false;
  EXPECT_EQ(moved(before, now, false),
            "fills 3 -> 5 (+2)  next_seq 900 -> 910 (+10)  reordered 0 -> 1 (+1)  session up -> "
            "down");
  EXPECT_THAT(moved(before, now, true), testing::HasSubstr("fills 3 -> 5 \x1b[1m(+2)\x1b[0m"));
}

TEST(StatsReport, knows_another_run) {
  const client::ControlStats before = stats_of_reply(REPLY);
  client::ControlStats now = before;
  now.next_seq = 899;
  EXPECT_EQ(moved(before, now, false), "another run:  " + standing(now, false));
}

TEST(ControlSocket, hears_at_once_that_nobody_is_there) {
  const client::PortSlot slot;
  const Answer answer =
      ask(slot.ports().control, "stats", client::Deadline::after(client::PATIENCE));
  EXPECT_EQ(answer.kind, Answer::REFUSED);
}

TEST(ControlSocket, waits_for_one_who_does_not_answer) {
  client::UdpSocket mute = client::UdpSocket::on_loopback();
  EXPECT_EQ(ask(mute.port(), "stats", client::Deadline::after(milliseconds(20))).kind,
            Answer::SILENT);
  EXPECT_EQ(wait_until_answering(mute.port(), client::Deadline::after(milliseconds(120))).kind,
            Answer::SILENT);
}

TEST(ControlSocket, is_not_answered_by_strangers) {
  client::UdpSocket asked = client::UdpSocket::on_loopback();
  client::UdpSocket stranger = client::UdpSocket::on_loopback();
  ControlSocket socket(asked.port());
  socket.send("stats");
  const auto question = asked.receive(client::Deadline::after(client::PATIENCE));
  ASSERT_TRUE(question);
  stranger.send_to(question->from_port, client::to_bytes("err of a stranger"));
  asked.send_to(question->from_port, client::to_bytes("ok"));
  const Answer answer = socket.wait(client::Deadline::after(client::PATIENCE));
  EXPECT_EQ(answer.kind, Answer::REPLIED);
  EXPECT_EQ(answer.text, "ok");
}

TEST(ControlSocket, asks_again_until_somebody_answers) {
  client::UdpSocket slow = client::UdpSocket::on_loopback();
  std::thread exchange([&slow] {
    for (int question = 1; question <= 3; ++question) {
      const auto asked = slow.receive(client::Deadline::after(client::PATIENCE));
      ASSERT_TRUE(asked);
      EXPECT_EQ(client::to_text(asked->bytes), "stats");
      if (question == 3) slow.send_to(asked->from_port, client::to_bytes("ok"));
    }
  });
  EXPECT_EQ(wait_until_answering(slow.port(), client::Deadline::after(client::PATIENCE)).kind,
            Answer::REPLIED);
  exchange.join();
}

}  // namespace
}  // namespace tools
