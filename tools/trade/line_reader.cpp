#include "tools/trade/line_reader.h"

#include <unistd.h>

#include <array>
#include <cerrno>
#include <utility>

#include "quorl/client/errors.h"

namespace tools {
namespace {

constexpr size_t LONGEST_PIECE = 65536;

}  // namespace

void LineReader::read() {
  std::array<char, 4096> piece;
  const ssize_t got = ::read(fd_, piece.data(), piece.size());
  if (got > 0) {
    buffer_.append(piece.data(), static_cast<size_t>(got));
  } else if (got == 0 || errno == EIO) {  // EIO: the terminal is gone
    ended_ = true;
  } else if (errno != EINTR && errno != EAGAIN) {
    throw quorl::client::SystemError("read standard input");
  }
}

std::optional<std::string> LineReader::next() {
  const size_t end = buffer_.find('\n');
  if (end == std::string::npos) {
    if (buffer_.empty() || (!ended_ && buffer_.size() <= LONGEST_PIECE)) return std::nullopt;
    return std::exchange(buffer_, {});
  }
  std::string line = buffer_.substr(0, end);
  buffer_.erase(0, end + 1);
  if (line.ends_with('\r')) line.pop_back();
  return line;
}

}  // namespace tools
