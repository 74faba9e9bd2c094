#include "certify/report/check_pages.h"

#include <gmock/gmock.h>

#include <set>
#include <sstream>

#include "certify/checks/check.h"
#include "certify/report/checks_chapter.h"
#include "certify/report/clean_text.h"

namespace certify {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

std::set<std::string> names() {
  std::set<std::string> names;
  for (const CheckKind& kind : all_checks()) names.insert(kind.name);
  return names;
}

TEST(CheckPages, every_check_has_one_that_says_what_is_looked_at_why_and_what_passes) {
  for (const std::string& name : names()) {
    const auto page = page_of_check(name);
    ASSERT_TRUE(page) << name;
    EXPECT_THAT(*page, StartsWith(name + "\n\n"));
    for (const char* part : {"\nLooked at:", "\nWhy:", "\nPasses:"}) {
      EXPECT_THAT(*page, HasSubstr(part)) << name;
    }
    EXPECT_THAT(*page, Not(HasSubstr("\n#"))) << "it goes on into the next";
    EXPECT_THAT(*page, Not(testing::AnyOf(HasSubstr("**"), HasSubstr("]("))));
  }
}

TEST(CheckPages, every_page_belongs_to_a_check) {
  std::istringstream lines{std::string(CHECKS_CHAPTER)};
  const auto known = names();
  for (std::string line; std::getline(lines, line);) {
    if (!line.starts_with("### ")) continue;
    EXPECT_TRUE(known.contains(line.substr(4))) << line;
  }
}

TEST(CheckPages, there_is_none_of_what_is_no_check) {
  EXPECT_FALSE(page_of_check("feed.no_such_check"));
  EXPECT_FALSE(page_of_check("feed"));
  EXPECT_FALSE(page_of_check(""));
}

TEST(CheckPages, the_list_names_each_check_with_its_meaning) {
  std::ostringstream out;
  write_check_list(0, out);
  for (const CheckKind& kind : all_checks()) {
    EXPECT_THAT(out.str(), HasSubstr(std::string(kind.name) + "\n    " + kind.meaning + "\n"));
  }
}

TEST(CheckPages, the_list_keeps_to_the_width) {
  std::ostringstream out;
  write_check_list(40, out);
  std::istringstream lines(out.str());
  for (std::string line; std::getline(lines, line);) EXPECT_LE(columns_of(line), 40U) << line;
}

TEST(CheckPages, every_meaning_is_one_sentence) {
  for (const CheckKind& kind : all_checks()) {
    EXPECT_THAT(std::string(kind.meaning), testing::EndsWith(".")) << kind.name;
  }
}

}  // namespace
}  // namespace certify
