#include "certify/report/check_pages.h"

#include <ostream>
#include <regex>
#include <string>

#include "certify/checks/check.h"
#include "certify/report/checks_chapter.h"
#include "certify/report/clean_text.h"

namespace certify {
namespace {

constexpr std::string_view HEADING = "\n### ";

std::string group_of(std::string_view check) {
  return std::string(check.substr(0, check.find('.')));
}

/// As it is read on a terminal: links name their page, and nothing is bold.
std::string plain(const std::string& page) {
  static const std::regex bold(R"(\*\*)");
  static const std::regex to_page(R"(\[([^\]]*)\]\(([a-z-]+\.md)[^)]*\))");
  static const std::regex within_page(R"(\[([^\]]*)\]\(#[^)]*\))");
  const std::string text = std::regex_replace(page, bold, "");
  return std::regex_replace(std::regex_replace(text, to_page, "$1 (docs/$2)"), within_page, "$1");
}

}  // namespace

void write_check_list(size_t width, std::ostream& out) {
  constexpr size_t INDENT = 4;
  std::string group;
  for (const CheckKind& kind : all_checks()) {
    if (group_of(kind.name) != group) {
      if (!group.empty()) out << "\n";
      group = group_of(kind.name);
    }
    out << kind.name << "\n" << fold(kind.meaning, width, INDENT) << "\n";
  }
}

std::optional<std::string> page_of_check(std::string_view check) {
  const std::string heading = std::string(HEADING) + std::string(check) + "\n";
  const size_t at = CHECKS_CHAPTER.find(heading);
  if (check.empty() || at == std::string_view::npos) return std::nullopt;
  const size_t begin = at + HEADING.size();
  std::string page(CHECKS_CHAPTER.substr(begin, CHECKS_CHAPTER.find(HEADING, begin) - begin));
  page.erase(page.find_last_not_of('\n') + 1);
  return plain(page) + "\n";
}

}  // namespace certify
