#pragma once

#include <string>

#include "certify/record/time.h"

namespace certify {

/// The folder of one run.
class RunFolder {
 public:
  /// Makes `parent` if need be, and in it `name`, or, if that is there already, `name`-2, -3 ...:
  /// no run writes where another has. Throws quorl::client::SystemError.
  RunFolder(const std::string& parent, const std::string& name);

  /// Absolute.
  const std::string& path() const { return path_; }
  std::string file(const std::string& name) const { return path_ + "/" + name; }

  /// Whether there is room for a little more, tried by writing it.
  bool has_room() const;

 private:
  std::string path_;
};

/// "20261122-140307", UTC: what a folder is called after.
std::string folder_time(TimeNs at);

}  // namespace certify
