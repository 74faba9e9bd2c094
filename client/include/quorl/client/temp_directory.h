#pragma once

#include <string>

namespace quorl::client {

/// A directory of our own, removed with all it holds at the end.
class TempDirectory {
 public:
  TempDirectory();
  TempDirectory(const TempDirectory&) = delete;
  TempDirectory& operator=(const TempDirectory&) = delete;
  ~TempDirectory();

  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

/// The whole file, or the empty text if it cannot be read.
std::string read_file(const std::string& path);

}  // namespace quorl::client
