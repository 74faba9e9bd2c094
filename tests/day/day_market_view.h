#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

namespace day {

/// A subscriber's book, from what came by the feed and in images. Lost packets leave it stale.
class MarketView {
 public:
  using Price4 = int64_t;  // ten-thousandths of a dollar
  struct Book {
    std::map<Price4, uint32_t, std::greater<>> bids;
    std::map<Price4, uint32_t> asks;
  };

  explicit MarketView(uint32_t session) : session_(session) {}

  void on_packet(const std::string& datagram);
  /// One DEEP SNAP reply. True if it is a whole image, which replaces everything.
  bool on_snap_reply(const std::string& bytes);

  const Book& book(const std::string& symbol) { return books_[symbol]; }
  uint64_t last_seq() const { return last_seq_; }
  uint32_t session() const { return session_; }

 private:
  uint32_t session_;
  uint64_t last_seq_ = 0;
  std::map<std::string, Book> books_;
};

}  // namespace day
