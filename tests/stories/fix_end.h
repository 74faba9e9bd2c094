#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "quorl/client/fix_message.h"
#include "stories/story.h"

namespace client = quorl::client;

namespace stories {

/// The clients' ends of all FIX connections of a story: composes what they send, and keeps the
/// numbers of their streams, which outlive connections.
class FixEnd {
 public:
  /// A message with all that its fields do not name: 8, 9, 35, 34, 49, 56, 52 ahead of them,
  /// and 10. Their values have no names left.
  std::string composed(const std::string& connection, const std::string& type,
                       const std::vector<FieldWords>& fields);

  void begin_connection(const std::string& connection);

  /// Takes bytes that have come. Throws client::WireError for what is no message of the exchange to
  /// this client, or not laid out like one.
  void take(const std::string& connection, std::string_view bytes);

  /// What has come and was not yet asked for.
  std::deque<client::FixMessage>& waiting(const std::string& connection);
  /// Bytes of a message that has not come whole.
  size_t pending(const std::string& connection) const;

  /// The number that the next message to come on this connection has, unless the story names it.
  uint32_t& next_in(const std::string& connection);

 private:
  struct Stream {
    uint32_t next_out = 1;
    uint32_t next_in = 1;
  };
  struct Connection {
    std::string comp_id;  // as the latest Logon had it
    client::FixFramer framer;
    std::deque<client::FixMessage> waiting;
  };
  Connection& connection(const std::string& name);
  Stream& stream(const std::string& connection);

  std::map<std::string, Stream> streams_;  // by SenderCompID
  std::map<std::string, Connection> connections_;
};

}  // namespace stories
