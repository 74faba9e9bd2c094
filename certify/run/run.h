#pragma once

#include <poll.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "certify/checks/check.h"
#include "certify/plan/judge_counters.h"
#include "certify/plan/player.h"
#include "certify/record/recorder.h"
#include "certify/report/progress_line.h"
#include "certify/report/run_result.h"
#include "certify/run/client_process.h"
#include "certify/run/run_folder.h"
#include "certify/run/run_options.h"
#include "certify/run/stage.h"
#include "tools/stop_signal.h"

namespace certify {

/// Hears how a run goes, from within it. Runs beside each other tell it each from its own thread.
class RunWatcher {
 public:
  virtual ~RunWatcher() = default;
  /// The exchange serves; a client that somebody starts by hand is awaited now.
  virtual void on_ready(const RunOptions& options, const Surroundings& surroundings) = 0;
  virtual void on_progress(const Progress& progress) = 0;
};

/// One run of one plan: an exchange, taps, a client, the plan, the verdict, the folder. Everything
/// that it has started is over when it ends, however it ends.
class Run : private EventListener {
 public:
  /// All must live as long.
  Run(const RunOptions& options, const tools::StopSignal& stop, RunWatcher& watcher);
  ~Run() override;

  /// Makes the run, once. Nothing is thrown: what kept it from proving anything stands in `broken`.
  RunResult go();

 private:
  void on_event(const Event& event) override;
  void tell(EventKind what);
  void client_is_there(TimeNs at);
  void client_ended(bool by_itself);

  void begin();
  void begin_recording(const Surroundings& surroundings);
  void start_client(const Surroundings& surroundings);
  void play();
  void settle();
  void keep_counters();
  void end_client();
  void end_exchange();
  void note_missing_belief(const std::string& mark);
  void judge();
  void finish_recording();
  void write_reports();

  void turn();
  void note_standstill(TimeNs wait);
  template <typename Done>
  bool turn_until(TimeNs patience, const Done& done);
  template <typename Work>
  void in_spite_of_failure(const Work& work);

  void look_at_plan(TimeNs now);
  void renew_moment(TimeNs now);
  void act(const Step& step, TimeNs now);
  void look_after_client(TimeNs now);
  void end_by_signal();
  void add_end_of_client();
  void show_progress(TimeNs now);
  bool truth_book_shows(TimeNs moment) const;

  const RunOptions& options_;
  const tools::StopSignal& stop_;
  RunWatcher& watcher_;
  RunResult result_;
  std::unique_ptr<RunFolder> folder_;
  std::unique_ptr<Judge> judge_;
  std::unique_ptr<Recorder> recorder_;
  std::vector<Event> early_;  // what happened before there was a recorder
  std::unique_ptr<Stage> stage_;
  std::unique_ptr<ClientProcess> client_;
  PlanPlayer player_;
  JudgeCounters judge_counters_;
  Moment moment_;
  Progress progress_;
  std::vector<pollfd> set_;
  TimeNs client_started_ = 0;  // 0: not yet
  TimeNs last_activity_ = 0;   // of anything but heartbeats at the taps
  TimeNs plan_looked_at_ = 0;
  TimeNs progress_shown_ = 0;
  TimeNs client_gone_ = 0;  // 0: its processes are there
  bool client_over_ = false;
  std::optional<quorl::client::ExitStatus> left_with_;  // if the client ended by itself
  TimeNs last_turn_ = 0;                                // its end
  std::vector<std::string> missing_belief_;             // files that the plan names
  bool stopped_ = false;                                // by a signal
};

}  // namespace certify
