#include "certify/report/check_pages.h"

#include <ostream>
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
  return page + "\n";
}

}  // namespace certify
