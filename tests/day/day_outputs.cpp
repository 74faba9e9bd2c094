#include "day/day_outputs.h"

#include <filesystem>

namespace day {
namespace {

constexpr uint64_t FNV_OFFSET = 0xcbf29ce484222325;
constexpr uint64_t FNV_PRIME = 0x100000001b3;

uint64_t digest_of(uint64_t digest, std::string_view bytes) {
  for (const char c : bytes) digest = (digest ^ static_cast<unsigned char>(c)) * FNV_PRIME;
  return digest;
}

uint64_t digest_of(uint64_t digest, uint64_t number) {
  for (int i = 0; i < 8; ++i) digest = (digest ^ (number >> 8 * i & 0xff)) * FNV_PRIME;
  return digest;
}

bool is_binary(Kind kind) {
  return kind == Kind::FEED || kind == Kind::GAP_FILL || kind == Kind::SNAP;
}

std::string printable(std::string_view bytes, bool binary) {
  constexpr char DIGITS[] = "0123456789abcdef";
  std::string text;
  for (const char c : bytes) {
    const auto byte = static_cast<unsigned char>(c);
    if (binary) {
      text.append({DIGITS[byte >> 4], DIGITS[byte & 15]});
    } else if (c == '\x01') {
      text += '|';
    } else if (byte < 0x20 && c != '\n') {
      text.append({'\\', 'x', DIGITS[byte >> 4], DIGITS[byte & 15]});
    } else {
      text += c;
    }
  }
  if (text.empty() || text.back() != '\n') text += '\n';
  return text;
}

}  // namespace

Outputs::Outputs(const std::string& record_folder) {
  for (Account& account : accounts_) account.digest = FNV_OFFSET;
  if (record_folder.empty()) return;
  std::filesystem::create_directories(record_folder);
  const auto open = [&record_folder](std::string_view name) {
    return File(std::fopen((record_folder + "/" + std::string(name) + ".txt").c_str(), "w"));
  };
  for (size_t i = 0; i < KINDS; ++i) records_[i] = open(KIND_NAMES[i]);
  remarks_ = open("inputs");
}

void Outputs::note(Kind kind, std::string_view where, std::string_view bytes) {
  if (on_note) on_note(kind, where, bytes);
  Account& account = accounts_[static_cast<size_t>(kind)];
  account.digest = digest_of(account.digest, turn_);
  account.digest = digest_of(account.digest, where);
  account.digest = digest_of(account.digest, bytes.size());
  account.digest = digest_of(account.digest, bytes);
  ++account.events;
  account.bytes += bytes.size();
  write_record(kind, where, bytes);
}

void Outputs::write_record(Kind kind, std::string_view where, std::string_view bytes) {
  std::FILE* const file = records_[static_cast<size_t>(kind)].get();
  if (file == nullptr) return;
  const std::string text = printable(bytes, is_binary(kind));
  std::fprintf(file, "%llu %.*s %s", static_cast<unsigned long long>(turn_),
               static_cast<int>(where.size()), where.data(), text.c_str());
}

void Outputs::remark(std::string_view text) {
  if (!remarks_) return;
  std::fprintf(remarks_.get(), "%llu %s", static_cast<unsigned long long>(turn_),
               printable(text, false).c_str());
}

void Outputs::end_turn() {
  if (turn_ % CHECKPOINT_TURNS == 0) take_checkpoint();
  ++turn_;
}

void Outputs::end_day() { take_checkpoint(); }

void Outputs::take_checkpoint() {
  for (Account& account : accounts_) account.checkpoints.push_back(account.digest);
}

}  // namespace day
