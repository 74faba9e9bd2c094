#pragma once

#include <string>

#include "certify/record/events.h"
#include "certify/record/output_file.h"

namespace certify {

/// Writes fix.log: all FIX messages of all connections, both ways, as FIX engines log them and
/// tools for such logs read them: "20261121-12:17:15.929 : 8=FIX.4.2...", with the exact bytes, a
/// line each. Which way a message went stands in its tags 49 and 56.
class FixLog : public EventListener {
 public:
  /// Throws CannotRecord.
  explicit FixLog(const std::string& folder) : file_(folder + "/fix.log") {}

  void on_event(const Event& event) override;
  void flush() { file_.flush(); }
  const std::string& failure() const { return file_.failure(); }

 private:
  OutputFile file_;
};

}  // namespace certify
