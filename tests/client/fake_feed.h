#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <map>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "quorl/client/bytes.h"
#include "quorl/client/iex_tp.h"
#include "quorl/client/port_slot.h"
#include "tests/client/hand_made.h"

namespace client = quorl::client;

/// An exchange's market data in small, for tests of those who follow it: one symbol, AAPL, whose
/// bids the test sets. Packets leave, or get lost, when the test says so; gap fill and DEEP SNAP
/// are answered on a thread.
class FakeFeed {
 public:
  FakeFeed() : multicast_fd_(udp_to_group()), gap_fd_(bound(SOCK_DGRAM, ports().gap_fill)) {
    snap_fd_ = bound(SOCK_STREAM, ports().snap);
    if (::listen(snap_fd_, 8) != 0) throw std::runtime_error("listen");
    thread_ = std::thread([this] { serve_until_stopped(); });
  }
  FakeFeed(const FakeFeed&) = delete;
  FakeFeed& operator=(const FakeFeed&) = delete;
  ~FakeFeed() {
    stopping_ = true;
    thread_.join();
    for (const int fd : {multicast_fd_, gap_fd_, snap_fd_}) ::close(fd);
  }

  const client::Ports& ports() const { return slot_.ports(); }

  /// A bid level takes a new size; the update joins the packet under assembly.
  void bid(int64_t price, uint32_t size) {
    const std::lock_guard lock(mutex_);
    if (size == 0) {
      bids_.erase(price);
    } else {
      bids_[price] = size;
    }
    append(hand_made::level({.size = size, .price = price}));
  }

  /// Ends the packet under assembly and returns its bytes; `announced_high` adds one to its number.
  client::Bytes packet(bool announced_high = false) {
    const std::lock_guard lock(mutex_);
    const uint64_t first = next_seq_ - assembled_.size();
    client::Bytes bytes = client::encode_tp_packet(
        hand_made::header(packet_offset_, first + (announced_high ? 1 : 0)), assembled_);
    packet_offset_ = offset_;
    assembled_.clear();
    return bytes;
  }

  void sends(const client::Bytes& bytes) {
    sockaddr_in to = address(ports().feed);
    ::inet_pton(AF_INET, ports().group.c_str(), &to.sin_addr);
    (void)::sendto(multicast_fd_, bytes.data(), bytes.size(), 0,
                   reinterpret_cast<const sockaddr*>(&to), sizeof to);
  }

  client::Bytes heartbeat() {
    const std::lock_guard lock(mutex_);
    return client::encode_tp_packet(hand_made::header(offset_, next_seq_), {});
  }

  /// Gap fill no longer has the numbers below `seq`.
  void forgets_below(uint64_t seq) {
    const std::lock_guard lock(mutex_);
    retained_.erase(retained_.begin(), retained_.lower_bound(seq));
  }

  uint64_t next_seq() {
    const std::lock_guard lock(mutex_);
    return next_seq_;
  }

 private:
  static sockaddr_in address(uint16_t port) {
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_port = htons(port);
    to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return to;
  }

  static int udp_to_group() {
    const int fd = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const in_addr loopback{htonl(INADDR_LOOPBACK)};
    if (::setsockopt(fd, IPPROTO_IP, IP_MULTICAST_IF, &loopback, sizeof loopback) != 0) {
      throw std::runtime_error("IP_MULTICAST_IF");
    }
    return fd;
  }

  static int bound(int type, uint16_t port) {
    const int fd = ::socket(AF_INET, type | SOCK_CLOEXEC, 0);
    const int on = 1;
    (void)::setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    const sockaddr_in at = address(port);
    if (::bind(fd, reinterpret_cast<const sockaddr*>(&at), sizeof at) != 0) {
      throw std::runtime_error("bind");
    }
    return fd;
  }

  void append(const client::Bytes& message) {
    retained_[next_seq_++] = {offset_, message};
    assembled_.push_back(message);
    offset_ += message.size() + 2;
  }

  void serve_until_stopped() {
    while (!stopping_) {
      pollfd ready[] = {{gap_fd_, POLLIN, 0}, {snap_fd_, POLLIN, 0}};
      if (::poll(ready, 2, 5) <= 0) continue;
      if (ready[0].revents != 0) answer_gap_fill();
      if (ready[1].revents != 0) answer_snap();
    }
  }

  void answer_gap_fill() {
    uint8_t buffer[2048];
    sockaddr_in from{};
    socklen_t size = sizeof from;
    const ssize_t got =
        ::recvfrom(gap_fd_, buffer, sizeof buffer, 0, reinterpret_cast<sockaddr*>(&from), &size);
    if (got < 16) return;
    client::ByteReader request({buffer, static_cast<size_t>(got)}, "request");
    (void)request.take(12, "head");
    const uint32_t ranges = request.u32("count");
    const auto reply = [&](const client::Bytes& bytes) {
      (void)::sendto(gap_fd_, bytes.data(), bytes.size(), 0,
                     reinterpret_cast<const sockaddr*>(&from), size);
    };
    if (ranges == 0) return reply(heartbeat());
    const uint64_t first = request.u64("first");
    const uint64_t last = request.u64("last");
    for (const client::Bytes& bytes : replayed(first, last)) reply(bytes);
  }

  /// Packets of at most 45 messages of 30 bytes, 1000 messages in all.
  std::vector<client::Bytes> replayed(uint64_t first, uint64_t last) {
    const std::lock_guard lock(mutex_);
    std::vector<client::Bytes> packets;
    auto next = retained_.lower_bound(first);
    size_t budget = 1000;
    while (next != retained_.end() && next->first <= last && budget > 0) {
      const client::TpHeader header = hand_made::header(next->second.first, next->first);
      std::vector<client::Bytes> messages;
      for (; next != retained_.end() && next->first <= last && messages.size() < 45 && budget > 0;
           ++next, --budget) {
        messages.push_back(next->second.second);
      }
      packets.push_back(client::encode_tp_packet(header, messages));
    }
    return packets;
  }

  void answer_snap() {
    const int fd = ::accept(snap_fd_, nullptr, nullptr);
    uint8_t request[59];
    size_t got = 0;
    while (got < sizeof request) {
      const ssize_t piece = ::recv(fd, request + got, sizeof request - got, 0);
      if (piece <= 0) break;
      got += static_cast<size_t>(piece);
    }
    const client::Bytes reply = image();
    (void)::send(fd, reply.data(), reply.size(), MSG_NOSIGNAL);
    ::close(fd);
  }

  client::Bytes image() {
    const std::lock_guard lock(mutex_);
    std::vector<client::Bytes> messages = {
        hand_made::directory("AAPL"),        hand_made::system_event('R'),
        hand_made::trading_status("AAPL"),   hand_made::status('E', 'O', "AAPL"),
        hand_made::status('O', 'N', "AAPL"), hand_made::short_sale("AAPL")};
    for (auto level = bids_.rbegin(); level != bids_.rend(); ++level) {
      messages.push_back(hand_made::level({.size = level->second, .price = level->first}));
    }
    messages.push_back(hand_made::status('I', ' ', "AAPL"));
    client::Bytes frames;
    for (const client::Bytes& message : messages) {
      const client::Bytes segment =
          client::encode_tp_packet(hand_made::header(offset_, next_seq_ - 1), {message});
      client::put_u16(frames, static_cast<uint16_t>(segment.size() + 1));
      client::put_u8(frames, 'd');
      client::put_bytes(frames, segment);
    }
    client::Bytes reply = {9, 0, 's'};
    client::put_u64(reply, frames.size() + 22);
    client::put_bytes(reply, frames);
    client::put_bytes(reply, client::Bytes{9, 0, 'x'});
    client::put_u64(reply, next_seq_ - 1);
    return reply;
  }

  client::PortSlot slot_;
  int multicast_fd_ = -1;
  int gap_fd_ = -1;
  int snap_fd_ = -1;
  std::mutex mutex_;
  std::map<int64_t, uint32_t> bids_;
  std::map<uint64_t, std::pair<uint64_t, client::Bytes>> retained_;  // offset and message
  std::vector<client::Bytes> assembled_;
  uint64_t packet_offset_ = 0;
  uint64_t offset_ = 0;
  uint64_t next_seq_ = 1;
  std::atomic<bool> stopping_ = false;
  std::thread thread_;
};
