// The example client, that is the QuickFIX engine with every validation on, against the exchange:
// the engine takes everything that it is sent, and the client ends up believing what happened.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <map>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "quorl/client/child_process.h"
#include "quorl/client/errors.h"
#include "quorl/client/fix_message.h"
#include "quorl/client/json_lines.h"
#include "quorl/client/line_collector.h"
#include "quorl/client/temp_directory.h"
#include "tests/e2e/support/exchange.h"

namespace client = quorl::client;

namespace examples {
namespace {

using e2e::Exchange;
using testing::ContainsRegex;
using testing::Each;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;
using testing::UnorderedElementsAreArray;

constexpr int ALL_ENDED = 0;
constexpr int USED_WRONGLY = 2;
constexpr int NOBODY_ANSWERED = 3;

const std::string PUBLISHED_DICTIONARY = QUORL_SOURCE "/share/quorl/FIX42-quorl.xml";

std::vector<std::string> lines_of(const std::string& path) {
  std::vector<std::string> lines;
  std::istringstream text(client::read_file(path));
  for (std::string line; std::getline(text, line);) lines.push_back(line);
  return lines;
}

struct Pipe {
  Pipe() {
    if (::pipe2(ends, O_CLOEXEC) != 0) throw client::SystemError("pipe2");
  }
  ~Pipe() { ::close(ends[1]); }  // the other end is the collector's

  int ends[2];
};

/// The example as a process, with the settings that it comes with.
class QuickfixClient {
 public:
  QuickfixClient(uint16_t port, const std::vector<std::string>& arguments,
                 const std::string& dictionary = PUBLISHED_DICTIONARY)
      : QuickfixClient(Pipe(), port, arguments, dictionary) {}

  std::string prints(const std::string& text, size_t from = 0) const {
    return out_.wait_for(
        [&text](const std::string& line) { return line.find(text) != std::string::npos; }, text,
        from, client::Deadline::after(client::PATIENCE));
  }
  size_t lines_printed() const { return out_.count(); }

  void signal(int number) { process_.signal(number); }

  /// Its exit status, once all that it prints is here. -1 if a signal ended it.
  int end() {
    const client::Deadline deadline = client::Deadline::after(4 * client::PATIENCE);
    const client::ExitStatus status = process_.wait_exit(deadline);
    out_.wait_end(deadline);
    return status.exited ? status.code : -1;
  }

  /// What it printed that begins so.
  std::vector<std::string> printed(const std::string& prefix) const {
    std::vector<std::string> texts;
    for (const client::LogLine& line : out_.lines()) {
      if (line.text.starts_with(prefix)) texts.push_back(line.text);
    }
    return texts;
  }

  /// The engine's own log.
  std::vector<std::string> events() const { return lines_of(log("event")); }
  std::vector<client::FixFields> messages(const std::string& sender) const {
    std::vector<client::FixFields> found;
    for (const std::string& line : lines_of(log("messages"))) {
      const size_t begin = line.find("8=FIX");
      if (begin == std::string::npos) continue;
      client::FixFields fields = client::fix_fields(client::with_bars(line.substr(begin)));
      const client::FixMessage message(fields);
      if (message.get(49) == sender) found.push_back(std::move(fields));
    }
    return found;
  }
  std::string log(const std::string& kind) const {
    return directory_.path() + "/log/FIX.4.2-CLIENT-IEXG." + kind + ".current.log";
  }

 private:
  QuickfixClient(const Pipe& pipe, uint16_t port, std::vector<std::string> arguments,
                 const std::string& dictionary)
      : out_(pipe.ends[0]),
        process_({.program = QUICKFIX_CLIENT,
                  .arguments = with_settings(port, std::move(arguments), dictionary),
                  .stdout_fd = pipe.ends[1],
                  .stderr_fd = pipe.ends[1]}) {}

  /// The example's own file, but for the paths and a heartbeat that does not keep us waiting.
  std::vector<std::string> with_settings(uint16_t port, std::vector<std::string> arguments,
                                         const std::string& dictionary) const {
    std::string settings = client::read_file(QUORL_SOURCE "/examples/quickfix/client.cfg");
    const auto set = [&settings](const std::string& key, const std::string& value) {
      settings = std::regex_replace(settings, std::regex("\n" + key + "=[^\n]*"),
                                    "\n" + key + "=" + value);
    };
    set("DataDictionary", dictionary);
    set("FileLogPath", directory_.path() + "/log");
    set("HeartBtInt", "1");
    set("LogonTimeout", "1");
    const std::string path = directory_.path() + "/client.cfg";
    std::ofstream(path) << settings;
    const std::vector<std::string> ours = {"--settings", path, "--port", std::to_string(port)};
    arguments.insert(arguments.begin(), ours.begin(), ours.end());
    return arguments;
  }

  client::TempDirectory directory_;
  client::LineCollector out_;
  client::ChildProcess process_;  // last: the collector ends with it
};

/// What the client must believe of each order at the end, in the words in which it says so.
std::vector<std::string> true_orders(const std::string& path) {
  struct Truth {
    client::OrderEvent last;
    std::string state;
  };
  std::map<uint64_t, Truth> orders;
  std::vector<Truth> all;
  for (const client::OrderEvent& event : client::parse_order_events(client::read_file(path))) {
    if (event.ev == "reject") all.push_back({event, "rejected"});
    if (event.ev.ends_with("reject")) continue;
    Truth& order = orders[event.oid];
    order.last = event;
    order.state = event.ev == "cancel" ? "cancelled" : event.leaves == 0 ? "filled" : "open";
  }
  for (const auto& [oid, order] : orders) all.push_back(order);
  std::vector<std::string> lines;
  for (const auto& [event, state] : all) {
    lines.push_back("order " + event.cl + " " +
                    (event.oid == 0 ? "NONE" : std::to_string(event.oid)) + " " + event.symbol +
                    (event.side == "B" ? " buy " : " sell ") + std::to_string(event.qty) + " @ " +
                    event.px + " cum " + std::to_string(event.cum) + " leaves " +
                    std::to_string(event.leaves) + " " + state);
  }
  return lines;
}

void expect_that_the_engine_refused_nothing(const QuickfixClient& quickfix) {
  EXPECT_THAT(quickfix.events(), Not(IsEmpty()));
  EXPECT_THAT(
      quickfix.events(),
      Each(Not(ContainsRegex("[Rr]eject|[Ii]nvalid|[Ii]ncorrect|[Mm]issing|[Uu]ndefined|"
                             "not defined|[Mm]ismatch|[Uu]nsupported|out of order|too low"))));
  const auto sent = quickfix.messages("CLIENT");
  EXPECT_THAT(sent, Not(IsEmpty()));
  for (const client::FixFields& fields : sent) {
    const client::FixMessage message(fields);
    EXPECT_TRUE(message.type() != "3" && message.type() != "j") << message.text();
  }
  EXPECT_THAT(quickfix.printed("not ours"), IsEmpty());
}

/// How many of the messages have all these fields: "35=8|150=2".
size_t count(const std::vector<client::FixFields>& messages, const std::string& with) {
  const client::FixFields wanted = client::fix_fields(with);
  return static_cast<size_t>(
      std::count_if(messages.begin(), messages.end(), [&wanted](const client::FixFields& fields) {
        return std::all_of(wanted.begin(), wanted.end(), [&fields](const client::FixField& field) {
          return std::find(fields.begin(), fields.end(), field) != fields.end();
        });
      }));
}

/// Replaced reports that came ahead of a fill with a lower number.
size_t overtaking_replaces(const std::vector<client::FixFields>& messages) {
  size_t found = 0;
  for (size_t i = 0; i + 1 < messages.size(); ++i) {
    const client::FixMessage message(messages[i]);
    const client::FixMessage next(messages[i + 1]);
    if (message.find(150) == "5" && next.find(150).has_value() && next.seq() < message.seq() &&
        !next.is_possible_duplicate()) {
      ++found;
    }
  }
  return found;
}

client::SimulatorOptions with_truth(const std::string& scenario) {
  client::SimulatorOptions options = e2e::living();
  options.scenario = scenario;
  options.order_truth = true;
  return options;
}

/// How each order ended, but for those that the client knows to have gone down with a connection.
std::vector<std::string> orders_not_lost(const QuickfixClient& quickfix) {
  std::vector<std::string> arrived = quickfix.printed("order ");
  std::erase_if(arrived, [](const std::string& line) { return line.ends_with(" lost"); });
  return arrived;
}

TEST(Quickfix, hears_every_kind_of_report_and_lives_through_a_drop_and_a_silence) {
  Exchange exchange(with_truth(
      "reject_every=9,partial_fill_every=2,fill_on_cancel_every=4,unsolicited_cancel_every=5,"
      "replace_reject_every=3"));
  QuickfixClient quickfix(exchange.ports().fix,
                          {"--symbols", "AAPL,MSFT", "--orders", "100", "--pace", "50"});
  quickfix.prints("replaced ");

  size_t from = quickfix.lines_printed();
  exchange.control().ok("disconnect");
  quickfix.prints("session down", from);
  quickfix.prints("logged on", from);
  quickfix.prints("fill ", from);

  // A silence in which the client asks, hangs up, and logs on again without hearing the answer.
  from = quickfix.lines_printed();
  const size_t line = exchange.simulator().line_count();
  exchange.control().ok("lapse 60000");
  quickfix.prints("session down", from);
  exchange.simulator().wait_for_line("bench: logon CLIENT", line);
  exchange.control().ok("lapse 0");
  quickfix.prints("logged on", from);

  EXPECT_EQ(quickfix.end(), ALL_ENDED);
  expect_that_the_engine_refused_nothing(quickfix);
  EXPECT_THAT(quickfix.events(), testing::Contains(testing::HasSubstr("Sent test request")));
  EXPECT_THAT(quickfix.events(),
              testing::Contains(testing::HasSubstr("Timed out waiting for heartbeat")));

  const auto heard = quickfix.messages("IEXG");
  for (const char* kind :
       {"35=8|150=0", "35=8|150=1", "35=8|150=2", "35=8|150=4", "35=8|150=5",
        "35=8|150=8|58=bench:scripted_reject", "35=8|150=4|58=AdminCancel",
        "35=9|434=1|58=Too late to cancel", "35=9|434=2|58=bench:scripted_replace_reject",
        "35=8|43=Y", "35=4|123=Y", "35=5"}) {
    EXPECT_GE(count(heard, kind), 1u) << kind;
  }
  EXPECT_GE(overtaking_replaces(heard), 1u);
  EXPECT_GE(exchange.counter("race_fills"), 1u);

  std::filesystem::copy_file(quickfix.log("messages"), QUICKFIX_MESSAGES,
                             std::filesystem::copy_options::overwrite_existing);

  EXPECT_THAT(quickfix.printed("order "), SizeIs(100));
  // An order that was on its way when the line dropped may have been lost.
  EXPECT_THAT(orders_not_lost(quickfix),
              UnorderedElementsAreArray(true_orders(exchange.simulator().order_truth_path())));
}

/// The processor time of the children that have ended.
std::chrono::microseconds spent_by_children() {
  rusage usage{};
  ::getrusage(RUSAGE_CHILDREN, &usage);
  return std::chrono::seconds(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
         std::chrono::microseconds(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec);
}

TEST(Quickfix, takes_heartbeats_while_nothing_happens_and_leaves_the_processor_to_others) {
  Exchange exchange(with_truth(""));
  const auto spent_before = spent_by_children();
  const auto begin = std::chrono::steady_clock::now();
  QuickfixClient quickfix(exchange.ports().fix, {"--orders", "2", "--pace", "2000"});
  EXPECT_EQ(quickfix.end(), ALL_ENDED);
  expect_that_the_engine_refused_nothing(quickfix);
  EXPECT_GE(count(quickfix.messages("IEXG"), "35=0"), 1u);
  EXPECT_LT(spent_by_children() - spent_before, (std::chrono::steady_clock::now() - begin) / 2);
}

TEST(Quickfix, gives_up_orders_that_went_down_with_a_connection) {
  Exchange exchange(with_truth(""));
  QuickfixClient quickfix(exchange.ports().fix, {"--orders", "100", "--pace", "20"});
  quickfix.prints("fill ");

  // The exchange drops the connection at the first of several orders that wait to be read.
  exchange.simulator().stop_process();
  exchange.control().send("disconnect");
  size_t from = quickfix.lines_printed();
  for (int i = 0; i < 4; ++i) {
    quickfix.prints("sent ", from);
    from = quickfix.lines_printed();
  }
  exchange.simulator().cont_process();
  quickfix.prints("lost ");

  EXPECT_EQ(quickfix.end(), ALL_ENDED);
  expect_that_the_engine_refused_nothing(quickfix);
  EXPECT_GE(count(quickfix.messages("IEXG"), "35=2"), 1u) << "the exchange asks for them";
  EXPECT_EQ(count(quickfix.messages("CLIENT"), "35=D|43=Y"), 0u) << "and does not get them";

  const std::vector<std::string> arrived = orders_not_lost(quickfix);
  EXPECT_LT(arrived.size(), 100u);
  EXPECT_THAT(arrived,
              UnorderedElementsAreArray(true_orders(exchange.simulator().order_truth_path())));
}

TEST(Quickfix, refuses_a_fill_by_a_dictionary_that_does_not_know_its_fields) {
  const client::TempDirectory directory;
  const std::string path = directory.path() + "/stock.xml";
  const std::string line = "<field name=\"TrdMatchID\" required=\"N\"/>";
  std::string dictionary = client::read_file(PUBLISHED_DICTIONARY);
  ASSERT_NE(dictionary.find(line), std::string::npos);
  dictionary.erase(dictionary.find(line), line.size());
  std::ofstream(path) << dictionary;

  Exchange exchange(with_truth(""));
  QuickfixClient quickfix(exchange.ports().fix, {"--orders", "1"}, path);
  quickfix.prints("cancel refused ");  // it knows nothing of the fill
  EXPECT_GE(count(quickfix.messages("CLIENT"), "35=3|371=880"), 1u);
  EXPECT_THAT(quickfix.events(), testing::Contains(testing::HasSubstr("Rejected")));
  quickfix.signal(SIGTERM);
  EXPECT_EQ(quickfix.end(), -1);
}

TEST(Quickfix, says_that_nobody_answers_and_that_it_is_used_wrongly) {
  const client::PortSlot nobody;
  QuickfixClient alone(nobody.ports().fix, {"--seconds", "1"});
  EXPECT_EQ(alone.end(), NOBODY_ANSWERED);
  QuickfixClient wrong(nobody.ports().fix, {"--no-such-option", "1"});
  EXPECT_EQ(wrong.end(), USED_WRONGLY);
  EXPECT_THAT(wrong.printed("usage: "), SizeIs(1));
}

}  // namespace
}  // namespace examples
