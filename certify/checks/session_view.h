#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>

#include "certify/checks/number_ranges.h"
#include "certify/record/events.h"

// FIX sessions as the client could know them: from what it sent, and from what was handed to its
// socket. Times are those of the events; 0 means that it has not happened.

namespace certify {

/// One FIX connection. The record is dropped when both directions have ended.
struct FixConnection {
  uint32_t number = 0;
  TimeNs opened = 0;
  std::string comp_id;         // 49 of its latest Logon, which the exchange goes by; empty before
  uint64_t messages_sent = 0;  // by the client, of any kind and form
  TimeNs last_sent = 0;        // anything, garbage included
  TimeNs logon_sent = 0;       // the latest
  TimeNs logged_on = 0;        // the reply to it was handed over
  uint64_t heartbeat_s = 0;    // 108 of that reply
  TimeNs logout_sent = 0;      // since the latest Logon
  TimeNs logout_heard = 0;     // likewise; a refused Logon's among them
  bool refused = false;        // it was one: no reply to the Logon had come before it
  TimeNs client_ended = 0;     // its sending
  TimeNs exchange_ended = 0;   // what it sends; a reset ends both
  bool cut = false;            // by the link

  /// As far as the client could know.
  bool ended() const { return client_ended != 0 || exchange_ended != 0; }
  bool up() const { return logged_on != 0 && logout_heard == 0 && !ended(); }
};

/// Enough of a message to point at it.
struct SaidBefore {
  TimeNs at = 0;
  uint32_t connection = 0;
  std::string type;
  uint64_t number = 0;
};
/// "14:03:07.123456  FIX 1 > 35=D|34=12"
std::string text_of(const SaidBefore& said);

/// The client's own numbering.
struct OwnNumbers {
  uint64_t next = 1;    // of its next new message
  bool certain = true;  // false: what it sent last could not be read, and may have taken a number
  SaidBefore last;      // its latest message with a number of its own
  uint64_t refused_logon = 0;      // 34 of that, if it was a Logon and was refused; 0: it was not
  uint64_t refused_expecting = 0;  // what the refusal names as expected; 0: nothing
};

/// One SenderCompID, over all its connections.
struct CompSession {
  std::string comp_id;

  OwnNumbers out;
  NumberRanges asked_of_it;  // of the client's numbers, by the exchange's ResendRequests

  uint64_t next_in = 1;  // of the exchange: one above the highest handed over
  NumberRanges missing;  // below next_in, neither handed over nor gap-filled
};

/// What a message of the client was.
enum class SentKind : uint8_t {
  UNREADABLE,  // no number, or a frame with flaws: nobody but session.frames and .header judges it
  LOGON,
  NEW,     // takes a number; `number` against `before.next` says whether it is the right one
  AGAIN,   // an old number with 43=Y, or one that the exchange has asked for
  REPEAT,  // an old number without either
  FILL,    // SequenceReset with 123=Y
  RESET,   // SequenceReset without
};

/// What the view made of an event.
struct Noted {
  const FixConnection* connection = nullptr;  // null: the event is none of a FIX connection
  const CompSession* session = nullptr;       // null: no Logon has named it yet

  // Of a message of the client:
  SentKind sent = SentKind::UNREADABLE;
  uint64_t number = 0;  // of the exchange's messages too
  OwnNumbers before;    // as they stood before it
  bool asked = false;   // `number` is one that the exchange has asked for

  // Of a message of the exchange:
  NumberRange stands_for;           // its number, or all that a GapFill covers
  std::optional<NumberRange> hole;  // that it opened
  bool filled = false;              // something that was missing
};

/// Follows the sessions. Memory grows with holes, connections that are open and CompIDs, not with
/// messages.
class SessionView {
 public:
  /// Takes in what happened; what it returns is good until the next call.
  const Noted& take(const Event& event);

  /// Null if it is not known, or has ended both ways.
  const FixConnection* connection(uint32_t number) const;
  const CompSession* session(const std::string& comp_id) const;
  const std::map<uint32_t, FixConnection>& connections() const { return connections_; }

  /// Behind Closing: how the client leaves is not judged.
  bool closing() const { return closing_; }
  /// The link misbehaves on FIX, or did until a moment ago: what the client sends may have been
  /// read late.
  bool disturbed() const { return now_ < disturbed_until_; }

 private:
  FixConnection& connection_of(uint32_t number, TimeNs at);
  CompSession* session_of(const FixConnection& connection);
  void on_sent(const FixHeard& heard, TimeNs at);
  void on_logon_sent(FixConnection& connection, const WireMessage& message, TimeNs at);
  void number_sent(CompSession& session, const FixHeard& heard, TimeNs at);
  SentKind kind_of(const WireMessage& message, const CompSession& session) const;
  void on_garbage(const FixGarbage& garbage, TimeNs at);
  void on_heard(const FixHeard& heard, TimeNs at);
  void take_reset(FixConnection& connection, CompSession& session, const WireMessage& message);
  static void note_refusal(CompSession& session, const FixConnection& connection,
                           const WireMessage& message);
  void number_heard(CompSession& session, const WireMessage& message);
  void on_ended(const FixEnded& ended, TimeNs at);

  std::map<uint32_t, FixConnection> connections_;
  std::map<std::string, CompSession> sessions_;
  std::map<uint32_t, bool> resets_;  // connections with a Logon of 141=Y that awaits its reply:
                                     // whether it was their first message
  uint32_t gone_ = 0;                // connection whose record is dropped at the next call
  bool closing_ = false;
  TimeNs now_ = 0;
  TimeNs disturbed_until_ = 0;
  Noted noted_;
};

}  // namespace certify
