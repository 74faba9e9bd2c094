#include "tools/capture/capture_reader.h"

#include <pcap/pcap.h>

#include "tools/capture/span.h"

namespace tools {

CaptureReader::CaptureReader(const std::string& path) {
  char why[PCAP_ERRBUF_SIZE] = {};
  file_ = ::pcap_open_offline_with_tstamp_precision(path.c_str(), PCAP_TSTAMP_PRECISION_NANO, why);
  if (file_ == nullptr) {
    const std::string reason = why;  // names the file if the system refused to open it
    const bool named = reason.rfind(path, 0) == 0;
    throw UnusableCapture(named ? reason : path + " is no capture file: " + reason);
  }
}

CaptureReader::~CaptureReader() { ::pcap_close(file_); }

std::optional<CapturedFrame> CaptureReader::next() {
  pcap_pkthdr* header = nullptr;
  const u_char* bytes = nullptr;
  const int result = ::pcap_next_ex(file_, &header, &bytes);
  if (result == 1) {
    // Asked for nanoseconds, libpcap keeps them in the field that is named for microseconds.
    return CapturedFrame{static_cast<uint64_t>(header->ts.tv_sec) * NS_PER_S +
                             static_cast<uint64_t>(header->ts.tv_usec),
                         {bytes, header->caplen}};
  }
  if (result == PCAP_ERROR) damage_ = ::pcap_geterr(file_);
  return std::nullopt;
}

int CaptureReader::link_type() const { return ::pcap_datalink(file_); }

std::string CaptureReader::link_name() const {
  const char* name = ::pcap_datalink_val_to_description_or_dlt(link_type());
  return name == nullptr ? "unknown" : name;
}

}  // namespace tools
