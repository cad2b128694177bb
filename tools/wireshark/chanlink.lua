-- Wireshark dissector for the chanlink protocol (docs/PROTOCOL.md).
--
-- Load it with   tshark -X lua_script:chanlink.lua ...   or copy it into
-- the personal Lua plugin folder (Help > About Wireshark > Folders).
-- docs/CAPTURE.md lists the fields.
--
-- Frames are FF, a 32-bit little-endian payload length, the payload, FE;
-- length and payload bytes FD, FE and FF travel as FD 00, FD 01 and FD 02.
-- A frame is cut out of the TCP stream from a start marker to the next end
-- marker, as chanlink's own decoder does, so a frame shown as malformed
-- here is one the receiver dropped.

local chanlink = Proto("chanlink", "chanlink protocol")

local START, STOP, ESCAPE = 0xFF, 0xFE, 0xFD

local opcode_names = {
    [0] = "GetRequest", [2] = "SetRequest", [3] = "SubscriptionRequest",
    [4] = "LogPushRequest", [9] = "LoginRequest", [11] = "GetResponse",
    [12] = "SetResponse", [13] = "SubscriptionResponse", [15] = "LoginResponse",
    [31] = "ErrorResponse",
}
-- An error response names the failed request the way the CLI does.
local request_words = {
    [0] = "get", [2] = "set", [3] = "subscription", [4] = "logpush", [9] = "login",
}
-- include/chanlink/messages/ReasonCode.h
local reason_names = {
    [1] = "SetRequestNotBuilt", [2] = "BitBeyondData", [16] = "NotLoggedIn",
    [17] = "UnknownChannel", [18] = "ReadOnlyChannel", [19] = "WrongDataSize",
    [131] = "Discarded", [132] = "ConnectionLost", [133] = "NotConnected",
    [255] = "Success",
}
local login_results = { [0] = "Failure", [1] = "Success", [2] = "TooManyConnections" }

local f = {
    length = ProtoField.uint32("chanlink.length", "Payload length", base.DEC),
    opcode = ProtoField.uint8("chanlink.opcode", "Opcode", base.DEC, opcode_names),
    channel_count = ProtoField.uint16("chanlink.channel_count", "Channel count", base.DEC),
    channel = ProtoField.uint32("chanlink.channel", "Channel", base.DEC),
    value_count = ProtoField.uint16("chanlink.value_count", "Value count", base.DEC),
    value = ProtoField.none("chanlink.value", "Channel value"),
    value_length = ProtoField.uint16("chanlink.value_length", "Total length", base.DEC),
    header_length = ProtoField.uint16("chanlink.header_length", "Header length", base.DEC),
    data_length = ProtoField.uint16("chanlink.data_length", "Data length", base.DEC),
    header = ProtoField.bytes("chanlink.header", "Header"),
    data = ProtoField.bytes("chanlink.data", "Data"),
    trigger = ProtoField.uint8("chanlink.trigger", "Failed request", base.DEC, opcode_names),
    reason = ProtoField.uint8("chanlink.reason", "Reason", base.DEC, reason_names),
    trailing = ProtoField.bytes("chanlink.trailing", "Trailing bytes"),
    login_result = ProtoField.uint8("chanlink.login.result", "Login result", base.DEC, login_results),
    subtype = ProtoField.uint8("chanlink.subtype", "Sub-message type", base.DEC),
    magic = ProtoField.uint8("chanlink.magic", "Magic byte", base.DEC),
    username_length = ProtoField.uint8("chanlink.username_length", "Username length", base.DEC),
    password_length = ProtoField.uint8("chanlink.password_length", "Password length", base.DEC),
    username = ProtoField.string("chanlink.username", "Username"),
    password = ProtoField.string("chanlink.password", "Password"),
    logpush_on = ProtoField.bool("chanlink.logpush.on", "Push on"),
    noise = ProtoField.bytes("chanlink.noise", "Bytes outside any frame"),
}
chanlink.fields = {
    f.length, f.opcode, f.channel_count, f.channel, f.value_count, f.value, f.value_length,
    f.header_length, f.data_length, f.header, f.data, f.trigger, f.reason, f.trailing,
    f.login_result, f.subtype, f.magic, f.username_length, f.password_length, f.username,
    f.password, f.logpush_on, f.noise,
}

local e = {
    escape = ProtoExpert.new("chanlink.bad_escape", "Bad escape: FD followed by a byte above 02",
        expert.group.MALFORMED, expert.severity.ERROR),
    no_end = ProtoExpert.new("chanlink.missing_end",
        "Start marker inside a frame: an end marker is missing (both frames are lost)",
        expert.group.MALFORMED, expert.severity.ERROR),
    length = ProtoExpert.new("chanlink.wrong_length", "Length field does not match the payload",
        expert.group.MALFORMED, expert.severity.ERROR),
    unfinished = ProtoExpert.new("chanlink.unfinished", "Frame without an end marker",
        expert.group.MALFORMED, expert.severity.ERROR),
    layout = ProtoExpert.new("chanlink.bad_layout",
        "Payload does not match the message layout: the receiver drops it",
        expert.group.MALFORMED, expert.severity.ERROR),
    opcode = ProtoExpert.new("chanlink.unknown_opcode", "Unknown opcode: the receiver drops it",
        expert.group.UNDECODED, expert.severity.WARN),
    noise = ProtoExpert.new("chanlink.noise", "Bytes outside any frame, ignored by the receiver",
        expert.group.PROTOCOL, expert.severity.WARN),
}
chanlink.experts = { e.escape, e.no_end, e.length, e.unfinished, e.layout, e.opcode, e.noise }

chanlink.prefs.port = Pref.uint("TCP port", 7300,
    "The port chanlink is decoded on; other ports are found by content")

-- The little-endian 32-bit number at the start of a ByteArray.
local function le32(bytes)
    return bytes:get_index(0) + bytes:get_index(1) * 0x100 + bytes:get_index(2) * 0x10000
        + bytes:get_index(3) * 0x1000000
end

-- Upper-case hex of a range, shortened after 32 bytes.
local function hex(range)
    if range == nil then return "" end
    local bytes = range:bytes()
    if bytes:len() > 32 then
        return bytes:subset(0, 32):tohex() .. "..."
    end
    return bytes:tohex()
end

-- The range, or nil for zero bytes (a TvbRange cannot be empty).
local function sub(tvb, offset, length)
    if length <= 0 then return nil end
    return tvb(offset, length)
end

local function add_or_empty(tree, field, range, tvb, offset, label)
    if range then
        return tree:add_le(field, range)
    end
    local item = tree:add(field, tvb(offset, 0))
    item:set_text(label .. ": (none)")
    return item
end

-- Each decoder takes the payload's Tvb (opcode at 0) and the message's
-- tree, and returns the Info text and whether the layout was right.

local function decode_channel_list(p, tree, name)
    local n = p:len()
    if n < 3 then return name, false end
    local count = p(1, 2):le_uint()
    tree:add_le(f.channel_count, p(1, 2))
    local ids = {}
    local offset = 3
    for _ = 1, count do
        if offset + 4 > n then return name .. " " .. table.concat(ids, " "), false end
        tree:add_le(f.channel, p(offset, 4))
        ids[#ids + 1] = tostring(p(offset, 4):le_uint())
        offset = offset + 4
    end
    local text = count == 0 and name .. " (none)" or name .. " " .. table.concat(ids, " ")
    return text, offset == n
end

local function decode_get_response(p, tree, name)
    local n = p:len()
    if n < 3 then return name, false end
    local count = p(1, 2):le_uint()
    tree:add_le(f.value_count, p(1, 2))
    local parts = {}
    local offset = 3
    for _ = 1, count do
        if offset + 8 > n then return name .. " " .. table.concat(parts, " "), false end
        local total = p(offset + 4, 2):le_uint()
        local header_length = p(offset + 6, 2):le_uint()
        -- The data length is total - header; a header longer than the total
        -- leaves no data, and the next value starts 8 + total bytes on.
        local data_length = math.max(total - header_length, 0)
        local size = 8 + math.max(total, header_length)
        if offset + size > n then return name .. " " .. table.concat(parts, " "), false end
        local id = p(offset, 4):le_uint()
        local vtree = tree:add(f.value, p(offset, size))
        vtree:add_le(f.channel, p(offset, 4))
        vtree:add_le(f.value_length, p(offset + 4, 2))
        vtree:add_le(f.header_length, p(offset + 6, 2))
        add_or_empty(vtree, f.header, sub(p, offset + 8, header_length), p, offset + 8, "Header")
        local data = sub(p, offset + 8 + header_length, data_length)
        add_or_empty(vtree, f.data, data, p, offset + 8 + header_length, "Data")
        vtree:append_text(": " .. id .. " = " .. hex(data))
        parts[#parts + 1] = id .. "=" .. hex(data)
        offset = offset + 8 + total
    end
    local text = count == 0 and name .. " (none)" or name .. " " .. table.concat(parts, " ")
    return text, offset == n
end

local function decode_set_request(p, tree, name)
    local n = p:len()
    if n < 7 then return name, false end
    local length = p(5, 2):le_uint()
    tree:add_le(f.channel, p(1, 4))
    tree:add_le(f.data_length, p(5, 2))
    local data = sub(p, 7, math.min(length, n - 7))
    add_or_empty(tree, f.data, data, p, 7, "Data")
    return name .. " " .. p(1, 4):le_uint() .. "=" .. hex(data), n == 7 + length
end

local function decode_set_response(p, tree, name)
    if p:len() < 5 then return name, false end
    tree:add_le(f.channel, p(1, 4))
    return name .. " " .. p(1, 4):le_uint(), p:len() == 5
end

local function decode_log_push(p, tree, name)
    if p:len() < 2 then return name, false end
    local on = p(1, 1):uint()
    tree:add(f.logpush_on, p(1, 1), on ~= 0)
    return name .. (on ~= 0 and " on" or " off"), p:len() == 2 and on < 2
end

local function decode_login_request(p, tree, name)
    local n = p:len()
    if n < 5 then return name, false end
    tree:add(f.subtype, p(1, 1))
    tree:add(f.magic, p(2, 1))
    local user_length, password_length = p(3, 1):uint(), p(4, 1):uint()
    tree:add(f.username_length, p(3, 1))
    tree:add(f.password_length, p(4, 1))
    if 5 + user_length > n then return name, false end
    local user = sub(p, 5, user_length)
    add_or_empty(tree, f.username, user, p, 5, "Username")
    local password = sub(p, 5 + user_length, math.min(password_length, n - 5 - user_length))
    add_or_empty(tree, f.password, password, p, 5 + user_length, "Password")
    -- The password never goes into the Info column.
    local text = name .. " " .. (user and user:string() or "''")
    return text, p(1, 1):uint() == 9 and p(2, 1):uint() == 7 and n == 5 + user_length + password_length
end

local function decode_login_response(p, tree, name)
    if p:len() < 2 then return name, false end
    local result = p(1, 1):uint()
    tree:add(f.login_result, p(1, 1))
    return name .. " " .. (login_results[result] or "result " .. result), p:len() == 2 and result < 3
end

local function decode_error_response(p, tree, name)
    local n = p:len()
    if n < 3 then return name, false end
    local trigger, reason = p(1, 1):uint(), p(2, 1):uint()
    tree:add(f.trigger, p(1, 1))
    tree:add(f.reason, p(2, 1))
    local text = name .. " " .. (request_words[trigger] or "opcode " .. trigger)
    local offset = 3
    if trigger == 0 or trigger == 2 then
        if n < 7 then return text, false end
        tree:add_le(f.channel, p(3, 4))
        text = text .. " " .. p(3, 4):le_uint()
        offset = 7
    end
    if n > offset then tree:add(f.trailing, p(offset, n - offset)) end
    return text .. ": " .. (reason_names[reason] or "reason " .. reason), true
end

local decoders = {
    [0] = decode_channel_list, [3] = decode_channel_list, [13] = decode_channel_list,
    [11] = decode_get_response, [2] = decode_set_request, [12] = decode_set_response,
    [4] = decode_log_push, [9] = decode_login_request, [15] = decode_login_response,
    [31] = decode_error_response,
}

-- Unstuffs the bytes strictly between the markers. Returns the ByteArray,
-- whether any byte was escaped, and the error (nil, "escape" or "start")
-- with the offset of the offending byte.
local function unstuff(tvb, first, last)
    local out = ByteArray.new()
    out:set_size(last - first)
    local size, escaped, pending = 0, false, false
    local raw = tvb:raw(first, last - first)
    for i = 1, #raw do
        local b = raw:byte(i)
        if pending then
            if b > 2 then return out, escaped, "escape", first + i - 1 end
            out:set_index(size, b + 253)
            size, pending = size + 1, false
        elseif b == ESCAPE then
            pending, escaped = true, true
        elseif b == START then
            return out, escaped, "start", first + i - 1
        else
            out:set_index(size, b)
            size = size + 1
        end
    end
    -- An escape still pending at the end marker is dropped, as by the decoder.
    out:set_size(size)
    return out, escaped, nil
end

-- Dissects one candidate frame tvb[start..stop] (the markers included);
-- returns its Info text.
local function dissect_frame(tvb, start, stop, pinfo, tree)
    local item = tree:add(chanlink, tvb(start, stop - start + 1))
    local plain, escaped, error, at = unstuff(tvb, start + 1, stop)
    if error == "escape" then
        item:add_proto_expert_info(e.escape)
        item:append_text(", malformed (bad escape)")
        return "Malformed frame (bad escape)"
    elseif error == "start" then
        item:add_proto_expert_info(e.no_end)
        item:append_text(", malformed (end marker missing)")
        return "Malformed frame (end marker missing)"
    end
    local n = plain:len()
    local length = n >= 4 and le32(plain) or nil
    -- Where the length and payload are shown: in the capture's own bytes
    -- when nothing was stuffed, else in a tab of their own.
    local body = (not escaped and n > 0) and tvb(start + 1, n):tvb()
        or (n > 0 and plain:tvb("Unstuffed frame")) or nil
    if body and n >= 4 then item:add_le(f.length, body(0, 4)) end
    if n <= 4 or length ~= n - 4 then
        item:add_proto_expert_info(e.length,
            string.format("Length field %s, payload %d bytes", tostring(length), math.max(n - 4, 0)))
        item:append_text(", malformed (wrong length)")
        return "Malformed frame (wrong length)"
    end
    local p = body(4):tvb()
    local opcode = p(0, 1):uint()
    item:add(f.opcode, p(0, 1))
    local name = opcode_names[opcode]
    local decode = decoders[opcode]
    if not decode then
        item:add_proto_expert_info(e.opcode)
        item:append_text(", unknown opcode " .. opcode)
        return "Unknown opcode " .. opcode
    end
    local text, ok = decode(p, item, name)
    if not ok then
        item:add_proto_expert_info(e.layout)
        text = text .. " (malformed)"
    end
    item:append_text(", " .. text)
    return text
end

local function add_noise(tvb, offset, length, tree)
    local item = tree:add(chanlink, tvb(offset, length))
    item:append_text(", bytes outside any frame")
    item:add(f.noise, tvb(offset, length))
    item:add_proto_expert_info(e.noise)
end

function chanlink.dissector(tvb, pinfo, tree)
    local len = tvb:len()
    local raw = tvb:raw()
    local infos = {}
    local offset = 0
    while offset < len do
        local start = raw:find("\255", offset + 1, true)
        if not start then
            add_noise(tvb, offset, len - offset, tree)
            break
        end
        start = start - 1
        if start > offset then add_noise(tvb, offset, start - offset, tree) end
        local stop = raw:find("\254", start + 2, true)
        if not stop then
            if pinfo.can_desegment > 0 then
                pinfo.desegment_offset = start
                pinfo.desegment_len = DESEGMENT_ONE_MORE_SEGMENT
            else
                local item = tree:add(chanlink, tvb(start, len - start))
                item:add_proto_expert_info(e.unfinished)
                infos[#infos + 1] = "Unfinished frame"
            end
            break
        end
        stop = stop - 1
        infos[#infos + 1] = dissect_frame(tvb, start, stop, pinfo, tree)
        offset = stop + 1
    end
    if #infos > 0 then
        pinfo.cols.protocol = "chanlink"
        pinfo.cols.info = table.concat(infos, ", ")
    end
    return len
end

-- Other ports: a segment that starts a frame with a plausible length and a
-- known opcode claims the conversation.
local function heuristic(tvb, pinfo, tree)
    if tvb:len() < 7 or tvb(0, 1):uint() ~= START then return false end
    local stop = tvb:raw(0, math.min(tvb:len(), 12)):find("\254", 2, true)
    local plain, _, error = unstuff(tvb, 1, stop and stop - 1 or math.min(tvb:len(), 12))
    if error or plain:len() < 5 then return false end
    local length = le32(plain)
    if length == 0 or length > 0x1000000 or not decoders[plain:get_index(4)] then
        return false
    end
    pinfo.conversation = chanlink
    chanlink.dissector(tvb, pinfo, tree)
    return true
end
chanlink:register_heuristic("tcp", heuristic)

local registered_port = 0
local function register_port()
    local tcp_port = DissectorTable.get("tcp.port")
    if registered_port ~= 0 then tcp_port:remove(registered_port, chanlink) end
    registered_port = chanlink.prefs.port
    if registered_port ~= 0 then tcp_port:add(registered_port, chanlink) end
end

function chanlink.prefs_changed()
    if registered_port ~= chanlink.prefs.port then register_port() end
end

register_port()
