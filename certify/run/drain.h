#pragma once

#include <cstdint>
#include <string>

namespace certify {

/// One stream of a process, read without blocking and written to a file, of which no more is kept
/// than `most` bytes: a client that prints without end neither fills the disk nor stands still.
class Drain {
 public:
  /// Makes the pipe and the file. Throws quorl::client::SystemError.
  Drain(const std::string& path, uint64_t most);
  Drain(const Drain&) = delete;
  Drain& operator=(const Drain&) = delete;
  ~Drain();

  /// For the process; to be closed by close_writing_end() once it has been started.
  int writing_end() const { return pipe_[1]; }
  void close_writing_end();

  /// To poll for; -1 once the stream has ended.
  int fd() const { return pipe_[0]; }
  bool ended() const { return pipe_[0] < 0; }

  /// Takes what is there, up to a bound, so that nobody else waits long. What cannot be written is
  /// lost, and so is what is too much: written() tells.
  void take();
  /// What is still in the pipe is taken, and the stream given up.
  void finish();

  uint64_t taken() const { return taken_; }
  /// Bytes that stand in the file.
  uint64_t written() const { return written_; }

  /// What take() has read in its latest call; for who looks into it.
  const std::string& latest() const { return latest_; }

 private:
  bool read_once();
  void write(const char* bytes, size_t size);

  int pipe_[2] = {-1, -1};
  int file_ = -1;
  uint64_t most_;
  uint64_t taken_ = 0;
  uint64_t written_ = 0;
  std::string latest_;
};

}  // namespace certify
