#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <set>
#include <string>

#include "quorl/client/iex_tp.h"
#include "quorl/client/udp.h"
#include "tools/watch/feed_tracker.h"
#include "tools/watch/line_limiter.h"
#include "tools/watch/silence_watch.h"

namespace tools {

struct ViewOptions {
  std::string where = {};              // "GROUP:PORT", for what is said of silence
  std::string interface_address = {};  // likewise
  std::set<std::string> symbols = {};  // shown; empty: all messages, those without a symbol too
  bool with_time = false;              // each line begins with the time of its packet's arrival
  uint32_t lines_per_second = 0;       // 0: no limit
  uint64_t packets = 0;                // shown before it is done; 0: never done
};

/// The feed as lines. Of time it knows what it is told.
class View {
 public:
  using Moment = std::chrono::steady_clock::time_point;
  using Print = std::function<void(const std::string& line)>;  // without a line end

  View(ViewOptions options, Moment start, Print print);

  void on_datagram(const quorl::client::Datagram& datagram, Moment now,
                   std::chrono::system_clock::time_point clock);
  /// The kernel has thrown packets away since it was last asked, as they were not fetched in time.
  void on_kernel_drops(uint32_t count, Moment now, std::chrono::system_clock::time_point clock);

  /// When on_time has something to do.
  Moment next_due() const;
  void on_time(Moment now, std::chrono::system_clock::time_point clock);

  /// As many packets as asked for have been shown.
  bool done() const { return options_.packets > 0 && shown_ >= options_.packets; }
  bool has_heard() const { return tracker_.counts().packets > 0; }

  /// The last words: says what is still to be said of lines left out, and returns what has come in
  /// one line.
  std::string summary(Moment now);

 private:
  void show(const quorl::client::TpPacket& packet, const Judgement& judgement);
  bool is_wanted(const std::string& symbol) const;
  void say(const std::string& line, bool is_finding);
  void say_left_out(const LineLimiter::LeftOut& left_out);

  ViewOptions options_;
  Print print_;
  FeedTracker tracker_;
  LineLimiter limiter_;
  SilenceWatch silence_;
  Moment start_;
  Moment now_;         // of what is being shown
  std::string stamp_;  // in front of its lines
  uint64_t shown_ = 0;
  uint64_t strangers_ = 0;  // datagrams that are no packets
  uint64_t kernel_drops_ = 0;
};

/// "12:27:18.273456 ", in UTC.
std::string time_stamp(std::chrono::system_clock::time_point clock);

}  // namespace tools
