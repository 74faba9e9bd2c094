#include "day/day_traders.h"

#include <algorithm>
#include <cstdlib>

#include "day/day_clock.h"
#include "quorl/client/fix_message.h"

namespace client = quorl::client;

namespace day {

/// The fields of one message of the exchange, as views into it.
class Traders::HeardFields {
 public:
  explicit HeardFields(std::string_view message) {
    size_t at = 0;
    while (at < message.size()) {
      const size_t end = std::min(message.find('\x01', at), message.size());
      const size_t equals = message.find('=', at);
      if (equals >= end) break;
      fields_.emplace_back(std::atoi(message.data() + at),
                           message.substr(equals + 1, end - equals - 1));
      at = end + 1;
    }
  }
  std::string text(int tag) const {
    for (const auto& [known, value] : fields_) {
      if (known == tag) return std::string(value);
    }
    return {};
  }

 private:
  std::vector<std::pair<int, std::string_view>> fields_;
};

namespace {

constexpr char SOH = '\x01';
constexpr std::string_view EXCHANGE = "IEXG";

std::string price_text(int64_t price) {
  std::string decimals = std::to_string(10000 + price % 10000).substr(1);
  while (!decimals.empty() && decimals.back() == '0') decimals.pop_back();
  return std::to_string(price / 10000) + (decimals.empty() ? "" : "." + decimals);
}

int64_t price_of(const std::string& text) {
  return static_cast<int64_t>(std::strtod(text.c_str(), nullptr) * 10000.0 + 0.5);
}

uint32_t number_of(const std::string& text) {
  return static_cast<uint32_t>(std::strtoul(text.c_str(), nullptr, 10));
}

std::string wire_of(const std::vector<std::pair<int, std::string>>& fields) {
  std::string wire;
  for (const auto& [tag, value] : fields) wire += std::to_string(tag) + '=' + value + SOH;
  return wire;
}

template <typename Fields>
void set(Fields& fields, int tag, std::string_view value) {
  for (auto& field : fields) {
    if (field.first == tag) field.second = value;
  }
}

template <typename Fields>
void drop(Fields& fields, int tag) {
  std::erase_if(fields, [tag](const auto& field) { return field.first == tag; });
}

std::string head_of(std::string_view type, const std::string& seq, std::string_view sender,
                    std::string_view target) {
  std::string head = "35=" + std::string(type) + SOH;
  if (!seq.empty()) head += "34=" + seq + SOH;
  head += "49=" + std::string(sender) + SOH + "56=" + std::string(target) + SOH;
  return head + "52=20240229-12:00:00.000" + SOH;
}

}  // namespace

Traders::Traders(Network& network, Outputs& outputs, Dice& dice, MarketView& view,
                 std::vector<ListedSymbol> symbols, uint16_t port, const TradingStyle& style)
    : network_(network),
      outputs_(outputs),
      dice_(dice),
      view_(view),
      symbols_(std::move(symbols)),
      port_(port),
      style_(style) {
  constexpr std::string_view NAMES[] = {"ALPHA", "BRAVO", "CHARLIE", "DELTA",
                                        "ECHO",  "FOX",   "GOLF",    "HOTEL"};
  for (size_t i = 0; i < style_.accounts; ++i) accounts_.emplace_back().name = NAMES[i];
}

void Traders::act(uint64_t turn, bool lull) {
  turn_ = turn;
  for (Link& link : links_) hear(link);
  std::erase_if(links_, [this](const Link& link) {
    return link.ended || network_.closed_by_exchange(link.connection);
  });
  open_links();
  for (Link& link : links_) {
    speak(link, lull);
    deliver(link);
  }
}

// --- The connections ---

void Traders::open_links() {
  const bool first = network_.connections() == 0;
  if (first || (links_.size() < style_.most_connections && dice_.one_in(300))) {
    Link& link = links_.emplace_back();
    link.connection = network_.connect(port_);
    link.session = Session::SILENT_STRANGER;
    link.since_turn = link.last_heard_turn = turn_;
    link.account = dice_.below(accounts_.size());
  }
  for (size_t i = 0; i < accounts_.size(); ++i) {
    if (links_.size() >= style_.most_connections) return;
    const auto used = static_cast<size_t>(std::count_if(
        links_.begin(), links_.end(), [i](const Link& link) { return link.account == i; }));
    if (used >= 2 || turn_ < accounts_[i].next_logon_turn) continue;
    if (used == 1 && !dice_.one_in(400)) continue;
    if (dice_.one_in(40)) network_.fail_next_accept(port_);
    Link& link = links_.emplace_back();
    link.connection = network_.connect(port_);
    link.account = i;
    link.since_turn = link.last_heard_turn = turn_;
    accounts_[i].next_logon_turn = turn_ + 10 + dice_.below(150);
    if (dice_.one_in(50)) {
      std::deque<int64_t> limits(dice_.below(30), Network::ALL);
      for (const int64_t limit : {int64_t{0}, int64_t{40}, Network::ALL, int64_t{0}}) {
        limits.push_back(limit);
      }
      if (dice_.one_in(3)) limits.push_back(Network::BROKEN);
      network_.limit_sends(link.connection, std::move(limits));
    }
    log_on(link);
  }
}

void Traders::log_on(Link& link) {
  Account& account = accounts_[link.account];
  Fields body = {{98, "0"}, {108, "30"}};
  std::string sender = account.name;
  std::string target(EXCHANGE);
  uint32_t seq = account.next_out;
  uint32_t next_out = seq + 1;
  if (style_.patient_heartbeats) {
    set(body, 108, std::to_string(60 + dice_.below(60)));
  } else {
    set(body, 108,
        dice_.word({"30", "30", "30", "10", "10", "5", "2", "1", "0", "-4", "x", " 7s"}));
  }
  switch (dice_.below(40)) {
    case 0:
      target = "IEX";
      break;
    case 1:
      sender = "";
      break;
    case 2:
      drop(body, 108);
      break;
    case 3:
      drop(body, 98);
      target = "";
      break;
    case 4:
    case 5:
      body.emplace_back(141, "Y");
      seq = dice_.one_in(6) ? 0 : dice_.one_in(4) ? 5 : 1;
      next_out = seq + 1;
      account.next_in = 1;
      break;
    case 6:
      body.emplace_back(141, "N");
      break;
    case 7:
      seq += static_cast<uint32_t>(1 + dice_.below(9));
      next_out = seq + 1;
      break;
    case 8:
      seq -= static_cast<uint32_t>(dice_.below(seq));
      next_out = account.next_out;
      break;
    default:
      break;
  }
  const std::string heartbeat = [&body] {
    for (const auto& [tag, value] : body) {
      if (tag == 108) return value;
    }
    return std::string();
  }();
  const long heartbeat_s = std::max(1L, std::strtol(heartbeat.c_str(), nullptr, 10));
  link.heartbeat_ms = static_cast<uint64_t>(heartbeat_s) * 1000;
  link.session = Session::LOGGING_ON;
  link.last_sent_ms = now_ms();
  account.next_out = next_out;
  link.outgoing +=
      client::frame_fix(head_of("A", std::to_string(seq), sender, target) + wire_of(body));
}

/// Somebody who has the port and not the protocol.
void Traders::speak_before_logon(Link& link) {
  switch (dice_.below(300)) {
    case 0:
      return log_on(link);
    case 1:
      link.outgoing += client::frame_fix(head_of(dice_.word({"D", "0", "5", "", "ZZ"}), "1",
                                                 accounts_[link.account].name, EXCHANGE) +
                                         "11=early" + SOH);
      return;
    case 2:
      link.outgoing += "GET / HTTP/1.0\r\n\r\n";
      return;
    case 3:
      return garbage(link);
    case 4:
      return hang_up(link, dice_.one_in(2));
    default:
      return;
  }
}

/// In one piece, or in dribbles over some turns.
void Traders::deliver(Link& link) {
  std::string bytes = std::exchange(link.outgoing, {});
  if (bytes.empty()) return;
  link.last_sent_ms = now_ms();
  outputs_.remark(std::to_string(link.connection) + " says " + bytes);
  uint64_t arrival = std::max(turn_, link.last_arrival);
  size_t cuts = dice_.one_in(12) ? 1 + dice_.below(4) : 0;
  while (cuts-- > 0 && bytes.size() > 1) {
    const size_t cut = 1 + dice_.below(bytes.size() - 1);
    network_.send(link.connection, bytes.substr(0, cut), arrival);
    bytes.erase(0, cut);
    arrival += dice_.below(3);
  }
  network_.send(link.connection, std::move(bytes), arrival);
  link.last_arrival = arrival;
}

void Traders::hang_up(Link& link, bool reset) {
  deliver(link);
  network_.end(link.connection, reset, std::max(turn_, link.last_arrival));
  outputs_.remark(std::to_string(link.connection) + (reset ? " resets" : " hangs up"));
  link.ended = true;
}

// --- Hearing ---

void Traders::hear(Link& link) {
  for (const std::string& message : network_.take_received(link.connection)) {
    on_message(link, message);
    link.last_heard_turn = turn_;
  }
}

void Traders::on_message(Link& link, const std::string& message) {
  const HeardFields fields(message);
  Account& account = accounts_[link.account];
  const std::string type = fields.text(35);
  if (type == "A") link.session = Session::UP;
  if (link.session == Session::UP) follow_sequence(link, fields);
  if (type == "8") on_report(account, fields);
  if (type == "9") on_cancel_reject(account, fields);
  if (type == "2") on_resend_request(link, fields);
  if (type == "5") {
    const std::string text = fields.text(58);
    constexpr std::string_view EXPECTING = "expecting ";
    const size_t at = text.find(EXPECTING);
    if (at != std::string::npos) account.next_out = number_of(text.substr(at + EXPECTING.size()));
  }
}

void Traders::follow_sequence(Link& link, const HeardFields& fields) {
  Account& account = accounts_[link.account];
  const uint32_t seq = number_of(fields.text(34));
  if (fields.text(35) == "4") {
    account.next_in = std::max(account.next_in, number_of(fields.text(36)));
    return;
  }
  if (seq < account.next_in) return;
  const bool gap = seq > account.next_in;
  if (gap && !link.mute && dice_.one_in(8)) {
    const std::string first = std::to_string(account.next_in);
    admin_message(link, "2", {{7, first}, {16, dice_.one_in(2) ? "0" : std::to_string(seq - 1)}});
  }
  account.next_in = seq + 1;
}

Traders::Order* Traders::find_order(Account& account, const std::string& cl_ord_id) {
  for (Order& order : account.orders) {
    if (order.cl_ord_id == cl_ord_id) return &order;
  }
  return nullptr;
}

void Traders::close_order(Account& account, const std::string& cl_ord_id) {
  constexpr size_t MOST_REMEMBERED = 4000;
  Order* const order = find_order(account, cl_ord_id);
  if (order == nullptr) return;
  account.closed.push_back({cl_ord_id, order->symbol, order->side, now_ms()});
  if (account.closed.size() > MOST_REMEMBERED) account.closed.pop_front();
  account.orders.erase(account.orders.begin() + (order - account.orders.data()));
}

void Traders::on_report(Account& account, const HeardFields& fields) {
  const std::string kind = fields.text(150);
  const std::string original = fields.text(41);
  const std::string name = fields.text(11);
  Order* const order = find_order(account, original.empty() ? name : original);
  if (order == nullptr) return;
  order->acknowledged = true;
  order->cum = number_of(fields.text(14));
  order->leaves = number_of(fields.text(151));
  if (kind == "5") {
    close_order(account, original);
    if (number_of(fields.text(151)) == 0) return;
    Order renamed;
    renamed.cl_ord_id = name;
    renamed.side = fields.text(54).at(0);
    renamed.qty = number_of(fields.text(38));
    renamed.price = price_of(fields.text(44));
    renamed.cum = number_of(fields.text(14));
    renamed.leaves = number_of(fields.text(151));
    renamed.acknowledged = true;
    for (size_t i = 0; i < symbols_.size(); ++i) {
      if (symbols_[i].name == fields.text(55)) renamed.symbol = i;
    }
    account.orders.push_back(std::move(renamed));
    return;
  }
  if (kind == "8") {
    account.orders.erase(account.orders.begin() + (order - account.orders.data()));
  } else if (kind == "2" || kind == "4") {
    close_order(account, order->cl_ord_id);
  }
}

/// Whatever the reason, an order that the exchange does not know rests no more.
void Traders::on_cancel_reject(Account& account, const HeardFields& fields) {
  const std::string text = fields.text(58);
  if (text == "Unknown order" || text == "Too late to cancel") {
    close_order(account, fields.text(41));
  }
}

void Traders::on_resend_request(Link& link, const HeardFields& fields) {
  Account& account = accounts_[link.account];
  const std::string first = fields.text(7);
  switch (dice_.below(4)) {
    case 0:  // never heard it
      return;
    case 1: {  // the orders again
      const uint32_t begin = number_of(first);
      const uint32_t end = number_of(fields.text(16));
      for (const auto& [seq, type_and_body] : account.sent_orders) {
        if (seq < begin || seq > end) continue;
        const std::string type = type_and_body.substr(0, 1);
        link.outgoing +=
            client::frame_fix(head_of(type, std::to_string(seq), account.name, EXCHANGE) + "43=Y" +
                              SOH + type_and_body.substr(1));
      }
      return;
    }
    default:
      message(link, "4", first, {{123, "Y"}, {36, std::to_string(account.next_out)}}, true);
  }
}

// --- Speaking ---

void Traders::message(Link& link, std::string_view type, const std::string& seq, const Fields& body,
                      bool possible_duplicate) {
  std::string text = head_of(type, seq, accounts_[link.account].name, EXCHANGE);
  if (possible_duplicate) text += std::string("43=Y") + SOH;
  link.outgoing += client::frame_fix(text + wire_of(body));
}

void Traders::admin_message(Link& link, std::string_view type, const Fields& body) {
  message(link, type, std::to_string(accounts_[link.account].next_out++), body);
}

void Traders::app_message(Link& link, std::string_view type, const Fields& body) {
  constexpr size_t MOST_KEPT = 60;
  Account& account = accounts_[link.account];
  const uint32_t seq = account.next_out++;
  account.sent_orders.emplace_back(seq, std::string(type) + wire_of(body));
  if (account.sent_orders.size() > MOST_KEPT) account.sent_orders.pop_front();
  message(link, type, std::to_string(seq), body);
}

void Traders::speak(Link& link, bool lull) {
  constexpr uint64_t MOST_SILENT_TURNS = 1500;  // of the exchange
  if (link.session == Session::SILENT_STRANGER) return speak_before_logon(link);
  if (link.session == Session::LOGGING_ON) {
    if (turn_ - link.since_turn > 400) hang_up(link, false);  // no answer: a lapse, or a lost Logon
    return;
  }
  if (link.mute) return;
  if (turn_ - link.last_heard_turn > MOST_SILENT_TURNS) return hang_up(link, dice_.one_in(3));
  if (now_ms() - link.last_sent_ms >= link.heartbeat_ms) admin_message(link, "0", {});
  if (lull) return;
  if (dice_.below(100) >= style_.percent_active) return;
  for (uint64_t i = dice_.below(style_.most_messages) + 1; i > 0 && !link.ended; --i) {
    const size_t resting = accounts_[link.account].orders.size();
    const bool full = resting > style_.most_orders;
    const uint32_t mischief_weight = style_.session_mischief;
    switch (dice_.weighted({full ? 20U : 450U, 4U, 60U, full ? 500U : 190U, full ? 100U : 170U, 50U,
                            24U, mischief_weight})) {
      case 0:
        new_order(link);
        break;
      case 1:
        ladder_of_orders(link);
        break;
      case 2:
        broken_order(link);
        break;
      case 3:
        cancel(link);
        break;
      case 4:
        replace(link);
        break;
      case 5:
        broken_replace(link);
        break;
      case 6:
        session_message(link);
        break;
      default:
        mischief(link);
    }
  }
}

size_t Traders::some_symbol() {
  return dice_.one_in(2) ? 0 : static_cast<size_t>(dice_.below(symbols_.size()));
}

char Traders::some_sell_side() { return "2222256"[dice_.below(7)]; }

int64_t Traders::best(size_t symbol, bool buy) {
  const ListedSymbol& listed = symbols_[symbol];
  const MarketView::Book& book = view_.book(listed.name.substr(0, 8));
  if (buy && !book.bids.empty()) return book.bids.begin()->first;
  if (!buy && !book.asks.empty()) return book.asks.begin()->first;
  return listed.opening_price + (buy ? -1 : 1) * tick_at(listed.opening_price);
}

int64_t Traders::crowded_price(size_t symbol, bool buy) {
  Crowd& crowd = crowds_[{symbol, buy}];
  if (turn_ >= crowd.until_turn) {
    const int64_t top = best(symbol, buy);
    crowd.price = top + (buy ? -1 : 1) * tick_at(top) * dice_.between(0, 3);
    crowd.until_turn = turn_ + 50 + dice_.below(400);
  }
  return crowd.price;
}

std::string Traders::new_cl_ord_id(Account& account) {
  if (account.closed.size() > 20 && dice_.one_in(60)) {  // an old name is free again
    return account.closed[account.closed.size() - 1 - dice_.below(20)].cl_ord_id;
  }
  if (dice_.one_in(100)) return "12345678901234567890";  // the longest; often one that rests
  return std::string(1, static_cast<char>(account.name[0] + 32)) +
         std::to_string(account.next_cl++);
}

Traders::Fields Traders::good_order(Account& account, size_t symbol, char side, uint32_t qty,
                                    std::optional<int64_t> price, char tif) {
  Order order;
  order.cl_ord_id = new_cl_ord_id(account);
  order.symbol = symbol;
  order.side = side;
  order.qty = order.leaves = qty;
  order.price = price.value_or(0);
  order.sent_turn = turn_;
  Fields fields = {{11, order.cl_ord_id},
                   {55, symbols_[symbol].name},
                   {54, std::string(1, side)},
                   {38, std::to_string(qty)},
                   {40, price ? "2" : "1"},
                   {59, std::string(1, tif)},
                   {18, "i"},
                   {47, std::string(dice_.word({"A", "P", "R", "P"}))},
                   {60, "20240229-12:00:00"}};
  if (price) fields.insert(fields.begin() + 5, {44, price_text(std::max<int64_t>(*price, 1))});
  if (side == '5' || side == '6') fields.emplace_back(114, "N");
  if (tif == '0' && dice_.one_in(5)) drop(fields, 59);
  if (dice_.one_in(9)) drop(fields, 47);
  if (price && dice_.one_in(9)) drop(fields, 40);
  if (find_order(account, order.cl_ord_id) == nullptr) account.orders.push_back(std::move(order));
  return fields;
}

void Traders::new_order(Link& link) {
  Account& account = accounts_[link.account];
  const size_t symbol = some_symbol();
  const bool buy = dice_.one_in(2);
  const char side = buy ? '1' : some_sell_side();
  const int64_t near = best(symbol, buy);
  const int64_t far = best(symbol, !buy);
  const int64_t tick = tick_at(near);
  const int64_t away = buy ? -tick : tick;
  const auto lots = [this](uint64_t least, uint64_t most) {
    return static_cast<uint32_t>(100 * (least + dice_.below(most - least + 1)));
  };
  uint32_t qty = lots(1, 6);
  std::optional<int64_t> price = near;
  char tif = '0';
  switch (dice_.weighted({30, 14, 10, 16, 7, 5, 7, 7, 4, 3, 4})) {
    case 0:
      price = crowded_price(symbol, buy);
      break;
    case 1:
      price = near + away * dice_.between(1, 12);
      break;
    case 2:
      break;
    case 3:
      price = far;
      break;
    case 4:  // a sweep
      price = far - away * dice_.between(2, 15);
      qty = lots(15, 90);
      break;
    case 5:
      price.reset();
      qty = dice_.one_in(8) ? lots(100, 300) : lots(1, 40);
      tif = "0034"[dice_.below(4)];
      break;
    case 6:
      price = far - away * dice_.between(-2, 3);
      qty = lots(1, 30);
      tif = '3';
      break;
    case 7:  // fill or kill, mostly possible
      price = far - away * dice_.between(0, 4);
      tif = '4';
      break;
    case 8:
      price = far - away * dice_.between(-1, 1);
      qty = lots(50, 400);
      tif = '4';
      break;
    case 9:
      price = near + away * dice_.between(-1, 2);
      qty = static_cast<uint32_t>(1 + dice_.below(250));
      break;
    default:
      qty = static_cast<uint32_t>(1 + dice_.below(250));
      price = far;
      break;
  }
  app_message(link, "D", good_order(account, symbol, side, qty, price, tif));
}

/// Many prices in a row, for a sweep whose level updates fill more than a packet.
void Traders::ladder_of_orders(Link& link) {
  Account& account = accounts_[link.account];
  const size_t symbol = dice_.below(symbols_.size());
  const bool buy = dice_.one_in(2);
  const int64_t near = best(symbol, buy);
  const int64_t tick = buy ? -tick_at(near) : tick_at(near);
  const auto rungs = static_cast<int64_t>(10 + dice_.below(50));
  for (int64_t i = 1; i <= rungs; ++i) {
    app_message(link, "D", good_order(account, symbol, buy ? '1' : '2', 100, near + i * tick, '0'));
  }
}

void Traders::broken_order(Link& link) {
  Account& account = accounts_[link.account];
  const size_t symbol = some_symbol();
  const bool buy = dice_.one_in(2);
  Fields fields = good_order(account, symbol, buy ? '1' : '2', 200, best(symbol, buy), '0');
  const std::string name = fields.front().second;
  if (!account.orders.empty() && account.orders.back().cl_ord_id == name) account.orders.pop_back();
  for (uint64_t i = dice_.one_in(5) ? 2 : 1; i > 0; --i) {
    switch (dice_.below(17)) {
      case 0:
        set(fields, 11,
            dice_.word({"", "123456789012345678901", "a,b", "a\"b", "a@b", "a|b", "ok"}));
        break;
      case 1:
        drop(fields, 11);
        break;
      case 2:
        set(fields, 55, dice_.word({"", "NOSUCH", "aapl", " AAPL", "\"},{\"", "LONGERTHANEIGHT"}));
        break;
      case 3:
        drop(fields, 55);
        break;
      case 4:
        set(fields, 38,
            dice_.word({"0", "1.5", "10000001", "10000000", "-5", "abc", "", "nan", "inf", "1e2",
                        "0x64", "99999999999999999999999", "100.0", "1.0.0"}));
        break;
      case 5:
        drop(fields, 38);
        break;
      case 6:
        set(fields, 54, dice_.word({"3", "", "22", "B", "7"}));
        break;
      case 7:
        drop(fields, 54);
        break;
      case 8:
        set(fields, 54, dice_.word({"5", "6"}));
        if (dice_.one_in(2)) fields.emplace_back(114, dice_.word({"Y", "", "NO", "N"}));
        break;
      case 9:
        set(fields, 18, dice_.word({"x", "", "G", "i x"}));
        break;
      case 10:
        drop(fields, 18);
        break;
      case 11:
        set(fields, 40, dice_.word({"3", "P", "", "12"}));
        break;
      case 12:
        set(fields, 44,
            dice_.word({"0", "-1", "10.005", "1.0001", "0.00001", "0.00005", "0.9999", "abc", "",
                        "inf", "1e30", "-1e30", "0.5", "1", "1.2.3", "900719925474.0992"}));
        break;
      case 13:
        drop(fields, 44);
        break;
      case 14:
        set(fields, 59, dice_.word({"1", "6", "2", "7", ""}));
        if (dice_.one_in(2)) set(fields, 40, "1");
        break;
      case 15:
        set(fields, 47, dice_.word({"X", "", "AP", "I"}));
        break;
      default:
        if (!account.orders.empty()) set(fields, 11, dice_.pick(account.orders).cl_ord_id);
    }
  }
  app_message(link, "D", fields);
}

Traders::Order* Traders::some_order(Account& account) {
  // What has never been answered was lost on the way.
  std::erase_if(account.orders, [this](const Order& order) {
    return !order.acknowledged && turn_ - order.sent_turn > 3000;
  });
  return account.orders.empty() ? nullptr : &dice_.pick(account.orders);
}

std::string Traders::closed_or_unknown(Account& account) {
  constexpr uint64_t JUST_CLOSED_MS = 2000;
  std::deque<ClosedOrder>& closed = account.closed;
  switch (closed.empty() ? 3 : dice_.below(8)) {
    case 0:
    case 1:
      return closed[closed.size() - 1 - dice_.below(std::min<size_t>(closed.size(), 5))].cl_ord_id;
    case 2:
      return dice_.pick(closed).cl_ord_id;
    case 3:
      return std::string(dice_.word({"", "never", "zz|9", "a0"}));
    default: {  // one that changes from late to stale about when this arrives
      const uint64_t turns_late = now_ms() - JUST_CLOSED_MS;
      const auto edge = std::lower_bound(
          closed.begin(), closed.end(), turns_late,
          [](const ClosedOrder& order, uint64_t ms) { return order.closed_ms < ms; });
      return edge == closed.end() ? closed.back().cl_ord_id : edge->cl_ord_id;
    }
  }
}

void Traders::cancel(Link& link) {
  Account& account = accounts_[link.account];
  const Order* const order = some_order(account);
  const bool lives = order != nullptr && !dice_.one_in(6);
  const std::string original = lives ? order->cl_ord_id : closed_or_unknown(account);
  Fields fields = {{11, dice_.one_in(30) ? "" : "c" + std::to_string(account.next_cl++)},
                   {41, original},
                   {55, lives ? symbols_[order->symbol].name : "AAPL"},
                   {54, lives ? std::string(1, order->side) : "1"},
                   {38, "100"}};
  if (dice_.one_in(60)) drop(fields, 41);
  app_message(link, "F", fields);
  if (lives && dice_.one_in(25)) app_message(link, "F", fields);  // once more, impatiently
}

Traders::Fields Traders::replace_fields(Account& account, const Order& order,
                                        const std::string& new_id) {
  (void)account;
  return {{11, new_id},
          {41, order.cl_ord_id},
          {55, symbols_[order.symbol].name},
          {54, std::string(1, order.side)},
          {38, std::to_string(order.qty)},
          {40, "2"},
          {44, price_text(order.price)}};
}

void Traders::replace(Link& link) {
  Account& account = accounts_[link.account];
  const Order* const order = some_order(account);
  if (order == nullptr) return new_order(link);
  Fields fields = replace_fields(account, *order, new_cl_ord_id(account));
  const bool buy = order->side == '1';
  const int64_t near = best(order->symbol, buy);
  const int64_t far = best(order->symbol, !buy);
  const int64_t away = buy ? -tick_at(near) : tick_at(near);
  const auto quantity = [&fields](uint32_t qty) { set(fields, 38, std::to_string(qty)); };
  const auto price = [&fields](int64_t limit) {
    set(fields, 44, price_text(std::max<int64_t>(limit, 1)));
  };
  switch (dice_.below(14)) {
    case 0:
    case 1:
    case 2:  // smaller, in its place
      quantity(order->cum + 1 + static_cast<uint32_t>(dice_.below(std::max(order->leaves, 1U))));
      break;
    case 3:  // nothing but the name
      break;
    case 4:
      quantity(order->qty + 100 * static_cast<uint32_t>(1 + dice_.below(5)));
      break;
    case 5:
      price(near);
      break;
    case 6:
      price(crowded_price(order->symbol, buy));
      break;
    case 7:
      price(near + away * dice_.between(1, 8));
      break;
    case 8:
    case 9:  // across the market
      price(far - away * dice_.between(0, 2));
      break;
    case 10:
      price(far - away * dice_.between(0, 8));
      quantity(order->qty + 100 * static_cast<uint32_t>(dice_.below(40)));
      break;
    case 11:
      drop(fields, 44);
      break;
    case 12:
      drop(fields, 44);
      quantity(order->cum + static_cast<uint32_t>(dice_.below(300)));
      break;
    default:  // smaller and elsewhere
      price(near + away * dice_.between(-1, 3));
      quantity(order->cum + 100);
  }
  app_message(link, "G", fields);
}

void Traders::broken_replace(Link& link) {
  Account& account = accounts_[link.account];
  const Order* const order = some_order(account);
  if (order == nullptr) return new_order(link);
  Fields fields = replace_fields(account, *order, new_cl_ord_id(account));
  for (uint64_t i = dice_.one_in(6) ? 2 : 1; i > 0; --i) {
    switch (dice_.below(11)) {
      case 0:
        set(fields, 11, dice_.word({"", "123456789012345678901", "x@y", "p|q"}));
        break;
      case 1:
        set(fields, 11, dice_.pick(account.orders).cl_ord_id);
        break;
      case 2:
        set(fields, 11, order->cl_ord_id);
        break;
      case 3:
      case 4:
        set(fields, 41, closed_or_unknown(account));
        break;
      case 5:
        set(fields, 38, dice_.word({"0", "-1", "10000001", "abc", "nan", "", "150.7", "0.5"}));
        break;
      case 6:
        set(fields, 44, dice_.word({"0", "-3", "", "abc", "0.00001", "55.555", "1e99"}));
        break;
      case 7:  // nothing would be left
        set(fields, 38, std::to_string(dice_.below(order->cum + 1)));
        break;
      case 8:
        set(fields, 54, dice_.word({"1", "2", "5", "6", ""}));
        break;
      case 9:
        set(fields, 55, dice_.word({"", "NOSUCH", "MSFT", "AAPL"}));
        break;
      default:
        drop(fields, static_cast<int>(dice_.pick(fields).first));
    }
  }
  app_message(link, "G", fields);
}

void Traders::session_message(Link& link) {
  Account& account = accounts_[link.account];
  switch (dice_.below(10)) {
    case 0:
      return admin_message(link, "0", {});
    case 1:
    case 2:
      return admin_message(link, "1", {{112, "T" + std::to_string(turn_)}});
    case 3:
      return admin_message(link, "1", dice_.one_in(2) ? Fields{} : Fields{{112, ""}});
    case 4:
      return admin_message(link, dice_.word({"3", "AE", "", "B", "d", "DD"}), {{58, "hello"}});
    case 5:  // an old message once more
      if (account.sent_orders.empty()) return;
      {
        const auto& [seq, type_and_body] = dice_.pick(account.sent_orders);
        link.outgoing += client::frame_fix(
            head_of(type_and_body.substr(0, 1), std::to_string(seq), account.name, EXCHANGE) +
            (dice_.one_in(3) ? "43=N" : "43=Y") + SOH + type_and_body.substr(1));
      }
      return;
    default:
      return resend_request(link);
  }
}

void Traders::resend_request(Link& link) {
  constexpr uint32_t MOST_STORED = 200000;  // by the exchange, for one account
  const uint32_t next_in = accounts_[link.account].next_in;
  const uint32_t first = next_in - static_cast<uint32_t>(dice_.below(std::min(next_in, 40U)));
  const auto ask = [&](const std::string& begin, const std::string& end) {
    admin_message(link, "2", {{7, begin}, {16, end}});
  };
  const std::string text = std::to_string(first);
  switch (dice_.below(12)) {
    case 0:
      return ask("0", std::to_string(dice_.below(20)));
    case 1:
      return ask(text, std::to_string(first + 100000));
    case 2:
      return ask(std::to_string(next_in + 1000), "0");
    case 3:
      return ask(text, std::to_string(first / 2));
    case 4:
      return ask("1", "10");
    case 5:  // all there is, which is long
      if (next_in > MOST_STORED) return ask("1", std::to_string(next_in - MOST_STORED));
      if (!dice_.one_in(150)) return ask("-5", "");
      if (dice_.one_in(2)) return admin_message(link, "2", {});
      return ask("x", "4294967295");
    default:
      return ask(text, dice_.one_in(2) ? "0" : std::to_string(first + dice_.below(30)));
  }
}

/// What ends a session, or might.
void Traders::mischief(Link& link) {
  Account& account = accounts_[link.account];
  switch (dice_.below(16)) {
    case 0:
      return admin_message(link, "5", dice_.one_in(2) ? Fields{} : Fields{{58, "bye"}});
    case 1:
      return hang_up(link, false);
    case 2:
      return hang_up(link, true);
    case 3:
      link.mute = dice_.one_in(2);
      return;
    case 4:
      account.next_out += static_cast<uint32_t>(1 + dice_.below(5));  // a gap
      return admin_message(link, dice_.word({"0", "1", "2", "X"}), {{7, "1"}, {16, "0"}});
    case 5:
      return message(link, dice_.word({"0", "1"}), std::to_string(account.next_out / 2), {});
    case 6:
      return message(link, "4", std::to_string(account.next_out),
                     {{36, std::to_string(account.next_out + dice_.below(10))}});
    case 7:
      return message(link, "4", "1", {{36, dice_.one_in(3) ? "abc" : "3"}});
    case 8:
      return message(link, "0", "", {});
    case 9:
      return message(link, "1", dice_.one_in(2) ? "abc" : "4294967300", {});
    case 10:
      return log_on(link);  // a second Logon on the connection
    case 11:                // and hangs up behind whole messages
      new_order(link);
      return hang_up(link, false);
    default:
      return garbage(link);
  }
}

void Traders::garbage(Link& link) {
  Account& account = accounts_[link.account];
  std::string frame = client::frame_fix(
      head_of("D", std::to_string(account.next_out), account.name, EXCHANGE) + "11=g" + SOH);
  switch (dice_.below(14)) {
    case 0:
      frame[frame.size() - 2] = frame[frame.size() - 2] == '0' ? '1' : '0';
      break;
    case 1:
      frame = "noise 8=FI" + frame;
      break;
    case 2:
      frame.replace(frame.find("9="), 2, "9=x");
      break;
    case 3:
      // It wraps to a length that never comes: nothing behind it is ever heard.
      frame.replace(frame.find("9="), 2, dice_.one_in(2) ? "9=-" : "9=-1 ");
      if (!dice_.one_in(3)) frame.clear();
      break;
    case 4:
      frame.erase(frame.size() / 2, 1);
      break;
    case 5:
      frame = std::string("8=FIX.4.2") + SOH + "9=5" + SOH + frame;
      break;
    case 6:
      frame = client::frame_fix(
          head_of("D", std::to_string(account.next_out++), account.name, EXCHANGE) +
          "no equals sign" + SOH + "11=lost" + SOH);
      break;
    case 7:
      frame = client::frame_fix(
          head_of("1", std::to_string(account.next_out++), account.name, EXCHANGE) + "x7=1" + SOH +
              "112=first" + SOH + "112=last" + SOH + "0112=z" + SOH,
          dice_.one_in(2) ? "FIX.4.4" : "FIXT");
      break;
    case 8:
      frame[frame.size() - 7] = '9';
      break;
    case 9:
      frame.back() = '!';  // nobody looks at it, but the last field has no end
      break;
    case 10:
      frame = client::frame_fix(
          head_of("1", std::to_string(account.next_out++), account.name, EXCHANGE) +
          "12345678901=long" + SOH + "112=behind" + SOH);
      break;
    default: {  // one byte of an order is another, and the checksum is right
      std::string body = head_of("D", std::to_string(account.next_out++), account.name, EXCHANGE) +
                         wire_of(good_order(account, some_symbol(), '1', 100, 1000000, '3'));
      const size_t at = dice_.below(body.size());
      body[at] = static_cast<char>(dice_.below(256));
      frame = client::frame_fix(body);
    }
  }
  link.outgoing += frame;
}

}  // namespace day
