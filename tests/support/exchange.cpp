#include "support/exchange.h"

#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <numeric>
#include <sstream>

#include "fix/fix_codec.h"
#include "support/test_clock.h"

namespace quorl::test {
namespace {

constexpr uint32_t SESSION_ID = 0x51554f52;
constexpr int FEED_DEADLINE_MS = 10000;  // datagrams on the loopback are there at once, or lost

// --- Decoding of the feed ---

uint64_t little_endian(std::string_view bytes, size_t at, size_t width) {
  uint64_t value = 0;
  for (size_t i = width; i-- > 0;) {
    value = value * 256 + static_cast<unsigned char>(bytes.at(at + i));
  }
  return value;
}

size_t length_of_type(char type) {
  switch (type) {
    case 'S':
      return 10;
    case 'D':
      return 31;
    case 'H':
      return 22;
    case 'O':
    case 'I':
    case 'E':
      return 18;
    case 'P':
      return 19;
    case '5':
    case '8':
      return 30;
    case 'T':
      return 38;
    default:
      return 0;
  }
}

FeedMessage decode_message(std::string_view bytes) {
  FeedMessage message;
  message.bytes = bytes;
  if (bytes.empty() || bytes.size() != length_of_type(bytes[0])) {
    ADD_FAILURE() << "a feed message of " << bytes.size() << " bytes";
    return message;
  }
  message.type = bytes[0];
  message.flags = static_cast<uint8_t>(bytes[1]);
  message.timestamp_ns = little_endian(bytes, 2, 8);
  if (message.type == 'S') return message;
  message.symbol = bytes.substr(10, 8);
  if (bytes.size() < 30) return message;
  message.size = static_cast<uint32_t>(little_endian(bytes, 18, 4));
  message.price = static_cast<Price4>(little_endian(bytes, 22, 8));
  if (message.type == 'T') message.trade_id = little_endian(bytes, 30, 8);
  return message;
}

FeedPacket decode_packet(std::string bytes) {
  FeedPacket packet;
  packet.bytes = std::move(bytes);
  const std::string_view all = packet.bytes;
  if (all.size() < 40 || all.size() > 1500) {
    ADD_FAILURE() << "a packet of " << all.size() << " bytes";
    return packet;
  }
  EXPECT_EQ(little_endian(all, 0, 1), 1U);       // version
  EXPECT_EQ(little_endian(all, 1, 1), 0U);       // reserved
  EXPECT_EQ(little_endian(all, 2, 2), 0x8004U);  // DEEP
  EXPECT_EQ(little_endian(all, 4, 4), 1U);       // channel
  packet.session_id = static_cast<uint32_t>(little_endian(all, 8, 4));
  packet.payload_length = static_cast<uint16_t>(little_endian(all, 12, 2));
  packet.message_count = static_cast<uint16_t>(little_endian(all, 14, 2));
  packet.stream_offset = little_endian(all, 16, 8);
  packet.first_seq = little_endian(all, 24, 8);
  packet.send_time = little_endian(all, 32, 8);
  EXPECT_EQ(packet.payload_length, all.size() - 40);

  size_t at = 40;
  while (at + 2 <= all.size()) {
    const size_t size = little_endian(all, at, 2);
    if (at + 2 + size > all.size()) break;
    packet.messages.push_back(decode_message(all.substr(at + 2, size)));
    at += 2 + size;
  }
  EXPECT_EQ(at, all.size()) << "the blocks do not end with the packet";
  EXPECT_EQ(packet.messages.size(), packet.message_count);
  return packet;
}

// --- The words of the language ---

/// At least two decimals, four where they are needed: "190.00", "0.9999", "-0.50".
std::string price_text(Price4 price) {
  const bool negative = price < 0;
  const uint64_t magnitude =
      negative ? 0 - static_cast<uint64_t>(price) : static_cast<uint64_t>(price);
  std::array<char, 48> text{};
  const auto whole = static_cast<unsigned long long>(magnitude / 10000);
  const auto fraction = static_cast<unsigned>(magnitude % 10000);
  if (fraction % 100 == 0) {
    std::snprintf(text.data(), text.size(), "%s%llu.%02u", negative ? "-" : "", whole,
                  fraction / 100);
  } else {
    std::snprintf(text.data(), text.size(), "%s%llu.%04u", negative ? "-" : "", whole, fraction);
  }
  return text.data();
}

std::string words_of(const FeedMessage& message, bool with_symbol) {
  std::string words;
  if (with_symbol && !message.symbol.empty()) {
    words = message.symbol.substr(0, message.symbol.find_last_not_of(' ') + 1) + " ";
  }
  words += message.type;
  switch (message.type) {
    case 'T':
      words += " " + std::to_string(message.size) + " @ " + price_text(message.price);
      if (message.flags == 0x20) return words + " odd";
      return message.flags == 0 ? words : words + " flags " + std::to_string(message.flags);
    case '5':
    case '8':
      words += " " + std::to_string(message.size) + " @ " + price_text(message.price);
      if (message.flags == 1) return words + " last";
      return message.flags == 0 ? words : words + " flags " + std::to_string(message.flags);
    default:
      return words;
  }
}

std::string words_of(const Order& order) {
  std::string words = order.buy ? "buy " : "sell ";
  words += std::to_string(order.leaves) + " @ " + price_text(order.price);
  if (!order.owner.empty()) words += " " + order.owner + " " + order.cl_ord_id;
  return words;
}

std::vector<std::string> split(std::string_view text, char separator) {
  std::vector<std::string> pieces;
  size_t at = 0;
  while (at <= text.size()) {
    const size_t end = std::min(text.find(separator, at), text.size());
    pieces.emplace_back(text.substr(at, end - at));
    at = end + 1;
  }
  return pieces;
}

std::pair<int, std::string> split_field(const std::string& field) {
  const size_t equals = field.find('=');
  if (equals == std::string::npos) {
    ADD_FAILURE() << "not a field: " << field;
    return {0, ""};
  }
  return {std::stoi(field.substr(0, equals)), field.substr(equals + 1)};
}

std::string readable(std::string message) {
  for (char& c : message) {
    if (c == '\x01') c = '|';
  }
  return message;
}

std::string frame_of(const std::string& comp_id, std::string_view message) {
  std::string type_and_body = std::string(message) + "|";
  const size_t behind_type = type_and_body.find('|') + 1;
  type_and_body.insert(behind_type, "49=" + comp_id + "|56=IEXG|34=2|52=20231114-22:13:20.123|");
  for (char& c : type_and_body) {
    if (c == '|') c = '\x01';
  }
  std::string frame =
      "8=FIX.4.2\x01"
      "9=" +
      std::to_string(type_and_body.size()) + "\x01" + type_and_body;
  const auto sum = std::accumulate(frame.begin(), frame.end(), 0U, [](unsigned total, char c) {
    return total + static_cast<unsigned char>(c);
  });
  std::array<char, 8> trailer{};
  std::snprintf(trailer.data(), trailer.size(), "10=%03u\x01", sum % 256);
  return frame + trailer.data();
}

struct OrderWords {
  Stock* stock = nullptr;
  bool buy = false;
  uint32_t shares = 0;
  Price4 price = 0;
};

/// "AAPL sell 300 @ 190.01", or without a price.
OrderWords parse_order(Engine& engine, const std::string& text) {
  std::istringstream words(text);
  std::string symbol;
  std::string side;
  std::string at;
  std::string price;
  OrderWords order;
  words >> symbol >> side >> order.shares >> at >> price;
  order.stock = engine.stock_by_symbol(symbol);
  if (order.stock == nullptr || (side != "buy" && side != "sell") || order.shares == 0) {
    ADD_FAILURE() << "not an order: " << text;
    order.stock = &engine.stocks.front();
  }
  order.buy = side == "buy";
  if (!price.empty()) order.price = price4(price);
  return order;
}

}  // namespace

Price4 price4(std::string_view dollars) {
  Price4 value = 0;
  int decimals = -1;
  const bool negative = !dollars.empty() && dollars.front() == '-';
  for (const char c : dollars.substr(negative ? 1 : 0)) {
    if (c == '.') {
      decimals = 0;
      continue;
    }
    if (c < '0' || c > '9') ADD_FAILURE() << "not a price: " << dollars;
    value = value * 10 + (c - '0');
    if (decimals >= 0) ++decimals;
  }
  for (int i = decimals < 0 ? 0 : decimals; i < 4; ++i) value *= 10;
  return negative ? -value : value;
}

FixFields fields_of(const std::string& message) {
  FixFields fields;
  if (message.size() < 7 || message.back() != '\x01') {
    ADD_FAILURE() << "not a FIX message: " << readable(message);
    return fields;
  }
  for (const std::string& field :
       split(std::string_view(message).substr(0, message.size() - 1), '\x01')) {
    fields.push_back(split_field(field));
  }
  const size_t trailer = message.size() - 7;
  const size_t body = message.find('\x01', message.find("\x01"
                                                        "9=") +
                                               1) +
                      1;
  EXPECT_EQ(value_of(fields, 8), "FIX.4.2") << readable(message);
  EXPECT_EQ(value_of(fields, 9), std::to_string(trailer - body)) << readable(message);
  unsigned sum = 0;
  for (size_t i = 0; i < trailer; ++i) sum += static_cast<unsigned char>(message[i]);
  std::array<char, 8> digits{};
  std::snprintf(digits.data(), digits.size(), "%03u", sum % 256);
  EXPECT_EQ(message.substr(trailer), std::string("10=") + digits.data() + "\x01");
  return fields;
}

std::string value_of(const FixFields& fields, int tag, const std::string& absent) {
  std::string value = absent;
  for (const auto& [field_tag, text] : fields) {
    if (field_tag == tag) value = text;
  }
  return value;
}

std::string sell(std::string_view changes) { return altered(SELL_100, changes); }

std::string altered(std::string_view message, std::string_view changes) {
  std::vector<std::string> fields = split(message, '|');
  if (changes.empty()) return std::string(message);
  for (const std::string& change : split(changes, '|')) {
    const bool leaves_out = change.starts_with('!');
    const std::string tag = leaves_out ? change.substr(1) : change.substr(0, change.find('='));
    const auto field = std::find_if(fields.begin(), fields.end(),
                                    [&](const std::string& f) { return f.starts_with(tag + "="); });
    if (leaves_out) {
      if (field == fields.end()) ADD_FAILURE() << "no tag " << tag << " to leave out";
      if (field != fields.end()) fields.erase(field);
    } else if (field != fields.end()) {
      *field = change;
    } else {
      fields.push_back(change);
    }
  }
  std::string result;
  for (const std::string& field : fields) result += (result.empty() ? "" : "|") + field;
  return result;
}

std::string standard_error_of(const std::function<void()>& act) {
  testing::internal::CaptureStderr();
  act();
  return testing::internal::GetCapturedStderr();
}

uint64_t draws_taken(std::mt19937_64& rng, const std::function<void()>& act) {
  std::mt19937_64 follower = rng;
  act();
  for (uint64_t draws = 0; draws <= 100000; ++draws) {
    if (follower == rng) return draws;
    follower();
  }
  ADD_FAILURE() << "the random source is not where any number of draws would leave it";
  return 0;
}

std::mt19937_64 rng_yielding(const std::vector<uint64_t>& outputs) {
  // The inverse of the engine's tempering, step by step from the last; a shift is undone by
  // repeating it until it has run out of the word.
  const auto untempered = [](uint64_t z) {
    z ^= z >> 43;
    z ^= (z << 37) & 0xFFF7EEE000000000U;
    uint64_t y = z;
    for (int i = 0; i < 4; ++i) y = z ^ ((y << 17) & 0x71D67FFFEDA60000U);
    uint64_t x = y;
    for (int i = 0; i < 3; ++i) x = y ^ ((x >> 29) & 0x5555555555555555U);
    return x;
  };
  // The library's text form: the words of the state, then how many of them are used up.
  constexpr size_t STATE_SIZE = std::mt19937_64::state_size;
  std::stringstream state;
  for (size_t i = 0; i < STATE_SIZE; ++i) {
    state << (i < outputs.size() ? untempered(outputs[i]) : 1) << ' ';
  }
  state << 0;
  std::mt19937_64 rng;
  state >> rng;

  std::mt19937_64 check = rng;
  for (const uint64_t output : outputs) EXPECT_EQ(check(), output) << "not the outputs asked for";
  return rng;
}

// --- FixPeer ---

Client& FixPeer::client() { return exchange_->clients.at(index_); }
SessionMemory FixPeer::stream() { return {exchange_->engine, client().comp_id}; }
std::deque<std::string>& FixPeer::inbox() { return exchange_->inboxes_[index_]; }

void FixPeer::says(std::string_view message) {
  const std::string frame = frame_of(client().comp_id, message);
  FixFieldMap fields;
  parse_fields(frame, fields);
  hand_over(fields.text(TAG_MSG_TYPE), fields);
}

void FixPeer::says_fields(char msg_type, const FixFields& fields) {
  FixFieldMap map;
  for (const auto& [tag, value] : fields) map.set(tag, value);
  hand_over({&msg_type, 1}, map);
}

void FixPeer::hand_over(std::string_view msg_type, const FixFieldMap& fields) {
  Engine& engine = exchange_->engine;
  Client& sender = client();
  const Outbox none;
  const Outbox* replies = &none;
  if (msg_type == "D") {
    replies = &engine.on_new_order(sender.comp_id, sender, fields);
  } else if (msg_type == "F") {
    replies = &engine.on_cancel(sender.comp_id, sender, fields);
  } else if (msg_type == "G") {
    replies = &engine.on_cancel_replace(sender.comp_id, sender, fields);
  } else {
    ADD_FAILURE() << "the engine has no handler for 35=" << msg_type;
  }
  for (size_t i = 0; i < replies->size(); ++i) inbox().emplace_back((*replies)[i]);
}

std::string FixPeer::next_message(const char* file, int line) {
  if (inbox().empty()) {
    ADD_FAILURE_AT(file, line) << client().comp_id << " hears nothing";
    return "";
  }
  std::string message = std::move(inbox().front());
  inbox().pop_front();
  return message;
}

void FixPeer::hears(std::string_view expected, const char* file, int line) {
  const testing::ScopedTrace trace(file, line,
                                   client().comp_id + " hears " + std::string(expected));
  const std::string message = next_message(file, line);
  if (message.empty()) return;
  const FixFields fields = fields_of(message);
  for (const std::string& field : split(expected, '|')) {
    if (field.starts_with('!')) {
      EXPECT_EQ(value_of(fields, std::stoi(field.substr(1))), "(absent)")
          << "tag " << field.substr(1) << " of " << readable(message);
      continue;
    }
    const auto [tag, value] = split_field(field);
    EXPECT_EQ(value_of(fields, tag), value) << "tag " << tag << " of " << readable(message);
  }
}

void FixPeer::hears_nothing(const char* file, int line) {
  for (const std::string& message : inbox()) {
    ADD_FAILURE_AT(file, line) << client().comp_id << " hears " << readable(message);
  }
}

void FixPeer::skips_all() { inbox().clear(); }

void FixPeer::disconnects() { disconnect_by_hand(exchange_->clients, index_); }

// --- Exchange ---

Exchange::CleanEnvironment::CleanEnvironment() {
  ::unsetenv("QUORL_SCENARIO");
  ::unsetenv("BENCH_ORDER_TRUTH");
  reset_clocks();
}

Exchange::FeedSocket::FeedSocket() {
  fd = ::socket(AF_INET, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  const bool bound = ::bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 &&
                     ::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size) == 0;
  if (!bound) std::abort();
  port = ntohs(address.sin_port);
}

Exchange::FeedSocket::~FeedSocket() { ::close(fd); }

Exchange::Exchange(const std::string& symbols, uint16_t feed_port)
    : publisher("127.0.0.1", feed_port == 0 ? feed_socket_.port : feed_port, "127.0.0.1",
                SESSION_ID),
      engine(publisher, rng, scenario, 0.8, 0.15) {
  if (symbols.empty()) return;
  for (const std::string& entry : split(symbols, ',')) {
    const size_t colon = entry.find(':');
    engine.add_stock(entry.substr(0, colon), std::stod(entry.substr(colon + 1)));
  }
}

Exchange::~Exchange() {
  if (!order_event_path_.empty()) ::unlink(order_event_path_.c_str());
}

std::vector<uint64_t> Exchange::rests(const std::vector<std::string>& orders) {
  std::vector<FeedPacket> unseen = packets();
  std::vector<uint64_t> ids;
  for (const std::string& text : orders) {
    const OrderWords words = parse_order(engine, text);
    engine.begin_event();
    ids.push_back(rest_synthetic(engine, *words.stock, words.buy, words.price, words.shares));
    engine.publish_dirty(*words.stock);
  }
  publisher.flush_if_pending();
  take_datagrams();
  unseen_packets_ = std::move(unseen);
  return ids;
}

void Exchange::is_hit(const std::string& aggressor) {
  const OrderWords words = parse_order(engine, aggressor);
  Order order;
  order.locate = words.stock->locate;
  order.buy = words.buy;
  order.price = words.price;
  order.leaves = order.qty = words.shares;
  engine.begin_event();
  engine.match_order(*words.stock, order, nullptr);
  engine.publish_dirty(*words.stock);
}

FixPeer Exchange::logs_on(const std::string& comp_id) {
  return FixPeer(*this, log_on_by_hand(engine, clients, comp_id));
}

void Exchange::drains_deferred() {
  for (const auto& [index, message] : engine.drain_deferred()) {
    inboxes_[index].emplace_back(message);
  }
}

/// Whatever has been flushed arrives, since no faults are set: waits for the last of it.
void Exchange::take_datagrams() {
  const PublisherState state = state_of(publisher);
  const uint64_t sent = state.messages - state.waiting;
  std::array<char, 65536> bytes;
  while (messages_received_ < sent) {
    const ssize_t got = ::recv(feed_socket_.fd, bytes.data(), bytes.size(), 0);
    if (got > 0) {
      unseen_packets_.push_back(decode_packet({bytes.data(), static_cast<size_t>(got)}));
      messages_received_ += unseen_packets_.back().message_count;
      continue;
    }
    pollfd readable_feed{feed_socket_.fd, POLLIN, 0};
    if (::poll(&readable_feed, 1, FEED_DEADLINE_MS) <= 0) {
      ADD_FAILURE() << "the feed lacks " << sent - messages_received_ << " messages";
      return;
    }
  }
}

std::vector<FeedPacket> Exchange::packets() {
  take_datagrams();
  return std::exchange(unseen_packets_, {});
}

std::vector<FeedMessage> Exchange::feed() {
  publisher.flush_if_pending();
  std::vector<FeedMessage> messages;
  for (FeedPacket& packet : packets()) {
    for (FeedMessage& message : packet.messages) messages.push_back(std::move(message));
  }
  return messages;
}

void Exchange::feed_shows(const std::vector<std::string>& expected, const char* file, int line) {
  const testing::ScopedTrace trace(file, line, "the feed shows");
  std::vector<std::string> shown;
  for (const FeedMessage& message : feed()) {
    shown.push_back(words_of(message, engine.stocks.size() > 1));
  }
  EXPECT_THAT(shown, testing::ElementsAreArray(expected));
}

void Exchange::book_holds(const std::vector<std::string>& expected, size_t stock_index,
                          const char* file, int line) {
  const testing::ScopedTrace trace(file, line, "the book holds");
  std::vector<std::string> held;
  for (const bool buy : {SELLS, BUYS}) {
    for (const RestingLevel& level : resting_levels(engine, stock(stock_index), buy)) {
      for (const Order* resting : level.queue) held.push_back(words_of(*resting));
    }
  }
  EXPECT_THAT(held, testing::ElementsAreArray(expected));
}

void Exchange::writes_order_events() {
  order_event_path_ = testing::TempDir() + "order_events_XXXXXX";
  const int created = ::mkstemp(order_event_path_.data());
  ASSERT_GE(created, 0) << order_event_path_;
  ::close(created);
  scenario.order_truth.open_for_appending(order_event_path_);
}

std::vector<std::string> Exchange::order_events() const {
  std::vector<std::string> events;
  std::ifstream file(order_event_path_);
  for (std::string line; std::getline(file, line);) {
    events.push_back(line.substr(std::min(line.find("\"ev\""), line.size())));
  }
  return events;
}

const Order& Exchange::order(const std::string& owner, const std::string& cl_ord_id) {
  static const Order none;
  const Order* const found = engine.live_order(owner, cl_ord_id);
  if (found != nullptr) return *found;
  ADD_FAILURE() << "no order " << cl_ord_id << " of " << owner << " rests";
  return none;
}

}  // namespace quorl::test
