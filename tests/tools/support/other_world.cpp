#include "tests/tools/support/other_world.h"

#include <net/if.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstring>
#include <exception>
#include <thread>

namespace tools_test {
namespace {

constexpr unsigned NOBODY = 65534;

/// What `enter` changes is the thread's alone. Returns what `enter` does.
bool on_own_thread(const std::function<bool()>& enter, const std::function<void()>& work) {
  bool entered = false;
  std::exception_ptr failure;
  std::thread([&] {
    entered = enter();
    if (!entered) return;
    try {
      work();
    } catch (...) {
      failure = std::current_exception();
    }
  }).join();
  if (failure) std::rethrow_exception(failure);
  return entered;
}

bool raise_loopback() {
  const int fd = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  ifreq request{};
  std::strcpy(request.ifr_name, "lo");
  request.ifr_flags = IFF_UP | IFF_RUNNING;
  const bool up = ::ioctl(fd, SIOCSIFFLAGS, &request) == 0;
  ::close(fd);
  return up;
}

}  // namespace

bool in_own_network(const std::function<void()>& work) {
  return on_own_thread([] { return ::unshare(CLONE_NEWNET) == 0 && raise_loopback(); }, work);
}

bool in_no_network(const std::function<void()>& work) {
  return on_own_thread([] { return ::unshare(CLONE_NEWNET) == 0; }, work);
}

bool with_disk(const std::string& options, const std::string& directory,
               const std::function<void()>& work) {
  return on_own_thread(
      [&] {
        return ::unshare(CLONE_NEWNS) == 0 &&
               ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
               ::mount("none", directory.c_str(), "tmpfs", 0, options.c_str()) == 0;
      },
      work);
}

/// By the system's own call, which is of one thread; the library's is of all.
bool as_nobody(const std::function<void()>& work) {
  return on_own_thread(
      [] {
        if (::geteuid() != 0) return true;
        return ::syscall(SYS_setresgid, NOBODY, NOBODY, NOBODY) == 0 &&
               ::syscall(SYS_setresuid, NOBODY, NOBODY, NOBODY) == 0;
      },
      work);
}

}  // namespace tools_test
