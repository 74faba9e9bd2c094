#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <exception>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "quorl/client/bytes.h"
#include "quorl/client/deadline.h"
#include "quorl/client/udp.h"

namespace quorl::client {

struct RawPacket {
  Bytes bytes;
  std::chrono::steady_clock::time_point arrived;
};

/// What becomes of a loss that is our own, for want of buffer.
enum class KernelDrops {
  FAIL,  // take() throws: a hole would be no finding
  BEAR,  // a hole like any other
};

/// Takes packets off the group on a thread of its own, so that a test that is busy elsewhere loses
/// none. Nothing is looked at here.
class MulticastReceiver {
 public:
  /// The interface is named by its address.
  MulticastReceiver(const std::string& group, uint16_t port,
                    const std::string& interface_address = "127.0.0.1",
                    KernelDrops drops = KernelDrops::FAIL);
  MulticastReceiver(const MulticastReceiver&) = delete;
  MulticastReceiver& operator=(const MulticastReceiver&) = delete;
  ~MulticastReceiver();

  /// All packets that have arrived since the last call, in order; waits for the first until the
  /// deadline. Throws SystemError if the kernel dropped packets for want of buffer, unless that is
  /// to be borne.
  std::vector<RawPacket> take(Deadline deadline);
  std::vector<RawPacket> take();  // without waiting

  /// Packets that the kernel dropped so far, as the latest packet received tells.
  uint32_t kernel_drops() const;

 private:
  void receive_until_stopped();

  UdpSocket socket_;
  KernelDrops drops_;
  std::atomic<bool> stopping_ = false;
  mutable std::mutex mutex_;
  std::condition_variable arrived_;
  std::vector<RawPacket> waiting_;
  uint32_t kernel_drops_ = 0;
  std::exception_ptr failure_;
  std::thread thread_;
};

}  // namespace quorl::client
