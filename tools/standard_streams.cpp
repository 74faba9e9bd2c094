#include "tools/standard_streams.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "tools/exit_status.h"

namespace tools {

void hold_closed_standard_streams() {
  for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (::fcntl(fd, F_GETFD) >= 0) continue;
    // The lowest number that is free, which is this one. For reading only: writing is to fail.
    (void)::open("/dev/null", O_RDONLY);
  }
}

int status_behind_output(const std::string& program, int status) {
  errno = 0;
  const bool flushed = std::fflush(stdout) == 0;
  const int error = errno;
  if (flushed && std::ferror(stdout) == 0) return status;
  std::fprintf(stderr, "%s: cannot write standard output%s%s\n", program.c_str(),
               error == 0 ? "" : ": ", error == 0 ? "" : std::strerror(error));
  return status == GOOD ? SAID_NO : status;
}

}  // namespace tools
