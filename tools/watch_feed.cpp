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

#include "client/deep.h"
#include "client/iex_tp.h"
#include "client/multicast_receiver.h"
#include "tools/usage.h"

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
  take_plain_words_only(argc, argv,
                        "usage: quorl-watch [group [port]]\n"
                        "Prints the feed of an exchange on this machine, by default that of "
                        "233.54.26.111 25477, until Ctrl-C.\n");
  try {
    const std::string group = argc > 1 ? argv[1] : "233.54.26.111";
    const auto port = static_cast<uint16_t>(argc > 2 ? std::atoi(argv[2]) : 25477);
    client::MulticastReceiver receiver(group, port);
    while (true) {
      for (const client::RawPacket& raw :
           receiver.take(client::Deadline::after(std::chrono::seconds(1)))) {
        print(raw);
      }
      std::fflush(stdout);
    }
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "quorl-watch: %s\n", failure.what());
    return 1;
  }
}
