// What the exchange writes down: the order event file and the market truth file byte for byte, when
// each reaches the disk, the book and BBO files, and that all of them, the feed and the clients'
// own reports tell one and the same story.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <random>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "quorl/client/book.h"
#include "quorl/client/errors.h"
#include "quorl/client/fix_message.h"
#include "quorl/client/fix_session.h"
#include "quorl/client/json_lines.h"
#include "quorl/client/simulator.h"
#include "quorl/client/temp_directory.h"
#include "tests/e2e/support/exchange.h"
#include "tests/e2e/support/one_turn.h"

namespace client = quorl::client;

namespace e2e {
namespace {

using client::BookBuilder;
using client::Continuity;
using client::FixMessage;
using client::FixSession;
using client::Price4;
using client::read_file;
using client::SimulatorOptions;
using client::six_digit_text;
using std::chrono::milliseconds;
using testing::AllOf;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

SimulatorOptions with_order_events(SimulatorOptions options) {
  options.order_truth = true;
  return options;
}

SimulatorOptions with_market_truth(SimulatorOptions options) {
  options.market_truth = true;
  return options;
}

SimulatorOptions with_book_files(SimulatorOptions options) {
  options.book_file = true;
  options.bbo_file = true;
  return options;
}

bool exists(const std::string& path) {
  struct stat status {};
  return ::stat(path.c_str(), &status) == 0;
}

/// Whole lines; a rest without a line end would be a line of its own and match nothing.
std::vector<std::string> lines_of(const std::string& path) {
  std::vector<std::string> lines;
  std::istringstream text(read_file(path));
  for (std::string line; std::getline(text, line);) lines.push_back(line);
  return lines;
}

/// The line behind its time, which no test can know.
std::string timeless(const std::string& line) {
  const std::string head = "{\"t\":";
  const size_t comma = line.find(',');
  if (!line.starts_with(head) || comma == std::string::npos) return "no event: " + line;
  for (size_t i = head.size(); i < comma; ++i) {
    if (line[i] < '0' || line[i] > '9') return "no time: " + line;
  }
  return line.substr(comma + 1);
}

std::vector<std::string> timeless_lines(const std::string& path, size_t from = 0) {
  std::vector<std::string> lines;
  for (const std::string& line : lines_of(path)) {
    if (from > 0) {
      --from;
    } else {
      lines.push_back(timeless(line));
    }
  }
  return lines;
}

std::string text_or(const FixMessage& message, int tag, const std::string& otherwise) {
  return message.find(tag).value_or(otherwise);
}

/// The event line behind its time that belongs to an ExecutionReport.
std::string line_of_report(const FixMessage& report) {
  static const std::map<std::string, std::string> words = {
      {"0", "new"}, {"5", "replace"}, {"8", "reject"}, {"4", "cancel"}};
  const std::string type = report.get(150);
  const auto word = words.find(type);
  const bool replace = type == "5";
  const std::string cl = replace ? report.get(11) : text_or(report, 41, report.get(11));
  const std::string oid = report.get(37) == "NONE" ? "0" : report.get(37);
  const std::string px = report.has(44) ? six_digit_text(to_price4(report.get(44))) : "0";
  std::string text = text_or(report, 58, type == "4" ? "cancel" : "");
  if (text == "AdminCancel") text = "unsolicited";
  return "\"ev\":\"" + (word == words.end() ? "fill" : word->second) + "\",\"cl\":\"" + cl +
         "\",\"oid\":" + oid + ",\"symbol\":\"" + report.get(55) + "\",\"side\":\"" +
         (report.get(54) == "1" ? "B" : "S") + "\",\"qty\":" + report.get(38) + ",\"px\":" + px +
         ",\"cum\":" + report.get(14) + ",\"leaves\":" + report.get(151) +
         ",\"last_qty\":" + report.get(32) + ",\"text\":\"" + text + "\"" +
         (replace ? ",\"ref\":\"" + report.get(41) + "\"}" : "}");
}

/// The same for an OrderCancelReject.
std::string line_of_cancel_reject(const FixMessage& reject) {
  const bool replace = reject.get(434) == "2";
  const std::string oid = reject.get(37) == "NONE" ? "0" : reject.get(37);
  return std::string("\"ev\":\"") + (replace ? "replace_reject" : "cancel_reject") +
         "\",\"cl\":\"" + reject.get(41) + "\",\"oid\":" + oid +
         ",\"symbol\":\"\",\"side\":\" \",\"qty\":0,\"px\":0,\"cum\":0,\"leaves\":0," +
         "\"last_qty\":0,\"text\":\"" + reject.get(58) + "\"" +
         (replace ? ",\"ref\":\"" + reject.get(11) + "\"}" : "}");
}

std::string line_of(const FixMessage& message) {
  return message.type() == "8" ? line_of_report(message) : line_of_cancel_reject(message);
}

/// The first `most` levels as "[p,s],[p,s]".
template <typename Levels>
std::string level_list(const Levels& levels, size_t most,
                       const std::function<std::string(Price4)>& text_of) {
  std::string text;
  for (const auto& [price, size] : levels) {
    if (most-- == 0) break;
    text += (text.empty() ? "[" : ",[") + text_of(price) + "," + std::to_string(size) + "]";
  }
  return text;
}

std::string four_decimals(Price4 price) {
  const std::string sign = price < 0 ? "-" : "";
  const uint64_t size = static_cast<uint64_t>(price < 0 ? -price : price);
  const std::string decimals = std::to_string(10000 + size % 10000).substr(1);
  return sign + std::to_string(size / 10000) + "." + decimals;
}

struct Mark {
  std::string label;
  uint64_t seq = 0;
};

/// Sets a mark, which brings the market truth to the disk.
Mark mark(Exchange& exchange, const std::string& label) {
  const size_t from = exchange.simulator().line_count();
  exchange.control().ok("mark " + label);
  const std::string line = exchange.simulator().wait_for_line("bench: mark " + label, from);
  constexpr std::string_view SEQ = " at seq ";
  return {label, std::stoull(line.substr(line.find(SEQ) + SEQ.size()))};
}

/// What the market truth file must be, told from the feed: one line for each level update, each
/// mark behind the last message at its time. `symbols` in the order of the exchange.
std::string market_truth(const client::FeedSubscriber& feed,
                         const std::vector<std::string>& symbols, std::deque<Mark> marks) {
  std::map<std::string, std::pair<client::BidLevels, client::AskLevels>> shown;
  std::string text;
  const auto set = [](auto& levels, const client::LevelUpdate& update) {
    if (update.size == 0) {
      levels.erase(update.price);
    } else {
      levels[update.price] = update.size;
    }
  };
  const auto write_marks = [&text, &marks](uint64_t next_seq) {
    for (; !marks.empty() && marks.front().seq < next_seq; marks.pop_front()) {
      text += "{\"mark\":\"" + marks.front().label +
              "\",\"seq\":" + std::to_string(marks.front().seq) + "}\n";
    }
  };
  for (const client::FeedMessage& message : feed.messages()) {
    write_marks(message.seq);
    const auto* update = std::get_if<client::LevelUpdate>(&message.message);
    if (update == nullptr) continue;
    auto& [bids, asks] = shown[update->symbol];
    if (update->buy) {
      set(bids, *update);
    } else {
      set(asks, *update);
    }
    const auto symbol = std::find_if(
        symbols.begin(), symbols.end(),
        [update](const std::string& name) { return name.substr(0, 8) == update->symbol; });
    text += "{\"seq\":" + std::to_string(message.seq) +
            ",\"secid\":" + std::to_string(symbol - symbols.begin() + 1) + ",\"symbol\":\"" +
            *symbol + "\",\"bid\":[" + level_list(bids, 10, four_decimals) + "],\"ask\":[" +
            level_list(asks, 10, four_decimals) + "]}\n";
  }
  write_marks(UINT64_MAX);
  return text;
}

/// What the book file must be behind its time, told from the feed.
std::string book_file(const BookBuilder& book, const std::vector<std::string>& symbols) {
  std::string text = "\"symbols\":{";
  for (const std::string& symbol : symbols) {
    const client::SymbolBook& shown = book.book(symbol.substr(0, 8));
    if (symbol != symbols.front()) text += ",";
    text += "\"" + symbol + "\":{\"bid\":[" + level_list(shown.bids, 5, six_digit_text) +
            "],\"ask\":[" + level_list(shown.asks, 5, six_digit_text) +
            "],\"last\":" + six_digit_text(shown.last_price) +
            ",\"volume\":" + std::to_string(shown.volume) + "}";
  }
  return text + "}}\n";
}

std::string bbo_file(const BookBuilder& book, const std::vector<std::string>& symbols) {
  std::string text;
  for (const std::string& symbol : symbols) {
    const client::SymbolBook& shown = book.book(symbol.substr(0, 8));
    text += symbol + " " + (shown.bids.empty() ? "0" : six_digit_text(best_bid(shown))) + " " +
            (shown.asks.empty() ? "0" : six_digit_text(best_ask(shown))) + "\n";
  }
  return text;
}

std::string behind_time(const std::string& book_file) {
  const std::string head = "{\"ts_ns\":";
  const size_t comma = book_file.find(',');
  if (!book_file.starts_with(head) || comma == std::string::npos) return "no time: " + book_file;
  return book_file.substr(comma + 1);
}

/// Reads again until the text is as expected, and returns the last reading.
std::string awaited(const std::function<std::string()>& read, const std::string& expected) {
  const client::Deadline deadline = client::Deadline::after(client::PATIENCE);
  std::string text = read();
  while (text != expected && !deadline.expired()) {
    std::this_thread::sleep_for(milliseconds(10));
    text = read();
  }
  return text;
}

/// The file and which writing of it this is: a text that no other writing shares, even if it has
/// the same content.
std::string writing_of(const std::string& path) {
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0) return "no file";
  return "file " + std::to_string(status.st_ino) + " written at " +
         std::to_string(status.st_mtim.tv_sec) + "s " + std::to_string(status.st_mtim.tv_nsec) +
         "ns:\n" + read_file(path);
}

/// What is done to the files of a directory from now on, as the kernel tells it.
class DirectoryWatch {
 public:
  explicit DirectoryWatch(const std::string& directory) : DirectoryWatch() {
    constexpr uint32_t CHANGES =
        IN_CREATE | IN_MODIFY | IN_CLOSE_WRITE | IN_MOVED_FROM | IN_MOVED_TO | IN_DELETE;
    if (::inotify_add_watch(fd_, directory.c_str(), CHANGES) < 0) {
      throw client::SystemError("inotify_add_watch " + directory);
    }
  }
  DirectoryWatch(const DirectoryWatch&) = delete;
  DirectoryWatch& operator=(const DirectoryWatch&) = delete;
  ~DirectoryWatch() { ::close(fd_); }

  /// By the name of the file: what has been done to it since the last call, each an event mask of
  /// inotify, in order.
  std::map<std::string, std::vector<uint32_t>> taken() {
    std::map<std::string, std::vector<uint32_t>> done;
    std::array<char, 65536> events{};
    for (ssize_t size = 0; (size = ::read(fd_, events.data(), events.size())) > 0;) {
      inotify_event event{};
      for (const char* at = events.data(); at < events.data() + size;
           at += sizeof(event) + event.len) {
        std::memcpy(&event, at, sizeof(event));
        done[event.len > 0 ? at + sizeof(event) : ""].push_back(event.mask);
      }
    }
    return done;
  }

 private:
  DirectoryWatch() : fd_(::inotify_init1(IN_CLOEXEC | IN_NONBLOCK)) {}

  int fd_;
};

/// Both files, once a period has shown what the feed shows.
void expect_book_files(Exchange& exchange, const std::vector<std::string>& symbols) {
  const BookBuilder book = exchange.book();
  const client::Simulator& simulator = exchange.simulator();
  const std::string expected_book = book_file(book, symbols);
  EXPECT_EQ(awaited([&] { return behind_time(read_file(simulator.book_path())); }, expected_book),
            expected_book);
  const std::string expected_bbo = bbo_file(book, symbols);
  EXPECT_EQ(awaited([&] { return read_file(simulator.bbo_path()); }, expected_bbo), expected_bbo);
}

// Order events.

TEST(OrderEvents, each_is_one_exact_line) {
  Exchange exchange(with_order_events(still()));
  exchange.empty_book("AAPL");
  const std::string path = exchange.simulator().order_truth_path();
  const size_t from = lines_of(path).size();
  FixSession alpha = exchange.logs_on("ALPHA");
  FixSession beta = exchange.logs_on("BETA");

  alpha.new_order(
      {.cl_ord_id = "a1", .side = "5", .quantity = "300", .price = "190.10", .locate = "N"});
  const std::string a1 = alpha.expect_report('0').get(37);
  beta.new_order({.cl_ord_id = "b1", .quantity = "500", .price = "190.10"});
  const std::string b1 = beta.expect_report('0').get(37);
  beta.expect_report('1');
  alpha.expect_report('2');
  beta.replace({.cl_ord_id = "b2", .orig_cl_ord_id = "b1", .quantity = "600", .price = "190"});
  beta.expect_report('5');
  beta.cancel({.cl_ord_id = "b3", .orig_cl_ord_id = "b2"});
  beta.expect_report('4');
  beta.new_order({.cl_ord_id = "b4", .quantity = "7", .type = "1"});
  const std::string b4 = beta.expect_report('0').get(37);
  beta.expect_report('4');
  beta.new_order({.cl_ord_id = "b5", .quantity = "7", .price = "0.5"});
  const std::string b5 = beta.expect_report('0').get(37);
  beta.new_order({.cl_ord_id = "b6", .symbol = "NONE", .quantity = "8", .price = "1234.56"});
  beta.expect_report('8');
  beta.cancel({.cl_ord_id = "b7", .orig_cl_ord_id = "never"});
  beta.hears("35=9|37=NONE|58=Unknown order");
  beta.replace({.cl_ord_id = "b8", .orig_cl_ord_id = "never", .quantity = "1", .price = "1"});
  const std::string why = beta.hears("35=9|37=NONE|434=2").get(58);

  const auto event = [](const std::string& ev, const std::string& cl, const std::string& oid,
                        const std::string& rest) {
    return "\"ev\":\"" + ev + "\",\"cl\":\"" + cl + "\",\"oid\":" + oid + "," + rest + "}";
  };
  const std::string nothing =
      "\"symbol\":\"\",\"side\":\" \",\"qty\":0,\"px\":0,\"cum\":0,\"leaves\":0,\"last_qty\":0,";
  EXPECT_THAT(
      timeless_lines(path, from),
      ElementsAre(event("new", "a1", a1,
                        R"("symbol":"AAPL","side":"S","qty":300,"px":190.1,"cum":0,"leaves":300,)"
                        R"("last_qty":0,"text":"")"),
                  event("new", "b1", b1,
                        R"("symbol":"AAPL","side":"B","qty":500,"px":190.1,"cum":0,"leaves":500,)"
                        R"("last_qty":0,"text":"")"),
                  event("fill", "b1", b1,
                        R"("symbol":"AAPL","side":"B","qty":500,"px":190.1,"cum":300,"leaves":200,)"
                        R"("last_qty":300,"text":"")"),
                  event("fill", "a1", a1,
                        R"("symbol":"AAPL","side":"S","qty":300,"px":190.1,"cum":300,"leaves":0,)"
                        R"("last_qty":300,"text":"")"),
                  event("replace", "b2", b1,
                        R"("symbol":"AAPL","side":"B","qty":600,"px":190,"cum":300,"leaves":300,)"
                        R"("last_qty":0,"text":"","ref":"b1")"),
                  event("cancel", "b2", b1,
                        R"("symbol":"AAPL","side":"B","qty":600,"px":190,"cum":300,"leaves":0,)"
                        R"("last_qty":0,"text":"cancel")"),
                  event("new", "b4", b4,
                        R"("symbol":"AAPL","side":"B","qty":7,"px":0,"cum":0,"leaves":7,)"
                        R"("last_qty":0,"text":"")"),
                  event("cancel", "b4", b4,
                        R"("symbol":"AAPL","side":"B","qty":7,"px":0,"cum":0,"leaves":0,)"
                        R"("last_qty":0,"text":"UnmatchedIOC")"),
                  event("new", "b5", b5,
                        R"("symbol":"AAPL","side":"B","qty":7,"px":0.5,"cum":0,"leaves":7,)"
                        R"("last_qty":0,"text":"")"),
                  event("reject", "b6", "0",
                        R"("symbol":"NONE","side":"B","qty":8,"px":1234.56,"cum":0,"leaves":0,)"
                        R"("last_qty":0,"text":"UnknownSymbol")"),
                  event("cancel_reject", "never", "0", nothing + R"("text":"Unknown order")"),
                  event("replace_reject", "never", "0",
                        nothing + "\"text\":\"" + why + R"(","ref":"b8")")));
}

TEST(OrderEvents, a_price_has_six_significant_digits) {
  Exchange exchange(with_order_events(still({"--symbols", "BIG:99999.99"})));
  FixSession alpha = exchange.logs_on("ALPHA");
  const std::pair<const char*, const char*> prices[] = {{"190.00", "190"},
                                                        {"189.99", "189.99"},
                                                        {"1234.57", "1234.57"},
                                                        {"12345.67", "12345.7"},
                                                        {"9.01", "9.01"},
                                                        {"0.0001", "0.0001"},
                                                        {"0.1234", "0.1234"},
                                                        {"99999.97", "100000"},
                                                        {"1234567.89", "1.23457e+06"},
                                                        {"123456789.01", "1.23457e+08"}};
  std::vector<std::string> expected;
  for (const auto& [price, px] : prices) {
    alpha.new_order({.cl_ord_id = px, .symbol = "NONE", .price = price});
    alpha.expect_report('8');
    expected.emplace_back(px);
  }
  std::vector<std::string> written;
  for (const auto& event :
       client::parse_order_events(read_file(exchange.simulator().order_truth_path()))) {
    written.push_back(event.px);
  }
  EXPECT_EQ(written, expected);
}

TEST(OrderEvents, nothing_is_escaped) {
  Exchange exchange(with_order_events(still()));
  FixSession alpha = exchange.logs_on("ALPHA");
  alpha.new_order({.cl_ord_id = "q\"1", .symbol = "A\\\"B", .type = "1"});
  alpha.expect_report('8');
  alpha.cancel({.cl_ord_id = "c", .orig_cl_ord_id = "\"},"});
  alpha.expect("9");
  const std::vector<std::string> lines = timeless_lines(exchange.simulator().order_truth_path());
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_TRUE(lines[0].starts_with(
      "\"ev\":\"reject\",\"cl\":\"q\"1\",\"oid\":0,\"symbol\":\"A\\\"B\",\"side\":\"B\","))
      << lines[0];
  EXPECT_TRUE(lines[1].starts_with("\"ev\":\"cancel_reject\",\"cl\":\"\"},\",\"oid\":0,"))
      << lines[1];
}

TEST(OrderEvents, an_exchange_initiated_cancel_is_told_as_unsolicited) {
  Exchange exchange(with_order_events(still()));
  FixSession alpha = exchange.logs_on("ALPHA");
  exchange.control().ok("unsolicited_cancel 1");
  alpha.new_order({.cl_ord_id = "a1", .price = "1.5"});
  const std::string oid = alpha.expect_report('0').get(37);
  const FixMessage cancel = alpha.hears("35=8|150=4|11=a1|41=a1|58=AdminCancel");
  const std::vector<std::string> lines = timeless_lines(exchange.simulator().order_truth_path());
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[1], "\"ev\":\"cancel\",\"cl\":\"a1\",\"oid\":" + oid +
                          ",\"symbol\":\"AAPL\",\"side\":\"B\",\"qty\":100,\"px\":1.5,\"cum\":0,"
                          "\"leaves\":0,\"last_qty\":0,\"text\":\"unsolicited\"}");
  EXPECT_EQ(lines[1], line_of(cancel));
}

TEST(OrderEvents, a_line_is_on_disk_before_its_client_hears_of_it) {
  Exchange exchange(with_order_events(still()));
  const std::string path = exchange.simulator().order_truth_path();
  FixSession alpha = exchange.logs_on("ALPHA");
  for (unsigned i = 1; i <= 30; ++i) {
    alpha.new_order({.cl_ord_id = "a" + std::to_string(i), .price = "1"});
    const FixMessage report = alpha.expect_report('0');
    const std::string text = read_file(path);
    ASSERT_TRUE(text.ends_with("}\n"));
    const std::vector<std::string> lines = timeless_lines(path);
    ASSERT_EQ(lines.size(), i);
    ASSERT_EQ(lines.back(), line_of(report));
  }
}

TEST(OrderEvents, what_a_lapse_or_an_absence_keeps_from_a_client_is_written_all_the_same) {
  Exchange exchange(with_order_events(still()));
  exchange.empty_book("AAPL");
  const std::string path = exchange.simulator().order_truth_path();
  const size_t from = lines_of(path).size();
  FixSession alpha = exchange.logs_on("ALPHA");
  alpha.new_order({.cl_ord_id = "a1", .side = "2", .price = "190"});
  alpha.expect_report('0');
  alpha.disconnect();
  exchange.simulator().wait_for_line("bench: client ALPHA disconnected");
  FixSession beta = exchange.logs_on("BETA");
  exchange.control().ok("lapse 600000");
  beta.new_order({.cl_ord_id = "b1", .price = "190"});
  (void)exchange.turn();
  const auto events = client::parse_order_events(read_file(path));
  ASSERT_EQ(events.size(), from + 4);
  EXPECT_EQ(events[from + 1].ev + events[from + 1].cl, "newb1");
  EXPECT_EQ(events[from + 2].ev + events[from + 2].cl, "fillb1");
  EXPECT_EQ(events[from + 3].ev + events[from + 3].cl, "filla1");
}

// Both files over the run's life.

TEST(TruthFiles, a_second_run_adds_to_both_files) {
  const client::TempDirectory directory;
  const std::string orders = directory.path() + "/orders";
  const std::string market = directory.path() + "/market";
  std::string market_before;
  for (size_t run = 1; run <= 2; ++run) {
    SimulatorOptions options = still({"--truth-out", market});
    options.environment["BENCH_ORDER_TRUTH"] = orders;
    Exchange exchange(options);
    FixSession alpha = exchange.logs_on("ALPHA");
    alpha.new_order({.cl_ord_id = "a1", .price = "1"});
    alpha.expect_report('0');
    (void)exchange.book();
    EXPECT_EQ(exchange.simulator().terminate().code, 0);
    EXPECT_EQ(lines_of(orders).size(), run);
    EXPECT_EQ(read_file(market),
              market_before + market_truth(exchange.feed(), {"AAPL", "MSFT", "SPY"}, {}));
    market_before = read_file(market);
  }
}

TEST(TruthFiles, neither_depends_on_the_other) {
  SimulatorOptions options = with_market_truth(still());
  options.environment["BENCH_ORDER_TRUTH"] = "";
  Exchange only_market(options);
  (void)mark(only_market, "m");
  EXPECT_FALSE(lines_of(only_market.simulator().market_truth_path()).empty());
  EXPECT_FALSE(exists(only_market.simulator().order_truth_path()));

  Exchange only_orders(with_order_events(still()));
  (void)mark(only_orders, "m");
  EXPECT_TRUE(exists(only_orders.simulator().order_truth_path()));
  EXPECT_FALSE(exists(only_orders.simulator().market_truth_path()));
}

TEST(TruthFiles, a_path_that_cannot_be_written_disturbs_nobody) {
  SimulatorOptions options = still({"--truth-out", "/nonexistent/t", "--book-out", "/nonexistent/b",
                                    "--bbo-out", "/nonexistent/o"});
  options.environment["BENCH_ORDER_TRUTH"] = "/nonexistent/e";
  Exchange exchange(options);
  FixSession alpha = exchange.logs_on("ALPHA");
  alpha.new_order({.cl_ord_id = "a1", .price = "1"});
  alpha.expect_report('0');
  EXPECT_EQ(mark(exchange, "m").seq, exchange.control().stats().next_seq - 1);
  EXPECT_EQ(exchange.simulator().count_lines("nonexistent"), 0u);
  EXPECT_EQ(exchange.simulator().terminate().code, 0);
}

// Market truth.

TEST(MarketTruth, is_one_exact_line_for_each_level_update_of_a_fast_market) {
  const std::vector<std::string> symbols = {"LONGSYMBOL1", "MSFT", "CHEAP"};
  Exchange exchange(
      with_market_truth(living({"--symbols", "LONGSYMBOL1:1190.005,MSFT:410,CHEAP:0.9",
                                "--interval-ms", "0", "--touch-hit", "0.5"})));
  FixSession alpha = exchange.logs_on("ALPHA");
  for (int i = 1; i <= 12; ++i) {
    alpha.new_order({.cl_ord_id = "a" + std::to_string(i),
                     .symbol = "MSFT",
                     .price = "3" + std::to_string(10 + i)});
    alpha.expect_report('0');
  }
  std::deque<Mark> marks;
  for (const char* label : {"one", "two", "three"}) {
    exchange.feed().await_seq(exchange.feed().last_seq() + 400);
    marks.push_back(mark(exchange, label));
  }
  exchange.control().ok("pause");
  const BookBuilder book = exchange.book();
  EXPECT_GT(book.book("MSFT").bids.size(), 10u) << "more levels than a line shows";
  marks.push_back(mark(exchange, "end"));
  EXPECT_EQ(read_file(exchange.simulator().market_truth_path()),
            market_truth(exchange.feed(), symbols, marks));
}

TEST(MarketTruth, an_empty_side_is_an_empty_list) {
  Exchange exchange(with_market_truth(still({"--symbols", "AAPL:190"})));
  exchange.empty_book("AAPL");
  const Mark end = mark(exchange, "end");
  const std::vector<std::string> lines = lines_of(exchange.simulator().market_truth_path());
  ASSERT_GE(lines.size(), 2u);
  EXPECT_EQ(lines[lines.size() - 2], "{\"seq\":" + std::to_string(end.seq) +
                                         ",\"secid\":1,\"symbol\":\"AAPL\",\"bid\":[],\"ask\":[]}");
}

TEST(MarketTruth, a_mark_is_its_second_word_as_it_stands) {
  Exchange exchange(with_market_truth(still({"--symbols", ""})));
  exchange.control().ok("mark");
  exchange.control().ok("mark round \"two\"");
  exchange.control().ok("mark \"q\"");
  FixSession alpha = exchange.logs_on("ALPHA");
  alpha.new_order({.cl_ord_id = "a1"});  // no such symbol: not counted
  alpha.expect_report('8');
  exchange.control().ok("mark end");
  exchange.simulator().wait_for_line("bench: mark  at seq 3 orders 0");
  exchange.simulator().wait_for_line("bench: mark round at seq 3 orders 0");
  exchange.simulator().wait_for_line("bench: mark end at seq 3 orders 0");
  EXPECT_EQ(read_file(exchange.simulator().market_truth_path()),
            "{\"mark\":\"\",\"seq\":3}\n"
            "{\"mark\":\"round\",\"seq\":3}\n"
            "{\"mark\":\"\"q\"\",\"seq\":3}\n"
            "{\"mark\":\"end\",\"seq\":3}\n");
}

/// One order, one book line.
void rest_one(FixSession& session, const std::string& cl_ord_id) {
  session.new_order({.cl_ord_id = cl_ord_id, .price = "1"});
  session.expect_report('0');
}

TEST(MarketTruth, a_mark_brings_the_lines_to_the_disk_and_a_line_does_not) {
  Exchange exchange(with_market_truth(still()));
  const std::string path = exchange.simulator().market_truth_path();
  FixSession alpha = exchange.logs_on("ALPHA");
  (void)mark(exchange, "first");
  const std::string at_first = read_file(path);
  EXPECT_TRUE(at_first.find("{\"mark\":\"first\",\"seq\":") != std::string::npos);
  rest_one(alpha, "a1");
  (void)exchange.turn();
  EXPECT_EQ(read_file(path), at_first);
  (void)mark(exchange, "second");
  EXPECT_EQ(lines_of(path).size(), client::parse_market_truths(at_first).size() + 2);
}

TEST(MarketTruth, stop_loses_the_lines_behind_the_last_mark_and_no_order_event) {
  Exchange exchange(with_order_events(with_market_truth(still())));
  FixSession alpha = exchange.logs_on("ALPHA");
  rest_one(alpha, "a1");
  (void)mark(exchange, "last");
  const std::string at_mark = read_file(exchange.simulator().market_truth_path());
  rest_one(alpha, "a2");
  EXPECT_EQ(exchange.control().command("stop"), "ok stopping");
  EXPECT_EQ(exchange.simulator().wait_exit(), (client::ExitStatus{.exited = true, .code = 0}));
  EXPECT_EQ(read_file(exchange.simulator().market_truth_path()), at_mark);
  EXPECT_EQ(lines_of(exchange.simulator().order_truth_path()).size(), 2u);
}

TEST(MarketTruth, an_end_by_signal_brings_everything_to_the_disk) {
  Exchange exchange(with_market_truth(living({"--interval-ms", "0"})));
  exchange.feed().await_seq(1000);
  exchange.control().ok("pause");
  (void)exchange.book();
  EXPECT_EQ(exchange.simulator().terminate().code, 0);
  EXPECT_EQ(read_file(exchange.simulator().market_truth_path()),
            market_truth(exchange.feed(), {"AAPL", "MSFT", "SPY"}, {}));
}

// The book and BBO files.

TEST(BookFiles, show_five_levels_last_price_and_volume_in_six_significant_digits) {
  const std::vector<std::string> symbols = {"LONGSYMBOL1", "BIG", "CHEAP", "GONE"};
  Exchange exchange(
      with_book_files(living({"--symbols", "LONGSYMBOL1:190,BIG:12345.67,CHEAP:0.95,GONE:20",
                              "--interval-ms", "0", "--touch-hit", "0.5"})));
  exchange.feed().await_seq(3000);
  exchange.control().ok("pause");
  exchange.empty_book("GONE");
  expect_book_files(exchange, symbols);
  EXPECT_GT(exchange.book().book("BIG").volume, 0u);
  EXPECT_TRUE(read_file(exchange.simulator().bbo_path()).ends_with("GONE 0 0\n"));

  exchange.control().ok("resume");
  exchange.feed().await_seq(exchange.feed().last_seq() + 500);
  exchange.control().ok("pause");
  expect_book_files(exchange, symbols);
}

TEST(BookFiles, are_there_with_the_opening_book_and_stay_behind_the_end) {
  Exchange exchange(with_book_files(still()));
  const std::vector<std::string> symbols = {"AAPL", "MSFT", "SPY"};
  expect_book_files(exchange, symbols);
  const BookBuilder book = exchange.book();
  const std::string book_path = exchange.simulator().book_path();
  const std::string bbo_path = exchange.simulator().bbo_path();
  // Looked at between two turns, of which the next finds the signal: what is written behind this is
  // written at the end.
  std::string last_book;
  std::string last_bbo;
  in_one_turn(exchange, {[&] {
                last_book = writing_of(book_path);
                last_bbo = writing_of(bbo_path);
                exchange.simulator().signal(SIGTERM);
                exchange.control().send("never read");
              }});
  EXPECT_EQ(exchange.simulator().wait_exit(), (client::ExitStatus{.exited = true, .code = 0}));
  EXPECT_EQ(writing_of(book_path), last_book);
  EXPECT_EQ(writing_of(bbo_path), last_bbo);
  EXPECT_EQ(behind_time(read_file(book_path)), book_file(book, symbols));
  EXPECT_EQ(read_file(bbo_path), bbo_file(book, symbols));
  EXPECT_FALSE(exists(book_path + ".tmp"));
  EXPECT_FALSE(exists(bbo_path + ".tmp"));
}

TEST(BookFiles, each_is_written_without_the_other) {
  for (const bool book : {true, false}) {
    SimulatorOptions options = still();
    options.book_file = book;
    options.bbo_file = !book;
    Exchange exchange(options);
    const std::string path =
        book ? exchange.simulator().book_path() : exchange.simulator().bbo_path();
    const std::string first =
        awaited([&path] { return exists(path) ? "written" : "not written"; }, "written");
    EXPECT_EQ(first, "written");
    (void)exchange.turn();  // the other would follow in the same turn
    EXPECT_NE(exists(exchange.simulator().book_path()), exists(exchange.simulator().bbo_path()));
  }
}

TEST(BookFiles, a_reader_in_a_tight_loop_sees_whole_files_at_most_four_times_a_second) {
  // So many symbols that the book file is written piece by piece.
  constexpr size_t SYMBOLS = 100;
  std::string symbols = "S0:50";
  for (size_t i = 1; i < SYMBOLS; ++i) symbols += ",S" + std::to_string(i) + ":50";
  Exchange exchange(with_book_files(living({"--symbols", symbols, "--interval-ms", "50"})));
  const std::string book_path = exchange.simulator().book_path();
  const std::string bbo_path = exchange.simulator().bbo_path();
  ASSERT_EQ(awaited([&] { return exists(bbo_path) ? "there" : "not yet"; }, "there"), "there");

  // A loaded machine may take long for them, and a reader may miss some: neither is wrong. What was
  // read is looked at afterwards, so that the loop is tight.
  constexpr size_t ENOUGH = 6;
  DirectoryWatch watch(exchange.simulator().directory());
  std::vector<std::string> books;
  std::vector<std::string> bbos;
  const auto read_again = [](const std::string& path, std::vector<std::string>& texts) {
    std::string text = read_file(path);
    if (texts.empty() || text != texts.back()) texts.push_back(std::move(text));
  };
  const client::Deadline end = client::Deadline::after(4 * client::PATIENCE);
  while (books.size() < ENOUGH || bbos.size() < ENOUGH) {
    ASSERT_FALSE(end.expired()) << books.size() << " book and " << bbos.size() << " BBO files seen";
    read_again(book_path, books);
    read_again(bbo_path, bbos);
  }

  // The reader may have been too slow to meet half a file; the kernel has seen how each came.
  auto done = watch.taken();
  EXPECT_THAT(done["book.json"], AllOf(Not(IsEmpty()), Each(IN_MOVED_TO)));
  EXPECT_THAT(done["bbo.txt"], AllOf(Not(IsEmpty()), Each(IN_MOVED_TO)));
  std::vector<uint64_t> times;
  for (const std::string& text : books) {
    const client::BookFile file = client::parse_book_file(text);  // throws if it is torn
    ASSERT_EQ(file.symbols.size(), SYMBOLS);
    EXPECT_TRUE(times.empty() || times.back() < file.ts_ns);
    times.push_back(file.ts_ns);
  }
  for (const std::string& text : bbos) ASSERT_EQ(client::parse_bbo_file(text).size(), SYMBOLS);
  // A file's time is taken a little after its period has begun, on a loaded machine longer after.
  constexpr uint64_t PERIOD_NS = 250'000'000;
  const uint64_t span = times.back() - times.front();
  EXPECT_LE(times.size(), span / PERIOD_NS + 3) << "more than one in 250 ms";
}

// All five.

/// A client that trades at random and knows its open orders from its reports alone.
class Trader {
 public:
  Trader(FixSession session, unsigned seed) : session_(std::move(session)), random_(seed) {
    session_.continuity = Continuity::TRACK;  // a Replaced report overtakes its fills
  }

  struct OpenOrder {
    std::string cl_ord_id = {};
    std::string symbol = {};
    bool buy = false;
    Price4 price = 0;
    uint32_t leaves = 0;
  };
  using OpenOrders = std::map<std::string, OpenOrder>;  // by OrderID

  /// One order, replace or cancel.
  void act(const std::string& symbol, const client::SymbolBook& book) {
    if (book.bids.empty() || book.asks.empty()) return;
    const unsigned dice = below(10);
    const OpenOrders orders = open();
    if (dice < 6 || orders.empty()) return place(symbol, book);
    auto chosen = orders.begin();
    std::advance(chosen, below(static_cast<unsigned>(orders.size())));
    const OpenOrder& order = chosen->second;
    client::ChangeOrder change{.cl_ord_id = next_id(),
                               .orig_cl_ord_id = order.cl_ord_id,
                               .symbol = order.symbol,
                               .side = order.buy ? "1" : "2"};
    if (dice < 8) return session_.cancel(change);
    const Price4 step = 100 * (1 + static_cast<Price4>(below(3)));
    change.quantity = std::to_string(100 * (1 + below(8)));
    change.price = client::price_text(order.price + (order.buy ? step : -step));
    session_.replace(change);
  }

  /// Places an order that joins the best bid.
  void join_the_bid(const std::string& symbol, const client::SymbolBook& book) {
    for (unsigned i = 0; i < MOST_REJECTS; ++i) {
      const std::string id = next_id();
      session_.new_order(
          {.cl_ord_id = id, .symbol = symbol, .price = client::price_text(best_bid(book))});
      if (report_of(id).get(150) == "0") return;
    }
    throw client::WireError("one order after the other is refused");
  }

  /// Places an order that is cancelled 300 ms later, and waits for that: all cancels scheduled
  /// before are over then.
  void outlast_scheduled_cancels(client::ControlClient& control) {
    for (unsigned i = 0; i < MOST_REJECTS; ++i) {
      control.ok("unsolicited_cancel 1");
      const std::string id = next_id();
      session_.new_order({.cl_ord_id = id, .price = "1"});
      if (report_of(id).get(150) == "0" && report_of(id).get(150) == "4") return;
    }
    throw client::WireError("one order after the other is refused");
  }

  /// Takes over what has come.
  void read() {
    while (const auto message = session_.receive(milliseconds(0))) take(*message);
  }
  /// All that has been told up to now.
  void finish() {
    for (const FixMessage& message : session_.drain()) take(message);
  }

  const std::string& name() const { return session_.comp_id(); }
  const std::vector<uint32_t>& missing() const { return session_.missing(); }
  /// 35=8 and 35=9 by their numbers, which is the order of their composing.
  const std::map<uint32_t, FixMessage>& told() const { return told_; }

  OpenOrders open() const {
    OpenOrders orders;
    for (const auto& [seq, message] : told_) {
      if (message.type() != "8" || message.get(150) == "8") continue;
      const std::string oid = message.get(37);
      if (message.get(151) == "0") {
        orders.erase(oid);
        continue;
      }
      orders[oid] = {.cl_ord_id = message.get(11),
                     .symbol = message.get(55),
                     .buy = message.get(54) == "1",
                     .price = to_price4(text_or(message, 44, "0")),
                     .leaves = static_cast<uint32_t>(message.number(151))};
    }
    return orders;
  }

 private:
  static constexpr unsigned MOST_REJECTS = 5;

  std::string next_id() { return session_.comp_id() + "-" + std::to_string(++ids_); }
  unsigned below(unsigned count) { return static_cast<unsigned>(random_() % count); }

  void place(const std::string& symbol, const client::SymbolBook& book) {
    constexpr const char* TIFS[] = {"0", "0", "0", "3", "4"};
    const bool unknown = below(10) == 0;
    const bool market = below(6) == 0;
    const bool buy = below(2) == 0;
    const Price4 away = 100 * static_cast<Price4>(below(6));
    const Price4 price = buy ? best_ask(book) - away : best_bid(book) + away;
    session_.new_order({.cl_ord_id = next_id(),
                        .symbol = unknown ? "NONE" : symbol,
                        .side = buy ? "1" : "2",
                        .quantity = std::to_string(50 * (1 + below(16))),
                        .type = market ? "1" : "2",
                        .price = market ? "" : client::price_text(price),
                        .tif = TIFS[below(5)]});
  }

  void take(const FixMessage& message) {
    if (message.type() == "8" || message.type() == "9") told_.emplace(message.seq(), message);
  }

  /// The next report of this order; what comes before it is taken too.
  FixMessage report_of(const std::string& cl_ord_id) {
    for (;;) {
      const FixMessage message = session_.next();
      take(message);
      if (message.type() == "8" && message.get(11) == cl_ord_id) return message;
    }
  }

  FixSession session_;
  std::mt19937 random_;
  unsigned ids_ = 0;
  std::map<uint32_t, FixMessage> told_;
};

TEST(OneStory, order_events_market_truth_feed_reports_and_book_file_tell_it) {
  const std::vector<std::string> symbols = {"AAPL", "MSFT", "SPY"};
  SimulatorOptions options = with_order_events(
      with_market_truth(with_book_files(living({"--interval-ms", "5", "--touch-hit", "0.4"}))));
  options.scenario =
      "name=story,reject_every=13,partial_fill_every=3,fill_on_cancel_every=4,"
      "unsolicited_cancel_every=11,replace_reject_every=5";
  Exchange exchange(options);
  std::vector<std::unique_ptr<Trader>> traders;
  for (const char* name : {"ALPHA", "BETA", "GAMMA"}) {
    const unsigned seed = 7 * static_cast<unsigned>(traders.size()) + 1;
    traders.push_back(std::make_unique<Trader>(exchange.logs_on(name), seed));
  }
  std::deque<Mark> marks;
  constexpr unsigned ROUNDS = 300;
  for (unsigned round = 0; round < ROUNDS; ++round) {
    const std::string& symbol = symbols[round % symbols.size()];
    const client::SymbolBook& book = exchange.book(symbol);
    traders[round % traders.size()]->act(symbol, book);
    for (const auto& trader : traders) trader->read();
    if (round % 100 == 99) marks.push_back(mark(exchange, "round" + std::to_string(round)));
  }
  exchange.control().ok("pause");
  for (const auto& trader : traders) trader->join_the_bid("AAPL", exchange.book("AAPL"));
  traders[0]->outlast_scheduled_cancels(exchange.control());
  const BookBuilder book = exchange.book();
  for (const auto& trader : traders) trader->finish();
  const client::ControlStats stats = exchange.control().stats();
  marks.push_back(mark(exchange, "end"));

  // The market truth file and the book files are the feed's.
  EXPECT_EQ(read_file(exchange.simulator().market_truth_path()),
            market_truth(exchange.feed(), symbols, marks));
  expect_book_files(exchange, symbols);
  EXPECT_EQ(marks.back().seq, exchange.feed().last_seq());

  // The order event file is what the clients were told, in one order over all of them.
  std::map<std::string, std::deque<FixMessage>> told;
  for (const auto& trader : traders) {
    EXPECT_THAT(trader->missing(), IsEmpty()) << trader->name();
    for (const auto& [seq, message] : trader->told()) told[trader->name()].push_back(message);
  }
  std::map<std::string, unsigned> events;
  uint64_t last_exec_id = 0;
  uint64_t last_t = 0;
  std::map<uint64_t, std::vector<FixMessage>> fills;  // by trade id
  for (const std::string& line : lines_of(exchange.simulator().order_truth_path())) {
    SCOPED_TRACE(line);
    const client::OrderEvent event = client::parse_order_event(line);
    EXPECT_GE(event.t_ns, last_t);
    last_t = event.t_ns;
    ++events[event.ev];
    auto& of_client = told[event.cl.substr(0, event.cl.find('-'))];
    ASSERT_FALSE(of_client.empty()) << "a client was not told";
    const FixMessage message = of_client.front();
    of_client.pop_front();
    ASSERT_EQ(timeless(line), line_of(message));
    if (message.type() != "8") continue;
    EXPECT_EQ(message.get(17), "E" + std::to_string(++last_exec_id));
    if (event.ev == "fill") fills[message.number(880)].push_back(message);
  }
  for (const auto& [name, messages] : told) EXPECT_THAT(messages, IsEmpty()) << name;

  // The counters count the same events.
  EXPECT_EQ(stats["accepts"], events["new"]);
  EXPECT_EQ(stats["fills"], events["fill"]);
  EXPECT_EQ(stats["replaces"], events["replace"]);
  EXPECT_EQ(stats["replace_rejects"], events["replace_reject"]);
  EXPECT_EQ(stats["cancel_rejects"], events["cancel_reject"]);
  EXPECT_EQ(stats["cancels"] + stats["unsolicited_cancels"], events["cancel"]);
  for (const char* word : {"new", "fill", "replace", "cancel", "reject", "replace_reject"}) {
    EXPECT_GT(events[word], 0u) << word << ": a story without it proves less";
  }

  // Each fill is a trade of the feed, told to one buyer and one seller at most.
  std::map<uint64_t, client::TradeReport> trades;
  for (const std::string& symbol : symbols) {
    for (const auto& trade : book.book(symbol).trades) trades.emplace(trade.trade_id, trade);
  }
  for (const auto& [id, reports] : fills) {
    SCOPED_TRACE(reports.front().text());
    ASSERT_TRUE(trades.contains(id));
    const client::TradeReport& trade = trades.at(id);
    ASSERT_LE(reports.size(), 2u);
    if (reports.size() == 2) {
      EXPECT_NE(reports[0].get(54) == "1", reports[1].get(54) == "1");
      EXPECT_NE(reports[0].get(851), reports[1].get(851));
    }
    for (const FixMessage& report : reports) {
      EXPECT_EQ(report.get(55), trade.symbol);
      EXPECT_EQ(report.get(32), std::to_string(trade.size));
      EXPECT_EQ(report.get(31), client::price_text(trade.price));
    }
  }

  // What the clients still have open rests in the shown book.
  std::map<std::pair<std::string, Price4>, uint64_t> resting_bids;
  std::map<std::pair<std::string, Price4>, uint64_t> resting_asks;
  for (const auto& trader : traders) {
    for (const auto& [oid, order] : trader->open()) {
      (order.buy ? resting_bids : resting_asks)[{order.symbol, order.price}] += order.leaves;
    }
  }
  EXPECT_FALSE(resting_bids.empty());
  const auto shown_size = [](const auto& levels, Price4 price) {
    const auto level = levels.find(price);
    return level == levels.end() ? 0u : level->second;
  };
  for (const auto& [at, leaves] : resting_bids) {
    EXPECT_LE(leaves, shown_size(book.book(at.first).bids, at.second)) << at.first;
  }
  for (const auto& [at, leaves] : resting_asks) {
    EXPECT_LE(leaves, shown_size(book.book(at.first).asks, at.second)) << at.first;
  }
}

}  // namespace
}  // namespace e2e
