-- Wireshark's and tshark's view of the exchange: the feed (DEEP in IEX-TP packets), gap fill, DEEP
-- SNAP images; FIX on the exchange's port goes to the dissector that Wireshark has. For Wireshark
-- 4.0 and later.
--
--   tshark -X lua_script:quorl.lua -r capture.pcap
--
-- or for good, in the folder of plugins that "Help, About Wireshark, Folders" calls personal or
-- global. Ports are preferences of the protocol "quorl"; on other ports the wires are recognised by
-- what they carry, or by "Decode As". Notes about the stream (gaps, duplicates, numbers one too
-- high) are Wireshark's expert information; a second pass (tshark -2, or the window) knows them all,
-- since a number in doubt is settled by later packets only.

-- Installed by hand and by a package: the first one found serves.
if rawget(_G, "quorl_dissector") then return end
_G.quorl_dissector = true

local quorl = Proto("quorl", "Exchange quorl")  -- no packets of its own: it bears the preferences
local tp = Proto("quorl_tp", "IEX-TP")
local deep = Proto("quorl_deep", "DEEP")
local gap_fill = Proto("quorl_gapfill", "DEEP Gap Fill")
local snap = Proto("quorl_snap", "DEEP SNAP")

local TP_VERSION = 1
local DEEP_PROTOCOL_ID = 0x8004
local DEEP_CHANNEL = 1
local TP_HEADER_SIZE = 40
local TP_MAX_PACKET = 1500
local GAP_FILL_HEADER_SIZE = 16
local RANGE_SIZE = 16
local LARGEST_REQUEST = 2048  -- the exchange cuts what is longer
local LARGEST_EXACT = 2 ^ 53  -- of Lua's numbers; offsets and numbers beyond are nobody's

---------------------------------------------------------------------------------------------------
-- Fields

local PROTOCOL_IDS = {[DEEP_PROTOCOL_ID] = "DEEP"}

local tp_fields = {
  version = ProtoField.uint8("quorl_tp.version", "Version"),
  reserved = ProtoField.uint8("quorl_tp.reserved", "Reserved"),
  protocol_id = ProtoField.uint16("quorl_tp.protocol_id", "Protocol id", base.HEX, PROTOCOL_IDS),
  channel_id = ProtoField.uint32("quorl_tp.channel_id", "Channel id"),
  session_id = ProtoField.uint32("quorl_tp.session_id", "Session id"),
  payload_length = ProtoField.uint16("quorl_tp.payload_length", "Payload length"),
  message_count = ProtoField.uint16("quorl_tp.message_count", "Message count"),
  stream_offset = ProtoField.uint64("quorl_tp.stream_offset", "Stream offset"),
  first_seq = ProtoField.uint64("quorl_tp.first_seq", "First sequence number, as announced"),
  send_time = ProtoField.absolute_time("quorl_tp.send_time", "Send time", base.UTC),
  heartbeat = ProtoField.bool("quorl_tp.heartbeat", "Heartbeat"),
  true_first_seq = ProtoField.uint64("quorl_tp.true_first_seq", "First sequence number, true"),
  gap_offset = ProtoField.uint64("quorl_tp.gap.offset", "Gap from stream offset"),
  gap_bytes = ProtoField.uint64("quorl_tp.gap.bytes", "Bytes missing"),
  duplicate_of = ProtoField.framenum("quorl_tp.duplicate_of", "Duplicate of", base.NONE,
                                     frametype.NONE),
  trailing = ProtoField.bytes("quorl_tp.trailing", "Bytes behind the payload"),
}

local SYSTEM_EVENTS = {
  [0x4f] = "start of messages",
  [0x53] = "start of system hours",
  [0x52] = "start of regular market hours",
}
local MESSAGE_NAMES = {
  [0x53] = "System Event",
  [0x44] = "Security Directory",
  [0x48] = "Trading Status",
  [0x4f] = "Operational Halt Status",
  [0x50] = "Short Sale Price Test Status",
  [0x49] = "Retail Liquidity Indicator",
  [0x45] = "Security Event",
  [0x38] = "Price Level Update, buy side",
  [0x35] = "Price Level Update, sell side",
  [0x54] = "Trade Report",
}

local deep_fields = {
  length = ProtoField.uint16("quorl_deep.length", "Length"),
  seq = ProtoField.uint64("quorl_deep.seq", "Sequence number"),
  stream_offset = ProtoField.uint64("quorl_deep.stream_offset", "Stream offset"),
  type = ProtoField.char("quorl_deep.type", "Type", base.HEX, MESSAGE_NAMES),
  timestamp = ProtoField.absolute_time("quorl_deep.timestamp", "Timestamp", base.UTC),
  symbol = ProtoField.string("quorl_deep.symbol", "Symbol"),
  system_event = ProtoField.char("quorl_deep.system_event", "Event", base.HEX, SYSTEM_EVENTS),
  directory_flags = ProtoField.uint8("quorl_deep.directory_flags", "Flags", base.HEX),
  round_lot = ProtoField.uint32("quorl_deep.round_lot", "Round lot size"),
  previous_close = ProtoField.double("quorl_deep.previous_close", "Adjusted previous close"),
  previous_close_raw = ProtoField.int64("quorl_deep.previous_close_raw",
                                        "Adjusted previous close, in ten-thousandths"),
  luld_tier = ProtoField.uint8("quorl_deep.luld_tier", "LULD tier"),
  trading_status = ProtoField.char("quorl_deep.trading_status", "Status", base.HEX,
                                   {[0x54] = "trading"}),
  reason = ProtoField.string("quorl_deep.reason", "Reason"),
  halt_status = ProtoField.char("quorl_deep.halt_status", "Status", base.HEX,
                                {[0x4e] = "not halted"}),
  short_sale_status = ProtoField.uint8("quorl_deep.short_sale_status", "Status", base.DEC,
                                       {[0] = "price test not in effect"}),
  detail = ProtoField.char("quorl_deep.detail", "Detail", base.HEX, {[0x20] = "no price test"}),
  retail_indicator = ProtoField.char("quorl_deep.retail_indicator", "Indicator", base.HEX,
                                     {[0x20] = "no retail interest"}),
  security_event = ProtoField.char("quorl_deep.security_event", "Event", base.HEX,
                                   {[0x4f] = "opening process complete"}),
  event_flags = ProtoField.uint8("quorl_deep.event_flags", "Event flags", base.HEX),
  last_of_event = ProtoField.bool("quorl_deep.event_flags.last", "Last update of its event", 8,
                                  nil, 0x01),
  size = ProtoField.uint32("quorl_deep.size", "Size"),
  price = ProtoField.double("quorl_deep.price", "Price"),
  price_raw = ProtoField.int64("quorl_deep.price_raw", "Price, in ten-thousandths"),
  sale_flags = ProtoField.uint8("quorl_deep.sale_flags", "Sale condition flags", base.HEX),
  odd_lot = ProtoField.bool("quorl_deep.sale_flags.odd_lot", "Odd lot", 8, nil, 0x20),
  trade_id = ProtoField.uint64("quorl_deep.trade_id", "Trade id"),
  other = ProtoField.bytes("quorl_deep.other", "Bytes that no field has"),
}

local gap_fill_fields = {
  version = ProtoField.uint8("quorl_gapfill.version", "Version"),
  kind = ProtoField.uint8("quorl_gapfill.kind", "Kind"),
  protocol_id = ProtoField.uint16("quorl_gapfill.protocol_id", "Protocol id", base.HEX,
                                  PROTOCOL_IDS),
  channel_id = ProtoField.uint32("quorl_gapfill.channel_id", "Channel id"),
  session_id = ProtoField.uint32("quorl_gapfill.session_id", "Session id"),
  range_count = ProtoField.uint32("quorl_gapfill.range_count", "Count of ranges"),
  range = ProtoField.none("quorl_gapfill.range", "Range"),
  first = ProtoField.uint64("quorl_gapfill.first", "First"),
  last = ProtoField.uint64("quorl_gapfill.last", "Last"),
  trailing = ProtoField.bytes("quorl_gapfill.trailing", "Bytes behind the last range"),
  status_query = ProtoField.bool("quorl_gapfill.status_query", "Status query"),
  request = ProtoField.framenum("quorl_gapfill.request", "Latest request", base.NONE,
                                frametype.REQUEST),
  reply = ProtoField.framenum("quorl_gapfill.reply", "First reply", base.NONE,
                              frametype.RESPONSE),
}

local SNAP_TYPES = {
  [0x72] = "request",
  [0x65] = "error",
  [0x73] = "start",
  [0x64] = "data",
  [0x78] = "end",
}
local SNAP_ERRORS = {
  [0x55] = "not a request, or too short",
  [0x41] = "the name is empty",
  [0x43] = "the channel is not 1",
  [0x53] = "not this session",
  [0x52] = "the minimum lies ahead of the feed",
}

local snap_fields = {
  length = ProtoField.uint16("quorl_snap.length", "Length"),
  type = ProtoField.char("quorl_snap.type", "Type", base.HEX, SNAP_TYPES),
  name = ProtoField.string("quorl_snap.name", "Name"),
  channel_id = ProtoField.uint32("quorl_snap.channel_id", "Channel id"),
  session_id = ProtoField.uint32("quorl_snap.session_id", "Session id"),
  minimum_seq = ProtoField.uint64("quorl_snap.minimum_seq", "Minimum sequence number"),
  error_code = ProtoField.char("quorl_snap.error_code", "Code", base.HEX, SNAP_ERRORS),
  total_bytes = ProtoField.uint64("quorl_snap.total_bytes", "Bytes of the whole reply"),
  seq = ProtoField.uint64("quorl_snap.seq", "Sequence number of the image"),
  trailing = ProtoField.bytes("quorl_snap.trailing", "Bytes behind the last field"),
}

local function values(fields)
  local list = {}
  for _, field in pairs(fields) do list[#list + 1] = field end
  return list
end
tp.fields = values(tp_fields)
deep.fields = values(deep_fields)
gap_fill.fields = values(gap_fill_fields)
snap.fields = values(snap_fields)

---------------------------------------------------------------------------------------------------
-- Expert notes

local function note(name, text, group, severity)
  return ProtoExpert.new(name, text, expert.group[group], expert.severity[severity])
end

local tp_notes = {
  gap = note("quorl_tp.gap", "Gap in the stream", "SEQUENCE", "WARN"),
  one_too_high = note("quorl_tp.one_too_high", "The first number announced is one too high",
                      "SEQUENCE", "NOTE"),
  bad_number = note("quorl_tp.bad_number", "The first number does not follow", "SEQUENCE", "WARN"),
  duplicate = note("quorl_tp.duplicate", "Duplicate packet", "SEQUENCE", "NOTE"),
  out_of_order = note("quorl_tp.out_of_order", "Out of order", "SEQUENCE", "NOTE"),
  cut_short = note("quorl_tp.cut_short", "Cut short", "MALFORMED", "ERROR"),
  malformed = note("quorl_tp.malformed", "Malformed packet", "MALFORMED", "ERROR"),
}
local deep_notes = {
  cut_short = note("quorl_deep.cut_short", "Cut short", "MALFORMED", "ERROR"),
  unknown = note("quorl_deep.unknown", "Unknown message type", "UNDECODED", "WARN"),
  too_long = note("quorl_deep.too_long", "Longer than its type", "MALFORMED", "WARN"),
}
local gap_fill_notes = {
  refused = note("quorl_gapfill.refused", "The exchange refuses this request", "PROTOCOL", "WARN"),
  other_session = note("quorl_gapfill.other_session", "Not the session of the exchange's feed",
                       "PROTOCOL", "NOTE"),
  cut_short = note("quorl_gapfill.cut_short", "Cut short", "MALFORMED", "ERROR"),
}
local snap_notes = {
  refused = note("quorl_snap.refused", "The request is refused", "RESPONSE_CODE", "NOTE"),
  cut_short = note("quorl_snap.cut_short", "Cut short", "MALFORMED", "ERROR"),
  malformed = note("quorl_snap.malformed", "Not a frame of DEEP SNAP", "MALFORMED", "ERROR"),
}
tp.experts = values(tp_notes)
deep.experts = values(deep_notes)
gap_fill.experts = values(gap_fill_notes)
snap.experts = values(snap_notes)

---------------------------------------------------------------------------------------------------
-- Reading. Whoever calls has seen to it that the bytes are there: a range beyond the end of the
-- packet is an error of Lua's.

local function u64(tvb, at) return tvb(at, 8):le_uint64():tonumber() end

-- Whole numbers of any size: "%d" fails beyond 63 bits.
local function whole(number) return string.format("%.0f", number) end

local function count_of(number, word)
  return whole(number) .. " " .. word .. (number == 1 and "" or "s")
end

local function symbol_text(range) return (range:string(ENC_ASCII):gsub(" *$", "")) end

-- Ten-thousandths of a dollar as "190.0600", exact for all 64 bits.
local function price_text(raw)
  local sign, digits = tostring(raw):match("^(%-?)(%d+)$")
  digits = string.rep("0", 5 - #digits) .. digits
  return sign .. digits:sub(1, -5) .. "." .. digits:sub(-4)
end

local NS_PER_S = 1000000000

local function add_plain(tree, field, range) return tree:add_le(field, range) end

local function add_time(tree, field, range)
  local ns = range:le_uint64()
  tree:add(field, range, NSTime.new((ns / NS_PER_S):tonumber(), (ns % NS_PER_S):tonumber()))
end

local function add_symbol(tree, field, range) tree:add(field, range, symbol_text(range)) end

local function add_text(tree, field, range) tree:add(field, range, range:string(ENC_ASCII)) end

-- Two fields over the same bytes: dollars, to be compared with in filters, and the number as sent.
local function add_price(tree, field, range, raw_field, label)
  local raw = range:le_int64()
  tree:add(field, range, raw:tonumber() / 10000):set_text(label .. ": " .. price_text(raw))
  tree:add_le(raw_field, range)
end

local function add_flags(tree, field, range, bit)
  tree:add_le(field, range):add_le(bit, range)
end

local function add_generated(tree, field, value)
  return tree:add(field, value):set_generated()
end

-- Fields as {offset, size, field, how to add it, what that takes besides}. Adds those that lie ahead of
-- `limit` and returns whether all do.
local function add_fields(tree, tvb, at, limit, layout)
  for _, entry in ipairs(layout) do
    local begin, size = at + entry[1], entry[2]
    if begin + size > limit then return false end
    local add = entry[4] or add_plain
    add(tree, entry[3], tvb(begin, size), entry[5], entry[6])
  end
  return true
end

local function size_of(layout)
  local last = layout[#layout]
  return last[1] + last[2]
end

---------------------------------------------------------------------------------------------------
-- DEEP messages

local TYPE_FIELD = {0, 1, deep_fields.type}
local TIMESTAMP_FIELD = {2, 8, deep_fields.timestamp, add_time}
local SYMBOL_FIELD = {10, 8, deep_fields.symbol, add_symbol}

local LEVEL_LAYOUT = {
  TYPE_FIELD,
  {1, 1, deep_fields.event_flags, add_flags, deep_fields.last_of_event},
  TIMESTAMP_FIELD,
  SYMBOL_FIELD,
  {18, 4, deep_fields.size},
  {22, 8, deep_fields.price, add_price, deep_fields.price_raw, "Price"},
}

local DEEP_LAYOUTS = {  -- by the type byte
  [0x53] = {TYPE_FIELD, {1, 1, deep_fields.system_event}, TIMESTAMP_FIELD},
  [0x44] = {
    TYPE_FIELD,
    {1, 1, deep_fields.directory_flags},
    TIMESTAMP_FIELD,
    SYMBOL_FIELD,
    {18, 4, deep_fields.round_lot},
    {22, 8, deep_fields.previous_close, add_price, deep_fields.previous_close_raw,
     "Adjusted previous close"},
    {30, 1, deep_fields.luld_tier},
  },
  [0x48] = {
    TYPE_FIELD,
    {1, 1, deep_fields.trading_status},
    TIMESTAMP_FIELD,
    SYMBOL_FIELD,
    {18, 4, deep_fields.reason, add_text},
  },
  [0x4f] = {TYPE_FIELD, {1, 1, deep_fields.halt_status}, TIMESTAMP_FIELD, SYMBOL_FIELD},
  [0x50] = {
    TYPE_FIELD,
    {1, 1, deep_fields.short_sale_status},
    TIMESTAMP_FIELD,
    SYMBOL_FIELD,
    {18, 1, deep_fields.detail},
  },
  [0x49] = {TYPE_FIELD, {1, 1, deep_fields.retail_indicator}, TIMESTAMP_FIELD, SYMBOL_FIELD},
  [0x45] = {TYPE_FIELD, {1, 1, deep_fields.security_event}, TIMESTAMP_FIELD, SYMBOL_FIELD},
  [0x38] = LEVEL_LAYOUT,
  [0x35] = LEVEL_LAYOUT,
  [0x54] = {
    TYPE_FIELD,
    {1, 1, deep_fields.sale_flags, add_flags, deep_fields.odd_lot},
    TIMESTAMP_FIELD,
    SYMBOL_FIELD,
    {18, 4, deep_fields.size},
    {22, 8, deep_fields.price, add_price, deep_fields.price_raw, "Price"},
    {30, 8, deep_fields.trade_id},
  },
}

-- A whole message in a line: "Price Level Update, sell side: AAPL 700 @ 190.0600, last of its event".
local function describe(tvb, at)
  local type = tvb(at, 1):uint()
  local name = MESSAGE_NAMES[type]
  if type == 0x53 then
    return name .. ": " .. (SYSTEM_EVENTS[tvb(at + 1, 1):uint()] or "unknown")
  end
  local text = name .. ": " .. symbol_text(tvb(at + 10, 8))
  if DEEP_LAYOUTS[type] == LEVEL_LAYOUT or type == 0x54 then
    text = text .. string.format(" %.0f @ %s", tvb(at + 18, 4):le_uint(),
                                 price_text(tvb(at + 22, 8):le_int64()))
  end
  if DEEP_LAYOUTS[type] == LEVEL_LAYOUT and tvb(at + 1, 1):uint() % 2 == 1 then
    text = text .. ", last of its event"
  end
  return text
end

-- One block: its 2-byte length, of which the caller has made sure, and the message. Bytes beyond
-- `limit` are not there. `seq` is the true number; neither it nor the stream offset is known to all
-- callers.
local function add_message(tree, tvb, at, limit, seq, stream_offset)
  local length = tvb(at, 2):le_uint()
  local body = at + 2
  local stop = math.min(body + length, limit)
  local item = tree:add(deep, tvb(at, stop - at))
  item:add_le(deep_fields.length, tvb(at, 2))
  if seq then add_generated(item, deep_fields.seq, UInt64.new(seq)) end
  if stream_offset then
    add_generated(item, deep_fields.stream_offset, UInt64.new(stream_offset))
  end
  if stop == body then
    item:set_text("DEEP message of no bytes")
    item:add_proto_expert_info(deep_notes.cut_short, "Cut short: a message of no bytes")
    return item
  end
  local type = tvb(body, 1):uint()
  local layout = DEEP_LAYOUTS[type]
  if not layout then
    item:set_text("DEEP message of an unknown type")
    item:add_le(deep_fields.type, tvb(body, 1)):add_proto_expert_info(deep_notes.unknown)
    if stop > body + 1 then item:add(deep_fields.other, tvb(body + 1, stop - body - 1)) end
    return item
  end
  local size = size_of(layout)
  if add_fields(item, tvb, body, stop, layout) then
    item:set_text(describe(tvb, body))
    if length > size then
      item:add_proto_expert_info(
        deep_notes.too_long,
        string.format("Longer than its type: %d bytes and not %d", length, size))
      if stop > body + size then
        item:add(deep_fields.other, tvb(body + size, stop - body - size))
      end
    end
  else
    item:set_text(MESSAGE_NAMES[type] .. ", cut short")
    item:add_proto_expert_info(
      deep_notes.cut_short,
      string.format("Cut short: %d bytes of the %d that its type has", stop - body, size))
  end
  return item
end

-- Blocks come here from the packets' dissectors. This one serves whoever has one alone; and by it
-- Wireshark tells whether a filter or a column wants anything of a message.
function deep.dissector(tvb, pinfo, tree)
  if tvb:captured_len() >= 2 then add_message(tree, tvb, 0, tvb:captured_len()) end
  return tvb:captured_len()
end
local DEEP_DISSECTOR = Dissector.get("quorl_deep")

---------------------------------------------------------------------------------------------------
-- What is known of the stream. All of it is taken in when a frame is dissected for the first time,
-- in the order of the capture, and kept by frame number: the window asks for frames again, in any
-- order.
--
-- The stream offset of a packet is always true, the first number it announces is true or one too
-- high: that only if the packet was begun for a message that did not fit behind those of the packet
-- before. A run is a stretch of the stream without a hole. Within a run all numbers are known but
-- for that of its first message, which lies from `low` to `high`; each packet of the run narrows
-- that down, and so do a heartbeat, a gap fill reply and an image, whose numbers are always true.

local streams      -- by session, channel, group and port
local by_server    -- lists of streams, by the exchange's address, then by session
local addresses    -- those seen, so that each has a number
local run_of       -- by frame: the run of a packet or heartbeat
local position_of  -- by frame: messages of that run ahead of it
local gap_of       -- by frame: what is missing ahead of it
local duplicate_of -- by frame: the frame with the first copy
local late         -- by frame: true if it came behind later packets
local latest_request  -- by client and server: the frame of the latest gap fill request
local request_of      -- by frame of a reply
local reply_of        -- by frame of a request: the first reply
local other_session   -- by frame of a request: true if the feed was seen under another session only

local function forget_all()
  streams, by_server, addresses = {}, {}, {}
  run_of, position_of, gap_of, duplicate_of, late = {}, {}, {}, {}, {}
  latest_request, request_of, reply_of, other_session = {}, {}, {}, {}
end
forget_all()

-- A new capture, or the same one from the start again: preferences have changed.
function quorl.init() forget_all() end

-- The text of an address can change while names are being resolved.
local function number_of(address)
  for number, known in ipairs(addresses) do
    if known == address then return number end
  end
  addresses[#addresses + 1] = address
  return #addresses
end

local function new_run(stream, offset)
  local run = {stop = offset, count = 0, low = 1, high = math.huge}
  if offset == 0 then run.high = 1 end  -- where number 1 begins
  stream.run_from[offset] = run
  stream.run_to[offset] = run
  return run
end

-- Takes over what a message of a run can be numbered, unless that contradicts what is known.
local function narrow(run, position, low, high)
  low = math.max(run.low, low - position)
  high = math.min(run.high, high - position)
  if low <= high then run.low, run.high = low, high end
end

-- Adds a packet at the end of the run.
local function grow(stream, run, length, count)
  stream.run_to[run.stop] = nil
  run.stop = run.stop + length
  run.last_length = length
  run.count = run.count + count
  local next_run = stream.run_from[run.stop]
  if next_run then  -- the hole between the two is closed
    stream.run_from[run.stop] = nil
    next_run.joined, next_run.position = run, run.count
    narrow(run, run.count, next_run.low, next_run.high)
    run.stop = next_run.stop
    run.last_length = next_run.last_length or length
    run.count = run.count + next_run.count
  end
  stream.run_to[run.stop] = run
end

-- The true number of what lies `position` messages into the run, or nil while it is in doubt.
local function true_number(run, position)
  while run.joined do
    position = position + run.position
    run = run.joined
  end
  if run.low == run.high then return run.low + position end
end

local function anchor(stream, offset, seq)
  local run = stream.run_to[offset]
  if run then return narrow(run, run.count, seq, seq) end
  run = stream.run_from[offset]
  if run then narrow(run, 0, seq, seq) end
end

-- A true number that has come beside the feed: from the exchange at `address`.
local function anchor_all(address, session, offset, seq)
  if offset > LARGEST_EXACT or seq > LARGEST_EXACT then return end
  local sessions = by_server[number_of(address)]
  for _, stream in ipairs(sessions and sessions[session] or {}) do anchor(stream, offset, seq) end
end

local function stream_of(tvb, pinfo)
  local session = tvb(8, 4):le_uint()
  local key = table.concat({session, tvb(4, 4):le_uint(), number_of(pinfo.dst), pinfo.dst_port}, " ")
  local stream = streams[key]
  if not stream then
    stream = {
      run_from = {},  -- runs by the stream offset at which they begin
      run_to = {},    -- and at which they end
      seen = {},      -- frames by stream offset
    }
    streams[key] = stream
    local server = number_of(pinfo.src)
    by_server[server] = by_server[server] or {}
    by_server[server][session] = by_server[server][session] or {}
    table.insert(by_server[server][session], stream)
  end
  return stream
end

local function note_place(stream, frame, offset, stop)
  if stream.stop and offset > stream.stop then
    local before = stream.run_to[stream.stop]
    gap_of[frame] = {offset = stream.stop, bytes = offset - stream.stop,
                     before = before, position = before.count}
  elseif stream.stop and offset < stream.stop then
    late[frame] = true
  end
  stream.stop = math.max(stream.stop or stop, stop)
end

-- A packet of the feed whose parts agree with each other.
local function take_in(tvb, pinfo)
  local frame = pinfo.number
  if pinfo.visited or pinfo.in_error_pkt or run_of[frame] then return end
  local length, count = tvb(12, 2):le_uint(), tvb(14, 2):le_uint()
  local offset, announced = u64(tvb, 16), u64(tvb, 24)
  if offset > LARGEST_EXACT or announced > LARGEST_EXACT then return end
  local stream = stream_of(tvb, pinfo)
  if count == 0 then
    note_place(stream, frame, offset, offset)
    local run = stream.run_to[offset] or new_run(stream, offset)
    run_of[frame], position_of[frame] = run, run.count
    narrow(run, run.count, announced, announced)
    return
  end
  local first_copy = stream.seen[offset]
  if first_copy then
    duplicate_of[frame] = first_copy
    run_of[frame], position_of[frame] = run_of[first_copy], position_of[first_copy]
    return
  end
  stream.seen[offset] = frame
  note_place(stream, frame, offset, offset + length)
  local run = stream.run_to[offset] or new_run(stream, offset)
  run_of[frame], position_of[frame] = run, run.count
  -- The most that the packet before can have carried, if it has come or lies in the gap ahead.
  local before = run.last_length or gap_of[frame] and gap_of[frame].bytes
  local first_block = 2 + tvb(TP_HEADER_SIZE, 2):le_uint()
  local had_room = before and TP_HEADER_SIZE + before + first_block <= TP_MAX_PACKET
  narrow(run, run.count, had_room and announced or math.max(announced - 1, 1), announced)
  grow(stream, run, length, count)
end

---------------------------------------------------------------------------------------------------
-- IEX-TP packets

local TP_LAYOUT = {
  {0, 1, tp_fields.version},
  {1, 1, tp_fields.reserved},
  {2, 2, tp_fields.protocol_id},
  {4, 4, tp_fields.channel_id},
  {8, 4, tp_fields.session_id},
  {12, 2, tp_fields.payload_length},
  {14, 2, tp_fields.message_count},
  {16, 8, tp_fields.stream_offset},
  {24, 8, tp_fields.first_seq},
  {32, 8, tp_fields.send_time, add_time},
}

-- Whether version, protocol and channel are the exchange's, the blocks fill the payload exactly and
-- are as many as announced, and all bytes have been captured; and if so, whether every message is of
-- a known type and has its size.
local function is_sound(tvb)
  local size = tvb:reported_len()
  if size < TP_HEADER_SIZE or tvb:captured_len() < size then return false end
  if tvb(0, 1):uint() ~= TP_VERSION or tvb(1, 1):uint() ~= 0 or
     tvb(2, 2):le_uint() ~= DEEP_PROTOCOL_ID or tvb(4, 4):le_uint() ~= DEEP_CHANNEL or
     tvb(12, 2):le_uint() ~= size - TP_HEADER_SIZE or u64(tvb, 24) == 0 then
    return false
  end
  local at, left, all_known = TP_HEADER_SIZE, tvb(14, 2):le_uint(), true
  while at < size do
    if left == 0 or at + 2 >= size then return false end
    local length = tvb(at, 2):le_uint()
    if length == 0 or at + 2 + length > size then return false end
    local layout = DEEP_LAYOUTS[tvb(at + 2, 1):uint()]
    if not layout or size_of(layout) ~= length then all_known = false end
    at = at + 2 + length
    left = left - 1
  end
  return left == 0, all_known
end

-- For bytes that may be anybody's: sound to the last message, and of this century.
local function is_surely_ours(tvb)
  local sound, all_known = is_sound(tvb)
  if not sound or not all_known then return false end
  local seconds = u64(tvb, 32) / NS_PER_S
  return seconds > 946684800 and seconds < 4102444800  -- 2000 to 2100
end

-- Adds the payload's messages, from number `seq` on if that is known, and returns how many of each
-- kind they are: "2 Price Level Updates".
local function add_payload(item, tvb, seq)
  local captured = tvb:captured_len()
  local payload_length, announced = tvb(12, 2):le_uint(), tvb(14, 2):le_uint()
  local stop = TP_HEADER_SIZE + payload_length
  local limit = math.min(stop, captured)
  local stream_offset = u64(tvb, 16)
  local at, count = TP_HEADER_SIZE, 0
  while at + 2 <= limit do
    add_message(item, tvb, at, limit, seq and seq + count, stream_offset + at - TP_HEADER_SIZE)
    at = at + 2 + tvb(at, 2):le_uint()
    count = count + 1
  end
  if captured < stop then
    item:add_proto_expert_info(
      tp_notes.cut_short, string.format("Cut short: %d bytes of payload and not %d",
                                        captured - TP_HEADER_SIZE, payload_length))
  elseif at ~= stop or count ~= announced then
    item:add_proto_expert_info(
      tp_notes.malformed, string.format("Malformed packet: %s in %d bytes do not make %d in %d",
                                        count_of(count, "block"), at - TP_HEADER_SIZE, announced,
                                        payload_length))
  end
  if captured > stop then item:add(tp_fields.trailing, tvb(stop, captured - stop)) end
end

-- "messages 50 to 98"; if the last of them is in doubt, with the other number that it can have.
local function missing_text(gap, announced, true_first)
  local first = true_number(gap.before, gap.position)
  if not first then return "" end
  local last = (true_first or announced) - 1
  local text = string.format(", messages %.0f to %.0f", first, last)
  return true_first and text or text .. " or " .. whole(last - 1)
end

local function add_stream_notes(item, pinfo, count, announced, true_first)
  local frame = pinfo.number
  local texts = {}
  local function say(expert_note, text)
    item:add_proto_expert_info(expert_note, text)
    texts[#texts + 1] = text
  end
  local gap = gap_of[frame]
  if gap then
    add_generated(item, tp_fields.gap_offset, UInt64.new(gap.offset))
    add_generated(item, tp_fields.gap_bytes, UInt64.new(gap.bytes))
    say(tp_notes.gap, string.format("Gap: %s missing from stream offset %.0f on%s",
                                    count_of(gap.bytes, "byte"), gap.offset,
                                    missing_text(gap, announced, true_first)))
  end
  if duplicate_of[frame] then
    add_generated(item, tp_fields.duplicate_of, duplicate_of[frame])
    say(tp_notes.duplicate, "Duplicate of frame " .. whole(duplicate_of[frame]))
  end
  if late[frame] then say(tp_notes.out_of_order, "Out of order: behind later packets") end
  if true_first then
    add_generated(item, tp_fields.true_first_seq, UInt64.new(true_first))
    if announced == true_first + 1 and count > 0 then
      say(tp_notes.one_too_high,
          string.format("One too high: announces %.0f, begins with %.0f", announced, true_first))
    elseif announced ~= true_first then
      say(tp_notes.bad_number, string.format("The first number does not follow: %.0f and not %.0f",
                                             announced, true_first))
    end
  end
  return #texts > 0 and " [" .. table.concat(texts, "; ") .. "]" or ""
end

local function numbers_text(first, count)
  if count == 1 then return "message " .. whole(first) end
  return string.format("%d messages, %.0f to %.0f", count, first, first + count - 1)
end

-- One packet of the feed, or of gap fill, whose numbers are always true. Returns a line about it.
local function add_packet(tvb, pinfo, tree, of_feed)
  local captured = tvb:captured_len()
  local item = tree:add(tp, tvb())
  local whole_header = add_fields(item, tvb, 0, captured, TP_LAYOUT)
  if tvb:reported_len() > captured then
    item:add_proto_expert_info(tp_notes.cut_short, string.format(
      "Cut short by the capture: %d bytes of %d", captured, tvb:reported_len()))
  end
  if not whole_header then
    item:add_proto_expert_info(tp_notes.cut_short, string.format(
      "Cut short: %d bytes are no header of IEX-TP", captured))
    item:append_text(", cut short")
    return "Cut short: " .. count_of(captured, "byte")
  end
  local count, announced = tvb(14, 2):le_uint(), u64(tvb, 24)
  local first, notes = announced, ""
  local settled = not of_feed
  local sound, all_known = is_sound(tvb)
  if of_feed then
    if sound then take_in(tvb, pinfo) end
    local run = run_of[pinfo.number]
    local true_first = run and true_number(run, position_of[pinfo.number])
    notes = add_stream_notes(item, pinfo, count, announced, true_first)
    settled = true_first ~= nil
    first = true_first or announced
  end
  -- Messages are most of the work. A list of packets shows none of them, nor is there a note to be
  -- made of one if all are as they should be.
  if not all_known or item.visible or item:referenced(DEEP_DISSECTOR) then
    add_payload(item, tvb, settled and first or nil)
  end
  local text
  if count > 0 then
    text = numbers_text(first, count)
  elseif of_feed then
    text = "Heartbeat, next is " .. whole(announced)
    add_generated(item, tp_fields.heartbeat, true)
  else
    text = "Status, next is " .. whole(announced)
  end
  item:append_text(string.format(", session %.0f, %s", tvb(8, 4):le_uint(), text))
  return text .. notes
end

local function dissect_feed(tvb, pinfo, tree)
  if tvb:captured_len() == 0 then return 0 end
  pinfo.cols.protocol = "DEEP"
  pinfo.cols.info = add_packet(tvb, pinfo, tree, true)
  return tvb:captured_len()
end
tp.dissector = dissect_feed

---------------------------------------------------------------------------------------------------
-- Gap fill

local REQUEST_LAYOUT = {
  {0, 1, gap_fill_fields.version},
  {1, 1, gap_fill_fields.kind},
  {2, 2, gap_fill_fields.protocol_id},
  {4, 4, gap_fill_fields.channel_id},
  {8, 4, gap_fill_fields.session_id},
  {12, 4, gap_fill_fields.range_count},
}

-- Why the exchange drops a request, or nil; the tests stand in its order. Ranges that have not been
-- captured are taken to be good.
local function reason_to_refuse(tvb)
  local captured = tvb:captured_len()
  local size = math.min(tvb:reported_len(), LARGEST_REQUEST)
  if size < GAP_FILL_HEADER_SIZE then return "shorter than 16 bytes" end
  if captured < GAP_FILL_HEADER_SIZE then return nil end
  if tvb(0, 1):uint() ~= 1 then return "the version is not 1" end
  local kind = tvb(1, 1):uint()
  if kind ~= 1 and kind ~= 2 then return "the kind is not 1" end
  local count = tvb(12, 4):le_uint()
  if GAP_FILL_HEADER_SIZE + count * RANGE_SIZE > size then
    return "it has not as many ranges as it says"
  end
  local previous_last
  for i = 1, count do
    local at = GAP_FILL_HEADER_SIZE + (i - 1) * RANGE_SIZE
    if at + RANGE_SIZE > captured then break end
    local first, last = tvb(at, 8):le_uint64(), tvb(at + 8, 8):le_uint64()
    if last < first then return "a range ends before it begins" end
    if previous_last and first <= previous_last then return "the ranges do not rise" end
    previous_last = last
  end
  if kind ~= 1 then return "the kind is not 1" end
  if tvb(2, 2):le_uint() ~= DEEP_PROTOCOL_ID then return "the protocol is not DEEP" end
  if tvb(4, 4):le_uint() ~= DEEP_CHANNEL then return "the channel is not 1" end
end

local function take_in_request(tvb, pinfo)
  if pinfo.visited or pinfo.in_error_pkt then return end
  local client = number_of(pinfo.src) .. " " .. pinfo.src_port
  latest_request[client .. " " .. number_of(pinfo.dst) .. " " .. pinfo.dst_port] = pinfo.number
  if tvb:captured_len() < GAP_FILL_HEADER_SIZE then return end
  local sessions = by_server[number_of(pinfo.dst)]
  if sessions and not sessions[tvb(8, 4):le_uint()] then other_session[pinfo.number] = true end
end

local function add_ranges(item, tvb)
  local captured, count = tvb:captured_len(), tvb(12, 4):le_uint()
  local at, texts = GAP_FILL_HEADER_SIZE, {}
  while count > 0 and at + RANGE_SIZE <= captured do
    local range = item:add(gap_fill_fields.range, tvb(at, RANGE_SIZE))
    local text = string.format("%s to %s", tostring(tvb(at, 8):le_uint64()),
                               tostring(tvb(at + 8, 8):le_uint64()))
    range:set_text("Range: " .. text)
    range:add_le(gap_fill_fields.first, tvb(at, 8))
    range:add_le(gap_fill_fields.last, tvb(at + 8, 8))
    if #texts < 4 then texts[#texts + 1] = text end
    at = at + RANGE_SIZE
    count = count - 1
  end
  if count > 0 then
    item:add_proto_expert_info(gap_fill_notes.cut_short, "Cut short: " ..
                               count_of(count, "range") .. " missing")
  elseif at < captured then
    item:add(gap_fill_fields.trailing, tvb(at, captured - at))
  end
  return table.concat(texts, ", ")
end

local function add_request(tvb, pinfo, tree)
  take_in_request(tvb, pinfo)
  local captured = tvb:captured_len()
  local item = tree:add(gap_fill, tvb())
  local text = "Request"
  if add_fields(item, tvb, 0, captured, REQUEST_LAYOUT) then
    local count = tvb(12, 4):le_uint()
    if count == 0 then
      text = "Status query"
      add_generated(item, gap_fill_fields.status_query, true)
    end
    local ranges = add_ranges(item, tvb)
    if count > 0 then text = string.format("Request for %s%s", ranges, count > 4 and " ..." or "") end
  else
    item:add_proto_expert_info(gap_fill_notes.cut_short, string.format(
      "Cut short: %d bytes are no request", captured))
  end
  local reason = reason_to_refuse(tvb)
  if reason then
    item:add_proto_expert_info(gap_fill_notes.refused, "Refused: " .. reason)
    text = text .. " [refused: " .. reason .. "]"
  elseif other_session[pinfo.number] then
    item:add_proto_expert_info(gap_fill_notes.other_session)
    text = text .. " [not the feed's session]"
  end
  if reply_of[pinfo.number] then
    add_generated(item, gap_fill_fields.reply, reply_of[pinfo.number])
  end
  item:append_text(", " .. text)
  return text
end

-- The numbers of a reply are true: they settle those of the feed.
local function take_in_reply(tvb, pinfo)
  if pinfo.visited or pinfo.in_error_pkt then return end
  local client = number_of(pinfo.dst) .. " " .. pinfo.dst_port
  local request = latest_request[client .. " " .. number_of(pinfo.src) .. " " .. pinfo.src_port]
  if request then
    request_of[pinfo.number] = request
    reply_of[request] = reply_of[request] or pinfo.number
  end
  if not is_sound(tvb) then return end
  local session, offset, seq = tvb(8, 4):le_uint(), u64(tvb, 16), u64(tvb, 24)
  local at = TP_HEADER_SIZE
  anchor_all(pinfo.src, session, offset, seq)
  while at < tvb:captured_len() do
    at = at + 2 + tvb(at, 2):le_uint()
    seq = seq + 1
    anchor_all(pinfo.src, session, offset + at - TP_HEADER_SIZE, seq)
  end
end

local function add_reply(tvb, pinfo, tree)
  take_in_reply(tvb, pinfo)
  local item = tree:add(gap_fill, tvb())
  item:append_text(", reply")
  if request_of[pinfo.number] then
    add_generated(item, gap_fill_fields.request, request_of[pinfo.number])
  end
  return "Reply: " .. add_packet(tvb, pinfo, item, false)
end

-- The port tells requests from replies. Where it does not, since the packets came here by what they
-- carry, it is the second byte, which is 0 in every packet of the exchange.
local function is_reply(tvb, pinfo)
  if pinfo.src_port ~= pinfo.dst_port then
    if pinfo.match_uint == pinfo.dst_port then return false end
    if pinfo.match_uint == pinfo.src_port then return true end
  end
  return tvb:captured_len() > 1 and tvb(1, 1):uint() == 0
end

local function dissect_gap_fill(tvb, pinfo, tree)
  if tvb:captured_len() == 0 then return 0 end
  pinfo.cols.protocol = "DEEP gap fill"
  local add = is_reply(tvb, pinfo) and add_reply or add_request
  pinfo.cols.info = add(tvb, pinfo, tree)
  return tvb:captured_len()
end
gap_fill.dissector = dissect_gap_fill

---------------------------------------------------------------------------------------------------
-- DEEP SNAP

local SNAP_HEADER_LAYOUT = {{0, 2, snap_fields.length}, {2, 1, snap_fields.type}}
local SNAP_REQUEST_LAYOUT = {
  {3, 40, snap_fields.name, function(tree, field, range)
    tree:add(field, range, (range:string(ENC_ASCII):gsub("[ %z]*$", "")))
  end},
  {43, 4, snap_fields.channel_id},
  {47, 4, snap_fields.session_id},
  {51, 8, snap_fields.minimum_seq},
}
local SNAP_BODY_LAYOUTS = {  -- by the type byte
  [0x72] = SNAP_REQUEST_LAYOUT,
  [0x65] = {{3, 1, snap_fields.error_code}},
  [0x73] = {{3, 8, snap_fields.total_bytes}},
  [0x78] = {{3, 8, snap_fields.seq}},
}
local SNAP_DATA_BLOCK = 3 + TP_HEADER_SIZE  -- where the message's block stands in a data frame

local function add_data(item, tvb, at, stop)
  local header = item:add(tp, tvb(at + 3, math.min(TP_HEADER_SIZE, stop - at - 3)))
  header:append_text(", header of an image's message")
  if not add_fields(header, tvb, at + 3, stop, TP_LAYOUT) or at + SNAP_DATA_BLOCK + 2 > stop then
    item:add_proto_expert_info(snap_notes.cut_short, "Cut short: a data frame without a message")
    return
  end
  local block = at + SNAP_DATA_BLOCK
  add_message(item, tvb, block, stop)
  if block + 2 + tvb(block, 2):le_uint() < stop then
    item:add_proto_expert_info(snap_notes.malformed, "Malformed: bytes behind the message")
  end
end

-- One frame, from `at` to `stop`, of which the first two bytes are there. Returns a word about it,
-- and whether it is one of an image's messages.
local function add_frame(tvb, pinfo, tree, at, stop)
  local item = tree:add(snap, tvb(at, stop - at))
  if not add_fields(item, tvb, at, stop, SNAP_HEADER_LAYOUT) then
    item:add_proto_expert_info(snap_notes.cut_short, "Cut short: a frame without a type")
    return "Cut short"
  end
  local type = tvb(at + 2, 1):uint()
  local name = SNAP_TYPES[type]
  if not name then
    item:add_proto_expert_info(snap_notes.malformed)
    return "Not a frame"
  end
  item:append_text(", " .. name)
  if type == 0x64 then
    if at + 3 == stop then
      item:add_proto_expert_info(snap_notes.cut_short, "Cut short: a data frame without a header")
    else
      add_data(item, tvb, at, stop)
    end
    return nil, true
  end
  local layout = SNAP_BODY_LAYOUTS[type]
  local complete = add_fields(item, tvb, at, stop, layout)
  local body = at + size_of(layout)
  if not complete then
    item:add_proto_expert_info(snap_notes.cut_short, string.format(
      "Cut short: a frame of %d bytes and not %d", stop - at, size_of(layout)))
    return "Cut short: " .. name
  end
  if stop > body then item:add(snap_fields.trailing, tvb(body, stop - body)) end
  if type == 0x72 then
    return string.format("Request by %s, minimum %.0f",
                         (tvb(at + 3, 40):string(ENC_ASCII):gsub("[ %z]*$", "")), u64(tvb, at + 51))
  elseif type == 0x65 then
    local reason = SNAP_ERRORS[tvb(at + 3, 1):uint()] or "unknown code"
    item:add_proto_expert_info(snap_notes.refused, "Refused: " .. reason)
    return "Refused: " .. reason
  elseif type == 0x73 then
    return "Image of " .. count_of(u64(tvb, at + 3), "byte")
  end
  return "Image ends at " .. whole(u64(tvb, at + 3))
end

-- An image says where it stands: its number is that of the message ahead of its stream offset.
local function take_in_image(tvb, pinfo, at, stop)
  if pinfo.visited or stop - at < SNAP_DATA_BLOCK or tvb(at + 2, 1):uint() ~= 0x64 then return end
  anchor_all(pinfo.src, tvb(at + 11, 4):le_uint(), u64(tvb, at + 19), u64(tvb, at + 27) + 1)
end

local function dissect_snap(tvb, pinfo, tree)
  local captured = tvb:captured_len()
  if captured == 0 then return 0 end
  local all_there = captured == tvb:reported_len() and pinfo.can_desegment > 0
  local at, words, messages, place = 0, {}, 0, nil
  while at < captured do
    if all_there and captured - at < 2 then
      pinfo.desegment_offset, pinfo.desegment_len = at, DESEGMENT_ONE_MORE_SEGMENT
      break
    end
    local stop = captured - at < 2 and captured + 1 or at + 2 + tvb(at, 2):le_uint()
    if stop > captured then
      if all_there then
        pinfo.desegment_offset, pinfo.desegment_len = at, stop - captured
        break
      end
      tree:add(snap, tvb(at)):add_proto_expert_info(snap_notes.cut_short)
      words[#words + 1] = "Cut short"
      break
    end
    local word, is_message = add_frame(tvb, pinfo, tree, at, stop)
    take_in_image(tvb, pinfo, at, stop)
    if word then words[#words + 1] = word end
    if is_message then
      messages = messages + 1
      place = place or #words + 1
    end
    at = stop
  end
  if messages > 0 then table.insert(words, place, count_of(messages, "image message")) end
  pinfo.cols.protocol = "DEEP SNAP"
  pinfo.cols.info = table.concat(words, ", ") .. " "
  pinfo.cols.info:fence()
  return captured
end
snap.dissector = dissect_snap

---------------------------------------------------------------------------------------------------
-- Ports

local WIRES = {  -- preference, label, the exchange's default, table, dissector
  {"feed_ports", "Feed UDP ports", "25477", "udp.port", tp},
  {"gap_fill_ports", "Gap fill UDP ports", "25479", "udp.port", gap_fill},
  {"snap_ports", "DEEP SNAP TCP ports", "25479", "tcp.port", snap},
  {"fix_ports", "FIX TCP ports", "28500", "tcp.port", Dissector.get("fix")},
}
local listening = {}  -- the ports at which each dissector stands

local function listen()
  for _, wire in ipairs(WIRES) do
    local preference, ports = wire[1], DissectorTable.get(wire[4])
    local before, now = listening[preference], quorl.prefs[preference]
    if now ~= before then
      if before and before ~= "" then ports:remove(before, wire[5]) end
      if now ~= "" then ports:add(now, wire[5]) end
      listening[preference] = now
    end
  end
end

for _, wire in ipairs(WIRES) do
  quorl.prefs[wire[1]] = Pref.range(wire[2], wire[3], wire[2] .. " of the exchanges", 65535)
end
listen()
quorl.prefs_changed = listen

-- On other ports: by what the packets carry, and nothing is taken that could be anybody else's.

local function is_multicast(address)
  return Address.ip("224.0.0.0") <= address and address <= Address.ip("239.255.255.255")
end

-- Whatever follows between the two ends comes to `proto` without a look, damaged packets too.
local function claim(proto, dissect, tvb, pinfo, tree)
  dissect(tvb, pinfo, tree)
  pinfo.conversation = proto
  return true
end

tp:register_heuristic("udp", function(tvb, pinfo, tree)
  if not is_surely_ours(tvb) or not is_multicast(pinfo.dst) then return false end
  return claim(tp, dissect_feed, tvb, pinfo, tree)
end)

local function is_sound_request(tvb)
  return tvb:captured_len() >= GAP_FILL_HEADER_SIZE and not reason_to_refuse(tvb) and
         tvb:reported_len() == GAP_FILL_HEADER_SIZE + tvb(12, 4):le_uint() * RANGE_SIZE
end

gap_fill:register_heuristic("udp", function(tvb, pinfo, tree)
  if is_multicast(pinfo.dst) then return false end  -- that is the feed
  if not is_surely_ours(tvb) and not is_sound_request(tvb) then return false end
  return claim(gap_fill, dissect_gap_fill, tvb, pinfo, tree)
end)

-- A request in one segment; the reply follows on the same connection.
snap:register_heuristic("tcp", function(tvb, pinfo, tree)
  local size = size_of(SNAP_REQUEST_LAYOUT)
  if tvb:captured_len() ~= size or tvb:reported_len() ~= size or
     tvb(0, 2):le_uint() ~= size - 2 or tvb(2, 1):uint() ~= 0x72 or
     tvb(43, 4):le_uint() ~= DEEP_CHANNEL then
    return false
  end
  return claim(snap, dissect_snap, tvb, pinfo, tree)
end)
