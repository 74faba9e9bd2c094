#include <algorithm>

#include "stories/telling.h"

namespace stories {
namespace {

constexpr const char* SWEEPER = "SWEEPER";
constexpr const char* DEFAULT_SYMBOLS = "AAPL:190.00";

}  // namespace

std::vector<std::string> symbols_of(const Story& story) {
  std::string listed = DEFAULT_SYMBOLS;
  for (size_t i = 0; i + 1 < story.options.size(); ++i) {
    if (story.options[i] == "--symbols") listed = story.options[i + 1];
  }
  std::vector<std::string> symbols;
  for (size_t at = 0; at < listed.size();) {
    const size_t end = std::min(listed.find(',', at), listed.size());
    symbols.push_back(listed.substr(at, std::min(listed.find(':', at), end) - at));
    at = end + 1;
  }
  return symbols;
}

/// Trades away all that rests.
void Telling::sweep() {
  log_on(SWEEPER);
  for (const std::string& symbol : symbols_of(story_)) {
    for (const char* const side : {"1", "2"}) {
      const std::string message = fix_.composed(
          SWEEPER, "D",
          {{11, symbol + side}, {55, symbol}, {54, side}, {38, "10000000"}, {40, "1"}, {18, "i"}});
      world_.act({{.kind = Kind::RAW, .connection = SWEEPER, .bytes = message}});
      while (next_of(SWEEPER).find(150) != "4") {
      }
    }
  }
  const std::string logout = fix_.composed(SWEEPER, "5", {});
  world_.act({{.kind = Kind::RAW, .connection = SWEEPER, .bytes = logout}});
  if (next_of(SWEEPER).type() != "5") fail("the sweeper is not logged out");
  if (!world_.closed(SWEEPER, true)) fail("the sweeper is not closed");
  open_.erase(SWEEPER);
}

void Telling::log_on(const std::string& connection) {
  world_.act({{.kind = Kind::CONNECT, .connection = connection}});
  fix_.begin_connection(connection);
  open_.insert(connection);
  const std::string logon = fix_.composed(connection, "A", {{98, "0"}, {108, "30"}});
  world_.act({{.kind = Kind::RAW, .connection = connection, .bytes = logon}});
  const FixMessage answer = next_of(connection);
  if (answer.type() != "A" || answer.get(108) != "30") fail("no Logon: " + answer.text());
}

/// The next message, whatever it says.
FixMessage Telling::next_of(const std::string& connection) {
  std::deque<FixMessage>& waiting = fix_.waiting(connection);
  if (waiting.empty()) collect_from(connection, true);
  if (waiting.empty()) fail(connection + " hears nothing");
  FixMessage message = std::move(waiting.front());
  waiting.pop_front();
  fix_.next_in(connection) = message.seq() + 1;
  return message;
}

}  // namespace stories
