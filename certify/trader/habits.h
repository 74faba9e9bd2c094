#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "certify/trader/market_view.h"
#include "certify/trader/moment.h"
#include "quorl/client/fix_message.h"
#include "quorl/client/port_slot.h"

namespace certify::trader {

class Trader;

/// What a good trader does of which a bad one does something else. Here is the good one; tests of
/// the judge spoil a habit at a time.
class Habits {
 public:
  virtual ~Habits() = default;

  // The session.
  /// 141=Y on this Logon. It is wanted on the first one of a start, as the memory of the numbers is
  /// not kept on disk. Later it would throw away what is still to be fetched.
  virtual bool resets_numbers(bool wanted) { return wanted; }
  virtual uint32_t number_of_logon(uint32_t next) { return next; }
  virtual bool answers_resend_request() { return true; }
  virtual bool asks_for_holes() { return true; }
  /// A Replaced overtakes its fills: what is missing may be right behind.
  virtual Milliseconds wait_before_asking() { return Milliseconds(60); }
  /// Orders wait until all that was missing has come.
  virtual bool trades_only_when_whole() { return true; }
  /// The range has been asked for already, and the answer may be under way.
  virtual bool leaves_asked_alone() { return true; }
  virtual bool tests_silent_line() { return true; }
  virtual bool drops_silent_line() { return true; }
  virtual Milliseconds pause_before_connecting(Milliseconds good) { return good; }
  virtual bool takes_each_report_once() { return true; }
  virtual bool logs_out() { return true; }

  // Every message: its fields, then its bytes.
  virtual void before_send(quorl::client::FixHeader&, quorl::client::FixFields&) {}
  virtual void before_bytes(std::string&) {}

  // The feed.
  virtual std::unique_ptr<MarketView> follow_market(const quorl::client::Ports& ports);

  // What it writes of its belief.
  virtual void before_positions(std::string&) {}
  virtual void before_events(std::string&) {}
  virtual void before_book(std::string&) {}

  /// Once in each turn of its loop, for what a good trader does not do at all.
  virtual void on_turn(Trader&, Moment) {}
};

}  // namespace certify::trader
