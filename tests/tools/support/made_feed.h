#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "quorl/client/bytes.h"
#include "quorl/client/iex_tp.h"
#include "tests/client/hand_made.h"
#include "tests/tools/support/capture_bytes.h"

/// A feed put together packet by packet, as an exchange would send it, a tenth of a second between
/// two packets.
class MadeFeed {
 public:
  struct Packet {
    uint64_t time_ns = 0;
    client::Bytes bytes;
  };

  explicit MadeFeed(uint32_t session = hand_made::SESSION, uint64_t begin_ns = hand_made::NOON)
      : session_(session), now_ns_(begin_ns) {}

  MadeFeed& packet(const std::vector<client::Bytes>& messages) { return add(messages, 0); }

  /// Its announced first number is one too high, as the exchange's is where a packet overflows.
  MadeFeed& packet_announced_high(const std::vector<client::Bytes>& messages) {
    return add(messages, 1);
  }
  MadeFeed& heartbeat() { return add({}, 0); }

  /// What the exchange begins with: one packet that names AAPL, with one bid and one offer.
  MadeFeed& opening() {
    return packet({hand_made::system_event('O'), hand_made::directory("AAPL"),
                   hand_made::trading_status("AAPL"), hand_made::status('O', 'N', "AAPL"),
                   hand_made::short_sale("AAPL"), hand_made::status('I', ' ', "AAPL"),
                   hand_made::system_event('S'), hand_made::system_event('R'),
                   hand_made::level({.type = '5', .size = 500, .price = 1900100}),
                   hand_made::level({.size = 300, .price = 1899900}),
                   hand_made::status('E', 'O', "AAPL")});
  }

  /// `count` packets of one message each, which raise a bid from 1 share on.
  MadeFeed& bids(uint32_t count) {
    for (uint32_t i = 1; i <= count; ++i) {
      packet({hand_made::level({.size = ++shares_, .price = 1890000})});
    }
    return *this;
  }

  const std::vector<Packet>& packets() const { return packets_; }
  std::vector<Packet>& packets() { return packets_; }

  /// On an Ethernet, to a group.
  capture_bytes::PcapFile on_file(const std::string& group, uint16_t port) const {
    capture_bytes::PcapFile file;
    add_to(file, group, port);
    return file;
  }
  void add_to(capture_bytes::PcapFile& file, const std::string& group, uint16_t port) const {
    for (const Packet& packet : packets_) {
      file.frame(packet.time_ns,
                 capture_bytes::ethernet(capture_bytes::udp_packet(group, port, packet.bytes)));
    }
  }

 private:
  MadeFeed& add(const std::vector<client::Bytes>& messages, uint64_t too_high) {
    client::TpHeader header = hand_made::header(offset_, next_seq_ + too_high);
    header.session_id = session_;
    header.send_time_ns = now_ns_;
    packets_.push_back({now_ns_, client::encode_tp_packet(header, messages)});
    now_ns_ += 100'000'000;
    next_seq_ += messages.size();
    for (const client::Bytes& message : messages) offset_ += message.size() + 2;
    return *this;
  }

  uint32_t session_;
  uint64_t now_ns_;
  uint64_t next_seq_ = 1;
  uint64_t offset_ = 0;
  uint32_t shares_ = 0;
  std::vector<Packet> packets_;
};
