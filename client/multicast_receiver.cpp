#include "quorl/client/multicast_receiver.h"

#include <cerrno>
#include <utility>

#include "quorl/client/errors.h"

namespace quorl::client {
namespace {

/// How long the destructor may have to wait for the thread.
constexpr std::chrono::milliseconds STOP_CHECK{20};

}  // namespace

MulticastReceiver::MulticastReceiver(const std::string& group, uint16_t port,
                                     const std::string& interface_address, KernelDrops drops)
    : socket_(UdpSocket::in_group(group, port, interface_address)),
      drops_(drops),
      thread_([this] { receive_until_stopped(); }) {}

MulticastReceiver::~MulticastReceiver() {
  stopping_ = true;
  thread_.join();
}

void MulticastReceiver::receive_until_stopped() {
  try {
    while (!stopping_) {
      auto datagram = socket_.receive(Deadline::after(STOP_CHECK));
      if (!datagram) continue;
      const std::lock_guard lock(mutex_);
      waiting_.push_back({std::move(datagram->bytes), std::chrono::steady_clock::now()});
      kernel_drops_ = socket_.kernel_drops();
      arrived_.notify_one();
    }
  } catch (...) {
    const std::lock_guard lock(mutex_);
    failure_ = std::current_exception();
    arrived_.notify_one();
  }
}

std::vector<RawPacket> MulticastReceiver::take(Deadline deadline) {
  std::unique_lock lock(mutex_);
  while (waiting_.empty() && !failure_ && !deadline.expired()) {
    arrived_.wait_for(lock, std::chrono::milliseconds(deadline.remaining_ms()));
  }
  if (failure_) std::rethrow_exception(failure_);
  if (kernel_drops_ > 0 && drops_ == KernelDrops::FAIL) {
    errno = ENOBUFS;
    throw SystemError("the kernel dropped " + std::to_string(kernel_drops_) + " feed packets");
  }
  return std::exchange(waiting_, {});
}

std::vector<RawPacket> MulticastReceiver::take() {
  return take(Deadline::after(std::chrono::milliseconds(0)));
}

uint32_t MulticastReceiver::kernel_drops() const {
  const std::lock_guard lock(mutex_);
  return kernel_drops_;
}

}  // namespace quorl::client
