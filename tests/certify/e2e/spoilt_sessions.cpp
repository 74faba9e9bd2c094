// Traders with one bad habit of their FIX session.
#include <chrono>
#include <string>

#include "certify/trader/trader.h"
#include "tests/certify/e2e/spoilt_habits.h"

namespace certify::trader {
namespace {

namespace client = quorl::client;
using std::chrono::milliseconds;
using std::chrono::seconds;

bool is_heartbeat(std::string_view bytes) { return bytes.find("\00135=0\001") != bytes.npos; }

/// Each third Heartbeat has a wrong CheckSum.
class BadFrames : public Habits {
  void before_bytes(std::string& bytes) override {
    if (!is_heartbeat(bytes) || ++heartbeats_ % 3 != 0) return;
    char& digit = bytes[bytes.size() - 2];
    digit = digit == '9' ? '0' : static_cast<char>(digit + 1);
  }
  unsigned heartbeats_ = 0;
};

/// Heartbeats name their number before their type.
class BadHeader : public Habits {
  void before_bytes(std::string& bytes) override {
    if (!is_heartbeat(bytes)) return;
    const size_t type = bytes.find("35=0\001");
    const size_t behind_number = bytes.find('\001', type + 5) + 1;
    const std::string number = bytes.substr(type + 5, behind_number - type - 5);
    bytes.replace(type, behind_number - type, number + "35=0\001");  // length and sum stay
  }
};

/// A clock that stands still.
class BadTimes : public Habits {
  void before_send(client::FixHeader& header, client::FixFields&) override {
    if (header.type == "0") header.sending_time = "20200101-00:00:00.000";
  }
};

/// The third Heartbeat bears the number of the message before it.
class BadNumbers : public Habits {
  void before_send(client::FixHeader& header, client::FixFields&) override {
    if (header.type == "0" && ++heartbeats_ == 3) {
      header.seq = std::to_string(std::stoul(header.seq) - 1);
    }
  }
  unsigned heartbeats_ = 0;
};

/// After the first drop it takes its last number again.
class BadLogon : public Habits {
  uint32_t number_of_logon(uint32_t next) override { return ++logons_ == 2 ? next - 1 : next; }
  unsigned logons_ = 0;
};

/// Heartbeats ten times a second.
class Flooding : public Habits {
  void on_turn(Trader& trader, Moment now) override {
    if (!trader.session().up() || now < next_) return;
    next_ = now + milliseconds(100);
    trader.session().send("0", {}, now);
  }
  Moment next_{};
};

class DeafToResendRequests : public Habits {
  bool answers_resend_request() override { return false; }
};

/// Lives on with what it has.
class CarelessOfHoles : public Habits {
  bool asks_for_holes() override { return false; }
  bool trades_only_when_whole() override { return false; }
};

/// Asks again and again for the exchange's first reply, which has long come.
class AskingForWhatCame : public Habits {
  void on_turn(Trader& trader, Moment now) override {
    if (!trader.session().ready()) return;
    if (next_ == Moment{}) next_ = now + seconds(3);
    if (now < next_) return;
    next_ = now + seconds(1);
    trader.session().send("2", {{7, "2"}, {16, "2"}}, now);
  }
  Moment next_{};
};

/// Asks late and for all there is, which it may: what it has comes again with 43=Y.
class AskingForAll : public Habits {
  Milliseconds wait_before_asking() override { return milliseconds(1000); }
  bool trades_only_when_whole() override { return false; }
  void before_send(client::FixHeader& header, client::FixFields& body) override {
    if (header.type == "2") body = {body.at(0), {16, "0"}};
  }
};

/// And books that for a second time.
class BookingTwice : public AskingForAll {
  bool takes_each_report_once() override { return false; }
};

/// Once in its life it leaves right behind its Logout.
class HastyLogout : public Habits {
  void on_turn(Trader& trader, Moment now) override {
    if (!trader.session().ready() || done_) return;
    if (due_ == Moment{}) due_ = now + seconds(3);
    if (now < due_) return;
    done_ = true;
    trader.session().send("5", {}, now);
    trader.drop();
  }
  Moment due_{};
  bool done_ = false;
};

/// Drops its line for nothing, and is back at once, twenty times.
class Storming : public Habits {
  Milliseconds pause_before_connecting(Milliseconds) override { return milliseconds(50); }
  void on_turn(Trader& trader, Moment now) override {
    if (!trader.session().ready() || drops_ == 20) return;
    if (due_ == Moment{}) due_ = now + seconds(2);
    if (now < due_) return;
    due_ = now + milliseconds(100);
    ++drops_;
    trader.drop();
  }
  Moment due_{};
  unsigned drops_ = 0;
};

}  // namespace

// session.test_request is not among them: this exchange never sends a TestRequest, so that only
// hand-made events show a client that leaves one unanswered (tests/certify/checks).
std::vector<Spoilt> spoilt_sessions() {
  return {{"session.frames", make_spoilt<BadFrames>},
          {"session.header", make_spoilt<BadHeader>},
          {"session.times", make_spoilt<BadTimes>},
          {"session.numbers", make_spoilt<BadNumbers>},
          {"session.logon", make_spoilt<BadLogon>},
          {"session.heartbeats", make_spoilt<Flooding>},
          {"session.resend_answered", make_spoilt<DeafToResendRequests>},
          {"session.gap_asked", make_spoilt<CarelessOfHoles>},
          {"session.asked_once", make_spoilt<AskingForWhatCame>},
          {"nothing", make_spoilt<AskingForAll>},
          {"session.duplicates", make_spoilt<BookingTwice>},
          {"session.logout", make_spoilt<HastyLogout>},
          {"session.reconnects", make_spoilt<Storming>}};
}

}  // namespace certify::trader
