#include "stories/event_words.h"
#include "stories/feed_words.h"
#include "stories/telling.h"

namespace stories {
namespace {

bool is_beat(const FixMessage& message) { return message.type() == "0" && !message.has(112); }

}  // namespace

void Telling::collect() {
  for (const std::string& connection : open_) collect_from(connection, false);
  collect_feed(/*wait=*/false);
  for (std::string& line : world_.take_lines()) {
    note("   log: " + line);
    lines_.push_back(std::move(line));
  }
  for (const client::OrderEvent& event : world_.take_events()) {
    note("   event: " + words_of(event));
    if (story_.names_events) events_.push_back(words_of(event));
  }
}

void Telling::collect_feed(bool wait) {
  for (client::DeepMessage& message : world_.take_feed(wait)) {
    note("   feed: " + words_of(message, with_symbols_, true));
    feed_.push_back(std::move(message));
  }
}

void Telling::collect_from(const std::string& connection, bool wait) {
  std::deque<FixMessage>& waiting = fix_.waiting(connection);
  const size_t before = waiting.size();
  do {
    const std::string bytes = world_.take_bytes(connection, wait);
    if (bytes.empty()) break;
    fix_.take(connection, bytes);
  } while (wait && waiting.size() == before);
  for (size_t i = before; i < waiting.size(); ++i) {
    note("   " + connection + " hears: " + waiting[i].text());
  }
}

void Telling::demand_nothing_else() {
  collect();
  for (const std::string& connection : open_) {
    drop_beats(connection);
    if (!fix_.waiting(connection).empty()) {
      fail("not named: " + connection + " hears " + fix_.waiting(connection).front().text());
    }
    if (fix_.pending(connection) != 0) fail("not named: " + connection + " hears half a message");
    if (world_.closed(connection, false)) fail("not named: " + connection + " is closed");
  }
  if (!feed_.empty()) {
    fail("not named: the feed shows " + words_of(feed_.front(), with_symbols_, true));
  }
  if (!lines_.empty()) fail("not named: standard error says " + lines_.front());
  if (!events_.empty()) fail("not named: the order event file says " + events_.front());
}

/// Where the machine's clock alone may bring Heartbeats, they are passed over.
void Telling::drop_beats(const std::string& connection) {
  if (!world_.time_passes()) return;
  std::deque<FixMessage>& waiting = fix_.waiting(connection);
  while (!waiting.empty() && is_beat(waiting.front())) {
    fix_.next_in(connection) = waiting.front().seq() + 1;
    waiting.pop_front();
    disturbed_ = true;
  }
}

}  // namespace stories
