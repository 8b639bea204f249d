// VTS_ATRT, the title set attribute table of VIDEO_TS.IFO.
//
// Layout: count, reserved, end address (8 + 780n - 1); one 4-byte start
// address per title set; then one 776-byte attribute record per title set.
// A record holds its end address (always 775) and category, then a copy of
// the attribute area of the title set's VTSI_MAT from its byte 256 on. The
// menu audio and sub-picture attributes are carried as one byte per stream
// at consecutive offsets, the title ones with their full 8 and 6 bytes.
#include <cstdlib>
#include <cstring>

#include "frame/detail.h"
#include "kestro/ini.h"
#include "kestro/vmg.h"

using namespace kestro;

namespace {

constexpr const char* kSection = "vts_atrt";
constexpr uint32_t kRecordEnd = 775;

// How a field's value is shown in the report and the source.
enum class Form {
    Dec,  // a big-endian number of 1 or 4 bytes, in decimal in both
    Hex,  // the bytes as hex digits, in the source after an x
    // As Hex in the source. The report shows only the first byte, as %x, on
    // a line numbered by the characters the report has written so far plus
    // one, not by the stream.
    FirstByte,
};
// How the assembler reads a field.
enum class Reader {
    Computed,   // written by the assembler, never read
    EndsTable,  // a title set without it ends the table
    Required,   // "[key] Statement missing in vts_atrt!" without it
    // Menu stream attributes are written in hexadecimal but read back in
    // decimal (x0c reads as 0, x12 as 12); the pairing is part of the
    // format as this library carries it.
    DecimalAfterX,
};
// The fields of an attribute record in the order they are reported,
// written and read. A stream list holds one field of `size` bytes per
// stream, as many as the byte at countAt says; its key takes the stream
// number after the title set's.
struct AttrField {
    const char* key;
    size_t at, size;
    Form form;
    Reader reader;
    const char* line;
    size_t countAt = 0;             // stream lists only
    const char* streams = nullptr;  // their name when too many do not fit the record
};
const AttrField kAttrFields[] = {
    {"vts_atrt_srp%03d_vts_atr_ea", 0, 4, Form::Dec, Reader::Computed,
     "    VTS Attribute end byte address %d"},
    {"vts_atrt_srp%03d_vts_cat", 4, 4, Form::Dec, Reader::EndsTable,
     "    VTS_CAT Application type %d"},
    {"vts_atrt_srp%03d_vtsm_v_atr", 8, 2, Form::Hex, Reader::Required,
     "    Attributes of VTSM_VOBS: %s"},
    {"vts_atrt_srp%03d_vtsm_ast_ns", 11, 1, Form::Dec, Reader::Required,
     "    Number of audio streams in VTSM_VOBS: %d"},
    {"vts_atrt_srp%03d_vtsm_ast_atr%02d", 12, 1, Form::FirstByte, Reader::DecimalAfterX,
     "      Audio %d attributes: %x", 11},
    {"vts_atrt_srp%03d_vtsm_spst_ns", 93, 1, Form::Dec, Reader::Required,
     "    Number of subpicture streams: %d"},
    {"vts_atrt_srp%03d_vtsm_spst_atr%02d", 94, 1, Form::FirstByte, Reader::DecimalAfterX,
     "      Subpicture stream %d attributes: %x", 93},
    {"vts_atrt_srp%03d_vts_v_atr", 264, 2, Form::Hex, Reader::Required,
     "    Video attributes of VTSTT_VOBS: %s"},
    {"vts_atrt_srp%03d_vts_ast_ns", 267, 1, Form::Dec, Reader::Required,
     "    Number of audio streams in VTSTT_VOBS: %d"},
    {"vts_atrt_srp%03d_vts_ast_atr%02d", 268, 8, Form::Hex, Reader::Required,
     "      Audio %d attributes: %s", 267, "audio"},
    {"vts_atrt_srp%03d_vts_spst_ns", 349, 1, Form::Dec, Reader::Required,
     "    Number of subpicture streams in VTSTT_VOBS: %d"},
    {"vts_atrt_srp%03d_vts_spst_atr%02d", 350, 6, Form::FirstByte, Reader::Required,
     "      Subpicture stream %d attributes: %x", 349, "subpicture"},
};

// Start address of title set k (1-based) as the table is written.
uint32_t StartAddress(uint32_t count, uint32_t k) {
    return 4 * count + 8 + CKestro_VMG_ATRT::kRecordSize * (k - 1);
}

// The record a start address points at, as a body offset (start - 8).
ByteView RecordAt(const ByteView& body, uint32_t start) {
    return start >= 8 ? body.From(start - 8) : ByteView();
}

// Fields in one record: a stream list has its count of them, any other field one.
int Streams(const ByteView& rec, const AttrField& f) { return f.countAt ? rec.U8(f.countAt) : 1; }

// The field of stream j (1-based; 1 for a field that is not a list).
ByteView FieldAt(const ByteView& rec, const AttrField& f, int j) {
    return rec.From(f.at + f.size * size_t(j - 1));
}

}  // namespace

CKestro_VMG_ATRT::CKestro_VMG_ATRT() = default;
CKestro_VMG_ATRT::~CKestro_VMG_ATRT() = default;

int CKestro_VMG_ATRT::Load(int hFile, unsigned long startSector) {
    // The whole end address is read back as the body.
    return m_loaded.LoadTableHeader(hFile, startSector);
}

bool CKestro_VMG_ATRT::Details(char* buf, int len) {
    Report r(buf, len);
    r.Line("Number of Video Title Sets: %d", m_loaded.count);
    r.Line("End byte address of VTS_ATR table: %d", int(m_loaded.endAddress));
    if (!r.ok()) return false;  // the body is read back only for the records
    BodyScope body(m_loaded);
    for (int i = 1, n = body.Held(4); r.ok() && i <= n; ++i) {
        const uint32_t start = body.View().BE32(4 * size_t(i - 1));
        char head[128];
        Format(head, sizeof head, "  VTS %d Attribute start byte address %d", i, int(start));
        r.Text(head);
        // The attribute lines describe the bytes at body offset (length of
        // the line above) - 8, not the record the start address names; the
        // report has always shown them so.
        ByteView rec = body.View().From(std::strlen(head) - 8);
        for (const auto& f : kAttrFields) {
            for (int j = 1, m = Streams(rec, f); r.ok() && j <= m; ++j) {
                const ByteView v = FieldAt(rec, f, j);
                if (f.form == Form::Dec)
                    r.Line(f.line, int(GetBE(v, 0, f.size)));
                else if (f.form == Form::FirstByte)
                    r.Line(f.line, int(r.Written() + 1), v.U8(0));
                else if (f.countAt)
                    r.Line(f.line, j, HexDigits(v, f.size).c_str());
                else
                    r.Line(f.line, HexDigits(v, f.size).c_str());
            }
        }
    }
    // This report ends without the closing line end the other tables write.
    return r.ok();
}

bool CKestro_VMG_ATRT::Disasm(const char* iniPath) {
    Source src(iniPath, kSection);
    src.Write("vts_ns", "%d", m_loaded.count);
    src.Write("vts_atrt_ea", "%d", int(m_loaded.endAddress));
    BodyScope body(m_loaded);
    for (int i = 1, n = body.Held(4); i <= n; ++i) {
        const uint32_t start = body.View().BE32(4 * size_t(i - 1));
        ByteView rec = RecordAt(body.View(), start);
        src.Write(src.Key("vts_atrt_srp%03d_vts_atr_sa", i), "%d", int(start));
        for (const auto& f : kAttrFields) {
            for (int j = 1, m = Streams(rec, f); j <= m; ++j) {
                const ByteView v = FieldAt(rec, f, j);
                const char* key = src.Key(f.key, i, j);
                if (f.form == Form::Dec)
                    src.Write(key, "%d", int(GetBE(v, 0, f.size)));
                else
                    src.Write(key, "x%s", HexDigits(v, f.size).c_str());
            }
        }
    }
    INIFlushFiles();
    return true;
}

bool CKestro_VMG_ATRT::Asm(const char* iniPath) {
    m_records.clear();
    m_recordCount = 0;
    m_header.fill(0);

    Source src(iniPath, kSection);
    if (!src.Read("vts_ns")) {
        SetError("vts_ns");
        return false;
    }
    const auto n = static_cast<uint16_t>(src.Int());
    if (n > kMaxTitleSets) {
        SetError("[vts_ns] %u title sets exceed the %d a title set attribute table can hold",
                 unsigned(n), kMaxTitleSets);
        return false;
    }
    PutBE16(m_header.data(), n);
    m_recordCount = n;
    if (n == 0) return true;
    m_records.reserve(n);

    for (int i = 1; i <= n; ++i) {
        auto& rec = m_records.emplace_back();
        for (const auto& f : kAttrFields) {
            if (f.reader == Reader::Computed) continue;
            // A stream list follows its count, the statement read last.
            const int m = f.countAt ? rec[f.countAt] : 1;
            if (f.countAt && size_t(m) > (kRecordSize - f.at) / f.size) {
                SetError("[%s] %d %s streams do not fit a title set attribute record",
                         src.LastKey(), m, f.streams);
                return false;
            }
            for (int j = 1; j <= m; ++j) {
                uint8_t* field = rec.data() + f.at + f.size * size_t(j - 1);
                if (!src.Read(src.Key(f.key, i, j))) {
                    // A title set without a category ends the table; the
                    // count keeps what the source said.
                    if (f.reader == Reader::EndsTable) {
                        m_records.pop_back();
                        return true;
                    }
                    SetError("[%s] Statement missing in vts_atrt!", src.LastKey());
                    return false;
                }
                if (f.reader == Reader::DecimalAfterX)
                    *field = static_cast<uint8_t>(std::atoi(SkipOptionalX(src.Value())));
                else if (f.form == Form::Dec)
                    PutBE(field, f.size, static_cast<uint32_t>(src.Int()));
                else
                    HexBytes(src.Value(), field, f.size);
            }
        }
    }
    return true;
}

void CKestro_VMG_ATRT::Get(unsigned long* sectors, unsigned long* bytes) {
    if (m_recordCount == 0) {
        if (sectors) *sectors = 0;
        if (bytes) *bytes = 0;
        return;
    }
    const unsigned long b = 8 + (4ul + kRecordSize) * m_recordCount;
    PutBE32(m_header.data() + 4, static_cast<uint32_t>(b - 1));
    if (bytes) *bytes = b;
    if (sectors) *sectors = SectorsFor(b);
}

bool CKestro_VMG_ATRT::Write(int hFile) {
    FileWrite(hFile, m_header.data(), m_header.size());
    for (uint32_t k = 1; k <= m_recordCount; ++k) {
        uint8_t sa[4];
        PutBE32(sa, StartAddress(m_recordCount, k));
        FileWrite(hFile, sa, sizeof sa);
    }
    // A table whose Asm stopped at a missing category holds fewer records
    // than its count; only the records held are written.
    for (auto& rec : m_records) {
        PutBE32(rec.data(), kRecordEnd);
        FileWrite(hFile, rec.data(), rec.size());
    }
    PadToSector(hFile);
    m_records.clear();
    m_recordCount = 0;
    return true;
}
