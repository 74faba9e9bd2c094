#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

#include "certify/tap/link.h"
#include "certify/tap/pipe.h"
#include "certify/tap/sockets.h"
#include "certify/tap/tap_context.h"
#include "certify/tap/whole_prefix.h"

namespace certify {

/// One connection of the client with its fellow to the exchange. It moves when it is told to.
class StreamLine {
 public:
  /// Both sockets are in the poller, the exchange's is connecting. The others must live as long.
  StreamLine(Line line, Descriptor client, Descriptor exchange, TapContext& context,
             const Links& links);

  void on_ready(const ReadySocket& socket);
  /// Moves what can be moved, within bounds: due() tells if more could be at once.
  void move();
  /// Nothing more will come: to be destroyed.
  bool over() const { return from_client_.done && from_exchange_.done; }
  /// When move() should come next even if no socket becomes ready; it may be past.
  std::optional<TimeNs> due() const;

  /// The link is plain again in one direction.
  void on_cleared(Party from);
  /// Ends it on both sides by a reset that is nobody's. Not while it is being connected.
  void cut();
  /// The same, even then.
  void close();

 private:
  struct End {
    Descriptor socket;
    bool readable = false;
    bool writable = false;
    bool ended = false;   // nothing more will be read
    bool broken = false;  // a reset has been seen; what came before it may still be read
  };
  struct Way {
    enum class Last : uint8_t { NONE, ORDERLY, RESET };
    Pipe pipe;
    Last last = Last::NONE;  // what stands behind all that is in the pipe
    TimeNs last_due = 0;
    bool done = false;  // `last` has been passed on, or there is nobody to pass anything to
    bool late = true;   // what is here may have waited for the link or the receiver
  };

  End& end(Party party) { return party == Party::CLIENT ? client_ : exchange_; }
  const End& end(Party party) const { return party == Party::CLIENT ? client_ : exchange_; }
  Way& way(Party from) { return from == Party::CLIENT ? from_client_ : from_exchange_; }
  const Way& way(Party from) const { return from == Party::CLIENT ? from_client_ : from_exchange_; }
  const Link& link(Party from) const {
    return from == Party::CLIENT ? links_.to_exchange : links_.to_client;
  }

  bool finish_connecting();
  bool may_take(Party from) const;
  void take(Party from);
  void on_bytes(Party from, std::string_view bytes, int64_t arrived);
  void put(Party from, std::string bytes, int64_t arrived);
  void release_prefix(Party from);
  void on_orderly_end(Party from);
  void on_reset(Party from);
  void hand(Party from);
  bool hand_front(Party from);
  void on_handed(Party from, std::string_view bytes);
  void pass_end(Party from);
  bool end_is_next(Party from) const;
  void judge_lateness(Party from);
  void tell_ended(Party by, bool reset, bool by_link, uint64_t lost);

  Line line_;
  End client_;
  End exchange_;
  Way from_client_;
  Way from_exchange_;
  WholePrefix prefix_;  // of the client's messages, on their way into the pipe
  bool connected_ = false;
  TapContext& context_;
  const Links& links_;
};

}  // namespace certify
