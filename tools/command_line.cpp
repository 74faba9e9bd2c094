#include "tools/command_line.h"

#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>
#include <iostream>
#include <vector>

#include "tools/seconds.h"
#include "tools/standard_streams.h"
#include "tools/version.h"

namespace tools {
namespace {

std::string complaint_about_group(const std::string& text) {
  in_addr address{};
  if (::inet_pton(AF_INET, text.c_str(), &address) != 1) return text + " is no IPv4 address";
  if (!IN_MULTICAST(ntohl(address.s_addr))) return text + " is no multicast group";
  return "";
}

std::string complaint_about_interface(const std::string& text) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  if (::inet_pton(AF_INET, text.c_str(), &address.sin_addr) != 1) {
    return text + " is no IPv4 address";
  }
  // Only an address of this machine can be bound to.
  const int fd = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  const bool ours = ::bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
  ::close(fd);
  return ours ? "" : "no interface of this machine has the address " + text;
}

}  // namespace

CommandLine::CommandLine(const std::string& name, const std::string& purpose)
    : CLI::App(purpose, name) {
  set_version_flag("--version", name + " " + VERSION);
  get_formatter()->column_width(34);
  footer("The exchange's own options are in man quorl.");
}

std::optional<int> CommandLine::read(int argc, const char* const* argv) {
  hold_closed_standard_streams();
  try {
    parse(argc, argv);
    return std::nullopt;
  } catch (const CLI::Success& asked) {  // --help, --version
    exit(asked, std::cout, std::cerr);
    return status_behind_output(get_name(), GOOD);
  } catch (const CLI::ParseError& wrong) {
    std::cerr << get_name() << ": " << complaint_of(wrong) << "; " << get_name()
              << " --help tells more\n";
    return USED_WRONGLY;
  }
}

// A word that nobody knows is said first: the one that is missing may be meant by it.
std::string CommandLine::complaint_of(const CLI::ParseError& wrong) const {
  const std::vector<std::string> unknown = remaining();
  const bool of_words = dynamic_cast<const CLI::RequiredError*>(&wrong) != nullptr ||
                        dynamic_cast<const CLI::ExtrasError*>(&wrong) != nullptr;
  if (!of_words || unknown.empty()) return wrong.what();
  const std::string& word = unknown.front();
  return word.starts_with("-") ? "there is no option " + word : word + " is one word too many";
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

CLI::Option* add_interface(CLI::App& app, std::string& address) {
  return app.add_option("--iface", address, "Address of the interface that the feed comes in by")
      ->check(CLI::Validator(complaint_about_interface, "ADDRESS"))
      ->capture_default_str();
}

CLI::Option* add_seconds(CLI::App& app, const std::string& names, std::chrono::milliseconds& time,
                         const std::string& what) {
  const auto take = [&time](const std::string& text) {
    const auto read = seconds_from(text);
    if (!read || read->count() == 0) {
      throw CLI::ValidationError(text + " is no time in seconds above 0 and up to a year");
    }
    time = *read;
  };
  return app.add_option_function<std::string>(names, take, what)->type_name("SECONDS");
}

bool wants_colour(int fd) {
  const char* no_colour = std::getenv("NO_COLOR");
  return (no_colour == nullptr || *no_colour == '\0') && ::isatty(fd) == 1;
}

}  // namespace tools
