#include "lives/fix_witness.h"

#include <cmath>
#include <cstdlib>
#include <utility>

#include "fix/fix_text.h"
#include "fix/stream_records.h"
#include "lives/broken.h"
#include "quorl/client/fix_layout.h"

namespace lives {
namespace {

namespace client = quorl::client;

/// The body as it is kept: behind the header, ahead of the trailer.
std::string body_of(const client::FixMessage& message) {
  std::string body;
  for (const client::FixField& field : message.body()) {
    body += std::to_string(field.tag) + "=" + field.value + client::SOH;
  }
  return body;
}

std::map<int, std::string> fields_of(std::string_view body) {
  std::map<int, std::string> fields;
  while (!body.empty()) {
    const size_t end = body.find(client::SOH);
    const std::string_view field = body.substr(0, end);
    const size_t equals = field.find('=');
    fields[std::atoi(std::string(field.substr(0, equals)).c_str())] = field.substr(equals + 1);
    body.remove_prefix(end == std::string_view::npos ? body.size() : end + 1);
  }
  return fields;
}

uint64_t number(const std::string& text) { return std::strtoull(text.c_str(), nullptr, 10); }

}  // namespace

const std::string& Composed::value(int tag) const {
  static const std::string none;
  const auto found = fields.find(tag);
  return found == fields.end() ? none : found->second;
}

void FixWitness::on_reset(const std::string& comp_id) {
  streams_[comp_id] = {};
  streams_[comp_id].emptied = true;
  lost_some_ = true;
}

void FixWitness::on_send(std::string_view bytes) {
  client::FixFramer framer;
  framer.append(bytes);
  while (const auto frame = framer.next()) on_message(client::parse_fix(*frame));
  holds(framer.pending() == 0, "a send is made of whole messages");
}

void FixWitness::on_message(const client::FixMessage& message) {
  client::check_layout(message, message.get(56));
  if (message.is_possible_duplicate()) {
    if (message.type() == "8" || message.type() == "9") on_replay(message);
    return;
  }
  on_first_sending(message, streams_[message.get(56)]);
}

void FixWitness::on_first_sending(const client::FixMessage& message, Stream& stream) {
  holds(stream.used.insert(message.seq()).second,
        "a number is used once: ", [&] { return message.text(); });
  if (message.type() == "8" || message.type() == "9") {
    stream.new_bodies[message.seq()] = body_of(message);
  }
}

void FixWitness::on_replay(const client::FixMessage& message) {
  const Stream& stream = streams_[message.get(56)];
  for (const auto* bodies : {&stream.bodies, &stream.new_bodies}) {
    const auto first = bodies->find(message.seq());
    if (first == bodies->end()) continue;
    holds(first->second == body_of(message),
          "a replay says what was said: ", [&] { return message.text(); });
  }
}

bool FixWitness::take_stored(const std::string& owner, const quorl::FixStream& memory,
                             std::vector<Composed>& composed) {
  Stream& stream = streams_[owner];
  const size_t size = memory.store.size();
  const bool emptied = std::exchange(stream.emptied, false);
  holds(size >= stream.stored_seen, "a memory is emptied by nothing but 141=Y");
  for (size_t i = stream.stored_seen; i < size; ++i) {
    const auto [message, body] = memory.store[i];
    holds(i == 0 || memory.store[i - 1].meta.seq < message.seq, "what is kept is in order");
    holds(message.seq < memory.next_out, "what is kept has a number that was given out");
    composed.push_back({owner, message.seq, message.msg_type, fields_of(body)});
    const auto heard = stream.new_bodies.find(message.seq);
    if (heard != stream.new_bodies.end()) {
      holds(heard->second == body, "what is kept is what was sent: ", heard->second);
      stream.bodies.insert(stream.new_bodies.extract(heard));
    }
  }
  holds(stream.new_bodies.empty(), "what was sent is kept");
  stream.new_bodies.clear();
  stream.stored_seen = size;
  return !emptied;
}

std::vector<Composed> FixWitness::look(bool& complete) {
  std::vector<Composed> composed;
  complete = true;
  for (const auto& [owner, memory] : engine_.streams) {
    complete = take_stored(owner, memory, composed) && complete;
  }
  for (const Composed& report : composed) {
    if (report.type == '8') look_at_report(report);
  }
  for (auto& [order_id, fills] : fills_) add_up(order_id, fills);
  return composed;
}

void FixWitness::look_at_report(const Composed& report) {
  const auto said = [&report] {
    return report.owner + " 34=" + std::to_string(report.seq) + " 37=" + report.value(37) +
           " 150=" + report.value(150);
  };
  holds(exec_ids_.insert(report.value(17)).second, "an ExecID is used once: ", said);
  const uint64_t ordered = number(report.value(38));
  const uint64_t open = number(report.value(151));
  const uint64_t done = number(report.value(14));
  const std::string& type = report.value(150);
  if (type == "4" || type == "8") {
    holds(open == 0, "nothing is open of what has ended: ", said);
  } else {
    holds(open + done == ordered, "a report's shares add up: ", said);
  }
  if (type == "1" || type == "2") look_at_fill(report);
}

void FixWitness::look_at_fill(const Composed& report) {
  const auto said = [&report] {
    return report.owner + " 34=" + std::to_string(report.seq) + " 37=" + report.value(37) +
           " 880=" + report.value(880);
  };
  const auto trade = feed_.trades().find(number(report.value(880)));
  holds(trade != feed_.trades().end(), "a fill is a trade of the feed: ", said);
  holds(number(report.value(32)) == trade->second.size, "share by share: ", said);
  holds(report.value(31) == client::price_text(trade->second.price), "at its price: ", said);
  holds(++fills_of_trade_[report.value(880)] <= 2, "a trade has two sides: ", said);
  const double dollars = static_cast<double>(trade->second.size) *
                         (static_cast<double>(trade->second.price) / 10000.0);
  fills_[report.value(37)].ahead[number(report.value(14))] = {
      trade->second.size, dollars, std::strtod(report.value(6).c_str(), nullptr)};
}

/// In order of the fills, which is not always that of their reports.
void FixWitness::add_up(const std::string& order_id, Fills& fills) const {
  while (!fills.ahead.empty()) {
    const auto& [sum, fill] = *fills.ahead.begin();
    const bool follows = sum == fills.shares + fill.shares;
    holds(follows || lost_some_, "the reports of an order add up: 37=", order_id);
    if (!follows) return;
    fills.shares = sum;
    fills.dollars += fill.dollars;
    const double average = fills.dollars / static_cast<double>(sum);
    holds(std::fabs(fill.average - average) < 0.0001,
          "the average is that of the fills: 37=", order_id, " 14=", sum);
    fills.ahead.erase(fills.ahead.begin());
  }
}

}  // namespace lives
