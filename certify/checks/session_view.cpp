#include "certify/checks/session_view.h"

#include <algorithm>
#include <charconv>
#include <limits>
#include <string_view>

namespace certify {
namespace {

constexpr uint64_t HIGHEST = std::numeric_limits<uint64_t>::max();

/// What "MsgSeqNum too low, expecting N but received M" expects; 0 if the text is another.
uint64_t expected_by(const std::string& text) {
  constexpr std::string_view WORD = "too low, expecting ";
  const size_t at = text.find(WORD);
  if (at == std::string::npos) return 0;
  uint64_t expected = 0;
  std::from_chars(text.data() + at + WORD.size(), text.data() + text.size(), expected);
  return expected;
}

/// From a ResendRequest: 16=0 means all there is.
NumberRange asked_range(const WireMessage& message) {
  const uint64_t last = message.number(16).value_or(0);
  return {message.number(7).value_or(0), last == 0 ? HIGHEST : last};
}

/// The link says so of itself line by line; that bytes were lost with a connection is no doing of
/// its own.
bool disturbs_fix(std::string_view what) {
  return !what.starts_with("gap fill") && !what.starts_with("image") &&
         what.find("never reached") == std::string_view::npos;
}

constexpr TimeNs FOR_GOOD = std::numeric_limits<TimeNs>::max();
// Behind the link's "plain again". What it has held up is read at once then.
constexpr TimeNs SETTLES = 5 * SECOND;

void forget_numbers_of_exchange(CompSession& session) {
  session.next_in = 1;
  session.missing.clear();
}

}  // namespace

std::string text_of(const SaidBefore& said) {
  return time_text(said.at) + "  FIX " + std::to_string(said.connection) + " > 35=" + said.type +
         "|34=" + std::to_string(said.number);
}

const Noted& SessionView::take(const Event& event) {
  if (gone_ != 0) connections_.erase(gone_);
  gone_ = 0;
  noted_ = {};
  now_ = std::max(now_, event.at);  // decisions come late
  if (std::holds_alternative<Closing>(event.what)) closing_ = true;
  if (const auto* opened = std::get_if<FixOpened>(&event.what)) {
    FixConnection& connection = connection_of(opened->connection, event.at);
    noted_.connection = &connection;
    if (!opened->reached) {  // nobody took it: there is nothing to end
      connection.client_ended = connection.exchange_ended = event.at;
      gone_ = connection.number;
    }
  } else if (const auto* heard = std::get_if<FixHeard>(&event.what)) {
    heard->from == Party::CLIENT ? on_sent(*heard, event.at) : on_heard(*heard, event.at);
  } else if (const auto* garbage = std::get_if<FixGarbage>(&event.what)) {
    on_garbage(*garbage, event.at);
  } else if (const auto* ended = std::get_if<FixEnded>(&event.what)) {
    on_ended(*ended, event.at);
  } else if (const auto* link = std::get_if<LinkSaid>(&event.what)) {
    if (disturbs_fix(link->what)) {
      disturbed_until_ = link->what.ends_with("plain again") ? event.at + SETTLES : FOR_GOOD;
    }
  }
  return noted_;
}

const FixConnection* SessionView::connection(uint32_t number) const {
  const auto found = connections_.find(number);
  return found == connections_.end() ? nullptr : &found->second;
}

const CompSession* SessionView::session(const std::string& comp_id) const {
  const auto found = sessions_.find(comp_id);
  return found == sessions_.end() ? nullptr : &found->second;
}

FixConnection& SessionView::connection_of(uint32_t number, TimeNs at) {
  const auto [found, is_new] = connections_.try_emplace(number);
  if (is_new) {
    found->second.number = number;
    found->second.opened = at;
  }
  return found->second;
}

CompSession* SessionView::session_of(const FixConnection& connection) {
  const auto found = sessions_.find(connection.comp_id);
  return connection.logon_sent == 0 || found == sessions_.end() ? nullptr : &found->second;
}

// --- The client's way ---

void SessionView::on_sent(const FixHeard& heard, TimeNs at) {
  FixConnection& connection = connection_of(heard.connection, at);
  const WireMessage& message = heard.message;
  noted_.connection = &connection;
  if (message.type() == "A") on_logon_sent(connection, message, at);
  ++connection.messages_sent;
  connection.last_sent = at;
  if (message.type() == "5") connection.logout_sent = at;

  CompSession* session = session_of(connection);
  noted_.session = session;
  if (session != nullptr) number_sent(*session, heard, at);
}

void SessionView::on_logon_sent(FixConnection& connection, const WireMessage& message, TimeNs at) {
  const bool reset = message.is(141, "Y");
  if (reset) {
    resets_[connection.number] = connection.messages_sent == 0;
  } else {
    resets_.erase(connection.number);
  }
  connection.comp_id = message.value(49);
  connection.logon_sent = at;
  connection.logged_on = connection.logout_sent = connection.logout_heard = 0;
  connection.refused = false;
  sessions_[connection.comp_id].comp_id = connection.comp_id;
}

void SessionView::number_sent(CompSession& session, const FixHeard& heard, TimeNs at) {
  const WireMessage& message = heard.message;
  const auto number = message.number(34);
  noted_.before = session.out;
  noted_.number = number.value_or(0);
  noted_.asked = number && session.asked_of_it.contains(*number);
  if (!number || !message.flaws().empty()) {
    // Whether it took a number, and which, is for the next one to show.
    if (number) session.out.next = std::max(session.out.next, *number + 1);
    session.out.certain = false;
    return;
  }
  noted_.sent = kind_of(message, session);
  switch (noted_.sent) {
    case SentKind::LOGON:
      if (message.is(141, "Y")) session.asked_of_it.clear();
      session.out.refused_logon = session.out.refused_expecting = 0;
      session.out.next = *number + 1;
      break;
    case SentKind::NEW:
      session.out.next = *number + 1;
      break;
    case SentKind::FILL:
      session.out.next = std::max(session.out.next, message.number(36).value_or(0));
      return;
    case SentKind::RESET:
      session.out.next = message.number(36).value_or(session.out.next);
      break;
    case SentKind::AGAIN:
    case SentKind::REPEAT:
    case SentKind::UNREADABLE:
      return;
  }
  session.out.certain = true;
  session.out.last = {at, heard.connection, message.type(), *number};
}

SentKind SessionView::kind_of(const WireMessage& message, const CompSession& session) const {
  if (message.type() == "A" && !message.possible_duplicate()) return SentKind::LOGON;
  if (message.type() == "4") return message.is(123, "Y") ? SentKind::FILL : SentKind::RESET;
  if (noted_.number >= session.out.next) return SentKind::NEW;
  if (message.possible_duplicate() || noted_.asked) return SentKind::AGAIN;
  // Behind something that could not be read its number is taken as it stands.
  return session.out.certain ? SentKind::REPEAT : SentKind::NEW;
}

void SessionView::on_garbage(const FixGarbage& garbage, TimeNs at) {
  FixConnection& connection = connection_of(garbage.connection, at);
  noted_.connection = &connection;
  CompSession* session = session_of(connection);
  noted_.session = session;
  if (garbage.from != Party::CLIENT) return;
  connection.last_sent = at;
  if (session != nullptr) session->out.certain = false;
}

// --- The exchange's way ---

void SessionView::on_heard(const FixHeard& heard, TimeNs at) {
  FixConnection& connection = connection_of(heard.connection, at);
  noted_.connection = &connection;
  CompSession* session = session_of(connection);
  noted_.session = session;
  if (session == nullptr) return;
  const WireMessage& message = heard.message;
  take_reset(connection, *session, message);
  const bool first_answer = connection.logged_on == 0;
  if (message.type() == "A" && first_answer) {
    connection.logged_on = at;
    connection.heartbeat_s = message.number(108).value_or(0);
  } else if (message.type() == "5" && connection.logout_heard == 0) {
    connection.logout_heard = at;
    connection.refused = first_answer && connection.logout_sent == 0;
    if (connection.refused) note_refusal(*session, connection, message);
  } else if (message.type() == "2") {
    NumberRange asked = asked_range(message);
    asked.last = std::min(asked.last, session->out.next - 1);
    session->asked_of_it.add(asked);
  }
  number_heard(*session, message);
}

void SessionView::take_reset(FixConnection& connection, CompSession& session,
                             const WireMessage& message) {
  const auto reset = resets_.find(connection.number);
  if (reset == resets_.end()) return;
  const bool reply = message.type() == "A" && message.is(141, "Y");
  // On a new connection nothing old is on its way: if the reply is not the first thing heard, it
  // was lost, or the Logon was refused before it could reset anything.
  const bool reply_lost =
      reset->second && (message.type() != "5" || message.number(34) == uint64_t{1});
  if (reply || reply_lost) forget_numbers_of_exchange(session);
  if (reply || reset->second) resets_.erase(reset);
}

void SessionView::note_refusal(CompSession& session, const FixConnection& connection,
                               const WireMessage& message) {
  if (session.out.last.connection != connection.number || session.out.last.type != "A") return;
  session.out.refused_logon = session.out.last.number;
  session.out.refused_expecting = expected_by(message.value(58));
}

void SessionView::number_heard(CompSession& session, const WireMessage& message) {
  const auto number = message.number(34);
  if (!number) return;
  noted_.number = *number;
  noted_.stands_for = {*number, *number};
  if (message.type() == "4") {
    const uint64_t next = message.number(36).value_or(0);
    noted_.stands_for.last = next > *number ? next - 1 : *number;
  }
  if (*number > session.next_in) {
    noted_.hole = NumberRange{session.next_in, *number - 1};
    session.missing.add(*noted_.hole);
  }
  noted_.filled = session.missing.first_within(noted_.stands_for).has_value();
  session.missing.remove(noted_.stands_for);
  session.next_in = std::max(session.next_in, noted_.stands_for.last + 1);
}

// --- The end ---

void SessionView::on_ended(const FixEnded& ended, TimeNs at) {
  const auto found = connections_.find(ended.connection);
  if (found == connections_.end()) return;  // the other direction of one that was reset
  FixConnection& connection = found->second;
  noted_.connection = &connection;
  CompSession* session = session_of(connection);
  noted_.session = session;
  const bool both = ended.reset || ended.by_link;
  if (ended.by_link) connection.cut = true;
  if ((ended.by == Party::CLIENT || both) && connection.client_ended == 0) {
    connection.client_ended = at;
  }
  if ((ended.by == Party::EXCHANGE || both) && connection.exchange_ended == 0) {
    connection.exchange_ended = at;
  }
  if (connection.client_ended != 0 && connection.exchange_ended != 0) {
    gone_ = connection.number;
    resets_.erase(connection.number);
  }
}

}  // namespace certify
