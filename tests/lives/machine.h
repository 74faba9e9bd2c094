#pragma once

#include <functional>
#include <map>
#include <string>
#include <string_view>

namespace lives {

/// What the system clock says when a life or a story begins.
constexpr uint64_t OPENS_AT_NS = 1'700'049'600'000'000'000;  // 2023-11-15 12:00:00

/// What the exchange writes, in memory, in place of files and of standard error. One for a life;
/// becomes that of the process until it is destroyed.
class Machine {
 public:
  Machine();
  ~Machine();
  Machine(const Machine&) = delete;
  Machine& operator=(const Machine&) = delete;

  /// Writes fail while the disk is full; a file to which one has failed takes no more.
  bool disk_is_full = false;
  bool disk_was_full = false;

  std::map<std::string, std::string> files;  // by path
  std::string log;                           // standard error, since it was last taken

  /// If set: "open book.json" and "write book.json" (whatever comes of it), and "log ..." with all
  /// that one call prints.
  std::function<void(std::string_view what)> on_act;

  std::string take_log();
};

}  // namespace lives
