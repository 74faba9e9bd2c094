#include "quorl/client/snap_client.h"

#include <optional>
#include <utility>

#include "quorl/client/errors.h"
#include "quorl/client/iex_tp.h"

namespace quorl::client {
namespace {

constexpr size_t NAME_SIZE = 40;

[[noreturn]] void refuse(const std::string& why) { throw WireError("DEEP SNAP: " + why); }

void require(bool holds, const char* why) {
  if (!holds) refuse(why);
}

/// A frame's length, type and body.
struct Frame {
  char type = 0;
  ByteView body;
};

Frame take_frame(ByteReader& reader) {
  const uint16_t length = reader.u16("frame length");
  require(length > 0, "a frame of length 0");
  ByteReader frame(reader.take(length, "frame"), "DEEP SNAP frame");
  const char type = frame.character("type");
  return {type, frame.take(frame.left(), "body")};
}

uint64_t number_frame(const Frame& frame, char type, const char* name) {
  if (frame.type != type) refuse(std::string("a frame that should be the ") + name);
  ByteReader reader(frame.body, name);
  const uint64_t value = reader.u64("number");
  reader.expect_end();
  return value;
}

bool same_header(const TpHeader& a, const TpHeader& b) {
  return a.stream_offset == b.stream_offset && a.first_seq == b.first_seq &&
         a.send_time_ns == b.send_time_ns;
}

/// The message of a data frame; its header goes to `header`.
DeepMessage data_frame(const Frame& frame, uint32_t session, TpHeader& header) {
  ByteReader reader(frame.body, "DEEP SNAP data frame");
  header = decode_tp_header(reader.take(TP_HEADER_SIZE, "header"), session);
  require(header.message_count == 1, "a data frame with other than one message");
  require(header.payload_length == reader.left(), "a data frame of a wrong payload length");
  const uint16_t length = reader.u16("message length");
  require(length == reader.left(), "a data frame of a wrong message length");
  return decode_deep(reader.take(length, "message"));
}

uint64_t timestamp_of(const DeepMessage& message) {
  return std::visit([](const auto& m) { return m.timestamp_ns; }, message);
}

/// Walks the messages of an image through their one permitted order.
class ImageOrder {
 public:
  explicit ImageOrder(const std::vector<DeepMessage>& messages) : messages_(messages) {}

  void check() {
    std::vector<std::string> symbols;
    while (next_type() == 'D') symbols.push_back(symbol_of(take('D', std::nullopt)));
    const DeepMessage event = take('S', std::nullopt);
    require(std::get<SystemEvent>(event).event == 'R', "a System Event other than R");
    for (const std::string& symbol : symbols) check_symbol(symbol);
    require(at_ == messages_.size(), "messages behind the last symbol's");
  }

 private:
  void check_symbol(const std::string& symbol) {
    for (const char type : {'H', 'E', 'O', 'P'}) take(type, symbol);
    check_levels('8', symbol);
    check_levels('5', symbol);
    take('I', symbol);
  }

  void check_levels(char type, const std::string& symbol) {
    std::optional<Price4> before;
    while (next_type() == type) {
      const auto level = std::get<LevelUpdate>(take(type, symbol));
      require(level.last_of_event, "a level without event flags 1");
      require(level.size > 0, "a level of size 0");
      const bool in_order = !before || (level.buy ? level.price < *before : level.price > *before);
      require(in_order, "levels that do not run from the best to the worst");
      before = level.price;
    }
  }

  char next_type() const { return at_ < messages_.size() ? type_of(messages_[at_]) : 0; }

  const DeepMessage& take(char type, const std::optional<std::string>& symbol) {
    if (next_type() != type) {
      refuse("message " + std::to_string(at_ + 1) + " should be of type " + type +
             (at_ < messages_.size() ? " and is " + describe(messages_[at_]) : " and is missing"));
    }
    const DeepMessage& message = messages_[at_++];
    if (symbol && symbol_of(message) != *symbol) {
      refuse(describe(message) + " among the messages of " + *symbol);
    }
    return message;
  }

  const std::vector<DeepMessage>& messages_;
  size_t at_ = 0;
};

SnapImage decode_image(ByteReader& reader, size_t size, uint32_t session) {
  SnapImage image;
  image.total_bytes = number_frame(take_frame(reader), 's', "start frame");
  require(image.total_bytes == size, "the announced size is not the reply's");
  std::optional<TpHeader> first;
  Frame frame = take_frame(reader);
  for (; frame.type == 'd'; frame = take_frame(reader)) {
    TpHeader header;
    image.messages.push_back(data_frame(frame, session, header));
    if (!first) first = header;
    require(same_header(*first, header), "data frames whose headers differ");
    require(timestamp_of(image.messages.back()) == timestamp_of(image.messages.front()),
            "messages of different times");
  }
  image.seq = number_frame(frame, 'x', "end frame");
  reader.expect_end();
  require(first.has_value(), "an image of no messages");
  require(first->first_seq == image.seq, "the end frame's number is not the data frames'");
  image.stream_offset = first->stream_offset;
  image.send_time_ns = first->send_time_ns;
  image.timestamp_ns = timestamp_of(image.messages.front());
  ImageOrder(image.messages).check();
  return image;
}

}  // namespace

Bytes encode(const SnapRequest& request) {
  Bytes body;
  put_padded(body, request.name, NAME_SIZE, request.name_padding);
  put_u32(body, request.channel_id);
  put_u32(body, request.session_id);
  put_u64(body, request.minimum_seq);
  put_bytes(body, request.trailing);
  Bytes frame;
  put_u16(frame, static_cast<uint16_t>(body.size() + 1));
  put_u8(frame, static_cast<uint8_t>(request.type));
  put_bytes(frame, body);
  return frame;
}

std::vector<std::string> SnapImage::symbols() const {
  std::vector<std::string> symbols;
  for (const DeepMessage& message : messages) {
    if (type_of(message) == 'D') symbols.push_back(symbol_of(message));
  }
  return symbols;
}

BookBuilder SnapImage::book() const {
  BookBuilder book;
  book.begin_image();
  for (const DeepMessage& message : messages) book.apply_image(message);
  return book;
}

SnapReply decode_snap_reply(ByteView bytes, uint32_t session) {
  ByteReader reader(bytes, "DEEP SNAP reply");
  ByteReader peek(bytes, "DEEP SNAP reply");
  const Frame frame = take_frame(peek);
  if (frame.type != 'e') return decode_image(reader, bytes.size(), session);
  peek.expect_end();
  ByteReader body(frame.body, "DEEP SNAP error");
  const SnapError error{body.character("code")};
  body.expect_end();
  if (std::string_view("UACSR").find(error.code) == std::string_view::npos) {
    refuse("an unknown error code: " + hex(bytes));
  }
  return error;
}

Bytes SnapClient::exchange(ByteView bytes, std::chrono::milliseconds patience) {
  const Deadline deadline = Deadline::after(patience);
  TcpStream stream = TcpStream::connect(port_, deadline);
  stream.send_all(bytes, deadline);
  return stream.receive_to_end(deadline);
}

SnapReply SnapClient::request(const SnapRequest& request, std::chrono::milliseconds patience) {
  const Bytes reply = exchange(encode(request), patience);
  if (reply.empty()) refuse("closed without a reply");
  return decode_snap_reply(reply, session_);
}

SnapImage SnapClient::image(uint64_t minimum_seq, std::chrono::milliseconds patience) {
  SnapReply reply = request({.session_id = session_, .minimum_seq = minimum_seq}, patience);
  if (const auto* error = std::get_if<SnapError>(&reply)) {
    refuse(std::string("refused with code ") + error->code);
  }
  SnapImage image = std::get<SnapImage>(std::move(reply));
  require(image.seq >= minimum_seq, "an image older than asked for");
  return image;
}

}  // namespace quorl::client
