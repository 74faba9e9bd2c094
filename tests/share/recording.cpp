#include "tests/share/recording.h"

#include <algorithm>

#include "quorl/client/errors.h"
#include "quorl/client/udp.h"
#include "tests/e2e/support/exchange.h"

namespace share {
namespace {

using client::Bytes;
using client::ByteView;
using client::GapFillRequest;
using client::SnapRequest;

/// So many that the opening has packets whose announced number is one too high.
std::string twenty_symbols() {
  std::string symbols = "AAPL:190.00,EXACTLY8:0.5";
  for (int i = 2; i < 20; ++i) symbols += ",S" + std::to_string(i) + ":" + std::to_string(i) + "0";
  return symbols;
}

class Recorder {
 public:
  Recorder()
      : exchange_(e2e::still({"--symbols", twenty_symbols()})),
        gap_fill_(client::UdpSocket::on_loopback()),
        alpha_(exchange_.session("ALPHA")) {
    recording_.session = exchange_.simulator().session();
  }

  Recording record() {
    log_on();
    (void)exchange_.book();
    trade();
    ask_for_messages();
    ask_for_images();
    lose_and_repeat();
    (void)exchange_.feed().await_heartbeat();
    ask({.session_id = recording_.session, .ranges = {{1, 2}}});  // behind the heartbeat
    log_out();
    (void)exchange_.feed().await_heartbeat();  // behind it the market stands still
    for (const client::FeedPacket& packet : exchange_.feed().packets()) {
      recording_.feed.push_back(packet.raw.bytes);
    }
    learn_true_numbers();
    return std::move(recording_);
  }

 private:
  void says(const std::string& type, const client::FixFields& body) {
    recording_.fix.push_back({true, alpha_.send_message(type, body)});
  }

  void hears(const std::string& type) {
    recording_.fix.push_back({false, alpha_.expect(type).raw()});
  }

  void log_on() {
    alpha_.connect();
    says("A", {{98, "0"}, {108, "30"}});
    hears("A");
  }

  void log_out() {
    says("5", {});
    hears("5");
  }

  void order(const std::string& side, const std::string& quantity, const std::string& price) {
    says("D", {{11, "o" + std::to_string(++orders_)},
               {21, "1"},
               {55, "AAPL"},
               {54, side},
               {38, quantity},
               {40, "2"},
               {44, price},
               {59, "0"},
               {18, "i"},
               {47, "P"}});
    hears("8");  // the first report: there may be more
    for (const client::FixMessage& report : alpha_.drain()) {
      recording_.fix.push_back({false, report.raw()});
    }
  }

  /// Odd lots and round ones, and levels that go.
  void trade() {
    exchange_.empty_book("AAPL");
    order("2", "400", "190.07");
    order("1", "99", "190.07");
    order("1", "100", "190.07");
    order("1", "300", "190.07");  // takes the rest and stays with 99
    order("1", "5", "0.0001");
  }

  /// Packets of the feed so far, but for those that are still on their way.
  size_t arrived() {
    (void)exchange_.feed().pump();
    return exchange_.feed().packets().size();
  }

  /// Behind the request goes a status query, whose answer ends what belongs to the request.
  void ask(const GapFillRequest& request, const std::string& refused = "") {
    RecordedRequest asked{request, refused, {}, arrived()};
    RecordedRequest status{{.session_id = recording_.session}, "", {}, asked.feed_packets};
    gap_fill_.send_to(exchange_.ports().gap_fill, encode(asked.request));
    gap_fill_.send_to(exchange_.ports().gap_fill, encode(status.request));
    for (;;) {
      const auto datagram = gap_fill_.receive(client::Deadline::after(client::PATIENCE));
      if (!datagram) throw client::Timeout("no answer to a status query");
      const bool ends = client::decode_tp_packet(datagram->bytes).is_heartbeat();
      (ends ? status : asked).replies.push_back(datagram->bytes);
      if (ends) break;
    }
    recording_.gap_fill.push_back(std::move(asked));
    recording_.gap_fill.push_back(std::move(status));
  }

  void ask_for_messages() {
    const uint32_t session = recording_.session;
    ask({.session_id = session, .ranges = {{1, 1}}});
    ask({.session_id = session, .ranges = {{1, 60}, {70, 70}, {80, 200}, {300, 301}, {310, 311}}});
    ask({.session_id = session, .ranges = {{5, 9}}, .trailing = client::to_bytes("behind")});
    ask({.kind = 2, .session_id = session, .ranges = {{5, 9}}}, "the kind is not 1");
    ask({.kind = 3, .session_id = session, .ranges = {{5, 9}}}, "the kind is not 1");
    ask({.version = 2, .session_id = session, .ranges = {{5, 9}}}, "the version is not 1");
    ask({.protocol_id = 4, .session_id = session, .ranges = {{5, 9}}}, "the protocol is not DEEP");
    ask({.channel_id = 2, .session_id = session, .ranges = {{5, 9}}}, "the channel is not 1");
    ask({.session_id = session + 1, .ranges = {{5, 9}}}, "session");
    ask({.session_id = session, .ranges = {{5, 9}, {9, 12}}}, "the ranges do not rise");
    ask({.session_id = session, .ranges = {{9, 5}}}, "a range ends before it begins");
    ask({.session_id = session, .ranges = {{5, 9}}, .range_count = 2},
        "it has not as many ranges as it says");
  }

  void ask_for_image(const SnapRequest& request) {
    const size_t feed_packets = arrived();
    client::SnapClient snap(exchange_.ports().snap, recording_.session);
    recording_.images.push_back({request, snap.exchange(encode(request)), feed_packets});
  }

  void ask_for_images() {
    const uint32_t session = recording_.session;
    ask_for_image({.name = "BENCH", .session_id = session, .minimum_seq = 1});
    ask_for_image(
        {.name = "BENCH", .name_padding = '\0', .session_id = session, .minimum_seq = 1u << 30});
    ask_for_image({.session_id = session + 1});
    ask_for_image({.channel_id = 2, .session_id = session});
    ask_for_image({.name = "", .session_id = session});
    ask_for_image({.type = 's', .session_id = session, .trailing = client::to_bytes("behind")});
  }

  void lose_and_repeat() {
    for (const char* fault : {"drop 1", "dup 1", "reorder 1", "drop 3"}) {
      exchange_.control().ok(fault);
      for (int i = 0; i < 4; ++i) order("1", "100", "189." + std::to_string(10 + orders_));
    }
  }

  void learn_true_numbers() {
    client::GapFillClient all(exchange_.ports().gap_fill, recording_.session);
    const uint64_t last = all.status().next_seq - 1;
    for (const auto& [seq, message] : all.fetch_all(1, last)) {
      recording_.seq_at[message.stream_offset] = seq;
      recording_.seq_at[message.end_offset()] = seq + 1;
    }
  }

  Recording recording_;
  e2e::Exchange exchange_;
  client::UdpSocket gap_fill_;
  client::FixSession alpha_;
  unsigned orders_ = 0;
};

ByteView view_of(const std::string& text) {
  return {reinterpret_cast<const uint8_t*>(text.data()), text.size()};
}

/// Sizes of segments that part every frame somewhere else: its length, its type, its header.
std::vector<size_t> put_in_segments(CapturedConnection& connection, ByteView bytes) {
  constexpr size_t SIZES[] = {1, 1, 1, 8, 1, 44, 2, 75, 76, 1, 3, 150, 1400, 7, 46, 1460};
  std::vector<size_t> frames;
  for (size_t i = 0; !bytes.empty(); ++i) {
    const size_t size = std::min(SIZES[i % std::size(SIZES)], bytes.size());
    frames.push_back(connection.server_sends(bytes.first(size)));
    bytes = bytes.subspan(size);
  }
  return frames;
}

}  // namespace

const Recording& Recording::of_a_run() {
  static const Recording recording = Recorder().record();
  return recording;
}

Frames put_recording(CaptureFile& file, const Recording& recording, const CapturedPorts& ports) {
  Frames frames;
  const auto feed_up_to = [&](size_t count) {
    for (size_t i = frames.feed.size(); i < count; ++i) {
      frames.feed.push_back(file.udp({.port = FEED_SOURCE_PORT},
                                     {.address = GROUP, .port = ports.feed}, recording.feed[i]));
    }
  };
  const auto gap_fill = [&](const RecordedRequest& asked) {
    feed_up_to(asked.feed_packets);
    const Endpoint client{.port = CLIENT_PORT}, server{.port = ports.gap_fill};
    frames.gap_fill.push_back(file.udp(client, server, encode(asked.request)));
    frames.gap_fill_replies.emplace_back();
    for (const Bytes& reply : asked.replies) {
      frames.gap_fill_replies.back().push_back(file.udp(server, client, reply));
    }
  };

  // All requests but the last two were made ahead of the images.
  const auto ahead = recording.gap_fill.end() - 2;
  std::for_each(recording.gap_fill.begin(), ahead, gap_fill);
  auto client_port = CLIENT_PORT;
  for (const RecordedImage& image : recording.images) {
    feed_up_to(image.feed_packets);
    CapturedConnection connection(file, {.port = ++client_port}, {.port = ports.snap});
    const Bytes request = encode(image.request);
    frames.images.push_back({connection.client_sends(request)});
    for (const size_t frame : put_in_segments(connection, image.reply)) {
      frames.images.back().push_back(frame);
    }
    connection.server_closes();
  }
  std::for_each(ahead, recording.gap_fill.end(), gap_fill);
  feed_up_to(recording.feed.size());

  CapturedConnection connection(file, {.port = ++client_port}, {.port = ports.fix});
  for (const RecordedFix& message : recording.fix) {
    frames.fix.push_back(message.from_client ? connection.client_sends(view_of(message.bytes))
                                             : connection.server_sends(view_of(message.bytes)));
  }
  connection.server_closes();
  return frames;
}

}  // namespace share
