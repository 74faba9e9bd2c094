#include "day/day_market_view.h"

#include <algorithm>
#include <variant>

#include "quorl/client/bytes.h"
#include "quorl/client/deep.h"
#include "quorl/client/errors.h"
#include "quorl/client/iex_tp.h"
#include "quorl/client/snap_client.h"

namespace client = quorl::client;

namespace day {
namespace {

void show(MarketView::Book& book, const client::LevelUpdate& update) {
  const auto change = [&update](auto& levels) {
    if (update.size == 0) {
      levels.erase(update.price);
    } else {
      levels[update.price] = update.size;
    }
  };
  if (update.buy) {
    change(book.bids);
  } else {
    change(book.asks);
  }
}

}  // namespace

void MarketView::on_packet(const std::string& datagram) {
  try {
    const client::TpPacket packet = client::decode_tp_packet(client::to_bytes(datagram));
    if (packet.is_heartbeat()) return;
    last_seq_ = std::max(last_seq_, packet.header.first_seq + packet.messages.size() - 1);
    for (const client::TpMessage& message : packet.messages) {
      const client::DeepMessage decoded = client::decode_deep(message.bytes);
      const auto* const update = std::get_if<client::LevelUpdate>(&decoded);
      if (update != nullptr) show(books_[update->symbol], *update);
    }
  } catch (const client::WireError&) {  // the digest of the feed tells of it
  }
}

bool MarketView::on_snap_reply(const std::string& bytes) {
  try {
    const client::SnapReply reply = client::decode_snap_reply(client::to_bytes(bytes), session_);
    const auto* const image = std::get_if<client::SnapImage>(&reply);
    if (image == nullptr) return false;
    books_.clear();
    for (const client::DeepMessage& message : image->messages) {
      const auto* const update = std::get_if<client::LevelUpdate>(&message);
      if (update != nullptr) show(books_[update->symbol], *update);
    }
    last_seq_ = image->seq;
    return true;
  } catch (const client::WireError&) {  // cut short on its way
    return false;
  }
}

}  // namespace day
