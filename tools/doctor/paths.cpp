#include "tools/doctor/paths.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

#include "tools/doctor/processes.h"
#include "tools/doctor/start.h"

namespace fs = std::filesystem;

namespace tools::doctor {
namespace {

constexpr unsigned long long LEAST_ROOM = 1 << 20;  // bytes: less is gone within seconds

/// A file that the exchange will write.
struct Output {
  std::string told;  // "--truth-out x.jsonl"
  std::string path;
  bool replaced;  // a book or BBO file: PATH.tmp is written and renamed to PATH; else appended to

  std::string temporary() const { return path + ".tmp"; }
  /// What is opened for writing.
  std::string opened() const { return replaced ? temporary() : path; }
};

std::vector<Output> outputs_of(const Start& start) {
  std::vector<Output> outputs;
  if (!start.order_truth.empty()) {
    outputs.push_back({"BENCH_ORDER_TRUTH " + start.order_truth, start.order_truth, false});
  }
  for (const char* const flag : {"--truth-out", "--book-out", "--bbo-out"}) {
    const std::string path = start.value(flag);
    if (path.empty()) continue;
    outputs.push_back({start.told(flag), path, std::string_view(flag) != "--truth-out"});
  }
  return outputs;
}

/// What is at a path, links followed.
std::optional<struct stat> at(const std::string& path) {
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0) return std::nullopt;
  return status;
}

bool is_link(const std::string& path) {
  std::error_code ignored;
  return fs::is_symlink(fs::symlink_status(path, ignored));
}

std::string directory_of(const std::string& path) {
  const std::string parent = fs::path(path).parent_path();
  return parent.empty() ? "." : parent;
}

/// Where the file is or would be: a link that leads nowhere is followed as far as it leads.
std::string target_of(std::string path) {
  constexpr int MOST_LINKS = 40;  // as the system has it
  for (int i = 0; i < MOST_LINKS && is_link(path); ++i) {
    std::error_code failed;
    const fs::path target = fs::read_symlink(path, failed);
    if (failed) return path;
    path = target.is_absolute() ? target : fs::path(directory_of(path)) / target;
  }
  return path;
}

/// One name for one file, whichever way it is written and whether it is there or not.
std::string identity(const std::string& path) {
  const std::string target = target_of(path);
  if (const auto file = at(target)) {
    return std::to_string(file->st_dev) + ":" + std::to_string(file->st_ino);
  }
  std::error_code ignored;
  return fs::weakly_canonical(fs::absolute(target, ignored), ignored);
}

bool may(const std::string& path, int mode) {
  return ::faccessat(AT_FDCWD, path.c_str(), mode, AT_EACCESS) == 0;
}

/// Why a file cannot be opened for writing there, made if need be; empty if it can.
std::string obstacle(const std::string& path) {
  const std::string target = target_of(path);
  const auto file = at(target);
  if (file && S_ISDIR(file->st_mode)) return target + " is a directory";
  if (file && S_ISSOCK(file->st_mode)) return target + " is a socket";
  if (file) return may(target, W_OK) ? "" : target + ": " + std::strerror(errno);
  const std::string directory = directory_of(target);
  const auto home = at(directory);
  if (!home) return directory + ": " + std::strerror(errno);
  if (!S_ISDIR(home->st_mode)) return directory + " is no directory";
  if (!may(directory, W_OK | X_OK)) return directory + ": " + std::strerror(errno);
  struct stat status {};
  if (::lstat(target.c_str(), &status) != 0 && errno != ENOENT) {
    return target + ": " + std::strerror(errno);  // a name that is too long
  }
  return "";
}

/// Why the rename to the path will fail, so that nothing ever shows there.
std::string obstacle_to_rename(const std::string& path) {
  struct stat status {};
  if (::lstat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode)) {
    return path + " is a directory";
  }
  const std::string directory = directory_of(path);
  const auto home = at(directory);
  const bool refused = home && S_ISDIR(home->st_mode) && !may(directory, W_OK | X_OK);
  return refused ? directory + ": " + std::strerror(errno) : "";
}

std::string kind_of(const struct stat& file) {
  if (S_ISFIFO(file.st_mode)) return "a pipe";
  if (S_ISCHR(file.st_mode) || S_ISBLK(file.st_mode)) return "a device";
  return "";
}

std::string oddity_of(const Output& output) {
  const auto file = at(output.path);
  const std::string kind = file ? kind_of(*file) : "";
  if (output.replaced) {
    if (is_link(output.path)) return "is a link: the link is replaced, not the file it leads to";
    return kind.empty() ? "" : "is " + kind + ": a plain file takes its place";
  }
  if (kind == "a pipe") return "is a pipe: the exchange does not start until somebody reads it";
  return kind.empty() ? "" : "is " + kind + ": no truth is kept in it";
}

/// The name itself, be it a link or not: what a rename puts something in the place of.
std::string place(const std::string& path) {
  if (!is_link(path)) return identity(path);
  return identity(directory_of(path)) + "/" + fs::path(path).filename().string();
}

/// The files that the exchange makes or writes for an output.
std::vector<std::string> files_of(const Output& output) {
  if (output.replaced) return {place(output.path), identity(output.temporary())};
  return {identity(output.path)};
}

bool share_a_file(const Output& one, const Output& other) {
  const std::vector<std::string> mine = files_of(one);
  const std::vector<std::string> theirs = files_of(other);
  return std::find_first_of(mine.begin(), mine.end(), theirs.begin(), theirs.end()) != mine.end();
}

std::string clash_of(const Output& one, const Output& other) {
  if (one.replaced && other.replaced) return "and only one of the two is ever to be seen";
  if (one.replaced || other.replaced) return "and the one that is replaced takes the other away";
  return "and holds the lines of both";
}

}  // namespace

Findings unwritable_outputs(const Start& start) {
  Findings findings;
  for (const Output& output : outputs_of(start)) {
    std::string why = output.replaced ? obstacle_to_rename(output.path) : "";
    if (why.empty()) why = obstacle(output.opened());
    if (!why.empty()) {
      findings.push_back({output.told, "is not written, and no line says so (" + why + ")"});
    }
  }
  return findings;
}

Findings odd_outputs(const Start& start) {
  Findings findings;
  for (const Output& output : outputs_of(start)) {
    const std::string oddity = oddity_of(output);
    if (!oddity.empty()) findings.push_back({output.told, oddity});
  }
  return findings;
}

Findings odd_temporary_files(const Start& start) {
  Findings findings;
  for (const Output& output : outputs_of(start)) {
    const auto file = at(output.temporary());
    if (!output.replaced || !file || S_ISDIR(file->st_mode)) continue;
    const bool pipe = S_ISFIFO(file->st_mode);
    findings.push_back(
        {output.told, output.temporary() + " is there already: " +
                          (pipe ? "it is a pipe, and the exchange stands still until "
                                  "somebody reads it"
                                : "it is overwritten, and gone with the rename")});
  }
  return findings;
}

Findings full_disks(const Start& start) {
  Findings findings;
  for (const Output& output : outputs_of(start)) {
    const auto file = at(output.opened());
    if (file && !S_ISREG(file->st_mode)) continue;
    struct statvfs disk {};
    const std::string directory = directory_of(target_of(output.opened()));
    if (::statvfs(directory.c_str(), &disk) != 0 || disk.f_blocks == 0) continue;
    const unsigned long long room = disk.f_bavail * disk.f_frsize;
    const bool no_names = disk.f_files != 0 && disk.f_favail == 0 && !file;
    if (room >= LEAST_ROOM && !no_names) continue;
    findings.push_back(
        {output.told, no_names && room >= LEAST_ROOM
                          ? "no further file can be made on the disk of " + directory
                          : "the disk of " + directory + " is full: " + std::to_string(room) +
                                " bytes are left, and a line that finds no room is lost unsaid"});
  }
  return findings;
}

/// Each against those in front of it, and against what standard error goes to.
Findings outputs_in_one_file(const Start& start) {
  Findings findings;
  const std::vector<Output> outputs = outputs_of(start);
  struct stat said {};
  const bool says = ::fstat(STDERR_FILENO, &said) == 0 && S_ISREG(said.st_mode);
  for (auto one = outputs.begin(); one != outputs.end(); ++one) {
    for (auto earlier = outputs.begin(); earlier != one; ++earlier) {
      if (!share_a_file(*earlier, *one)) continue;
      findings.push_back(
          {one->told, "is the file of " + earlier->told + " too, " + clash_of(*earlier, *one)});
    }
    const auto file = at(one->path);
    if (says && file && file->st_dev == said.st_dev && file->st_ino == said.st_ino) {
      findings.push_back({one->told, "is the file that standard error goes to, too"});
    }
  }
  return findings;
}

Findings outputs_of_others(const Start& start) {
  Findings findings;
  for (const Output& output : outputs_of(start)) {
    const auto file = at(output.path);
    if (output.replaced || !file || !S_ISREG(file->st_mode)) continue;
    const std::string writers = writers_of(file->st_dev, file->st_ino);
    if (writers.empty()) continue;
    findings.push_back(
        {output.told, "is being written by " + writers + ": the lines of both are mixed"});
  }
  return findings;
}

}  // namespace tools::doctor
