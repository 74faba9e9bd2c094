#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "fix/fix_codec.h"

namespace quorl {

struct Client;
struct Engine;
struct FixStream;
struct Scenario;

/// The acceptor side of the FIX sessions: connections, sequence numbers, the session-level
/// messages, timers, and the hand-over of orders to the engine. The rules are a test bench's own,
/// not the full session rulebook: a low MsgSeqNum on a running session is not fatal, and a stream
/// outlives its connections.
///
/// Borrows the engine and the vector of clients for the run.
class FixGateway {
 public:
  FixGateway(Engine& engine, std::vector<Client>& clients, bool quiet);

  /// Accepts until accept fails. Any failure ends the accepting of this turn.
  void accept_clients(int listen_fd);

  /// Reads every open connection to the end of what has come, in order of acceptance, and handles
  /// every complete message of each.
  void serve_clients(std::span<char> scratch);

  /// Heartbeats and time-outs of every logged-on client, with the turn's `now_ms`. A lapse holds
  /// back the Heartbeat only.
  void run_timers(uint64_t now_ms);

  /// One composed message to one client: nothing in a lapse or on a closed connection, else one
  /// send whose result nobody looks at. The message stays on its stream either way.
  void send_gated(Client& client, std::string_view message);

  /// Indices of the clients whose connection may be open, ascending.
  const std::vector<size_t>& open_clients() const { return open_clients_; }
  /// Whether any client is connected and logged on.
  bool any_logged_on() const { return logged_on_ != 0; }
  /// Drops the indices of closed connections from `open_clients`.
  void forget_closed_clients();

 private:
  void serve_client(Client& client, std::span<char> scratch);
  void on_message(Client& client, const FixFieldMap& fields);
  void dispatch(Client& client, std::string_view type, const FixFieldMap& fields);

  // logon.cpp
  void on_logon(Client& client, const FixFieldMap& fields);
  void accept_logon(Client& client, FixStream& stream, std::string_view heart_bt_int, bool reset);
  /// Spends a number of the stream, stores nothing, and is the one message that no lapse holds
  /// back.
  void reject_logon(Client& client, FixStream& stream, const std::string& reason);

  // session.cpp
  void close_before_logon(Client& client, std::string_view type);
  void on_test_request(Client& client, const FixFieldMap& fields);
  void on_logout(Client& client);
  void on_unknown_type(Client& client);
  /// Whole messages that came in the same pass go unhandled with the connection.
  void on_end_of_stream(Client& client);

  // resend.cpp

  /// A ResendRequest never draws one of ours, even if its own number leaves a gap.
  void on_resend_request(Client& client, FixStream& stream, const FixFieldMap& fields);
  void serve_resend(Client& client, const FixStream& stream, const FixFieldMap& fields);
  /// Only the new number counts, and it may be lower than next_in.
  void on_sequence_reset(Client& client, FixStream& stream, const FixFieldMap& fields);
  /// The message that showed the gap is handled at once: nothing is queued behind a gap.
  void on_inbound_gap(Client& client, const FixStream& stream, std::string_view type);
  void ask_for_resend(Client& client, uint32_t first, uint32_t last);

  // session.cpp

  void on_new_order_single(Client& client, const FixFieldMap& fields);
  /// The scripted drop; asked after every NewOrderSingle, a refused one too. True if the connection
  /// has been dropped: the order's reports are numbered and stored by then, and stay unsent.
  bool connection_drop(Client& client);
  void send_heartbeat_if_due(Client& client, uint64_t now_ms);
  void time_out_if_due(Client& client, uint64_t now_ms);
  /// Each at once, through the gate: nothing waits for a socket that is full.
  void send_queued_reports(Client& client, const Outbox& messages);
  /// A composed message of a stream, in memory that the next one takes.
  std::string_view composed(std::string_view msg_type, uint32_t seq, const FixStream& stream,
                            std::string_view body_fields, std::string_view header_fields);

  /// The connection speaks for a stream from here on, and for no other one.
  void log_on(Client& client, FixStream& stream);
  void log_off(Client& client);
  size_t index_of(const Client& client) const;
  void close(Client& client);

  /// Session-level messages take their number before the gate and are never stored: what a lapse
  /// swallows is lost, and a later resend covers its number by a gap fill.
  void send_admin(Client& client, std::string_view msg_type, const FixFieldList& fields);

  Engine& engine_;
  Scenario& scenario_;
  std::vector<Client>& clients_;
  const bool quiet_;
  std::vector<size_t> open_clients_;
  size_t logged_on_ = 0;  // clients, all of them connected
  // Of the message in hand; kept for their memory.
  std::string frame_;
  FixFieldMap fields_;
  Outbox outbox_;
};

}  // namespace quorl
