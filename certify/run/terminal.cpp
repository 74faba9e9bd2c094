#include "certify/run/terminal.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <iostream>

namespace certify {
namespace {

const char* word_of(RunResult::Status status) {
  switch (status) {
    case RunResult::Status::PASSED:
      return "passed";
    case RunResult::Status::FAILED:
      return "FAILED";
    case RunResult::Status::PROVES_NOTHING:
      return "proves nothing";
    case RunResult::Status::BROKEN:
      break;
  }
  return "broken";
}

}  // namespace

size_t columns_of(int fd) {
  winsize size{};
  if (::isatty(fd) != 1 || ::ioctl(fd, TIOCGWINSZ, &size) != 0) return 0;
  return size.ws_col == 0 ? 80 : size.ws_col;
}

Terminal::Terminal(size_t runs, bool attach)
    : runs_(runs), attach_(attach), moves_(::isatty(STDERR_FILENO) == 1) {}

Terminal::~Terminal() { clear(); }

void Terminal::clear() {
  if (line_stands_) std::cerr << "\r\x1b[K" << std::flush;
  line_stands_ = false;
}

void Terminal::on_ready(const RunOptions& options, const Surroundings& surroundings) {
  if (!attach_) return;
  clear();
  std::cerr << options.plan.name << " waits for a client, by FIX, gap fill or image:\n";
  for (const Placeholder& one : placeholders()) {
    std::cerr << "  " << one.variable << '=' << one.value(surroundings) << '\n';
  }
  std::cerr << std::flush;
}

void Terminal::on_progress(const Progress& progress) {
  if (!moves_) return;
  const size_t columns = columns_of(STDERR_FILENO);
  std::string head;
  if (runs_ > 1) head = "[" + std::to_string(ended_ + 1) + "/" + std::to_string(runs_) + "] ";
  if (columns <= head.size() + 1) return;
  std::cerr << '\r' << head << progress_line(progress, columns - head.size() - 1) << "\x1b[K"
            << std::flush;
  line_stands_ = true;
}

void Terminal::on_end(const RunResult& result) {
  ++ended_;
  clear();
  std::cerr << result.plan.name << ": " << word_of(result.status);
  if (!result.broken.empty()) std::cerr << ", " << result.broken;
  if (!result.folder.empty()) std::cerr << "; " << result.folder;
  std::cerr << std::endl;
}

}  // namespace certify
