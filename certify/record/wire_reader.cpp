#include "certify/record/wire_reader.h"

#include <array>
#include <map>
#include <optional>
#include <utility>

#include "certify/record/byte_view.h"
#include "certify/record/fix_cutter.h"
#include "certify/record/gap_request.h"
#include "certify/record/image_line.h"
#include "quorl/client/errors.h"

namespace client = quorl::client;

namespace certify {
namespace {

/// Both ways of a connection, each with what it needs to be read.
struct FixLine {
  std::array<FixCutter, 2> ways;
  std::array<bool, 2> ended = {};
};

struct ImageConnection {
  ImageLine line;
  std::array<bool, 2> ended = {};
};

}  // namespace

struct WireReader::Lines {
  EventListener& listener;
  uint32_t session;
  std::map<uint32_t, FixLine> fix;
  std::map<uint32_t, ImageConnection> images;

  template <typename Kind>
  void tell(TimeNs at, Kind what) {
    listener.on_event({.at = at, .what = std::move(what)});
  }

  ImageConnection& image(uint32_t number) {
    return images.try_emplace(number, ImageConnection{.line = ImageLine(number, session)})
        .first->second;
  }

  void on_fix(const Passed& passed) {
    FixCutter& way = fix[passed.line.number].ways[index_of(passed.from)];
    for (FixCutter::Cut& cut : way.append(passed.bytes)) tell_cut(passed, cut);
  }

  void tell_cut(const Passed& passed, FixCutter::Cut& cut) {
    const uint32_t connection = passed.line.number;
    if (!cut.is_frame) {
      tell(passed.told, FixGarbage{.connection = connection,
                                   .from = passed.from,
                                   .bytes = std::move(cut.bytes),
                                   .size = cut.size});
      return;
    }
    tell(passed.told, FixHeard{.connection = connection,
                               .from = passed.from,
                               .message = WireMessage::read(cut.bytes),
                               .taken = passed.taken,
                               .prefix_split = cut.prefix_split});
  }

  void on_fix_ended(const Ended& ended) {
    const auto found = fix.find(ended.line.number);
    if (found != fix.end()) {
      const Party other = ended.by == Party::CLIENT ? Party::EXCHANGE : Party::CLIENT;
      if (auto rest = found->second.ways[index_of(ended.by)].end()) {
        tell(ended.at,
             FixGarbage{.connection = ended.line.number,
                        .from = ended.by,
                        .bytes = std::move(rest->bytes),
                        .size = rest->size,
                        .at_end = true,
                        .cut_short = ended.by_link || found->second.ended[index_of(other)]});
      }
      found->second.ended[index_of(ended.by)] = true;
      if (found->second.ended[0] && found->second.ended[1]) fix.erase(found);
    }
    tell(ended.at, FixEnded{.connection = ended.line.number,
                            .by = ended.by,
                            .reset = ended.reset,
                            .by_link = ended.by_link});
    if (ended.lost > 0) {
      tell(ended.at,
           LinkSaid{"FIX " + std::to_string(ended.line.number) + ": " + std::to_string(ended.lost) +
                    " bytes of the exchange never reached the client"});
    }
  }

  void on_image(const Passed& passed) {
    ImageLine& line = image(passed.line.number).line;
    if (passed.from == Party::CLIENT) {
      if (auto request = line.on_request(passed.bytes)) tell(passed.told, std::move(*request));
    } else if (auto reply = line.on_reply(passed.bytes)) {
      tell(passed.told, std::move(*reply));
    }
  }

  void on_image_ended(const Ended& ended) {
    const auto found = images.find(ended.line.number);
    if (found == images.end()) return;
    ImageConnection& connection = found->second;
    if (auto request = connection.line.end_of_request(ended)) tell(ended.at, std::move(*request));
    if (auto reply = connection.line.end_of_reply(ended)) tell(ended.at, std::move(*reply));
    connection.ended[index_of(ended.by)] = true;
    if (connection.ended[0] && connection.ended[1]) images.erase(found);
  }

  void on_gap_fill(const Passed& passed) {
    const client::ByteView datagram = view_of(passed.bytes);
    if (passed.from == Party::CLIENT) {
      GapRequested request = read_gap_request(datagram, session);
      request.line = passed.line.number;
      tell(passed.told, std::move(request));
      return;
    }
    std::optional<client::TpPacket> packet;
    std::string flaw;
    try {
      packet = client::decode_tp_packet(datagram, session);
    } catch (const client::WireError& error) {
      flaw = error.what();
    }
    if (packet) {
      tell(passed.told, GapReplied{.line = passed.line.number, .packet = std::move(*packet)});
    } else {
      tell(passed.told, LinkSaid{"gap fill " + std::to_string(passed.line.number) +
                                 ": a reply that is no packet: " + flaw});
    }
  }
};

WireReader::WireReader(EventListener& listener, uint32_t session)
    : lines_(std::make_unique<Lines>(Lines{listener, session, {}, {}})) {}

WireReader::~WireReader() = default;

void WireReader::on_opened(Line line, bool reached, TimeNs at) {
  if (line.service != Service::FIX) return;
  if (reached) lines_->fix[line.number];
  lines_->tell(at, FixOpened{.connection = line.number, .reached = reached});
}

void WireReader::on_passed(const Passed& passed) {
  switch (passed.line.service) {
    case Service::FIX:
      return lines_->on_fix(passed);
    case Service::IMAGES:
      return lines_->on_image(passed);
    case Service::GAP_FILL:
      return lines_->on_gap_fill(passed);
  }
}

void WireReader::on_ended(const Ended& ended) {
  if (ended.line.service == Service::FIX) return lines_->on_fix_ended(ended);
  if (ended.line.service == Service::IMAGES) lines_->on_image_ended(ended);
}

void WireReader::on_link(std::string_view what, TimeNs at) {
  lines_->tell(at, LinkSaid{std::string(what)});
}

}  // namespace certify
