#include "feed/snap.h"

#include <algorithm>
#include <cerrno>

#include "base/clocks.h"
#include "base/log.h"
#include "base/price4.h"
#include "base/sockets.h"
#include "feed/deep_messages.h"
#include "feed/tp_publisher.h"
#include "market/engine.h"

namespace quorl {
namespace {

constexpr size_t LENGTH_SIZE = 2;   // the length in front of each frame
constexpr size_t READ_SIZE = 4096;  // bytes taken by one recv
constexpr uint64_t REQUEST_LIMIT_MS = 10000;
constexpr int WRITABLE_WAIT_MS = 1000;
constexpr size_t START_AND_END_SIZE = 22;
constexpr uint16_t START_END_LENGTH = 9;  // type and a u64

// The fixed part of a request, by offset behind the 2-byte length.
constexpr size_t NAME_AT = 1;
constexpr size_t NAME_SIZE = 40;
constexpr size_t CHANNEL_AT = 41;
constexpr size_t SESSION_AT = 45;
constexpr size_t MINIMUM_AT = 49;
constexpr size_t REQUEST_SIZE = 57;

template <typename Bytes>
void put_bytes(std::vector<uint8_t>& out, const Bytes& bytes) {
  out.insert(out.end(), bytes.begin(), bytes.end());
}

std::vector<uint8_t> error_reply(char code) {
  const auto frame = pack_le(uint16_t{2}, 'e', code);
  return {frame.begin(), frame.end()};
}

bool is_blank(std::span<const uint8_t> name) {
  return std::all_of(name.begin(), name.end(), [](uint8_t c) { return c == 0 || c == ' '; });
}

/// Bytes of the first frame, or 0 while it is not complete. A length of 0 never completes.
size_t complete_frame_size(const std::vector<uint8_t>& inbound) {
  if (inbound.size() <= LENGTH_SIZE) return 0;
  const size_t length = read_le<uint16_t>(inbound.data());
  if (length == 0 || inbound.size() < length + LENGTH_SIZE) return 0;
  return length + LENGTH_SIZE;
}

void close_connection(SnapConnection& snap) {
  close_socket(snap.fd);
  snap.fd = -1;
}

/// False if the peer has ended or failed: the connection is closed then, and nothing is answered.
bool read_all(SnapConnection& snap, std::span<char> scratch) {
  const size_t piece = std::min(READ_SIZE, scratch.size());
  while (true) {
    const ssize_t received = receive(snap.fd, scratch.data(), piece);
    if (received <= 0) return received < 0 && errno == EAGAIN;
    snap.inbound.insert(snap.inbound.end(), scratch.data(), scratch.data() + received);
  }
}

void send_all(int fd, std::span<const uint8_t> bytes) {
  while (!bytes.empty()) {
    const ssize_t sent = send_bytes(fd, bytes.data(), bytes.size());
    if (sent > 0) {
      bytes = bytes.subspan(static_cast<size_t>(sent));
    } else if (sent < 0 && errno == EAGAIN) {
      pollfd writable{fd, POLLOUT, 0};
      wait_for_events({&writable, 1}, WRITABLE_WAIT_MS);
    } else {
      return;
    }
  }
}

/// The data frames of one image, all with the same header and the same time.
class SnapImage {
 public:
  SnapImage(const TpHeader& header, uint64_t timestamp_ns) : header_(header), t_(timestamp_ns) {}

  void add_directory(const Stock& stock) {
    add(SecurityDirectory{.timestamp_ns = t_,
                          .symbol = stock.symbol,
                          .adjusted_previous_close = price_of_mid(stock.mid)});
  }

  void add_system_event(char status) { add(SystemEvent{.event = status, .timestamp_ns = t_}); }

  void add_stock(const Stock& stock) {
    add(TradingStatus{.status = stock.status, .timestamp_ns = t_, .symbol = stock.symbol});
    add(SecurityEvent{.timestamp_ns = t_, .symbol = stock.symbol});
    add(OperationalHaltStatus{.timestamp_ns = t_, .symbol = stock.symbol});
    add(ShortSalePriceTestStatus{.timestamp_ns = t_, .symbol = stock.symbol});
    for (const bool buy : {true, false}) {
      stock.book.side(buy).for_each_shown([&](Price4 price, uint32_t size) {
        add_level(stock, buy, price, size);
        return true;
      });
    }
    add(RetailLiquidityIndicator{.timestamp_ns = t_, .symbol = stock.symbol});
  }

  const std::vector<uint8_t>& data_frames() const { return data_frames_; }

 private:
  void add_level(const Stock& stock, bool buy, Price4 price, uint32_t size) {
    add(PriceLevelUpdate{.buy = buy,
                         .event_flags = 1,
                         .timestamp_ns = t_,
                         .symbol = stock.symbol,
                         .size = size,
                         .price = price});
  }

  template <typename Message>
  void add(const Message& message) {
    const auto bytes = encode(message);
    snap_frame(header_, bytes.data(), bytes.size(), data_frames_);
  }

  TpHeader header_;
  uint64_t t_;
  std::vector<uint8_t> data_frames_;
};

}  // namespace

void accept_snap_connections(int listen_fd, std::vector<SnapConnection>& snaps) {
  for (int fd = accept_connection(listen_fd); fd >= 0; fd = accept_connection(listen_fd)) {
    set_nonblocking(fd);
    snaps.push_back({fd, {}, static_cast<int64_t>(steady_ms())});
  }
}

void serve_snap_connections(Engine& engine, std::vector<SnapConnection>& snaps,
                            std::span<char> scratch) {
  for (SnapConnection& snap : snaps) {
    if (snap.fd < 0) continue;
    if (!read_all(snap, scratch)) {
      close_connection(snap);
      continue;
    }
    const size_t frame_size = complete_frame_size(snap.inbound);
    if (frame_size != 0) {
      send_all(snap.fd, answer_snap_request(engine, {snap.inbound.data(), frame_size}));
      close_connection(snap);
    } else if (steady_ms() - static_cast<uint64_t>(snap.accepted_ms) > REQUEST_LIMIT_MS) {
      close_connection(snap);
    }
  }
}

std::vector<uint8_t> answer_snap_request(Engine& engine, std::span<const uint8_t> frame) {
  const std::span<const uint8_t> request = frame.subspan(LENGTH_SIZE);
  const TpPublisher& publisher = *engine.publisher;
  if (request.front() != 'r' || request.size() < REQUEST_SIZE) return error_reply('U');
  if (is_blank(request.subspan(NAME_AT, NAME_SIZE))) return error_reply('A');
  if (read_le<uint32_t>(&request[CHANNEL_AT]) != DEEP_CHANNEL_ID) return error_reply('C');
  if (read_le<uint32_t>(&request[SESSION_AT]) != publisher.session_id()) return error_reply('S');
  const auto minimum = read_le<uint64_t>(&request[MINIMUM_AT]);
  const uint64_t last_seq = publisher.last_seq();
  if (last_seq < minimum) return error_reply('R');

  std::vector<uint8_t> image = build_snap_image(engine);
  print_log("bench: DEEP SNAP served at seq %llu (%zu bytes; requested minimum %llu)\n",
            static_cast<unsigned long long>(last_seq), image.size(),
            static_cast<unsigned long long>(minimum));
  return image;
}

std::vector<uint8_t> build_snap_image(Engine& engine) {
  const TpPublisher& publisher = *engine.publisher;
  TpHeader header;
  header.session_id = publisher.session_id();
  header.message_count = 1;
  header.first_seq = publisher.last_seq();
  // The packet under assembly counts: its messages have already changed what is shown.
  header.stream_offset = publisher.next_block_offset();
  header.send_time = system_ns();

  SnapImage image(header, system_ns());
  for (const Stock& stock : engine.stocks) image.add_directory(stock);
  image.add_system_event(engine.system_status);
  for (const Stock& stock : engine.stocks) image.add_stock(stock);

  const uint64_t total = image.data_frames().size() + START_AND_END_SIZE;
  std::vector<uint8_t> reply;
  reply.reserve(total);
  put_bytes(reply, pack_le(START_END_LENGTH, 's', total));
  put_bytes(reply, image.data_frames());
  put_bytes(reply, pack_le(START_END_LENGTH, 'x', header.first_seq));
  ++engine.snapshots_served;
  return reply;
}

void snap_frame(const TpHeader& header, const void* message, size_t size,
                std::vector<uint8_t>& out) {
  constexpr size_t AROUND_MESSAGE = 1 + TP_HEADER_SIZE + BLOCK_PREFIX_SIZE;
  TpHeader segment = header;
  segment.payload_length = static_cast<uint16_t>(size + BLOCK_PREFIX_SIZE);
  put_bytes(out, pack_le(static_cast<uint16_t>(size + AROUND_MESSAGE), 'd'));
  put_bytes(out, encode(segment));
  put_bytes(out, pack_le(static_cast<uint16_t>(size)));
  const auto* const bytes = static_cast<const uint8_t*>(message);
  out.insert(out.end(), bytes, bytes + size);
}

}  // namespace quorl
