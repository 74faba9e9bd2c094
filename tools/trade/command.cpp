#include "tools/trade/command.h"

#include <algorithm>
#include <charconv>
#include <span>
#include <string_view>

#include "tools/seconds.h"
#include "tools/trade/fix_names.h"

namespace client = quorl::client;

namespace tools::command {
namespace {

constexpr size_t LONGEST_LINE = 16384;

using Words = std::vector<std::string>;
using Parsed = std::variant<Command, Complaint>;

Words words_of(const std::string& line) {
  Words words;
  size_t at = 0;
  while ((at = line.find_first_not_of(" \t", at)) != std::string::npos) {
    const size_t end = std::min(line.find_first_of(" \t", at), line.size());
    words.push_back(line.substr(at, end - at));
    at = end;
  }
  return words;
}

/// What stands behind the first word, without the blanks around it.
std::string rest_of(const std::string& line) {
  const size_t verb = line.find_first_not_of(" \t");
  const size_t verb_end = std::min(line.find_first_of(" \t", verb), line.size());
  const size_t begin = line.find_first_not_of(" \t", verb_end);
  if (begin == std::string::npos) return "";
  return line.substr(begin, line.find_last_not_of(" \t") + 1 - begin);
}

/// "100", "190.05", "-1": what the exchange makes of it is its affair.
bool is_decimal(const std::string& text) {
  const std::string_view digits = std::string_view(text).substr(text.starts_with('-') ? 1 : 0);
  return std::ranges::count(digits, '.') <= 1 &&
         std::ranges::any_of(digits, [](char c) { return c >= '0' && c <= '9'; }) &&
         digits.find_first_not_of("0123456789.") == std::string_view::npos;
}

std::optional<uint32_t> message_number(const std::string& text) {
  uint32_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return number;
}

/// Sets a field where it stands, or adds it at the end.
void put(client::FixFields& fields, const client::FixField& field) {
  const auto known = std::ranges::find(fields, field.tag, &client::FixField::tag);
  if (known == fields.end()) {
    fields.push_back(field);
  } else {
    known->value = field.value;
  }
}

/// The words an order may end with, and the fields they set. "short" and "exempt" also state that
/// no locate is required, without which the exchange takes no short sale.
struct OrderWord {
  std::string_view word;
  std::string_view fields;
};
constexpr OrderWord ORDER_WORDS[] = {
    {"day", "59=0"},         {"ioc", "59=3"},         {"fok", "59=4"},       {"market", "40=1"},
    {"limit", "40=2"},       {"agency", "47=A"},      {"principal", "47=P"}, {"riskless", "47=R"},
    {"short", "54=5|114=N"}, {"exempt", "54=6|114=N"}};

/// What stands behind the fixed words of an order: a word from the table, or TAG=VALUE, or id=NAME.
/// Returns a complaint, or empty text.
std::string take_order_words(std::span<const std::string> words, client::FixFields& fields,
                             bool words_allowed) {
  for (const std::string& word : words) {
    const auto* known = std::ranges::find(ORDER_WORDS, word, &OrderWord::word);
    std::string text = word;
    if (words_allowed && known != std::end(ORDER_WORDS)) text = known->fields;
    if (word.starts_with("id=")) text = "11=" + word.substr(3);
    std::string complaint;
    const auto set = read_fields(text, complaint);
    if (!set) return "'" + word + "' is not understood";
    for (const client::FixField& field : *set) put(fields, field);
  }
  return "";
}

Parsed place(std::string_view side, std::span<const std::string> words) {
  if (words.size() < 2) return Complaint{"a symbol and a quantity are needed"};
  if (!is_decimal(words[1])) return Complaint{"'" + words[1] + "' is no quantity"};
  const bool has_price = words.size() > 2 && is_decimal(words[2]);
  client::FixFields fields{
      {55, words[0]}, {54, std::string(side)}, {38, words[1]}, {40, has_price ? "2" : "1"}};
  if (has_price) fields.push_back({44, words[2]});
  fields.push_back({59, "0"});
  fields.push_back({18, "i"});
  fields.push_back({47, "P"});
  const std::string complaint = take_order_words(words.subspan(has_price ? 3 : 2), fields, true);
  if (!complaint.empty()) return Complaint{complaint};
  if (side == "1" && std::ranges::count(words, "short") + std::ranges::count(words, "exempt") > 0) {
    return Complaint{"a buy is not short"};
  }
  return Command(Place{fields});
}

Parsed buy(std::span<const std::string> words, const std::string&) { return place("1", words); }
Parsed sell(std::span<const std::string> words, const std::string&) { return place("2", words); }

Parsed cancel(std::span<const std::string> words, const std::string&) {
  if (words.empty()) return Complaint{"which order?"};
  Cancel cancel{words[0], {}};
  const std::string complaint = take_order_words(words.subspan(1), cancel.fields, false);
  if (!complaint.empty()) return Complaint{complaint};
  return Command(cancel);
}

Parsed replace(std::span<const std::string> words, const std::string&) {
  if (words.size() < 2) return Complaint{"an order and its new quantity are needed"};
  if (!is_decimal(words[1])) return Complaint{"'" + words[1] + "' is no quantity"};
  const bool has_price = words.size() > 2 && is_decimal(words[2]);
  Replace replace{words[0], {{38, words[1]}}};
  if (has_price) replace.fields.push_back({44, words[2]});
  const std::string complaint =
      take_order_words(words.subspan(has_price ? 3 : 2), replace.fields, false);
  if (!complaint.empty()) return Complaint{complaint};
  return Command(replace);
}

Parsed raw(std::span<const std::string>, const std::string& rest) {
  if (rest.starts_with("8=")) return Command(RawBytes{client::with_soh(rest)});
  std::string complaint;
  const auto fields = read_fields(rest, complaint);
  if (!fields) return Complaint{complaint};
  return Command(Raw{*fields});
}

Parsed resend(std::span<const std::string> words, const std::string&) {
  if (words.size() > 2) return Complaint{"two numbers at most"};
  Resend resend;
  for (size_t i = 0; i < words.size(); ++i) {
    const auto number = message_number(words[i]);
    if (!number) return Complaint{"'" + words[i] + "' is no message number"};
    if (i == 0) resend.from = *number;
    if (i == 1) resend.to = *number;
  }
  return Command(resend);
}

Parsed test(std::span<const std::string>, const std::string& rest) { return Command(Test{rest}); }

Parsed seq(std::span<const std::string> words, const std::string&) {
  const auto number = words.size() == 1 ? message_number(words[0]) : std::nullopt;
  if (!number) return Complaint{"the number of the next message is needed"};
  return Command(SetNumber{*number});
}

Parsed reconnect(std::span<const std::string> words, const std::string&) {
  if (words.empty()) return Command(Reconnect{});
  if (words.size() == 1 && words[0] == "reset") return Command(Reconnect{.reset = true});
  return Complaint{"'" + words[0] + "' is not understood"};
}

Parsed wait(std::span<const std::string>, const std::string& rest) {
  if (rest.empty()) return Complaint{"for which text?"};
  return Command(Wait{rest});
}

Parsed expect(std::span<const std::string>, const std::string& rest) {
  if (rest == "closed") return Command(ExpectClosed{});
  std::string complaint;
  const auto fields = read_fields(rest, complaint);
  if (!fields) return Complaint{complaint};
  return Command(Expect{*fields});
}

std::optional<std::chrono::milliseconds> only_seconds(std::span<const std::string> words) {
  return words.size() == 1 ? seconds_from(words[0]) : std::nullopt;
}

Parsed sleep(std::span<const std::string> words, const std::string&) {
  const auto time = only_seconds(words);
  if (!time) return Complaint{"a time in seconds is needed"};
  return Command(Sleep{*time});
}

Parsed timeout(std::span<const std::string> words, const std::string&) {
  const auto time = only_seconds(words);
  if (!time) return Complaint{"a time in seconds is needed"};
  return Command(SetTimeout{*time});
}

template <typename What>
Parsed plain(std::span<const std::string> words, const std::string&) {
  if (!words.empty()) return Complaint{"'" + words[0] + "' is too much"};
  return Command(What{});
}

struct Verb {
  std::string_view word;
  std::string_view usage;
  std::string_view meaning;
  Parsed (*parse)(std::span<const std::string> words, const std::string& rest);
};

constexpr Verb VERBS[] = {
    {"buy", "buy SYMBOL QTY [PRICE] [WORD...]", "a limit order; without PRICE a market order", buy},
    {"sell", "sell SYMBOL QTY [PRICE] [WORD...]",
     "WORD: day ioc fok market limit agency principal riskless short exempt id=NAME TAG=VALUE",
     sell},
    {"cancel", "cancel ID [TAG=VALUE...]", "ID: o1 for this start's first order, or a ClOrdID",
     cancel},
    {"replace", "replace ID QTY [PRICE] [TAG=VALUE...]", "without PRICE the price stays", replace},
    {"orders", "orders", "this start's orders and how they stand", plain<ShowOrders>},
    {"status", "status", "the session, its next numbers, and what was missed", plain<ShowStatus>},
    {"resend", "resend [FROM [TO]]", "asks again for what was missed; TO 0 is all there is",
     resend},
    {"test", "test [TEXT]", "sends a TestRequest", test},
    {"raw", "raw FIELDS", "sends TAG=VALUE|TAG=VALUE...; the head is added, unless 8= begins it",
     raw},
    {"seq", "seq N", "the next message sent carries number N", seq},
    {"reconnect", "reconnect [reset]", "logs on again with the next number, or with number 1",
     reconnect},
    {"logout", "logout", "logs out", plain<LogOut>},
    {"drop", "drop", "closes the connection without a word", plain<Drop>},
    {"expect", "expect FIELDS, expect closed",
     "waits for a message with all these fields, or for the end of the connection", expect},
    {"wait", "wait TEXT", "waits for a message with this text in it", wait},
    {"timeout", "timeout SECONDS", "how long expect, wait and reconnect wait from now on", timeout},
    {"sleep", "sleep SECONDS", "shows what comes meanwhile", sleep},
    {"help", "help", "this list", plain<Help>},
    {"quit", "quit", "logs out and ends", plain<Quit>}};

bool has_control_character(const std::string& line) {
  return std::ranges::any_of(line, [](char c) {
    const auto byte = static_cast<unsigned char>(c);
    return (byte < ' ' && c != '\t') || byte == 0x7F;
  });
}

}  // namespace

std::variant<Command, Complaint> parse(const std::string& line) {
  if (line.size() > LONGEST_LINE) return Complaint{"a line of more than 16384 characters"};
  if (has_control_character(line)) return Complaint{"a control character in the line"};
  const Words words = words_of(line);
  if (words.empty() || words[0].starts_with('#')) return Command(Nothing{});
  const auto* verb = std::ranges::find(VERBS, words[0], &Verb::word);
  if (verb == std::end(VERBS)) {
    return Complaint{"there is no command '" + words[0] + "': 'help' lists them"};
  }
  Parsed parsed = verb->parse(std::span(words).subspan(1), rest_of(line));
  if (auto* complaint = std::get_if<Complaint>(&parsed)) {
    complaint->text += ": " + std::string(verb->usage);
  }
  return parsed;
}

std::vector<std::string> help() {
  constexpr size_t COLUMN = 40;
  std::vector<std::string> lines;
  for (const Verb& verb : VERBS) {
    std::string line(verb.usage);
    line.resize(std::max(COLUMN, line.size() + 2), ' ');
    lines.push_back(line + std::string(verb.meaning));
  }
  return lines;
}

}  // namespace tools::command
