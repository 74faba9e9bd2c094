#include "lives/machine.h"

#include <cstdarg>
#include <cstdio>
#include <utility>
#include <vector>

#include "base/log.h"
#include "base/output_file.h"

namespace lives {
namespace {

Machine* machine = nullptr;
std::vector<std::string> open_paths;  // a descriptor is an index into it

}  // namespace

Machine::Machine() { machine = this; }

Machine::~Machine() {
  machine = nullptr;
  open_paths.clear();
}

std::string Machine::take_log() { return std::exchange(log, {}); }

}  // namespace lives

// --- The seam ---

namespace quorl {

using lives::machine;
using lives::open_paths;

void print_log(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  va_list again;
  va_copy(again, arguments);
  const int length = std::vsnprintf(nullptr, 0, format, arguments);
  va_end(arguments);
  std::string text(static_cast<size_t>(length), '\0');
  std::vsnprintf(text.data(), text.size() + 1, format, again);
  va_end(again);
  machine->log += text;
  if (machine->on_act) machine->on_act("log " + text);
}

void OutputFile::open_for_appending(const std::string& path) { open(path, 0); }

void OutputFile::open_emptied(const std::string& path) {
  open(path, 0);
  machine->files[path].clear();
}

void OutputFile::open(const std::string& path, int) {
  fd_ = static_cast<int>(open_paths.size());
  open_paths.push_back(path);
  failed_ = false;
  if (machine->on_act) machine->on_act("open " + path);
}

void OutputFile::write(std::string_view piece) {
  buffered_ += piece;
  flush();
}

void OutputFile::flush() {
  if (is_writable()) write_out();
}

void OutputFile::write_out() {
  const std::string& path = open_paths[static_cast<size_t>(fd_)];
  if (machine->on_act) machine->on_act("write " + path);
  failed_ = failed_ || machine->disk_is_full;
  if (!failed_) machine->files[path] += buffered_;
  buffered_.clear();
}

void OutputFile::close() {
  if (!is_open()) return;
  write_out();
  fd_ = -1;
}

}  // namespace quorl
