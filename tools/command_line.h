#pragma once

#include <CLI/CLI.hpp>
#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include "tools/exit_status.h"

namespace tools {

/// The options of one tool. Knows --help and --version; the name is that of the program, such as
/// "quorl-watch".
class CommandLine : public CLI::App {
 public:
  CommandLine(const std::string& name, const std::string& purpose);

  /// Reads the words. A status means that the program ends with it: help or version has been
  /// printed, or on standard error one line of complaint, which ends with where to find help. To be
  /// called before anything is opened: closed standard streams are held from here on.
  std::optional<int> read(int argc, const char* const* argv);

 private:
  std::string complaint_of(const CLI::ParseError& wrong) const;
};

/// Where a feed is listened for.
struct FeedAddress {
  std::string group = "233.54.26.111";  // dotted quad, multicast
  uint16_t port = 25477;
};

/// --mcast and --port, as the exchange calls them, and the same as words without an option.
void add_feed_address(CLI::App& app, FeedAddress& address);

/// A port of 1 to 65535.
CLI::Option* add_port(CLI::App& app, const std::string& names, uint16_t& port,
                      const std::string& what);

/// --iface, as the exchange calls it: the address of the interface that multicast comes in by. One
/// that this machine has, or 0.0.0.0, which leaves the choice to its routes.
CLI::Option* add_interface(CLI::App& app, std::string& address);

/// A time in seconds, fractions allowed: above 0 and at most a year.
CLI::Option* add_seconds(CLI::App& app, const std::string& names, std::chrono::milliseconds& time,
                         const std::string& what);

/// Whether what is written to `fd` may be coloured: a terminal, and NO_COLOR is unset or empty.
bool wants_colour(int fd);

}  // namespace tools
