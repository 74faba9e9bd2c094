#include "tools/replay/replayer.h"

#include <poll.h>

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

#include "quorl/client/deep.h"
#include "quorl/client/errors.h"
#include "tools/capture/counted.h"

namespace client = quorl::client;

namespace tools {
namespace {

constexpr std::chrono::seconds BETWEEN_HEARTBEATS{1};
constexpr std::chrono::seconds BETWEEN_LOOKS_AT_CONNECTIONS{1};  // for those that ask too slowly

timespec to_timespec(std::chrono::nanoseconds span) {
  const auto seconds = std::chrono::floor<std::chrono::seconds>(span);
  return {static_cast<time_t>(seconds.count()), (span - seconds).count()};
}

void say_answer(const SnapAnswer& answer) {
  if (answer.error != 0) {
    std::fprintf(stderr, "quorl-replay: image refused with code %c\n", answer.error);
    return;
  }
  std::fprintf(stderr,
               "quorl-replay: image served at seq %llu (%zu bytes; requested minimum %llu)\n",
               static_cast<unsigned long long>(answer.seq), answer.bytes.size(),
               static_cast<unsigned long long>(answer.minimum_seq));
}

std::string text_of_message(const StreamMessage& message) {
  try {
    return client::describe(client::decode_deep(message.bytes));
  } catch (const client::WireError& unknown) {
    return unknown.what();
  }
}

/// "numbers 133 to 137", or what a heartbeat says.
std::string numbers_of(const Stream& stream, const RecordedPacket& packet) {
  const uint64_t first = stream.first_seq(packet);
  if (packet.is_heartbeat()) return "heartbeat, next is " + std::to_string(first);
  return "numbers " + std::to_string(first) + " to " +
         std::to_string(first + packet.header.message_count - 1);
}

}  // namespace

Replayer::Replayer(const ReplayOptions& options, const RecordedFeed& feed, const Stream& stream)
    : options_(options),
      feed_(feed),
      stream_(stream),
      sender_(endpoint_of(options.group, options.port), options.interface) {
  const uint16_t gap_fill_port = options.gap_fill_port.value_or(options.snap_port);
  if (gap_fill_port != 0) gap_fill_.emplace(gap_fill_port);
  if (options.snap_port != 0) {
    snap_.emplace(options.snap_port);
    snap_->on_answer = say_answer;
  }
}

uint32_t Replayer::session_of_round(uint64_t round) const {
  return options_.session.value_or(feed_.session) + static_cast<uint32_t>(round);
}

void Replayer::run() {
  round_ = std::make_unique<Round>(stream_, session_of_round(0));
  for (uint64_t i = 0; options_.rounds == 0 || i < options_.rounds; ++i) {
    ++counters_.rounds;
    if (!play(i)) return;
  }
  stay();
}

/// False if the replay is to end here.
bool Replayer::play(uint64_t round) {
  Pace pace(options_.speed);
  pace.begin(feed_.packets.front().time_ns, Clock::now());
  number_ = 0;
  for (size_t i = 0; i < feed_.packets.size(); ++i) {
    const RecordedPacket& packet = feed_.packets[i];
    if (!(options_.step ? step(i) : wait_until(pace.due(packet.time_ns)))) return false;
    // The last round is answered for until the first packet of the next leaves.
    if (i == 0) round_ = std::make_unique<Round>(stream_, session_of_round(round));
    send(packet);
  }
  return true;
}

/// Waits until the packet may go, and shows it.
bool Replayer::step(size_t index) {
  wait(Clock::now(), false);  // many steps may have been allowed at once
  while (!signal_.came() && !steps_.take()) {
    if (steps_.over()) return false;
    wait(std::nullopt, true);
    steps_.read_what_came();
  }
  if (signal_.came()) return false;
  const RecordedPacket& packet = feed_.packets[index];
  std::printf("packet %zu of %zu, %s\n", index + 1, feed_.packets.size(),
              numbers_of(stream_, packet).c_str());
  const size_t first = stream_.count_before(packet.header.stream_offset);
  for (size_t i = first; i < first + packet.header.message_count; ++i) {
    std::printf("  %s\n", text_of_message(stream_.messages()[i]).c_str());
  }
  return true;
}

void Replayer::send(const RecordedPacket& packet) {
  round_->pass(packet);
  if (!packet.is_heartbeat() && options_.drops.drops(++number_)) {
    ++counters_.dropped;
    std::fprintf(stderr, "quorl-replay: dropped packet %llu, %s\n",
                 static_cast<unsigned long long>(number_), numbers_of(stream_, packet).c_str());
  } else {
    sender_.send(round_->wire_bytes(packet));
    ++counters_.packets;
    counters_.messages += packet.header.message_count;
  }
  // Whoever follows the steps by a program sees the line once the packet is out.
  if (options_.step) std::fflush(stdout);
}

void Replayer::stay() {
  const Clock::time_point begin = Clock::now();
  const bool for_ever = options_.stay == std::chrono::nanoseconds::max();
  Clock::time_point beat = begin + BETWEEN_HEARTBEATS;
  for (; for_ever || beat <= begin + options_.stay; beat += BETWEEN_HEARTBEATS) {
    if (!wait_until(beat)) return;
    sender_.send(round_->heartbeat(static_cast<uint64_t>((beat - begin).count())));
  }
  wait_until(begin + options_.stay);
}

/// Serves until the moment, and once in any case. False if a signal has come.
bool Replayer::wait_until(Clock::time_point moment) {
  do {
    wait(moment, false);
    if (signal_.came()) return false;
  } while (Clock::now() < moment);
  return true;
}

/// Until the moment, a request, a signal or, if asked for, a step; then serves what has come.
void Replayer::wait(std::optional<Clock::time_point> until, bool for_a_step) {
  std::vector<pollfd> fds = {{signal_.fd(), POLLIN, 0}};
  if (for_a_step) fds.push_back({steps_.fd(), POLLIN, 0});
  if (gap_fill_) fds.push_back({gap_fill_->fd(), POLLIN, 0});
  if (snap_) snap_->add_to(fds);
  if (snap_ && snap_->has_connections()) {
    const Clock::time_point look = Clock::now() + BETWEEN_LOOKS_AT_CONNECTIONS;
    until = until ? std::min(*until, look) : look;
  }
  timespec left{};
  if (until) {
    left = to_timespec(
        std::max<std::chrono::nanoseconds>(*until - Clock::now(), std::chrono::nanoseconds(0)));
  }
  (void)::ppoll(fds.data(), fds.size(), until ? &left : nullptr, nullptr);
  if (gap_fill_) gap_fill_->serve(*round_);
  if (snap_) snap_->serve(*round_);
}

}  // namespace tools
