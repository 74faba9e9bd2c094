#pragma once

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "quorl/client/port_slot.h"
#include "quorl/client/tcp.h"
#include "quorl/client/udp.h"

namespace client = quorl::client;

// The load generator: FIX sessions that send in bursts and check every reply, cheap enough to stay
// far below what it measures.

namespace perf {

/// What came is not what was due, or nothing came in time: the run is no measurement.
class WrongReply : public std::runtime_error {
 public:
  explicit WrongReply(const std::string& what) : std::runtime_error(what) {}
};

/// How long a burst may go without a byte of its replies. Counted in waits and in our own processor
/// time, so that a process that was halted for a while does not find its patience gone.
constexpr int REPLY_PATIENCE_S = 20;

/// How the load generator waits. On the server's own CPU it must sleep; on another one it spins, so
/// that no send of the server pays for waking it.
enum class Waiting { SLEEPING, SPINNING };

constexpr char BUY = '1';
constexpr char SELL = '2';
constexpr char DAY = '0';
constexpr char IMMEDIATE = '3';
constexpr char FILL_OR_KILL = '4';

// ExecType of the replies; a string of them is what one request is answered with, in order.
constexpr std::string_view ACCEPTED = "0";
constexpr std::string_view CANCELLED = "4";
constexpr std::string_view FILLED = "2";
constexpr std::string_view PARTLY_FILLED = "1";
constexpr std::string_view ACCEPTED_AND_FILLED = "02";

struct NewOrder {
  char side = BUY;
  uint32_t price_cents = 0;  // 0: a market order
  uint32_t quantity = 100;
  char tif = DAY;
  std::string_view symbol = "AAPL";
};

/// A request of a session: its n-th, from 0. Stands in the ClOrdID.
using RequestId = uint32_t;

/// One FIX session. Requests are queued, sent in one piece by `exchange`, and every reply is held
/// to what is due: MsgSeqNum without a hole, ClOrdID of a request that is owed something, ExecType
/// as expected.
class Session {
 public:
  Session(std::string comp_id, Waiting waiting);
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  /// Throws client::SystemError if the port refuses.
  void connect(uint16_t port);
  /// Logs on with 141=Y: both numbers begin at 1. Throws WrongReply.
  void log_on();
  /// By a reset, so that no port lingers.
  void disconnect() { stream_.abort(); }

  /// Queues a request. `replies` are the ExecTypes it is owed, now or later.
  RequestId new_order(const NewOrder& order, std::string_view replies);
  RequestId cancel(RequestId order, std::string_view replies = CANCELLED);
  /// Takes everything that rests on the other side, and waits for the replies.
  void sweep(char side);
  /// A further report will come for an earlier request.
  void will_hear(RequestId request, char exec_type);
  /// Its answer is owed.
  void test_request();

  /// Sends what is queued, then waits until nothing is owed. Throws WrongReply.
  void exchange();
  /// Sends what is queued.
  void send();
  /// Waits until nothing is owed. Throws WrongReply.
  void await_replies();

  /// Asks for these messages again, waits for the last and returns how many came with 43=Y. Throws
  /// WrongReply. Nothing must be owed. What does not fit into the socket's buffer is lost, since
  /// the exchange sends nothing twice: ask for a few thousand at a time.
  size_t fetch_again(uint32_t first, uint32_t last);
  /// The number of the last message received.
  uint32_t last_received() const { return next_in_ - 1; }

  void set_waiting(Waiting waiting) { waiting_ = waiting; }

  size_t requests() const { return due_.size(); }
  size_t queued() const { return queued_; }
  /// Heartbeats that came unasked.
  size_t heartbeats() const { return heartbeats_; }

 private:
  struct Due {
    std::string exec_types;
    size_t heard = 0;
    bool sweeps = false;  // any number of partial fills come in between
  };

  void append(std::string_view type, std::string_view body);
  size_t receive_some();
  std::string_view next_message();
  void check(std::string_view message);
  void check_report(std::string_view message, std::string_view cl_ord_id,
                    std::string_view exec_type);

  std::string comp_id_;
  Waiting waiting_;
  client::TcpStream stream_;
  uint32_t next_out_ = 1;
  uint32_t next_in_ = 1;
  std::string out_;
  std::vector<char> in_;
  size_t in_begin_ = 0;
  size_t in_end_ = 0;
  std::vector<Due> due_;
  size_t owed_ = 0;    // replies
  size_t queued_ = 0;  // requests since the last send
  size_t heartbeats_ = 0;
};

/// A subscriber of the feed that only counts: it reads the headers of the packets that wait.
class FeedCounter {
 public:
  explicit FeedCounter(const client::Ports& ports);

  /// Takes what waits in the socket. Throws WrongReply if the stream has a hole.
  void drain();
  /// Drains until what has been sent so far has arrived.
  void settle();
  /// Drains until `packets` packets with messages have come since the start. Throws WrongReply.
  void await_packets(uint64_t packets);

  uint64_t packets() const { return packets_; }  // without heartbeats
  uint64_t messages() const { return messages_; }

 private:
  client::UdpSocket socket_;
  uint64_t packets_ = 0;
  uint64_t messages_ = 0;
  uint64_t next_offset_ = 0;  // of the stream
  bool begun_ = false;
};

/// Sends `count` requests, `in_flight` at a time: `queue(i)` queues the i-th. The next burst leaves
/// when the one before has been answered in full, so that a server takes each burst in one turn of
/// its loop, however fast it is.
template <typename Queue>
void send_in_bursts(Session& session, FeedCounter& feed, size_t count, size_t in_flight,
                    Queue&& queue) {
  for (size_t i = 0; i < count; ++i) {
    queue(i);
    if (session.queued() < in_flight && i + 1 < count) continue;
    session.exchange();
    feed.drain();
  }
}

}  // namespace perf
