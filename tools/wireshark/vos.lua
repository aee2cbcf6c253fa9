-- SPDX-License-Identifier: MIT
-- Wireshark dissector for the captures of "vosctl capture": copies of messages with the header of include/vosMsgTap.h.
-- docs/seeing-messages.md shows its use.

local vos = Proto("vos", "vos message")

local HEAD_LENGTH = 304  -- of version 1
local PATH_LENGTH = 110
local COPY = 0x766F7302
local SENT, RECEIVED, STARTED = 1, 2, 3
local ANSWER = 2

local whats = {"sent", "received", "tap is on", "tap is off", "tap refused"}
local stages = {[0] = "not known", "request", "answer", "one-way"}
local sockets = {[0] = "none", "normal", "high", "second", "second high", "thread", "netlink", "requester", "other"}
local types = {
    [0] = "running configuration", "packet", "link", "configuration object", "description of a configuration object",
    "debug word", "second debug word", "redirect standard output", "application", "MAC address",
    [0x766F7301] = "tap"
}

local f = {
    what = ProtoField.uint8("vos.what", "Copy of a message that was", base.DEC, whats),
    stage = ProtoField.uint8("vos.stage", "Stage", base.DEC, stages),
    socket = ProtoField.uint8("vos.socket", "Socket", base.DEC, sockets),
    fd = ProtoField.int32("vos.fd", "Descriptor"),
    pid = ProtoField.uint32("vos.pid", "Process id"),
    tid = ProtoField.uint32("vos.tid", "Thread id"),
    result = ProtoField.int32("vos.result", "Result of the system call"),
    errno = ProtoField.int32("vos.errno", "errno"),
    number = ProtoField.uint64("vos.number", "Running number"),
    lost = ProtoField.uint64("vos.lost", "Copies lost before"),
    wall = ProtoField.uint64("vos.wall", "Nanoseconds since 1970"),
    monotonic = ProtoField.uint64("vos.monotonic", "Nanoseconds on CLOCK_MONOTONIC"),
    whole = ProtoField.uint32("vos.whole", "Length of the message"),
    copied = ProtoField.uint32("vos.copied", "Length of the copy"),
    port = ProtoField.uint32("vos.port", "Netlink port id of the sender"),
    own = ProtoField.string("vos.own", "Own path"),
    peer = ProtoField.string("vos.peer", "Path of the other side"),
    from = ProtoField.string("vos.from", "From"),
    to = ProtoField.string("vos.to", "To"),
    type = ProtoField.uint32("vos.type", "ulType", base.HEX, types),
    no_return = ProtoField.uint32("vos.no_return", "ulNoReturn"),
    code = ProtoField.int32("vos.code", "ulRetCode"),
    value1 = ProtoField.uint32("vos.value1", "ulValue1"),
    value2 = ProtoField.uint32("vos.value2", "ulValue2"),
    value3 = ProtoField.uint32("vos.value3", "ulValue3"),
    value4 = ProtoField.uint32("vos.value4", "ulValue4"),
    length = ProtoField.uint32("vos.length", "ulBufLen"),
    payload = ProtoField.bytes("vos.payload", "Payload"),
    text = ProtoField.string("vos.text", "Text"),
    request_in = ProtoField.framenum("vos.request_in", "Request in", base.NONE, frametype.REQUEST),
    answer_in = ProtoField.framenum("vos.answer_in", "Answer in", base.NONE, frametype.RESPONSE),
    queued = ProtoField.double("vos.queued", "Seconds in the queue"),
    served = ProtoField.double("vos.served", "Seconds of service"),
    total = ProtoField.double("vos.total", "Seconds in all"),
}
for _, field in pairs(f) do table.insert(vos.fields, field) end

local malformed = ProtoExpert.new("vos.malformed", "No copy of a message", expert.group.MALFORMED, expert.severity.ERROR)
local shortened = ProtoExpert.new("vos.shortened", "The message goes on behind the copy", expert.group.SEQUENCE,
                                  expert.severity.NOTE)
local wrong = ProtoExpert.new("vos.length_wrong", "A length does not fit", expert.group.MALFORMED, expert.severity.WARN)
local losses = ProtoExpert.new("vos.losses", "Copies were lost before this one", expert.group.SEQUENCE,
                               expert.severity.WARN)
vos.experts = {malformed, shortened, wrong, losses}

vos.prefs.conversations = Pref.bool("Print conversations", false,
                                    "tshark prints who has exchanged how many messages with whom, at the end")

-- What the first pass has found out.
local names      -- of processes, by process id
local exchanges  -- the last exchange of each requester, by its path
local frames     -- by frame number
local lost       -- copies, by process id

function vos.init()
    names, exchanges, frames, lost = {}, {}, {}, {}
end

-- A copy's integers in its machine's byte order.
local function reader(tvb)
    local little = tvb:len() >= 4 and tvb(0, 4):le_uint() == COPY
    local read = {little = little}
    function read.uint(at, size)
        local range = tvb(at, size)
        return little and range:le_uint() or range:uint()
    end
    function read.int(at)
        local range = tvb(at, 4)
        return little and range:le_int() or range:int()
    end
    function read.wide(at)
        local range = tvb(at, 8)
        return little and range:le_uint64() or range:uint64()
    end
    function read.add(tree, field, at, size)
        if little then return tree:add_le(field, tvb(at, size)) end
        return tree:add(field, tvb(at, size))
    end
    return read
end

-- A path up to its first NUL; an abstract one begins with a NUL.
local function path_at(tvb, at, length)
    local bytes = tvb(at, math.min(length, PATH_LENGTH)):bytes()
    local path = ""
    for i = 0, bytes:len() - 1 do
        local byte = bytes:get_index(i)
        if byte == 0 and i > 0 then break end
        path = path .. ((byte >= 32 and byte < 127) and string.char(byte) or string.format("\\x%02X", byte))
    end
    return path
end

local function file_of(path) return path:match("([^/]*)$") end

local function requester_pid(path)
    local pid = file_of(path):match("^clientp(%d+)t%d+v%d+$")
    return pid and tonumber(pid)
end

local function process_name(pid) return names[pid] or ("pid " .. pid) end

local function name_of(path)
    if path == "" then return "?" end
    local pid = requester_pid(path)
    if pid then return process_name(pid) end
    local file = file_of(path)
    return (#file > 4 and file:sub(-4) == "High") and file:sub(1, -5) or file
end

-- The exchange to which a copy belongs. A requester uses its path for one exchange at a time; the copies of one
-- exchange may come in another order than that of their moments.
local function exchange_of(copy)
    local answer = copy.stage == ANSWER
    local requester
    if answer then requester = copy.to_path else requester = copy.from_path end
    if requester == "" then return nil end
    local exchange = exchanges[requester]
    local place = (answer and "answer_" or "request_") .. (copy.what == SENT and "sent" or "received")
    local taken = exchange and exchange[place]
    local later = exchange and not answer and
                  ((exchange.answer_sent and exchange.answer_sent.moment < copy.moment) or
                   (exchange.answer_received and exchange.answer_received.moment < copy.moment))
    if not exchange or taken or later then
        exchange = {}
        exchanges[requester] = exchange
    end
    exchange[place] = copy
    return exchange
end

local function seconds(from, to)
    if not from or not to or to.moment < from.moment then return nil end
    return (to.moment - from.moment):tonumber() / 1e9
end

-- Reads the header into a table; the first pass keeps it.
local function copy_at(tvb, read, frame)
    local copy = {
        frame = frame, what = read.uint(8, 1), stage = read.uint(9, 1), socket = read.uint(10, 1), pid = read.uint(16, 4),
        result = read.int(24), moment = read.wide(56), whole = read.uint(64, 4), head_at = read.uint(72, 4)
    }
    local own, peer = path_at(tvb, 84, read.uint(80, 2)), path_at(tvb, 84 + PATH_LENGTH, read.uint(82, 2))
    local sent = copy.what == SENT
    copy.from_path, copy.to_path = sent and own or peer, sent and peer or own
    if (copy.what == STARTED or copy.socket == 1) and own ~= "" then names[copy.pid] = file_of(own) end
    copy.from = (sent or copy.what > RECEIVED) and process_name(copy.pid) or name_of(copy.from_path)
    copy.to = copy.what == RECEIVED and process_name(copy.pid) or name_of(copy.to_path)
    if copy.what > RECEIVED then copy.to = "tap" end
    if copy.what <= RECEIVED and copy.result >= 0 and copy.stage ~= 0 then copy.exchange = exchange_of(copy) end
    -- A failed wait for an answer ends its exchange, too.
    if copy.what == RECEIVED and copy.result < 0 and copy.stage == ANSWER then copy.exchange = exchanges[copy.to_path] end
    return copy
end

local function add_header(tree, tvb, read, copy)
    local head = tree:add(vos, tvb(0, HEAD_LENGTH), "Header of the copy")
    for _, each in ipairs({{f.what, 8, 1}, {f.stage, 9, 1}, {f.socket, 10, 1}, {f.fd, 12, 4}, {f.pid, 16, 4},
                           {f.tid, 20, 4}, {f.result, 24, 4}, {f.errno, 28, 4}, {f.number, 32, 8}, {f.lost, 40, 8},
                           {f.wall, 48, 8}, {f.monotonic, 56, 8}, {f.whole, 64, 4}, {f.copied, 68, 4},
                           {f.port, 76, 4}}) do
        read.add(head, each[1], each[2], each[3])
    end
    local sent = copy.what == SENT
    head:add(f.own, tvb(84, PATH_LENGTH), sent and copy.from_path or copy.to_path)
    head:add(f.peer, tvb(84 + PATH_LENGTH, PATH_LENGTH), sent and copy.to_path or copy.from_path)
    if read.uint(80, 2) > PATH_LENGTH or read.uint(82, 2) > PATH_LENGTH then head:add_proto_expert_info(wrong) end
    if copy.loses then head:add_proto_expert_info(losses, "Copies were lost before this one: " .. copy.loses) end
    tree:add(f.from, copy.from):set_generated()
    tree:add(f.to, copy.to):set_generated()
end

local function is_text(range)
    local bytes = range:bytes()
    local length = bytes:len()
    while length > 0 and bytes:get_index(length - 1) == 0 do length = length - 1 end
    for i = 0, length - 1 do
        local byte = bytes:get_index(i)
        if byte ~= 9 and byte ~= 10 and byte ~= 13 and (byte < 32 or byte > 126) then return 0 end
    end
    return length
end

-- The message behind the header; its code, when it has one.
local function add_message(tree, tvb, read, at, copy)
    local length = read.uint(68, 4)
    if length > tvb:len() - at then
        tree:add_proto_expert_info(wrong, "The copy says that it has " .. length .. " bytes, and " .. (tvb:len() - at) .. " follow")
        length = tvb:len() - at
    end
    if length == 0 then return end
    if copy.head_at > length or length - copy.head_at < 32 then
        tree:add_proto_expert_info(wrong, "The message is shorter than its header")
        tree:add(f.payload, tvb(at, length))
        return
    end
    local head_at = at + copy.head_at
    local head = tree:add(vos, tvb(head_at, 32), "Header of the message")
    read.add(head, f.type, head_at, 4)
    read.add(head, f.no_return, head_at + 4, 4)
    local code = read.int(head_at + 8)
    if copy.stage == ANSWER or copy.stage == 0 or code ~= 0 then
        read.add(head, f.code, head_at + 8, 4)
        copy.code = code
    end
    for i, field in ipairs({f.value1, f.value2, f.value3, f.value4, f.length}) do
        read.add(head, field, head_at + 8 + 4 * i, 4)
    end
    copy.type = read.uint(head_at, 4)
    copy.bytes = math.max(copy.whole - copy.head_at - 32, 0)
    local payload = at + length - head_at - 32
    if payload > 0 then
        local range = tvb(head_at + 32, payload)
        tree:add(f.payload, range)
        local text = is_text(range)
        if text > 0 then
            copy.text = range(0, text):string()
            tree:add(f.text, range(0, text), copy.text):set_generated()
        end
    end
    if copy.whole > length then tree:add_proto_expert_info(shortened) end
end

-- Links request and answer, and tells the times that are known.
local function add_exchange(tree, copy)
    local exchange = copy.exchange
    if not exchange then return end
    local function link(field, of) if of then tree:add(field, of.frame):set_generated() end end
    if copy.stage ~= ANSWER then
        link(f.answer_in, copy.what == SENT and exchange.answer_received or exchange.answer_sent or exchange.answer_received)
        return
    end
    link(f.request_in, copy.what == SENT and exchange.request_received or exchange.request_sent or exchange.request_received)
    local answer_received = copy.what == RECEIVED and copy or exchange.answer_received
    copy.queued = seconds(exchange.request_sent, exchange.request_received)
    copy.served = seconds(exchange.request_received, exchange.answer_sent)
    copy.total = seconds(exchange.request_sent, answer_received)
    for _, name in ipairs({"queued", "served", "total"}) do
        if copy[name] then tree:add(f[name], copy[name]):set_generated() end
    end
end

local function info_of(copy)
    local info = (whats[copy.what] or "unknown copy")
    if copy.what > RECEIVED then return info end
    info = (stages[copy.stage] or "message") .. " " .. info
    if copy.type and copy.type ~= 8 then info = (types[copy.type] or string.format("type 0x%08x", copy.type)) .. " " .. info end
    if copy.code then info = info .. ", code " .. copy.code end
    if copy.result < 0 then info = info .. ", failed" end
    if copy.bytes then info = info .. ", " .. copy.bytes .. " bytes" end
    if copy.total then info = info .. string.format(", in all %.3f ms", copy.total * 1e3)
    elseif copy.served then info = info .. string.format(", served %.3f ms", copy.served * 1e3) end
    if copy.text then info = info .. ": " .. copy.text:gsub("%c", " "):sub(1, 80) end
    return info
end

local function count_losses(copy, count)
    local before = lost[copy.pid] or UInt64(0)
    if count > before then copy.loses = tostring(count - before) end
    lost[copy.pid] = count
end

function vos.dissector(tvb, pinfo, tree)
    pinfo.cols.protocol = "vos"
    local subtree = tree:add(vos, tvb())
    local read = reader(tvb)
    if tvb:len() < HEAD_LENGTH or read.uint(0, 4) ~= COPY or read.uint(4, 2) ~= 1 or read.uint(6, 2) < HEAD_LENGTH or
        read.uint(6, 2) > tvb:len() then
        subtree:add_proto_expert_info(malformed)
        pinfo.cols.info = "no copy of a message"
        return tvb:len()
    end
    local copy = frames[pinfo.number]
    if not copy then
        copy = copy_at(tvb, read, pinfo.number)
        frames[pinfo.number] = copy
        count_losses(copy, read.wide(40))
    end
    add_header(subtree, tvb, read, copy)
    add_message(subtree, tvb, read, read.uint(6, 2), copy)
    add_exchange(subtree, copy)
    pinfo.cols.src = copy.from
    pinfo.cols.dst = copy.to
    pinfo.cols.info = info_of(copy)
    return tvb:len()
end

DissectorTable.get("wtap_encap"):add(wtap.USER0, vos)

-- Who has exchanged what with whom: each message once, though both sides may have copied it.
local function new_conversations()
    local rows, order, counted = {}, {}, {}
    local conversations = {}
    function conversations.add(copy)
        if not copy or copy.what > RECEIVED or copy.result < 0 then return end
        local answer = copy.stage == ANSWER
        if copy.exchange then
            local seen = counted[copy.exchange] or {}
            if seen[answer] then return end
            seen[answer] = true
            counted[copy.exchange] = seen
        end
        local from, to = copy.from, copy.to
        if answer then from, to = to, from end
        local key = from .. "\0" .. to
        local row = rows[key]
        if not row then
            row = {from = from, to = to, requests = 0, answers = 0, errors = 0, bytes = 0, served = 0, timed = 0, longest = 0}
            rows[key] = row
            table.insert(order, row)
        end
        if answer then row.answers = row.answers + 1 else row.requests = row.requests + 1 end
        if answer and copy.code and copy.code ~= 0 then row.errors = row.errors + 1 end
        row.bytes = row.bytes + (copy.bytes or 0)
        local served = copy.exchange and seconds(copy.exchange.request_received, copy.exchange.answer_sent)
        if answer and served then
            row.served, row.timed = row.served + served, row.timed + 1
            row.longest = math.max(row.longest, served)
        end
    end
    function conversations.text()
        table.sort(order, function(a, b) return a.requests > b.requests end)
        local lines = {string.format("%-16s %-16s %8s %8s %8s %10s %12s %12s", "from", "to", "requests", "answers",
                                     "code!=0", "bytes", "served ms", "longest ms")}
        for _, row in ipairs(order) do
            table.insert(lines, string.format("%-16s %-16s %8d %8d %8d %10d %12.3f %12.3f", row.from, row.to, row.requests,
                                              row.answers, row.errors, row.bytes,
                                              row.timed > 0 and row.served / row.timed * 1e3 or 0, row.longest * 1e3))
        end
        return table.concat(lines, "\n") .. "\n"
    end
    return conversations
end

if gui_enabled() then
    register_menu("vos/Conversations", function()
        local window = TextWindow.new("Conversations of vos")
        local listener = Listener.new("frame", "vos")
        local conversations = new_conversations()
        window:set_atclose(function() listener:remove() end)
        function listener.packet(pinfo) conversations.add(frames[pinfo.number]) end
        function listener.draw() window:set(conversations.text()) end
        function listener.reset() conversations = new_conversations() end
        retap_packets()
    end, MENU_STAT_GENERIC)
else
    local listener = Listener.new("frame", "vos")
    local conversations = new_conversations()
    function listener.packet(pinfo) conversations.add(frames[pinfo.number]) end
    function listener.draw() if vos.prefs.conversations then io.stdout:write(conversations.text()) end end
end
