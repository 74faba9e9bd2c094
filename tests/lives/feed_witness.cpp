#include "lives/feed_witness.h"

#include <utility>
#include <variant>

#include "feed/tp_publisher.h"
#include "lives/broken.h"
#include "quorl/client/iex_tp.h"
#include "quorl/client/snap_client.h"
#include "support/inside.h"

namespace lives {
namespace {

namespace client = quorl::client;
namespace inside = quorl::test;

client::Bytes bytes_of(std::string_view text) { return {text.begin(), text.end()}; }

}  // namespace

FeedWitness::FeedWitness(quorl::Engine& engine, uint32_t session)
    : engine_(engine), session_(session) {}

void FeedWitness::on_sent(From from, std::string_view bytes) {
  sent_.push_back({from, std::string(bytes), engine_.publisher->next_seq()});
}

void FeedWitness::follow(uint64_t up_to) {
  const quorl::TpPublisher& publisher = *engine_.publisher;
  for (; next_seq_ < up_to; ++next_seq_) {
    const quorl::RetainedMessage message = publisher.retained(next_seq_);
    holds(message.stream_offset == next_offset_, "offsets add up, at ", next_seq_);
    offsets_.push_back(next_offset_);
    seq_of_offset_[next_offset_] = next_seq_;
    next_offset_ += message.bytes.size() + 2;
    const client::DeepMessage decoded = client::decode_deep(bytes_of(message.bytes));
    book_.apply(decoded);
    if (const auto* trade = std::get_if<client::TradeReport>(&decoded)) {
      holds(trades_.emplace(trade->trade_id, *trade).second, "a trade has a number of its own");
      volumes_[trade->symbol] += trade->size;
      last_prices_[trade->symbol] = trade->price;
    }
  }
}

uint64_t FeedWitness::seq_at(uint64_t offset, const std::string& of) const {
  if (offset == next_offset_) return next_seq_;
  const auto found = seq_of_offset_.find(offset);
  holds(found != seq_of_offset_.end(), "a message begins where ", of, " says");
  return found->second;
}

void FeedWitness::look_at_packet(std::string_view datagram) {
  const client::TpPacket packet = client::decode_tp_packet(bytes_of(datagram), session_);
  const uint64_t seq = seq_at(packet.header.stream_offset, "a packet");
  if (packet.is_heartbeat()) {
    holds(packet.header.first_seq == seq, "a heartbeat tells the next number");
    return;
  }
  holds(packet.header.first_seq == seq || packet.header.first_seq == seq + 1,
        "a packet announces its first number or one more");
  uint64_t at = seq;
  for (const client::TpMessage& message : packet.messages) {
    holds(at < next_seq_ && offsets_[at - 1] == message.stream_offset,
          "the messages of a packet follow on from each other");
    const client::Bytes kept = bytes_of(engine_.publisher->retained(at).bytes);
    holds(kept == message.bytes, "what is kept is what was sent, at ", at);
    ++at;
  }
  packets_sent_.insert(packet.header.stream_offset);
  ++sends_;
}

void FeedWitness::look_at_gap_reply(std::string_view datagram) {
  const client::TpPacket packet = client::decode_tp_packet(bytes_of(datagram), session_);
  if (packet.is_heartbeat()) return;  // the status
  uint64_t at = packet.header.first_seq;
  holds(at >= 1 && at < next_seq_ && offsets_[at - 1] == packet.header.stream_offset,
        "a gap fill has true numbers and offsets");
  for (const client::TpMessage& message : packet.messages) {
    holds(at < next_seq_, "a gap fill brings what there is");
    const client::Bytes kept = bytes_of(engine_.publisher->retained(at).bytes);
    holds(kept == message.bytes, "a gap fill brings what was sent, at ", at);
    ++at;
  }
}

void FeedWitness::look_at_image(std::string_view reply) {
  const client::SnapReply decoded = client::decode_snap_reply(bytes_of(reply), session_);
  const auto* image = std::get_if<client::SnapImage>(&decoded);
  if (image == nullptr) return;  // an error is an answer
  holds(image->seq == next_seq_ - 1, "an image stands behind the last number given out");
  holds(image->stream_offset == next_offset_, "an image says where the feed goes on");
  const std::string difference = client::compare_levels(image->book().books(), book_.books());
  holds(difference.empty(), "an image shows what the feed shows: ", difference);
}

void FeedWitness::look() {
  for (const Sent& sent : std::exchange(sent_, {})) {
    follow(sent.next_seq);
    if (sent.from == From::MULTICAST) look_at_packet(sent.bytes);
    if (sent.from == From::GAP_FILL) look_at_gap_reply(sent.bytes);
    if (sent.from == From::IMAGES) look_at_image(sent.bytes);
  }
  const quorl::TpPublisher& publisher = *engine_.publisher;
  follow(publisher.next_seq());
  holds(publisher.oldest_retained_seq() ==
            1 + (publisher.last_seq() > quorl::MAX_RETAINED_MESSAGES
                     ? publisher.last_seq() - quorl::MAX_RETAINED_MESSAGES
                     : 0),
        "the history is as long as it is bounded to be");
  holds(engine_.publisher->pending() == 0, "no message waits between two turns");
  holds(book_.consistent(), "no event is open between two turns");
  compare_books(book_, "the feed's book");
  for (const quorl::Stock& stock : engine_.stocks) {
    holds(stock.volume == volumes_[stock.symbol], "volume is the sum of the feed's trades");
    holds(stock.last_price == last_prices_[stock.symbol], "the last price is the feed's");
  }
  const inside::PublisherState state = inside::state_of(*engine_.publisher);
  holds(state.messages == next_seq_ - 1, "messages are counted");
  holds(state.stream_offset == next_offset_, "the stream ends behind its last message");
  const uint64_t made = state.packets - state.dropped;
  holds(packets_sent_.size() <= made && packets_sent_.size() + state.reordered >= made,
        "each packet is sent, dropped or held");
  holds(sends_ <= made + state.duplicated, "a packet is sent once, or twice by fault");
}

void FeedWitness::compare_books(const client::BookBuilder& shown, const std::string& whose) const {
  for (const quorl::Stock& stock : engine_.stocks) {
    const client::SymbolBook& book = shown.book(stock.symbol);
    const inside::ShownLevels bids(book.bids.begin(), book.bids.end());
    const inside::ShownLevels asks(book.asks.begin(), book.asks.end());
    holds(bids == inside::shown_levels(engine_, stock, inside::BUYS) &&
              asks == inside::shown_levels(engine_, stock, inside::SELLS),
          whose, " is the exchange's: ", stock.symbol);
  }
}

}  // namespace lives
