#include "tools/doctor/standard_error.h"

#include <poll.h>
#include <sys/stat.h>

#include <csignal>

namespace tools::doctor {
namespace {

bool reader_is_gone(int fd) {
  pollfd look{fd, POLLOUT, 0};
  return ::poll(&look, 1, 0) > 0 && (look.revents & POLLERR) != 0;
}

/// As the exchange would inherit it.
bool broken_pipes_are_ignored() {
  struct sigaction action {};
  return ::sigaction(SIGPIPE, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}

}  // namespace

Findings odd_standard_error(int fd) {
  struct stat status {};
  if (::fstat(fd, &status) != 0) {
    return {{"standard error",
             "is closed: the lines of the exchange go to whatever it opens under number 2"}};
  }
  if (!S_ISFIFO(status.st_mode) && !S_ISSOCK(status.st_mode)) return {};
  if (reader_is_gone(fd)) {
    return {
        {"standard error", broken_pipes_are_ignored()
                               ? "is a pipe without a reader: all lines are lost"
                               : "is a pipe without a reader: the first line ends the exchange"}};
  }
  return {{"standard error",
           "is a pipe: if nobody reads it, the exchange stands still once it is full"}};
}

}  // namespace tools::doctor
