#include "stories/told.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <utility>
#include <vector>

#include "stories/spoilt.h"

namespace stories {
namespace {

std::vector<std::filesystem::path> files() {
  std::vector<std::filesystem::path> found;
  for (const auto& entry : std::filesystem::directory_iterator(QUORL_SOURCE "/tests/stories")) {
    if (entry.path().extension() == ".story") found.push_back(entry.path());
  }
  std::sort(found.begin(), found.end());
  return found;
}

std::string content_of(const std::filesystem::path& path) {
  std::ostringstream content;
  content << std::ifstream(path).rdbuf();
  return content.str();
}

class Told : public testing::Test {
 public:
  Told(Story story, Driver driver) : story_(std::move(story)), driver_(std::move(driver)) {}

  void TestBody() override {
    const Outcome outcome = driver_(story_);
    if (outcome.failure) FAIL() << *outcome.failure << "\nSo far:\n" << outcome.course;
  }

 private:
  const Story story_;
  const Driver driver_;
};

class Noticed : public testing::Test {
 public:
  Noticed(Spoilt spoilt, Driver driver) : spoilt_(std::move(spoilt)), driver_(std::move(driver)) {}

  void TestBody() override {
    const Outcome outcome = driver_(read_stories(spoilt_.text, "spoilt").front());
    if (spoilt_.failure.empty()) {
      EXPECT_FALSE(outcome.failure) << *outcome.failure << "\nSo far:\n" << outcome.course;
    } else {
      EXPECT_THAT(outcome.failure.value_or("nothing"), testing::HasSubstr(spoilt_.failure));
    }
  }

 private:
  const Spoilt spoilt_;
  const Driver driver_;
};

}  // namespace

void register_stories(const std::string& driver_name, bool is_inside, const Driver& driver) {
  for (const std::filesystem::path& path : files()) {
    for (const Story& story : read_stories(content_of(path), path.stem().string())) {
      if (!is_inside && !story.inside_only.empty()) continue;
      testing::RegisterTest(
          driver_name.c_str(), story.name.c_str(), nullptr, nullptr, __FILE__, __LINE__,
          [story, driver]() -> testing::Test* { return new Told(story, driver); });
    }
  }
}

void register_spoilt_stories(const std::string& driver_name, const Driver& driver) {
  for (const Spoilt& spoilt : spoilt_stories()) {
    testing::RegisterTest(
        driver_name.c_str(), ("notices/" + spoilt.name).c_str(), nullptr, nullptr, __FILE__,
        __LINE__, [spoilt, driver]() -> testing::Test* { return new Noticed(spoilt, driver); });
  }
}

}  // namespace stories
