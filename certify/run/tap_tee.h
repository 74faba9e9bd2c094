#pragma once

#include <string_view>

#include "certify/tap/tap_listener.h"

namespace certify {

/// Tells two what passes the taps, the one who records it first.
class TapTee : public TapListener {
 public:
  /// Both must live as long. `first` may come later.
  explicit TapTee(TapListener& second) : second_(second) {}
  void set_first(TapListener& first) { first_ = &first; }

  void on_opened(Line line, bool reached, TimeNs at) override {
    if (first_ != nullptr) first_->on_opened(line, reached, at);
    second_.on_opened(line, reached, at);
  }
  void on_passed(const Passed& passed) override {
    if (first_ != nullptr) first_->on_passed(passed);
    second_.on_passed(passed);
  }
  void on_ended(const Ended& ended) override {
    if (first_ != nullptr) first_->on_ended(ended);
    second_.on_ended(ended);
  }
  void on_link(std::string_view what, TimeNs at) override {
    if (first_ != nullptr) first_->on_link(what, at);
    second_.on_link(what, at);
  }

 private:
  TapListener& second_;
  TapListener* first_ = nullptr;
};

}  // namespace certify
