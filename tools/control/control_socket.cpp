#include "tools/control/control_socket.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <thread>

#include "quorl/client/errors.h"

namespace client = quorl::client;

namespace tools {
namespace {

constexpr size_t LONGEST_REPLY = 65536;
constexpr std::chrono::milliseconds ASK_AGAIN{50};

}  // namespace

ControlSocket::ControlSocket(uint16_t port)
    : fd_(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)), talks_to_itself_(false) {
  if (fd_ < 0) throw client::SystemError("socket");
  sockaddr_in to{};
  to.sin_family = AF_INET;
  to.sin_port = htons(port);
  to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (::connect(fd_, reinterpret_cast<const sockaddr*>(&to), sizeof to) != 0) {
    ::close(fd_);
    throw client::SystemError("connect");
  }
  sockaddr_in from{};
  socklen_t size = sizeof from;
  talks_to_itself_ = ::getsockname(fd_, reinterpret_cast<sockaddr*>(&from), &size) == 0 &&
                     from.sin_port == to.sin_port;
}

ControlSocket::~ControlSocket() { ::close(fd_); }

void ControlSocket::send(std::string_view text) {
  // An error is that of an earlier datagram, which wait() then tells of, or as good as a loss.
  (void)::send(fd_, text.data(), text.size(), 0);
}

Answer ControlSocket::wait(client::Deadline deadline, int waker) {
  if (talks_to_itself_) return {.kind = Answer::REFUSED};  // had anybody held it, we did not
  while (true) {
    pollfd ready[] = {{fd_, POLLIN, 0}, {waker, POLLIN, 0}};
    const int count = ::poll(ready, 2, deadline.remaining_ms());
    if (count < 0 && errno != EINTR) throw client::SystemError("poll");
    if (count > 0 && ready[1].revents != 0) return {.kind = Answer::INTERRUPTED};
    if (count > 0) {
      std::string text(LONGEST_REPLY, '\0');
      const ssize_t size = ::recv(fd_, text.data(), text.size(), MSG_DONTWAIT);
      if (size >= 0) {
        text.resize(static_cast<size_t>(size));
        return {.kind = Answer::REPLIED, .text = text};
      }
      if (errno == ECONNREFUSED) return {.kind = Answer::REFUSED};
    }
    if (deadline.expired()) return {.kind = Answer::SILENT};
  }
}

Answer ask(uint16_t port, std::string_view text, client::Deadline deadline, int waker) {
  ControlSocket socket(port);
  socket.send(text);
  return socket.wait(deadline, waker);
}

Answer wait_until_answering(uint16_t port, client::Deadline deadline) {
  ControlSocket socket(port);  // one for all: whichever question is answered, somebody is there
  while (true) {
    socket.send("stats");
    const auto pause = std::min(ASK_AGAIN, std::chrono::milliseconds(deadline.remaining_ms()));
    const client::Deadline next = client::Deadline::after(pause);
    const Answer answer = socket.wait(next);
    if (answer.kind == Answer::REPLIED || deadline.expired()) return answer;
    if (answer.kind == Answer::REFUSED) {
      std::this_thread::sleep_for(std::chrono::milliseconds(next.remaining_ms()));
    }
  }
}

}  // namespace tools
