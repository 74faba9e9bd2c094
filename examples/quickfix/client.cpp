// A trading client of quorl on the QuickFIX engine. It places orders round and round, leaves each
// alone for a while, then replaces or cancels it, and prints what becomes of it. It lives through
// dropped connections and silences, and at the end prints what it believes of each order.
#include <quickfix/Application.h>
#include <quickfix/FileLog.h>
#include <quickfix/MessageStore.h>
#include <quickfix/Session.h>
#include <quickfix/SessionSettings.h>
#include <quickfix/SocketInitiator.h>
#include <quickfix/fix42/NewOrderSingle.h>
#include <quickfix/fix42/OrderCancelReplaceRequest.h>
#include <quickfix/fix42/OrderCancelRequest.h>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <ctime>
#include <deque>
#include <iostream>
#include <map>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

enum ExitStatus { ALL_ENDED = 0, SOME_OPEN = 1, USED_WRONGLY = 2, NOBODY_ANSWERED = 3 };

struct Options {
  std::string settings = "client.cfg";
  std::string host, port, comp_id;  // empty: as the settings say
  std::vector<std::string> symbols{"AAPL"};
  unsigned orders = 20;
  std::chrono::seconds run_time{60};  // then no more orders, and those that rest are cancelled
  milliseconds pace{200};             // from order to order
};

constexpr milliseconds LEFT_ALONE{500};     // before an order that rests is replaced or cancelled
constexpr std::chrono::seconds TO_END{15};  // for the last answers, behind the time to run

struct Order {
  std::string cl_ord_id;     // the name that the exchange knows it by
  std::string request = {};  // a cancel or replace that is not answered yet; empty: none
  std::string order_id = "NONE";
  std::string symbol;
  char side = FIX::Side_BUY;
  std::string quantity = "100";
  std::string price = "0";  // 0: a market order
  std::string cum = "0", leaves = "0";
  std::string state = "sent";   // then live; then filled, cancelled, rejected or lost
  bool to_be_replaced = false;  // before it is cancelled
  Clock::time_point touch_at = {};

  bool open() const { return state == "sent" || state == "live"; }
};

std::string price_text(double dollars) {  // in whole cents, as the exchange wants it
  char text[32];
  std::snprintf(text, sizeof text, "%.2f", dollars);
  return text;
}

class Client : public FIX::Application {
 public:
  explicit Client(const Options& options)
      : options_(options), end_(Clock::now() + options.run_time) {
    const std::time_t now = std::time(nullptr);
    char prefix[16];
    std::strftime(prefix, sizeof prefix, "%H%M%S-", std::gmtime(&now));
    prefix_ = prefix;
  }

  /// What is due. Called again and again.
  void act(FIX::Session& session) {
    if (!logged_on_) return;
    if (recovering_) {
      // The number of the Logon reply is above those of all that we missed.
      if (session.getExpectedTargetNum() <= logon_number_) return;
      recovering_ = false;
      give_up_unanswered();
    }
    const Clock::time_point now = Clock::now();
    if (placing() && now >= next_order_at_) {
      place();
      next_order_at_ = now + options_.pace;
    }
    for (Order& order : orders_) {
      if (order.state == "live" && order.request.empty() && now >= order.touch_at) touch(order);
    }
  }

  bool done() const {
    if (placing()) return false;
    for (const Order& order : orders_) {
      if (order.open()) return false;
    }
    return true;
  }

  bool was_logged_on() const { return was_logged_on_; }
  bool logged_on() const { return logged_on_; }

  void print_orders() const {
    for (const Order& order : orders_) {
      std::cout << "order " << order.cl_ord_id << " " << order.order_id << " " << order.symbol
                << " " << (order.side == FIX::Side_BUY ? "buy " : "sell ") << order.quantity
                << " @ " << order.price << " cum " << order.cum << " leaves " << order.leaves << " "
                << order.state << std::endl;
    }
  }

 private:
  // --- What we send ---

  bool placing() const { return orders_.size() < options_.orders && Clock::now() < end_; }

  std::string new_name() { return prefix_ + std::to_string(++names_); }

  /// By turns: a market order; a limit next to the last price; one far away; one far away that will
  /// be replaced so as to trade. The first of each symbol are market orders: they tell the price.
  void place() {
    const size_t count = orders_.size();
    Order order;
    order.cl_ord_id = new_name();
    order.symbol = options_.symbols[count / 4 % options_.symbols.size()];
    const bool buy = count / 4 / options_.symbols.size() % 2 == 0;
    order.side = buy ? FIX::Side_BUY : FIX::Side_SELL;
    const auto last = last_price_.find(order.symbol);
    const size_t kind = last == last_price_.end() ? 0 : count % 4;
    if (kind == 1) order.price = price_text(last->second + (buy ? -0.01 : 0.01));
    if (kind >= 2) order.price = price_text(last->second * (buy ? 0.9 : 1.1));
    if (kind == 3) order.quantity = "1000";
    order.to_be_replaced = kind == 3;

    FIX42::NewOrderSingle message(order.cl_ord_id, FIX::HandlInst('1'), order.symbol, order.side,
                                  FIX::TransactTime(),
                                  order.price == "0" ? FIX::OrdType_MARKET : FIX::OrdType_LIMIT);
    message.setField(FIX::FIELD::OrderQty, order.quantity);
    message.setField(FIX::FIELD::ExecInst, "i");  // the exchange refuses orders without it
    if (order.price != "0") message.setField(FIX::FIELD::Price, order.price);
    message.setField(FIX::TimeInForce(FIX::TimeInForce_DAY));
    say("sent", order);
    order_of_[order.cl_ord_id] = orders_.size();
    orders_.push_back(order);
    FIX::Session::sendToTarget(message, session_);
  }

  void touch(Order& order) {
    order.request = new_name();
    order_of_[order.request] = order_of_[order.cl_ord_id];
    if (order.to_be_replaced && Clock::now() < end_) {
      order.to_be_replaced = false;
      const double beyond = order.side == FIX::Side_BUY ? 1.01 : 0.99;
      FIX42::OrderCancelReplaceRequest message(order.cl_ord_id, order.request, FIX::HandlInst('1'),
                                               order.symbol, order.side, FIX::TransactTime(),
                                               FIX::OrdType_LIMIT);
      message.setField(FIX::FIELD::OrderQty, order.quantity);
      message.setField(FIX::FIELD::Price, price_text(last_price_[order.symbol] * beyond));
      FIX::Session::sendToTarget(message, session_);
    } else {
      FIX42::OrderCancelRequest message(order.cl_ord_id, order.request, order.symbol, order.side,
                                        FIX::TransactTime());
      FIX::Session::sendToTarget(message, session_);
    }
  }

  /// Everything that the exchange has ever said to us is here. What we sent and it has not answered
  /// broke off with a connection and never arrived.
  void give_up_unanswered() {
    for (Order& order : orders_) {
      if (order.state == "sent") {
        order.state = "lost";
        say("lost", order);
      }
      order.request.clear();
    }
  }

  // --- What we hear ---

  Order* find(const std::string& name) {
    const auto found = order_of_.find(name);
    return found == order_of_.end() ? nullptr : &orders_[found->second];
  }

  static std::string text_of(const FIX::Message& message) {
    return message.isSetField(FIX::FIELD::Text) ? message.getField(FIX::FIELD::Text) : "";
  }

  void on_execution_report(const FIX::Message& report) {
    Order* order = find(report.getField(FIX::FIELD::ClOrdID));
    if (order == nullptr) {
      std::cout << "not ours " << report.getField(FIX::FIELD::ClOrdID) << std::endl;
      return;  // of an earlier run of this client
    }
    order->order_id = report.getField(FIX::FIELD::OrderID);
    order->quantity = report.getField(FIX::FIELD::OrderQty);
    if (report.isSetField(FIX::FIELD::Price)) order->price = report.getField(FIX::FIELD::Price);
    order->cum = report.getField(FIX::FIELD::CumQty);
    order->leaves = report.getField(FIX::FIELD::LeavesQty);
    order->touch_at = Clock::now() + LEFT_ALONE;
    switch (report.getField(FIX::FIELD::ExecType)[0]) {
      case FIX::ExecType_NEW:
        order->state = "live";
        return say("new", *order);
      case FIX::ExecType_PARTIAL_FILL:
      case FIX::ExecType_FILL:
        last_price_[order->symbol] = std::stod(report.getField(FIX::FIELD::LastPx));
        if (order->leaves == "0") order->state = "filled";
        return say(
            "fill", *order,
            report.getField(FIX::FIELD::LastShares) + " @ " + report.getField(FIX::FIELD::LastPx));
      case FIX::ExecType_CANCELED:  // also one that nobody asked for
        order->state = "cancelled";
        return say("cancelled", *order, text_of(report));
      case FIX::ExecType_REPLACED:  // behind the fills that it led to: they have the lower numbers
        order->cl_ord_id = report.getField(FIX::FIELD::ClOrdID);
        order->request.clear();
        order->state = order->leaves == "0" ? "filled" : "live";
        return say("replaced", *order);
      case FIX::ExecType_REJECTED:
        order->state = "rejected";
        return say("rejected", *order, text_of(report));
    }
  }

  void on_cancel_reject(const FIX::Message& reject) {
    Order* order = find(reject.getField(FIX::FIELD::OrigClOrdID));
    if (order == nullptr) return;
    order->request.clear();
    order->touch_at = Clock::now() + LEFT_ALONE;
    // The exchange holds no such order: it has ended, and only a report still to come can say how.
    if (reject.isSetField(FIX::FIELD::CxlRejReason) &&
        reject.getField(FIX::FIELD::CxlRejReason) ==
            std::to_string(FIX::CxlRejReason_UNKNOWN_ORDER)) {
      order->state = "lost";
    }
    const bool cancel = reject.getField(FIX::FIELD::CxlRejResponseTo) ==
                        std::string(1, FIX::CxlRejResponseTo_ORDER_CANCEL_REQUEST);
    say(cancel ? "cancel refused" : "replace refused", *order, text_of(reject));
  }

  static void say(const std::string& what, const Order& order, const std::string& more = "") {
    std::cout << what << " " << order.cl_ord_id << " " << order.symbol
              << (order.side == FIX::Side_BUY ? " buy " : " sell ") << order.quantity << " @ "
              << order.price << ", " << order.leaves << " open" << (more.empty() ? "" : ": ")
              << more << std::endl;
  }

  // --- What the engine calls ---

  void onCreate(const FIX::SessionID& session) override { session_ = session; }

  void onLogon(const FIX::SessionID&) override {
    logged_on_ = was_logged_on_ = recovering_ = true;
    std::cout << "logged on" << std::endl;
  }

  void onLogout(const FIX::SessionID&) override {
    if (logged_on_) std::cout << "session down" << std::endl;
    logged_on_ = false;
  }

  /// The exchange's memory of a session is longer than ours: numbers that begin anew on our side
  /// must do so on its side too. Later Logons go on where the connection broke off.
  void toAdmin(FIX::Message& message, const FIX::SessionID& id) override {
    if (message.getHeader().getField(FIX::FIELD::MsgType) != FIX::MsgType_Logon) return;
    if (FIX::Session::lookupSession(id)->getExpectedTargetNum() == 1) {
      message.setField(FIX::ResetSeqNumFlag(true));
    }
  }

  /// An order that is sent again is late, and the exchange may take it for a new one.
  void toApp(FIX::Message& message, const FIX::SessionID&) throw(FIX::DoNotSend) override {
    if (message.getHeader().isSetField(FIX::FIELD::PossDupFlag)) throw FIX::DoNotSend();
  }

  void fromAdmin(const FIX::Message& message,
                 const FIX::SessionID& id) throw(FIX::FieldNotFound, FIX::IncorrectDataFormat,
                                                 FIX::IncorrectTagValue,
                                                 FIX::RejectLogon) override {
    const std::string type = message.getHeader().getField(FIX::FIELD::MsgType);
    const int number = std::stoi(message.getHeader().getField(FIX::FIELD::MsgSeqNum));
    if (type == FIX::MsgType_Logon) logon_number_ = number;
    if (type == FIX::MsgType_Logout) keep_hole(*FIX::Session::lookupSession(id), number);
  }

  /// The engine counts a Logout whatever its number. That of a refused Logon can stand behind a
  /// hole: each would make the engine take one report that it missed for one that came.
  static void keep_hole(FIX::Session& session, int number) {
    const int expected = session.getExpectedTargetNum();
    if (number > expected) session.setNextTargetMsgSeqNum(expected - 1);
  }

  /// In the order of the numbers and each once, replays too: the engine sees to that.
  void fromApp(const FIX::Message& message,
               const FIX::SessionID&) throw(FIX::FieldNotFound, FIX::IncorrectDataFormat,
                                            FIX::IncorrectTagValue,
                                            FIX::UnsupportedMessageType) override {
    const std::string type = message.getHeader().getField(FIX::FIELD::MsgType);
    if (type == FIX::MsgType_ExecutionReport) on_execution_report(message);
    if (type == FIX::MsgType_OrderCancelReject) on_cancel_reject(message);
  }

  const Options options_;
  const Clock::time_point end_;
  Clock::time_point next_order_at_ = Clock::now();
  FIX::SessionID session_;
  bool logged_on_ = false;
  bool was_logged_on_ = false;
  bool recovering_ = false;  // logged on, and what we missed is still coming
  int logon_number_ = 0;
  std::string prefix_;  // so that no two runs use a ClOrdID twice
  unsigned names_ = 0;
  std::deque<Order> orders_;
  std::map<std::string, size_t> order_of_;  // by every ClOrdID that an order or request of it bore
  std::map<std::string, double> last_price_;
};

bool read_options(int argc, char** argv, Options& options) {
  for (int i = 1; i < argc; i += 2) {
    const std::string name = argv[i];
    if (i + 1 == argc) return false;
    const std::string value = argv[i + 1];
    if (name == "--settings") {
      options.settings = value;
    } else if (name == "--host") {
      options.host = value;
    } else if (name == "--port") {
      options.port = value;
    } else if (name == "--comp-id") {
      options.comp_id = value;
    } else if (name == "--symbols") {
      options.symbols.clear();
      std::istringstream list(value);
      for (std::string symbol; std::getline(list, symbol, ',');) options.symbols.push_back(symbol);
    } else if (name == "--orders") {
      options.orders = static_cast<unsigned>(std::stoul(value));
    } else if (name == "--seconds") {
      options.run_time = std::chrono::seconds(std::stoul(value));
    } else if (name == "--pace") {
      options.pace = milliseconds(std::stoul(value));
    } else {
      return false;
    }
  }
  return !options.symbols.empty();
}

/// The settings of the file with the command line's on top. The file holds one session.
FIX::SessionSettings read_settings(const Options& options) {
  const FIX::SessionSettings file(options.settings);
  if (file.size() != 1) throw FIX::ConfigError("one [SESSION], please");
  const FIX::SessionID in_file = *file.getSessions().begin();
  FIX::Dictionary session = file.get(in_file);
  if (!options.host.empty()) session.setString(FIX::SOCKET_CONNECT_HOST, options.host);
  if (!options.port.empty()) session.setString(FIX::SOCKET_CONNECT_PORT, options.port);
  const std::string sender =
      options.comp_id.empty() ? in_file.getSenderCompID().getValue() : options.comp_id;
  session.setString(FIX::SENDERCOMPID, sender);
  FIX::SessionSettings settings;
  settings.set(file.get());
  settings.set(FIX::SessionID(in_file.getBeginString(), sender, in_file.getTargetCompID()),
               session);
  return settings;
}

/// The engine calls us from within its poll, on our thread. That does not wait, whatever it is
/// told; so we do, and leave the processor to the exchange.
void turn(FIX::Initiator& initiator) {
  initiator.poll();
  std::this_thread::sleep_for(milliseconds(1));
}

int run(const Options& options) {
  const FIX::SessionSettings settings = read_settings(options);
  Client client(options);
  FIX::MemoryStoreFactory store;
  FIX::FileLogFactory log(settings);
  FIX::SocketInitiator initiator(client, store, settings, log);

  turn(initiator);
  FIX::Session& session = *FIX::Session::lookupSession(*initiator.getSessions().begin());
  const Clock::time_point latest = Clock::now() + options.run_time + TO_END;
  const Clock::time_point latest_logon = Clock::now() + options.run_time;
  while (!client.done() && Clock::now() < (client.was_logged_on() ? latest : latest_logon)) {
    turn(initiator);
    client.act(session);
  }
  session.logout();
  const Clock::time_point patience = Clock::now() + std::chrono::seconds(2);
  while (client.logged_on() && Clock::now() < patience) turn(initiator);
  initiator.stop(true);

  client.print_orders();
  if (!client.was_logged_on()) return NOBODY_ANSWERED;
  return client.done() ? ALL_ENDED : SOME_OPEN;
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  try {
    if (!read_options(argc, argv, options)) throw std::invalid_argument("a bad option");
  } catch (const std::exception& error) {
    std::cerr
        << "quickfix-client: " << error.what()
        << "\nusage: quickfix-client [--settings FILE] [--host HOST] [--port PORT]"
           " [--comp-id NAME]\n         [--symbols A,B] [--orders N] [--seconds S] [--pace MS]\n";
    return USED_WRONGLY;
  }
  try {
    return run(options);
  } catch (const std::exception& error) {
    std::cerr << "quickfix-client: " << error.what() << "\n";
    return USED_WRONGLY;
  }
}
