#include "lives/life.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <deque>
#include <exception>
#include <set>
#include <utility>
#include <vector>

#include "base/clocks.h"
#include "day/day_clock.h"
#include "day/day_network.h"
#include "day/day_outputs.h"
#include "driver/exchange.h"
#include "driver/run_config.h"
#include "lives/book_witness.h"
#include "lives/broken.h"
#include "lives/feed_witness.h"
#include "lives/fix_witness.h"
#include "lives/machine.h"
#include "lives/traders.h"
#include "lives/truth_witness.h"
#include "quorl/client/control_client.h"
#include "quorl/client/gap_fill_client.h"
#include "quorl/client/snap_client.h"

namespace lives {
namespace {

namespace client = quorl::client;

constexpr uint32_t SESSION = 77;
constexpr day::Network::Ports PORTS{.fix = 7001, .snap = 7002, .control = 7003, .gap_fill = 7004};
const std::string ORDER_EVENTS = "orders.jsonl";

const std::vector<const char*> SYMBOLS = {"AAPL:190.00", "AAPL:190.00,MSFT:410.00", "PENNY:0.85",
                                          "LOW:0.02,HIGH:100000"};
const std::vector<const char*> SCENARIOS = {
    "",
    "",
    "partial_fill_every=2",
    "reject_every=3,replace_reject_every=2",
    "fill_on_cancel_every=2,unsolicited_cancel_every=3",
    "disconnect_after=5,lapse_ms=700",
    "unsolicited_cancel_every=3",
    "replace_reject_every=2",
    "lapse_ms=400",
    "reject_every=5,partial_fill_every=3,fill_on_cancel_every=3,unsolicited_cancel_every=4,"
    "replace_reject_every=4,lapse_ms=300,disconnect_after=9"};
const std::vector<std::vector<const char*>> FAULTS = {
    {},
    {},
    {"--drop-every", "3"},
    {"--dup-every", "2"},
    {"--reorder-every", "2"},
    {"--drop-every", "7", "--dup-every", "3", "--reorder-every", "5", "--drop-burst", "9:4"}};
/// What some lives do without.
enum Absent : uint32_t { CONTROL_PORT = 1, FILES = 2 };
constexpr uint32_t ABSENCES = 8;  // most lives have everything
const std::vector<const char*> INTERVALS = {"40", "0", "-1", "5"};

quorl::RunConfig configuration(uint32_t setup) {
  std::vector<const char*> argv = {"quorl",
                                   "--fix-port",
                                   "7001",
                                   "--snap-port",
                                   "7002",
                                   "--gapfill-port",
                                   "7004",
                                   "--session",
                                   "77",
                                   "--symbols",
                                   pick(SYMBOLS, setup & 0xff),
                                   "--interval-ms",
                                   pick(INTERVALS, setup >> 16 & 7),
                                   "--touch-hit",
                                   "0.4",
                                   "--step-bps",
                                   "3"};
  const uint32_t absent = (setup >> 19) % ABSENCES;
  if (absent != CONTROL_PORT) argv.insert(argv.end(), {"--control-port", "7003"});
  if (absent != FILES) {
    argv.insert(argv.end(),
                {"--book-out", "book.json", "--bbo-out", "bbo.txt", "--truth-out", "truth.jsonl"});
  }
  const std::vector<const char*>& faults = pick(FAULTS, setup >> 24 & 0xff);
  argv.insert(argv.end(), faults.begin(), faults.end());
  const std::string seed = std::to_string(setup & 0xffff);
  argv.insert(argv.end(), {"--seed", seed.c_str()});
  quorl::RunConfig config;
  holds(!quorl::parse_options(static_cast<int>(argv.size()), argv.data(), config),
        "the options of a life are good ones");
  return config;
}

class Life {
 public:
  Life(uint32_t setup, const Tampering& tampering);
  ~Life() { exchange_.reset(); }
  Life(const Life&) = delete;
  Life& operator=(const Life&) = delete;

  void act(const Act& act);
  void turns(unsigned count);
  /// The orderly end.
  void end();

  Course course;

 private:
  struct Image {
    size_t connection;
    bool seen = false;
  };

  void hear();
  void read_log();
  void hear_send(size_t connection, std::string_view bytes);
  void look();
  void command(const Act& act);
  void ask_for_messages(const Act& act);
  void ask_for_image(const Act& act);

  const Tampering& tampering_;
  Machine machine_;
  day::Outputs outputs_{""};
  day::Network network_{PORTS, outputs_};
  std::optional<quorl::Exchange> exchange_;
  std::optional<FeedWitness> feed_;
  std::optional<FixWitness> fix_;
  std::optional<TruthWitness> truth_;
  std::optional<Traders> traders_;
  std::vector<std::pair<day::Kind, std::string>> opening_;  // ahead of the witnesses
  std::set<size_t> image_connections_;
  std::set<size_t> served_;
  uint64_t sleep_ns_ = 0;
  uint64_t logons_ = 0;
  bool may_cross_ = false;
};

Life::Life(uint32_t setup, const Tampering& tampering) : tampering_(tampering) {
  day::reset_clock(OPENS_AT_NS);
  ::setenv("BENCH_ORDER_TRUTH", ORDER_EVENTS.c_str(), 1);
  const char* const scenario = pick(SCENARIOS, setup >> 8 & 0xff);
  ::setenv("QUORL_SCENARIO", scenario, 1);
  may_cross_ = std::string_view(scenario).find("partial_fill") != std::string_view::npos;
  network_.on_wait = [this] {
    return day::Network::Wait{day::NS_PER_MS, std::exchange(sleep_ns_, 0)};
  };
  network_.on_datagram = [this](day::Kind kind, std::string_view bytes) {
    opening_.emplace_back(kind, bytes);
    if (feed_) hear();
  };
  network_.on_send = [this](size_t connection, std::string_view bytes) {
    hear_send(connection, bytes);
  };
  exchange_.emplace(configuration(setup));
  quorl::Engine& engine = exchange_->engine();
  feed_.emplace(engine, SESSION);
  fix_.emplace(engine, *feed_);
  truth_.emplace(engine, machine_, ORDER_EVENTS);
  traders_.emplace(engine, network_, PORTS.fix);
  hear();
  exchange_->begin();
}

void Life::hear() {
  for (auto& [kind, bytes] : std::exchange(opening_, {})) {
    if (kind == day::Kind::FEED) {
      if (tampering_.feed) tampering_.feed(bytes);
      feed_->on_sent(FeedWitness::From::MULTICAST, bytes);
    } else if (kind == day::Kind::GAP_FILL) {
      feed_->on_sent(FeedWitness::From::GAP_FILL, bytes);
    } else if (bytes.starts_with("ok orders=")) {
      const client::ControlStats stats =
          client::parse_control_stats(std::string_view(bytes).substr(3, bytes.size() - 4));
      holds(stats.next_seq == exchange_->engine().publisher->next_seq(), "stats tell the number");
    }
  }
}

void Life::hear_send(size_t connection, std::string_view bytes) {
  if (!image_connections_.contains(connection)) {
    std::string heard(bytes);
    if (tampering_.fix) tampering_.fix(heard);
    read_log();
    return fix_->on_send(heard);
  }
  if (!served_.insert(connection).second) return;  // the rest of what did not fit
  feed_->on_sent(FeedWitness::From::IMAGES, bytes);
  ++course.images;
}

/// "bench: logon ALPHA 34=1 141=Y (...": standing for itself, so that it is read ahead of the
/// reply.
void Life::read_log() {
  const std::string log = machine_.take_log();
  constexpr std::string_view LOGON = "bench: logon ";
  for (size_t at = log.find(LOGON); at != std::string::npos; at = log.find(LOGON, at + 1)) {
    const size_t name = at + LOGON.size();
    if (log.compare(name, 3, "of ") == 0) continue;  // refused
    ++logons_;
    const std::string line = log.substr(name, log.find('\n', name) - name);
    if (line.find(" 141=Y ") != std::string::npos) fix_->on_reset(line.substr(0, line.find(' ')));
  }
}

void Life::turns(unsigned count) {
  for (unsigned i = 0; i < count; ++i) {
    holds(exchange_->turn(), "nobody has asked it to stop");
    look();
    outputs_.end_turn();
    ++course.turns;
  }
}

void Life::look() {
  quorl::Engine& engine = exchange_->engine();
  may_cross_ = may_cross_ || engine.scenario->counters.partials > 0;
  if (tampering_.inside) tampering_.inside(engine);
  look_at_books(engine, may_cross_);
  feed_->look();
  read_log();
  bool complete = true;
  const std::vector<Composed> composed = fix_->look(complete);
  if (tampering_.truth) tampering_.truth(machine_.files[ORDER_EVENTS]);
  truth_->look(composed, complete);
  holds(engine.scenario->counters.logons == logons_, "each Logon is counted and has its line");
  holds(network_.misuses() == 0, "no closed socket is used, and no read would block");
}

void Life::act(const Act& act) {
  ++course.acts;
  const uint64_t turn = outputs_.turn();
  switch (act.kind) {
    case Kind::TURNS:
      return turns(1 + act.a % 4);
    case Kind::SLEEP: {
      constexpr std::array<uint64_t, 9> SLEEPS_MS = {1,    40,   299,   300,  1000,
                                                     2000, 2500, 10001, 80000};
      sleep_ns_ += pick(SLEEPS_MS, act.a) * day::NS_PER_MS;
      return turns(1);
    }
    case Kind::REFUSED_ACCEPT:
      return network_.fail_next_accept(act.a % 2 == 0 ? PORTS.fix : PORTS.snap,
                                       act.b % 2 == 0 ? EMFILE : ECONNABORTED);
    case Kind::COMMAND:
      return command(act);
    case Kind::GAP_REQUEST:
      return ask_for_messages(act);
    case Kind::IMAGE:
      return ask_for_image(act);
    case Kind::CLOCK_STEP: {
      constexpr std::array<int64_t, 4> STEPS_S = {-3600, 3600, -1, 1};
      constexpr int64_t NS_PER_S = 1'000'000'000;
      return day::step_system_clock(pick(STEPS_S, act.a) * NS_PER_S);
    }
    case Kind::DISK:
      machine_.disk_is_full = !machine_.disk_is_full;
      machine_.disk_was_full = true;
      return;
    default:
      return traders_->act(act, turn);
  }
}

void Life::command(const Act& act) {
  static const std::vector<const char*> WORDS = {"pause",
                                                 "resume",
                                                 "resume",
                                                 "drop",
                                                 "dup",
                                                 "reorder",
                                                 "drop_every",
                                                 "dup_every",
                                                 "reorder_every",
                                                 "rate",
                                                 "disconnect",
                                                 "lapse",
                                                 "reject",
                                                 "partial",
                                                 "fill_on_cancel",
                                                 "unsolicited_cancel",
                                                 "replace_reject",
                                                 "mark",
                                                 "stats",
                                                 "nonsense"};
  std::string line = pick(WORDS, act.a);
  if (act.b % 8 != 0) line += " " + std::to_string(act.c % 5 * (line == "lapse" ? 200U : 1U));
  // What seems to come from the exchange itself is passed by.
  const uint16_t from = act.f == 255 ? PORTS.control : 9000;
  network_.send_datagram(PORTS.control, line + "\n", from);
}

void Life::ask_for_messages(const Act& act) {
  const uint64_t next = exchange_->engine().publisher->next_seq();
  client::GapFillRequest request;
  request.session_id = act.a == 255 ? SESSION + 1 : SESSION;
  uint64_t first = act.b * (next + 5) / 256;
  for (unsigned i = 0; i < act.c % 5U; ++i) {
    const uint64_t last = first + act.d % 60U;
    request.ranges.push_back({first, last});
    first = last + (act.e == i ? 0 : 1 + act.e % 9U);
  }
  if (act.f == 255) request.range_count = act.e;
  client::Bytes bytes = client::encode(request);
  if (act.f == 254) bytes.resize(bytes.size() / 2);
  network_.send_datagram(PORTS.gap_fill, std::string(bytes.begin(), bytes.end()), 9001);
}

void Life::ask_for_image(const Act& act) {
  const size_t connection = network_.connect(PORTS.snap);
  image_connections_.insert(connection);
  client::SnapRequest request;
  request.session_id = act.a == 255 ? SESSION + 1 : SESSION;
  if (act.b % 16 == 0) request.minimum_seq = exchange_->engine().publisher->next_seq() + act.b;
  if (act.c % 16 == 0) request.type = 'q';
  if (act.d % 4 == 0) network_.limit_sends(connection, {0, 1 + act.d, 0, 700});
  if (act.d == 255) network_.limit_sends(connection, {10, day::Network::BROKEN});
  const client::Bytes bytes = client::encode(request);
  std::string text(bytes.begin(), bytes.end());
  if (act.e % 8 == 0) text.resize(act.e % text.size());
  const uint64_t turn = outputs_.turn();
  network_.send(connection, text.substr(0, text.size() / 2), turn);
  network_.send(connection, text.substr(text.size() / 2), turn + act.f % 3U);
  if (act.f % 7 == 0) network_.end(connection, act.f % 2 == 0, turn + act.f % 5U);
}

void Life::end() {
  turns(2);
  const quorl::BenchCounters& counters = exchange_->engine().scenario->counters;
  course.orders = counters.accepts;
  course.fills = counters.fills;
  course.trades = feed_->trades().size();
  exchange_->print_final_lines();
  holds(machine_.log.ends_with("[quorl] stopped\n"), "it says goodbye");
  exchange_.reset();
  holds(network_.misuses() == 0, "no socket is closed twice");
}

}  // namespace

Course live(const Script& script, const Tampering& tampering) {
  std::optional<Life> life;
  try {
    life.emplace(script.setup, tampering);
    for (const Act& act : script.acts) life->act(act);
    life->end();
  } catch (const std::exception& broken) {
    Course course = life ? life->course : Course{};
    course.broken = broken.what();
    return course;
  }
  return life->course;
}

Course live(const Script& script) { return live(script, {}); }

}  // namespace lives
