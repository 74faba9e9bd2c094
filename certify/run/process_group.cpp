#include "certify/run/process_group.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>
#include <system_error>

namespace certify {
namespace {

/// The beginning of /proc/PID/stat: "PID (NAME) STATE PARENT GROUP ...".
std::string stat_of(const std::filesystem::path& process) {
  const int fd = ::open((process / "stat").c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return "";
  char text[512];
  const ssize_t size = ::read(fd, text, sizeof text);
  ::close(fd);
  return {text, static_cast<size_t>(size > 0 ? size : 0)};
}

bool runs_in(pid_t group, const std::string& stat) {
  const size_t name_end = stat.rfind(')');  // a name may hold anything
  if (name_end == std::string::npos) return false;
  char state = 0;
  int parent = 0;
  int its_group = 0;
  if (std::sscanf(stat.c_str() + name_end + 1, " %c %d %d", &state, &parent, &its_group) != 3) {
    return false;
  }
  return its_group == group && std::strchr("ZX", state) == nullptr;
}

}  // namespace

bool group_runs(pid_t group) {
  std::error_code failed;
  for (const auto& entry : std::filesystem::directory_iterator("/proc", failed)) {
    const std::string name = entry.path().filename().string();
    if (name.find_first_not_of("0123456789") != std::string::npos) continue;
    if (runs_in(group, stat_of(entry.path()))) return true;
  }
  return false;
}

}  // namespace certify
