#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <system_error>

#include "certify/plan/actions.h"
#include "certify/plan/condition.h"
#include "certify/plan/market.h"
#include "certify/plan/plan.h"
#include "certify/plan/words.h"

namespace certify {
namespace {

using CheckNames = std::set<std::string>;

/// A plan as far as it has been read.
struct Draft {
  explicit Draft(const CheckNames& names) : checks(names) {}

  Plan plan;
  const CheckNames& checks;
  unsigned line = 0;
  std::set<std::string> words;         // that have stood
  std::set<std::string> options;       // of the market
  std::vector<unsigned> belief_lines;  // one for each of plan.belief
};

void take_title(Draft& draft, Words& words) {
  draft.plan.title = words.rest_text();
  if (draft.plan.title.empty()) throw Mistake("a text is missing behind", "title");
}

void take_market_line(Draft& draft, Words& words) {
  take_market(words, draft.options, draft.plan.market);
}

void take_scenario_line(Draft& draft, Words& words) { draft.plan.scenario = take_scenario(words); }

void take_step(Draft& draft, Words& words) {
  Step step{.line = draft.line, .when = {}, .action = {}};
  if (words.take_if("when") || begins_timed_term(words)) step.when = take_condition(words);
  if (words.empty()) throw Mistake("an action is missing behind", "step");
  const auto& counters = counter_names();
  if (step.when.empty() &&
      std::find(counters.begin(), counters.end(), words.peek()) != counters.end()) {
    throw Mistake("'when' is missing before a counter", words.peek());
  }
  Words action(words.rest());
  check_action(Words(action).rest());
  step.action = action.rest_text();
  const auto& steps = draft.plan.steps;
  if (!steps.empty() && steps.back().action == "stop") {
    throw Mistake("no step can follow 'stop', with which the exchange is gone", step.action);
  }
  draft.plan.steps.push_back(std::move(step));
}

void take_end(Draft& draft, Words& words) {
  if (!words.take_if("when") && !begins_timed_term(words)) {
    throw Mistake("'when' is missing behind", "end");
  }
  draft.plan.end = take_condition(words);
  words.expect_end();
}

Milliseconds take_some_time(Words& words) {
  const std::string text = words.take("a time such as 60s is missing behind");
  const auto time = time_from(text);
  if (!time || *time == Milliseconds{0}) throw Mistake("is no time such as 60s or 500ms", text);
  words.expect_end();
  return *time;
}

void take_limit(Draft& draft, Words& words) { draft.plan.limit = take_some_time(words); }

void take_require(Draft& draft, Words& words) {
  if (begins_timed_term(words)) {
    throw Mistake("only counters can be required", words.peek());
  }
  Condition condition = take_condition(words);
  words.expect_end();
  for (const Term& term : condition) {
    if (term.kind != Term::Kind::COUNTER) {
      throw Mistake("only counters can be required", condition_text({term}));
    }
  }
  draft.plan.require.push_back(std::move(condition));
}

void take_checks(Draft& draft, Words& words, const CheckNames& others, CheckNames& names) {
  do {
    std::string name = words.take("the name of a check is missing behind");
    if (!draft.checks.contains(name)) {
      const std::vector<std::string> known(draft.checks.begin(), draft.checks.end());
      throw Mistake(with_nearest("unknown check", name, known), name);
    }
    if (others.contains(name)) throw Mistake("is both skipped and expected", name);
    if (!names.insert(name).second) throw Mistake("stands twice", name);
  } while (!words.empty());
}

void take_skip(Draft& draft, Words& words) {
  take_checks(draft, words, draft.plan.expect, draft.plan.skip);
}

void take_expect(Draft& draft, Words& words) {
  take_checks(draft, words, draft.plan.skip, draft.plan.expect);
}

/// {run} is the only word in braces that is filled in.
void check_belief_path(const std::string& path) {
  constexpr std::string_view RUN = "{run}";
  for (size_t at = path.find('{'); at != std::string::npos; at = path.find('{', at + 1)) {
    if (path.compare(at, RUN.size(), RUN) == 0) continue;
    throw Mistake("only {run} is filled in here", path.substr(at));
  }
}

void take_belief(Draft& draft, Words& words) {
  static const std::vector<std::string> KINDS = {"positions", "events", "book"};
  const std::string kind = words.take("positions, events or book is missing behind");
  const auto found = std::find(KINDS.begin(), KINDS.end(), kind);
  if (found == KINDS.end()) throw Mistake(with_nearest("unknown belief", kind, KINDS), kind);
  Belief belief;
  belief.kind = static_cast<Belief::Kind>(found - KINDS.begin());
  belief.path = words.take("the path of a file is missing behind");
  check_belief_path(belief.path);
  if (words.take_if("at")) belief.mark = words.take("the name of a mark is missing behind");
  words.expect_end();
  draft.plan.belief.push_back(std::move(belief));
  draft.belief_lines.push_back(draft.line);
}

void take_count(Words& words, unsigned& count) {
  const std::string text = words.take("a whole number is missing behind");
  const auto number = whole_number(text, 1'000'000);
  if (!number) throw Mistake("is no whole number up to 1000000", text);
  words.expect_end();
  count = static_cast<unsigned>(*number);
}

void take_allow(Draft& draft, Words& words) {
  static const std::vector<std::string> NAMES = {"grace",    "recovery", "answer",
                                                 "connects", "asks",     "repetitions"};
  Allowances& allow = draft.plan.allow;
  const std::string name = words.take("what is allowed is missing behind");
  if (std::find(NAMES.begin(), NAMES.end(), name) == NAMES.end()) {
    throw Mistake(with_nearest("unknown allowance", name, NAMES), name);
  }
  if (!draft.words.insert("allow " + name).second) throw Mistake("stands twice", "allow " + name);
  if (name == "grace") allow.grace = take_some_time(words);
  if (name == "recovery") allow.recovery = take_some_time(words);
  if (name == "answer") allow.answer = take_some_time(words);
  if (name == "connects") take_count(words, allow.connects);
  if (name == "asks") take_count(words, allow.asks);
  if (name == "repetitions") take_count(words, allow.repetitions);
}

struct Word {
  std::string_view name;
  bool once;
  void (*take)(Draft& draft, Words& words);
};

constexpr Word WORDS[] = {
    {"title", true, take_title},
    {"market", false, take_market_line},
    {"scenario", true, take_scenario_line},
    {"step", false, take_step},
    {"end", true, take_end},
    {"limit", true, take_limit},
    {"require", false, take_require},
    {"skip", false, take_skip},
    {"expect", false, take_expect},
    {"belief", false, take_belief},
    {"allow", false, take_allow},
};

void take_line(Draft& draft, std::string_view line) {
  Words words(split_words(without_comment(line)));
  if (words.empty()) return;
  const std::string first = words.take("");
  const auto word = std::find_if(std::begin(WORDS), std::end(WORDS),
                                 [&first](const Word& w) { return w.name == first; });
  if (word == std::end(WORDS)) {
    std::vector<std::string> known;
    for (const Word& w : WORDS) known.emplace_back(w.name);
    throw Mistake(with_nearest("unknown word", first, known), first);
  }
  const bool again = !draft.words.insert(first).second;
  if (word->once && again) throw Mistake("stands twice", first);
  word->take(draft, words);
}

/// What only the whole plan shows.
void check_whole(const Draft& draft, const auto& complain) {
  if (!draft.words.contains("title")) complain(1, Mistake("a plan needs one", "title").what());
  std::set<std::string> marks;
  for (const Step& step : draft.plan.steps) {
    const auto mark = mark_of(step.action);
    if (mark && !marks.insert(*mark).second) {
      complain(step.line, Mistake("the mark is set twice", *mark).what());
    }
  }
  for (size_t i = 0; i < draft.plan.belief.size(); ++i) {
    const std::string& mark = draft.plan.belief[i].mark;
    if (!mark.empty() && !marks.contains(mark)) {
      complain(draft.belief_lines[i], Mistake("no step sets the mark", mark).what());
    }
  }
}

std::vector<std::string_view> lines_of(std::string_view text) {
  std::vector<std::string_view> lines;
  while (!text.empty()) {
    const size_t end = std::min(text.find('\n'), text.size());
    lines.push_back(text.substr(0, end));
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return lines;
}

/// The comment at the head, without its '#'; it ends at the first line that is none.
std::string purpose_of(const std::vector<std::string_view>& lines) {
  std::string purpose;
  for (std::string_view line : lines) {
    if (!line.starts_with('#')) break;
    line.remove_prefix(line.starts_with("# ") ? 2 : 1);
    purpose += std::string(line) + "\n";
  }
  if (!purpose.empty()) purpose.pop_back();
  return purpose;
}

std::string name_of(const std::string& path) {
  constexpr std::string_view ENDING = ".plan";
  std::string name = path.substr(path.rfind('/') + 1);
  if (name.ends_with(ENDING)) name.resize(name.size() - ENDING.size());
  return name;
}

}  // namespace

Plan read_plan(const std::string& path, std::string_view text, const CheckNames& checks) {
  const std::vector<std::string_view> lines = lines_of(text);
  Draft draft(checks);
  draft.plan.path = path;
  draft.plan.name = name_of(path);
  draft.plan.purpose = purpose_of(lines);

  std::vector<std::pair<unsigned, std::string>> mistakes;
  const auto complain = [&mistakes](unsigned line, const std::string& what) {
    mistakes.emplace_back(line, what);
  };
  for (const std::string_view line : lines) {
    ++draft.line;
    try {
      take_line(draft, line);
    } catch (const std::runtime_error& mistake) {
      complain(draft.line, mistake.what());
    }
  }
  check_whole(draft, complain);
  if (mistakes.empty()) return draft.plan;

  std::stable_sort(mistakes.begin(), mistakes.end(),
                   [](const auto& a, const auto& b) { return a.first < b.first; });
  std::string all;
  for (const auto& [line, what] : mistakes) {
    all += (all.empty() ? "" : "\n") + path + ":" + std::to_string(line) + ": " + what;
  }
  throw PlanError(all);
}

Plan load_plan(const std::string& path, const CheckNames& checks) {
  std::error_code ignored;  // a folder opens like a file, and throws when it is read
  if (std::filesystem::is_directory(path, ignored)) throw PlanError(path + ": is a folder");
  if (!std::filesystem::exists(path, ignored)) throw PlanError(path + ": there is no such plan");
  std::ifstream file(path, std::ios::binary);
  if (!file.is_open()) throw PlanError(path + ": cannot be read");
  const std::string text{std::istreambuf_iterator<char>(file), {}};
  return read_plan(path, text, checks);
}

}  // namespace certify
