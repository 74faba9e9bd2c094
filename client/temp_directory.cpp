#include "quorl/client/temp_directory.h"

#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <system_error>

#include "quorl/client/errors.h"

namespace quorl::client {

TempDirectory::TempDirectory() {
  std::string name = (std::filesystem::temp_directory_path() / "quorl-run-XXXXXX").string();
  if (::mkdtemp(name.data()) == nullptr) throw SystemError("mkdtemp " + name);
  path_ = name;
}

TempDirectory::~TempDirectory() {
  std::error_code ignored;  // what cannot be removed is left to the system's own cleaning
  std::filesystem::remove_all(path_, ignored);
}

std::string read_file(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::ostringstream content;
  content << file.rdbuf();
  return content.str();
}

}  // namespace quorl::client
