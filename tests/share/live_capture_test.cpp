// tshark listening to the loopback interface while the exchange runs.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <set>
#include <sstream>

#include "quorl/client/child_process.h"
#include "quorl/client/errors.h"
#include "quorl/client/feed_subscriber.h"
#include "quorl/client/fix_session.h"
#include "quorl/client/gap_fill_client.h"
#include "quorl/client/line_collector.h"
#include "quorl/client/snap_client.h"
#include "quorl/client/udp.h"
#include "tests/e2e/support/exchange.h"
#include "tests/share/tshark.h"

namespace share {
namespace {

using std::chrono::milliseconds;
using testing::IsSupersetOf;

/// A line of the listening tshark: fields of one packet.
struct Seen {
  std::string protocols;
  std::string udp_length;
  std::string stream_offset;  // several with commas between them, as are all below
  std::string announced;
  std::string seqs;
  std::string fix_types;
  std::string snap_types;
};

Seen seen_of(const std::string& line) {
  Seen seen;
  std::istringstream in(line);
  for (std::string* field : {&seen.protocols, &seen.udp_length, &seen.stream_offset,
                             &seen.announced, &seen.seqs, &seen.fix_types, &seen.snap_types}) {
    std::getline(in, *field, '|');
  }
  return seen;
}

/// Listens on `lo` to an exchange's ports.
class Listener {
 public:
  explicit Listener(const client::Ports& ports) : Listener(Pipes(), ports) {}

  /// Sends datagrams of this size to the gap fill port, where nobody minds, until one is seen. All
  /// that has been sent before is then behind us, in the order in which it was sent.
  void await_probe(uint16_t port, size_t size) {
    client::UdpSocket socket = client::UdpSocket::on_loopback();
    const std::string length = std::to_string(size + 8);
    const auto deadline = client::Deadline::after(client::PATIENCE);
    while (!deadline.expired()) {
      socket.send_to(port, client::Bytes(size, 0xff));
      try {
        (void)out_.wait_for(
            [&](const std::string& line) { return seen_of(line).udp_length == length; }, "a probe",
            0, client::Deadline::after(milliseconds(200)));
        return;
      } catch (const client::Timeout&) {
        if (out_.ended()) break;
      }
    }
    throw client::Timeout("no probe seen: " + complaints());
  }

  /// Ends the listening; returns the lines.
  std::vector<Seen> end() {
    process_.signal(SIGINT);
    (void)process_.wait_exit(client::Deadline::after(client::PATIENCE));
    std::vector<Seen> all;
    for (const client::LogLine& line : out_.lines()) all.push_back(seen_of(line.text));
    return all;
  }

  std::string complaints() const {
    std::string text;
    for (const client::LogLine& line : err_.lines()) text += line.text + "\n";
    return text;
  }

  /// The system does not let us listen.
  bool forbidden() const {
    const std::string text = complaints();
    return text.find("permission") != std::string::npos ||
           text.find("Operation not permitted") != std::string::npos;
  }

 private:
  struct Pipes {
    Pipes() {
      for (int* pipe : {out, err}) {
        if (::pipe2(pipe, O_CLOEXEC) != 0) throw client::SystemError("pipe2");
      }
    }
    ~Pipes() {
      ::close(out[1]);
      ::close(err[1]);
    }
    int out[2];
    int err[2];
  };

  Listener(const Pipes& pipes, const client::Ports& ports)
      : out_(pipes.out[0]),
        err_(pipes.err[0]),
        process_({.program = program_path("tshark"),
                  .arguments = arguments_for(ports),
                  .environment = plain_environment(home_.path()),
                  .stdout_fd = pipes.out[1],
                  .stderr_fd = pipes.err[1]}) {}

  static std::vector<std::string> arguments_for(const client::Ports& ports) {
    const auto text = [](uint16_t port) { return std::to_string(port); };
    return with_dissector({"-i",
                           "lo",
                           "-l",
                           "-f",
                           "udp port " + text(ports.feed) + " or udp port " + text(ports.gap_fill) +
                               " or tcp port " + text(ports.snap) + " or tcp port " +
                               text(ports.fix),
                           "-o",
                           "quorl.feed_ports:" + text(ports.feed),
                           "-o",
                           "quorl.gap_fill_ports:" + text(ports.gap_fill),
                           "-o",
                           "quorl.snap_ports:" + text(ports.snap),
                           "-o",
                           "quorl.fix_ports:" + text(ports.fix),
                           "-T",
                           "fields",
                           "-E",
                           "separator=|",
                           "-e",
                           "frame.protocols",
                           "-e",
                           "udp.length",
                           "-e",
                           "quorl_tp.stream_offset",
                           "-e",
                           "quorl_tp.first_seq",
                           "-e",
                           "quorl_deep.seq",
                           "-e",
                           "fix.MsgType",
                           "-e",
                           "quorl_snap.type"});
  }

  const client::TempDirectory home_;
  client::LineCollector out_;
  client::LineCollector err_;
  client::ChildProcess process_;  // last: the collectors end with it
};

TEST(LiveCapture, tells_a_running_exchange_s_wires_apart_and_reads_its_feed_whole) {
  client::Simulator simulator(e2e::still());
  client::FeedSubscriber feed(simulator.ports().group, simulator.ports().feed);
  Listener listener(simulator.ports());
  try {
    listener.await_probe(simulator.ports().gap_fill, 3);
  } catch (const client::Timeout& timeout) {
    if (listener.forbidden()) GTEST_SKIP() << "may not listen on lo: " << timeout.what();
    throw;
  }
  simulator.start();
  if (simulator.restarts() > 0) GTEST_SKIP() << "the ports listened to have been taken";
  const client::Ports& ports = simulator.ports();

  client::FixSession alpha(ports.fix, "ALPHA");
  (void)alpha.logon();
  alpha.new_order({.cl_ord_id = "a1", .price = "0.01"});
  (void)alpha.expect_report('0');
  client::GapFillClient gap_fill(ports.gap_fill, simulator.session());
  const client::GapFillAnswer answer = gap_fill.fetch({{1, 3}});
  const client::SnapImage image = client::SnapClient(ports.snap, simulator.session()).image();
  alpha.logout();
  (void)feed.await_heartbeat();
  const size_t heard = feed.packets().size();
  (void)simulator.terminate();
  listener.await_probe(ports.gap_fill, 5);
  const std::vector<Seen> all = listener.end();
  EXPECT_EQ(listener.complaints().find("Lua"), std::string::npos) << listener.complaints();

  std::set<std::string> fix_types, snap_types;
  std::vector<Seen> packets;
  size_t replies = 0;
  for (const Seen& seen : all) {
    if (seen.protocols.ends_with(":udp:quorl_tp")) packets.push_back(seen);
    if (!seen.fix_types.empty()) {
      EXPECT_TRUE(seen.protocols.ends_with(":tcp:fix")) << seen.protocols;
      fix_types.insert(seen.fix_types);
    }
    if (!seen.snap_types.empty()) snap_types.insert(seen.snap_types.substr(0, 3));
    if (seen.protocols.ends_with(":udp:quorl_gapfill") && !seen.stream_offset.empty()) ++replies;
  }
  ASSERT_GE(packets.size(), heard);
  for (size_t i = 0; i < heard; ++i) {
    const client::TpPacket& packet = feed.packets()[i].packet;
    EXPECT_EQ(packets[i].stream_offset, std::to_string(packet.header.stream_offset));
    EXPECT_EQ(packets[i].announced, std::to_string(packet.header.first_seq));
    std::string seqs;
    uint64_t seq = feed.true_first_seq(feed.packets()[i]).value();
    for (size_t k = 0; k < packet.messages.size(); ++k) {
      seqs += (k == 0 ? "" : ",") + std::to_string(seq++);
    }
    EXPECT_EQ(packets[i].seqs, seqs) << "packet " << i;
  }
  EXPECT_EQ(answer.messages.size(), 3u);
  EXPECT_EQ(replies, 2u);  // the messages, the status
  EXPECT_THAT(fix_types, IsSupersetOf({"A", "D", "8", "5"}));
  EXPECT_FALSE(image.messages.empty());
  EXPECT_THAT(snap_types, IsSupersetOf({"'r'", "'s'"}));
}

}  // namespace
}  // namespace share
