#include "fix/session.h"

#include <algorithm>
#include <cerrno>

#include "base/clocks.h"
#include "base/log.h"
#include "base/sockets.h"
#include "bench/scenario.h"
#include "feed/tp_publisher.h"
#include "fix/connection.h"
#include "fix/stream_records.h"
#include "market/engine.h"

namespace quorl {
namespace {

constexpr const char* SCRIPTED_DROP =
    "scripted: the last order's reports stayed on the stream; the client must log on again, "
    "continue its sequence and ResendRequest what it missed";

/// A stamp later than `now_ms` wraps to a huge age: the extra Heartbeat is accepted behaviour.
uint64_t age_ms(uint64_t now_ms, int64_t stamp_ms) {
  return now_ms - static_cast<uint64_t>(stamp_ms);
}

}  // namespace

FixGateway::FixGateway(Engine& engine, std::vector<Client>& clients, bool quiet)
    : engine_(engine), scenario_(*engine.scenario), clients_(clients), quiet_(quiet) {}

void FixGateway::accept_clients(int listen_fd) {
  for (int fd = accept_connection(listen_fd); fd >= 0; fd = accept_connection(listen_fd)) {
    set_nonblocking(fd);
    set_no_delay(fd);
    Client& client = clients_.emplace_back();
    client.fd = fd;
    client.last_rx_ms = client.last_tx_ms = static_cast<int64_t>(steady_ms());
    open_clients_.push_back(clients_.size() - 1);
    if (!quiet_) print_log("[quorl] FIX client connected (fd %d)\n", fd);
  }
}

void FixGateway::serve_clients(std::span<char> scratch) {
  for (const size_t index : open_clients_) {
    Client& client = clients_[index];
    if (client.fd >= 0) serve_client(client, scratch);
  }
}

void FixGateway::serve_client(Client& client, std::span<char> scratch) {
  while (true) {
    const ssize_t received = receive(client.fd, scratch.data(), scratch.size());
    if (received > 0) {
      client.inbound.append({scratch.data(), static_cast<size_t>(received)});
      client.last_rx_ms = static_cast<int64_t>(steady_ms());
      continue;
    }
    if (received < 0 && errno == EAGAIN) break;
    return on_end_of_stream(client);
  }
  while (client.fd >= 0 && extract_frame(client.inbound, frame_)) {
    parse_fields(frame_, fields_);
    on_message(client, fields_);
  }
}

void FixGateway::on_end_of_stream(Client& client) {
  print_log("bench: client %s disconnected (%zu resting order(s) kept)\n", client.comp_id.c_str(),
            engine_.resting_orders_of(client.comp_id));
  close(client);
}

void FixGateway::forget_closed_clients() {
  std::erase_if(open_clients_, [this](size_t index) { return clients_[index].fd < 0; });
}

void FixGateway::on_message(Client& client, const FixFieldMap& fields) {
  const std::string_view type = fields.text(TAG_MSG_TYPE);
  client.last_seq = fields.number(TAG_MSG_SEQ_NUM);
  if (type == "A") return on_logon(client, fields);
  if (!client.logged_on) return close_before_logon(client, type);

  FixStream& stream = *client.stream;
  if (type == "2") return on_resend_request(client, stream, fields);
  if (type == "4") return on_sequence_reset(client, stream, fields);
  const bool replayed = fields.text(TAG_POSS_DUP_FLAG) == "Y";
  if (replayed && client.last_seq < stream.next_in) return;
  if (client.last_seq > stream.next_in) on_inbound_gap(client, stream, type);
  // A low number without 43=Y goes on as a normal message and leaves next_in alone.
  if (client.last_seq >= stream.next_in) stream.next_in = client.last_seq + 1;
  dispatch(client, type, fields);
}

void FixGateway::dispatch(Client& client, std::string_view type, const FixFieldMap& fields) {
  if (type == "0") return;
  if (type == "1") return on_test_request(client, fields);
  if (type == "5") return on_logout(client);
  if (type == "D") return on_new_order_single(client, fields);
  if (type == "F" || type == "G") {
    // The reports first, the feed behind them: the other way round from a new order.
    send_queued_reports(client, type == "F"
                                    ? engine_.on_cancel(client.comp_id, client, fields)
                                    : engine_.on_cancel_replace(client.comp_id, client, fields));
    return engine_.publisher->flush_if_pending();
  }
  on_unknown_type(client);
}

void FixGateway::on_new_order_single(Client& client, const FixFieldMap& fields) {
  const Outbox& reports = engine_.on_new_order(client.comp_id, client, fields);
  engine_.publisher->flush_if_pending();  // the feed tells of a trade before the reports do
  if (!connection_drop(client)) send_queued_reports(client, reports);
}

void FixGateway::close_before_logon(Client& client, std::string_view type) {
  print_log("bench: message 35=%s before Logon from fd %d — connection closed\n",
            std::string(type).c_str(), client.fd);
  close(client);
}

void FixGateway::on_test_request(Client& client, const FixFieldMap& fields) {
  FixFieldList answer;
  const std::string_view id = fields.text(TAG_TEST_REQ_ID);
  if (!id.empty()) answer.put(TAG_TEST_REQ_ID, id);
  send_admin(client, "0", answer);
}

void FixGateway::on_logout(Client& client) {
  print_log("bench: client %s logged out (%zu resting order(s) kept)\n", client.comp_id.c_str(),
            engine_.resting_orders_of(client.comp_id));
  send_admin(client, "5", {});
  close(client);
}

void FixGateway::on_unknown_type(Client& client) {
  FixFieldList reject;
  reject.put_number(TAG_REF_SEQ_NUM, client.last_seq);
  reject.put(TAG_SESSION_REJECT_REASON, "11");
  reject.put(TAG_TEXT, "Invalid MsgType");
  send_admin(client, "3", reject);
}

bool FixGateway::connection_drop(Client& client) {
  const uint32_t threshold = scenario_.disconnect_after;
  const bool scripted =
      threshold != 0 && scenario_.counters.orders >= threshold && !scenario_.disconnect_fired;
  if (!scripted && scenario_.disconnect_requested == 0) return false;

  scenario_.disconnect_fired = true;
  scenario_.disconnect_requested = 0;
  print_log(
      "bench: dropping the connection of %s (%s); %zu resting order(s) kept — the IEX FIX "
      "spec defines no cancel-on-disconnect\n",
      client.comp_id.c_str(), threshold != 0 ? SCRIPTED_DROP : "driven",
      engine_.resting_orders_of(client.comp_id));
  close(client);
  return true;
}

void FixGateway::send_gated(Client& client, std::string_view message) {
  if (client.fd < 0 || scenario_.lapse.is_silent()) return;
  send_ignoring_result(client.fd, message);
  client.last_tx_ms = static_cast<int64_t>(steady_ms());
}

void FixGateway::send_admin(Client& client, std::string_view msg_type, const FixFieldList& fields) {
  FixStream& stream = *client.stream;
  send_gated(client, composed(msg_type, stream.next_out++, stream, fields.wire(), {}));
}

std::string_view FixGateway::composed(std::string_view msg_type, uint32_t seq,
                                      const FixStream& stream, std::string_view body_fields,
                                      std::string_view header_fields) {
  outbox_.clear();
  compose_message(msg_type, seq, EXCHANGE_COMP_ID, stream.comp_id, body_fields, header_fields,
                  outbox_);
  return outbox_[0];
}

void FixGateway::send_queued_reports(Client& client, const Outbox& messages) {
  for (size_t i = 0; i < messages.size(); ++i) send_gated(client, messages[i]);
}

void FixGateway::log_on(Client& client, FixStream& stream) {
  log_off(client);
  client.comp_id = stream.comp_id;
  client.stream = &stream;
  client.logged_on = true;
  ++logged_on_;
  std::vector<size_t>& connections = stream.connections;
  const size_t index = index_of(client);
  connections.insert(std::upper_bound(connections.begin(), connections.end(), index), index);
}

void FixGateway::log_off(Client& client) {
  if (!client.logged_on) return;
  std::vector<size_t>& connections = client.stream->connections;
  connections.erase(std::lower_bound(connections.begin(), connections.end(), index_of(client)));
  client.logged_on = false;
  --logged_on_;
}

size_t FixGateway::index_of(const Client& client) const {
  return static_cast<size_t>(&client - clients_.data());
}

void FixGateway::close(Client& client) {
  log_off(client);
  close_connection(client);
}

void FixGateway::run_timers(uint64_t now_ms) {
  for (const size_t index : open_clients_) {
    Client& client = clients_[index];
    if (client.fd < 0 || !client.logged_on) continue;
    send_heartbeat_if_due(client, now_ms);
    time_out_if_due(client, now_ms);
  }
}

void FixGateway::send_heartbeat_if_due(Client& client, uint64_t now_ms) {
  const uint64_t period_ms = static_cast<uint64_t>(client.heartbeat_s) * 1000;
  if (age_ms(now_ms, client.last_tx_ms) < period_ms || scenario_.lapse.is_silent()) return;
  send_admin(client, "0", {});
}

void FixGateway::time_out_if_due(Client& client, uint64_t now_ms) {
  const auto heartbeat_s = static_cast<uint64_t>(client.heartbeat_s);
  if (age_ms(now_ms, client.last_rx_ms) < heartbeat_s * 2500) return;
  print_log("[quorl] client %s timed out (no message for %d s; resting orders kept)\n",
            client.comp_id.c_str(), static_cast<int>(heartbeat_s * 5 / 2));
  close(client);
}

}  // namespace quorl
