#include "quorl/client/control_client.h"

#include <gtest/gtest.h>

#include <thread>

#include "quorl/client/errors.h"

namespace quorl::client {
namespace {

/// Answers one command by `reply`.
template <typename Question>
auto asked(const std::string& reply, const Question& question) {
  UdpSocket port = UdpSocket::on_loopback();
  std::thread server([&] {
    if (const auto command = port.receive(Deadline::after(PATIENCE))) {
      port.send_to(command->from_port, to_bytes(reply));
    }
  });
  ControlClient client(port.port());
  try {
    if constexpr (std::is_void_v<decltype(question(client))>) {
      question(client);
      server.join();
    } else {
      auto answer = question(client);
      server.join();
      return answer;
    }
  } catch (...) {
    server.join();
    throw;
  }
}

TEST(ControlClient, the_reply_comes_back_as_it_is) {
  EXPECT_EQ(asked("ok stopping", [](ControlClient& c) { return c.command("stop"); }),
            "ok stopping");
}

TEST(ControlClient, ok_demands_the_echo_and_its_line_end) {
  EXPECT_NO_THROW(asked("ok drop 3\n", [](ControlClient& c) { c.ok("drop 3"); }));
  EXPECT_THROW(asked("ok drop 3", [](ControlClient& c) { c.ok("drop 3"); }), WireError);
  EXPECT_THROW(asked("err unknown command 'drop'\n", [](ControlClient& c) { c.ok("drop 3"); }),
               WireError);
}

TEST(ControlClient, stats_that_do_not_read_as_stats_are_refused) {
  EXPECT_THROW(asked("ok orders=1\n", [](ControlClient& c) { return c.stats(); }), WireError);
}

TEST(ControlClient, silence_is_a_time_out) {
  const UdpSocket silent = UdpSocket::on_loopback();
  ControlClient client(silent.port());
  EXPECT_THROW(client.command("pause", std::chrono::milliseconds(0)), Timeout);
}

}  // namespace
}  // namespace quorl::client
