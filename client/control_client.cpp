#include "quorl/client/control_client.h"

#include "quorl/client/bytes.h"
#include "quorl/client/errors.h"

namespace quorl::client {

ControlClient::ControlClient(uint16_t port) : port_(port), socket_(UdpSocket::on_loopback()) {}

void ControlClient::send(std::string_view text) { socket_.send_to(port_, to_bytes(text)); }

std::optional<std::string> ControlClient::receive(std::chrono::milliseconds patience) {
  const auto reply = socket_.receive(Deadline::after(patience));
  if (!reply) return std::nullopt;
  if (reply->from_port != port_ || reply->from_address != "127.0.0.1") {
    throw WireError("a reply from " + reply->from_address + ":" + std::to_string(reply->from_port) +
                    ", which is not the control port");
  }
  return to_text(reply->bytes);
}

std::string ControlClient::command(std::string_view text, std::chrono::milliseconds patience) {
  send(text);
  if (auto reply = receive(patience)) return *reply;
  throw Timeout("no reply to the control command \"" + std::string(text) + "\"");
}

void ControlClient::ok(std::string_view text) {
  const std::string reply = command(text);
  if (reply != "ok " + std::string(text) + "\n") {
    throw WireError("\"" + std::string(text) + "\" is answered by \"" + reply + "\"");
  }
}

ControlStats ControlClient::stats() {
  const std::string reply = command("stats");
  if (!reply.starts_with("ok ") || !reply.ends_with("\n")) {
    throw WireError("\"stats\" is answered by \"" + reply + "\"");
  }
  return parse_control_stats(std::string_view(reply).substr(3, reply.size() - 4));
}

}  // namespace quorl::client
