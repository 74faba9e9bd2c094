#pragma once

#include <chrono>
#include <map>
#include <string>
#include <vector>

#include "quorl/client/child_process.h"
#include "quorl/client/deadline.h"
#include "quorl/client/line_collector.h"

namespace tools_test {

/// What a tool that ended by itself has said.
struct Said {
  int status = -1;  // of its exit; -1 if a signal ended it
  std::string out;
  std::string err;
};

/// A tool as a process, its three streams in the test's hand, none of them a terminal. Its
/// environment is ours, with `environment` on top.
class Tool {
 public:
  /// `name` without "quorl-".
  Tool(const std::string& name, const std::vector<std::string>& arguments,
       const std::map<std::string, std::string>& environment = {});
  Tool(const Tool&) = delete;
  Tool& operator=(const Tool&) = delete;
  ~Tool();

  /// To its standard input, a line end added. Lost if it has ended; what it has printed says why.
  void type(const std::string& line);
  /// The end of its standard input.
  void close_input();

  /// Waits for a line of standard output, or of standard error, with `text` in it, from line number
  /// `from` on, and returns it. Throws Timeout.
  std::string prints(const std::string& text, size_t from = 0,
                     std::chrono::milliseconds patience = quorl::client::PATIENCE) const;
  std::string complains(const std::string& text,
                        std::chrono::milliseconds patience = quorl::client::PATIENCE) const;
  size_t lines_printed() const { return out_.count(); }
  std::vector<std::string> printed() const;

  void signal(int number) { process_.signal(number); }
  pid_t pid() const { return process_.pid(); }

  /// Waits for its end. Throws Timeout.
  Said end(std::chrono::milliseconds patience = quorl::client::PATIENCE);

 private:
  struct Pipes;
  Tool(const Pipes& pipes, const std::string& name, const std::vector<std::string>& arguments,
       const std::map<std::string, std::string>& environment);

  int input_;  // -1 once closed
  quorl::client::LineCollector out_;
  quorl::client::LineCollector err_;
  quorl::client::ChildProcess process_;  // last: the collectors end with it
};

/// Starts a tool that ends by itself, with `input` as all of its standard input.
Said run_tool(const std::string& name, const std::vector<std::string>& arguments,
              const std::string& input = "",
              const std::map<std::string, std::string>& environment = {});

/// The same for a tool whose time is short by its arguments, and for an exchange that is there: it
/// is started again while its status is 3, since an exchange that stands still that long has not
/// answered. The last one's words if they all end so within PATIENCE.
Said run_tool_until_answered(const std::string& name, const std::vector<std::string>& arguments,
                             const std::string& input = "");

}  // namespace tools_test
