#include "lives/traders.h"

#include <algorithm>
#include <array>
#include <utility>

#include "fix/stream_records.h"
#include "quorl/client/deep.h"

namespace lives {
namespace {

namespace client = quorl::client;

constexpr size_t MOST_LINKS = 5;
constexpr std::array<const char*, 14> QUANTITIES = {"100", "100", "200", "300",     "500",
                                                    "1",   "50",  "150", "1000",    "5000",
                                                    "7",   "0",   "1e3", "10000000"};

}  // namespace

Traders::Traders(quorl::Engine& engine, day::Network& network, uint16_t port)
    : engine_(engine), network_(network), port_(port) {
  for (const char* name : {"ALPHA", "BETA", "GAMMA"}) accounts_.emplace_back().name = name;
}

void Traders::act(const Act& act, uint64_t turn) {
  if (act.kind == Kind::LOG_ON && act.a % 3 == 0 && links_.size() < MOST_LINKS) {
    links_.push_back({network_.connect(port_), act.who % accounts_.size()});
  }
  Link& link = link_for(act.who, turn);
  switch (act.kind) {
    case Kind::LOG_ON:
      return log_on(link, act, turn);
    case Kind::ORDER:
      return order(link, act, turn);
    case Kind::CANCEL:
      return cancel(link, act, turn);
    case Kind::REPLACE:
      return replace(link, act, turn);
    case Kind::ADMIN:
      return admin(link, act, turn);
    case Kind::RESEND:
      return resend(link, act, turn);
    case Kind::HALF:
      return half(link, act, turn);
    case Kind::GARBAGE:
      return garbage(link, act, turn);
    case Kind::CROWD:
      return crowd(link, act, turn);
    case Kind::HANG_UP:
      network_.end(link.connection, act.a % 2 == 0, turn);
      link.ended = true;
      return;
    case Kind::LIMIT_SENDS: {
      std::deque<int64_t> limits;
      for (const uint8_t choice : {act.a, act.b, act.c}) {
        limits.push_back(choice % 4 == 0 ? 0 : choice % 4 == 1 ? 1 + choice : day::Network::ALL);
      }
      if (act.d % 8 == 0) limits.push_back(day::Network::BROKEN);
      return network_.limit_sends(link.connection, limits);
    }
    default:
      return;
  }
}

/// A connection of this choice; one that is over is replaced by a new one, logged on.
Traders::Link& Traders::link_for(uint8_t who, uint64_t turn) {
  std::erase_if(links_, [this](const Link& link) {
    return link.ended || network_.closed_by_exchange(link.connection);
  });
  if (links_.empty()) {
    links_.push_back({network_.connect(port_), who % accounts_.size()});
    log_on(links_.back(), {.c = 30}, turn);
  }
  return links_[who % links_.size()];
}

void Traders::send(Link& link, std::string bytes, uint64_t turn) {
  network_.send(link.connection, std::exchange(link.rest, {}) + std::move(bytes), turn);
}

std::string Traders::message(Account& account, const std::string& type,
                             const client::FixFields& body, uint8_t seq_choice) {
  client::FixHeader header{.type = type, .sender = account.name, .target = "IEXG"};
  uint32_t seq = account.next_out;
  if (seq_choice < 4) {
    seq += 1 + seq_choice;  // a hole
    account.next_out = seq + 1;
  } else if (seq_choice < 8) {
    seq = seq > seq_choice ? seq - seq_choice : 0;
    if (seq_choice % 2 == 0) header.extra = {{43, "Y"}};
  } else {
    ++account.next_out;
  }
  header.seq = std::to_string(seq);
  header.sending_time = "20231115-12:00:00.000";
  return client::compose_fix(header, body);
}

void Traders::log_on(Link& link, const Act& act, uint64_t turn) {
  Account& account = accounts_[link.account];
  const auto memory = engine_.streams.find(account.name);
  const uint32_t expected = memory == engine_.streams.end() ? 1 : memory->second.next_in;
  client::FixFields body = {{98, "0"}, {108, std::to_string(act.c % 32)}};
  if (act.b % 6 == 1) {
    body.push_back({141, "Y"});
    account.next_out = 1;
  } else if (act.b % 6 == 2) {
    account.next_out = expected + act.d % 5;
  } else if (act.b % 6 != 3) {  // else as it stands: perhaps too low
    account.next_out = std::max(account.next_out, expected);
  }
  send(link, message(account, "A", body, 255), turn);
}

std::string Traders::new_name(Account& account, uint8_t choice) {
  if (choice < 8 && !account.names.empty()) return pick(account.names, choice * 7U);
  if (choice == 8) return "";
  if (choice == 9) return "a,b";
  if (choice == 10) return "123456789012345678901";
  account.names.push_back(account.name.substr(0, 1) + std::to_string(account.next_name++));
  return account.names.back();
}

std::string Traders::order_name(const Account& account, uint8_t choice) const {
  if (account.names.empty() || choice < 6) return "unknown";
  if (choice < 20) return pick(account.names, choice);  // long gone, as a rule
  return account
      .names[account.names.size() - 1 - choice % std::min<size_t>(account.names.size(), 6)];
}

/// A few ticks around what the other side would pay.
std::string Traders::near_touch(size_t stock, bool buy, uint8_t choice) const {
  const quorl::Stock& listed = engine_.stocks[stock];
  const quorl::Level* const best = listed.book.side(!buy).best();
  const auto mid = static_cast<quorl::Price4>(listed.mid * 10000.0);
  const quorl::Price4 around = best != nullptr ? best->price : mid / 100 * 100;
  const quorl::Price4 tick = around < 10000 ? 1 : 100;
  const auto ticks = static_cast<quorl::Price4>(choice % 24) - 12;
  return client::price_text(std::max<quorl::Price4>(around + ticks * tick, choice < 2 ? 0 : tick));
}

client::FixFields Traders::order_fields(Account& account, const Act& act) {
  const size_t stock = act.a % engine_.stocks.size();
  const bool buy = act.b % 2 == 0;
  const bool is_short = act.b % 16 == 3;
  client::FixFields fields = {
      {11, new_name(account, act.c)},
      {55, act.a == 255 ? "NONE" : engine_.stocks[stock].symbol},
      {54, buy ? "1" : is_short ? "5" : "2"},
      {38, pick(QUANTITIES, act.d)},
      {40, act.e % 7 == 0 ? "1" : "2"},
      {59, act.e % 11 == 0 ? "3" : act.e % 13 == 0 ? "4" : "0"},
      {18, act.e == 255 ? "x" : "i"},
  };
  if (is_short && act.b % 32 == 3) fields.push_back({114, "N"});
  if (act.e % 7 != 0) fields.push_back({44, near_touch(stock, buy, act.f)});
  return fields;
}

void Traders::order(Link& link, const Act& act, uint64_t turn) {
  Account& account = accounts_[link.account];
  const client::FixFields fields = order_fields(account, act);
  send(link, message(account, "D", fields, static_cast<uint8_t>(act.who ^ act.f)), turn);
}

void Traders::cancel(Link& link, const Act& act, uint64_t turn) {
  Account& account = accounts_[link.account];
  const client::FixFields fields = {{11, "c" + std::to_string(account.next_name++)},
                                    {41, order_name(account, act.a)}};
  send(link, message(account, "F", fields, act.b), turn);
}

void Traders::replace(Link& link, const Act& act, uint64_t turn) {
  Account& account = accounts_[link.account];
  const std::string old_name = order_name(account, act.a);
  const quorl::RestingOrder* const live = engine_.live_order(account.name, old_name);
  const bool buy = live != nullptr ? live->buy : act.b % 2 == 0;
  const size_t stock = live != nullptr && live->locate > 0 ? live->locate - 1U : 0U;
  const char side = live != nullptr ? live->side : '1';
  client::FixFields fields = {{11, new_name(account, act.c)},
                              {41, old_name},
                              {55, engine_.stocks[stock].symbol},
                              {54, std::string(1, act.e == 7 ? '9' : side)},
                              {38, pick(QUANTITIES, act.d)}};
  if (act.e % 4 != 0) fields.push_back({44, near_touch(stock, buy, act.f)});
  send(link, message(account, "G", fields, act.b), turn);
}

void Traders::admin(Link& link, const Act& act, uint64_t turn) {
  Account& account = accounts_[link.account];
  const std::string number = std::to_string(account.next_out + act.c % 4);
  switch (act.a % 8) {
    case 0:
      return send(link, message(account, "1", {{112, "t" + std::to_string(act.c)}}, act.b), turn);
    case 1:
      return send(link, message(account, "4", {{123, "Y"}, {36, number}}, act.b), turn);
    case 2:
      return send(link, message(account, "4", {{36, std::to_string(act.c)}}, act.b), turn);
    case 3:
      return send(link, message(account, "5", {}, act.b), turn);
    case 4:
      return send(link, message(account, "Z", {}, act.b), turn);
    default:
      return send(link, message(account, "0", {}, act.b), turn);
  }
}

void Traders::resend(Link& link, const Act& act, uint64_t turn) {
  Account& account = accounts_[link.account];
  const std::string end = act.b % 2 == 0 ? "0" : std::to_string(act.b);
  send(link, message(account, "2", {{7, std::to_string(act.a % 40)}, {16, end}}, act.c), turn);
}

void Traders::half(Link& link, const Act& act, uint64_t turn) {
  Account& account = accounts_[link.account];
  const std::string whole = message(account, "D", order_fields(account, act), 255);
  const size_t cut = 5 + act.f % (whole.size() - 5);
  send(link, whole.substr(0, cut), turn);
  link.rest = whole.substr(cut);
}

void Traders::garbage(Link& link, const Act& act, uint64_t turn) {
  constexpr std::array<const char*, 6> PIECES = {"garbage",
                                                 "8=FIX.4.2|9=abc|35=0|10=000|",
                                                 "8=FIX.4.2|9=5|35=0|10=999|",
                                                 "8=FI",
                                                 "10=000|",
                                                 "8=FIX.4.2|9=1|"};
  send(link, client::with_soh(pick(PIECES, act.a)), turn);
}

void Traders::crowd(Link& link, const Act& act, uint64_t turn) {
  Account& account = accounts_[link.account];
  const size_t stock = act.a % engine_.stocks.size();
  const bool buy = act.b % 2 == 0;
  const std::string price = near_touch(stock, buy, static_cast<uint8_t>(act.c % 12));
  std::string bytes;
  for (unsigned i = 0; i < 20U + act.d; ++i) {
    bytes += message(account, "D",
                     {{11, new_name(account, 255)},
                      {55, engine_.stocks[stock].symbol},
                      {54, buy ? "1" : "2"},
                      {38, "100"},
                      {40, "2"},
                      {18, "i"},
                      {44, price}},
                     255);
  }
  send(link, bytes, turn);
}

}  // namespace lives
