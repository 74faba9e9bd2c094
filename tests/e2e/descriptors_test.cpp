// An exchange that may open no further descriptor serves those that it has, and takes the others
// once it may.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <filesystem>
#include <string>
#include <variant>

#include "quorl/client/errors.h"
#include "quorl/client/fix_session.h"
#include "quorl/client/snap_client.h"
#include "quorl/client/tcp.h"
#include "tests/e2e/support/exchange.h"

namespace client = quorl::client;

namespace e2e {
namespace {

/// The lowest descriptor that the process has not opened: under this limit it opens none.
rlim_t lowest_free_descriptor(pid_t pid) {
  const std::string open = "/proc/" + std::to_string(pid) + "/fd/";
  rlim_t fd = 0;
  while (std::filesystem::is_symlink(std::filesystem::symlink_status(open + std::to_string(fd)))) {
    ++fd;
  }
  return fd;
}

/// The soft limit of another process's descriptors, until this goes.
class DescriptorLimit {
 public:
  DescriptorLimit(pid_t pid, rlim_t most) : pid_(pid) {
    if (::prlimit(pid_, RLIMIT_NOFILE, nullptr, &former_) != 0)
      throw client::SystemError("prlimit");
    const rlimit lower{.rlim_cur = most, .rlim_max = former_.rlim_max};
    if (::prlimit(pid_, RLIMIT_NOFILE, &lower, nullptr) != 0) throw client::SystemError("prlimit");
  }
  DescriptorLimit(const DescriptorLimit&) = delete;
  DescriptorLimit& operator=(const DescriptorLimit&) = delete;
  ~DescriptorLimit() { ::prlimit(pid_, RLIMIT_NOFILE, &former_, nullptr); }

 private:
  pid_t pid_;
  rlimit former_{};
};

TEST(Descriptors, that_have_run_out_hold_up_nobody_who_is_connected) {
  Exchange exchange(living());
  client::FixSession alpha = exchange.logs_on("ALPHA");
  client::FixSession beta = exchange.session("BETA");
  const size_t connected = exchange.count_lines("FIX client connected");
  client::SnapRequest request;
  request.session_id = exchange.simulator().session();
  client::TcpStream image;
  {
    const pid_t pid = exchange.simulator().pid();
    const DescriptorLimit none(pid, lowest_free_descriptor(pid));
    beta.connect();  // by the kernel, which holds it for the exchange
    beta.send_logon();
    image = client::TcpStream::connect(exchange.ports().snap);
    image.send_all(client::encode(request));
    for (int i = 0; i < 3; ++i) {
      const uint64_t seq = exchange.turn().next_seq;
      alpha.test_request("still here");
      alpha.hears("35=0|112=still here");
      alpha.new_order({.cl_ord_id = "a" + std::to_string(i), .price = "1.00"});
      alpha.expect_report('0');
      exchange.feed().await_seq(seq + 10);  // the market walks on
    }
    EXPECT_EQ(exchange.count_lines("FIX client connected"), connected);
    EXPECT_EQ(exchange.counter("logons"), 1u);
    EXPECT_EQ(exchange.count_lines("DEEP SNAP served"), 0u);
    EXPECT_TRUE(exchange.simulator().running());
  }
  beta.hears("35=A|34=1|56=BETA");
  EXPECT_EQ(exchange.counter("logons"), 2u);
  const client::Bytes reply = image.receive_to_end(client::Deadline::after(client::PATIENCE));
  EXPECT_TRUE(std::holds_alternative<client::SnapImage>(
      client::decode_snap_reply(reply, request.session_id)));
  EXPECT_EQ(exchange.simulator().terminate().code, 0);
}

}  // namespace
}  // namespace e2e
