#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <string_view>

#include "certify/checks/check.h"
#include "tests/certify/checks/support/dialogue.h"

namespace certify {

/// A talk about orders: numbers, ExecIDs and OrderIDs are looked after, and each report comes with
/// its order event. Orders are buys of AAPL.
class OrderTalk {
 public:
  OrderTalk();  // logged on
  ~OrderTalk();
  OrderTalk(const OrderTalk&) = delete;
  OrderTalk& operator=(const OrderTalk&) = delete;

  // The client
  OrderTalk& order(const std::string& name, unsigned qty = 100, const std::string& price = "185");
  OrderTalk& cancel(const std::string& request, const std::string& name);
  OrderTalk& replace(const std::string& request, const std::string& name, unsigned qty,
                     const std::string& price = "185");
  /// Any message; 34 is put behind 35.
  OrderTalk& says(const std::string& text);
  OrderTalk& logs_on_again(unsigned heartbeat_s = 30);

  // The exchange
  OrderTalk& accepts(const std::string& name);
  OrderTalk& fills(const std::string& name, unsigned shares);
  OrderTalk& cancels(const std::string& name, const std::string& request);
  OrderTalk& replaces(const std::string& name, const std::string& request, unsigned qty);
  OrderTalk& refuses(const std::string& name, const std::string& text = "bench:scripted_reject");
  /// 102: 0 too late, 1 unknown, 2 else.
  OrderTalk& refuses_cancel(const std::string& request, const std::string& name, char reason);
  OrderTalk& refuses_replace(const std::string& request, const std::string& name, char reason,
                             const std::string& text);
  OrderTalk& answers(const std::string& text);
  /// Sends again with 43=Y what has this number.
  OrderTalk& replays(uint64_t number);
  /// What it decides from here on does not reach the client.
  OrderTalk& loses(bool lost = true);

  OrderTalk& wait(std::chrono::milliseconds time);
  /// The file of the client's belief at the end.
  OrderTalk& believes(const std::string& file, const std::string& content);
  OrderTalk& closing();
  /// BeliefTaken, if there is any belief, at the end.
  OrderTalk& ends();

  Dialogue dialogue;
  Plan plan;
  std::string market_truth;

  /// Of all checks of orders, recovery and belief, and of session.duplicates.
  std::map<std::string, Verdict> verdicts() const;
  /// The names of those that fail.
  std::set<std::string> failures() const;

 private:
  struct Order {
    uint64_t id = 0;
    std::string name;
    unsigned qty = 0;
    unsigned cum = 0;
    unsigned leaves = 0;
    std::string price;
  };

  struct ReportText {
    std::string ev;
    char type;
    std::string name;       // 11
    std::string orig = {};  // 41, or nothing
    unsigned last = 0;      // 32
    std::string text = {};
    std::string truth_text = {};
  };
  void report(const Order& order, const ReportText& text);
  void hand_over(const std::string& text);
  void decide(quorl::client::OrderEvent event);

  std::map<std::string, Order> orders_;  // by all of their names
  std::map<uint64_t, std::string> sent_;
  uint64_t next_out_ = 2;
  uint64_t next_in_ = 2;
  uint64_t next_id_ = 1000;
  unsigned execs_ = 0;
  bool lost_ = false;
  std::string folder_;
};

}  // namespace certify
