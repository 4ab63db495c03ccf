-- moxlink.lua: Wireshark dissector of the music-information module's phone
-- link (the envelopes of docs/wire-format.md and the response database of
-- docs/response-database.md).
--
-- Captures written by `mox lookup --capture` and `mox-phone --capture` are
-- exported-PDU files (link type 252) whose records name this dissector
-- ("moxlink") and carry the direction (0 module -> phone, 1 phone -> module);
-- each record is one envelope exactly as it went over the link. A tcpdump of
-- a tcp: link decodes too, through the heuristic dissector on TCP.
--
-- Install: copy into Wireshark's Lua plugin folder (`tshark -G folders`), or
-- load it for one run: tshark -X lua_script:moxlink.lua -r lookup.pcap -V
--
-- Everything the bytes get wrong (lengths, chunk gaps and repeats, indexes
-- beyond the count, a database that does not hold together) is reported as
-- expert info of the "protocol" or "sequence" group; the dissector never
-- raises a Lua error on any input, so a malformed-packet marker means a fault
-- of the dissector itself.

local moxlink = Proto("moxlink", "Mox phone link")

local MAX_LENGTH = 1048576
local MAX_RECORDS_SHOWN = 4096

local envelope_types = { [1] = "DEVICE_INFO", [2] = "DEVICE_STATUS", [3] = "COMMAND" }
local os_types = { [0] = "iOS", [1] = "Android" }
local device_states = {
    [0] = "no device", [1] = "device connected", [2] = "application open", [3] = "closed",
}
local commands = {
    [0x0001] = "connect", [0x0002] = "disconnect", [0x0010] = "TOC lookup event",
    [0x0012] = "get CD meta info", [0x0FFF] = "cancel", [0x7FFF] = "echo request",
    [0x8001] = "connect answer", [0x8010] = "lookup accepted",
    [0x8011] = "lookup result ready", [0x8012] = "response database chunk",
    [0x8FFF] = "cancel answer", [0xFFFF] = "echo answer",
}
local directions = { [0] = "module -> phone", [1] = "phone -> module" }
local section_names = {
    "OwnSize", "RudTrack", "RudPlaylist", "RudPlaylistTrack", "StringTable", "StringList",
    "QuillTrack", "QuillAlbum", "QuillAlbumTracks", "QuillCredits", "QuillArtist", "QuillGenre",
    "QuillDesc", "QuillToc", "QuillTrackIndices",
}
local SECTION = {
    StringTable = 5, QuillTrack = 7, QuillAlbum = 8, QuillAlbumTracks = 9, QuillArtist = 11,
    QuillGenre = 12, QuillToc = 14,
}

-- ---- Fields ----

local f = moxlink.fields
f.direction = ProtoField.uint8("moxlink.direction", "Direction", base.DEC, directions)
f.length = ProtoField.uint32("moxlink.length", "Envelope length", base.DEC)
f.type = ProtoField.uint8("moxlink.type", "Envelope type", base.HEX, envelope_types)
f.os = ProtoField.uint8("moxlink.device_info.os", "OS type", base.DEC, os_types)
f.device_name = ProtoField.string("moxlink.device_info.name", "Device name")
f.device_status = ProtoField.uint8("moxlink.device_status", "Device status", base.DEC,
    device_states)
f.cmd = ProtoField.uint16("moxlink.cmd", "Command", base.HEX, commands)
f.status = ProtoField.uint16("moxlink.status", "Status", base.DEC)
f.chunk_index = ProtoField.uint16("moxlink.chunk.index", "Chunk index", base.DEC)
f.chunk_count = ProtoField.uint16("moxlink.chunk.count", "Chunk count", base.DEC)
f.connect_arg = ProtoField.uint8("moxlink.connect.arg", "Connect argument", base.DEC)
f.lookup_kind = ProtoField.uint8("moxlink.lookup.kind", "Lookup kind", base.DEC)
f.lookup_pad = ProtoField.uint8("moxlink.lookup.reserved", "Reserved", base.HEX)
f.lookup_param1 = ProtoField.uint16("moxlink.lookup.param1", "Lookup parameter 1", base.DEC)
f.lookup_param2 = ProtoField.uint16("moxlink.lookup.param2", "Lookup parameter 2", base.DEC)
f.lookup_xml = ProtoField.string("moxlink.lookup.xml", "XML document")
f.lookup_toc = ProtoField.string("moxlink.lookup.toc", "TOC text")
f.meta_arg = ProtoField.uint32("moxlink.get_meta.arg", "Request argument", base.DEC)
f.notice_size = ProtoField.uint32("moxlink.notice.size", "Response database size", base.DEC)
f.chunk_length = ProtoField.uint32("moxlink.chunk.length", "Payload length", base.DEC)
f.chunk_payload = ProtoField.bytes("moxlink.chunk.payload", "Payload")
f.reassembled_in = ProtoField.framenum("moxlink.chunk.reassembled_in", "Reassembled in")
f.trailing = ProtoField.bytes("moxlink.trailing", "Bytes after the frame")
f.raw = ProtoField.bytes("moxlink.raw", "Unframed bytes")

f.db = ProtoField.uint32("moxlink.db", "Response database, bytes", base.DEC)
f.db_chunks = ProtoField.uint16("moxlink.db.chunks", "Chunks", base.DEC)
f.db_signature = ProtoField.bytes("moxlink.db.signature", "Signature")
f.db_version = ProtoField.uint32("moxlink.db.version", "Version", base.HEX)
f.db_appver1 = ProtoField.string("moxlink.db.appver1", "AppVer1")
f.db_appver2 = ProtoField.string("moxlink.db.appver2", "AppVer2")
f.db_reserved = ProtoField.bytes("moxlink.db.reserved", "Reserved")
f.db_section = ProtoField.uint32("moxlink.db.section", "Section", base.DEC)
f.db_head_size = ProtoField.uint32("moxlink.db.head.own_size", "OwnSize", base.DEC)
f.db_head_record_size = ProtoField.uint16("moxlink.db.head.record_size", "RecordSize", base.DEC)
f.db_head_count = ProtoField.uint16("moxlink.db.head.record_count", "RecordCount", base.DEC)
f.db_field = ProtoField.uint32("moxlink.db.field", "Field", base.DEC)
f.db_string = ProtoField.string("moxlink.db.string", "String")
f.db_toc = ProtoField.string("moxlink.db.toc", "TOC record")
f.db_album = ProtoField.string("moxlink.db.album", "Album")
f.db_album_title = ProtoField.string("moxlink.db.album.title", "Title")
f.db_album_genre = ProtoField.string("moxlink.db.album.genre", "Genre code")
f.db_album_confidence = ProtoField.int32("moxlink.db.album.confidence", "Confidence")
f.db_album_track = ProtoField.string("moxlink.db.album.track", "Track")
f.db_track_performer = ProtoField.string("moxlink.db.album.track.performer", "Performer")
f.db_track_genre = ProtoField.string("moxlink.db.album.track.genre", "Genre code")
f.db_track = ProtoField.string("moxlink.db.track", "Track record")
f.db_artist = ProtoField.string("moxlink.db.artist", "Artist record")
f.db_genre = ProtoField.string("moxlink.db.genre", "Genre record")

-- ---- Expert info ----

local e = moxlink.experts
e.length_zero = ProtoExpert.new("moxlink.expert.length_zero", "Envelope length 0",
    expert.group.PROTOCOL, expert.severity.ERROR)
e.length_over = ProtoExpert.new("moxlink.expert.length_over",
    "Envelope length over the limit of 1048576", expert.group.PROTOCOL, expert.severity.ERROR)
e.cut = ProtoExpert.new("moxlink.expert.cut", "Envelope cut off",
    expert.group.PROTOCOL, expert.severity.ERROR)
e.unknown_type = ProtoExpert.new("moxlink.expert.unknown_type", "Unknown envelope type",
    expert.group.PROTOCOL, expert.severity.ERROR)
e.payload_size = ProtoExpert.new("moxlink.expert.payload_size",
    "Payload size wrong for the envelope type", expert.group.PROTOCOL, expert.severity.ERROR)
e.short_frame = ProtoExpert.new("moxlink.expert.short_frame",
    "Frame shorter than its layout", expert.group.PROTOCOL, expert.severity.ERROR)
e.long_frame = ProtoExpert.new("moxlink.expert.long_frame",
    "Frame longer than its layout", expert.group.PROTOCOL, expert.severity.WARN)
e.failure = ProtoExpert.new("moxlink.expert.failure", "The phone reports a failure status",
    expert.group.RESPONSE_CODE, expert.severity.WARN)
e.chunk_length = ProtoExpert.new("moxlink.expert.chunk_length",
    "Chunk payload length differs from the bytes carried", expert.group.PROTOCOL,
    expert.severity.ERROR)
e.chunk_gap = ProtoExpert.new("moxlink.expert.chunk_gap", "Chunk out of sequence (gap or repeat)",
    expert.group.SEQUENCE, expert.severity.ERROR)
e.chunk_index = ProtoExpert.new("moxlink.expert.chunk_index", "Chunk index beyond the count",
    expert.group.PROTOCOL, expert.severity.ERROR)
e.chunk_count = ProtoExpert.new("moxlink.expert.chunk_count", "Chunk count differs or is 0",
    expert.group.PROTOCOL, expert.severity.ERROR)
e.db_size = ProtoExpert.new("moxlink.expert.db_size",
    "Reassembled database size differs from the notice", expert.group.PROTOCOL,
    expert.severity.WARN)
e.db_bad = ProtoExpert.new("moxlink.expert.db_bad", "Response database does not hold together",
    expert.group.PROTOCOL, expert.severity.ERROR)
e.lookup_bad = ProtoExpert.new("moxlink.expert.lookup_bad", "Malformed lookup request",
    expert.group.PROTOCOL, expert.severity.ERROR)
e.truncated = ProtoExpert.new("moxlink.expert.truncated", "Capture record truncated",
    expert.group.UNDECODED, expert.severity.NOTE)
e.internal = ProtoExpert.new("moxlink.expert.internal", "Dissector failure",
    expert.group.UNDECODED, expert.severity.ERROR)

-- ---- State of the first pass, by frame number ----
-- Chunk sequences are judged in capture order on the first pass; what they
-- found is kept per frame so that later passes show the same.

local transfer     -- the chunk transfer in progress: {next, count, parts, frames, size}
local notes        -- frame number -> {gap=..., reassembled=string, in_frame=n}
local last_notice  -- database size of the last notice

local function reset_state()
    transfer = nil
    notes = {}
    last_notice = nil
end
reset_state()
moxlink.init = reset_state

-- ---- Helpers ----

local function direction_of(pinfo, tvb)
    local dir = pinfo.p2p_dir
    if dir == 0 or dir == 1 then
        return dir
    end
    -- Without a recorded direction (a TCP stream): the phone sends device
    -- info, device status and the answers (IDs from 0x8000).
    if tvb:len() >= 5 then
        local t = tvb(4, 1):uint()
        if t ~= 3 then
            return 1
        end
        if tvb:len() >= 6 and tvb(5, 1):uint() >= 0x80 then
            return 1
        end
        return 0
    end
    return -1
end

local function u16_text(tvb, offset)
    local parts = {}
    for i = 0, 3 do
        parts[#parts + 1] = tostring(tvb(offset + 2 * i, 2):le_uint())
    end
    return table.concat(parts, ".")
end

-- ---- The response database ----

local function db_string(db, strings, s)
    -- The entry at StringTable + 4 + s: a u16 count, then that many UTF-16 units.
    if strings == nil then
        return nil, "no string area"
    end
    local at = strings + 4 + s
    if at + 2 > db:len() then
        return nil, string.format("string %d outside the file", s)
    end
    local units = db(at, 2):le_uint()
    if units >= 1024 then
        return nil, string.format("string %d of %d units, over 1023", s, units)
    end
    if at + 2 + 2 * units > db:len() then
        return nil, string.format("string %d runs past the end of the file", s)
    end
    if units == 0 then
        return "", nil, db(at, 2)
    end
    local range = db(at + 2, 2 * units)
    local text = range:le_ustring()
    local zero = text:find("\0", 1, true)
    if zero then
        text = text:sub(1, zero - 1)
    end
    return text, nil, db(at, 2 + 2 * units)
end

-- Adds string field `field` for string offset `s` read at `range`.
local function add_db_string(tree, field, db, strings, s, range)
    local text, problem = db_string(db, strings, s)
    if text == nil then
        local item = tree:add(field, range, "")
        item:add_proto_expert_info(e.db_bad, problem)
        return nil
    end
    tree:add(field, range, text)
    return text
end

local record_layouts = {
    [SECTION.QuillToc] = { size = 20, name = "QuillToc" },
    [SECTION.QuillAlbum] = { size = 84, name = "QuillAlbum" },
    [SECTION.QuillTrack] = { size = 72, name = "QuillTrack" },
    [SECTION.QuillArtist] = { size = 44, name = "QuillArtist" },
    [SECTION.QuillGenre] = { size = 8, name = "QuillGenre" },
}

local album_fields = {
    "Id", "MediaNum", "MediaCount", "Title", "TitleYomi", "Performer", "Composer", "Genre",
    "Tracks", "Confidence", "Language", "ImageUrl", "Upc", "RelYear", "PickFlag", "KeyTitle",
    "Credits", "FirstTrackByMedia", "Styles", "Tones", "Themas",
}
local track_fields = {
    "Id", "Title", "TitleYomi", "Performer", "Composer", "Genre", "Time", "Language",
    "Confidence", "MediaNum", "TrackNum", "PickFlag", "KeyTitle", "Work", "Part", "Conductor",
    "PerfDate", "CompDate",
}
local artist_fields = {
    "Id", "Name", "NameYomi", "KeyName", "Genre", "Styles", "Tones", "Themas", "SimilarArtists",
    "Influences", "Followers",
}

-- The records of one section: {offset=, values={Name=value}} each; false
-- with the reason when the head or the records do not fit.
local function read_section(db, section, stride_from_head)
    local layout = record_layouts[section.index]
    local o = section.offset
    if o == 0 or o + 8 > db:len() then
        return nil, string.format("%s head at %d outside the file", layout.name, o)
    end
    local record_size = db(o + 4, 2):le_uint()
    local count = db(o + 6, 2):le_uint()
    local stride = stride_from_head and record_size or layout.size
    local records = {}
    local problem = nil
    for i = 0, count - 1 do
        if i >= MAX_RECORDS_SHOWN then
            problem = string.format("%s: only the first %d of %d records shown", layout.name,
                MAX_RECORDS_SHOWN, count)
            break
        end
        local at = o + 8 + i * stride
        if at + layout.size > db:len() then
            problem = string.format("%s record %d of %d runs past the end of the file",
                layout.name, i, count)
            break
        end
        records[#records + 1] = { offset = at }
    end
    return records, problem, record_size, count
end

local function u32_values(db, at, names)
    local values = {}
    for i, name in ipairs(names) do
        values[name] = db(at + 4 * (i - 1), 4):le_uint()
    end
    return values
end

local function add_u32_fields(tree, db, at, names)
    for i, name in ipairs(names) do
        local r = db(at + 4 * (i - 1), 4)
        tree:add(f.db_field, r, r:le_uint()):set_text(name .. ": " .. r:le_uint())
    end
end

local function decode_database(db, tree)
    local root = tree:add(f.db, db(), db:len())
    if db:len() < 124 then
        root:add_proto_expert_info(e.db_bad,
            string.format("database of %d bytes, shorter than its header and section table",
                db:len()))
        return
    end
    local header = root:add(db(0, 64), "Header")
    header:add(f.db_signature, db(0, 4))
    local version = db(4, 4):le_uint()
    local vitem = header:add_le(f.db_version, db(4, 4))
    local top = math.floor(version / 16777216)
    if not (top == 0 or top == 1 or version == 0x10000000) then
        vitem:add_proto_expert_info(e.db_bad, string.format("version 0x%08x is not accepted",
            version))
    end
    header:add(f.db_appver1, db(8, 8), u16_text(db, 8))
    header:add(f.db_appver2, db(16, 8), u16_text(db, 16))
    header:add(f.db_reserved, db(24, 40))

    local table_tree = root:add(db(64, 60), "Section table")
    local sections = {}
    for i = 1, 15 do
        local r = db(64 + 4 * (i - 1), 4)
        local value = r:le_uint()
        sections[i] = { index = i, offset = value }
        local item = table_tree:add(f.db_section, r, value)
        item:set_text(string.format("%s: %d", section_names[i], value))
        if i > 1 and value > db:len() then
            item:add_proto_expert_info(e.db_bad,
                string.format("%s at %d outside the file of %d bytes", section_names[i], value,
                    db:len()))
        end
    end
    local strings = sections[SECTION.StringTable].offset
    if strings + 4 > db:len() then
        strings = nil
    end
    local lists = sections[SECTION.QuillAlbumTracks].offset

    -- Every family's records, each read once.
    local families = {}
    for _, index in ipairs({ SECTION.QuillToc, SECTION.QuillAlbum, SECTION.QuillTrack,
        SECTION.QuillArtist, SECTION.QuillGenre }) do
        local layout = record_layouts[index]
        local records, problem, record_size, count =
            read_section(db, sections[index], index == SECTION.QuillToc)
        local ftree = root:add(db(math.min(sections[index].offset, db:len() - 1), 0),
            string.format("%s (%d records)", layout.name, count or 0))
        if records == nil then
            ftree:add_proto_expert_info(e.db_bad, problem)
            records = {}
        else
            local o = sections[index].offset
            ftree:add_le(f.db_head_size, db(o, 4))
            ftree:add_le(f.db_head_record_size, db(o + 4, 2))
            ftree:add_le(f.db_head_count, db(o + 6, 2))
            if problem then
                ftree:add_proto_expert_info(e.db_bad, problem)
            end
            if index ~= SECTION.QuillToc and record_size ~= layout.size then
                ftree:add_proto_expert_info(e.db_bad,
                    string.format("%s records of %d bytes, expected %d", layout.name,
                        record_size, layout.size))
            end
        end
        families[index] = { tree = ftree, records = records }
    end

    local tracks_by_id, artists_by_id, genres_by_id = {}, {}, {}

    for _, rec in ipairs(families[SECTION.QuillGenre].records) do
        local v = u32_values(db, rec.offset, { "Id", "Name" })
        local code = db_string(db, strings, v.Id)
        genres_by_id[v.Id] = code
        local item = families[SECTION.QuillGenre].tree:add(f.db_genre, db(rec.offset, 8),
            code or "?")
        add_db_string(item, f.db_string, db, strings, v.Id, db(rec.offset, 4))
        add_db_string(item, f.db_string, db, strings, v.Name, db(rec.offset + 4, 4))
    end
    for _, rec in ipairs(families[SECTION.QuillArtist].records) do
        local v = u32_values(db, rec.offset, artist_fields)
        local name = db_string(db, strings, v.Name)
        artists_by_id[v.Id] = name
        local item = families[SECTION.QuillArtist].tree:add(f.db_artist, db(rec.offset, 44),
            name or "?")
        add_u32_fields(item, db, rec.offset, artist_fields)
        add_db_string(item, f.db_string, db, strings, v.Name, db(rec.offset + 4, 4))
    end
    for _, rec in ipairs(families[SECTION.QuillTrack].records) do
        local v = u32_values(db, rec.offset, track_fields)
        local title = db_string(db, strings, v.Title)
        tracks_by_id[v.Id] = { title = title, performer = v.Performer, genre = v.Genre,
            media = v.MediaNum }
        local item = families[SECTION.QuillTrack].tree:add(f.db_track, db(rec.offset, 72),
            title or "?")
        add_u32_fields(item, db, rec.offset, track_fields)
        add_db_string(item, f.db_string, db, strings, v.Title, db(rec.offset + 4, 4))
    end
    for _, rec in ipairs(families[SECTION.QuillToc].records) do
        local id = db(rec.offset, 4):le_uint()
        local toc = db_string(db, strings, id)
        local item = families[SECTION.QuillToc].tree:add(f.db_toc, db(rec.offset, 20),
            toc or "?")
        add_db_string(item, f.db_string, db, strings, id, db(rec.offset, 4))
        item:add(f.db_field, db(rec.offset + 4, 4)):set_text("AlbumId: " ..
            db(rec.offset + 4, 4):le_uint())
        item:add(f.db_field, db(rec.offset + 8, 2)):set_text("MediaNum: " ..
            db(rec.offset + 8, 2):le_uint())
    end
    for _, rec in ipairs(families[SECTION.QuillAlbum].records) do
        local v = u32_values(db, rec.offset, album_fields)
        local id_text = db_string(db, strings, v.Id)
        local atree = families[SECTION.QuillAlbum].tree:add(f.db_album, db(rec.offset, 84),
            id_text or "?")
        add_db_string(atree, f.db_album_title, db, strings, v.Title, db(rec.offset + 12, 4))
        add_db_string(atree, f.db_album_genre, db, strings, v.Genre, db(rec.offset + 28, 4))
        local confidence = v.Confidence
        if confidence >= 2147483648 then
            confidence = confidence - 4294967296
        end
        atree:add(f.db_album_confidence, db(rec.offset + 36, 4), confidence)
        add_u32_fields(atree, db, rec.offset, album_fields)
        -- The album's track list: a u32 count, then the track Ids.
        local list = lists + 4 + v.Tracks
        if lists == 0 or list + 4 > db:len() then
            atree:add_proto_expert_info(e.db_bad,
                string.format("track list at %d outside the file", list))
        else
            local count = db(list, 4):le_uint()
            local ltree = atree:add(db(list, 4), string.format("Track list: %d tracks", count))
            for i = 0, count - 1 do
                local at = list + 4 + 4 * i
                if i >= MAX_RECORDS_SHOWN or at + 4 > db:len() then
                    ltree:add_proto_expert_info(e.db_bad,
                        string.format("track list entry %d of %d not shown or outside the file",
                            i, count))
                    break
                end
                local tid = db(at, 4):le_uint()
                local track = tracks_by_id[tid]
                local titem = ltree:add(f.db_album_track, db(at, 4), track and track.title or "?")
                if track == nil then
                    titem:add_proto_expert_info(e.db_bad, string.format("no track record %d", tid))
                else
                    titem:add(f.db_track_performer, db(at, 4),
                        artists_by_id[track.performer] or "")
                    titem:add(f.db_track_genre, db(at, 4), genres_by_id[track.genre] or "")
                end
            end
        end
    end
end

-- ---- Command frames ----

local function add_header(tree, frame, len)
    if len >= 2 then tree:add(f.cmd, frame(0, 2)) end
    if len >= 4 then tree:add(f.status, frame(2, 2)) end
    if len >= 6 then tree:add(f.chunk_index, frame(4, 2)) end
    if len >= 8 then tree:add(f.chunk_count, frame(6, 2)) end
end

local function dissect_lookup(frame, len, tree)
    if len < 9 then
        tree:add_proto_expert_info(e.lookup_bad, string.format("lookup request of %d bytes", len))
        return
    end
    tree:add(f.lookup_kind, frame(2, 1))
    tree:add(f.lookup_pad, frame(3, 1))
    tree:add(f.lookup_param1, frame(4, 2))
    tree:add(f.lookup_param2, frame(6, 2))
    local xml_len = len - 8
    local has_zero = frame(len - 1, 1):uint() == 0
    if has_zero then
        xml_len = xml_len - 1
    end
    local xml = xml_len > 0 and frame(8, xml_len):string() or ""
    local item = tree:add(f.lookup_xml, frame(8, math.max(xml_len, 0)), xml)
    if not has_zero then
        item:add_proto_expert_info(e.lookup_bad, "the XML document is not followed by a zero byte")
    end
    local s, en = xml:find("<TOC>", 1, true)
    local close = xml:find("</TOC>", 1, true)
    if s and close and close > en then
        local toc = xml:sub(en + 1, close - 1)
        item:add(f.lookup_toc, frame(8 + en, #toc), toc)
    else
        item:add_proto_expert_info(e.lookup_bad, "no <TOC> element in the XML document")
    end
end

-- Chunk bookkeeping on the first pass; returns the frame's notes.
local function follow_chunk(pinfo, index, count, payload)
    local note = { }
    if transfer == nil then
        transfer = { next = 0, count = count, parts = {}, frames = {} }
    end
    if count == 0 then
        note.count = "chunk count 0"
    elseif count ~= transfer.count then
        note.count = string.format("chunk count %d, earlier chunks said %d", count, transfer.count)
    end
    if count ~= 0 and index >= count then
        note.index = string.format("chunk index %d beyond the count %d", index, count)
    end
    if index ~= transfer.next then
        if index < transfer.next then
            note.gap = string.format("chunk %d repeated (expected %d)", index, transfer.next)
        else
            note.gap = string.format("gap: chunk %d, expected %d", index, transfer.next)
        end
    end
    if note.count or note.index or note.gap then
        transfer.broken = true
    end
    transfer.parts[#transfer.parts + 1] = payload
    transfer.frames[#transfer.frames + 1] = pinfo.number
    transfer.next = index + 1
    if not transfer.broken and count ~= 0 and index == count - 1 then
        note.reassembled = table.concat(transfer.parts)
        note.chunks = count
        note.notice = last_notice
        for _, n in ipairs(transfer.frames) do
            notes[n] = notes[n] or {}
            notes[n].in_frame = pinfo.number
        end
        transfer = nil
    end
    return note
end

local function dissect_chunk(frame, len, tree, pinfo)
    if len < 12 then
        tree:add_proto_expert_info(e.short_frame,
            string.format("chunk of %d bytes, shorter than its 12-byte head", len))
        return
    end
    local declared = frame(8, 4):uint()
    local litem = tree:add(f.chunk_length, frame(8, 4))
    local carried = len - 12
    if declared ~= carried then
        litem:add_proto_expert_info(e.chunk_length,
            string.format("payload length %d, the frame carries %d", declared, carried))
    end
    if carried > 0 then
        tree:add(f.chunk_payload, frame(12, carried))
    end
    local index = frame(4, 2):uint()
    local count = frame(6, 2):uint()
    if not pinfo.visited then
        local payload = carried > 0 and frame(12, carried):raw() or ""
        local note = follow_chunk(pinfo, index, count, payload)
        local old = notes[pinfo.number] or {}
        for k, v in pairs(note) do old[k] = v end
        notes[pinfo.number] = old
    end
    local note = notes[pinfo.number] or {}
    if note.count then tree:add_proto_expert_info(e.chunk_count, note.count) end
    if note.index then tree:add_proto_expert_info(e.chunk_index, note.index) end
    if note.gap then tree:add_proto_expert_info(e.chunk_gap, note.gap) end
    if note.in_frame and note.in_frame ~= pinfo.number then
        tree:add(f.reassembled_in, note.in_frame)
    end
    if note.reassembled then
        local db = ByteArray.new(note.reassembled, true):tvb("Response database")
        local item = tree:add(f.db_chunks, note.chunks)
        item:set_generated()
        if note.notice and note.notice ~= #note.reassembled then
            item:add_proto_expert_info(e.db_size,
                string.format("the notice announced %d bytes, the chunks hold %d", note.notice,
                    #note.reassembled))
        end
        decode_database(db, tree)
    end
end

local function dissect_command(frame, pinfo, tree, dir)
    local len = frame:len()
    local ftree = tree:add(frame, "Command frame")
    if len < 2 then
        ftree:add_proto_expert_info(e.short_frame, string.format("frame of %d bytes", len))
        return "short frame"
    end
    local id = frame(0, 2):uint()
    local name = commands[id] or string.format("unknown command 0x%04x", id)
    ftree:set_text(string.format("Command frame: %s (0x%04x)", name, id))
    if id < 0x8000 then
        ftree:add(f.cmd, frame(0, 2))
        if id == 0x0001 then
            if len >= 3 then ftree:add(f.connect_arg, frame(2, 1)) end
        elseif id == 0x0010 then
            if not pinfo.visited then
                transfer = nil
                last_notice = nil
            end
            dissect_lookup(frame, len, ftree)
        elseif id == 0x0012 then
            if not pinfo.visited then
                transfer = nil
            end
            if len >= 6 then ftree:add(f.meta_arg, frame(2, 4)) end
        elseif id == 0x0FFF and not pinfo.visited then
            transfer = nil
        end
        return name
    end
    add_header(ftree, frame, len)
    if len >= 4 then
        local status = frame(2, 2):uint()
        if status ~= 0 then
            ftree:add_proto_expert_info(e.failure, string.format("status %d", status))
            name = string.format("%s, status %d", name, status)
        end
    end
    if id == 0x8011 then
        if len < 12 then
            ftree:add_proto_expert_info(e.short_frame,
                string.format("lookup notice of %d bytes, expected 12", len))
        else
            ftree:add(f.notice_size, frame(8, 4))
            if not pinfo.visited then
                last_notice = frame(8, 4):uint()
            end
            if len > 12 then
                ftree:add_proto_expert_info(e.long_frame,
                    string.format("lookup notice of %d bytes, expected 12", len))
            end
        end
    elseif id == 0x8012 then
        dissect_chunk(frame, len, ftree, pinfo)
        if len >= 8 then
            name = string.format("%s %d/%d", name, frame(4, 2):uint(), frame(6, 2):uint())
        end
    elseif len < 8 then
        ftree:add_proto_expert_info(e.short_frame,
            string.format("answer of %d bytes, expected 8", len))
    elseif len > 8 and commands[id] then
        ftree:add_proto_expert_info(e.long_frame,
            string.format("answer of %d bytes, expected 8", len))
    end
    return name
end

-- ---- Envelopes ----

-- Dissects the envelope at `offset` of `tvb`; returns the bytes used and a
-- summary for the Info column.
local function dissect_envelope(tvb, pinfo, tree, offset, dir)
    local left = tvb:len() - offset
    local etree = tree:add(moxlink, tvb(offset), "Mox phone link envelope")
    if dir == 0 or dir == 1 then
        etree:add(f.direction, dir):set_generated()
    end
    if left < 4 then
        etree:add_proto_expert_info(e.cut,
            string.format("stream ended inside an envelope length (%d of 4 bytes)", left))
        return left, "cut envelope length"
    end
    local n = tvb(offset, 4):uint()
    local litem = etree:add(f.length, tvb(offset, 4))
    if n == 0 then
        litem:add_proto_expert_info(e.length_zero, "envelope length 0")
        return 4, "envelope length 0"
    end
    if n > MAX_LENGTH then
        litem:add_proto_expert_info(e.length_over,
            string.format("envelope length %d over the limit of %d", n, MAX_LENGTH))
        if left > 4 then
            etree:add(f.raw, tvb(offset + 4))
        end
        return left, string.format("envelope length %d over the limit", n)
    end
    if left < 5 then
        etree:add_proto_expert_info(e.cut, string.format(
            "stream ended inside an envelope (0 of %d bytes)", n))
        return left, "cut envelope"
    end
    local t = tvb(offset + 4, 1):uint()
    local titem = etree:add(f.type, tvb(offset + 4, 1))
    local body = math.min(n, left - 4)
    local cut = body < n
    local payload_len = body - 1
    local payload = payload_len > 0 and tvb(offset + 5, payload_len) or nil
    if cut then
        etree:add_proto_expert_info(e.cut,
            string.format("stream ended inside an envelope (%d of %d bytes)", body, n))
    end
    local summary
    if t == 1 then
        if n - 1 < 1 then
            titem:add_proto_expert_info(e.payload_size, "device info envelope without an OS type")
            summary = "DEVICE_INFO without an OS type"
        else
            local os = tvb(offset + 5, 1):uint()
            etree:add(f.os, tvb(offset + 5, 1))
            local name = payload_len > 1 and tvb(offset + 6, payload_len - 1):string(ENC_UTF_8) or ""
            etree:add(f.device_name, payload_len > 1 and tvb(offset + 6, payload_len - 1) or
                tvb(offset + 5, 1), name)
            summary = string.format("DEVICE_INFO %s \"%s\"", os_types[os] or tostring(os), name)
        end
    elseif t == 2 then
        if n - 1 ~= 1 then
            titem:add_proto_expert_info(e.payload_size, string.format(
                "device status envelope with %d payload bytes, expected 1", n - 1))
            summary = "DEVICE_STATUS of a wrong size"
        elseif payload_len >= 1 then
            local status = tvb(offset + 5, 1):uint()
            etree:add(f.device_status, tvb(offset + 5, 1))
            summary = string.format("DEVICE_STATUS %d (%s)", status,
                device_states[status] or "unknown")
        else
            summary = "DEVICE_STATUS"
        end
    elseif t == 3 then
        if cut then
            summary = "COMMAND (cut off)"
            if payload then
                etree:add(f.raw, payload)
            end
        elseif payload == nil then
            etree:add_proto_expert_info(e.short_frame, "command envelope without a frame")
            summary = "COMMAND without a frame"
        else
            summary = dissect_command(payload, pinfo, etree, dir)
        end
    else
        titem:add_proto_expert_info(e.unknown_type, string.format("unknown envelope type 0x%02x", t))
        if payload then
            etree:add(f.raw, payload)
        end
        summary = string.format("unknown envelope type 0x%02x", t)
    end
    return 4 + body, summary
end

local function dissect_all(tvb, pinfo, tree)
    pinfo.cols.protocol = "MOXLINK"
    local dir = direction_of(pinfo, tvb)
    local offset = 0
    local summaries = {}
    while offset < tvb:len() do
        local used, summary = dissect_envelope(tvb, pinfo, tree, offset, dir)
        summaries[#summaries + 1] = summary
        if used <= 0 then
            break
        end
        offset = offset + used
    end
    local prefix = directions[dir] and (directions[dir] .. ": ") or ""
    pinfo.cols.info = prefix .. table.concat(summaries, "; ")
    return tvb:len()
end

local function dissect_pdu(tvb, pinfo, tree)
    local ok, result = pcall(dissect_all, tvb, pinfo, tree)
    if not ok then
        tree:add_proto_expert_info(e.internal, tostring(result))
        return tvb:len()
    end
    return result
end

-- ---- TCP: a tcpdump of a tcp: link ----

local PT_TCP = 2

local function looks_like_envelope(tvb, offset)
    if tvb:len() - offset < 5 then
        return false
    end
    local n = tvb(offset, 4):uint()
    local t = tvb(offset + 4, 1):uint()
    if n == 0 or n > MAX_LENGTH then
        return false
    end
    if t == 2 then
        return n == 2
    end
    if t == 1 then
        return n >= 2 and tvb:len() - offset >= 6 and tvb(offset + 5, 1):uint() <= 1
    end
    if t == 3 and n >= 3 and tvb:len() - offset >= 7 then
        return commands[tvb(offset + 5, 2):uint()] ~= nil
    end
    return false
end

local function tcp_pdu_length(tvb, pinfo, offset)
    local n = tvb(offset, 4):uint()
    if n == 0 then
        return 4
    end
    if n > MAX_LENGTH then
        return tvb:len() - offset
    end
    return 4 + n
end

-- Captures name the dissector in each record (one envelope each); on TCP
-- the envelopes are cut out of the stream, across segments.
function moxlink.dissector(tvb, pinfo, tree)
    if pinfo.port_type == PT_TCP then
        dissect_tcp_pdus(tvb, tree, 4, tcp_pdu_length, dissect_pdu, true)
        return tvb:len()
    end
    return dissect_pdu(tvb, pinfo, tree)
end

local function heuristic(tvb, pinfo, tree)
    if not looks_like_envelope(tvb, 0) then
        return false
    end
    pinfo.conversation = moxlink
    moxlink.dissector(tvb, pinfo, tree)
    return true
end

moxlink:register_heuristic("tcp", heuristic)
