#pragma once

#include <netinet/in.h>

#include <cstddef>
#include <cstdint>
#include <span>
#include <utility>
#include <vector>

namespace quorl {

class TpPublisher;

/// A parsed gap-fill request. Ranges are inclusive, ascending and apart.
struct GapRequest {
  uint8_t kind = 0;  // 1 or 2; only 1 is served
  uint16_t protocol_id = 0;
  uint32_t channel_id = 0;
  uint32_t session_id = 0;
  std::vector<std::pair<uint64_t, uint64_t>> ranges;  // sequence numbers; none asks for the status
};

/// Reads one datagram of any size. False, with `out` in an unspecified state, if it is not well
/// formed: too short for its count of ranges, or with ranges out of order. Bytes behind the last
/// range are ignored.
bool parse_gap_request(const void* data, size_t size, GapRequest& out);

/// A non-blocking UDP socket on all addresses. -1 for port 0, and after a failed bind, which is
/// said on standard error and leaves the run without gap fill.
int open_gap_fill_port(uint16_t port);

/// Answers subscribers that ask for messages they have missed, from those that the publisher has
/// kept. The feed itself notices nothing of it.
class GapFill {
 public:
  struct Counts {
    uint64_t requests = 0;  // valid ones
    uint64_t messages = 0;  // replayed
    uint64_t rejects = 0;   // refused datagrams
  };

  /// Borrows both for its life; with -1 for `fd` there is no gap fill.
  GapFill(const TpPublisher& publisher, int fd);
  GapFill(const GapFill&) = delete;
  GapFill& operator=(const GapFill&) = delete;

  /// Answers every request that waits.
  void serve();

  const Counts& counts() const { return counts_; }

 private:
  void answer(std::span<const uint8_t> datagram, const sockaddr_in& from);
  void send_status(const sockaddr_in& to) const;
  void replay(uint64_t first, uint64_t last, uint64_t& budget, const sockaddr_in& to);

  const TpPublisher& publisher_;
  const int fd_;
  Counts counts_;
};

}  // namespace quorl
