#include "certify/tap/link_order.h"

#include <charconv>
#include <sstream>
#include <stdexcept>
#include <utility>
#include <vector>

namespace certify {
namespace {

constexpr TimeNs LONGEST_DELAY = 60 * SECOND;
constexpr TimeNs LONGEST_STALL = 3600 * SECOND;
constexpr uint32_t LARGEST_TRICKLE = 65536;

/// Ends the reading: the sentence about the wrong word.
struct Flaw {
  std::string sentence;
};

std::string quoted(std::string_view word) { return "'" + std::string(word) + "'"; }

/// "80ms", "5s", "1.5s": digits, with a point among them, and a unit. No sign, no exponent.
std::optional<TimeNs> time_of(std::string_view word) {
  TimeNs unit = 0;
  if (word.ends_with("ms")) {
    unit = MILLISECOND;
    word.remove_suffix(2);
  } else if (word.ends_with("s")) {
    unit = SECOND;
    word.remove_suffix(1);
  }
  const bool plain = !word.empty() && word.size() <= 12 && word.front() != '.' &&
                     word.back() != '.' &&
                     word.find_first_not_of("0123456789.") == std::string_view::npos;
  if (unit == 0 || !plain) return std::nullopt;
  double number = 0;
  const auto read = std::from_chars(word.data(), word.data() + word.size(), number);
  if (read.ec != std::errc() || read.ptr != word.data() + word.size()) return std::nullopt;
  return static_cast<TimeNs>(number * static_cast<double>(unit) + 0.5);
}

/// Takes the words of one order from left to right.
class Reader {
 public:
  explicit Reader(std::string_view text) {
    std::istringstream stream{std::string(text)};
    for (std::string word; stream >> word;) words_.push_back(std::move(word));
  }

  LinkOrder read() {
    LinkOrder order;
    read_kind(order);
    read_services(order);
    read_way(order);
    if (next_ < words_.size()) {
      throw Flaw{quoted(words_[next_]) +
                 " does not belong here: services are fix, images and gapfill, ways are 'to "
                 "exchange' and 'to client', which comes last"};
    }
    return order;
  }

 private:
  bool take(std::string_view word) {
    if (next_ == words_.size() || words_[next_] != word) return false;
    ++next_;
    return true;
  }

  /// The word that must follow.
  const std::string& need(const std::string& what) {
    if (next_ < words_.size()) return words_[next_++];
    throw Flaw{(words_.empty() ? "a link order is missing" : "behind " + quoted(words_.back())) +
               (words_.empty() ? ": " : " is missing ") + what};
  }

  TimeNs need_time(TimeNs most) {
    const std::string& word = need("a time, such as 80ms or 1.5s");
    const std::optional<TimeNs> time = time_of(word);
    if (!time) throw Flaw{quoted(word) + " is no time, such as 80ms or 1.5s"};
    if (*time > most) throw Flaw{quoted(word) + " is more than " + span_text(most)};
    return *time;
  }

  uint32_t need_bytes() {
    const std::string& word = need("a number of bytes");
    uint32_t bytes = 0;
    const auto read = std::from_chars(word.data(), word.data() + word.size(), bytes);
    const bool whole = read.ec == std::errc() && read.ptr == word.data() + word.size();
    if (!whole || bytes < 1 || bytes > LARGEST_TRICKLE) {
      throw Flaw{quoted(word) + " is no number of bytes, 1 to " + std::to_string(LARGEST_TRICKLE)};
    }
    return bytes;
  }

  void read_kind(LinkOrder& order) {
    const std::string& word = need("delay, stall, trickle, cut or clear");
    if (word == "delay") {
      order.kind = LinkOrder::Kind::DELAY;
      order.time = need_time(LONGEST_DELAY);
      if (take("jitter")) read_jitter(order);
    } else if (word == "stall") {
      order.kind = LinkOrder::Kind::STALL;
      order.time = need_time(LONGEST_STALL);
    } else if (word == "trickle") {
      order.kind = LinkOrder::Kind::TRICKLE;
      order.bytes = need_bytes();
    } else if (word == "cut") {
      order.kind = LinkOrder::Kind::CUT;
    } else if (word == "clear") {
      order.kind = LinkOrder::Kind::CLEAR;
    } else {
      throw Flaw{quoted(word) + " is nothing a link can do: delay, stall, trickle, cut or clear"};
    }
  }

  void read_jitter(LinkOrder& order) {
    order.jitter = need_time(LONGEST_DELAY);
    if (order.jitter > order.time) {
      throw Flaw{quoted(words_[next_ - 1]) + " is more jitter than there is delay, " +
                 span_text(order.time)};
    }
  }

  void read_services(LinkOrder& order) {
    constexpr std::string_view NAMES[] = {"fix", "images", "gapfill"};
    std::array<bool, 3> named{};
    for (bool found = true; std::exchange(found, false);) {
      for (size_t i = 0; i < named.size(); ++i) {
        if (!take(NAMES[i])) continue;
        if (named[i]) throw Flaw{quoted(NAMES[i]) + " is named twice"};
        named[i] = found = true;
      }
    }
    if (named != std::array<bool, 3>{}) order.services = named;
  }

  void read_way(LinkOrder& order) {
    if (!take("to")) return;
    const std::string& word = need("exchange or client");
    if (word != "exchange" && word != "client") {
      throw Flaw{quoted(word) + " is no end of the link: to exchange or to client"};
    }
    order.to_exchange = word == "exchange";
    order.to_client = word == "client";
  }

  std::vector<std::string> words_;
  size_t next_ = 0;
};

}  // namespace

std::optional<LinkOrder> read_link_order(std::string_view text) {
  try {
    return Reader(text).read();
  } catch (const Flaw&) {
    return std::nullopt;
  }
}

std::optional<std::string> flaw_of_link_order(std::string_view text) {
  try {
    (void)Reader(text).read();
    return std::nullopt;
  } catch (const Flaw& flaw) {
    return flaw.sentence;
  }
}

std::string describe(const LinkOrder& order) {
  std::string text;
  switch (order.kind) {
    case LinkOrder::Kind::DELAY:
      text = "delayed by " + span_text(order.time);
      if (order.jitter > 0) text += ", jitter " + span_text(order.jitter);
      break;
    case LinkOrder::Kind::STALL:
      text = "stalled for " + span_text(order.time);
      break;
    case LinkOrder::Kind::TRICKLE:
      text = "trickles, " + std::to_string(order.bytes) + (order.bytes == 1 ? " byte" : " bytes") +
             " at a time";
      break;
    case LinkOrder::Kind::CUT:
      text = "cut";
      break;
    case LinkOrder::Kind::CLEAR:
      text = "plain again";
      break;
  }
  if (order.to_exchange && order.to_client) return text;
  return text + (order.to_exchange ? ", to the exchange" : ", to the client");
}

std::string span_text(TimeNs span) {
  const auto [unit, name] = span >= SECOND        ? std::pair{SECOND, " s"}
                            : span >= MILLISECOND ? std::pair{MILLISECOND, " ms"}
                                                  : std::pair{TimeNs{1'000}, " us"};
  std::string decimals = std::to_string(1000 + span % unit * 1000 / unit).substr(1);
  while (!decimals.empty() && decimals.back() == '0') decimals.pop_back();
  return std::to_string(span / unit) + (decimals.empty() ? "" : ".") + decimals + name;
}

}  // namespace certify
