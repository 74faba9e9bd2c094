// A real engine before the judge: the QuickFIX example passes the plans that concern FIX.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <regex>
#include <string>
#include <vector>

#include "tests/certify/e2e/support/certification.h"

namespace certify_test {
namespace {

using testing::HasSubstr;

constexpr std::chrono::seconds ENGINE_PATIENCE{280};

// Without those of the feed, which it does not take.
constexpr const char* FIX_PLANS[] = {"calm",
                                     "crossing-replace",
                                     "lapse",
                                     "lost-race",
                                     "partial-fill",
                                     "reject",
                                     "replace-reject",
                                     "reset",
                                     "scripted-drop",
                                     "sequence-ahead",
                                     "sequence-too-low",
                                     "unsolicited-cancel"};

/// The example's own settings, but for where files lie and a heartbeat that lets it notice a lapse.
std::string settings_in(const std::string& folder) {
  std::string text = client::read_file(QUORL_SOURCE "/examples/quickfix/client.cfg");
  const auto set = [&text](const std::string& name, const std::string& value) {
    text = std::regex_replace(text, std::regex("\n" + name + "=[^\n]*"), "\n" + name + "=" + value);
  };
  set("DataDictionary", QUORL_SOURCE "/share/quorl/FIX42-quorl.xml");
  set("FileLogPath", folder + "/log");
  set("HeartBtInt", "1");
  std::ofstream(folder + "/client.cfg") << text;
  return folder + "/client.cfg";
}

TEST(QuickFix, example_passes_the_plans_that_concern_fix) {
  const Certification certification;
  std::vector<std::string> words;
  for (const char* plan : FIX_PLANS) {
    words.push_back(std::string(QUORL_SOURCE "/plans/") + plan + ".plan");
  }
  words.insert(words.end(), {"--skip", "feed", "--jobs", "4"});
  // An engine of its own pace may miss a plan's occasion, which proves nothing: then once more.
  constexpr int NO_OCCASION = 3;
  tools_test::Said said;
  for (int tries = 0; tries == 0 || (said.status == NO_OCCASION && tries < 3); ++tries) {
    const auto run = certification.start(
        words,
        {QUICKFIX_CLIENT, "--settings", settings_in(certification.place()), "--port", "{fix_port}",
         "--symbols", "AAPL", "--orders", "1000", "--seconds", "100", "--comp-id", "{plan}"});
    said = run->end(ENGINE_PATIENCE);
  }
  EXPECT_EQ(said.status, 0) << said.out << said.err;
  EXPECT_THAT(said.out, HasSubstr("12 plans:  12 passed"));
}

}  // namespace
}  // namespace certify_test
