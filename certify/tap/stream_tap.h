#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <set>

#include "certify/tap/link.h"
#include "certify/tap/stream_line.h"
#include "certify/tap/tap_context.h"

namespace certify {

/// Takes the client's connections to one TCP service and begins one to the exchange for each.
class StreamTap {
 public:
  /// Throws client::SystemError if the port cannot be had. The context must live as long.
  StreamTap(Service service, uint16_t exchange_port, uint16_t wanted, TapContext& context);

  uint16_t port() const { return port_of(listening_); }

  void on_ready(const ReadySocket& socket);
  void serve();
  std::optional<TimeNs> due() const;
  /// Of a state of the link, not a cut both ways.
  void order(const LinkOrder& order);
  void cut();
  void close();
  /// Since it was last asked.
  bool stall_just_ended() { return links_.stall_just_ended(context_.now); }

 private:
  void take_connections();
  void open_line(Descriptor client);
  void on_shortage();

  Service service_;
  uint16_t exchange_port_;
  TapContext& context_;
  Descriptor listening_;
  /// For the exchange's side of the next connection: none is taken that could not be passed on.
  Descriptor spare_;
  bool connections_wait_ = false;
  TimeNs take_again_at_ = 0;  // after a shortage of descriptors
  bool short_told_ = false;
  uint32_t last_number_ = 0;
  Links links_;
  /// By number. Dead ones are gone, so that a long run costs nothing.
  std::map<uint32_t, std::unique_ptr<StreamLine>> lines_;
  std::set<uint32_t> busy_;  // with something to do, now or at a known time
};

}  // namespace certify
