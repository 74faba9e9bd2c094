#pragma once

#include <cstdio>
#include <cstdlib>
#include <string_view>

/// The tools take up to two plain words. For --help this prints `usage` and ends well; for any
/// other option, or for more words, it prints it as a complaint and ends with status 2.
inline void take_plain_words_only(int argc, char** argv, const char* usage) {
  for (int i = 1; i < argc; ++i) {
    const std::string_view word = argv[i];
    if (word == "--help" || word == "-h") {
      std::fputs(usage, stdout);
      std::exit(0);
    }
    if (word.starts_with('-') || i > 2) {
      std::fprintf(stderr, "what is '%s'?\n%s", argv[i], usage);
      std::exit(2);
    }
  }
}
