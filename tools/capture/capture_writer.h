#pragma once

#include <cstdint>
#include <deque>
#include <stdexcept>
#include <string>

#include "quorl/client/bytes.h"

struct pcap;
struct pcap_dumper;

namespace tools {

/// There is a file of this name already.
class FileExists : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// The file cannot be opened or written; the text names it and says why.
class CannotWrite : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Writes a pcap file of Ethernet frames, with times in nanoseconds. Whatever ends the writing, the
/// file holds whole frames only.
class CaptureWriter {
 public:
  enum class IfThere { REFUSE, REPLACE };

  /// `path` "-" is standard output. Nothing is written, and a file to be replaced stays as it is,
  /// before the first frame. Throws FileExists and CannotWrite.
  CaptureWriter(const std::string& path, IfThere if_there);
  CaptureWriter(const CaptureWriter&) = delete;
  CaptureWriter& operator=(const CaptureWriter&) = delete;
  ~CaptureWriter();

  /// Throws CannotWrite; the file then ends behind the last frame that is whole in it.
  void write(uint64_t time_ns, quorl::client::ByteView frame);

  /// Brings to the file what has been written so far. Throws CannotWrite, as write() does.
  void flush();

  /// Ends the file. If no frame has been written, no new file stays behind. Throws CannotWrite.
  void close();

  /// Frames that have been written; once writing has failed, those that are whole in the file.
  uint64_t frames() const { return frames_; }

 private:
  void begin();
  [[noreturn]] void fail();
  void end_behind_last_whole_frame();
  void release();

  std::string path_;
  int fd_ = -1;           // for the file's length; the dumper writes through a copy of it
  bool named_ = false;    // a file that is ours to cut, unlike standard output
  bool created_ = false;  // and was not there before
  uint64_t frames_ = 0;
  pcap* format_ = nullptr;
  pcap_dumper* dumper_ = nullptr;
  // Lengths of the file behind the frames that may not have reached it: the first is in it.
  std::deque<int64_t> ends_ = {0};
};

}  // namespace tools
