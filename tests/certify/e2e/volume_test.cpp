// A run with 100000 orders.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <chrono>
#include <cstdlib>

#include "tests/certify/e2e/support/certification.h"

namespace certify_test {
namespace {

using testing::HasSubstr;

/// The sanitizers make the judge ten times as slow and as large.
bool sanitized() {
  const char* const said = std::getenv("QUORL_SANITIZED");
  return said != nullptr && std::string(said) == "1";
}

TEST(Volume, a_hundred_thousand_orders_are_judged_in_seconds_and_bounded_memory) {
  const std::string orders = sanitized() ? "10000" : "100000";
  const Certification certification;
  const std::string plan =
      certification.plan("plan", "title Volume\nend when client ended\nlimit 200s\n");
  const auto tool = certification.start({plan}, strange_client("flood", orders));
  // The most that it ever holds, looked at while it works.
  long most_kb = 0;
  const std::string status = "/proc/" + std::to_string(tool->pid()) + "/status";
  const client::Deadline deadline = client::Deadline::after(std::chrono::seconds(240));
  while (!deadline.expired()) {
    const std::string text = client::read_file(status);
    const size_t at = text.find("VmHWM:");
    if (at == std::string::npos) break;  // it has ended and waits for us
    most_kb = std::max(most_kb, std::stol(text.substr(at + 6)));
    ::usleep(20'000);
  }
  const tools_test::Said said = tool->end(RUN_PATIENCE);
  EXPECT_THAT(said.status, testing::AnyOf(0, 1)) << said.out << said.err;
  EXPECT_THAT(certification.text_of("plan", "report.txt"), HasSubstr("exit status 0"));
  EXPECT_THAT(certification.text_of("plan", "exchange.log"), HasSubstr("orders=" + orders));
  RecordProperty("most_kb", static_cast<int>(most_kb));
  EXPECT_GT(most_kb, 0);
  if (!sanitized()) {
    EXPECT_LT(most_kb, 500'000);
  }
}

}  // namespace
}  // namespace certify_test
