#include "bench/output_files.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "support/exchange.h"
#include "support/inside.h"
#include "support/test_clock.h"

namespace quorl::test {
namespace {

namespace fs = std::filesystem;

class OutputFiles : public testing::Test {
 protected:
  OutputFiles() {
    std::string name = testing::TempDir() + "quorl_files_XXXXXX";
    if (::mkdtemp(name.data()) == nullptr) std::abort();
    directory = name;
    book = directory + "/book.json";
    bbo = directory + "/bbo.txt";
  }
  ~OutputFiles() override { fs::remove_all(directory); }

  static std::string content_of(const std::string& path) {
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
  }
  static void write(const std::string& path, const std::string& content) {
    std::ofstream(path) << content;
  }
  size_t files() const {
    return static_cast<size_t>(
        std::distance(fs::directory_iterator(directory), fs::directory_iterator()));
  }
  std::string book_text() {
    write_book(exchange.engine, book);
    return content_of(book);
  }
  std::string bbo_text() {
    write_bbo(exchange.engine, bbo);
    return content_of(bbo);
  }

  std::string directory;
  std::string book;
  std::string bbo;
  Exchange exchange{"AAPL:190.00,MSFT:410.00"};
};

// --- The book file ---

TEST_F(OutputFiles, show_the_book_of_every_symbol_byte_for_byte) {
  Stock& apple = exchange.stock();
  rest_and_show(exchange.engine, apple, BUYS, {{1899900, 300}, {1899800, 100}});
  rest_and_show(exchange.engine, apple, SELLS, {{1900000, 500}});
  apple.last_price = 1900000;
  apple.volume = 1200;
  set_system_ns(1'700'000'000'000'000'000);
  const uint64_t readings = system_readings();
  EXPECT_EQ(book_text(),
            "{\"ts_ns\":1700000000000000000,\"symbols\":{\"AAPL\":{\"bid\":[[189.99,300],"
            "[189.98,100]],\"ask\":[[190,500]],\"last\":190,\"volume\":1200},\"MSFT\":{\"bid\":[],"
            "\"ask\":[],\"last\":0,\"volume\":0}}}\n");
  EXPECT_EQ(system_readings(), readings + 1);
}

TEST_F(OutputFiles, show_the_five_best_levels_of_each_side) {
  ShownLevels bids;
  ShownLevels asks;
  for (uint32_t i = 1; i <= 6; ++i) {
    bids.emplace_back(1900000 - i * 10000, i);
    asks.emplace_back(1900000 + i * 10000, i);
  }
  rest_and_show(exchange.engine, exchange.stock(), BUYS, bids);
  rest_and_show(exchange.engine, exchange.stock(), SELLS, asks);
  EXPECT_EQ(
      book_text(),
      "{\"ts_ns\":1700000000123456789,\"symbols\":{\"AAPL\":{\"bid\":[[189,1],[188,2],"
      "[187,3],[186,4],[185,5]],\"ask\":[[191,1],[192,2],[193,3],[194,4],[195,5]],"
      "\"last\":0,\"volume\":0},\"MSFT\":{\"bid\":[],\"ask\":[],\"last\":0,\"volume\":0}}}\n");
}

TEST_F(OutputFiles, write_prices_with_six_significant_digits) {
  Stock& apple = exchange.stock();
  rest_and_show(exchange.engine, apple, SELLS,
                {{1, 1}, {9999, 2}, {123456700, 3}, {12345678901, 4}});
  apple.last_price = 12345670;
  apple.volume = 18446744073709551615U;
  EXPECT_EQ(book_text(),
            "{\"ts_ns\":1700000000123456789,\"symbols\":{\"AAPL\":{\"bid\":[],\"ask\":[[0.0001,1],"
            "[0.9999,2],[12345.7,3],[1.23457e+06,4]],\"last\":1234.57,"
            "\"volume\":18446744073709551615},\"MSFT\":{\"bid\":[],\"ask\":[],\"last\":0,"
            "\"volume\":0}}}\n");
}

TEST_F(OutputFiles, show_the_whole_symbol) {
  Exchange other("LONGSYMBOL1:10.00");
  write_book(other.engine, book);
  write_bbo(other.engine, bbo);
  EXPECT_EQ(content_of(book),
            "{\"ts_ns\":1700000000123456789,\"symbols\":{\"LONGSYMBOL1\":{\"bid\":[],\"ask\":[],"
            "\"last\":0,\"volume\":0}}}\n");
  EXPECT_EQ(content_of(bbo), "LONGSYMBOL1 0 0\n");
}

TEST_F(OutputFiles, show_a_market_without_symbols) {
  exchange.engine.stocks.clear();
  EXPECT_EQ(book_text(), "{\"ts_ns\":1700000000123456789,\"symbols\":{}}\n");
  EXPECT_EQ(bbo_text(), "");
  EXPECT_TRUE(fs::exists(bbo));
}

TEST_F(OutputFiles, follow_trades) {
  exchange.rests({"AAPL sell 300 @ 190.01"});
  exchange.is_hit("AAPL buy 100");
  EXPECT_EQ(book_text(),
            "{\"ts_ns\":1700000000123456789,\"symbols\":{\"AAPL\":{\"bid\":[],"
            "\"ask\":[[190.01,200]],\"last\":190.01,\"volume\":100},\"MSFT\":{\"bid\":[],"
            "\"ask\":[],\"last\":0,\"volume\":0}}}\n");
}

// --- The BBO file ---

TEST_F(OutputFiles, show_the_best_bid_and_offer_of_every_symbol) {
  exchange.rests({"AAPL sell 300 @ 190.01", "AAPL sell 300 @ 190.02", "AAPL buy 100 @ 190.00",
                  "AAPL buy 100 @ 189.00"});
  EXPECT_EQ(bbo_text(), "AAPL 190 190.01\nMSFT 0 0\n");
  exchange.rests({"MSFT sell 1 @ 12345.67"});
  EXPECT_EQ(bbo_text(), "AAPL 190 190.01\nMSFT 0 12345.7\n");
}

TEST_F(OutputFiles, take_the_bbo_from_the_live_book_and_the_book_from_what_was_shown) {
  const std::vector<uint64_t> ids = exchange.rests({"AAPL sell 700 @ 191.00"});
  exchange.engine.begin_event();
  rest_synthetic(exchange.engine, exchange.stock(), BUYS, 1890000, 100);
  withdraw_order(exchange.engine, ids[0]);  // neither is published yet
  EXPECT_EQ(bbo_text(), "AAPL 189 0\nMSFT 0 0\n");
  EXPECT_EQ(
      book_text(),
      "{\"ts_ns\":1700000000123456789,\"symbols\":{\"AAPL\":{\"bid\":[],\"ask\":[[191,700]],"
      "\"last\":0,\"volume\":0},\"MSFT\":{\"bid\":[],\"ask\":[],\"last\":0,\"volume\":0}}}\n");
}

// --- Replacement ---

TEST_F(OutputFiles, are_replaced_whole_and_leave_no_temporary_file) {
  write(book, std::string(100000, 'x'));
  write(bbo, std::string(100000, 'x'));
  struct stat before {};
  struct stat after {};
  ASSERT_EQ(::stat(book.c_str(), &before), 0);
  const std::ifstream reader(book);  // keeps the old file, so that its number is not used again
  EXPECT_EQ(book_text().front(), '{');
  EXPECT_EQ(bbo_text(), "AAPL 0 0\nMSFT 0 0\n");
  ASSERT_EQ(::stat(book.c_str(), &after), 0);
  EXPECT_NE(before.st_ino, after.st_ino);  // another file in its place, not the old one rewritten
  EXPECT_EQ(files(), 2U);
}

TEST_F(OutputFiles, leave_a_reader_of_the_old_file_undisturbed) {
  write(bbo, "old\n");
  std::ifstream reader(bbo);
  bbo_text();
  std::string line;
  std::getline(reader, line);
  EXPECT_EQ(line, "old");
}

TEST_F(OutputFiles, overwrite_an_existing_temporary_file) {
  write(bbo + ".tmp", std::string(1000, 'x'));
  write(book + ".tmp", std::string(1000, 'x'));
  EXPECT_EQ(bbo_text(), "AAPL 0 0\nMSFT 0 0\n");
  EXPECT_EQ(book_text().back(), '\n');
  EXPECT_EQ(files(), 2U);
}

TEST_F(OutputFiles, move_what_stands_at_the_temporary_name_even_if_it_could_not_be_written) {
  fs::create_directory(book + ".tmp");
  fs::create_directory(bbo + ".tmp");
  EXPECT_EQ(standard_error_of([&] {
              write_book(exchange.engine, book);
              write_bbo(exchange.engine, bbo);
            }),
            "");
  for (const std::string& path : {book, bbo}) {
    EXPECT_TRUE(fs::is_directory(path));
    EXPECT_FALSE(fs::exists(path + ".tmp"));
  }
}

TEST_F(OutputFiles, move_a_temporary_file_that_could_not_be_filled) {
  fs::create_symlink("/dev/full", bbo + ".tmp");
  EXPECT_EQ(standard_error_of([&] { write_bbo(exchange.engine, bbo); }), "");
  EXPECT_TRUE(fs::is_symlink(bbo));
}

TEST_F(OutputFiles, keep_an_earlier_file_if_there_is_nothing_to_move) {
  // The temporary name is too long for the file system; the name itself is not.
  const std::string longest = directory + "/" + std::string(255, 'x');
  write(longest, "old\n");
  EXPECT_EQ(standard_error_of([&] { write_bbo(exchange.engine, longest); }), "");
  EXPECT_EQ(content_of(longest), "old\n");
}

TEST_F(OutputFiles, are_not_written_into_a_directory_that_is_not_there_and_nobody_is_told) {
  EXPECT_EQ(standard_error_of([&] {
              write_book(exchange.engine, directory + "/none/book.json");
              write_bbo(exchange.engine, directory + "/none/bbo.txt");
            }),
            "");
  EXPECT_EQ(files(), 0U);
}

TEST_F(OutputFiles, are_not_written_without_a_name) {
  const fs::path home = fs::current_path();
  fs::current_path(directory);  // where a nameless ".tmp" would appear
  write_book(exchange.engine, "");
  write_bbo(exchange.engine, "");
  fs::current_path(home);
  EXPECT_EQ(files(), 0U);
  EXPECT_EQ(system_readings(), 0U);
}

TEST_F(OutputFiles, are_written_each_by_itself) {
  write_book(exchange.engine, book);
  write_bbo(exchange.engine, "");
  EXPECT_EQ(files(), 1U);
  EXPECT_TRUE(fs::exists(book));
}

}  // namespace
}  // namespace quorl::test
