#include "tools/replay/replay.h"

#include <cstdio>
#include <memory>
#include <string>

#include "quorl/client/errors.h"
#include "tools/capture/capture_reader.h"
#include "tools/capture/counted.h"
#include "tools/exit_status.h"
#include "tools/replay/market.h"
#include "tools/replay/recording.h"
#include "tools/replay/replayer.h"
#include "tools/replay/stream.h"

namespace client = quorl::client;

namespace tools {
namespace {

void say(const std::string& text) { std::fprintf(stderr, "quorl-replay: %s\n", text.c_str()); }

/// Why there is nothing to replay.
std::string complaint(const Recording& recording, const ReplayOptions& options) {
  if (!recording.damage.empty() && recording.datagrams == 0) {
    return options.file + " is damaged: " + recording.damage;
  }
  uint64_t cut = 0;
  for (const RecordedFeed& feed : recording.feeds) cut += feed.cut;
  if (recording.feeds.empty()) {
    return options.file + " holds no packet of a feed (" + counted(recording.frames, "frame") +
           ", " + counted(recording.datagrams, "UDP datagram") + ")";
  }
  if (options.wish.group || options.wish.session) {
    std::string text = "the feed asked for is not in " + options.file + ", which holds";
    for (const RecordedFeed& feed : recording.feeds) text += " [" + describe(feed) + "]";
    return text;
  }
  if (cut > 0) {
    return options.file + " holds only the beginnings of packets: capture whole ones (" +
           counted(cut, "packet") + " cut)";
  }
  return options.file + " holds only damaged packets of a feed";
}

void say_what_was_chosen(const Recording& recording, const RecordedFeed& feed,
                         const ReplayOptions& options) {
  if (recording.feeds.size() == 1) return;
  std::string others;
  for (const RecordedFeed& other : recording.feeds) {
    if (&other != &feed) others += (others.empty() ? "" : "; ") + describe(other);
  }
  say(options.file + " holds " + counted(recording.feeds.size(), "feed") + ", replayed is " +
      describe(feed) + "; not: " + others);
}

void say_what_is_missing(const Stream& stream) {
  const auto& messages = stream.messages();
  uint64_t gaps = 0;
  uint64_t missing = 0;
  uint64_t unknown = 0;
  Market market;
  for (size_t i = 0; i < messages.size(); ++i) {
    if (!market.apply(messages[i].bytes)) ++unknown;
    if (i + 1 == messages.size() || stream.follows_on(i)) continue;
    ++gaps;
    missing += messages[i + 1].seq - messages[i].seq - 1;
  }
  if (!messages.empty() && !stream.begins_with_the_run()) {
    say("the recording begins in the middle of a run, with number " +
        std::to_string(messages.front().seq) +
        ": images show only what has been said from there on");
  }
  if (gaps > 0) {
    say("the recording lacks " + counted(missing, "message") + " in " + counted(gaps, "gap") +
        ": gap fill cannot bring them, and images may show levels that have changed since");
  }
  if (unknown > 0) {
    say(counted(unknown, "message") + " of unknown form: replayed as recorded, left out of images");
  }
}

/// True if the recording is all there.
bool say_what_is_damaged(const Recording& recording, const RecordedFeed& feed,
                         const ReplayOptions& options) {
  if (!recording.damage.empty()) {
    say(options.file + " ends in the middle (" + recording.damage + "): replayed is what is whole");
  }
  if (feed.cut > 0) {
    say(counted(feed.cut, "packet") + " left out: cut by the capture's snap length");
  }
  if (feed.damaged > 0) say(counted(feed.damaged, "packet") + " left out: damaged");
  return recording.damage.empty() && feed.cut == 0 && feed.damaged == 0;
}

void say_where_it_goes(const RecordedFeed& feed, const ReplayOptions& options, uint32_t session) {
  char seconds[32];
  std::snprintf(seconds, sizeof seconds, "%.1f", static_cast<double>(feed.span_ns()) / 1e9);
  say(counted(feed.packets.size(), "packet") + ", " + counted(feed.messages(), "message") + ", " +
      seconds + " seconds, to " + options.group + ":" + std::to_string(options.port) +
      " as session " + std::to_string(session));
}

void sum_up(const Replayer& replayer) {
  const Replayer::Counters& counters = replayer.counters();
  std::string text =
      "sent " + counted(counters.packets, "packet") + ", " + counted(counters.messages, "message");
  if (counters.rounds > 1) text += " in " + counted(counters.rounds, "round");
  if (counters.dropped > 0) text += ", dropped " + counted(counters.dropped, "packet");
  if (const auto& gap_fill = replayer.gap_fill()) {
    text += "; gap fill: " + counted(gap_fill->requests(), "request") + ", " +
            counted(gap_fill->messages(), "message");
    if (gap_fill->refused() > 0) text += ", " + std::to_string(gap_fill->refused()) + " refused";
  }
  if (const auto& snap = replayer.snap()) text += "; " + counted(snap->images(), "image");
  say(text);
}

int replay_or_throw(const ReplayOptions& options) {
  const Recording recording = read_recording(options.file);
  const RecordedFeed* feed = choose_feed(recording, options.wish);
  if (feed == nullptr) {
    say(complaint(recording, options));
    return USED_WRONGLY;
  }
  const Stream stream(*feed);
  std::unique_ptr<Replayer> replayer;
  try {
    replayer = std::make_unique<Replayer>(options, *feed, stream);
  } catch (const client::SystemError& failure) {
    say(failure.what());
    return USED_WRONGLY;
  }
  say_what_was_chosen(recording, *feed, options);
  const bool whole = say_what_is_damaged(recording, *feed, options);
  say_what_is_missing(stream);
  say_where_it_goes(*feed, options, replayer->session_of_round(0));
  try {
    replayer->run();
  } catch (const client::SystemError& failure) {
    say(failure.what());
    sum_up(*replayer);
    return SAID_NO;
  }
  sum_up(*replayer);
  return whole ? GOOD : SAID_NO;
}

}  // namespace

int replay(const ReplayOptions& options) {
  try {
    return replay_or_throw(options);
  } catch (const UnusableCapture& unusable) {
    say(unusable.what());
  } catch (const client::WireError& contradiction) {
    say(options.file + " holds packets that contradict each other: " + contradiction.what());
  }
  return USED_WRONGLY;
}

}  // namespace tools
