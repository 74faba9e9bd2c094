#include "certify/plan/condition.h"

#include <algorithm>

namespace certify {
namespace {

Milliseconds take_time(Words& words) {
  const std::string text = words.take("a time such as 2s or 500ms is missing");
  const auto time = time_from(text);
  if (!time) throw Mistake("is no time such as 2s or 500ms", text);
  return *time;
}

Term take_counter_term(Words& words) {
  Term term{.kind = Term::Kind::COUNTER};
  words.split_comparison();
  term.name = words.take("a condition is missing");
  const auto& known = counter_names();
  if (std::find(known.begin(), known.end(), term.name) == known.end()) {
    throw Mistake(with_nearest("unknown counter", term.name, known), term.name);
  }
  words.split_comparison();
  term.comparison = words.take("a comparison (>= > = < <=) is missing");
  constexpr std::string_view COMPARISONS[] = {">=", ">", "=", "<", "<="};
  if (std::find(std::begin(COMPARISONS), std::end(COMPARISONS), term.comparison) ==
      std::end(COMPARISONS)) {
    throw Mistake("is no comparison (>= > = < <=)", term.comparison);
  }
  const std::string number = words.take("a whole number is missing");
  const auto value = whole_number(number);
  if (!value) throw Mistake("is no whole number", number);
  term.value = *value;
  return term;
}

Term take_term(Words& words) {
  if (words.take_if("quiet")) {
    if (!words.take_if("for")) throw Mistake("'for' is missing behind", "quiet");
    return {.kind = Term::Kind::QUIET, .time = take_time(words)};
  }
  if (words.take_if("after")) return {.kind = Term::Kind::AFTER, .time = take_time(words)};
  if (words.take_if("at")) return {.kind = Term::Kind::AT, .time = take_time(words)};
  if (words.take_if("client")) {
    if (!words.take_if("ended")) throw Mistake("'ended' is missing behind", "client");
    return {.kind = Term::Kind::CLIENT_ENDED};
  }
  return take_counter_term(words);
}

std::string term_text(const Term& term) {
  switch (term.kind) {
    case Term::Kind::COUNTER:
      return term.name + " " + term.comparison + " " + std::to_string(term.value);
    case Term::Kind::QUIET:
      return "quiet for " + time_to_text(term.time);
    case Term::Kind::AFTER:
      return "after " + time_to_text(term.time);
    case Term::Kind::AT:
      return "at " + time_to_text(term.time);
    case Term::Kind::CLIENT_ENDED:
      return "client ended";
  }
  return "";
}

}  // namespace

Condition take_condition(Words& words) {
  Condition condition;
  do {
    condition.push_back(take_term(words));
  } while (words.take_if("and"));
  return condition;
}

bool begins_timed_term(const Words& words) {
  constexpr std::string_view FIRST_WORDS[] = {"quiet", "after", "at", "client"};
  return std::find(std::begin(FIRST_WORDS), std::end(FIRST_WORDS), words.peek()) !=
         std::end(FIRST_WORDS);
}

std::string condition_text(const Condition& condition) {
  std::string text;
  for (const Term& term : condition) text += (text.empty() ? "" : " and ") + term_text(term);
  return text.empty() ? "at once" : text;
}

}  // namespace certify
