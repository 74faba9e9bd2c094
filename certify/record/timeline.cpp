#include "certify/record/timeline.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <variant>

#include "certify/record/output_file.h"
#include "certify/record/sorted_lines.h"

namespace certify {
namespace {

bool is_left_out(const Event& event) {
  if (const auto* feed = std::get_if<FeedHeard>(&event.what)) return feed->packet.is_heartbeat();
  return std::holds_alternative<Counted>(event.what);
}

}  // namespace

Timeline::Timeline(const std::string& folder)
    : live_(folder + "/timeline.txt"), decisions_(folder + "/timeline.decisions") {}

void Timeline::on_event(const Event& event) {
  if (is_left_out(event)) return;
  Spool& spool = std::holds_alternative<Decision>(event.what) ? decisions_ : live_;
  if (spool.empty) spool.first = event.at;
  spool.empty = false;
  spool.file.write(time_text(event.at) + "  " + describe(event) + "\n");
  if (event.at - flushed_ >= FLUSH_EVERY) {
    flushed_ = event.at;
    flush();
  }
}

void Timeline::flush() {
  live_.file.flush();
  decisions_.file.flush();
  note_failures();
}

void Timeline::note_failures() {
  for (const Spool* spool : {&live_, &decisions_}) {
    if (failure_.empty()) failure_ = spool->file.failure();
  }
}

void Timeline::finish() {
  flush();
  if (!failure_.empty()) return;  // what could be written stays as it is
  const std::string merged = live_.file.path() + ".merged";
  try {
    merge(merged);
  } catch (const CannotRecord& error) {
    if (failure_.empty()) failure_ = error.what();
    ::unlink(merged.c_str());
    return;  // the two files tell it all, though not in one order
  }
  if (std::rename(merged.c_str(), live_.file.path().c_str()) != 0) {
    if (failure_.empty()) failure_ = cannot_write(live_.file.path(), errno);
    return;
  }
  ::unlink(decisions_.file.path().c_str());
}

void Timeline::merge(const std::string& into) {
  SortedLines live(live_.file.path(), live_.first);
  SortedLines decisions(decisions_.file.path(), decisions_.first);
  OutputFile out(into);
  while (live.front() != nullptr || decisions.front() != nullptr) {
    // At one and the same time the decision comes first: the messages tell of it.
    const bool decided = live.front() == nullptr || (decisions.front() != nullptr &&
                                                     decisions.front()->at <= live.front()->at);
    SortedLines& next = decided ? decisions : live;
    out.write(next.front()->text);
    next.pop();
  }
  out.flush();
  if (!out.failure().empty()) throw CannotRecord(out.failure());
}

}  // namespace certify
