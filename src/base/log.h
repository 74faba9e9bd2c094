#pragma once

namespace quorl {

/// One formatted print to standard error, as printf. Waits for a reader that stalls, and drops the
/// text only when a stop has been requested meanwhile; a standard error that has failed takes
/// nothing, without a word.
[[gnu::format(printf, 1, 2)]] void print_log(const char* format, ...);

}  // namespace quorl
