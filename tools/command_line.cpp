#include "tools/command_line.h"

#include <arpa/inet.h>
#include <unistd.h>

#include <cstdlib>
#include <iostream>

#include "tools/version.h"

namespace tools {
namespace {

std::string complaint_about_group(const std::string& text) {
  in_addr address{};
  if (::inet_pton(AF_INET, text.c_str(), &address) != 1) return text + " is no IPv4 address";
  if (!IN_MULTICAST(ntohl(address.s_addr))) return text + " is no multicast group";
  return "";
}

}  // namespace

CommandLine::CommandLine(const std::string& name, const std::string& purpose)
    : CLI::App(purpose, name) {
  set_version_flag("--version", name + " " + VERSION);
  get_formatter()->column_width(34);
  footer("The exchange's own options are in man quorl and in the README.");
}

std::optional<int> CommandLine::read(int argc, const char* const* argv) {
  try {
    parse(argc, argv);
    return std::nullopt;
  } catch (const CLI::Success& asked) {  // --help, --version
    exit(asked, std::cout, std::cerr);
    return GOOD;
  } catch (const CLI::ParseError& wrong) {
    std::cerr << get_name() << ": " << wrong.what() << "\n"
              << "Try '" << get_name() << " --help'.\n";
    return USED_WRONGLY;
  }
}

void add_feed_address(CLI::App& app, FeedAddress& address) {
  app.add_option("--mcast,group", address.group, "Multicast group of the feed")
      ->check(CLI::Validator(complaint_about_group, "GROUP"))
      ->capture_default_str();
  add_port(app, "--port,port", address.port, "UDP port of the feed");
}

CLI::Option* add_port(CLI::App& app, const std::string& names, uint16_t& port,
                      const std::string& what) {
  return app.add_option(names, port, what)->check(CLI::Range(1, 65535))->capture_default_str();
}

bool wants_colour(int fd) {
  const char* no_colour = std::getenv("NO_COLOR");
  return (no_colour == nullptr || *no_colour == '\0') && ::isatty(fd) == 1;
}

}  // namespace tools
