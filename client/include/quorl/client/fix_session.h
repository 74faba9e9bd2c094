#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "quorl/client/deadline.h"
#include "quorl/client/fix_message.h"
#include "quorl/client/tcp.h"

namespace quorl::client {

/// What a message carries in place of what the session would write.
struct SendOverrides {
  std::optional<std::string> seq = {};  // 34 as text; empty text: no tag 34. Does not move next_out
  std::optional<std::string> sender = {};
  std::optional<std::string> target = {};
  FixFields header_extra = {};  // behind 52, such as {43, "Y"}
};

struct LogonOptions {
  std::string heartbeat_s = "30";  // 108 as text; empty: no tag 108
  bool reset = false;              // 141=Y; sets both numbers to 1 before
};

/// A NewOrderSingle. A field of empty text is left out.
struct NewOrder {
  std::string cl_ord_id = {};    // 11
  std::string symbol = "AAPL";   // 55
  std::string side = "1";        // 54
  std::string quantity = "100";  // 38
  std::string type = "2";        // 40
  std::string price = {};        // 44
  std::string tif = "0";         // 59
  std::string exec_inst = "i";   // 18
  std::string capacity = "P";    // 47
  std::string locate = {};       // 114
};

/// An OrderCancelRequest or OrderCancelReplaceRequest. A field of empty text is left out.
struct ChangeOrder {
  std::string cl_ord_id = {};       // 11
  std::string orig_cl_ord_id = {};  // 41
  std::string symbol = "AAPL";      // 55
  std::string side = "1";           // 54
  std::string quantity = {};        // 38, replace only
  std::string price = {};           // 44, replace only
};

/// How a jump of the incoming MsgSeqNum is taken.
enum class Continuity {
  STRICT,     // throws WireError
  TRACK,      // notes the numbers left out in missing(); they may come later
  UNCHECKED,  // nothing is looked at
};

/// The initiator's end of one FIX session. It is a test's hands and eyes: it sends what it is told,
/// right or wrong, answers nothing by itself, and holds every byte that comes to the layout of its
/// type and, unless told otherwise, to an unbroken numbering. Its numbers outlive its connections.
class FixSession {
 public:
  FixSession(uint16_t port, std::string comp_id);

  // Connection.
  void connect();
  void disconnect();  // orderly, without a Logout
  void abort();       // by a reset
  bool connected() const { return stream_.open() && !stream_.ended(); }

  /// Waits for the exchange to close. Throws Timeout if it does not, and WireError if a message
  /// comes first other than Heartbeats.
  void expect_closed(std::chrono::milliseconds patience = PATIENCE);
  /// Everything that comes before the exchange closes. Throws Timeout if it does not close.
  std::vector<FixMessage> read_to_close(std::chrono::milliseconds patience = PATIENCE);

  // Numbers. next_out is what the next message sent will carry.
  uint32_t next_out = 1;
  uint32_t next_in = 1;
  Continuity continuity = Continuity::STRICT;
  /// Numbers below next_in that have not come: kept in Continuity::TRACK.
  const std::vector<uint32_t>& missing() const { return missing_; }
  /// Called instead of throwing when a number jumps under Continuity::STRICT, with the number that
  /// was due. The session then goes on behind the higher of the two.
  std::function<void(const FixMessage&, uint32_t due)> on_jump;

  // Sending.
  /// Returns false if the connection is gone; what follows from that is for the test to say.
  bool send_bytes(std::string_view bytes);
  /// Sends 8=FIX.4.2 with all fields in order and returns the bytes. Takes next_out unless `seq` is
  /// overridden.
  std::string send_message(const std::string& type, const FixFields& body,
                           const SendOverrides& overrides = {});
  void new_order(const NewOrder& order);
  void cancel(const ChangeOrder& order);
  void replace(const ChangeOrder& order);
  void heartbeat(const std::string& test_req_id = "");
  void test_request(const std::string& test_req_id);  // empty: no tag 112
  void resend_request(const std::string& begin, const std::string& end);
  void sequence_reset(const std::string& new_seq_no, bool gap_fill);

  // Receiving.
  /// The next message, Heartbeats too; nothing at the deadline or the end of the stream.
  std::optional<FixMessage> receive(std::chrono::milliseconds patience = PATIENCE);
  /// The next message that is not a Heartbeat without TestReqID. Throws Timeout.
  FixMessage next(std::chrono::milliseconds patience = PATIENCE);
  /// As next(), and throws WireError unless its type is `type`.
  FixMessage expect(const std::string& type, std::chrono::milliseconds patience = PATIENCE);
  /// An ExecutionReport with this ExecType (150).
  FixMessage expect_report(char exec_type, std::chrono::milliseconds patience = PATIENCE);
  /// As next(), and throws WireError unless the message carries each of these fields:
  /// "35=8|150=0|39=0|151=500".
  FixMessage hears(std::string_view fields_with_bars,
                   std::chrono::milliseconds patience = PATIENCE);
  /// A barrier without sleeping: sends a TestRequest and returns all that comes before its answer.
  std::vector<FixMessage> drain(std::chrono::milliseconds patience = PATIENCE);
  /// drain(), and throws WireError if anything came.
  void hears_nothing();

  // Dialogues.
  /// Connects if need be, logs on and returns the reply, which must be a Logon that echoes 108 and
  /// 141.
  FixMessage logon(const LogonOptions& options = {});
  /// Only sends the Logon.
  void send_logon(const LogonOptions& options = {});
  /// Logs out and waits for the Logout and the close.
  void logout();

  const std::string& comp_id() const { return comp_id_; }
  /// Every message received, in order of arrival, over all connections.
  const std::vector<FixMessage>& received() const { return received_; }

 private:
  std::optional<FixMessage> frame_waiting();
  void account(const FixMessage& message);
  void account_jump(const FixMessage& message, uint32_t seq);
  FixMessage check_fields(FixMessage message, std::string_view fields_with_bars) const;

  uint16_t port_;
  std::string comp_id_;
  TcpStream stream_;
  FixFramer framer_;
  std::vector<uint32_t> missing_;
  std::vector<FixMessage> received_;
  uint32_t barriers_ = 0;  // names the TestRequests of drain()
};

}  // namespace quorl::client
