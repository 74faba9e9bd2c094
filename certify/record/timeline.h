#pragma once

#include <string>

#include "certify/record/events.h"
#include "certify/record/output_file.h"

namespace certify {

/// Writes timeline.txt, a line for each event but counters and the feed's heartbeats:
/// "14:03:07.123456  FIX 1   > new order       35=D|34=2|11=o1". Lines go to the file as they come,
/// and at most half a second late; decisions, which come late, wait in a file beside it,
/// "timeline.decisions", and are brought to their places at the end. A run that is killed leaves
/// both.
class Timeline : public EventListener {
 public:
  /// Throws CannotRecord.
  explicit Timeline(const std::string& folder);

  void on_event(const Event& event) override;

  /// Brings to the files what waits; for a loop that has nothing else to do.
  void flush();

  /// One file in order of time. No event may come behind it. In bounded memory: lines that came
  /// more than 20000 lines late keep the place they have.
  void finish();

  const std::string& failure() const { return failure_; }

 private:
  /// Lines of one kind, in the order in which they came.
  struct Spool {
    explicit Spool(const std::string& path) : file(path) {}
    OutputFile file;
    TimeNs first = 0;  // of its first line
    bool empty = true;
  };

  void merge(const std::string& into);
  void note_failures();

  Spool live_;
  Spool decisions_;
  TimeNs flushed_ = 0;
  std::string failure_;
};

}  // namespace certify
