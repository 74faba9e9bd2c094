#include "certify/run/run.h"

#include <sys/stat.h>

#include <algorithm>
#include <exception>
#include <fstream>
#include <utility>

#include "certify/plan/actions.h"
#include "certify/report/report_json.h"
#include "certify/report/report_text.h"
#include "certify/run/belief_files.h"
#include "certify/run/verdict.h"

namespace certify {
namespace {

constexpr TimeNs LONGEST_WAIT = 20 * MILLISECOND;  // what is not polled for is looked at this often
constexpr TimeNs BETWEEN_LOOKS = MILLISECOND;      // at the plan
constexpr TimeNs BETWEEN_PROGRESS = 100 * MILLISECOND;

constexpr TimeNs SETTLING_PATIENCE = 2 * SECOND;
constexpr TimeNs SETTLED = 300 * MILLISECOND;  // nothing has passed for as long
constexpr TimeNs CLIENT_PATIENCE = 5 * SECOND;
constexpr TimeNs HURRIED_PATIENCE = 2 * SECOND;  // behind Ctrl-C somebody waits
constexpr TimeNs LAST_WORDS = 50 * MILLISECOND;  // what it sent last is still on its way
constexpr TimeNs EXCHANGE_PATIENCE = 5 * SECOND;

bool is_heartbeat(const Event& event) {
  const auto* const heard = std::get_if<FixHeard>(&event.what);
  return heard != nullptr && heard->message.type() == "0";
}

template <typename... Kinds>
bool is_one_of(const Event& event) {
  return (std::holds_alternative<Kinds>(event.what) || ...);
}

bool passed_the_taps(const Event& event) {
  return is_one_of<FixOpened, FixHeard, FixGarbage, FixEnded, GapRequested, GapReplied,
                   ImageRequested, ImageReplied>(event);
}

}  // namespace

Run::Run(const RunOptions& options, const tools::StopSignal& stop, RunWatcher& watcher)
    : options_(options), stop_(stop), watcher_(watcher), player_(options.plan) {
  result_.plan = options.plan;
  result_.seed = seed_of(options);
  result_.number_of_try = options.number_of_try;
  progress_.plan = options.plan.name;
}

Run::~Run() = default;

RunResult Run::go() {
  result_.began = now_ns();
  in_spite_of_failure([this] {
    begin();
    play();
    settle();
  });
  in_spite_of_failure([this] { end_client(); });
  in_spite_of_failure([this] { end_exchange(); });
  client_.reset();
  result_.ended = now_ns();
  in_spite_of_failure([this] { judge(); });
  stage_.reset();
  finish_recording();
  conclude(result_);
  write_reports();
  return std::move(result_);
}

/// What has been begun is ended whatever happens; the first failure is the one that is told.
template <typename Work>
void Run::in_spite_of_failure(const Work& work) {
  try {
    work();
  } catch (const std::exception& failure) {
    if (result_.broken.empty()) result_.broken = failure.what();
  }
}

// --- What happens ---

void Run::on_event(const Event& event) {
  if (passed_the_taps(event)) {
    if (client_started_ == 0) client_is_there(event.at);  // started by hand
    if (!is_heartbeat(event)) last_activity_ = std::max(last_activity_, event.at);
  }
  judge_counters_.on_event(event);
  if (recorder_) {
    recorder_->on_event(event);
  } else {
    early_.push_back(event);
  }
  if (judge_) judge_->on_event(event);
  if (const auto* const reply = std::get_if<GapReplied>(&event.what)) {
    progress_.filled += reply->packet.messages.size();
  }
}

void Run::tell(EventKind what) { on_event({now_ns(), std::move(what)}); }

void Run::client_is_there(TimeNs at) {
  client_started_ = at;
  last_activity_ = at;
  on_event({at, ClientStarted{}});
}

void Run::turn() {
  set_.clear();
  stage_->collect(set_);
  if (client_) client_->collect(set_);
  set_.push_back({stop_.fd(), POLLIN, 0});
  TimeNs wait = LONGEST_WAIT;
  if (const auto due = stage_->due()) wait = std::clamp<TimeNs>(*due - now_ns(), 0, wait);
  const timespec timeout{.tv_sec = 0, .tv_nsec = wait};
  (void)::ppoll(set_.data(), set_.size(), &timeout, nullptr);
  stopped_ = stopped_ || set_.back().revents != 0;
  stage_->serve(now_ns());
  if (client_) client_->take_output();
  note_standstill(wait);
}

/// A turn takes no time but that of its wait. What takes longer is the machine: a disk that does
/// not answer holds up the exchange and the client as well.
void Run::note_standstill(TimeNs wait) {
  const TimeNs now = now_ns();
  if (client_) {
    result_.stood_still = std::max(result_.stood_still, now - last_turn_ - wait);
  }
  last_turn_ = now;
}

template <typename Done>
bool Run::turn_until(TimeNs patience, const Done& done) {
  const TimeNs deadline = now_ns() + patience;
  while (!done()) {
    if (now_ns() > deadline) return false;
    turn();
  }
  return true;
}

// --- The phases ---

void Run::begin() {
  folder_ = std::make_unique<RunFolder>(options_.parent, options_.folder);
  result_.folder = folder_->path();
  EventListener& listener = *this;
  stage_ = std::make_unique<Stage>(options_, *folder_, listener);
  stage_->open(stop_.fd());
  const Surroundings surroundings = stage_->surroundings();
  judge_ =
      std::make_unique<Judge>(CheckContext{.plan = options_.plan,
                                           .feed_session = surroundings.session,
                                           .market_truth = folder_->file("truth/market.jsonl")});
  begin_recording(surroundings);
  watcher_.on_ready(options_, surroundings);
  if (!options_.command.empty()) start_client(surroundings);
}

void Run::begin_recording(const Surroundings& surroundings) {
  recorder_ = std::make_unique<Recorder>(
      folder_->path(), tools::endpoint_of(surroundings.group, surroundings.feed_port),
      surroundings.ports);
  for (const Event& event : early_) recorder_->on_event(event);
  early_.clear();
  stage_->record_with(*recorder_);
}

void Run::start_client(const Surroundings& surroundings) {
  ClientProcess::Command command{.environment = client::own_environment(),
                                 .out_path = folder_->file("client.out"),
                                 .err_path = folder_->file("client.err")};
  for (const auto& [name, value] : variables_of(surroundings)) command.environment[name] = value;
  for (const std::string& word : options_.command) {
    command.arguments.push_back(filled_in(word, surroundings));
    result_.client_command +=
        (result_.client_command.empty() ? "" : " ") + command.arguments.back();
  }
  command.program = found_program(command.arguments.front()).value_or(command.arguments.front());
  command.arguments.erase(command.arguments.begin());
  // What the feed has said by now, the client has come too late for.
  stage_->serve(now_ns());
  client_is_there(now_ns());
  last_turn_ = now_ns();
  client_ = std::make_unique<ClientProcess>(command);
}

void Run::play() {
  while (result_.ended_by.empty()) {
    turn();
    const TimeNs now = now_ns();
    if (client_) look_after_client(now);
    if (client_started_ != 0 && now - plan_looked_at_ >= BETWEEN_LOOKS) look_at_plan(now);
    if (now - progress_shown_ >= BETWEEN_PROGRESS) show_progress(now);
    if (stopped_) end_by_signal();
    if (!stage_->trouble().empty()) throw RunBroken(stage_->trouble());
  }
  tell(PlanSaid{"end: " + result_.ended_by});
}

// A client that somebody started by hand is ended by hand, too.
void Run::end_by_signal() {
  if (client_) throw RunBroken("stopped by a signal");
  if (client_started_ == 0) throw RunBroken("stopped by a signal before a client came");
  result_.ended_by = "a signal";
}

/// Once the process has ended, what it has left behind is ended, too.
void Run::look_after_client(TimeNs now) {
  if (client_over_ || !client_->has_ended() || !client_->over(now, CLIENT_PATIENCE)) return;
  if (client_gone_ == 0) client_gone_ = now;
  if (now - client_gone_ < LAST_WORDS) return;
  client_ended(true);
  if (client_->could_not_run() && judge_counters_.values().at("connects") == 0) {
    throw RunBroken("the client could not be started: " + client_->how() + "; see " +
                    folder_->file("client.err"));
  }
}

void Run::client_ended(bool by_itself) {
  client_over_ = true;
  result_.client_ended = client_->how();
  if (by_itself) left_with_ = client_->status();
  tell(ClientEnded{.how = client_->how(), .by_itself = by_itself});
}

void Run::look_at_plan(TimeNs now) {
  plan_looked_at_ = now;
  renew_moment(now);
  for (const Step* step : player_.due(moment_)) act(*step, now);
  if (auto why = player_.ended(moment_)) result_.ended_by = std::move(*why);
}

void Run::renew_moment(TimeNs now) {
  moment_.now = Milliseconds((now - client_started_) / MILLISECOND);
  moment_.last_activity = Milliseconds((last_activity_ - client_started_) / MILLISECOND);
  moment_.client_ended = client_over_;
  moment_.counters = stage_->counters();
  for (const auto& [name, value] : judge_counters_.values()) moment_.counters[name] = value;
}

void Run::act(const Step& step, TimeNs now) {
  const std::string& action = step.action;
  progress_.armed = action;
  tell(PlanSaid{"line " + std::to_string(step.line) + ": " + action});
  if (action.starts_with("link ")) {
    stage_->order_link(action.substr(5), now);
  } else if (action.starts_with("intrude ")) {
    stage_->intrude(std::stoul(action.substr(8)), now);
  } else {
    stage_->command(action, now);
  }
  if (const auto mark = mark_of(action)) {
    take_truth_book(*folder_, *mark, "truth-book.json");
    note_missing_belief(*mark);
    tell(BeliefTaken{.mark = *mark, .folder = take_belief(*folder_, options_.plan, *mark)});
  }
}

void Run::show_progress(TimeNs now) {
  progress_shown_ = now;
  const auto counter = [this](const char* name) {
    const auto found = stage_->counters().find(name);
    return found == stage_->counters().end() ? 0 : found->second;
  };
  progress_.elapsed = client_started_ == 0 ? 0 : now - client_started_;
  progress_.orders = counter("orders");
  progress_.fills = counter("fills");
  progress_.replayed = counter("replayed");
  progress_.images = judge_counters_.values().at("image_replies");
  watcher_.on_progress(progress_);
}

/// The market stands still, what is on its way arrives, and the counters are read once more.
void Run::settle() {
  const TimeNs began = now_ns();
  if (stage_->exchange_runs()) stage_->command("pause", began);
  const uint64_t counted = stage_->times_counted();
  turn_until(SETTLING_PATIENCE, [this, began, counted] {
    if (client_) look_after_client(now_ns());
    const bool counted_anew = !stage_->exchange_runs() || stage_->times_counted() > counted + 1;
    const bool quiet = now_ns() - last_activity_ >= SETTLED;
    return stopped_ || (counted_anew && quiet && truth_book_shows(began));
  });
  if (!stage_->trouble().empty()) throw RunBroken(stage_->trouble());
  keep_counters();
  take_truth_book(*folder_, "", "truth-book.json");
}

/// As the plan's requirements see them: what the client does on its way out does not count.
void Run::keep_counters() {
  if (!result_.counters.empty()) return;
  renew_moment(now_ns());
  result_.counters = moment_.counters;
}

/// The exchange writes its book four times a second. Whether the file is of later than `moment` and
/// than all that has passed, so that it shows it.
bool Run::truth_book_shows(TimeNs moment) const {
  constexpr TimeNs GRAIN = 10 * MILLISECOND;  // of the times of files
  if (!stage_->exchange_runs()) return true;
  struct stat about {};
  if (::stat(folder_->file("truth/book.json").c_str(), &about) != 0) return false;
  const TimeNs written = about.st_mtim.tv_sec * SECOND + about.st_mtim.tv_nsec;
  return written > std::max(moment, last_activity_) + GRAIN;
}

void Run::end_client() {
  if (!stage_ || client_started_ == 0) return;
  tell(Closing{result_.broken.empty() ? result_.ended_by : result_.broken});
  if (client_ && !client_over_) {
    client_->ask_to_end(now_ns());
    const TimeNs patience = stopped_ ? HURRIED_PATIENCE : CLIENT_PATIENCE;
    turn_until(patience + 2 * SECOND,
               [this, patience] { return client_->over(now_ns(), patience); });
    turn_until(LAST_WORDS, [] { return false; });
    client_ended(false);
  }
  if (client_ && client_->output_was_cut()) {
    tell(PlanSaid{"the client has printed more than is kept"});
  }
  turn_until(SECOND, [this] { return stopped_ || truth_book_shows(0); });
  take_truth_book(*folder_, "", "truth-book-after.json");
  note_missing_belief("");
  tell(BeliefTaken{.mark = "", .folder = take_belief(*folder_, options_.plan, "")});
}

void Run::end_exchange() {
  if (!stage_ || !stage_->is_open()) return;
  keep_counters();
  stage_->close_taps();
  stage_->ask_exchange_to_end();
  if (!turn_until(EXCHANGE_PATIENCE, [this] { return stage_->exchange_is_over(); })) {
    stage_->kill_exchange();
    turn_until(SECOND, [this] { return stage_->exchange_is_over(); });
  }
}

void Run::note_missing_belief(const std::string& mark) {
  const std::vector<std::string> missing = missing_belief(*folder_, options_.plan, mark);
  missing_belief_.insert(missing_belief_.end(), missing.begin(), missing.end());
}

void Run::judge() {
  if (!judge_) return;
  result_.verdicts = judge_->finish(result_.ended);
  result_.unmet = player_.unmet(result_.counters);
  for (const std::string& path : missing_belief_) {
    result_.unmet.push_back("what the client believes (there is no " + path + ")");
  }
  result_.not_done = player_.not_done();
  add_end_of_client();
  result_.tap_delay_median = stage_->tap_delay().median;
  result_.tap_delay_most = stage_->tap_delay().most;
}

/// A client that crashes has not survived, whatever it got right before. One that did nothing has
/// not been looked at.
void Run::add_end_of_client() {
  constexpr int SHELL_SAYS_SIGNAL = 128;  // and its number, of a command of its own
  constexpr int HIGHEST_SIGNAL = 31;
  if (left_with_) {
    const int over = left_with_->code - SHELL_SAYS_SIGNAL;
    if (!left_with_->exited || (over > 0 && over <= HIGHEST_SIGNAL)) {
      result_.unmet.push_back("a client that lives (it crashed: " + result_.client_ended + ")");
      return;
    }
  }
  const bool seen =
      std::any_of(result_.verdicts.begin(), result_.verdicts.end(), [](const Verdict& verdict) {
        return verdict.outcome == Outcome::PASSED || verdict.outcome == Outcome::FAILED;
      });
  if (!seen) {
    result_.unmet.push_back("a client that does something (no check was seen; it ended with " +
                            result_.client_ended + ")");
  }
}

void Run::finish_recording() {
  if (!recorder_) return;
  recorder_->finish();
  std::string trouble = recorder_->failure();
  if (trouble.empty() && !folder_->has_room()) trouble = "there is no room in " + folder_->path();
  if (result_.broken.empty()) result_.broken = std::move(trouble);
}

void Run::write_reports() {
  if (!folder_) return;
  std::ofstream text(folder_->file("report.txt"));
  write_report_text(result_, text);
  std::ofstream json(folder_->file("report.json"));
  write_report_json(result_, json);
}

}  // namespace certify
