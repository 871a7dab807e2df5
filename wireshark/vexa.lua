-- Wireshark's dissector of the network protocol: TCP, UDP and multicast. docs/wireshark.md tells how to use it.
-- The names of messages, parameters and values are in vexa_names.lua beside it, which is made from the catalogue.

local folder = debug.getinfo(1, "S").source:gsub("^@", ""):match("^(.*[/\\])") or "./"
local names = dofile(folder .. "vexa_names.lua")

local vexa = Proto("vexa", "Device parameters (vexa)")

vexa.prefs.tcp_port = Pref.uint("TCP port", 43110, "Where servers listen")
vexa.prefs.udp_port = Pref.uint("UDP port", 43110, "Where servers listen")
vexa.prefs.event_port = Pref.uint("Multicast port", 63110, "Where UDP clients hear changes")

local errors = {[0] = "none", [1] = "no data", [53] = "refused, or no such parameter", [60] = "no such text",
                [0xFFFFFFFF] = "refused"}
local formats = {[0] = "none", [3072] = "payload"}
local orders = {le = "little-endian", be = "big-endian"}

local f = {
    type = ProtoField.uint32("vexa.type", "Message type", base.DEC, names.messages),
    connection = ProtoField.uint32("vexa.connection", "Connection", base.HEX),
    request = ProtoField.uint32("vexa.request", "Request", base.DEC),
    config = ProtoField.uint32("vexa.config", "Configuration", base.DEC),
    priority = ProtoField.uint32("vexa.priority", "Priority", base.DEC),
    capacity = ProtoField.uint32("vexa.capacity", "Capacity", base.DEC),
    error = ProtoField.uint32("vexa.error", "Error", base.DEC, errors),
    id = ProtoField.uint32("vexa.id", "Parameter identifier", base.HEX),
    param = ProtoField.string("vexa.param", "Parameter"),
    value = ProtoField.uint32("vexa.value", "Value", base.DEC),
    text = ProtoField.string("vexa.text", "Shown as"),
    time = ProtoField.absolute_time("vexa.time", "Time of the change", base.UTC),
    length = ProtoField.uint32("vexa.length", "Payload length", base.DEC),
    format = ProtoField.uint32("vexa.format", "Payload format", base.DEC, formats),
    payload = ProtoField.bytes("vexa.payload", "Payload"),
    order = ProtoField.string("vexa.order", "Byte order of the payload"),
    unused = ProtoField.bytes("vexa.unused", "Not used"),
    response_in = ProtoField.framenum("vexa.response_in", "Answered in", base.NONE, frametype.RESPONSE),
    request_in = ProtoField.framenum("vexa.request_in", "Answers", base.NONE, frametype.REQUEST),
    response_time = ProtoField.relative_time("vexa.response_time", "Time since the request"),
}
vexa.fields = f

local e = {
    unknown = ProtoExpert.new("vexa.unknown", "No message of this protocol starts here", expert.group.UNDECODED,
                              expert.severity.WARN),
    length = ProtoExpert.new("vexa.bad_length", "The length is not what the record says", expert.group.MALFORMED,
                             expert.severity.ERROR),
    payload = ProtoExpert.new("vexa.bad_payload", "The payload holds no value", expert.group.UNDECODED,
                              expert.severity.WARN),
    refused = ProtoExpert.new("vexa.refused", "The request was refused", expert.group.RESPONSE_CODE,
                              expert.severity.NOTE),
    unanswered = ProtoExpert.new("vexa.unanswered", "The capture has no answer to it", expert.group.SEQUENCE,
                                 expert.severity.NOTE),
}
vexa.experts = e

-- --- records ---

local PREFIX, REQUEST, RESPONSE = 24, 48, 52
local MOST_OF_REQUEST, MOST_OF_RESPONSE = 24 * 1024 - REQUEST, 1024 * 1024

-- What follows the prefix: the names of words, in their order.
local CONNECTION = {bytes = 24}
local ANSWER = {bytes = 28, "error"}
local LISTENER = {bytes = 28, "id"}
local ASK = {bytes = REQUEST, most = MOST_OF_REQUEST, "id", "value", "seconds", "microseconds", "length", "format"}
local REPLY = {bytes = RESPONSE, most = MOST_OF_RESPONSE,
               "id", "error", "value", "seconds", "microseconds", "length", "format"}

local records = {
    [16] = CONNECTION, [17] = CONNECTION, [32] = ANSWER, [33] = ANSWER, [48] = LISTENER, [49] = LISTENER,
    [65] = ANSWER, [80] = ASK, [81] = ASK, [112] = ASK, [113] = ASK, [256] = ASK, [258] = ASK, [96] = REPLY,
    [97] = REPLY, [128] = REPLY, [129] = REPLY, [144] = REPLY, [145] = REPLY, [146] = REPLY, [257] = REPLY,
}

-- The types that answer a request; over UDP a string is answered with the type of its request.
local answers = {
    tcp = {[16] = 32, [17] = 33, [49] = 65, [80] = 96, [112] = 128, [113] = 129},
    udp = {[16] = 32, [17] = 33, [80] = 96, [81] = 97, [112] = 128, [256] = 257},
}
local carries_number = {[81] = true, [96] = true, [97] = true, [144] = true}
local carries_data = {[146] = true, [257] = true, [258] = true}

-- The record that starts here, or nil. The 112 of more than a request's bytes is an answer.
local function record_of(type, is_udp, available)
    if is_udp and type == 112 and available ~= REQUEST then return REPLY end
    return records[type]
end

local function word_of(tvb, record, name)
    for i, word in ipairs(record) do
        if word == name then return tvb(PREFIX + 4 * (i - 1), 4) end
    end
end

-- --- values ---

local function in_one_line(text) return (text:gsub("%c", " ")) end

local function dotted(number)
    return string.format("%d.%d.%d.%d", math.floor(number / 0x1000000), math.floor(number / 0x10000) % 256,
                         math.floor(number / 0x100) % 256, number % 256)
end

local function marked(number, mark, digits)
    return string.format("%0" .. digits .. "d%s%02d%s%02d", math.floor(number / 10000), mark,
                         math.floor(number / 100) % 100, mark, number % 100)
end

local by_kind = {
    address = dotted,
    date = function(number) return marked(number, "-", 4) end,
    time = function(number) return marked(number, ":", 2) end,
    signed = function(number)
        return string.format("%d", number < 0x80000000 and number or number - 0x100000000)
    end,
}

-- A number as the tool shows it: with the name of the value, or with units.
local function shown(id, number)
    local parameter = names.parameters[id] or {}
    if parameter.values then
        local name = parameter.values[number]
        return number .. (name and name ~= "" and " " .. name or "")
    end
    local text = (by_kind[parameter.kind] or tostring)(number)
    if parameter.scale then text = string.format("%." .. parameter.precision .. "f", number / parameter.scale) end
    return text .. (parameter.units and " " .. parameter.units or "")
end

local function name_of(id)
    if id == 0 then return "all" end
    local parameter = names.parameters[id]
    return parameter and parameter.name or string.format("0x%08x", id)
end

-- A value object: class, configuration, parameter and type, then a text and its NUL, or a number. Its words have the
-- order of the host that wrote it, which only their values tell. Returns the order, what is shown, and whether the text
-- has its end.
local function object_of(range)
    if range:len() < 17 then return nil end
    for _, order in ipairs({"le", "be"}) do
        local function word(at)
            local bytes = range(at, 4)
            return order == "le" and bytes:le_uint() or bytes:uint()
        end
        if word(0) == 1 and word(12) == 12 then
            local ends = range:raw(16):find("\0", 1, true) ~= nil
            local text = range(16)
            return order, in_one_line(ends and text:stringz(ENC_UTF_8) or text:string(ENC_UTF_8)), ends
        end
        if word(0) == 0 and word(12) > 0 and word(12) < 12 and range:len() == 20 then
            return order, shown(word(8), word(16)), true
        end
    end
end

-- The next field of a protobuf message: its number, its value (a number, or the bytes), and where the next one starts.
local function protobuf_field(range, at)
    local function varint()
        local number, scale = 0, 1
        for _ = 1, 10 do
            if at >= range:len() then return nil end
            local byte = range(at, 1):uint()
            at = at + 1
            number = number + byte % 128 * scale
            scale = scale * 128
            if byte < 128 then return number end
        end
    end
    local key = varint()
    local value = key and varint()
    if not value or (key % 8 ~= 0 and key % 8 ~= 2) then return nil end
    if key % 8 == 0 then return math.floor(key / 8), value, at end
    if value > range:len() - at then return nil end
    return math.floor(key / 8), value > 0 and range(at, value) or nil, at + value
end

local severities = {[0] = "INFORMATION", "WARNING", "ERROR", "CRITICAL"}

-- An alarm as the tool shows it, or nil for bytes that are none.
local function alarm_of(range)
    local state, severity, texts, at = "clear", 0, {}, 0
    while range and at < range:len() do
        local number, value, after = protobuf_field(range, at)
        if not number then return nil end
        if number == 1 then state = value == 0 and "clear" or "raised" end
        if number == 2 then severity = value end
        if number == 3 and type(value) == "userdata" then
            local inner, text = protobuf_field(value, 0)
            if inner == 1 and type(text) == "userdata" then texts[#texts + 1] = in_one_line(text:string(ENC_UTF_8)) end
        end
        at = after
    end
    return state .. ", " .. (severities[severity] or tostring(severity)) ..
        (#texts > 0 and ": " .. table.concat(texts, "; ") or "")
end

-- --- requests and their answers ---

local tcp_stream = Field.new("tcp.stream")
local waiting, linked  -- the requests that wait by what will answer them; by place, what a message belongs to

function vexa.init() waiting, linked = {}, {} end

-- Of all that a capture may have dissected anew, only the first pass comes in the order of the capture. `place` tells
-- messages of a frame apart: what was put together from segments and the rest of the last one are two buffers.
local function link(pinfo, place, is_udp, message)
    local record, type = message.record, message.type
    place = table.concat({pinfo.number, place, type, message.connection, message.request, message.id or ""}, " ")
    if pinfo.visited then return linked[place] or {} end
    local is_request = record == ASK or record == CONNECTION or record == LISTENER
    local stream = tcp_stream()
    local ends = stream and tostring(stream) or table.concat(is_request and
        {tostring(pinfo.src), pinfo.src_port, tostring(pinfo.dst), pinfo.dst_port} or
        {tostring(pinfo.dst), pinfo.dst_port, tostring(pinfo.src), pinfo.src_port}, " ")
    if is_request then
        type = answers[is_udp and "udp" or "tcp"][type]
    elseif type == 112 then
        type = 128
    end
    local own = {}
    linked[place] = own
    if not type then return own end
    own.expects = is_request and type ~= 129
    local key = table.concat({ends, message.connection, message.request, type, type ~= 65 and message.id or ""}, " ")
    if is_request then
        -- Over UDP, and for what only a refusal answers, the newest counts: the others may never be answered.
        if is_udp or type == 129 or not waiting[key] then waiting[key] = {} end
        table.insert(waiting[key], {frame = pinfo.number, time = pinfo.rel_ts, own = own})
    else
        local asked = waiting[key] and table.remove(waiting[key], 1)
        if asked then
            asked.own.response_in = pinfo.number
            own.request_in, own.time = asked.frame, pinfo.rel_ts - asked.time
        end
    end
    return own
end

local function add_links(tree, pinfo, links)
    if pinfo.visited and links.expects and not links.response_in then
        tree:add_proto_expert_info(e.unanswered)
    end
    if links.response_in then tree:add(f.response_in, links.response_in):set_generated() end
    if links.request_in then
        tree:add(f.request_in, links.request_in):set_generated()
        local seconds = math.floor(links.time)
        local time = NSTime.new(seconds, math.floor((links.time - seconds) * 1e9 + 0.5))
        tree:add(f.response_time, time):set_generated()
    end
end

-- --- one message ---

local function add_payload(tree, range, message)
    local item = tree:add(f.payload, range)
    if carries_data[message.type] then
        local parameter = names.parameters[message.id]
        local text = parameter and parameter.kind == "alarm" and alarm_of(range)
        if text then tree:add(f.text, range, text) end
        return text or range:len() .. " bytes"
    end
    local order, text, ends = object_of(range)
    if not ends then item:add_proto_expert_info(e.payload) end
    if not order then return range:len() .. " bytes" end
    tree:add(f.order, range, orders[order])
    tree:add(f.text, range, text)
    return '"' .. text .. '"'
end

local function add_words(tree, tvb, record, message)
    for i, name in ipairs(record) do
        local range = tvb(PREFIX + 4 * (i - 1), 4)
        if name == "id" then
            tree:add(f.id, range)
            tree:add(f.param, range, name_of(message.id))
        elseif name == "seconds" then
            local at = NSTime.new(range:uint(), tvb(PREFIX + 4 * i, 4):uint() * 1000)
            if range:uint() ~= 0 then tree:add(f.time, tvb(PREFIX + 4 * (i - 1), 8), at) end
        elseif name ~= "microseconds" then
            local item = tree:add(f[name], range)
            if name == "error" and range:uint() ~= 0 then item:add_proto_expert_info(e.refused) end
        end
    end
    if carries_number[message.type] then
        message.text = shown(message.id, message.value)
        tree:add(f.text, word_of(tvb, record, "value"), message.text)
    end
end

-- One whole message. `place` names it among those of its frame.
local function dissect_message(tvb, pinfo, root, record, is_udp, place)
    local message = {record = record}
    for i, name in ipairs({"type", "connection", "request"}) do message[name] = tvb(4 * (i - 1), 4):uint() end
    for _, name in ipairs({"id", "value", "error"}) do
        local range = word_of(tvb, record, name)
        message[name] = range and range:uint()
    end
    local what = names.messages[record == REPLY and message.type == 112 and 128 or message.type]
    local tree = root:add(vexa, tvb(), "Device parameters, " .. what)
    tree:add(f.type, tvb(0, 4))
    for i, name in ipairs({"connection", "request", "config", "priority", "capacity"}) do
        tree:add(f[name], tvb(4 * i, 4))
    end
    add_words(tree, tvb, record, message)

    local length = word_of(tvb, record, "length")
    length = length and length:uint() or 0
    if length > 0 then message.text = add_payload(tree, tvb(record.bytes, length), message) end
    local over = tvb:len() - record.bytes - length
    if over > 0 then tree:add(f.unused, tvb(record.bytes + length, over)) end

    local summary = what
    if message.id and message.id ~= 0 then summary = summary .. " " .. name_of(message.id) end
    if message.text then summary = summary .. " = " .. message.text end
    if message.error and message.error ~= 0 then
        summary = summary .. ", error " .. (message.error == 0xFFFFFFFF and "-1" or message.error)
    end
    tree:set_text("Device parameters, " .. summary)
    add_links(tree, pinfo, link(pinfo, place, is_udp, message))
    return summary
end

-- The bytes of the record and the payload that start at `at`. Without enough bytes: nil and how many are missing, if
-- that can be told. For what cannot be one: false.
local function length_at(tvb, at)
    local available = tvb:len() - at
    if available < 4 then return nil, DESEGMENT_ONE_MORE_SEGMENT end
    local record = records[tvb(at, 4):uint()]
    if not record then return false end
    if available < record.bytes then return nil, DESEGMENT_ONE_MORE_SEGMENT end
    local range = word_of(tvb(at):tvb(), record, "length")
    local payload = range and range:uint() or 0
    if payload > (record.most or 0) then return false end
    if available < record.bytes + payload then return nil, record.bytes + payload - available end
    return record.bytes + payload
end

local function add_garbage(tvb, at, root)
    root:add(vexa, tvb(at), "Device parameters, no message"):add_proto_expert_info(e.unknown)
    return "[no message: " .. tvb:len() - at .. " bytes]"
end

local MOST_SHOWN = 8

-- A frame may come in parts: what was put together from segments, and the rest of the last one.
local function show(pinfo, summaries)
    local rest = #summaries > MOST_SHOWN and " and " .. #summaries - MOST_SHOWN .. " more" or ""
    local text = table.concat(summaries, ", ", 1, math.min(#summaries, MOST_SHOWN)) .. rest
    if tostring(pinfo.cols.protocol) == "VEXA" then
        pinfo.cols.info:append(", " .. text)
    else
        pinfo.cols.info = text
    end
    pinfo.cols.protocol = "VEXA"
end

-- A connection's bytes from any boundary of segments. What is no message is left out to the end of its segment: the
-- next one may begin with a message again.
local function dissect_tcp(tvb, pinfo, root)
    local at, summaries = 0, {}
    while at < tvb:len() do
        local length, missing = length_at(tvb, at)
        if length == false then
            summaries[#summaries + 1] = add_garbage(tvb, at, root)
            break
        end
        if not length then
            if tvb:len() == tvb:reported_len() then  -- else the capture has cut it off
                pinfo.desegment_offset = at
                pinfo.desegment_len = missing
            end
            break
        end
        local place = tvb:offset() .. " " .. at
        local record = records[tvb(at, 4):uint()]
        summaries[#summaries + 1] = dissect_message(tvb(at, length):tvb(), pinfo, root, record, false, place)
        at = at + length
    end
    if #summaries > 0 then show(pinfo, summaries) end
    return tvb:len()
end

-- A datagram that lacks bytes; a capture that did not keep them is no fault of it.
local function add_cut_off(tvb, root, bytes)
    local item = root:add(vexa, tvb(), "Device parameters, cut off")
    if tvb:reported_len() < bytes then item:add_proto_expert_info(e.length) end
    return "[cut off: " .. tvb:len() .. " bytes]"
end

local function datagram(tvb, pinfo, root)
    if tvb:len() < 4 and tvb:reported_len() >= 4 then return add_cut_off(tvb, root, 4) end
    local record = tvb:len() >= 4 and record_of(tvb(0, 4):uint(), true, tvb:reported_len())
    if not record then return add_garbage(tvb, 0, root) end
    local range = tvb:len() >= record.bytes and word_of(tvb, record, "length")
    local bytes = record.bytes + (range and range:uint() or 0)
    if tvb:len() < bytes then return add_cut_off(tvb, root, bytes) end
    return dissect_message(tvb, pinfo, root, record, true, "")
end

-- One datagram is one message, which its record's zeros may follow.
local function dissect_udp(tvb, pinfo, root)
    show(pinfo, {datagram(tvb, pinfo, root)})
    return tvb:len()
end

function vexa.dissector(tvb, pinfo, root)
    if tvb:len() == 0 then return 0 end
    return (pinfo.port_type == 2 and dissect_tcp or dissect_udp)(tvb, pinfo, root)
end

-- --- ports ---

local tables = {tcp_port = "tcp.port", udp_port = "udp.port", event_port = "udp.port"}
local served = {}

local function serve()
    for preference, name in pairs(tables) do
        if served[preference] then DissectorTable.get(name):remove(served[preference], vexa) end
    end
    for preference, name in pairs(tables) do
        served[preference] = vexa.prefs[preference]
        DissectorTable.get(name):add(served[preference], vexa)
    end
end
vexa.prefs_changed = serve
serve()
