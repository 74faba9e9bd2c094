// Wireshark's window takes all frames once, in order, and again whenever one is looked at. sharkd
// is Wireshark without its window, told by lines of JSON.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <nlohmann/json.hpp>
#include <sstream>

#include "tests/share/capture_file.h"
#include "tests/share/recording.h"
#include "tests/share/tshark.h"

namespace share {
namespace {

using nlohmann::json;

std::string request(size_t id, const std::string& method, const json& params) {
  return json{{"jsonrpc", "2.0"}, {"id", id}, {"method", method}, {"params", params}}.dump() + "\n";
}

/// The labels of all items below, in order, without expert notes: as Frame::shown has them.
void add_labels(const json& items, std::vector<std::string>& labels) {
  for (const json& item : items) {
    const std::string filter = item.value("f", "");
    if (filter == "_ws.expert" || filter == "_ws.malformed") continue;
    labels.push_back(item.at("l"));
    if (item.contains("n")) add_labels(item.at("n"), labels);
  }
}

std::vector<std::string> labels_of(const json& tree) {
  std::vector<std::string> labels;
  for (const json& top : tree) {
    if (top.value("f", "").starts_with("quorl_")) add_labels(json::array({top}), labels);
  }
  return labels;
}

std::vector<std::string> labels_of(const Frame& frame) {
  std::vector<std::string> labels;
  for (const char* protocol : {"quorl_tp", "quorl_gapfill", "quorl_snap"}) {
    for (const Shown& shown : frame.shown(protocol)) labels.push_back(shown.label);
  }
  return labels;
}

TEST(RandomAccess, frames_looked_at_in_any_order_show_what_two_passes_show) {
  const client::TempDirectory directory;
  const std::string path = directory.path() + "/run.pcap";
  CaptureFile file;
  (void)put_recording(file, Recording::of_a_run(), {});
  file.write(path);

  // As a user installs it. sharkd knows no other way.
  const std::filesystem::path plugins = directory.path() + "/.local/lib/wireshark/plugins";
  std::filesystem::create_directories(plugins);
  std::filesystem::copy(dissector_path(), plugins);

  const size_t count = file.frames();
  const size_t loading = count + 1;
  std::string input = request(loading, "load", {{"file", path}});
  for (size_t number = count; number > 0; --number) {  // from the last to the first
    input += request(number, "frame", {{"frame", number}, {"proto", true}});
  }
  for (size_t i = 0; i < count; ++i) {  // and once more, to and fro
    const size_t number = 1 + i * 37 % count;
    input += request(number, "frame", {{"frame", number}, {"proto", true}});
  }

  const Dissection two_passes(path);
  ASSERT_EQ(two_passes.size(), count);
  std::istringstream replies(run("sharkd", {"-"}, directory.path(), input));
  size_t looked_at = 0, ours = 0;
  for (std::string line; std::getline(replies, line);) {
    const json reply = json::parse(line);
    ASSERT_FALSE(reply.contains("error")) << line;
    const size_t number = reply.at("id");
    if (number == loading) continue;
    const std::vector<std::string> labels = labels_of(reply.at("result").at("tree"));
    EXPECT_EQ(labels, labels_of(two_passes.frame(number))) << "frame " << number;
    ++looked_at;
    if (!labels.empty()) ++ours;
  }
  EXPECT_EQ(looked_at, 2 * count);
  EXPECT_GT(ours, count / 2);
}

}  // namespace
}  // namespace share
