#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "perf/growth.h"
#include "perf/order_flows.h"
#include "perf/rig.h"
#include "perf/rounds.h"
#include "quorl/client/bytes.h"
#include "quorl/client/fix_message.h"
#include "quorl/client/simulator.h"
#include "quorl/client/tcp.h"

namespace client = quorl::client;

namespace perf {
namespace {

constexpr size_t AT_ONCE = 7;  // fewer than the listener lets wait
constexpr uint32_t ABSENT_CENTS = 20000;

/// Connections that come and go without a word. On return all have gone.
void come_and_go(Rig& rig, Session& session, size_t connections) {
  for (size_t left = connections; left > 0;) {
    const size_t now = std::min(left, AT_ONCE);
    std::vector<client::TcpStream> streams;
    for (size_t i = 0; i < now; ++i) {
      streams.push_back(client::TcpStream::connect(rig.ports().fix));
    }
    for (client::TcpStream& stream : streams) stream.abort();
    // The turn that answers has accepted them before, and at its end knows of their going.
    session.test_request();
    session.exchange();
    left -= now;
  }
}

std::vector<std::string> quiet_still_market() {
  std::vector<std::string> arguments = client::still_market();
  arguments.push_back("--quiet");
  return arguments;
}

/// What an order and a report for an absent owner cost, asked again and again as connections pass.
class PastConnections {
 public:
  PastConnections(const std::string& binary, const Placement& placement, size_t orders,
                  size_t askings)
      : orders_(orders),
        rig_(plain_options(binary, quiet_still_market()), placement),
        session_(rig_.logs_on("PERF")) {
    session_->sweep(BUY);
    const auto absent = rig_.logs_on("ABSENT");
    rig_.send(*absent, orders * askings, [&](size_t i) {
      absent->new_order({.side = SELL, .price_cents = ABSENT_CENTS + static_cast<uint32_t>(i)},
                        ACCEPTED);
    });
    absent->disconnect();
    come_and_go(rig_, *session_, 1);
    order_us();  // the first orders find everything cold
  }

  void pass(size_t connections) { come_and_go(rig_, *session_, connections); }

  double order_us() {
    std::vector<RequestId> resting;
    const double us = rig_.us_of([&] {
      rig_.send(*session_, orders_, [&](size_t i) {
        resting.push_back(session_->new_order(resting_order(2 * i, WIDE), ACCEPTED));
      });
    });
    rig_.send(*session_, orders_, [&](size_t i) { session_->cancel(resting[i]); });
    return us / static_cast<double>(orders_);
  }

  /// An order that takes one of the absent owner's in full.
  double absent_fill_us() {
    return rig_.us_of([&] {
      rig_.send(*session_, orders_, [&](size_t) {
        session_->new_order({.side = BUY, .price_cents = ABSENT_CENTS + taken_++, .tif = IMMEDIATE},
                            ACCEPTED_AND_FILLED);
      });
    }) / static_cast<double>(orders_);
  }

 private:
  size_t orders_;
  Rig rig_;
  std::unique_ptr<Session> session_;
  uint32_t taken_ = 0;
};

void measure_past_connections(const Settings& settings, Report& report) {
  const size_t some = settings.scaled(1000, 200);
  const size_t many = settings.scaled(20000, 2000);
  const size_t orders = settings.scaled(1024, 512);
  in_rounds(settings, report, "past connections", USUAL_BUDGET, [&](const Build& build, unsigned) {
    PastConnections exchange(build.binary, settings.one_cpu, orders, 3);
    const double order_us = exchange.order_us();
    const double fill_us = exchange.absent_fill_us();
    size_t passed = 0;
    for (const size_t connections : {some, many}) {
      exchange.pass(connections - passed);
      passed = connections;
      const std::string after = " after " + std::to_string(connections) + " connections";
      report.add({"growth", "order" + after, "us", "after none"}, build.name,
                 {exchange.order_us(), order_us});
      report.add({"growth", "order that fills an absent owner's" + after, "us", "after none"},
                 build.name, {exchange.absent_fill_us(), fill_us});
    }
  });
}

/// A turn that answers one TestRequest, with others logged on who say nothing.
double turn_us(const std::string& binary, const Placement& placement, size_t idle_clients) {
  Rig rig(plain_options(binary, quiet_still_market()), placement);
  const auto session = rig.logs_on("PERF");
  std::vector<client::TcpStream> idle;
  for (size_t i = 0; i < idle_clients; ++i) {
    idle.push_back(client::TcpStream::connect(rig.ports().fix));
    idle.back().send_all(
        client::to_bytes(client::frame_fix("35=A|34=1|49=IDLE" + std::to_string(i) +
                                           "|56=IEXG|52=20260101-00:00:00.000|98=0|108=3600|")));
    session->test_request();  // behind its answer the connection has been accepted
    session->exchange();
  }
  constexpr size_t TURNS = 200;
  return rig.us_of([&] {
    for (size_t i = 0; i < TURNS; ++i) {
      session->test_request();
      session->exchange();
    }
  }) / TURNS;
}

void measure_idle_clients(const Settings& settings, Report& report) {
  const size_t clients = settings.scaled(500, 100);
  const std::string name = "turn with " + std::to_string(clients) + " clients that say nothing";
  in_rounds(settings, report, name, USUAL_BUDGET, [&](const Build& build, unsigned) {
    const double with_us = turn_us(build.binary, settings.one_cpu, clients);
    const double without_us = turn_us(build.binary, settings.one_cpu, 0);
    report.add({"growth", name, "us", "with none"}, build.name, {with_us, without_us});
  });
}

struct VisitCosts {
  double before_logon_us = 0;
  double after_logon_us = 0;
};

/// Connect and disconnect, without a Logon and with one.
VisitCosts visit_costs(const std::string& binary, const Placement& placement, size_t resting,
                       size_t visits) {
  Rig rig(plain_options(binary, quiet_still_market()), placement);
  const auto session = rig.logs_on("PERF");
  rig.send(
      *session, resting, [&](size_t i) { session->new_order(resting_order(i, WIDE), ACCEPTED); },
      512);
  VisitCosts costs;
  costs.before_logon_us = rig.us_of([&] { come_and_go(rig, *session, visits); });
  costs.after_logon_us = rig.us_of([&] {
    Session visitor("VISITOR", placement.waiting());
    for (size_t i = 0; i < visits; ++i) {
      visitor.connect(rig.ports().fix);
      visitor.log_on();
      visitor.disconnect();
      session->test_request();
      session->exchange();
    }
  });
  costs.before_logon_us /= static_cast<double>(visits);
  costs.after_logon_us /= static_cast<double>(visits);
  return costs;
}

void measure_disconnects(const Settings& settings, Report& report) {
  const size_t resting = settings.scaled(100000, 10000);
  const std::string with = ", " + std::to_string(resting) + " orders resting";
  in_rounds(settings, report, "disconnects", USUAL_BUDGET, [&](const Build& build, unsigned) {
    const VisitCosts few = visit_costs(build.binary, settings.one_cpu, 0, 64);
    const VisitCosts many = visit_costs(build.binary, settings.one_cpu, resting, 64);
    report.add({"growth", "connect and disconnect before Logon" + with, "us", "with none"},
               build.name, {many.before_logon_us, few.before_logon_us});
    report.add({"growth", "connect, log on and disconnect" + with, "us", "with none"}, build.name,
               {many.after_logon_us, few.after_logon_us});
  });
}

}  // namespace

void measure_connections(const Settings& settings, Report& report) {
  if (!settings.wants("connections")) return;
  measure_past_connections(settings, report);
  measure_idle_clients(settings, report);
  measure_disconnects(settings, report);
}

}  // namespace perf
