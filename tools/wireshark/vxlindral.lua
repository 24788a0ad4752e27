-- Wireshark dissector for the Vx Lindral line-data protocol over UDP.
--
-- Every datagram starts with a 16-byte framing header (magic "VXSF",
-- message number, message length, fragment offset) followed by message
-- bytes. A message that fits one datagram (offset 0, length == bytes carried)
-- is decoded: a raw line (kind 1) or a file header (kind 2). Fragments of
-- larger messages show their framing and position only.
--
-- Registered on UDP port 6101 (changeable in the protocol's preferences);
-- for other ports use Decode As... (UDP port -> VXLINDRAL) or tshark's
-- -d udp.port==PORT,vxlindral. A heuristic also recognises the magic on
-- any UDP port.
--
-- Install: copy to ~/.local/lib/wireshark/plugins/ (Wireshark 3.x/4.x), or
-- run  wireshark -X lua_script:tools/wireshark/vxlindral.lua capture.pcap

local vx = Proto("vxlindral", "Vx Lindral line data")

local MAGIC = 0x46535856 -- "VXSF" read little-endian
local DEFAULT_PORT = 6101

local kinds = { [1] = "raw line", [2] = "file header" }

local f = vx.fields
-- datagram framing
f.magic = ProtoField.uint32("vxlindral.magic", "Magic", base.HEX)
f.message = ProtoField.uint32("vxlindral.message", "Message number", base.DEC)
f.length = ProtoField.uint32("vxlindral.length", "Message length", base.DEC)
f.offset = ProtoField.uint32("vxlindral.offset", "Fragment offset", base.DEC)
f.payload = ProtoField.bytes("vxlindral.payload", "Message bytes")
f.fragment = ProtoField.bool("vxlindral.fragment", "Fragment of a larger message")
-- message
f.kind = ProtoField.uint32("vxlindral.kind", "Kind", base.DEC, kinds)
-- raw line
f.series = ProtoField.uint32("vxlindral.series", "Series", base.DEC)
f.protocol = ProtoField.uint32("vxlindral.protocol", "Protocol", base.DEC)
f.subprotocol = ProtoField.uint32("vxlindral.subprotocol", "Sub-protocol", base.DEC)
f.version = ProtoField.string("vxlindral.version", "Protocol version")
f.device = ProtoField.uint32("vxlindral.device", "Device", base.DEC)
f.word0 = ProtoField.uint32("vxlindral.word0", "Word 0", base.DEC)
f.word1 = ProtoField.uint32("vxlindral.word1", "Word 1", base.DEC)
f.word2 = ProtoField.uint32("vxlindral.word2", "Word 2", base.DEC)
f.word3 = ProtoField.uint32("vxlindral.word3", "Word 3", base.DEC)
f.word4 = ProtoField.uint32("vxlindral.word4", "Word 4", base.DEC)
f.datatyp = ProtoField.uint32("vxlindral.datatyp", "Datatyp", base.DEC)
f.mode = ProtoField.uint32("vxlindral.mode", "Mode", base.DEC)
f.layout_flag = ProtoField.uint32("vxlindral.layout_flag", "Layout flag (non-zero: short)",
    base.DEC)
f.lineheadersize = ProtoField.int32("vxlindral.lineheadersize", "Line header size", base.DEC)
f.bpp = ProtoField.uint32("vxlindral.bpp", "Bytes per pixel", base.DEC)
f.pixels = ProtoField.uint32("vxlindral.pixels", "Pixels", base.DEC)
f.extra1 = ProtoField.uint32("vxlindral.extra1", "Extra word 1", base.DEC)
f.extra2 = ProtoField.uint32("vxlindral.extra2", "Extra word 2", base.DEC)
f.factor = ProtoField.uint32("vxlindral.factor", "Per-pixel factor", base.DEC)
f.parameter = ProtoField.double("vxlindral.parameter", "Parameter")
f.line_length = ProtoField.uint32("vxlindral.line_length", "Declared line length", base.DEC)
f.line_header = ProtoField.bytes("vxlindral.line_header", "Line header")
f.pixel_data = ProtoField.bytes("vxlindral.pixel_data", "Pixel data")
-- file header
f.name_length = ProtoField.uint32("vxlindral.name_length", "Name length", base.DEC)
f.name = ProtoField.string("vxlindral.name", "Name", base.UNICODE)
f.entries = ProtoField.uint32("vxlindral.entries", "Entries", base.DEC)
f.entry = ProtoField.bytes("vxlindral.entry", "Entry")
f.key = ProtoField.uint32("vxlindral.key", "Key", base.DEC)
f.value = ProtoField.double("vxlindral.value", "Value")

local ef_magic = ProtoExpert.new("vxlindral.bad_magic", "Not the VXSF magic",
    expert.group.MALFORMED, expert.severity.ERROR)
local ef_fragment = ProtoExpert.new("vxlindral.bad_fragment",
    "Fragment reaches beyond the message length", expert.group.MALFORMED, expert.severity.ERROR)
local ef_short = ProtoExpert.new("vxlindral.short", "Message shorter than its header",
    expert.group.MALFORMED, expert.severity.ERROR)
local ef_line = ProtoExpert.new("vxlindral.line_too_long",
    "Declared line is longer than the message (the receiver drops it)",
    expert.group.MALFORMED, expert.severity.WARN)
local ef_kind = ProtoExpert.new("vxlindral.unknown_kind", "Unknown message kind (ignored)",
    expert.group.UNDECODED, expert.severity.NOTE)
vx.experts = { ef_magic, ef_fragment, ef_short, ef_line, ef_kind }

vx.prefs.port = Pref.uint("UDP port", DEFAULT_PORT, "UDP port of the line data")

local function rawLine(m, tree, pinfo)
    local n = m:len()
    local protocol = m(8, 4):le_uint()
    local sub = m(12, 4):le_uint()
    local v11 = protocol == 1 and sub == 1
    local headerSize = v11 and 92 or 128
    if n < headerSize then
        tree:add_proto_expert_info(ef_short)
        return "raw line (short)"
    end
    tree:add_le(f.series, m(4, 4))
    tree:add_le(f.protocol, m(8, 4))
    tree:add_le(f.subprotocol, m(12, 4))
    tree:add(f.version, m(8, 8), protocol .. "." .. sub)
    tree:add_le(f.device, m(16, 4))

    local words = tree:add(vx, m(24, 20), "Words 0..4")
    local w = {}
    for i = 0, 4 do
        w[i] = m(24 + 4 * i, 4)
        words:add_le(f["word" .. i], w[i])
    end
    if v11 then
        tree:add_le(f.datatyp, w[0])
        tree:add_le(f.layout_flag, w[1])
    else
        tree:add_le(f.mode, w[0])
        tree:add_le(f.datatyp, m(124, 4))
    end
    tree:add_le(f.lineheadersize, w[2])
    tree:add_le(f.bpp, w[3])
    tree:add_le(f.pixels, w[4])
    if not v11 then
        if sub == 3 then
            tree:add_le(f.extra1, m(48, 4))
            tree:add_le(f.extra2, m(52, 4))
            tree:add_le(f.factor, m(64, 4))
        end
        tree:add_le(f.parameter, m(72, 8))
    end

    local lhs = w[2]:le_int()
    local bpp = w[3]:le_uint()
    local pixels = w[4]:le_uint()
    local lineLength = lhs + pixels * bpp
    if lineLength >= 0 and lineLength < 2 ^ 32 then
        tree:add(f.line_length, m(32, 12), lineLength):set_generated()
    end
    local left = n - headerSize
    if lhs < 0 or lineLength > left then
        tree:add_proto_expert_info(ef_line)
    else
        if lhs > 0 then
            tree:add(f.line_header, m(headerSize, lhs))
        end
        if pixels * bpp > 0 then
            tree:add(f.pixel_data, m(headerSize + lhs, pixels * bpp))
        end
    end
    return string.format("raw line %d.%d series %d device %d, %d px x %d B",
        protocol, sub, m(4, 4):le_uint(), m(16, 4):le_uint(), pixels, bpp)
end

local function fileHeader(m, tree)
    local n = m:len()
    if n < 16 then
        tree:add_proto_expert_info(ef_short)
        return "file header (short)"
    end
    tree:add_le(f.device, m(8, 4))
    tree:add_le(f.name_length, m(12, 4))
    local nameLength = m(12, 4):le_uint()
    if 16 + nameLength > n then
        tree:add_proto_expert_info(ef_short)
        return "file header (short)"
    end
    local name = ""
    if nameLength > 0 then
        tree:add(f.name, m(16, nameLength))
        name = m(16, nameLength):string(ENC_UTF_8)
    end
    local at = 16 + nameLength
    local count = math.floor((n - at) / 12)
    local list = tree:add(f.entries, m(at, n - at), count)
    for i = 0, count - 1 do
        local e = m(at + 12 * i, 12)
        local item = list:add(f.entry, e)
        item:set_text(string.format("%u = %.17g", e(0, 4):le_uint(), e(4, 8):le_float()))
        item:add_le(f.key, e(0, 4))
        item:add_le(f.value, e(4, 8))
    end
    return string.format("file header device %d \"%s\", %d entries", m(8, 4):le_uint(), name,
        count)
end

function vx.dissector(tvb, pinfo, tree)
    local n = tvb:len()
    if n < 16 then
        return 0
    end
    pinfo.cols.protocol = "VXLINDRAL"
    local root = tree:add(vx, tvb(), "Vx Lindral line data")
    local magicItem = root:add_le(f.magic, tvb(0, 4))
    root:add_le(f.message, tvb(4, 4))
    root:add_le(f.length, tvb(8, 4))
    root:add_le(f.offset, tvb(12, 4))
    if tvb(0, 4):le_uint() ~= MAGIC then
        magicItem:add_proto_expert_info(ef_magic)
        pinfo.cols.info = "not VXSF framing"
        return n
    end
    local number = tvb(4, 4):le_uint()
    local length = tvb(8, 4):le_uint()
    local offset = tvb(12, 4):le_uint()
    local carried = n - 16
    if carried > 0 then
        root:add(f.payload, tvb(16, carried))
    end
    if offset + carried > length then
        root:add_proto_expert_info(ef_fragment)
    end
    if offset ~= 0 or length ~= carried then
        root:add(f.fragment, true):set_generated()
        pinfo.cols.info = string.format("message %d fragment %d..%d of %d", number, offset,
            offset + carried, length)
        return n
    end
    if carried < 4 then
        root:add_proto_expert_info(ef_short)
        return n
    end
    local m = tvb(16, carried):tvb()
    local kind = m(0, 4):le_uint()
    local kindItem = root:add_le(f.kind, m(0, 4))
    local info
    if kind == 1 then
        info = rawLine(m, root, pinfo)
    elseif kind == 2 then
        info = fileHeader(m, root)
    else
        kindItem:add_proto_expert_info(ef_kind)
        info = "unknown kind " .. kind
    end
    pinfo.cols.info = string.format("message %d: %s", number, info)
    return n
end

local udpPorts = DissectorTable.get("udp.port")
local registeredPort = DEFAULT_PORT
udpPorts:add(registeredPort, vx)

function vx.prefs_changed()
    if vx.prefs.port ~= registeredPort then
        udpPorts:remove(registeredPort, vx)
        registeredPort = vx.prefs.port
        udpPorts:add(registeredPort, vx)
    end
end

-- Recognises the framing on any UDP port by its magic.
local function heuristic(tvb, pinfo, tree)
    if tvb:len() < 16 or tvb(0, 4):le_uint() ~= MAGIC then
        return false
    end
    vx.dissector(tvb, pinfo, tree)
    return true
end
vx:register_heuristic("udp", heuristic)
