#include "tests/e2e/support/built.h"

#include <filesystem>

std::string built_program(const std::string& name) {
  return (std::filesystem::read_symlink("/proc/self/exe").parent_path() / name).string();
}
