#include "base/log.h"

#include <unistd.h>

#include <array>
#include <cstdarg>
#include <cstdio>
#include <string>
#include <string_view>

#include "base/stop.h"

namespace quorl {
namespace {

void write_to_standard_error(std::string_view text) {
  while (!text.empty()) {
    const ssize_t written = write_until_stopped(STDERR_FILENO, text);
    if (written <= 0) return;
    text.remove_prefix(static_cast<size_t>(written));
  }
}

}  // namespace

void print_log(const char* format, ...) {
  std::array<char, 1024> usual;
  std::string longer;
  va_list arguments;
  va_start(arguments, format);
  va_list again;
  va_copy(again, arguments);
  const int length = std::vsnprintf(usual.data(), usual.size(), format, arguments);
  va_end(arguments);
  std::string_view text;
  if (length >= 0 && static_cast<size_t>(length) < usual.size()) {
    text = {usual.data(), static_cast<size_t>(length)};
  } else if (length >= 0) {
    longer.resize(static_cast<size_t>(length) + 1);  // with room for the terminating zero
    std::vsnprintf(longer.data(), longer.size(), format, again);
    text = {longer.data(), static_cast<size_t>(length)};
  }
  va_end(again);
  write_to_standard_error(text);
}

}  // namespace quorl
