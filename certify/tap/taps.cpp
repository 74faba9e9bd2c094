#include "certify/tap/taps.h"

#include <algorithm>
#include <array>
#include <string>

#include "certify/tap/datagram_tap.h"
#include "certify/tap/stream_tap.h"
#include "certify/tap/tap_context.h"

namespace certify {

struct Taps::Parts {
  Parts(const ServicePorts& exchange, const ServicePorts& wanted, TapListener& listener,
        uint64_t seed)
      : context(listener, seed),
        fix(Service::FIX, exchange.fix, wanted.fix, context),
        images(Service::IMAGES, exchange.images, wanted.images, context),
        gap_fill(exchange.gap_fill, wanted.gap_fill, context) {}

  /// Calls it with each tap and its service.
  template <class Call>
  void each(const Call& call) {
    call(fix, Service::FIX);
    call(images, Service::IMAGES);
    call(gap_fill, Service::GAP_FILL);
  }

  void on_ready(const ReadySocket& socket) {
    each([&socket](auto& tap, Service service) {
      if (socket.service == service) tap.on_ready(socket);
    });
  }

  /// Time does not run backwards here, whatever the caller's does.
  void reach(TimeNs now) { context.now = std::max(context.now, now); }

  TapContext context;
  StreamTap fix;
  StreamTap images;
  DatagramTap gap_fill;
  bool link_changed = false;  // so that serve() is due at once
  bool closed = false;
};

Taps::Taps(const ServicePorts& exchange, const ServicePorts& wanted, TapListener& listener,
           uint64_t seed)
    : parts_(std::make_unique<Parts>(exchange, wanted, listener, seed)) {
  ports_ = {.fix = parts_->fix.port(),
            .images = parts_->images.port(),
            .gap_fill = parts_->gap_fill.port()};
}

Taps::~Taps() = default;

void Taps::collect(std::vector<pollfd>& set) const {
  if (!parts_->closed) set.push_back({parts_->context.poller.fd(), POLLIN, 0});
}

std::optional<TimeNs> Taps::due() const {
  if (parts_->closed) return std::nullopt;
  std::optional<TimeNs> first;
  if (parts_->link_changed) first = parts_->context.now;
  parts_->each([&first](auto& tap, Service) {
    const std::optional<TimeNs> due = tap.due();
    if (due && (!first || *due < *first)) first = due;
  });
  return first;
}

void Taps::serve(TimeNs now) {
  if (parts_->closed) return;
  parts_->reach(now);
  parts_->link_changed = false;
  for (const ReadySocket& socket : parts_->context.poller.changes()) parts_->on_ready(socket);
  parts_->each([this](auto& tap, Service service) {
    if (tap.stall_just_ended()) {
      parts_->context.listener.on_link(std::string(name_of(service)) + ": the stall is over",
                                       parts_->context.now);
    }
    tap.serve();
  });
}

void Taps::order_link(std::string_view text, TimeNs now) {
  const std::optional<LinkOrder> order = read_link_order(text);
  if (!order || parts_->closed) return;
  parts_->reach(now);
  parts_->link_changed = true;
  const bool cut_both =
      order->kind == LinkOrder::Kind::CUT && order->to_exchange && order->to_client;
  parts_->each([&](auto& tap, Service service) {
    if (!order->services[static_cast<size_t>(service)]) return;
    parts_->context.listener.on_link(std::string(name_of(service)) + ": " + describe(*order),
                                     parts_->context.now);
    cut_both ? tap.cut() : tap.order(*order);
  });
}

void Taps::close() {
  if (parts_->closed) return;
  parts_->closed = true;
  parts_->each([](auto& tap, Service) { tap.close(); });
}

Taps::Delay Taps::delay() const {
  return {.median = parts_->context.delay.median(), .most = parts_->context.delay.most()};
}

}  // namespace certify
