#include "certify/run/drain.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>

#include "quorl/client/errors.h"

namespace client = quorl::client;

namespace certify {
namespace {

constexpr size_t PIECE = 64 * 1024;
constexpr int PIECES_AT_ONCE = 8;

}  // namespace

Drain::Drain(const std::string& path, uint64_t most) : most_(most) {
  if (::pipe2(pipe_, O_CLOEXEC) != 0) throw client::SystemError("pipe2");
  ::fcntl(pipe_[0], F_SETFL, O_NONBLOCK);
  file_ = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
  if (file_ < 0) {
    const int why = errno;
    ::close(pipe_[0]);
    ::close(pipe_[1]);
    errno = why;
    throw client::SystemError("open " + path);
  }
}

Drain::~Drain() {
  close_writing_end();
  if (pipe_[0] >= 0) ::close(pipe_[0]);
  ::close(file_);
}

void Drain::close_writing_end() {
  if (pipe_[1] >= 0) ::close(pipe_[1]);
  pipe_[1] = -1;
}

void Drain::take() {
  latest_.clear();
  for (int i = 0; i < PIECES_AT_ONCE && read_once(); ++i) {
  }
}

void Drain::finish() {
  take();
  if (pipe_[0] >= 0) ::close(pipe_[0]);
  pipe_[0] = -1;
}

/// Whether there may be more.
bool Drain::read_once() {
  if (ended()) return false;
  static thread_local std::array<char, PIECE> buffer;
  const ssize_t got = ::read(pipe_[0], buffer.data(), buffer.size());
  if (got < 0) return errno == EINTR;
  if (got == 0) {
    ::close(pipe_[0]);
    pipe_[0] = -1;
    return false;
  }
  const auto size = static_cast<size_t>(got);
  latest_.append(buffer.data(), size);
  taken_ += size;
  write(buffer.data(), size);
  return size == buffer.size();
}

void Drain::write(const char* bytes, size_t size) {
  size = static_cast<size_t>(std::min<uint64_t>(size, most_ - std::min(most_, written_)));
  while (size > 0) {
    const ssize_t put = ::write(file_, bytes, size);
    if (put < 0 && errno == EINTR) continue;
    if (put <= 0) return;  // no room: the judge finds that out elsewhere
    bytes += put;
    written_ += static_cast<uint64_t>(put);
    size -= static_cast<size_t>(put);
  }
}

}  // namespace certify
