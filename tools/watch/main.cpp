// quorl-watch: the feed line by line, with what is wrong about it.

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <string>
#include <vector>

#include "tools/command_line.h"
#include "tools/standard_streams.h"
#include "tools/watch/watch.h"

namespace {

std::string complaint_about_symbol(const std::string& text) {
  constexpr size_t MOST = 8;
  const bool is_good =
      !text.empty() && text.size() <= MOST &&
      std::all_of(text.begin(), text.end(), [](char c) { return c > ' ' && c <= '~'; });
  return is_good ? "" : "'" + text + "' is no symbol of 1 to 8 characters";
}

void add_options(CLI::App& line, tools::WatchOptions& options, std::vector<std::string>& symbols) {
  line.add_option("--symbol", symbols,
                  "Show only messages of this symbol; may be repeated, or a list with commas")
      ->delimiter(',')
      ->expected(1)
      ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
      ->check(CLI::Validator(complaint_about_symbol, "SYMBOL"));
  line.add_flag("--time", options.view.with_time, "Begin each line with the time of arrival, UTC");
  line.add_option("--limit", options.view.lines_per_second,
                  "Print at most N lines a second and count the others")
      ->check(CLI::Range(1, 1000000))
      ->type_name("N");
  line.add_option("--count", options.view.packets, "End after N packets have been shown")
      ->check(CLI::Range(int64_t{1}, INT64_MAX))
      ->type_name("N");
  tools::add_seconds(line, "--for", options.duration, "End after so many seconds");
}

}  // namespace

int main(int argc, char** argv) {
  tools::CommandLine line("quorl-watch",
                          "Prints the feed of an exchange message by message, until Ctrl-C, and "
                          "says what is wrong with it.");
  tools::FeedAddress feed;
  tools::WatchOptions options{.interface_address = "127.0.0.1"};
  std::vector<std::string> symbols;
  add_feed_address(line, feed);
  tools::add_interface(line, options.interface_address);
  add_options(line, options, symbols);
  if (const auto status = line.read(argc, argv)) return *status;
  options.group = feed.group;
  options.port = feed.port;
  options.view.where = feed.group + ":" + std::to_string(feed.port);
  options.view.interface_address = options.interface_address;
  options.view.symbols = {symbols.begin(), symbols.end()};
  try {
    return tools::status_behind_output(line.get_name(), tools::watch(options));
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "quorl-watch: %s\n", failure.what());
    return tools::SAID_NO;
  }
}
