-- SPDX-License-Identifier: Apache-2.0
-- Wireshark dissector for the BBP's logical messages in an I2C capture (link type I2C_LINUX).
--
-- Load it with `wireshark -X lua_script:bbp.lua` or from the personal plugins folder. It looks at
-- every transfer to or from the chip's slave address and adds the filter fields bbp.*.

local SLAVE_ADDRESS = 0x17
local SYNC = 0xA5
local HEADER_SIZE = 12
local OVERHEAD = HEADER_SIZE + 1 -- header and checksum
local READ_FLAG = 0x1
-- Wireshark brings `bit` with every Lua; Lua's own `bit32` went with Lua 5.4.

local OPCODES = { [0x80] = "Version", [0x83] = "Configuration", [0x84] = "Flash" }

-- Function names by opcode and the first payload byte of the first segment.
local FUNCTIONS = {
    [0x80] = { [0x01] = "Read version" },
    [0x83] = { [0x09] = "Read configuration" },
    [0x84] = {
        [0x04] = "Program",
        [0x05] = "Programming status",
        [0x0B] = "Unprotect flash",
        [0x0C] = "Flash status",
    },
}

local PGM_WRITE_STATUS = {
    [1] = "complete", [2] = "verification failed", [3] = "idle", [4] = "erasing",
    [5] = "programming", [6] = "verifying", [7] = "security mismatch",
    [8] = "single tuner image on dual tuner flash",
    [9] = "dual tuner image on single tuner flash",
}
-- Where a status reply keeps its code, by function byte.
local PGM_STATUS_POSITION = { [0x05] = 1, [0x0C] = 0 }

local bbp = Proto("bbp", "BBP Logical Message")
local f = bbp.fields

f.rx_count = ProtoField.uint8("bbp.rx_count", "Bytes that follow", base.DEC)
f.sync = ProtoField.uint16("bbp.sync", "Sync", base.HEX)
f.count = ProtoField.uint8("bbp.count", "Message count", base.DEC)
f.instance = ProtoField.uint8("bbp.instance", "Instance", base.DEC)
f.length = ProtoField.uint16("bbp.length", "Length", base.DEC)
f.opcode = ProtoField.uint8("bbp.opcode", "Opcode", base.HEX, OPCODES)
f.abort = ProtoField.uint8("bbp.abort", "Abort", base.HEX)
f.status = ProtoField.uint8("bbp.status", "Reception status", base.HEX)
f.status_ok = ProtoField.bool("bbp.status_ok", "Received correctly", 8, nil, 0x01)
f.status_count = ProtoField.bool("bbp.status_count_mismatch", "Count mismatch", 8, nil, 0x02)
f.status_header = ProtoField.bool("bbp.status_header_missing", "Header missing", 8, nil, 0x04)
f.status_checksum = ProtoField.bool("bbp.status_checksum_mismatch", "Checksum mismatch", 8, nil, 0x08)
f.status_overflow = ProtoField.bool("bbp.status_overflow", "Overflow", 8, nil, 0x10)
f.status_opcode = ProtoField.uint8("bbp.status_unknown_opcode", "Unknown opcode", base.HEX, nil, 0xE0)
f.num_segs = ProtoField.uint16("bbp.num_segs", "Number of segments", base.DEC)
f.curr_seg = ProtoField.uint16("bbp.curr_seg", "Segment, from 0", base.DEC)
f.func = ProtoField.uint8("bbp.function", "Function", base.HEX)
f.func_name = ProtoField.string("bbp.function_name", "Function name")
f.payload = ProtoField.bytes("bbp.payload", "Payload")
f.version = ProtoField.string("bbp.version", "Version text")
f.pgm_status = ProtoField.uint8("bbp.pgm_write_status", "Programming status", base.DEC, PGM_WRITE_STATUS)
f.checksum = ProtoField.uint8("bbp.checksum", "Checksum", base.HEX)
f.checksum_ok = ProtoField.bool("bbp.checksum_ok", "Checksum is right")
f.response_in = ProtoField.framenum("bbp.response_in", "Reply in", base.NONE, frametype.RESPONSE)
f.response_to = ProtoField.framenum("bbp.response_to", "Request in", base.NONE, frametype.REQUEST)
f.response_time = ProtoField.relative_time("bbp.response_time", "Time since the request")

-- One expert entry for each thing that the updater reports.
local e = {
    no_data = { "no_data", "receiving data: the reply holds no more than a header", expert.severity.ERROR },
    short = { "short", "The transfer is shorter than a message", expert.severity.ERROR },
    too_many = { "too_many", "The count byte promises more than one read brings", expert.severity.ERROR },
    checksum = { "checksum", "The checksum does not match", expert.severity.ERROR },
    sync = { "sync", "The sync bytes are wrong", expert.severity.ERROR },
    count = { "count", "The message count is not the request's", expert.severity.ERROR },
    instance = { "instance", "The instance is not the request's", expert.severity.ERROR },
    opcode = { "opcode", "The opcode is not the request's", expert.severity.ERROR },
    num_segs = { "num_segs", "The number of segments is not the request's", expert.severity.ERROR },
    curr_seg = { "curr_seg", "The segment number is not the request's", expert.severity.ERROR },
    status = { "status", "The chip did not receive the request correctly", expert.severity.ERROR },
    count_mismatch = { "count_mismatch", "The chip missed a message (not fatal)", expert.severity.WARN },
    length = { "length", "The length field is not the transfer's length", expert.severity.NOTE },
    no_request = { "no_request", "A reply without a request in this capture", expert.severity.NOTE },
    pgm_status = { "pgm_status", "The chip reports that programming failed", expert.severity.ERROR },
}
bbp.experts = {}
for name, entry in pairs(e) do
    e[name] = ProtoExpert.new("bbp.expert." .. entry[1], entry[2], expert.group.PROTOCOL, entry[3])
    bbp.experts[#bbp.experts + 1] = e[name]
end

local i2c_address = Field.new("i2c.addr")
local i2c_flags = Field.new("i2c.flags")
local frame_time = Field.new("frame.time_epoch")

-- What is known of each frame once the capture was read in order: requests by frame number with
-- their header, and which frames answer each other.
local requests, request_of, response_of, last_request, transfer_function

function bbp.init()
    requests, request_of, response_of = {}, {}, {}
    last_request, transfer_function = nil, nil
end

local function function_name(opcode, code)
    return (FUNCTIONS[opcode] or {})[code] or "Unknown function"
end

-- The sum that an LM of `available` bytes at `offset` should carry, by its length field.
local function sum(tvb, offset, available)
    local stop = math.min(tvb(offset + 4, 2):le_uint() - 1, available)
    local bytes, total = tvb:bytes(), 0
    for i = offset, offset + stop - 1 do
        total = total + bytes:get_index(i)
    end
    return total % 256
end

-- Adds the header at `offset`; `byte_7` is the field that its byte 7 is. Returns the values and the
-- items of its fields by name.
local function add_header(tvb, offset, tree, byte_7)
    local sync = tree:add(f.sync, tvb(offset, 2))
    if tvb(offset, 1):uint() ~= SYNC or tvb(offset + 1, 1):uint() ~= SYNC then
        sync:add_proto_expert_info(e.sync)
    end
    local values, items = {}, {}
    for _, field in ipairs({ { "count", 2, 1 }, { "instance", 3, 1 }, { "length", 4, 2 },
        { "opcode", 6, 1 }, { byte_7, 7, 1 }, { "num_segs", 8, 2 }, { "curr_seg", 10, 2 } }) do
        local name, range = field[1], tvb(offset + field[2], field[3])
        values[name], items[name] = range:le_uint(), tree:add_le(f[name], range)
    end
    return values, items
end

-- `size` is the bytes of the LM as transferred; the checksum is the last of them. Returns whether it
-- is right.
local function add_checksum(tvb, offset, size, available, tree)
    local last = offset + size - 1
    local item = tree:add(f.checksum, tvb(last, 1))
    local right = sum(tvb, offset, available) == tvb(last, 1):uint()
    tree:add(f.checksum_ok, tvb(last, 1), right):set_generated()
    if not right then
        item:add_proto_expert_info(e.checksum)
    end
    return right
end

local function describe(request)
    local text = request.name
    if request.num_segs > 1 then
        text = string.format("%s, segment %d/%d", text, request.curr_seg + 1, request.num_segs)
    end
    return text
end

local function dissect_request(tvb, pinfo, tree)
    local size = tvb:len()
    if size < OVERHEAD then
        tree:add_proto_expert_info(e.short)
        pinfo.cols.info = "BBP request, cut short"
        return
    end
    local header, items = add_header(tvb, 0, tree, "abort")
    -- A reader of two passes may look at nothing in the first.
    if requests[pinfo.number] == nil then
        -- Only the first segment carries the function byte.
        if header.curr_seg == 0 and size > OVERHEAD then
            transfer_function = tvb(HEADER_SIZE, 1):uint()
        end
        header.func = transfer_function
        header.name = function_name(header.opcode, header.func)
        header.time = frame_time().value
        requests[pinfo.number] = header
        last_request = pinfo.number
    end
    local request = requests[pinfo.number]
    -- A download's first segment leaves its function byte out of the length.
    local first_of_download = request.func == 0x04 and header.curr_seg == 0
    if header.length ~= size and not (first_of_download and header.length == size - 1) then
        items.length:add_proto_expert_info(e.length)
    end
    if header.curr_seg == 0 and size > OVERHEAD then
        local item = tree:add(f.func, tvb(HEADER_SIZE, 1))
        item:append_text(" (" .. request.name .. ")")
    end
    tree:add(f.func_name, request.name):set_generated()
    if size > OVERHEAD then
        tree:add(f.payload, tvb(HEADER_SIZE, size - OVERHEAD))
    end
    add_checksum(tvb, 0, size, size, tree)
    if response_of[pinfo.number] then
        tree:add(f.response_in, response_of[pinfo.number]):set_generated()
    end
    pinfo.cols.info = string.format("%s, payload %d", describe(request), size - OVERHEAD)
end

-- What the updater compares with the request that it sent.
local ECHOED = { "count", "instance", "opcode", "num_segs", "curr_seg" }

local function add_reply_payload(tvb, offset, size, request, tree)
    if size <= OVERHEAD then
        return nil
    end
    local payload = offset + HEADER_SIZE
    local length = size - OVERHEAD
    tree:add(f.payload, tvb(payload, length))
    if request == nil then
        return nil
    end
    if request.opcode == 0x80 and request.func == 0x01 and length > 1 then
        local version = tree:add(f.version, tvb(payload + 1, length - 1))
        -- A spoilt reply may lack the NUL at its end.
        return tvb(payload + 1, length - 1):string():match("^[^\0]*"), version
    end
    local position = request.opcode == 0x84 and PGM_STATUS_POSITION[request.func]
    if position and position < length then
        local item = tree:add(f.pgm_status, tvb(payload + position, 1))
        local code = tvb(payload + position, 1):uint()
        if code ~= 1 and (code < 3 or code > 6) then
            item:add_proto_expert_info(e.pgm_status)
        end
        return PGM_WRITE_STATUS[code] or "reserved status"
    end
    return nil
end

local function dissect_reply(tvb, pinfo, tree)
    if request_of[pinfo.number] == nil then
        request_of[pinfo.number] = last_request or 0  -- no frame has the number 0
        if last_request then
            response_of[last_request] = response_of[last_request] or pinfo.number
        end
    end
    local request_frame = request_of[pinfo.number]
    local request = requests[request_frame]

    local count = tvb(0, 1):uint()
    local count_item = tree:add(f.rx_count, tvb(0, 1))
    local available = tvb:len() - 1
    if count <= HEADER_SIZE or available < OVERHEAD then
        count_item:add_proto_expert_info(e.no_data)
        pinfo.cols.info = "No reply"
        return
    end
    local size = count
    if count > available then
        count_item:add_proto_expert_info(e.too_many)
        size = available
    end

    local header, items = add_header(tvb, 1, tree, "status")
    local status = items.status
    for _, name in ipairs({ "ok", "count", "header", "checksum", "overflow", "opcode" }) do
        status:add(f["status_" .. name], tvb(8, 1))
    end
    local received = bit.band(header.status, 0x01) ~= 0
    if not received then
        status:add_proto_expert_info(e.status)
    end
    if bit.band(header.status, 0x02) ~= 0 then
        status:add_proto_expert_info(e.count_mismatch)
    end
    local meaning = add_reply_payload(tvb, 1, size, request, tree)
    local right = add_checksum(tvb, 1, size, available, tree)
    local text = "Reply"
    if request then
        for _, name in ipairs(ECHOED) do
            if header[name] ~= request[name] then
                items[name]:add_proto_expert_info(e[name])
            end
        end
        tree:add(f.func_name, request.name):set_generated()
        tree:add(f.response_to, request_frame):set_generated()
        tree:add(f.response_time, frame_time().value - request.time):set_generated()
        text = "Reply: " .. describe(request)
    else
        tree:add_proto_expert_info(e.no_request)
    end
    meaning = meaning or (received and "received")
    pinfo.cols.info = text .. (meaning and ", " .. meaning or "")
        .. (received and "" or ", NOT received") .. (right and "" or ", wrong checksum")
end

function bbp.dissector(tvb, pinfo, tree)
    local address, flags = i2c_address(), i2c_flags()
    -- A transfer that was not acknowledged is the address byte alone.
    if not address or address.value ~= SLAVE_ADDRESS or not flags or tvb:len() < 2 then
        return
    end
    local message = tvb(1):tvb()
    pinfo.cols.protocol = "BBP"
    -- The capture's flags, not the address byte, tell the direction.
    if bit.band(flags.value, READ_FLAG) ~= 0 then
        dissect_reply(message, pinfo, tree:add(bbp, message(), "BBP reply"))
    else
        dissect_request(message, pinfo, tree:add(bbp, message(), "BBP request"))
    end
end

register_postdissector(bbp)
