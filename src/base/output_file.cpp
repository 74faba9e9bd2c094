#include "base/output_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "base/stop.h"

namespace quorl {
namespace {

constexpr size_t BUFFER_SIZE = 8192;
constexpr mode_t CREATED_MODE = 0666;  // less the umask

}  // namespace

void OutputFile::open_for_appending(const std::string& path) { open(path, O_APPEND); }

void OutputFile::open_emptied(const std::string& path) { open(path, O_TRUNC); }

/// Blocking to open, as a FIFO without a reader is, and non-blocking to write, so that a stop is
/// seen while its reader stalls.
void OutputFile::open(const std::string& path, int flags) {
  fd_ = ::open(path.c_str(), O_WRONLY | O_CREAT | flags, CREATED_MODE);
  failed_ = fd_ < 0;
  if (fd_ >= 0) ::fcntl(fd_, F_SETFL, ::fcntl(fd_, F_GETFL, 0) | O_NONBLOCK);
}

void OutputFile::write(std::string_view piece) {
  if (!is_writable()) return;
  buffered_ += piece;
  if (buffered_.size() >= BUFFER_SIZE) write_out();
}

void OutputFile::flush() {
  if (is_writable()) write_out();
}

void OutputFile::close() {
  if (!is_open()) return;
  write_out();  // once more even after a failure: the disk may have room again
  ::close(fd_);
  fd_ = -1;
  buffered_.clear();
}

void OutputFile::write_out() {
  size_t written = 0;
  while (written < buffered_.size()) {
    const ssize_t result = ::write(fd_, buffered_.data() + written, buffered_.size() - written);
    if (result > 0) {
      written += static_cast<size_t>(result);
    } else if (result < 0 && errno == EINTR) {
      continue;
    } else if (result >= 0 || errno != EAGAIN || !wait_until_writable(fd_)) {
      failed_ = true;
      break;
    }
  }
  buffered_.erase(0, written);
}

}  // namespace quorl
