#pragma once

namespace quorl {

/// One formatted print to standard error, as printf. Waits for a reader that stalls, but
/// from a stop on not for long: the text is dropped then. A standard error that has failed, or that
/// does not block and is full, takes nothing, without a word.
[[gnu::format(printf, 1, 2)]] void print_log(const char* format, ...);

}  // namespace quorl
