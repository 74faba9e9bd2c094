#include "day/day_watchers.h"

#include <algorithm>

#include "quorl/client/bytes.h"
#include "quorl/client/gap_fill_client.h"
#include "quorl/client/snap_client.h"

namespace client = quorl::client;

namespace day {

Watchers::Watchers(Network& network, Outputs& outputs, Dice& dice, MarketView& view,
                   const Network::Ports& ports)
    : network_(network), outputs_(outputs), dice_(dice), view_(view), ports_(ports) {}

void Watchers::act(uint64_t turn) {
  turn_ = turn;
  for (const std::string& packet : network_.take_feed()) view_.on_packet(packet);
  for (Visit& visit : visits_) {
    for (const std::string& bytes : network_.take_received(visit.connection)) visit.reply += bytes;
    if (!network_.closed_by_exchange(visit.connection)) continue;
    view_.on_snap_reply(visit.reply);
    visit.ended = true;
  }
  std::erase_if(visits_, [](const Visit& visit) { return visit.ended; });
  if (dice_.one_in(120)) visit();
  if (dice_.one_in(25)) ask_for_messages();
}

void Watchers::visit() {
  constexpr size_t MOST_VISITS = 6;
  if (visits_.size() >= MOST_VISITS) return;
  if (dice_.one_in(30)) network_.fail_next_accept(ports_.snap);
  const size_t connection = network_.connect(ports_.snap);
  visits_.emplace_back().connection = connection;
  if (dice_.one_in(3)) {
    std::deque<int64_t> limits;
    for (uint64_t i = dice_.below(12); i > 0; --i)
      limits.push_back(std::max<int64_t>(dice_.between(-400, 900), 0));
    if (dice_.one_in(8)) limits.push_back(Network::BROKEN);
    network_.limit_sends(connection, std::move(limits));
  }
  std::string bytes = image_request();
  outputs_.remark("visit " + std::to_string(connection));
  if (dice_.one_in(8)) bytes.resize(dice_.below(bytes.size()));  // never whole
  uint64_t arrival = turn_;
  while (!bytes.empty()) {
    const size_t piece = dice_.one_in(2) ? bytes.size() : 1 + dice_.below(bytes.size());
    network_.send(connection, bytes.substr(0, piece), arrival);
    bytes.erase(0, piece);
    arrival += dice_.below(4);
  }
  if (dice_.one_in(8)) {
    const bool reset = dice_.one_in(2);  // one draw in an expression: their order is fixed then
    network_.end(connection, reset, arrival + dice_.below(100));
  }
}

std::string Watchers::image_request() {
  client::SnapRequest request;
  request.session_id = view_.session();
  switch (dice_.below(14)) {
    case 0:
      request.type = 'q';
      break;
    case 1:
      request.name = "";
      request.name_padding = dice_.one_in(2) ? ' ' : '\0';
      break;
    case 2:
      request.channel_id = 2;
      break;
    case 3:
      ++request.session_id;
      break;
    case 4:
      request.minimum_seq = view_.last_seq() + dice_.below(100000);
      break;
    case 5:
      request.minimum_seq = view_.last_seq() + dice_.below(2);
      break;
    case 6:
      request.trailing = client::Bytes(dice_.below(6000), 'x');
      break;
    case 7: {  // too short inside its length
      const size_t length = 1 + dice_.below(56);
      std::string bytes = {static_cast<char>(length), '\0', 'r'};
      return bytes.append(length - 1, 'n');
    }
    case 8:
      return std::string(1 + dice_.below(4), '\0');  // a length of 0 never completes
    default:
      request.minimum_seq = dice_.below(view_.last_seq() + 1);
  }
  return client::to_text(client::encode(request));
}

void Watchers::ask_for_messages() {
  for (uint64_t i = dice_.one_in(5) ? 3 : 1; i > 0; --i) {
    const std::string datagram = gap_request();
    outputs_.remark("gap request of " + std::to_string(datagram.size()));
    network_.send_datagram(ports_.gap_fill, datagram, static_cast<uint16_t>(50000 + i));
  }
}

std::string Watchers::gap_request() {
  client::GapFillRequest request;
  request.session_id = view_.session();
  const uint64_t top = view_.last_seq() + 1;
  const auto somewhere = [&] {
    return dice_.one_in(3) ? dice_.below(top) : top - dice_.below(std::min<uint64_t>(top, 600));
  };
  uint64_t first = somewhere();
  const uint64_t length = dice_.one_in(40) ? dice_.below(3000) : dice_.below(60);
  request.ranges.push_back({first, first + length});
  if (dice_.one_in(4)) {
    for (uint64_t i = dice_.below(6); i > 0; --i) {
      first = request.ranges.back().last + 1 + dice_.below(20);
      request.ranges.push_back({first, first + dice_.below(30)});
    }
  }
  switch (dice_.below(26)) {
    case 0:
      request.version = 2;
      break;
    case 1:
      request.kind = static_cast<uint8_t>(dice_.below(4));
      break;
    case 2:
      request.protocol_id = 0x8003;
      break;
    case 3:
      request.channel_id = 0;
      break;
    case 4:
      request.session_id += 1;
      break;
    case 5:
    case 6:
    case 7:
      request.ranges.clear();  // the status
      break;
    case 8:
      request.range_count = static_cast<uint32_t>(dice_.below(5));
      break;
    case 9:
      request.range_count = 0xffffffff;
      break;
    case 10:
      request.trailing = client::Bytes(dice_.below(3000), 1);
      break;
    case 11:
      request.ranges.push_back({first, first + 5});  // overlaps
      break;
    case 12:
      std::swap(request.ranges.back().first, request.ranges.back().last);
      break;
    case 13:
      request.ranges = {{0, ~uint64_t{0}}};
      break;
    case 14:
      request.ranges = {{top + 1000, top + 2000}};
      break;
    case 15:
      return std::string(dice_.below(17), '\1');
    case 16:
      return "";
    case 17: {
      std::string cut = client::to_text(client::encode(request));
      cut.resize(dice_.below(cut.size()));
      return cut;
    }
    default:
      break;
  }
  return client::to_text(client::encode(request));
}

Bench::Bench(Network& network, Outputs& outputs, Dice& dice, uint16_t port, int usual_rate_ms)
    : network_(network),
      outputs_(outputs),
      dice_(dice),
      port_(port),
      usual_rate_("rate " + std::to_string(usual_rate_ms)) {}

void Bench::say(const std::string& line) {
  outputs_.remark("control " + line);
  network_.send_datagram(port_, line, static_cast<uint16_t>(60000 + dice_.below(3)));
}

void Bench::act(uint64_t turn, bool lull) {
  constexpr uint64_t MARK_TURNS = 500;  // the market truth file is pinned up to each mark
  if (lull != lull_) say(lull ? "pause" : "resume");
  lull_ = lull;
  if (turn % MARK_TURNS == 0) say("mark m" + std::to_string(++marks_));
  if (repair_turn_ != 0 && turn >= repair_turn_) {
    for (const char* line :
         {"resume", "drop_every 0", "dup_every 0", "reorder_every 0", "drop 0", "lapse 0"}) {
      say(line);
    }
    say(usual_rate_);
    repair_turn_ = 0;
  }
  if (turn == 2 || turn == 20) say("stats");  // ahead of every Logon, and of some
  if (lull || !dice_.one_in(45)) return;
  for (uint64_t i = dice_.one_in(6) ? 4 : 1; i > 0; --i) say(command());
  if (repair_turn_ == 0) repair_turn_ = turn + 20 + dice_.below(300);
}

std::string Bench::command() {
  const auto with = [this](std::string_view word, std::initializer_list<std::string_view> numbers) {
    const std::string line(word);
    return line + std::string(dice_.word(numbers));
  };
  switch (dice_.below(26)) {
    case 0:
      return "pause";
    case 1:
      return "resume";
    case 2:
      return with("drop", {"", " 1", " 3", " 2x", " abc", " 0"});
    case 3:
      return with("dup", {"", " 1", " 4", " -1", " 99999999999999999999999"});
    case 4:
      return with("reorder", {"", " 1", " 2", " 5"});
    case 5:
      return with("drop_every", {"", " 3", " 9", " 1"});
    case 6:
      return with("dup_every", {"", " 2", " 5", " x"});
    case 7:
      return with("reorder_every", {"", " 2", " 7", " 4294967298"});
    case 8:
      return with("rate", {"", " 1", " 5", " 100", " 0", " x", " 4294967295", " 40"});
    case 9:
      return with("mark", {"", " here", " a b", "\thoriz", " \"q\""});
    case 10:
      return "disconnect";
    case 11:
      return with("lapse", {" 50", " 300", " 1", " 900", "", " 0"});
    case 12:
    case 13:
      return with("reject", {"", " 1", " 2", " x"});
    case 14:
    case 15:
      return with("partial", {"", " 1", " 3", " 6"});
    case 16:
    case 17:
    case 18:
      return with("fill_on_cancel", {"", " 1", " 2", " 4"});
    case 19:
    case 20:
      return with("unsolicited_cancel", {"", " 1", " 5", " 2"});
    case 21:
    case 22:
      return with("replace_reject", {"", " 1", " 2"});
    case 23:
      return std::string(dice_.word({"stats", "stats\r\n", " stats now", "stats \t", "\tstats"}));
    case 24:
      return "mark " + std::string(dice_.below(700), 'm') + " end";
    default: {
      using namespace std::string_view_literals;
      return std::string(dice_.word({""sv, " "sv, "\n"sv, "unknown"sv, "STATS"sv, "pauseX 1"sv,
                                     "mark\0hidden 4"sv, "mark \xc3\xa9"sv}));
    }
  }
}

}  // namespace day
