#include "certify/run/belief_files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <filesystem>
#include <system_error>
#include <vector>

namespace certify {
namespace {

constexpr uint64_t MOST_COPIED = 256 * 1024 * 1024;

struct KindOfFile {
  Belief::Kind kind;
  const char* name;
};
constexpr KindOfFile KINDS[] = {{Belief::Kind::POSITIONS, "positions.csv"},
                                {Belief::Kind::EVENTS, "events.jsonl"},
                                {Belief::Kind::BOOK, "book.json"}};

struct Descriptor {
  int fd;
  ~Descriptor() {
    if (fd >= 0) ::close(fd);
  }
};

/// A client may have left anything under the name: what is no file is not waited for.
bool copy_file(const std::string& from, const std::string& to) {
  const Descriptor in{::open(from.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC)};
  struct stat about {};
  if (in.fd < 0 || ::fstat(in.fd, &about) != 0 || !S_ISREG(about.st_mode)) return false;
  const Descriptor out{::open(to.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666)};
  if (out.fd < 0) return false;
  std::array<char, 65536> buffer;
  uint64_t copied = 0;
  ssize_t got = 0;
  while (copied < MOST_COPIED && (got = ::read(in.fd, buffer.data(), buffer.size())) > 0) {
    if (::write(out.fd, buffer.data(), static_cast<size_t>(got)) != got) return false;
    copied += static_cast<uint64_t>(got);
  }
  return got == 0;
}

std::string in_folder(std::string path, const RunFolder& folder) {
  const std::string placeholder = "{run}";
  for (size_t at = 0; (at = path.find(placeholder, at)) != std::string::npos;) {
    path.replace(at, placeholder.size(), folder.path());
    at += folder.path().size();
  }
  return path.starts_with('/') ? path : folder.file(path);
}

/// Where the client may have written what it believes, the likeliest first.
std::vector<std::string> sources(const RunFolder& folder, const Plan& plan, const std::string& mark,
                                 const KindOfFile& kind) {
  std::vector<std::string> paths;
  for (const Belief& belief : plan.belief) {
    if (belief.kind == kind.kind && belief.mark == mark) {
      paths.push_back(in_folder(belief.path, folder));
    }
  }
  if (mark.empty()) paths.push_back(folder.file(kind.name));
  return paths;
}

std::string belief_folder(const RunFolder& folder, const std::string& mark) {
  return folder.file("belief/" + (mark.empty() ? "end" : "mark-" + mark));
}

}  // namespace

void take_truth_book(const RunFolder& folder, const std::string& mark, const std::string& name) {
  const std::string to = belief_folder(folder, mark);
  std::error_code ignored;  // shows in what is not copied
  std::filesystem::create_directories(to, ignored);
  copy_file(folder.file("truth/book.json"), to + "/" + name);
}

std::string take_belief(const RunFolder& folder, const Plan& plan, const std::string& mark) {
  const std::string to = belief_folder(folder, mark);
  std::error_code ignored;
  std::filesystem::create_directories(to, ignored);
  for (const KindOfFile& kind : KINDS) {
    for (const std::string& path : sources(folder, plan, mark, kind)) {
      if (copy_file(path, to + "/" + kind.name)) break;
    }
  }
  return to;
}

std::vector<std::string> missing_belief(const RunFolder& folder, const Plan& plan,
                                        const std::string& mark) {
  std::vector<std::string> missing;
  for (const Belief& belief : plan.belief) {
    const std::string path = in_folder(belief.path, folder);
    std::error_code ignored;
    if (belief.mark == mark && !std::filesystem::is_regular_file(path, ignored)) {
      missing.push_back(path);
    }
  }
  return missing;
}

}  // namespace certify
