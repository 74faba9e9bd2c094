#include "base/log.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <string>
#include <thread>

#include "base/stop.h"

namespace quorl {
namespace {

/// Standard error as a pipe, for as long as this lives.
class PipedStandardError {
 public:
  PipedStandardError() : saved_(::dup(STDERR_FILENO)) {
    int ends[2];
    EXPECT_EQ(::pipe(ends), 0);
    read_end_ = ends[0];
    ::dup2(ends[1], STDERR_FILENO);
    ::close(ends[1]);
  }
  PipedStandardError(const PipedStandardError&) = delete;
  PipedStandardError& operator=(const PipedStandardError&) = delete;
  ~PipedStandardError() {
    restore();
    ::close(read_end_);
  }

  /// No writer is left, so a reader comes to the end.
  void restore() {
    if (saved_ < 0) return;
    ::dup2(saved_, STDERR_FILENO);
    ::close(saved_);
    saved_ = -1;
  }

  std::string read_to_end() const {
    std::string text;
    char piece[4096];
    for (ssize_t got = 1; got > 0;) {
      got = ::read(read_end_, piece, sizeof piece);
      if (got > 0) text.append(piece, static_cast<size_t>(got));
    }
    return text;
  }

 private:
  int saved_;
  int read_end_ = -1;
};

std::string printed(const std::string& text) {
  PipedStandardError standard_error;
  std::string read;
  std::thread reader([&] { read = standard_error.read_to_end(); });
  print_log("%s", text.c_str());
  standard_error.restore();
  reader.join();
  return read;
}

TEST(Log, prints_by_its_format) {
  testing::internal::CaptureStderr();
  print_log("bench: %s at seq %llu\n", "paused", 7ULL);
  print_log("100%%\n");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "bench: paused at seq 7\n100%\n");
}

TEST(Log, prints_a_text_of_any_length_whole) {
  for (const size_t length : {0U, 1U, 1022U, 1023U, 1024U, 1025U, 4096U, 4097U, 1'000'000U}) {
    std::string text;
    while (text.size() < length) text += std::to_string(text.size()) + " ";
    text.resize(length);
    EXPECT_EQ(printed(text), text);
  }
}

TEST(Log, gives_up_a_reader_that_stalls_once_a_stop_is_requested) {
  PipedStandardError standard_error;
  stop_requested = 1;
  const std::string more_than_a_pipe_holds(2'000'000, 'x');
  print_log("%s\n", more_than_a_pipe_holds.c_str());  // it would wait for ever
  stop_requested = 0;
  standard_error.restore();
  const std::string read = standard_error.read_to_end();
  EXPECT_GT(read.size(), 0U);
  EXPECT_LT(read.size(), more_than_a_pipe_holds.size());
}

TEST(Log, prints_nothing_to_a_standard_error_that_is_closed) {
  const int saved = ::dup(STDERR_FILENO);
  ::close(STDERR_FILENO);
  print_log("lost\n");
  ::dup2(saved, STDERR_FILENO);
  ::close(saved);
  SUCCEED();  // it returned
}

}  // namespace
}  // namespace quorl
