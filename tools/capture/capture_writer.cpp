#include "tools/capture/capture_writer.h"

#include <fcntl.h>
#include <pcap/pcap.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "tools/capture/span.h"

namespace client = quorl::client;

namespace tools {
namespace {

constexpr int LONGEST_FRAME = 65535 + 14;  // any IPv4 packet on an Ethernet
constexpr int64_t FILE_HEADER = 24;
constexpr int64_t FRAME_HEADER = 16;
constexpr mode_t READABLE_BY_ALL = 0644;

}  // namespace

CaptureWriter::CaptureWriter(const std::string& path, IfThere if_there) : path_(path) {
  if (path_ == "-") {
    path_ = "standard output";
    fd_ = ::fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0);
  } else {
    named_ = true;
    constexpr int FLAGS = O_WRONLY | O_CREAT | O_CLOEXEC;
    fd_ = ::open(path_.c_str(), FLAGS | O_EXCL, READABLE_BY_ALL);
    created_ = fd_ >= 0;
    if (fd_ < 0 && errno == EEXIST) {
      if (if_there == IfThere::REFUSE) throw FileExists(path_ + " exists already");
      fd_ = ::open(path_.c_str(), FLAGS, READABLE_BY_ALL);
    }
  }
  if (fd_ < 0) throw CannotWrite("cannot write " + path_ + ": " + std::strerror(errno));
}

CaptureWriter::~CaptureWriter() { release(); }

void CaptureWriter::begin() {
  // A pipe or a device has no length to cut; if it cannot be written either, writing will say so.
  if (named_ && ::ftruncate(fd_, 0) != 0 && errno != EINVAL) fail();
  FILE* stream = ::fdopen(::fcntl(fd_, F_DUPFD_CLOEXEC, 0), "wb");
  if (stream == nullptr) fail();
  format_ =
      ::pcap_open_dead_with_tstamp_precision(DLT_EN10MB, LONGEST_FRAME, PCAP_TSTAMP_PRECISION_NANO);
  dumper_ = ::pcap_dump_fopen(format_, stream);
  if (dumper_ == nullptr) fail();
  ends_.push_back(FILE_HEADER);
}

void CaptureWriter::write(uint64_t time_ns, client::ByteView frame) {
  if (dumper_ == nullptr) begin();
  pcap_pkthdr header{};
  header.ts.tv_sec = static_cast<time_t>(time_ns / NS_PER_S);
  header.ts.tv_usec = static_cast<suseconds_t>(time_ns % NS_PER_S);
  header.caplen = header.len = static_cast<uint32_t>(frame.size());
  ::pcap_dump(reinterpret_cast<u_char*>(dumper_), &header, frame.data());
  if (std::ferror(::pcap_dump_file(dumper_)) != 0) fail();
  ++frames_;
  ends_.push_back(ends_.back() + FRAME_HEADER + static_cast<int64_t>(frame.size()));
}

void CaptureWriter::flush() {
  if (dumper_ == nullptr) return;
  if (::pcap_dump_flush(dumper_) != 0) fail();
  ends_.erase(ends_.begin(), ends_.end() - 1);
}

void CaptureWriter::close() {
  flush();
  const bool nothing_written = dumper_ == nullptr;
  release();
  if (nothing_written && created_) ::unlink(path_.c_str());
}

void CaptureWriter::fail() {
  const std::string why = std::strerror(errno);
  // Closing tries once more to write what is left: the file is put right behind that.
  if (dumper_ != nullptr) ::pcap_dump_close(std::exchange(dumper_, nullptr));
  end_behind_last_whole_frame();
  throw CannotWrite("cannot write " + path_ + ": " + why);
}

void CaptureWriter::end_behind_last_whole_frame() {
  struct stat status {};
  if (!named_ || ::fstat(fd_, &status) != 0 || !S_ISREG(status.st_mode)) return;
  int64_t whole = 0;
  for (const int64_t end : ends_) {
    if (end <= status.st_size) {
      whole = end;
    } else if (frames_ > 0) {
      --frames_;
    }
  }
  // If even this fails, the file is as it is, and the caller says that writing failed.
  [[maybe_unused]] const int result = ::ftruncate(fd_, whole);
}

void CaptureWriter::release() {
  if (dumper_ != nullptr) ::pcap_dump_close(std::exchange(dumper_, nullptr));
  if (format_ != nullptr) ::pcap_close(std::exchange(format_, nullptr));
  if (fd_ >= 0) ::close(std::exchange(fd_, -1));
}

}  // namespace tools
