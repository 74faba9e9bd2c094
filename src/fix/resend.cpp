#include <algorithm>

#include "base/log.h"
#include "bench/scenario.h"
#include "fix/session.h"
#include "fix/stream_records.h"
#include "market/engine.h"

// Recovery in both directions. There is no state of being in recovery: each message is judged by
// itself against next_in and next_out.

namespace quorl {
namespace {

/// Index of the first stored message with this number or a higher one.
size_t first_stored_from(const MessageLog<StoredMessage>& store, uint32_t seq) {
  size_t first = 0;
  for (size_t count = store.size(); count > 0;) {
    const size_t half = count / 2;
    if (store[first + half].meta.seq < seq) {
      first += half + 1;
      count -= half + 1;
    } else {
      count = half;
    }
  }
  return first;
}

}  // namespace

void FixGateway::on_resend_request(Client& client, FixStream& stream, const FixFieldMap& fields) {
  ++scenario_.counters.resend_requests;
  serve_resend(client, stream, fields);
  if (client.last_seq >= stream.next_in) stream.next_in = client.last_seq + 1;
}

void FixGateway::serve_resend(Client& client, const FixStream& stream, const FixFieldMap& fields) {
  const uint32_t begin = fields.number(TAG_BEGIN_SEQ_NO);
  const uint32_t asked_end = fields.number(TAG_END_SEQ_NO);
  const uint32_t top = stream.next_out - 1;
  // In 32 bits 0 - 1 is above every top: an end of 0, "all there is", takes the same way as an end
  // beyond the stream.
  const uint32_t end = asked_end - 1 < top ? asked_end : top;
  print_log("bench: ResendRequest from %s 7=%u 16=%u -> serving %u..%u\n", client.comp_id.c_str(),
            begin, asked_end, begin, end);

  uint32_t replayed = 0;
  uint32_t gap_fills = 0;
  // The store is in ascending order, so one look-up finds where to begin and both walk on in step.
  const MessageLog<StoredMessage>& store = stream.store;
  size_t at = first_stored_from(store, begin);
  for (uint64_t seq = begin; seq <= end;) {
    const uint64_t next_stored = at < store.size() ? store[at].meta.seq : uint64_t{end} + 1;
    if (next_stored == seq && at < store.size()) {
      const auto& [stored, body] = store[at];
      const FixTimestamp first_sent(stored.sending_time_ns);
      const FixFieldList header{{TAG_POSS_DUP_FLAG, "Y"},
                                {TAG_ORIG_SENDING_TIME, first_sent.view()}};
      send_gated(client, composed({&stored.msg_type, 1}, stored.seq, stream, body, header.wire()));
      ++replayed;
      ++at;
      ++seq;
    } else {
      const uint64_t next = std::min(next_stored, uint64_t{end} + 1);
      FixFieldList body{{TAG_GAP_FILL_FLAG, "Y"}};
      body.put_number(TAG_NEW_SEQ_NO, static_cast<int64_t>(next));
      const FixFieldList header{{TAG_POSS_DUP_FLAG, "Y"}};
      send_gated(client,
                 composed("4", static_cast<uint32_t>(seq), stream, body.wire(), header.wire()));
      ++gap_fills;
      seq = next;
    }
  }
  scenario_.counters.replayed += replayed;
  if (replayed > 0) ++scenario_.counters.replays;
  print_log("bench: resend done: replayed %u application message(s), %u GapFill(s)\n", replayed,
            gap_fills);
}

void FixGateway::on_sequence_reset(Client& client, FixStream& stream, const FixFieldMap& fields) {
  stream.next_in = fields.number(TAG_NEW_SEQ_NO);
  print_log("bench: client %s SequenceReset/GapFill 36=%u\n", client.comp_id.c_str(),
            stream.next_in);
}

void FixGateway::on_inbound_gap(Client& client, const FixStream& stream, std::string_view type) {
  print_log("bench: client %s seq gap expected %u got %u (%s) — ResendRequest sent\n",
            client.comp_id.c_str(), stream.next_in, client.last_seq, std::string(type).c_str());
  ask_for_resend(client, stream.next_in, client.last_seq - 1);
}

void FixGateway::ask_for_resend(Client& client, uint32_t first, uint32_t last) {
  FixFieldList request;
  request.put_number(TAG_BEGIN_SEQ_NO, first);
  request.put_number(TAG_END_SEQ_NO, last);
  send_admin(client, "2", request);
}

}  // namespace quorl
