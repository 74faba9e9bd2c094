#include <algorithm>
#include <charconv>
#include <chrono>
#include <cstdlib>
#include <deque>
#include <fstream>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "certify/checks/belief_checks.h"
#include "certify/checks/belief_file.h"
#include "certify/record/visible_text.h"
#include "quorl/client/errors.h"

namespace client = quorl::client;

namespace certify {
namespace {

constexpr const char* BOOK_FILE = "book.json";
// The exchange's own book file as it stood before and after the client was stopped, or at a mark.
constexpr const char* TRUTH_FILES[] = {"truth-book.json", "truth-book-after.json"};
constexpr size_t LEVELS = 5;

/// The five best levels of both sides in the form of the book file: "189.99x300 ... / 190x500 ...".
using BookText = std::string;

void add_level(BookText& text, std::string_view price, uint32_t size) {
  text.append(price).append("x").append(std::to_string(size)).append(" ");
}

BookText text_of(const client::BookFileSymbol& symbol) {
  BookText text;
  for (const auto& level : symbol.bids) add_level(text, level.price, level.size);
  text += "/ ";
  for (const auto& level : symbol.asks) add_level(text, level.price, level.size);
  return text;
}

BookText text_of(const client::BookLine& line) {
  BookText text;
  const auto add = [&text](const std::vector<client::TruthLevel>& levels) {
    for (size_t i = 0; i < std::min(levels.size(), LEVELS); ++i) {
      add_level(text, client::six_digit_text(levels[i].price), levels[i].size);
    }
  };
  add(line.bids);
  text += "/ ";
  add(line.asks);
  return text;
}

struct Taken {
  TimeNs at = 0;
  BeliefTaken belief;
  // One above what the feed had reached a grace before, and then; 0: not known.
  uint64_t begin_seq = 0;
  uint64_t end_seq = 0;
};

/// By symbol, what the exchange showed at some time that counts.
using Shown = std::map<std::string, std::vector<BookText>>;

class BeliefBook : public Check {
 public:
  BeliefBook(const char* name, const CheckContext& context)
      : Check(name),
        grace_(std::chrono::nanoseconds(context.plan.allow.grace).count()),
        market_truth_(context.market_truth) {}

  void on_event(const Event& event) override {
    if (const auto* packet = std::get_if<FeedHeard>(&event.what)) {
      const auto& header = packet->packet.header;
      if (header.message_count > 0) note_seq(event.at, header.first_seq + header.message_count);
    } else if (const auto* taken = std::get_if<BeliefTaken>(&event.what)) {
      forget_before(event.at - grace_);
      const uint64_t first = reached_.empty() ? 0 : reached_.front().second;
      const uint64_t last = reached_.empty() ? 0 : reached_.back().second;
      taken_.push_back({event.at, *taken, first, last});
    }
  }

  // Behind the exchange's orderly end, which has written the market truth file to its last line.
  void finish(TimeNs) override {
    for (const Taken& taken : taken_) {
      if (const auto content = read_belief(taken.belief, BOOK_FILE)) compare(*content, taken);
    }
  }

 private:
  void note_seq(TimeNs at, uint64_t seq) {
    const uint64_t highest = reached_.empty() ? seq : std::max(seq, reached_.back().second);
    reached_.emplace_back(at, highest);
    forget_before(at - grace_);
  }

  /// The last one before that time stays: it is what was reached then.
  void forget_before(TimeNs time) {
    while (reached_.size() > 1 && reached_[1].first <= time) reached_.pop_front();
  }

  void compare(const std::string& content, const Taken& taken) {
    seen();
    const std::string where = name_of(taken.belief, BOOK_FILE);
    client::BookFile believed;
    try {
      believed = client::parse_book_file(content);
    } catch (const client::WireError& error) {
      return blame({taken.at, where + ", line 1: " + visible(error.what(), 300), {}});
    }
    Shown shown;
    for (const char* name : TRUTH_FILES) add_book_file(taken, name, shown);
    add_market_truth(taken, shown);
    if (shown.empty()) return remark(where + " was not compared: no book of the exchange is there");
    for (const auto& symbol : believed.symbols) compare_symbol(symbol, shown, where, taken.at);
  }

  void compare_symbol(const client::BookFileSymbol& symbol, const Shown& shown,
                      const std::string& where, TimeNs at) {
    const BookText believed = text_of(symbol);
    const auto books = shown.find(symbol.symbol);
    if (books == shown.end()) {
      return blame({at, where + ": the exchange has no symbol " + visible(symbol.symbol, 20), {}});
    }
    if (std::find(books->second.begin(), books->second.end(), believed) != books->second.end()) {
      return;
    }
    blame({at,
           where + ": the levels of " + symbol.symbol + " are not those of the exchange",
           {"believed  " + believed, "exchange  " + books->second.back()}});
  }

  static void add_book_file(const Taken& taken, const char* name, Shown& shown) {
    const auto content = read_belief(taken.belief, name);
    if (!content) return;
    try {
      for (const auto& symbol : client::parse_book_file(*content).symbols) {
        shown[symbol.symbol].push_back(text_of(symbol));
      }
    } catch (const client::WireError&) {
      // Not written yet, or not by the exchange: the market truth file is there.
    }
  }

  /// The market moves on while files are copied: what was shown at any time of the grace before
  /// counts, which the sequence numbers of the feed tell.
  void add_market_truth(const Taken& taken, Shown& shown) const {
    if (market_truth_.empty() || taken.end_seq == 0) return;
    std::ifstream in(market_truth_);
    std::map<std::string, client::BookLine> before;  // the latest below the time that counts
    std::string line;
    while (std::getline(in, line)) {
      const auto book = book_line(line, taken.end_seq);
      if (!book) continue;
      if (book->seq >= taken.begin_seq) {
        shown[book->symbol].push_back(text_of(*book));
      } else {
        before[book->symbol] = *book;
      }
    }
    for (const auto& [symbol, book] : before) {
      auto& books = shown[symbol];
      books.insert(books.begin(), text_of(book));
    }
  }

  static std::optional<client::BookLine> book_line(const std::string& line, uint64_t end_seq) {
    constexpr std::string_view BEGIN = "{\"seq\":";
    if (!line.starts_with(BEGIN)) return std::nullopt;
    uint64_t seq = 0;
    std::from_chars(line.data() + BEGIN.size(), line.data() + line.size(), seq);
    if (seq >= end_seq) return std::nullopt;
    try {
      return std::get<client::BookLine>(client::parse_market_truth(line));
    } catch (const client::WireError&) {
      return std::nullopt;  // half a line at its end
    }
  }

  TimeNs grace_;
  std::string market_truth_;
  std::deque<std::pair<TimeNs, uint64_t>> reached_;  // one above the highest number, by time
  std::vector<Taken> taken_;
};

}  // namespace

std::unique_ptr<Check> make_belief_book_check(const char* name, const CheckContext& context) {
  return std::make_unique<BeliefBook>(name, context);
}

}  // namespace certify
