#include "certify/record/output_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

namespace certify {
namespace {

constexpr mode_t READABLE_BY_ALL = 0644;
constexpr size_t MOST_WAITING = 64 * 1024;

}  // namespace

std::string cannot_write(const std::string& path, int error) {
  return "cannot write " + path + ": " + std::strerror(error);
}

OutputFile::OutputFile(std::string path) : path_(std::move(path)) {
  fd_ = ::open(path_.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, READABLE_BY_ALL);
  if (fd_ < 0) throw CannotRecord(cannot_write(path_, errno));
}

OutputFile::~OutputFile() {
  flush();
  ::close(fd_);
}

void OutputFile::write(std::string_view record) {
  if (!failure_.empty()) return;
  waiting_ += record;
  if (waiting_.size() >= MOST_WAITING) flush();
}

void OutputFile::flush() {
  std::string_view left = waiting_;
  while (!left.empty() && failure_.empty()) {
    const ssize_t size = ::write(fd_, left.data(), left.size());
    if (size >= 0) {
      left.remove_prefix(static_cast<size_t>(size));
    } else if (errno != EINTR) {
      fail(errno);
    }
  }
  if (failure_.empty()) written_ += static_cast<int64_t>(waiting_.size());
  waiting_.clear();
}

void OutputFile::fail(int error) {
  failure_ = cannot_write(path_, error);
  // If this fails too, half a record stays at the end; the failure is said in any case.
  [[maybe_unused]] const int result = ::ftruncate(fd_, written_);
}

}  // namespace certify
