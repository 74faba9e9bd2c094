// Every byte of a run as Wireshark shows it, against the client library's decoding.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <set>

#include "quorl/client/deep.h"
#include "quorl/client/fix_message.h"
#include "tests/share/capture_file.h"
#include "tests/share/expected.h"
#include "tests/share/recording.h"
#include "tests/share/tshark.h"

namespace share {
namespace {

using client::Bytes;
using client::DeepMessage;
using client::TpPacket;
using testing::AllOf;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::Gt;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

/// The notes that a packet of the feed deserves, by its true numbers and those before it.
class StreamJudge {
 public:
  explicit StreamJudge(const Recording& recording) : recording_(recording) {}

  std::vector<std::string> notes_for(const TpPacket& packet) {
    std::vector<std::string> notes;
    const uint64_t first = recording_.seq_at.at(packet.header.stream_offset);
    const uint64_t next = first + packet.messages.size();
    const bool again = !packet.is_heartbeat() && !begun_.insert(first).second;
    if (first > next_) notes.emplace_back("quorl_tp.gap");
    if (again) notes.emplace_back("quorl_tp.duplicate");
    if (first < next_ && !again) notes.emplace_back("quorl_tp.out_of_order");
    if (packet.header.first_seq == first + 1) notes.emplace_back("quorl_tp.one_too_high");
    next_ = std::max(next_, next);
    return notes;
  }

 private:
  const Recording& recording_;
  uint64_t next_ = 1;
  std::set<uint64_t> begun_;
};

class Dissector : public testing::Test {
 protected:
  const Recording& recording_ = Recording::of_a_run();
  const client::TempDirectory directory_;
  const std::string path_ = directory_.path() + "/run.pcap";

  Frames put(const CapturedPorts& ports) {
    CaptureFile file;
    const Frames frames = put_recording(file, recording_, ports);
    file.write(path_);
    return frames;
  }

  /// What is to be shown of a packet's payload.
  Items payload_items(const TpPacket& packet) const {
    Items items;
    for (const client::TpMessage& message : packet.messages) {
      append(items, items_of(client::decode_deep(message.bytes),
                             recording_.seq_at.at(message.stream_offset), message.stream_offset));
    }
    return items;
  }
};

std::string joined(const std::vector<std::string>& words) {
  std::string text;
  for (const std::string& word : words) text += word + " ";
  return text;
}

/// Of the items, those that the packet itself has brought: not what is known from elsewhere.
std::vector<Shown> without(std::vector<Shown> items, const std::set<std::string>& names) {
  std::erase_if(items, [&](const Shown& shown) { return names.contains(shown.name); });
  return items;
}

TEST_F(Dissector, shows_every_field_of_the_feed_and_notes_where_the_stream_is_broken) {
  const Frames frames = put({});
  const Dissection dissection(path_);
  StreamJudge judge(recording_);
  std::multiset<std::string> all_notes;
  std::set<char> types;
  for (size_t i = 0; i < recording_.feed.size(); ++i) {
    const Frame& frame = dissection.frame(frames.feed[i]);
    const TpPacket packet = client::decode_tp_packet(recording_.feed[i], recording_.session);
    ASSERT_EQ(frame.protocols(), "raw:ip:udp:quorl_tp");

    const std::vector<std::string> notes = judge.notes_for(packet);
    EXPECT_EQ(joined(frame.note_names()), joined(notes)) << "packet " << i;
    all_notes.insert(notes.begin(), notes.end());

    const uint64_t first = recording_.seq_at.at(packet.header.stream_offset);
    Items expected{{"quorl_tp", "", ""}};
    append(expected, items_of(packet.header));
    expected.push_back({"quorl_tp.true_first_seq", std::to_string(first), ""});
    append(expected, payload_items(packet));
    if (packet.is_heartbeat()) expected.push_back({"quorl_tp.heartbeat", "1", ""});
    EXPECT_EQ(difference(expected, without(frame.shown("quorl_tp"),
                                           {"quorl_tp.gap.offset", "quorl_tp.gap.bytes",
                                            "quorl_tp.duplicate_of"})),
              "")
        << "packet " << i;
    for (const client::TpMessage& message : packet.messages) {
      types.insert(type_of(client::decode_deep(message.bytes)));
    }
  }
  // What the recording was made for is in it.
  EXPECT_EQ(types.size(), 10u);
  EXPECT_EQ(all_notes.count("quorl_tp.gap"), 3u);  // dropped, held back, dropped
  EXPECT_EQ(all_notes.count("quorl_tp.duplicate"), 1u);
  EXPECT_EQ(all_notes.count("quorl_tp.out_of_order"), 1u);
  EXPECT_GE(all_notes.count("quorl_tp.one_too_high"), 1u);
}

TEST_F(Dissector, tells_what_is_missing_and_of_what_a_packet_is_a_copy) {
  const Frames frames = put({});
  const Dissection dissection(path_);
  uint64_t end = 0, next = 1;
  unsigned gaps = 0, copies = 0;
  for (size_t i = 0; i < recording_.feed.size(); ++i) {
    const Frame& frame = dissection.frame(frames.feed[i]);
    const TpPacket packet = client::decode_tp_packet(recording_.feed[i]);
    const uint64_t offset = packet.header.stream_offset;
    if (offset > end) {
      ++gaps;
      EXPECT_THAT(frame.values("quorl_tp.gap.offset"), ElementsAre(std::to_string(end)));
      EXPECT_THAT(frame.values("quorl_tp.gap.bytes"), ElementsAre(std::to_string(offset - end)));
      const std::string numbers = "messages " + std::to_string(next) + " to " +
                                  std::to_string(recording_.seq_at.at(offset) - 1);
      EXPECT_THAT(frame.notes().front().label, HasSubstr(numbers));
    } else {
      EXPECT_THAT(frame.values("quorl_tp.gap.offset"), IsEmpty());
    }
    for (const std::string& copied : frame.values("quorl_tp.duplicate_of")) {
      ++copies;
      EXPECT_EQ(copied, std::to_string(frames.feed[i - 1]));
    }
    end = std::max(end, packet.end_offset());
    next = std::max(next, recording_.seq_at.at(packet.end_offset()));
  }
  EXPECT_EQ(gaps, 3u);
  EXPECT_EQ(copies, 1u);
}

TEST_F(Dissector, shows_the_same_of_the_stream_in_the_first_pass) {
  (void)put({});
  const Dissection two_passes(path_);
  const Dissection one_pass(path_, {});
  ASSERT_EQ(one_pass.size(), two_passes.size());
  for (size_t number = 1; number <= one_pass.size(); ++number) {
    // A request cannot know of its reply before that has come.
    const auto first = without(one_pass.frame(number).shown("quorl_tp"), {});
    EXPECT_EQ(difference(first, two_passes.frame(number).shown("quorl_tp")), "") << number;
    EXPECT_EQ(one_pass.frame(number).note_names(), two_passes.frame(number).note_names());
  }
}

TEST_F(Dissector, shows_gap_fill_in_both_directions_and_why_a_request_is_refused) {
  const Frames frames = put({});
  const Dissection dissection(path_);
  size_t answers = 0;
  for (size_t i = 0; i < recording_.gap_fill.size(); ++i) {
    const RecordedRequest& asked = recording_.gap_fill[i];
    const client::GapFillRequest& request = asked.request;
    const Frame& frame = dissection.frame(frames.gap_fill[i]);
    ASSERT_EQ(frame.protocols(), "raw:ip:udp:quorl_gapfill");
    const auto number = [](uint64_t value) { return std::to_string(value); };
    const auto count = request.range_count.value_or(static_cast<uint32_t>(request.ranges.size()));
    Items expected{
        {"quorl_gapfill", "", ""},
        {"quorl_gapfill.version", number(request.version), ""},
        {"quorl_gapfill.kind", number(request.kind), ""},
        {"quorl_gapfill.protocol_id", request.protocol_id == 4 ? "0x0004" : "0x8004", ""},
        {"quorl_gapfill.channel_id", number(request.channel_id), ""},
        {"quorl_gapfill.session_id", number(request.session_id), ""},
        {"quorl_gapfill.range_count", number(count), ""}};
    if (count == 0) expected.push_back({"quorl_gapfill.status_query", "1", ""});
    for (const client::SeqRange& range : request.ranges) {
      const std::string first = number(range.first), last = number(range.last);
      expected.push_back({"quorl_gapfill.range", "", "Range: " + first + " to " + last});
      expected.push_back({"quorl_gapfill.first", first, ""});
      expected.push_back({"quorl_gapfill.last", last, ""});
    }
    if (!request.trailing.empty()) {
      expected.push_back({"quorl_gapfill.trailing", "62:65:68:69:6e:64", ""});
    }
    if (!asked.replies.empty()) {
      expected.push_back({"quorl_gapfill.reply", number(frames.gap_fill_replies[i].front()), ""});
    }
    std::vector<Shown> shown = frame.shown("quorl_gapfill");
    for (Shown& item : shown) {
      if (item.name == "quorl_gapfill.range") item.value.clear();
    }
    EXPECT_EQ(difference(expected, shown), "") << i;

    std::vector<std::string> reasons;
    for (const Shown& note : frame.notes()) {
      if (note.name != "quorl_gapfill.cut_short") reasons.push_back(note.label);
    }
    if (asked.refused.empty()) {
      EXPECT_THAT(reasons, IsEmpty()) << i;
      EXPECT_THAT(asked.replies, testing::Not(IsEmpty()));
    } else if (asked.refused == "session") {
      EXPECT_THAT(reasons, ElementsAre("Not the session of the exchange's feed"));
      EXPECT_THAT(asked.replies, IsEmpty());
    } else {
      EXPECT_THAT(reasons, ElementsAre("Refused: " + asked.refused));
      EXPECT_THAT(asked.replies, IsEmpty());
    }

    for (size_t k = 0; k < asked.replies.size(); ++k) {
      const Frame& reply = dissection.frame(frames.gap_fill_replies[i][k]);
      const TpPacket packet = client::decode_tp_packet(asked.replies[k], recording_.session);
      ASSERT_EQ(reply.protocols(), "raw:ip:udp:quorl_gapfill");
      Items answer{{"quorl_gapfill", "", ""},
                   {"quorl_gapfill.request", number(frames.gap_fill[i]), ""},
                   {"quorl_tp", "", ""}};
      append(answer, items_of(packet.header));
      append(answer, payload_items(packet));
      EXPECT_EQ(difference(answer, reply.shown("quorl_gapfill")), "") << i << ", reply " << k;
      EXPECT_THAT(reply.note_names(), IsEmpty());
      ++answers;
    }
  }
  EXPECT_GT(answers, recording_.gap_fill.size() / 2);
}

/// All frames of DEEP SNAP that a connection shows, put behind each other.
std::vector<Shown> shown_of_connection(const Dissection& dissection,
                                       const std::vector<size_t>& frames) {
  std::vector<Shown> all;
  for (const size_t number : frames) {
    const std::vector<Shown> more = dissection.frame(number).shown("quorl_snap");
    all.insert(all.end(), more.begin(), more.end());
  }
  return all;
}

Shown snap_length(size_t length) { return {"quorl_snap.length", std::to_string(length), ""}; }

Shown snap_type(char type) { return {"quorl_snap.type", std::string("'") + type + "'", ""}; }

Items request_items(const client::SnapRequest& request) {
  return {{"quorl_snap", "", ""},
          snap_length(57 + request.trailing.size()),
          snap_type(request.type),
          {"quorl_snap.name", request.name, ""},
          {"quorl_snap.channel_id", std::to_string(request.channel_id), ""},
          {"quorl_snap.session_id", std::to_string(request.session_id), ""},
          {"quorl_snap.minimum_seq", std::to_string(request.minimum_seq), ""}};
}

Items reply_items(const client::SnapImage& image, uint32_t session) {
  Items items{{"quorl_snap", "", ""},
              snap_length(9),
              snap_type('s'),
              {"quorl_snap.total_bytes", std::to_string(image.total_bytes), ""}};
  for (const DeepMessage& message : image.messages) {
    append(items, {{"quorl_snap", "", ""},
                   snap_length(size_of(message) + 43u),
                   snap_type('d'),
                   {"quorl_tp", "", ""}});
    append(items,
           items_of(client::TpHeader{.version = 1,
                                     .protocol_id = client::DEEP_PROTOCOL_ID,
                                     .channel_id = 1,
                                     .session_id = session,
                                     .payload_length = static_cast<uint16_t>(size_of(message) + 2),
                                     .message_count = 1,
                                     .stream_offset = image.stream_offset,
                                     .first_seq = image.seq,
                                     .send_time_ns = image.send_time_ns}));
    append(items, items_of(message, std::nullopt, std::nullopt));
  }
  append(items, {{"quorl_snap", "", ""},
                 snap_length(9),
                 snap_type('x'),
                 {"quorl_snap.seq", std::to_string(image.seq), ""}});
  return items;
}

TEST_F(Dissector, puts_images_together_from_whatever_segments_they_come_in) {
  const Frames frames = put({});
  const Dissection dissection(path_);
  std::string codes;
  for (size_t i = 0; i < recording_.images.size(); ++i) {
    const RecordedImage& asked = recording_.images[i];
    std::vector<size_t> segments = frames.images[i];
    const Frame& request = dissection.frame(segments.front());
    ASSERT_EQ(request.protocols(), "raw:ip:tcp:quorl_snap");
    if (asked.request.type == 'r') {
      EXPECT_EQ(difference(request_items(asked.request), request.shown("quorl_snap")), "") << i;
    }
    segments.erase(segments.begin());
    const client::SnapReply reply = client::decode_snap_reply(asked.reply, recording_.session);
    const std::vector<Shown> shown = shown_of_connection(dissection, segments);
    if (const auto* image = std::get_if<client::SnapImage>(&reply)) {
      EXPECT_EQ(difference(reply_items(*image, recording_.session), shown), "");
      EXPECT_GT(segments.size(), 100u);
      for (const size_t number : segments) {
        EXPECT_THAT(dissection.frame(number).note_names(), IsEmpty());
      }
    } else {
      const char code = std::get<client::SnapError>(reply).code;
      codes += code;
      EXPECT_EQ(difference({{"quorl_snap", "", ""},
                            snap_length(2),
                            snap_type('e'),
                            {"quorl_snap.error_code", std::string("'") + code + "'", ""}},
                           shown),
                "");
      EXPECT_THAT(dissection.frame(segments.back()).note_names(),
                  ElementsAre("quorl_snap.refused"));
    }
  }
  EXPECT_EQ(codes, "RSCAU");
}

TEST_F(Dissector, leaves_order_entry_to_the_dissector_that_wireshark_has) {
  const Frames frames = put({});
  const Dissection dissection(path_);
  std::set<std::string> types;
  ASSERT_GT(frames.fix.size(), 20u);
  for (size_t i = 0; i < frames.fix.size(); ++i) {
    const Frame& frame = dissection.frame(frames.fix[i]);
    EXPECT_EQ(frame.protocols(), "raw:ip:tcp:fix");
    const client::FixMessage message = client::parse_fix(recording_.fix[i].bytes);
    EXPECT_THAT(frame.values("fix.MsgType"), ElementsAre(message.type()));
    EXPECT_THAT(frame.values("fix.MsgSeqNum"), ElementsAre(message.get(34)));
    types.insert(message.type());
  }
  EXPECT_THAT(types, AllOf(Contains("A"), Contains("D"), Contains("8"), Contains("5")));
}

/// The protocols of all UDP packets and of TCP segments with data, in order.
std::vector<std::string> protocols_of_data(const Dissection& dissection) {
  std::vector<std::string> protocols;
  for (size_t number = 1; number <= dissection.size(); ++number) {
    const Frame& frame = dissection.frame(number);
    const std::vector<std::string> length = frame.values("tcp.len");
    if (length.empty() || length.front() != "0") protocols.push_back(frame.protocols());
  }
  return protocols;
}

constexpr CapturedPorts OTHER_PORTS{.feed = 11000, .gap_fill = 11001, .snap = 11002, .fix = 11003};

TEST_F(Dissector, finds_the_wires_on_the_ports_that_the_preferences_name) {
  (void)put({});
  const std::vector<std::string> usual = protocols_of_data(Dissection(path_));
  (void)put(OTHER_PORTS);
  const Dissection dissection(
      path_, {"-2", "-o", "quorl.feed_ports:7,11000", "-o", "quorl.gap_fill_ports:11001", "-o",
              "quorl.snap_ports:11002-11010", "-o", "quorl.fix_ports:11003", "--disable-heuristic",
              "quorl_tp_udp", "--disable-heuristic", "quorl_gapfill_udp", "--disable-heuristic",
              "quorl_snap_tcp", "--disable-heuristic", "fix_tcp"});
  EXPECT_EQ(protocols_of_data(dissection), usual);
}

TEST_F(Dissector, is_there_for_decode_as) {
  (void)put({});
  const std::vector<std::string> usual = protocols_of_data(Dissection(path_));
  (void)put(OTHER_PORTS);
  const Dissection dissection(
      path_, {"-2", "-d", "udp.port==11000,quorl_tp", "-d", "udp.port==11001,quorl_gapfill", "-d",
              "tcp.port==11002,quorl_snap", "-d", "tcp.port==11003,fix", "--disable-heuristic",
              "quorl_tp_udp", "--disable-heuristic", "quorl_gapfill_udp", "--disable-heuristic",
              "quorl_snap_tcp", "--disable-heuristic", "fix_tcp"});
  EXPECT_EQ(protocols_of_data(dissection), usual);
}

TEST_F(Dissector, recognises_the_wires_on_any_port_by_what_they_carry) {
  const Frames frames = put(OTHER_PORTS);
  const Dissection dissection(path_);
  StreamJudge judge(recording_);
  for (size_t i = 0; i < frames.feed.size(); ++i) {
    const Frame& frame = dissection.frame(frames.feed[i]);
    EXPECT_EQ(frame.protocols(), "raw:ip:udp:quorl_tp");
    const TpPacket packet = client::decode_tp_packet(recording_.feed[i]);
    EXPECT_EQ(joined(frame.note_names()), joined(judge.notes_for(packet)));
  }
  for (const std::vector<size_t>& replies : frames.gap_fill_replies) {
    for (const size_t number : replies) {
      EXPECT_EQ(dissection.frame(number).protocols(), "raw:ip:udp:quorl_gapfill");
    }
  }
  for (const size_t number : frames.gap_fill) {
    EXPECT_EQ(dissection.frame(number).protocols(), "raw:ip:udp:quorl_gapfill");
  }
  EXPECT_EQ(dissection.frame(frames.images[0].front()).protocols(), "raw:ip:tcp:quorl_snap");
  // More than once if frames end and begin in the segment.
  EXPECT_THAT(dissection.frame(frames.images[0].back()).protocols(),
              StartsWith("raw:ip:tcp:quorl_snap"));
}

TEST_F(Dissector, keeps_sessions_and_groups_apart) {
  CaptureFile file;
  const Bytes& first = recording_.feed[0];
  const Bytes& third = recording_.feed[2];
  Bytes of_other_session = third;
  of_other_session[8] ^= 1;
  const auto frame_of = [&](uint32_t group, const Bytes& bytes) {
    return file.udp({.port = FEED_SOURCE_PORT}, {.address = group, .port = 25477}, bytes);
  };
  (void)frame_of(GROUP, first);
  const size_t other_session = frame_of(GROUP, of_other_session);
  const size_t other_group = frame_of(GROUP + 1, third);
  const size_t same = frame_of(GROUP, third);
  file.write(path_);
  const Dissection dissection(path_);
  EXPECT_THAT(dissection.frame(other_session).note_names(), IsEmpty());
  EXPECT_THAT(dissection.frame(other_group).note_names(), IsEmpty());
  EXPECT_THAT(dissection.frame(same).note_names(), Contains("quorl_tp.gap"));
}

}  // namespace
}  // namespace share
