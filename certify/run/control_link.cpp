#include "certify/run/control_link.h"

#include <cerrno>
#include <chrono>

#include "quorl/client/bytes.h"
#include "quorl/client/errors.h"

namespace client = quorl::client;

namespace certify {

ControlLink::ControlLink(uint16_t port) : port_(port), socket_(client::UdpSocket::on_loopback()) {}

void ControlLink::send(const std::string& command, TimeNs now) {
  waiting_.push_back(command);
  if (waiting_.size() == 1) send_first(now);
}

void ControlLink::send_first(TimeNs now) {
  sent_at_ = now;
  try {
    socket_.send_to(port_, client::to_bytes(waiting_.front()));
  } catch (const client::SystemError&) {
    // Nobody is there any more: that no reply comes tells it.
  }
}

std::vector<ControlLink::Reply> ControlLink::take(TimeNs now) {
  std::vector<Reply> replies;
  while (const auto datagram = socket_.receive(client::Deadline::after(std::chrono::seconds(0)))) {
    if (datagram->from_port != port_ || waiting_.empty()) continue;
    std::string text = client::to_text(datagram->bytes);
    if (text.ends_with('\n')) text.pop_back();
    replies.push_back({waiting_.front(), std::move(text)});
    waiting_.pop_front();
    if (!waiting_.empty()) send_first(now);
  }
  return replies;
}

std::optional<std::map<std::string, uint64_t>> counters_in(const std::string& reply) {
  if (!reply.starts_with("ok orders=")) return std::nullopt;
  try {
    const client::ControlStats stats = client::parse_control_stats(reply.substr(3));
    std::map<std::string, uint64_t> counters = stats.counters;
    counters["next_seq"] = stats.next_seq;
    counters["sent"] = stats.faults.sent;
    counters["dropped"] = stats.faults.dropped;
    counters["duplicated"] = stats.faults.duplicated;
    counters["reordered"] = stats.faults.reordered;
    counters["session"] = stats.session_up ? 1 : 0;
    return counters;
  } catch (const client::WireError&) {
    return std::nullopt;
  }
}

}  // namespace certify
