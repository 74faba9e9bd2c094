#pragma once

#include <chrono>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "quorl/client/temp_directory.h"
#include "tests/tools/support/tool.h"

namespace certify_test {

namespace client = quorl::client;

/// Long enough for a run on a loaded machine.
constexpr std::chrono::seconds RUN_PATIENCE{150};

/// quorl-certify as a user runs it, in a place of its own for plans and folders.
class Certification {
 public:
  /// Writes a plan; returns its path.
  std::string plan(const std::string& name, const std::string& text) const;

  /// Runs plans against a client, with --out in our place; `options` stand ahead of "--".
  tools_test::Said judge(const std::vector<std::string>& options,
                         const std::vector<std::string>& client) const;
  /// The same with a script of the shell for a client.
  tools_test::Said judge_script(const std::vector<std::string>& options,
                                const std::string& script) const;
  /// The same, not waited for.
  std::unique_ptr<tools_test::Tool> start(const std::vector<std::string>& options,
                                          const std::vector<std::string>& client) const;

  const std::string& place() const { return place_.path(); }
  /// A file of a run: of("drop", "report.txt").
  std::string path_of(const std::string& run, const std::string& file) const;
  std::string text_of(const std::string& run, const std::string& file) const;

 private:
  client::TempDirectory place_;
};

/// The words that start the client of these tests in one of its ways: see strange_client.cpp.
std::vector<std::string> strange_client(const std::string& way, const std::string& number = "0");

/// A plan that ends when the client does, for one that does so soon.
constexpr const char* SHORT = "title Short\nlimit 60s\n";

/// Pids of all processes whose environment has this variable with this value.
std::vector<int> processes_with(const std::string& variable, const std::string& value);

/// Waits until there is none; false if there still is one after the patience.
bool no_process_stays_with(const std::string& variable, const std::string& value);

}  // namespace certify_test
