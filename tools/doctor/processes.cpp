#include "tools/doctor/processes.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <sstream>
#include <system_error>

#include "quorl/client/temp_directory.h"

namespace client = quorl::client;
namespace fs = std::filesystem;

namespace tools::doctor {
namespace {

constexpr const char* UNKNOWN = "somebody whom /proc does not tell";

bool is_number(const std::string& text) {
  return !text.empty() && text.find_first_not_of("0123456789") == std::string::npos;
}

std::string told(const std::string& pid) {
  std::string name = client::read_file("/proc/" + pid + "/comm");
  if (!name.empty() && name.back() == '\n') name.pop_back();
  return name + " (pid " + pid + ")";
}

/// Names in a directory, as many as can be read: a process may be gone, or another user's.
std::vector<std::string> names_in(const std::string& directory) {
  std::vector<std::string> names;
  std::error_code failed;
  for (fs::directory_iterator entry(directory, failed);
       !failed && entry != fs::directory_iterator(); entry.increment(failed)) {
    names.push_back(entry->path().filename());
  }
  return names;
}

/// The processes with an open file that is `wanted`, given their path in /proc and its number.
std::string processes_with(
    const std::function<bool(const std::string& process, const std::string& fd)>& wanted) {
  std::string told_of;
  for (const std::string& pid : names_in("/proc")) {
    if (!is_number(pid)) continue;
    const std::string process = "/proc/" + pid;
    const std::vector<std::string> files = names_in(process + "/fd");
    if (std::any_of(files.begin(), files.end(),
                    [&](const std::string& fd) { return wanted(process, fd); })) {
      told_of += (told_of.empty() ? "" : " and ") + told(pid);
    }
  }
  return told_of;
}

bool is_open_for_writing(const std::string& process, const std::string& fd) {
  const std::string info = client::read_file(process + "/fdinfo/" + fd);
  const size_t flags = info.find("flags:");
  if (flags == std::string::npos) return false;
  const auto mode = std::strtol(info.c_str() + flags + std::string("flags:").size(), nullptr, 8);
  return (mode & O_ACCMODE) != O_RDONLY;
}

}  // namespace

std::vector<SocketEntry> parse_socket_table(std::string_view text) {
  std::vector<SocketEntry> entries;
  std::istringstream lines{std::string(text)};
  for (std::string line; std::getline(lines, line);) {
    std::istringstream fields(line);
    std::string slot, local, remote, state, queues, timer, retransmits, uid, timeout, inode;
    fields >> slot >> local >> remote >> state >> queues >> timer >> retransmits >> uid >>
        timeout >> inode;
    const size_t colon = local.find(':');
    if (!is_number(inode) || colon == std::string::npos) continue;
    SocketEntry entry;
    entry.address = local.substr(0, colon);
    entry.port = static_cast<uint16_t>(std::strtoul(local.c_str() + colon + 1, nullptr, 16));
    entry.state = static_cast<unsigned>(std::strtoul(state.c_str(), nullptr, 16));
    entry.inode = std::strtoull(inode.c_str(), nullptr, 10);
    entries.push_back(entry);
  }
  return entries;
}

std::vector<SocketEntry> sockets_on(const std::string& protocol, uint16_t port) {
  std::vector<SocketEntry> found;
  for (const char* const family : {"", "6"}) {
    for (const SocketEntry& entry :
         parse_socket_table(client::read_file("/proc/net/" + protocol + family))) {
      if (entry.port != port) continue;
      if (protocol == "tcp" && entry.state != SocketEntry::LISTENS) continue;
      found.push_back(entry);
    }
  }
  return found;
}

std::string owners_of(const std::vector<SocketEntry>& sockets) {
  const std::string names =
      processes_with([&sockets](const std::string& process, const std::string& fd) {
        std::error_code ignored;
        const std::string target = fs::read_symlink(fs::path(process) / "fd" / fd, ignored);
        return std::any_of(sockets.begin(), sockets.end(), [&target](const SocketEntry& socket) {
          return target == "socket:[" + std::to_string(socket.inode) + "]";
        });
      });
  return names.empty() ? UNKNOWN : names;
}

std::string writers_of(dev_t device, ino_t inode) {
  const std::string ourselves = "/proc/" + std::to_string(::getpid());
  return processes_with([&](const std::string& process, const std::string& fd) {
    if (process == ourselves) return false;
    struct stat status {};
    return ::stat((process + "/fd/" + fd).c_str(), &status) == 0 && status.st_dev == device &&
           status.st_ino == inode && is_open_for_writing(process, fd);
  });
}

}  // namespace tools::doctor
