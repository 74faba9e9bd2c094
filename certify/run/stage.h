#pragma once

#include <poll.h>

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "certify/record/events.h"
#include "certify/record/recorder.h"
#include "certify/record/wire_reader.h"
#include "certify/run/control_link.h"
#include "certify/run/event_tail.h"
#include "certify/run/exchange_process.h"
#include "certify/run/feed_ear.h"
#include "certify/run/intruder.h"
#include "certify/run/placeholders.h"
#include "certify/run/run_folder.h"
#include "certify/run/run_options.h"
#include "certify/run/tap_tee.h"
#include "certify/tap/taps.h"

namespace certify {

/// What stands in front of a client: an exchange of its own behind taps, and the judge's ears on
/// all that it says. Driven by the caller's loop: collect, poll, serve.
class Stage : private EventListener {
 public:
  /// What happens is told to the listener, who must live as long, as must the rest.
  Stage(const RunOptions& options, const RunFolder& folder, EventListener& listener);

  /// Once open: writes down the bytes, from now on.
  void record_with(Recorder& recorder);

  /// Starts the exchange and waits until it serves, or until `stop` is readable. Throws RunBroken
  /// and quorl::client::SystemError.
  void open(int stop);

  /// Once open: where a client finds it.
  Surroundings surroundings() const;

  void collect(std::vector<pollfd>& set) const;
  std::optional<TimeNs> due() const { return taps_->due(); }
  void serve(TimeNs now);

  /// To the control port. Told as Commanded once it is answered.
  void command(const std::string& text, TimeNs now);
  void order_link(const std::string& text, TimeNs now) { taps_->order_link(text, now); }
  /// Has a stranger log on under the client's name, with a number `ahead` above its next.
  void intrude(uint64_t ahead, TimeNs now);
  /// All that was said to the control port is answered, and no stranger is there.
  bool acknowledged() const;

  /// What the exchange said last when it was asked for its counters.
  const std::map<std::string, uint64_t>& counters() const { return counters_; }
  uint64_t times_counted() const { return times_counted_; }

  bool is_open() const { return taps_ != nullptr; }
  bool exchange_runs() const { return !exchange_end_; }
  /// It has ended, and all that it said has been heard.
  bool exchange_is_over() const { return exchange_end_ && exchange_->fd() < 0; }
  /// Why nothing can be proved any more: the exchange ended though nobody told it to, or does not
  /// answer. Empty as long as all is well.
  std::string trouble() const;

  /// The connections are closed.
  void close_taps() { taps_->close(); }
  /// SIGTERM; exchange_is_over() tells when it has followed.
  void ask_exchange_to_end();
  void kill_exchange();

  Taps::Delay tap_delay() const { return taps_->delay(); }
  uint32_t packets_missed() const { return ear_->missed(); }
  uint64_t strange_lines() const { return tail_->strange_lines(); }

 private:
  void hear(quorl::client::ByteView packet);
  void hear_exchange(TimeNs now);
  void take_replies(TimeNs now);
  void take_decisions();
  void on_event(const Event& event) override;  // of the taps
  void tell(TimeNs at, EventKind what);

  const RunOptions& options_;
  const RunFolder& folder_;
  EventListener& listener_;
  std::unique_ptr<ExchangeProcess> exchange_;
  std::unique_ptr<FeedEar> ear_;
  std::unique_ptr<ControlLink> control_;
  std::unique_ptr<EventTail> tail_;
  std::unique_ptr<WireReader> reader_;
  std::unique_ptr<TapTee> tee_;  // to the recorder and the reader
  Recorder* recorder_ = nullptr;
  std::unique_ptr<Taps> taps_;
  std::unique_ptr<Intruder> intruder_;
  uint32_t session_ = 0;
  std::string comp_id_;    // that the client used last; empty: none
  uint64_t next_seq_ = 1;  // of the client under that name
  std::map<std::string, uint64_t> counters_;
  uint64_t times_counted_ = 0;
  TimeNs asked_at_ = 0;  // for the counters
  bool told_to_stop_ = false;
  bool does_not_answer_ = false;
  std::optional<quorl::client::ExitStatus> exchange_end_;
};

}  // namespace certify
