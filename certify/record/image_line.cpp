#include "certify/record/image_line.h"

#include <algorithm>

#include "quorl/client/bytes.h"
#include "quorl/client/iex_tp.h"

namespace client = quorl::client;

namespace certify {
namespace {

constexpr size_t LENGTH_SIZE = 2;
constexpr size_t SHORTEST_REQUEST = 57;  // behind the length
constexpr size_t NAME_AT = 3;
constexpr size_t NAME_SIZE = 40;
constexpr size_t CHANNEL_AT = 43;
constexpr size_t SESSION_AT = 47;
constexpr size_t MINIMUM_AT = 51;
constexpr size_t NUMBER_AT = 3;  // in a reply's start and end frame
constexpr size_t NUMBER_SIZE = 8;

uint64_t little_endian(std::string_view bytes, size_t at, size_t size) {
  uint64_t value = 0;
  for (size_t i = size; i-- > 0;) value = value << 8 | static_cast<uint8_t>(bytes[at + i]);
  return value;
}

size_t length_of(std::string_view frame) {
  return static_cast<size_t>(little_endian(frame, 0, LENGTH_SIZE));
}

/// Of a whole frame, in the order in which the exchange tests.
std::string flaw_of(std::string_view frame, uint32_t session) {
  const char type = frame[LENGTH_SIZE];
  if (type != 'r') return "its type is " + std::to_string(static_cast<uint8_t>(type)) + ", not 'r'";
  if (length_of(frame) < SHORTEST_REQUEST) {
    return "its length is " + std::to_string(length_of(frame)) + ", below 57";
  }
  const std::string_view name = frame.substr(NAME_AT, NAME_SIZE);
  if (std::all_of(name.begin(), name.end(), [](char c) { return c == 0 || c == ' '; })) {
    return "its name is empty";
  }
  const uint64_t channel = little_endian(frame, CHANNEL_AT, 4);
  if (channel != client::DEEP_CHANNEL_ID) {
    return "its channel is " + std::to_string(channel) + ", not 1";
  }
  const uint64_t asked = little_endian(frame, SESSION_AT, 4);
  if (asked != session) {
    return "its session is " + std::to_string(asked) + ", not " + std::to_string(session);
  }
  return {};
}

}  // namespace

std::optional<ImageRequested> ImageLine::on_request(std::string_view bytes) {
  if (requested_) return std::nullopt;  // what stands behind the request is not looked at
  while (!bytes.empty()) {
    // The length first, so that no more is kept than the frame.
    const size_t wanted =
        request_.size() < LENGTH_SIZE ? LENGTH_SIZE : LENGTH_SIZE + length_of(request_);
    const size_t take = std::min(bytes.size(), wanted - request_.size());
    if (take == 0) break;  // a length of 0
    request_ += bytes.substr(0, take);
    bytes.remove_prefix(take);
  }
  if (request_.size() <= LENGTH_SIZE || request_.size() < LENGTH_SIZE + length_of(request_)) {
    return std::nullopt;
  }
  requested_ = whole_request_ = true;
  ImageRequested request = judged_request();
  request_ = {};
  return request;
}

ImageRequested ImageLine::judged_request() const {
  ImageRequested request{.connection = connection_, .flaw = flaw_of(request_, session_)};
  request.well_formed = request.flaw.empty();
  if (request_.size() >= MINIMUM_AT + NUMBER_SIZE) {
    request.minimum_seq = little_endian(request_, MINIMUM_AT, NUMBER_SIZE);
  }
  return request;
}

std::optional<ImageRequested> ImageLine::end_of_request(const Ended& ended) {
  if (ended.by == Party::CLIENT && !ended.by_link) client_left_ = true;
  // Who only connects, as a test whether the port is open, asks for nothing.
  if (requested_ || request_.empty()) return std::nullopt;
  requested_ = true;
  if (ended.by_link) return std::nullopt;
  std::string flaw = std::to_string(request_.size()) + " bytes of it had come";
  if (request_.size() >= LENGTH_SIZE) {
    flaw += ", of " + std::to_string(LENGTH_SIZE + length_of(request_));
    if (length_of(request_) == 0) flaw += ", and a length of 0 is never whole";
  }
  flaw += ended.by == Party::CLIENT ? ", when the client ended its side"
                                    : ", when the exchange gave it up after 10 s";
  return ImageRequested{.connection = connection_, .flaw = flaw};
}

std::optional<ImageReplied> ImageLine::on_reply(std::string_view bytes) {
  std::optional<ImageReplied> reply;
  while (!bytes.empty() && !replied_) {
    if (frame_left_ > 0) {
      const auto skip = static_cast<size_t>(std::min<uint64_t>(frame_left_, bytes.size()));
      bytes.remove_prefix(skip);
      bytes_ += skip;
      frame_left_ -= skip;
      continue;
    }
    frame_ += bytes.front();
    bytes.remove_prefix(1);
    ++bytes_;
    reply = on_frame();
  }
  bytes_ += bytes.size();
  return reply;
}

/// As much of a frame as is looked at may have come.
std::optional<ImageReplied> ImageLine::on_frame() {
  if (frame_.size() <= LENGTH_SIZE) return std::nullopt;
  const char type = frame_[LENGTH_SIZE];
  const size_t size = LENGTH_SIZE + length_of(frame_);
  const size_t wanted = type == 's' || type == 'x' ? NUMBER_AT + NUMBER_SIZE
                        : type == 'e'              ? NUMBER_AT + 1
                                                   : NUMBER_AT;
  if (frame_.size() < std::min(wanted, size)) return std::nullopt;
  const std::string frame = std::exchange(frame_, {});
  frame_left_ = size - std::min(size, frame.size());
  const bool whole = frame.size() == wanted;
  if (type == 's' && whole && frames_ == 0)
    announced_ = little_endian(frame, NUMBER_AT, NUMBER_SIZE);
  ++frames_;
  if (whole && type == 'e') {
    ImageReplied reply = replied();
    reply.error = frame[NUMBER_AT];
    return reply;
  }
  if (whole && type == 'x') {
    ImageReplied reply = replied();
    reply.complete = announced_ == bytes_;
    reply.seq = little_endian(frame, NUMBER_AT, NUMBER_SIZE);
    return reply;
  }
  return std::nullopt;
}

ImageReplied ImageLine::replied() {
  replied_ = true;
  return {.connection = connection_, .bytes = bytes_};
}

std::optional<ImageReplied> ImageLine::end_of_reply(const Ended& ended) {
  const bool over = ended.by == Party::EXCHANGE || ended.reset || ended.by_link;
  if (!over || replied_ || !whole_request_) return std::nullopt;
  ImageReplied reply = replied();
  reply.client_left = client_left_ && bytes_ == 0;
  return reply;
}

}  // namespace certify
