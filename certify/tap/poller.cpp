#include "certify/tap/poller.h"

#include <sys/epoll.h>

#include <array>

#include "quorl/client/errors.h"

namespace client = quorl::client;

namespace certify {
namespace {

uint64_t key_of(ReadySocket::Place place, Line line) {
  return uint64_t{line.number} | static_cast<uint64_t>(place) << 32 |
         static_cast<uint64_t>(line.service) << 40;
}

ReadySocket ready_socket(uint64_t key, uint32_t events) {
  return {.place = static_cast<ReadySocket::Place>((key >> 32) & 0xff),
          .service = static_cast<Service>((key >> 40) & 0xff),
          .number = static_cast<uint32_t>(key),
          .readable = (events & (EPOLLIN | EPOLLERR | EPOLLHUP)) != 0,
          .writable = (events & EPOLLOUT) != 0,
          .broken = (events & EPOLLERR) != 0};
}

}  // namespace

Poller::Poller() : epoll_(::epoll_create1(EPOLL_CLOEXEC)) {
  if (!epoll_.open()) throw client::SystemError("epoll_create1");
}

bool Poller::add(const Descriptor& socket, ReadySocket::Place place, Line line) {
  epoll_event event{};
  event.events = EPOLLIN | EPOLLOUT | EPOLLET;
  event.data.u64 = key_of(place, line);
  return ::epoll_ctl(epoll_.get(), EPOLL_CTL_ADD, socket.get(), &event) == 0;
}

std::span<const ReadySocket> Poller::changes() {
  std::array<epoll_event, 256> events{};
  changes_.clear();
  const int count = ::epoll_wait(epoll_.get(), events.data(), events.size(), 0);
  for (int i = 0; i < count; ++i) {
    const epoll_event& event = events[static_cast<size_t>(i)];
    changes_.push_back(ready_socket(event.data.u64, event.events));
  }
  return changes_;
}

}  // namespace certify
