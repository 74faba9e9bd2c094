#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "quorl/client/port_slot.h"

namespace ladder {

struct Settings {
  quorl::client::Ports ports;        // control 0: no control port; fix is not used
  std::vector<std::string> symbols;  // to show; empty: all
};

/// The ladder as a whole: it follows the feed from construction on.
class Program {
 public:
  explicit Program(Settings settings);
  Program(const Program&) = delete;
  Program& operator=(const Program&) = delete;
  /// Waits for a request under way, a few seconds if the exchange stands still.
  ~Program();

  /// On the terminal, until the user, SIGINT, SIGTERM or SIGHUP ends it. Throws NoTerminal.
  void run_on_terminal(bool colours);

  /// One screen of the least size as plain text, once in step; nothing if that takes too long.
  std::optional<std::string> once(std::chrono::seconds patience);

  /// "233.54.26.111:25477".
  std::string feed_text() const;
  /// Why it is not in step, if there is more to say than that no packet comes.
  std::string trouble() const;

 private:
  class Parts;
  std::unique_ptr<Parts> parts_;
};

}  // namespace ladder
