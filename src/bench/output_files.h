#pragma once

#include <string>

namespace quorl {

struct Engine;

// Two small files, each replaced as a whole by a rename: a reader sees the old file or the new
// one, never a mix. Everything is silent; a path that cannot be written gives no file.

/// The shown depth (five levels a side), last price and volume of every symbol, as one JSON
/// object. Does nothing for an empty path.
void write_book(const Engine& engine, const std::string& path);

/// Best bid and offer of the live book, a line per symbol. Does nothing for an empty path.
void write_bbo(const Engine& engine, const std::string& path);

}  // namespace quorl
