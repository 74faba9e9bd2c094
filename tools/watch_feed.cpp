// Prints the feed, one message a line: a packet's number range first, then its messages.
//
//   quorl-watch [group [port]]

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>

#include "quorl/client/deep.h"
#include "quorl/client/iex_tp.h"
#include "quorl/client/multicast_receiver.h"
#include "tools/command_line.h"

namespace client = quorl::client;

namespace {

void print(const client::RawPacket& raw) {
  const client::TpPacket packet = client::decode_tp_packet(raw.bytes);
  const auto first_seq = static_cast<unsigned long long>(packet.header.first_seq);
  if (packet.is_heartbeat()) {
    std::printf("heartbeat, next is %llu\n", first_seq);
    return;
  }
  std::printf("packet from %llu, %u message(s), stream offset %llu\n", first_seq,
              static_cast<unsigned>(packet.header.message_count),
              static_cast<unsigned long long>(packet.header.stream_offset));
  for (const client::TpMessage& message : packet.messages) {
    std::printf("  %s\n", client::describe(client::decode_deep(message.bytes)).c_str());
  }
}

}  // namespace

int main(int argc, char** argv) {
  tools::CommandLine line("quorl-watch", "Prints the feed of an exchange, until Ctrl-C.");
  tools::FeedAddress feed;
  add_feed_address(line, feed);
  if (const auto status = line.read(argc, argv)) return *status;
  try {
    client::MulticastReceiver receiver(feed.group, feed.port);
    while (true) {
      for (const client::RawPacket& raw :
           receiver.take(client::Deadline::after(std::chrono::seconds(1)))) {
        print(raw);
      }
      std::fflush(stdout);
    }
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "quorl-watch: %s\n", failure.what());
    return tools::SAID_NO;
  }
}
