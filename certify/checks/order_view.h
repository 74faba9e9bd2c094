#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <set>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "certify/checks/order_messages.h"
#include "certify/plan/plan.h"

namespace certify {

/// A message of the exchange by which the client learned something, as short as memory for each
/// order of a long run demands.
struct Told {
  TimeNs at = 0;      // when the client had it in its socket; 0: it was not told
  uint32_t seq = 0;   // 34
  char report = ' ';  // 150, or '9' for a cancel reject
  uint32_t cum = 0;   // 14
  bool replay = false;

  bool by(TimeNs time) const { return at != 0 && at < time; }
  std::string text() const;
};

/// One order as the client can see it, over all its names.
struct ViewedOrder {
  std::string symbol = {};
  std::string side = {};
  uint64_t id = 0;   // 37; 0 until a report has told it
  Told closed = {};  // filled, cancelled or refused
  // What it was told to be executed, rising. Of what lies behind it by more than the grace only the
  // last one is kept.
  std::vector<Told> executed = {};
};

/// One ClOrdID that the client has used.
struct ViewedName {
  enum class Kind : uint8_t { ORDER, REPLACE, CANCEL } kind = Kind::ORDER;
  enum class Dead : uint8_t { NO, RETIRED, REFUSED, NOT_FOUND } dead = Dead::NO;
  bool answered = false;
  uint32_t connection = 0;
  size_t order = 0;  // of ClientView::orders; NO_ORDER for a request of an unknown one
  TimeNs sent = 0;
  TimeNs decided = 0;  // when the exchange acted on it, by the order events; 0: not that we know
  Told told_dead;
};

/// What an OrigClOrdID is to the client.
struct Target {
  enum class Kind : uint8_t { LIVE, UNKNOWN, RETIRED, REFUSED, NOT_FOUND, CLOSED };
  Kind kind = Kind::LIVE;
  const ViewedOrder* order = nullptr;  // null if it is not known which
  Told told = {};
};

/// Whether a ClOrdID is free for something new.
enum class NameUse : uint8_t {
  FREE,
  USED,   // something of that name is live or may be
  UNSURE  // sent on a connection that has ended, and no word of it since
};

/// The orders of a run as the client can know them: what it sent, and what had been handed to its
/// socket. Kept per SenderCompID, over connections and restarts of the client. Bears replays, a
/// Replaced ahead of its fills, and requests in flight upon each other.
class OrderView {
 public:
  static constexpr size_t NO_ORDER = static_cast<size_t>(-1);

  explicit OrderView(Milliseconds grace) : grace_(std::chrono::nanoseconds(grace).count()) {}

  /// To be asked about a message before the view hears of it.
  void on_event(const Event& event);

  const SessionView& sessions() const { return sessions_; }

  /// By what the client had been told longer than the grace before `now`.
  Target target_of(const std::string& comp, const std::string& name, TimeNs now) const;
  /// By all that it had been told before `now`, however late.
  NameUse use_of(const std::string& comp, const std::string& name) const;
  const ViewedName* name(const std::string& comp, const std::string& name) const;
  /// What the client knew to be executed longer than the grace before `now`; null for nothing.
  const Told* executed(const ViewedOrder& order, TimeNs now) const;

 private:
  struct ClientView {
    std::unordered_map<std::string, ViewedName> names;
    std::deque<ViewedOrder> orders;
    std::unordered_map<uint64_t, size_t> by_id;
    std::set<uint64_t> rejects;  // numbers (34) of refusals heard, so that a replay tells nothing
  };

  void on_client(const FixHeard& heard, TimeNs at);
  void on_report(ClientView& view, const FixHeard& heard, TimeNs at);
  void on_reject(ClientView& view, const WireMessage& message, const Told& told);
  void on_replaced(ClientView& view, const WireMessage& message, const Told& told, size_t index);
  void on_cancel_reject(ClientView& view, const FixHeard& heard, TimeNs at);
  void on_decision(const quorl::client::OrderEvent& order);
  static size_t order_of(ClientView& view, const WireMessage& message);
  void note_executed(ViewedOrder& order, const Told& told) const;
  NameUse use_of(const ClientView& view, const ViewedName& name) const;

  TimeNs grace_;
  SessionView sessions_;
  std::unordered_map<std::string, ClientView> clients_;
};

}  // namespace certify
