#include "certify/trader/trader.h"

#include <poll.h>

#include <algorithm>
#include <cstdio>
#include <utility>

#include "quorl/client/bytes.h"
#include "quorl/client/deadline.h"
#include "quorl/client/errors.h"
#include "tools/seconds.h"

namespace certify::trader {
namespace {

namespace client = quorl::client;
using std::chrono::steady_clock;

constexpr Milliseconds CONNECT_PATIENCE{1000};
constexpr Milliseconds SEND_PATIENCE{1000};
constexpr Milliseconds ANSWER_PATIENCE{1500};  // then it is asked whether an order arrived
constexpr Milliseconds LEAST_WAIT{20};         // between two looks whether it may trade
constexpr Milliseconds BELIEF_PERIOD{250};
constexpr Milliseconds LAST_OF_SESSION{1500};  // to fetch what is missing, before it logs out
constexpr Milliseconds LAST_OF_FEED{2000};

/// Milliseconds since the Unix epoch in 36 digits, so that no two starts share a name.
std::string prefix_of_start() {
  constexpr std::string_view DIGITS = "0123456789abcdefghijklmnopqrstuvwxyz";
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  auto number = static_cast<uint64_t>(std::chrono::duration_cast<Milliseconds>(now).count());
  std::string prefix;
  for (; number != 0; number /= DIGITS.size()) prefix += DIGITS[number % DIGITS.size()];
  return {prefix.rbegin(), prefix.rend()};
}

}  // namespace

Trader::Trader(TraderOptions options, Habits& habits, const tools::StopSignal& stop)
    : options_(std::move(options)),
      habits_(habits),
      stop_(stop),
      session_(options_.session, habits, *this),
      strategy_(options_.strategy, session_, desk_, prefix_of_start()),
      belief_(options_.belief, habits),
      market_(options_.feed ? habits.follow_market(options_.ports)
                            : std::make_unique<MarketView>()),
      began_(steady_clock::now()) {}

bool Trader::run() {
  while (!session_.over()) turn();
  if (session_.was_up()) (void)market_->await_in_step(client::Deadline::after(LAST_OF_FEED));
  belief_.finish(desk_, *market_);
  return session_.was_up();
}

void Trader::turn() {
  wait(steady_clock::now());
  const Moment now = steady_clock::now();
  if (!leave_by_ && wants_to_leave(now)) leave_by_ = now + LAST_OF_SESSION;
  receive(now);
  session_.on_time(now);
  close_if_hung_up(now);
  connect(now);
  if (!leave_by_) {
    trade(now);
    habits_.on_turn(*this, now);
  } else if (now >= *leave_by_ || session_.ready() || !session_.was_up()) {
    session_.log_out(now);
  }
  close_if_hung_up(now);
  write_belief(now);
}

bool Trader::wants_to_leave(Moment now) const {
  return stop_.came() || strategy_.done() || (options_.time && now >= began_ + *options_.time);
}

void Trader::wait(Moment now) {
  const Moment strategy_due = std::max(strategy_.next_due(), now + LEAST_WAIT);
  Moment due = std::min({session_.next_due(), strategy_due, belief_at_});
  if (hung_up_) due = now;
  pollfd ready[] = {{stop_.fd(), POLLIN, 0}, {stream_.fd(), POLLIN, 0}};
  if (leave_by_) ready[0].fd = -1;  // it stays readable
  (void)::poll(ready, std::size(ready), tools::milliseconds_until(due));
}

void Trader::connect(Moment now) {
  if (stream_.open() || !session_.connect_at() || now < *session_.connect_at()) return;
  try {
    stream_ = client::TcpStream::connect(options_.host, options_.ports.fix,
                                         client::Deadline::after(CONNECT_PATIENCE));
  } catch (const std::exception& failure) {
    on_remark(failure.what());
    return session_.on_no_connection(now);
  }
  hung_up_ = false;
  session_.on_connected(now);
}

void Trader::receive(Moment now) {
  if (!stream_.open()) return;
  client::Bytes bytes;
  (void)stream_.receive(bytes, client::Deadline::after(Milliseconds(0)));
  if (!bytes.empty()) session_.on_bytes(client::to_text(bytes), now);
  if (stream_.ended()) hung_up_ = true;
}

void Trader::close_if_hung_up(Moment now) {
  if (!hung_up_ || !stream_.open()) return;
  stream_ = {};
  hung_up_ = false;
  session_.on_disconnected(now);
}

/// A line that takes nothing any more is as good as gone.
void Trader::on_bytes_to_send(std::string_view bytes) {
  if (!stream_.open() || hung_up_) return;
  try {
    if (stream_.send_all(client::to_bytes(bytes), client::Deadline::after(SEND_PATIENCE))) return;
  } catch (const std::exception& failure) {
    on_remark(failure.what());
  }
  hung_up_ = true;
}

void Trader::on_report(const client::FixMessage& message, ReportPlace place) {
  const bool is_new = desk_.on_report(message, place, steady_clock::now());
  if (is_new || !habits_.takes_each_report_once()) belief_.note(message, place);
}

void Trader::on_remark(const std::string& remark) {
  std::printf("%s %s\n", client::fix_timestamp_now().c_str(), remark.c_str());
  std::fflush(stdout);
}

void Trader::trade(Moment now) {
  desk_.settle(session_.settled());
  const auto unanswered = desk_.unanswered_since();
  if (unanswered && now - *unanswered >= ANSWER_PATIENCE && session_.ready()) session_.settle(now);
  strategy_.act(*market_, now);
}

void Trader::write_belief(Moment now) {
  if (now < belief_at_) return;
  belief_at_ = now + BELIEF_PERIOD;
  belief_.write(desk_, *market_, session_.complete_below());
}

}  // namespace certify::trader
