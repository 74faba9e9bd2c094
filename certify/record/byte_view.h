#pragma once

#include <cstdint>
#include <string_view>

#include "quorl/client/bytes.h"

namespace certify {

/// The same bytes as the client library's readers take them; good as long as the text is.
inline quorl::client::ByteView view_of(std::string_view bytes) {
  return {reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()};
}

}  // namespace certify
