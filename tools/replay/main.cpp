// Sends the feed out of a capture file to a group again, and answers gap fill and image requests
// from it.
//
//   quorl-replay FILE.pcap [group [port]]

#include <algorithm>
#include <charconv>
#include <ctime>
#include <functional>
#include <vector>

#include "tools/capture/endpoint.h"
#include "tools/capture/span.h"
#include "tools/command_line.h"
#include "tools/replay/options.h"
#include "tools/replay/replay.h"
#include "tools/standard_streams.h"

namespace {

using tools::ReplayOptions;

constexpr double SLOWEST = 0.0001;
constexpr double FASTEST = 1e6;
constexpr uint32_t SESSION_MASK = 0x7fffffff;  // as the exchange takes its own from the clock

template <typename Number>
std::optional<Number> number_in(const std::string& text) {
  Number number{};
  const char* end = text.data() + text.size();
  const auto [behind, error] = std::from_chars(text.data(), end, number);
  if (error != std::errc() || behind != end) return std::nullopt;
  return number;
}

/// A value as its option understands it. Returns what is wrong with it, or an empty text.
using Taker = std::function<std::string(ReplayOptions&, const std::string&)>;

std::string take_speed(ReplayOptions& options, const std::string& text) {
  if (text == "max") {
    options.speed.reset();
    return "";
  }
  const auto factor = number_in<double>(text);
  if (!factor || !(*factor >= SLOWEST && *factor <= FASTEST)) {
    return text + " is no factor from 0.0001 to 1000000, nor max";
  }
  options.speed = *factor;
  return "";
}

std::string take_session(ReplayOptions& options, const std::string& text) {
  if (text == "keep") {
    options.session.reset();
  } else if (text == "new") {
    options.session = static_cast<uint32_t>(std::time(nullptr)) & SESSION_MASK;
  } else if (const auto number = number_in<uint32_t>(text)) {
    options.session = *number;
  } else {
    return text + " is no session number, nor keep or new";
  }
  return "";
}

std::string take_loop(ReplayOptions& options, const std::string& text) {
  if (text == "ever") {
    options.rounds = 0;
    return "";
  }
  const auto number = number_in<uint64_t>(text);
  if (!number || *number == 0) return text + " is no number of rounds from 1 on";
  options.rounds = *number;
  return "";
}

std::string take_from(ReplayOptions& options, const std::string& text) {
  options.wish.group = tools::parse_endpoint(text);
  return options.wish.group ? "" : text + " is no GROUP:PORT such as 233.54.26.111:25477";
}

std::string take_drops(ReplayOptions& options, const std::string& text) {
  size_t begin = 0;
  while (begin <= text.size()) {
    const size_t comma = std::min(text.find(',', begin), text.size());
    const auto number = number_in<uint64_t>(text.substr(begin, comma - begin));
    if (!number || *number == 0) return text + " is no list of packet numbers such as 3,17";
    options.drops.packets.insert(*number);
    begin = comma + 1;
  }
  return "";
}

std::string take_stay(ReplayOptions& options, const std::string& text) {
  if (text == "ever") {
    options.stay = std::chrono::nanoseconds::max();
    return "";
  }
  const auto span = tools::parse_span(text);
  if (!span) return text + " is no time such as 10s, 500ms or 2m, nor ever";
  options.stay = *span;
  return "";
}

void add(CLI::App& line, ReplayOptions& options, const std::string& name, const Taker& taker,
         const std::string& value, const std::string& what) {
  const auto check = [&options, taker](const std::string& text) { return taker(options, text); };
  line.add_option_function<std::string>(
          name, [](const std::string&) {}, what)  // the check has taken it
      ->check(CLI::Validator(check, value))
      ->type_name("");
}

/// --loop may stand alone, in front of anything but a number: it then gets its value here.
std::vector<std::string> with_value_for_loop(int argc, char** argv) {
  std::vector<std::string> words(argv, argv + argc);
  for (size_t i = 0; i < words.size(); ++i) {
    if (words[i] != "--loop") continue;
    const bool has_value = i + 1 < words.size() && number_in<int64_t>(words[i + 1]).has_value();
    if (!has_value) words[i] = "--loop=ever";
  }
  return words;
}

std::optional<int> read(ReplayOptions& options, int argc, char** argv) {
  tools::CommandLine line("quorl-replay", "Sends the feed out of a capture file to a group again.");
  line.add_option("FILE", options.file, "The pcap or pcapng file to replay")->required();
  tools::FeedAddress to;
  add_feed_address(line, to);
  line.add_option("--iface", options.interface, "Address of the interface to send from")
      ->check(CLI::ValidIPV4)
      ->capture_default_str();
  add(line, options, "--speed", take_speed, "FACTOR|max",
      "So many times as fast as it was recorded");
  line.add_flag("--step", options.step, "Packet by packet: one with each line of standard input")
      ->excludes("--speed");
  add(line, options, "--loop", take_loop, "[N]",
      "Again and again, or N times, each under a new session");
  add(line, options, "--session", take_session, "N|new|keep",
      "Session to send under; keep is the recording's");
  line.add_option("--gapfill-port", options.gap_fill_port,
                  "UDP port to answer gap fill on; 0 is none (default: the number of --snap-port)")
      ->check(CLI::Range(0, 65535));
  line.add_option("--snap-port", options.snap_port, "TCP port to serve images on; 0 is none")
      ->check(CLI::Range(0, 65535))
      ->capture_default_str();
  add(line, options, "--from", take_from, "GROUP:PORT",
      "The feed to replay, if FILE holds several");
  line.add_option("--from-session", options.wish.session, "The session to replay, likewise");
  add(line, options, "--drop", take_drops, "N,M,...", "Lose these packets, counted from 1");
  line.add_option("--drop-every", options.drops.every, "Lose each packet of such a number")
      ->check(CLI::Range(uint64_t{1}, UINT64_MAX));
  add(line, options, "--stay", take_stay, "TIME|ever",
      "Send heartbeats and answer for this long behind the last packet");
  const std::vector<std::string> words = with_value_for_loop(argc, argv);
  std::vector<const char*> pointers;
  for (const std::string& word : words) pointers.push_back(word.c_str());
  const auto status = line.read(static_cast<int>(pointers.size()), pointers.data());
  options.group = to.group;
  options.port = to.port;
  return status;
}

}  // namespace

int main(int argc, char** argv) {
  ReplayOptions options;
  if (const auto status = read(options, argc, argv)) return *status;
  return tools::status_behind_output("quorl-replay", tools::replay(options));
}
