#include "tools/ladder/follower.h"

#include <chrono>
#include <exception>
#include <utility>
#include <variant>

#include "quorl/client/errors.h"
#include "quorl/client/gap_fill_client.h"

namespace ladder {
namespace {

namespace client = quorl::client;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr milliseconds LOOK_AROUND{50};  // how often the health is brought up to date
constexpr milliseconds FILL_PATIENCE{500};
constexpr milliseconds IMAGE_PATIENCE{3000};
constexpr milliseconds STATUS_PATIENCE{300};
constexpr milliseconds PAUSE{500};  // behind a failure

}  // namespace

Follower::Follower(const client::Ports& ports) : ports_(ports), thread_([this] { run(); }) {}

Follower::~Follower() {
  {
    const std::lock_guard lock(mutex_);
    stopping_ = true;
  }
  changed_.notify_all();
  thread_.join();
}

void Follower::look(const Look& look) const {
  const std::lock_guard lock(mutex_);
  look(market_, health_);
}

bool Follower::await_in_step(client::Deadline deadline) const {
  std::unique_lock lock(mutex_);
  while (health_.state != FeedState::IN_STEP) {
    if (deadline.expired()) return false;
    changed_.wait_for(lock, milliseconds(deadline.remaining_ms()));
  }
  return true;
}

void Follower::run() {
  while (!stopping_) {
    try {
      follow();
    } catch (const std::exception& failure) {
      show_trouble(failure.what());
      if (!pause_before_another_try()) return;
    }
  }
}

/// Follows one session from where it stands to its end.
void Follower::follow() {
  event_.clear();
  const bool known = next_session_.has_value();
  client::RecoveringSubscriber feed(
      ports_, std::exchange(next_session_, std::nullopt),
      {.endless = true,
       .fill_patience = FILL_PATIENCE,
       .image_patience = IMAGE_PATIENCE,
       .on_message = [this](uint64_t, const client::DeepMessage& message) { take(message); },
       .on_image = [this](const client::SnapImage& image) { take_image(image); }});
  if (!await_session(feed, known)) return;
  begin_session(feed.session().value());
  show(feed, FeedState::JOINING);
  try {
    feed.join();
  } catch (const std::exception& failure) {
    show_trouble(failure.what());
    look_for_another(feed);
    return;
  }
  try {
    watch_out(feed);
  } catch (...) {
    earlier_ = sum(earlier_, feed.counters());
    throw;
  }
}

/// Waits for the feed, for ever if any will do. False if it is to be tried anew, or to stop.
bool Follower::await_session(client::RecoveringSubscriber& feed, bool known) {
  const client::Deadline gone = client::Deadline::after(2 * SILENCE);
  while (!feed.await_feed(LOOK_AROUND)) {
    if (stopping_ || (known && gone.expired())) return false;
  }
  return true;
}

/// A session that cannot be joined may be what is left of an exchange that failed to start: another
/// one that is heard is tried next.
void Follower::look_for_another(client::RecoveringSubscriber& feed) {
  const auto heard = [this, &feed] { return feed.other_session() || stopping_; };
  if (feed.run_until(heard, PAUSE)) next_session_ = feed.other_session();
}

/// Until the exchange begins anew.
void Follower::watch_out(client::RecoveringSubscriber& feed) {
  while (!stopping_) {
    (void)feed.run_until([&feed] { return feed.other_session() || feed.rewound(); }, LOOK_AROUND);
    show(feed, feed.in_step() ? FeedState::IN_STEP : FeedState::RECOVERING);
    if (feed.rewound()) {
      next_session_ = feed.session();
      const std::lock_guard lock(mutex_);
      health_.session.reset();  // the same number, and yet another run
      return;
    }
    const auto other = feed.other_session();
    if (!other) continue;
    // A second exchange on the group, or one that failed to start, is heard as well; the one to
    // follow is the one that serves our ports.
    const bool own_is_silent = steady_clock::now() - feed.last_heard().value() > SILENCE;
    if (serves(*other) || own_is_silent) {
      next_session_ = other;
      return;
    }
    feed.forget_other_session();
  }
}

bool Follower::serves(uint32_t session) const {
  try {
    (void)client::GapFillClient(ports_.gap_fill, session).status(STATUS_PATIENCE);
    return true;
  } catch (const client::Timeout&) {
    return false;
  }
}

void Follower::begin_session(uint32_t session) {
  const std::lock_guard lock(mutex_);
  if (health_.session == session) return;  // a second attempt
  earlier_ = {};
  market_ = {};
  health_ = {.state = FeedState::JOINING, .session = session, .sessions = health_.sessions + 1};
}

/// Messages wait for the end of their event, so that nobody sees half of one.
void Follower::take(const client::DeepMessage& message) {
  event_.push_back(message);
  const auto* update = std::get_if<client::LevelUpdate>(&message);
  const bool open = std::holds_alternative<client::TradeReport>(message) ||
                    (update != nullptr && !update->last_of_event);
  if (open) return;
  const std::lock_guard lock(mutex_);
  for (const client::DeepMessage& part : event_) market_.apply(part);
  event_.clear();
}

void Follower::take_image(const client::SnapImage& image) {
  event_.clear();
  const std::lock_guard lock(mutex_);
  market_.apply_image(image);
}

void Follower::show(const client::RecoveringSubscriber& feed, FeedState state) {
  {
    const std::lock_guard lock(mutex_);
    health_.state = state;
    health_.next_seq = feed.next_seq();
    health_.counters = sum(earlier_, feed.counters());
    health_.last_heard = feed.last_heard();
    if (state == FeedState::IN_STEP) health_.trouble.clear();
  }
  changed_.notify_all();
}

void Follower::show_trouble(const std::string& trouble) {
  const std::lock_guard lock(mutex_);
  health_.state = health_.last_heard ? FeedState::JOINING : FeedState::WAITING;
  health_.trouble = trouble;
}

/// False if it is to stop.
bool Follower::pause_before_another_try() {
  std::unique_lock lock(mutex_);
  return !changed_.wait_for(lock, PAUSE, [this] { return stopping_.load(); });
}

}  // namespace ladder
