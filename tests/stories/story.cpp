#include "stories/story.h"

#include <algorithm>
#include <charconv>
#include <set>
#include <utility>

namespace stories {
namespace {

constexpr std::string_view BLANKS = " \t";

std::string_view trimmed(std::string_view text) {
  const size_t first = text.find_first_not_of(BLANKS);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(BLANKS) - first + 1);
}

/// The first word of `rest`, which is then what stands behind it.
std::string_view take_word(std::string_view& rest) {
  rest = trimmed(rest);
  const size_t end = std::min(rest.find_first_of(BLANKS), rest.size());
  const std::string_view word = rest.substr(0, end);
  rest = trimmed(rest.substr(end));
  return word;
}

std::vector<std::string_view> split(std::string_view text, char separator) {
  std::vector<std::string_view> pieces;
  for (;;) {
    const size_t end = text.find(separator);
    pieces.push_back(text.substr(0, end));
    if (end == std::string_view::npos) return pieces;
    text.remove_prefix(end + 1);
  }
}

template <typename Number>
bool read_number(std::string_view text, Number& number) {
  const auto read = std::from_chars(text.data(), text.data() + text.size(), number);
  return read.ec == std::errc() && read.ptr == text.data() + text.size();
}

bool is_connection(std::string_view word) {
  if (word.empty() || word.front() < 'A' || word.front() > 'Z') return false;
  return word.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_#") == std::string_view::npos;
}

bool is_name(std::string_view word) {
  return !word.empty() &&
         word.find_first_not_of("abcdefghijklmnopqrstuvwxyz0123456789_") == std::string_view::npos;
}

bool is_act(Kind kind) { return kind <= Kind::CONTROL; }

/// Reads one file.
class Reader {
 public:
  explicit Reader(std::string subject) : subject_(std::move(subject)) {}

  std::vector<Story> read(std::string_view text);

 private:
  struct Telling {  // what holds for a story, or for all that come
    Story story;
    std::map<std::string, std::vector<FieldWords>, std::less<>> lets;
  };

  void read_line(std::string_view line);
  bool read_setting(std::string_view word, std::string_view rest);
  void begin_story(std::string_view name);
  void end_story();
  Step step_of(std::string_view line);
  void read_client_step(Step& step, std::string_view rest);
  void read_counts(Step& step, std::string_view rest);
  std::vector<FieldWords> fields_of(std::string_view text);
  static void put(std::vector<FieldWords>& fields, FieldWords field);
  [[noreturn]] void refuse(const std::string& why) const;

  const std::string subject_;
  unsigned line_ = 0;
  Telling all_;  // said ahead of the first story
  Telling now_;
  bool in_story_ = false;
  std::set<std::string> met_;  // connections of the story
  std::vector<Story> stories_;
};

std::vector<Story> Reader::read(std::string_view text) {
  for (const std::string_view line : split(text, '\n')) {
    ++line_;
    read_line(trimmed(line));
  }
  end_story();
  if (stories_.empty()) refuse("no story");
  return std::move(stories_);
}

void Reader::read_line(std::string_view line) {
  if (line.empty() || line.front() == '#') return;
  std::string_view rest = line;
  const std::string_view word = take_word(rest);
  if (word == "story") return begin_story(rest);
  if (read_setting(word, rest)) return;
  if (!in_story_) refuse("stands ahead of the first story");
  now_.story.steps.push_back(step_of(line));
}

bool Reader::read_setting(std::string_view word, std::string_view rest) {
  Telling& telling = in_story_ ? now_ : all_;
  const bool is_late = !now_.story.steps.empty();
  if (word == "let") {
    const std::string name(take_word(rest));
    if (!is_name(name)) refuse("no name to let");
    telling.lets[name] = fields_of(rest);
    return true;
  }
  if (word == "options") {
    while (!rest.empty()) telling.story.options.emplace_back(take_word(rest));
  } else if (word == "script") {
    telling.story.script = rest;
  } else if (word == "book") {
    if (rest != "opening") refuse("the book is empty, or \"opening\"");
    telling.story.begins_empty = false;
  } else if (word == "inside") {
    constexpr std::string_view ONLY = "only: ";
    if (!rest.starts_with(ONLY)) refuse("\"inside only: \" and the reason");
    telling.story.inside_only = rest.substr(ONLY.size());
  } else {
    return false;
  }
  if (is_late) refuse("stands behind the first step");
  return true;
}

void Reader::begin_story(std::string_view name) {
  end_story();
  if (!is_name(name)) refuse("a story's name is made of small letters, digits and _");
  now_ = all_;
  now_.story.name = subject_ + "/" + std::string(name);
  for (const Story& earlier : stories_) {
    if (earlier.name == now_.story.name) refuse("a second story of that name");
  }
  in_story_ = true;
  met_.clear();
}

void Reader::end_story() {
  if (!in_story_) return;
  if (now_.story.steps.empty()) refuse(now_.story.name + " tells nothing");
  stories_.push_back(std::move(now_.story));
  now_ = {};
  in_story_ = false;
}

Step Reader::step_of(std::string_view line) {
  Step step;
  step.line = line_;
  step.text = line;
  if (line.starts_with("+ ")) {
    step.same_turn = true;
    line = trimmed(line.substr(1));
  }
  std::string_view rest = line;
  const std::string_view word = take_word(rest);
  step.words = rest;
  if (is_connection(word)) {
    step.connection = word;
    read_client_step(step, rest);
  } else if (word == "control") {
    constexpr std::string_view ANSWERS = " -> ";
    const size_t arrow = rest.find(ANSWERS);
    step.kind = Kind::CONTROL;
    step.words = rest.substr(0, arrow);
    step.reply = arrow == std::string_view::npos ? "ok " + step.words
                                                 : std::string(rest.substr(arrow + ANSWERS.size()));
  } else if (word == "after") {
    const bool in_ms = rest.ends_with("ms");
    const std::string_view number = rest.substr(0, rest.size() - (in_ms ? 2 : 1));
    if (!rest.ends_with("s") || !read_number(number, step.ms)) refuse("\"2s\" or \"1999ms\"");
    if (!in_ms) step.ms *= 1000;
    step.kind = Kind::PASS;
  } else if (word == "feed") {
    step.kind = Kind::FEED;
  } else if (word == "counts") {
    step.kind = Kind::COUNTS;
    read_counts(step, rest);
  } else if (word == "log") {
    step.kind = Kind::LOG;
  } else if (word == "event") {
    step.kind = Kind::EVENT;
    now_.story.names_events = true;
  } else {
    refuse("\"" + std::string(word) + "\" is no word of a story");
  }
  if (step.same_turn) {
    if (!is_act(step.kind) || now_.story.steps.empty() || !is_act(now_.story.steps.back().kind)) {
      refuse("\"+\" joins what is done to what is done");
    }
  }
  return step;
}

void Reader::read_client_step(Step& step, std::string_view rest) {
  const std::string_view verb = take_word(rest);
  step.words = rest;
  if (verb == ">" || verb == "<") {
    step.kind = verb == ">" ? Kind::SEND : Kind::HEAR;
    step.words = take_word(rest);
    if (step.words.empty()) refuse("no MsgType");
    step.fields = fields_of(rest);
  } else if (verb == "rests") {
    step.kind = Kind::REST;
    step.fields = fields_of(rest);
  } else if (verb == ">>") {
    step.kind = Kind::RAW;
  } else if (verb == "connects" && rest.empty()) {
    step.kind = Kind::CONNECT;
  } else if (verb == "disconnects" && rest.empty()) {
    step.kind = Kind::DISCONNECT;
  } else if (verb == "resets" && rest.empty()) {
    step.kind = Kind::RESET;
  } else if (verb == "closed" && rest.empty()) {
    step.kind = Kind::CLOSED;
  } else {
    refuse("a client does >, >>, rests, connects, disconnects or resets, hears <, or is closed");
  }
  const bool is_first = met_.insert(step.connection).second;
  if (is_first && step.kind != Kind::CONNECT) now_.story.logged_on.push_back(step.connection);
}

/// "orders+1 fills+2".
void Reader::read_counts(Step& step, std::string_view rest) {
  while (!rest.empty()) {
    const std::string_view word = take_word(rest);
    const size_t plus = word.find('+');
    int64_t rise = 0;
    if (plus == std::string_view::npos || !read_number(word.substr(plus + 1), rise) || rise == 0) {
      refuse("a counter rises: \"orders+1\"");
    }
    if (!step.rises.emplace(word.substr(0, plus), rise).second) refuse("a counter rises once");
  }
}

/// "11=a1|&sell|38=300|!18".
std::vector<FieldWords> Reader::fields_of(std::string_view text) {
  std::vector<FieldWords> fields;
  if (text.empty()) return fields;
  const Telling& telling = in_story_ ? now_ : all_;
  for (const std::string_view word : split(text, '|')) {
    if (word.starts_with("&")) {
      const auto let = telling.lets.find(word.substr(1));
      if (let == telling.lets.end()) refuse("nothing is let " + std::string(word.substr(1)));
      for (const FieldWords& field : let->second) put(fields, field);
      continue;
    }
    FieldWords field;
    field.absent = word.starts_with("!");
    const size_t equals = word.find('=');
    const std::string_view tag =
        field.absent ? word.substr(1) : word.substr(0, std::min(equals, word.size()));
    if (!read_number(tag, field.tag) || (!field.absent && equals == std::string_view::npos)) {
      refuse("\"" + std::string(word) + "\" is no field");
    }
    if (!field.absent) field.value = word.substr(equals + 1);
    put(fields, std::move(field));
  }
  return fields;
}

/// A later mention of a tag takes the place of the earlier.
void Reader::put(std::vector<FieldWords>& fields, FieldWords field) {
  const auto same = std::find_if(fields.begin(), fields.end(), [&field](const FieldWords& earlier) {
    return earlier.tag == field.tag;
  });
  if (same == fields.end()) {
    fields.push_back(std::move(field));
  } else {
    *same = std::move(field);
  }
}

void Reader::refuse(const std::string& why) const {
  throw BadStory(subject_ + ".story:" + std::to_string(line_) + ": " + why);
}

}  // namespace

std::vector<Story> read_stories(std::string_view text, const std::string& subject) {
  return Reader(subject).read(text);
}

std::string comp_id_of(const std::string& connection) {
  return connection.substr(0, connection.find('#'));
}

}  // namespace stories
