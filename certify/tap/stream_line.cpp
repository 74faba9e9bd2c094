#include "certify/tap/stream_line.h"

#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <string>
#include <utility>

namespace certify {
namespace {

/// Whoever sends faster than can be passed on must not hold up the other lines.
constexpr int MOST_READS_AT_ONCE = 8;

Party other(Party party) { return party == Party::CLIENT ? Party::EXCHANGE : Party::CLIENT; }

}  // namespace

StreamLine::StreamLine(Line line, Descriptor client, Descriptor exchange, TapContext& context,
                       const Links& links)
    : line_(line),
      client_{.socket = std::move(client)},
      exchange_{.socket = std::move(exchange)},
      context_(context),
      links_(links) {}

void StreamLine::on_ready(const ReadySocket& socket) {
  const Party party = socket.place == ReadySocket::Place::CLIENT ? Party::CLIENT : Party::EXCHANGE;
  End& which = end(party);
  if (!which.socket.open()) return;
  which.readable |= socket.readable;
  which.writable |= socket.writable;
  which.broken |= socket.broken;
}

void StreamLine::move() {
  if (!connected_ && !finish_connecting()) return;
  for (const Party from : {Party::CLIENT, Party::EXCHANGE}) {
    take(from);
    hand(from);
  }
  for (const Party from : {Party::CLIENT, Party::EXCHANGE}) judge_lateness(from);
}

/// Returns whether it is connected. If nobody answers, the line is over.
bool StreamLine::finish_connecting() {
  if (!exchange_.writable && !exchange_.readable) return false;
  const int error = pending_error(exchange_.socket);
  // A reset comes from one who had taken the connection.
  exchange_.broken = error == ECONNRESET || error == EPIPE;
  connected_ = error == 0 || exchange_.broken;
  if (connected_ && is_connected_to_itself(exchange_.socket)) connected_ = false;
  context_.listener.on_opened(line_, connected_, context_.now);
  if (connected_) return true;
  client_.socket.reset();
  exchange_.socket.close();
  from_client_.done = from_exchange_.done = true;
  return false;
}

/// A full pipe holds up bytes, but not the news of a reset: that waits for no reader.
bool StreamLine::may_take(Party from) const {
  const End& sender = end(from);
  if (!sender.readable || !sender.socket.open()) return false;
  if (sender.ended) return sender.broken;
  if (from == Party::EXCHANGE && way(from).done) return false;
  return sender.broken || way(from).pipe.has_room();
}

void StreamLine::take(Party from) {
  End& sender = end(from);
  for (int i = 0; i < MOST_READS_AT_ONCE && may_take(from); ++i) {
    if (sender.ended) return on_reset(from);  // behind its orderly end
    const Received got = receive(sender.socket, context_.buffer.data(), context_.buffer.size());
    if (got.size > 0) {
      on_bytes(from, {context_.buffer.data(), static_cast<size_t>(got.size)}, got.arrived);
      continue;
    }
    const int error = errno;
    release_prefix(from);
    if (got.size == 0 && !sender.broken) {
      on_orderly_end(from);
    } else if (got.size < 0 && error == EAGAIN && !sender.broken) {
      sender.readable = false;
    } else {
      return on_reset(from);
    }
  }
}

void StreamLine::on_bytes(Party from, std::string_view bytes, int64_t arrived) {
  const TimeNs now = context_.now;
  if (from == Party::CLIENT) {
    context_.listener.on_passed(
        {.line = line_, .from = from, .bytes = bytes, .taken = now, .told = now});
  }
  if (from == Party::CLIENT && line_.service == Service::FIX) {
    return put(from, prefix_.join(bytes, bytes.size() == context_.buffer.size()), arrived);
  }
  put(from, std::string(bytes), arrived);
}

void StreamLine::release_prefix(Party from) {
  if (from == Party::CLIENT && prefix_.holds()) put(from, prefix_.release(), 0);
}

void StreamLine::put(Party from, std::string bytes, int64_t arrived) {
  const TimeNs now = context_.now;
  Way& taken_by = way(from);
  if (taken_by.done || bytes.empty()) return;  // the exchange is gone: they get lost on their way
  const bool measured = !taken_by.late && link(from).plain(now);
  taken_by.pipe.put({.bytes = std::move(bytes),
                     .taken = now,
                     .due = now + link(from).draw_delay(context_.random),
                     .arrived = measured ? arrived : 0});
}

void StreamLine::on_orderly_end(Party from) {
  Way& ending = way(from);
  end(from).ended = true;
  if (from == Party::CLIENT) tell_ended(from, false, false, 0);
  if (ending.done) return;
  ending.last = Way::Last::ORDERLY;
  ending.last_due = context_.now + link(from).draw_delay(context_.random);
}

/// What is on its way to who has reset finds nobody; what it had sent before still goes on.
void StreamLine::on_reset(Party from) {
  end(from) = {.socket = Descriptor(), .ended = true};
  Way& towards = way(other(from));
  if (from == Party::CLIENT) tell_ended(from, true, false, towards.pipe.bytes());
  towards.pipe.clear();
  towards.done = true;
  Way& ending = way(from);
  ending.done = !end(other(from)).socket.open();
  ending.last = Way::Last::RESET;
  ending.last_due = context_.now + link(from).draw_delay(context_.random);
}

void StreamLine::hand(Party from) {
  while (end(other(from)).writable && way(from).pipe.ready(link(from), context_.now)) {
    if (!hand_front(from)) break;
  }
  pass_end(from);
}

/// Returns whether the receiver took something.
bool StreamLine::hand_front(Party from) {
  End& receiver = end(other(from));
  const std::string_view share = way(from).pipe.share(link(from));
  const ssize_t sent = send(receiver.socket, share);
  if (sent >= 0) {
    way(from).late |= static_cast<size_t>(sent) < share.size();
    on_handed(from, share.substr(0, static_cast<size_t>(sent)));
    return true;
  }
  receiver.writable = false;
  way(from).late = true;
  if (errno != EAGAIN) receiver.broken = receiver.readable = true;
  return false;
}

void StreamLine::on_handed(Party from, std::string_view bytes) {
  Way& passing = way(from);
  const TimeNs now = context_.now;
  const TimeNs taken = passing.pipe.front().taken;
  const int64_t arrived = passing.late ? 0 : passing.pipe.front().arrived;
  if (arrived != 0) context_.delay.add(DelayFigures::clock_ns() - arrived);
  if (from == Party::EXCHANGE) {
    context_.listener.on_passed(
        {.line = line_, .from = from, .bytes = bytes, .taken = taken, .told = now});
  }
  (void)passing.pipe.pass(bytes.size(), now);
}

/// An orderly end waits until all has been handed over; a reset only for the link.
bool StreamLine::end_is_next(Party from) const {
  const Way& ending = way(from);
  if (ending.done || ending.last == Way::Last::NONE) return false;
  return ending.pipe.empty() || (ending.last == Way::Last::RESET && !end(other(from)).writable);
}

void StreamLine::pass_end(Party from) {
  Way& ending = way(from);
  const TimeNs due = std::max(ending.last_due, ending.pipe.last_due());
  if (!end_is_next(from) || link(from).holds(context_.now) || due > context_.now) return;
  End& receiver = end(other(from));
  const bool reset = ending.last == Way::Last::RESET;
  const uint64_t lost = ending.pipe.bytes();
  ending.done = true;
  ending.pipe.clear();
  if (reset) {
    receiver.socket.reset();
    way(other(from)).done = true;
  } else {
    (void)::shutdown(receiver.socket.get(), SHUT_WR);  // fails if reset: that will be read
  }
  if (from == Party::EXCHANGE) tell_ended(from, reset, false, lost);
}

/// Once a pipe is seen empty and its sender has nothing more, what comes next waits for nobody.
void StreamLine::judge_lateness(Party from) {
  Way& passing = way(from);
  if (!passing.pipe.empty() || !link(from).plain(context_.now)) {
    passing.late = true;
  } else if (!end(from).readable) {
    passing.late = false;
  }
}

std::optional<TimeNs> StreamLine::due() const {
  std::optional<TimeNs> first;
  if (!connected_) return first;
  const auto consider = [&first](std::optional<TimeNs> due) {
    if (due && (!first || *due < *first)) first = due;
  };
  for (const Party from : {Party::CLIENT, Party::EXCHANGE}) {
    const Way& passing = way(from);
    if (may_take(from)) consider(context_.now);
    if (!passing.pipe.empty() && end(other(from)).writable) {
      consider(passing.pipe.next_due(link(from), context_.now));
    }
    if (!end_is_next(from)) continue;
    const TimeNs due = std::max(passing.last_due, passing.pipe.last_due());
    const std::optional<TimeNs> held = link(from).holds_until();
    if (held) consider(std::max(due, *held));
  }
  return first;
}

void StreamLine::on_cleared(Party from) {
  way(from).pipe.forget_times();
  way(from).last_due = 0;
}

void StreamLine::cut() {
  if (connected_) close();
}

void StreamLine::close() {
  if (over()) return;
  const uint64_t lost = from_exchange_.pipe.bytes();
  client_.socket.reset();
  exchange_.socket.reset();
  from_client_.done = from_exchange_.done = true;
  if (connected_) {
    tell_ended(Party::EXCHANGE, true, true, lost);
  } else {
    context_.listener.on_opened(line_, false, context_.now);
  }
}

void StreamLine::tell_ended(Party by, bool reset, bool by_link, uint64_t lost) {
  context_.listener.on_ended({.line = line_,
                              .by = by,
                              .reset = reset,
                              .by_link = by_link,
                              .lost = lost,
                              .at = context_.now});
}

}  // namespace certify
