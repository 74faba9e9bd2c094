#include "certify/plan/actions.h"

#include <algorithm>

#include "certify/plan/words.h"
#include "certify/tap/taps.h"

namespace certify {
namespace {

/// What may stand behind the word.
enum class Argument : uint8_t { NONE, MAYBE_NUMBER, NUMBER, NAME, LINK };

struct Action {
  std::string_view word;
  Argument argument;
};

constexpr Action ACTIONS[] = {
    {"pause", Argument::NONE},
    {"resume", Argument::NONE},
    {"drop", Argument::MAYBE_NUMBER},
    {"dup", Argument::MAYBE_NUMBER},
    {"reorder", Argument::MAYBE_NUMBER},
    {"drop_every", Argument::NUMBER},  // alone they would turn off, which is better said: 0
    {"dup_every", Argument::NUMBER},
    {"reorder_every", Argument::NUMBER},
    {"rate", Argument::NUMBER},
    {"disconnect", Argument::NONE},
    {"lapse", Argument::NUMBER},
    {"reject", Argument::MAYBE_NUMBER},
    {"partial", Argument::MAYBE_NUMBER},
    {"fill_on_cancel", Argument::MAYBE_NUMBER},
    {"unsolicited_cancel", Argument::MAYBE_NUMBER},
    {"replace_reject", Argument::MAYBE_NUMBER},
    {"mark", Argument::NAME},
    {"stop", Argument::NONE},
    {"link", Argument::LINK},
    {"intrude", Argument::NUMBER},
};

const Action& action_of(const std::string& word) {
  for (const Action& action : ACTIONS) {
    if (action.word == word) return action;
  }
  if (word == "stats") throw Mistake("is no action: conditions know the counters", word);
  throw Mistake(with_nearest("unknown action", word, action_names()), word);
}

void check_number(const std::string& text) {
  if (!whole_number(text, UINT32_MAX)) throw Mistake("is no whole number of 32 bits", text);
}

/// It becomes the name of a folder.
void check_mark(const std::string& name) {
  const bool plain = name.find_first_not_of(
                         "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ"
                         "0123456789_-") == std::string::npos;
  if (!plain || name.size() > 40) {
    throw Mistake("a mark has up to 40 letters, digits, '_' and '-'", name);
  }
}

void check_link(Words& words) {
  if (words.empty()) throw Mistake("what the link is to do is missing behind", "link");
  if (const auto flaw = flaw_of_link_order(words.rest_text())) throw std::runtime_error(*flaw);
}

}  // namespace

void check_action(const std::vector<std::string>& all) {
  Words words(all);
  const std::string word = words.take("an action is missing");
  if (word != "mark" && std::find(all.begin(), all.end(), "when") != all.end()) {
    throw Mistake("a condition stands before the action, not behind it", "when");
  }
  switch (action_of(word).argument) {
    case Argument::NONE:
      break;
    case Argument::MAYBE_NUMBER:
      if (!words.empty()) check_number(words.take(""));
      break;
    case Argument::NUMBER:
      check_number(words.take("a whole number is missing behind"));
      break;
    case Argument::NAME:
      check_mark(words.take("a name is missing behind"));
      break;
    case Argument::LINK:
      return check_link(words);
  }
  words.expect_end();
}

const std::vector<std::string>& action_names() {
  static const std::vector<std::string> names = [] {
    std::vector<std::string> all;
    for (const Action& action : ACTIONS) all.emplace_back(action.word);
    return all;
  }();
  return names;
}

std::optional<std::string> mark_of(const std::string& action) {
  constexpr std::string_view MARK = "mark ";
  if (!action.starts_with(MARK)) return std::nullopt;
  return action.substr(MARK.size());
}

}  // namespace certify
