
#include "base/log.h"
#include "base/number_parsers.h"
#include "bench/scenario.h"
#include "fix/connection.h"
#include "fix/session.h"
#include "fix/stream_records.h"
#include "market/engine.h"

namespace quorl {
namespace {

int32_t heartbeat_of(std::string_view text) {
  const int32_t seconds = narrowed_strtol(text);
  return seconds > 0 ? seconds : 1;
}

}  // namespace

void FixGateway::on_logon(Client& client, const FixFieldMap& fields) {
  const std::string sender(fields.text(TAG_SENDER_COMP_ID));
  const std::string target(fields.text(TAG_TARGET_COMP_ID));
  FixStream& stream = engine_.stream_named(sender);  // exists from here on, refused or not
  if (target != EXCHANGE_COMP_ID) {
    return reject_logon(client, stream, "TargetCompID '" + target + "' is not IEXG");
  }
  if (sender.empty()) return reject_logon(client, stream, "SenderCompID (49) missing");
  if (!fields.has(TAG_HEART_BT_INT)) {
    return reject_logon(client, stream, "HeartBtInt (108) missing");
  }
  const bool reset = fields.text(TAG_RESET_SEQ_NUM_FLAG) == "Y";
  if (reset) {
    // Stays done even if the number is refused just below.
    stream.next_out = stream.next_in = 1;
    stream.store.clear();
  }
  if (client.last_seq < stream.next_in) {
    return reject_logon(client, stream,
                        "MsgSeqNum too low, expecting " + std::to_string(stream.next_in) +
                            " but received " + std::to_string(client.last_seq));
  }
  accept_logon(client, stream, fields.text(TAG_HEART_BT_INT), reset);
}

void FixGateway::accept_logon(Client& client, FixStream& stream, std::string_view heart_bt_int,
                              bool reset) {
  log_on(client, stream);
  client.heartbeat_s = heartbeat_of(heart_bt_int);
  ++scenario_.counters.logons;

  const uint32_t expected = stream.next_in;
  const bool ahead = !reset && client.last_seq > expected;
  print_log("bench: logon %s 34=%u 141=%s (stream expected %u, next out %u)%s\n",
            client.comp_id.c_str(), client.last_seq, reset ? "Y" : "N", expected, stream.next_out,
            ahead ? " — the client's sequence is ahead of ours: ResendRequest sent" : "");
  stream.next_in = client.last_seq + 1;  // jumps over any gap at once

  FixFieldList reply{{TAG_ENCRYPT_METHOD, "0"}};
  reply.put_number(TAG_HEART_BT_INT, client.heartbeat_s);
  if (reset) reply.put(TAG_RESET_SEQ_NUM_FLAG, "Y");
  send_admin(client, "A", reply);
  if (ahead) ask_for_resend(client, expected, client.last_seq - 1);

  // Only now: the reply and the ResendRequest still go out.
  if (scenario_.lapse_ms > 0 && !scenario_.lapse_fired) {
    scenario_.lapse_fired = true;
    scenario_.lapse.start(static_cast<uint64_t>(scenario_.lapse_ms));
  }
  if (!quiet_) {
    print_log("[quorl] logon %s accepted (heartbeat %d s)\n", client.comp_id.c_str(),
              client.heartbeat_s);
  }
}

void FixGateway::reject_logon(Client& client, FixStream& stream, const std::string& reason) {
  print_log("bench: logon of %s rejected (%s)\n", stream.comp_id.c_str(), reason.c_str());
  log_off(client);
  client.comp_id = stream.comp_id;
  client.stream = &stream;
  const std::string text = "Logon rejected: " + reason;
  const FixFieldList body{{TAG_TEXT, text}};
  send_ignoring_result(client.fd, composed("5", stream.next_out++, stream, body.wire(), {}));
  close(client);
}

}  // namespace quorl
