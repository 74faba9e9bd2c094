#include "certify/record/capture_file.h"

#include "certify/record/output_file.h"

namespace certify {

CaptureFile::CaptureFile(const std::string& path) {
  try {
    writer_.emplace(path, tools::CaptureWriter::IfThere::REPLACE);
  } catch (const tools::CannotWrite& error) {
    throw CannotRecord(error.what());
  }
}

void CaptureFile::write(TimeNs at, quorl::client::ByteView frame) {
  if (!failure_.empty()) return;
  try {
    writer_->write(static_cast<uint64_t>(at), frame);
  } catch (const tools::CannotWrite& error) {
    failure_ = error.what();
    return;
  }
  if (at - flushed_ < FLUSH_EVERY) return;
  flushed_ = at;
  flush();
}

void CaptureFile::flush() {
  if (!failure_.empty()) return;
  try {
    writer_->flush();
  } catch (const tools::CannotWrite& error) {
    failure_ = error.what();
  }
}

void CaptureFile::close() {
  if (!failure_.empty()) return;
  try {
    writer_->close();
  } catch (const tools::CannotWrite& error) {
    failure_ = error.what();
  }
}

}  // namespace certify
