// Writes the feed to a capture file, every packet as it comes.
//
//   quorl-record FILE.pcap [group [port]]

#include <unistd.h>

#include <csignal>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "quorl/client/errors.h"
#include "tools/capture/capture_writer.h"
#include "tools/capture/span.h"
#include "tools/command_line.h"
#include "tools/record/recorder.h"

namespace client = quorl::client;

namespace {

std::string complaint_about_span(const std::string& text) {
  return tools::parse_span(text) ? "" : text + " is no time such as 10s, 500ms or 2m";
}

std::optional<int> read(tools::RecordOptions& options, int argc, char** argv) {
  tools::CommandLine line("quorl-record",
                          "Writes the feed of an exchange to a capture file, until Ctrl-C.");
  tools::FeedAddress feed;
  std::string span;
  line.add_option("FILE", options.file, "The pcap file to write; - is standard output")->required();
  add_feed_address(line, feed);
  add_interface(line, options.interface);
  line.add_option("--for", span, "End after this time: 10s, 500ms, 2m")
      ->check(CLI::Validator(complaint_about_span, "TIME"))
      ->type_name("");
  line.add_option("--count", options.count, "End after so many packets")
      ->check(CLI::Range(uint64_t{1}, UINT64_MAX));
  line.add_flag("--force", options.force, "Replace FILE if it exists");
  const auto status = line.read(argc, argv);
  options.group = feed.group;
  options.port = feed.port;
  options.span = tools::parse_span(span);
  return status;
}

}  // namespace

int main(int argc, char** argv) {
  tools::RecordOptions options;
  if (const auto status = read(options, argc, argv)) return *status;
  if (options.file == "-" && ::isatty(STDOUT_FILENO) == 1) {
    tools::say("a capture is not for a terminal: name a file, or send standard output elsewhere");
    return tools::USED_WRONGLY;
  }
  // A limit on the size of files and a reader that has gone are told of as errors of writing.
  ::signal(SIGXFSZ, SIG_IGN);
  ::signal(SIGPIPE, SIG_IGN);
  std::unique_ptr<tools::Recorder> recorder;
  try {
    recorder = std::make_unique<tools::Recorder>(options);
  } catch (const tools::FileExists& there) {
    tools::say(std::string(there.what()) + "; --force replaces it");
    return tools::USED_WRONGLY;
  } catch (const tools::CannotWrite& failure) {
    tools::say(failure.what());
    return tools::USED_WRONGLY;
  } catch (const client::SystemError& failure) {
    tools::say(failure.what());
    return tools::USED_WRONGLY;
  }
  try {
    return recorder->run();
  } catch (const client::SystemError& failure) {
    tools::say(failure.what());
    return tools::SAID_NO;
  }
}
