#include <algorithm>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "closed_exchange.h"
#include "fix/fix_codec.h"

// The first byte says in pieces of how many bytes the rest arrives. Whatever the pieces, the
// buffer that remembers where it has searched must give the frames of one that remembers nothing.

namespace quorl {
namespace {

std::vector<std::string> frames_in(ReceiveBuffer& buffer) {
  std::vector<std::string> frames;
  for (std::string frame; extract_frame(buffer, frame);) frames.push_back(frame);
  return frames;
}

void check(bool holds) {
  if (!holds) std::abort();
}

void receive_in_pieces(std::string_view bytes, size_t piece_size) {
  ReceiveBuffer buffer;
  FixFieldMap fields;
  std::string left;  // what the buffer should hold between two pieces
  while (!bytes.empty()) {
    const std::string_view piece = bytes.substr(0, piece_size);
    bytes.remove_prefix(piece.size());
    buffer.append(piece);
    ReceiveBuffer forgetful;
    forgetful.append(left);
    forgetful.append(piece);
    const std::vector<std::string> frames = frames_in(buffer);
    check(frames == frames_in(forgetful));
    left = forgetful.bytes();
    check(buffer.bytes() == left);
    for (const std::string& frame : frames) {
      check(frame.starts_with("8=FIX"));
      parse_fields(frame, fields);
    }
  }
}

}  // namespace
}  // namespace quorl

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  const std::string bytes(quorl::fuzz::text_of(data + 1, size - 1));
  quorl::receive_in_pieces(bytes, std::max<size_t>(1, data[0]));
  quorl::FixFieldMap fields;
  quorl::parse_fields(bytes, fields);  // as if it had passed for a frame
  return 0;
}
