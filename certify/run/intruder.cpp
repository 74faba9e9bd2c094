#include "certify/run/intruder.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>

#include "quorl/client/errors.h"
#include "quorl/client/fix_message.h"

namespace client = quorl::client;

namespace certify {
namespace {

constexpr TimeNs REPLY_PATIENCE = 2 * SECOND;

std::string logon(const std::string& comp_id, uint64_t seq) {
  return client::compose_fix(
      {.type = "A", .seq = std::to_string(seq), .sender = comp_id, .target = "IEXG"},
      {{98, "0"}, {108, "30"}});
}

}  // namespace

Intruder::Intruder(uint16_t fix_port, const std::string& comp_id, uint64_t seq, TimeNs now)
    : fd_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)), came_at_(now) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(fix_port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  const std::string message = logon(comp_id, seq);
  // On the loopback neither waits for the exchange.
  if (fd_ < 0 || ::connect(fd_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
      ::send(fd_, message.data(), message.size(), MSG_NOSIGNAL | MSG_DONTWAIT) < 0) {
    const int why = errno;
    if (fd_ >= 0) ::close(fd_);
    errno = why;
    throw client::SystemError("a stranger cannot log on");
  }
}

Intruder::~Intruder() { ::close(fd_); }

bool Intruder::gone(TimeNs now) {
  char answer[4096];
  const ssize_t got = ::recv(fd_, answer, sizeof answer, MSG_DONTWAIT);
  const bool nothing_yet = got < 0 && (errno == EAGAIN || errno == EINTR);
  return !nothing_yet || now - came_at_ > REPLY_PATIENCE;
}

}  // namespace certify
