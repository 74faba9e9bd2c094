#include "certify/run/run_folder.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <ctime>
#include <filesystem>
#include <system_error>

#include "quorl/client/errors.h"

namespace client = quorl::client;

namespace certify {
namespace {

constexpr unsigned MOST_OF_A_NAME = 10000;
constexpr size_t A_LITTLE = 64 * 1024;

std::string absolute(const std::string& path) {
  return std::filesystem::absolute(path).lexically_normal().string();
}

}  // namespace

RunFolder::RunFolder(const std::string& parent, const std::string& name) {
  std::error_code failed;
  std::filesystem::create_directories(parent, failed);
  if (failed) {
    errno = failed.value();
    throw client::SystemError("cannot make the folder " + parent);
  }
  const std::string wanted = absolute(parent + "/" + name);
  for (unsigned i = 1; i <= MOST_OF_A_NAME; ++i) {
    path_ = i == 1 ? wanted : wanted + "-" + std::to_string(i);
    if (::mkdir(path_.c_str(), 0777) == 0) return;
    if (errno != EEXIST) break;
  }
  throw client::SystemError("cannot make the folder " + path_);
}

bool RunFolder::has_room() const {
  const std::string probe = file("room");
  const int fd = ::open(probe.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
  if (fd < 0) return false;
  static const std::array<char, A_LITTLE> zeros{};
  const ssize_t written = ::write(fd, zeros.data(), zeros.size());
  ::close(fd);
  ::unlink(probe.c_str());
  return written == static_cast<ssize_t>(zeros.size());
}

std::string folder_time(TimeNs at) {
  const std::time_t seconds = at / SECOND;
  std::tm parts{};
  ::gmtime_r(&seconds, &parts);
  char text[32];
  const size_t size = std::strftime(text, sizeof text, "%Y%m%d-%H%M%S", &parts);
  return {text, size};
}

}  // namespace certify
