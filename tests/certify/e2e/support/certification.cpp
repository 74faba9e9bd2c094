#include "tests/certify/e2e/support/certification.h"

#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

#include "quorl/client/deadline.h"
#include "tests/e2e/support/built.h"

namespace certify_test {

namespace fs = std::filesystem;

std::string Certification::plan(const std::string& name, const std::string& text) const {
  const std::string path = place() + "/" + name + ".plan";
  std::ofstream(path) << text;
  return path;
}

std::unique_ptr<tools_test::Tool> Certification::start(
    const std::vector<std::string>& options, const std::vector<std::string>& client) const {
  std::vector<std::string> words = options;
  words.insert(words.end(), {"--out", place() + "/out"});
  if (!client.empty()) words.emplace_back("--");
  words.insert(words.end(), client.begin(), client.end());
  return std::make_unique<tools_test::Tool>(
      "certify", words, std::map<std::string, std::string>{{"CERTIFY_TEST", place()}});
}

tools_test::Said Certification::judge(const std::vector<std::string>& options,
                                      const std::vector<std::string>& client) const {
  const auto tool = start(options, client);
  tool->close_input();
  return tool->end(RUN_PATIENCE);
}

tools_test::Said Certification::judge_script(const std::vector<std::string>& options,
                                             const std::string& script) const {
  return judge(options, {"sh", "-c", script});
}

std::string Certification::path_of(const std::string& run, const std::string& file) const {
  return place() + "/out/" + run + "/" + file;
}

std::string Certification::text_of(const std::string& run, const std::string& file) const {
  return client::read_file(path_of(run, file));
}

std::vector<std::string> strange_client(const std::string& way, const std::string& number) {
  return {built_program("certify_strange_client"), way, number};
}

std::vector<int> processes_with(const std::string& variable, const std::string& value) {
  std::vector<int> pids;
  std::error_code failed;
  for (const auto& entry : fs::directory_iterator("/proc", failed)) {
    const std::string name = entry.path().filename().string();
    if (name.find_first_not_of("0123456789") != std::string::npos) continue;
    std::istringstream variables(client::read_file(entry.path().string() + "/environ"));
    for (std::string one; std::getline(variables, one, '\0');) {
      if (one == variable + "=" + value) pids.push_back(std::stoi(name));
    }
  }
  return pids;
}

bool no_process_stays_with(const std::string& variable, const std::string& value) {
  const client::Deadline deadline = client::Deadline::after(client::PATIENCE);
  while (!processes_with(variable, value).empty()) {
    if (deadline.expired()) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return true;
}

}  // namespace certify_test
