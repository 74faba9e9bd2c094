#include "certify/run/recorder.h"

namespace certify {

Recorder::Recorder(const RunFolder&) {}
void Recorder::on_event(const Event&) {}
std::string Recorder::finish() { return ""; }

}  // namespace certify
