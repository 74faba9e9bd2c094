#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "quorl/client/child_process.h"
#include "quorl/client/deadline.h"
#include "quorl/client/temp_directory.h"

namespace tools_test {

/// A command of the shell in a terminal of its own: one window of a tmux that this object starts
/// and ends. Behind the command the terminal stays, so that one sees how it was left.
class Terminal {
 public:
  struct Size {
    unsigned columns = 80;
    unsigned rows = 24;
  };

  /// Waits for nothing that the command does. The environment is ours, UTF-8, with `environment` on
  /// top.
  Terminal(const std::string& command, Size size,
           const std::map<std::string, std::string>& environment = {});
  Terminal(const Terminal&) = delete;
  Terminal& operator=(const Terminal&) = delete;
  ~Terminal();

  /// What stands on the screen, row by row, without spaces at their ends. `escapes`: with the
  /// sequences for colours and the like.
  std::string screen(bool escapes = false) const;

  using Wanted = std::function<bool(const std::string& screen)>;
  /// Waits for a screen that satisfies `wanted`, and returns it. Throws Timeout with the last one;
  /// `sought` names what is waited for.
  std::string await(const Wanted& wanted, const std::string& sought,
                    std::chrono::milliseconds patience = quorl::client::PATIENCE) const;
  /// The same for a screen that holds all of `texts`.
  std::string shows(const std::vector<std::string>& texts,
                    std::chrono::milliseconds patience = quorl::client::PATIENCE) const;

  /// Keys as tmux names them: "q", "C-c", "Tab", "BTab".
  void press(const std::vector<std::string>& keys) const;
  void resize(Size size) const;

  /// A variable of tmux, such as "cursor_flag", "alternate_on", "pane_pid".
  std::string ask(const std::string& variable) const;

 private:
  std::string tmux(const std::vector<std::string>& arguments) const;

  quorl::client::TempDirectory directory_;  // with tmux's socket
  std::map<std::string, std::string> environment_;
  std::unique_ptr<quorl::client::ChildProcess> server_;  // in the foreground: it ends with us
};

}  // namespace tools_test
