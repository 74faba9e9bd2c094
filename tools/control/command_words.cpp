#include "tools/control/command_words.h"

#include <algorithm>
#include <sstream>

namespace tools {
namespace {

constexpr size_t MOST_BYTES = 511;  // that the exchange reads of a datagram

/// As the exchange splits a line, by white space of any kind.
std::vector<std::string> words_of(const std::string& text) {
  std::istringstream rest(text);
  std::vector<std::string> words;
  for (std::string word; rest >> word;) words.push_back(word);
  return words;
}

bool breaks_json(const std::string& label) {
  return std::any_of(label.begin(), label.end(), [](char c) {
    return c == '"' || c == '\\' || static_cast<unsigned char>(c) < ' ';
  });
}

}  // namespace

std::string joined(const std::vector<std::string>& words) {
  std::string text;
  for (const std::string& word : words) {
    if (&word != &words.front()) text += ' ';
    text += word;
  }
  return text;
}

std::string complaint_about(const std::string& command) {
  if (words_of(command).empty()) return "the command is empty";
  if (command.size() > MOST_BYTES) {
    return "the command has " + std::to_string(command.size()) +
           " bytes, of which the exchange would read " + std::to_string(MOST_BYTES);
  }
  return "";
}

std::string caution_about(const std::string& command) {
  const std::vector<std::string> words = words_of(command);
  if (words.size() < 2 || words[0] != "mark") return "";
  const std::string& label = words[1];
  if (words.size() > 2) return "the label of the mark is '" + label + "': it ends at a space";
  if (breaks_json(label)) return "the label is written as it is: the mark's line is no JSON";
  return "";
}

}  // namespace tools
