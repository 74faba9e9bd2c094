#include "certify/record/recorder.h"

namespace certify {

Recorder::Recorder(const std::string& folder, const tools::Endpoint& group,
                   const ServicePorts& taps)
    : timeline_(folder), fix_log_(folder), wire_(folder, taps), feed_(folder, group) {}

void Recorder::on_event(const Event& event) {
  timeline_.on_event(event);
  fix_log_.on_event(event);
}

void Recorder::flush() {
  timeline_.flush();
  fix_log_.flush();
  wire_.flush();
  feed_.flush();
}

void Recorder::finish() {
  fix_log_.flush();
  wire_.close();
  feed_.close();
  timeline_.finish();
}

std::string Recorder::failure() const {
  for (const std::string* failure :
       {&timeline_.failure(), &fix_log_.failure(), &wire_.failure(), &feed_.failure()}) {
    if (!failure->empty()) return *failure;
  }
  return {};
}

}  // namespace certify
