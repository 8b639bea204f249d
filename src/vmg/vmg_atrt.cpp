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
constexpr size_t kTitleAudioAt = 268, kTitleAudioSize = 8;
constexpr size_t kTitleSubpAt = 350, kTitleSubpSize = 6;
constexpr int kMaxTitleAudio = int((CKestro_VMG_ATRT::kRecordSize - kTitleAudioAt) / kTitleAudioSize);
constexpr int kMaxTitleSubp = int((CKestro_VMG_ATRT::kRecordSize - kTitleSubpAt) / kTitleSubpSize);

// Start address of title set k (1-based) as the table is written.
uint32_t StartAddress(uint32_t count, uint32_t k) {
    return 4 * count + 8 + CKestro_VMG_ATRT::kRecordSize * (k - 1);
}

// The record a start address points at, as a body offset (start - 8).
ByteView RecordAt(const ByteView& body, uint32_t start) {
    return start >= 8 ? body.From(start - 8) : ByteView();
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
    if (!r.Line("Number of Video Title Sets: %d", m_loaded.count) ||
        !r.Line("End byte address of VTS_ATR table: %d", int(m_loaded.endAddress)))
        return false;
    m_loaded.ReadBody();
    ByteView body(m_loaded.body);
    for (int i = 1, n = HeldEntries(m_loaded, 4); i <= n; ++i) {
        const uint32_t start = body.BE32(4 * size_t(i - 1));
        char head[128];
        Format(head, sizeof head, "  VTS %d Attribute start byte address %d", i, int(start));
        // The attribute lines describe the bytes at body offset (length of
        // the line above) - 8, not the record the start address names; the
        // report has always shown them so.
        ByteView rec = body.From(std::strlen(head) - 8);
        if (!r.Text(head) ||
            !r.Line("    VTS Attribute end byte address %d", int(rec.BE32(0))) ||
            !r.Line("    VTS_CAT Application type %d", int(rec.BE32(4))) ||
            !r.Line("    Attributes of VTSM_VOBS: %02x%02x", rec.U8(8), rec.U8(9)) ||
            !r.Line("    Number of audio streams in VTSM_VOBS: %d", rec.U8(11)))
            return false;
        // These stream lines are numbered by the characters the report has
        // written so far plus one, not by the stream.
        for (int j = 1; j <= rec.U8(11); ++j)
            if (!r.Line("      Audio %d attributes: %x", int(r.Written() + 1), rec.U8(11 + j)))
                return false;
        if (!r.Line("    Number of subpicture streams: %d", rec.U8(93))) return false;
        for (int j = 1; j <= rec.U8(93); ++j)
            if (!r.Line("      Subpicture stream %d attributes: %x", int(r.Written() + 1),
                        rec.U8(93 + j)))
                return false;
        if (!r.Line("    Video attributes of VTSTT_VOBS: %02x%02x", rec.U8(264), rec.U8(265)) ||
            !r.Line("    Number of audio streams in VTSTT_VOBS: %d", rec.U8(267)))
            return false;
        for (int j = 1; j <= rec.U8(267); ++j) {
            ByteView a = rec.From(kTitleAudioAt + kTitleAudioSize * (j - 1));
            if (!r.Line("      Audio %d attributes: %02x%02x%02x%02x%02x%02x%02x%02x", j, a.U8(0),
                        a.U8(1), a.U8(2), a.U8(3), a.U8(4), a.U8(5), a.U8(6), a.U8(7)))
                return false;
        }
        if (!r.Line("    Number of subpicture streams in VTSTT_VOBS: %d", rec.U8(349))) return false;
        for (int j = 1; j <= rec.U8(349); ++j)
            if (!r.Line("      Subpicture stream %d attributes: %x", int(r.Written() + 1),
                        rec.U8(kTitleSubpAt + kTitleSubpSize * (j - 1))))
                return false;
    }
    m_loaded.FreeBody();
    return true;
}

bool CKestro_VMG_ATRT::Disasm(const char* iniPath) {
    Source s(iniPath, kSection);
    s.Write("vts_ns", "%d", m_loaded.count);
    s.Write("vts_atrt_ea", "%d", int(m_loaded.endAddress));
    m_loaded.ReadBody();
    ByteView body(m_loaded.body);
    for (int i = 1, n = HeldEntries(m_loaded, 4); i <= n; ++i) {
        const uint32_t start = body.BE32(4 * size_t(i - 1));
        ByteView rec = RecordAt(body, start);
        s.Write(s.Key("vts_atrt_srp%03d_vts_atr_sa", i), "%d", int(start));
        s.Write(s.Key("vts_atrt_srp%03d_vts_atr_ea", i), "%d", int(rec.BE32(0)));
        s.Write(s.Key("vts_atrt_srp%03d_vts_cat", i), "%d", int(rec.BE32(4)));
        s.Write(s.Key("vts_atrt_srp%03d_vtsm_v_atr", i), "x%02x%02x", rec.U8(8), rec.U8(9));
        s.Write(s.Key("vts_atrt_srp%03d_vtsm_ast_ns", i), "%d", rec.U8(11));
        for (int j = 1; j <= rec.U8(11); ++j)
            s.Write(s.Key("vts_atrt_srp%03d_vtsm_ast_atr%02d", i, j), "x%02x", rec.U8(11 + j));
        s.Write(s.Key("vts_atrt_srp%03d_vtsm_spst_ns", i), "%d", rec.U8(93));
        for (int j = 1; j <= rec.U8(93); ++j)
            s.Write(s.Key("vts_atrt_srp%03d_vtsm_spst_atr%02d", i, j), "x%02x", rec.U8(93 + j));
        s.Write(s.Key("vts_atrt_srp%03d_vts_v_atr", i), "x%02x%02x", rec.U8(264), rec.U8(265));
        s.Write(s.Key("vts_atrt_srp%03d_vts_ast_ns", i), "%d", rec.U8(267));
        for (int j = 1; j <= rec.U8(267); ++j) {
            ByteView a = rec.From(kTitleAudioAt + kTitleAudioSize * (j - 1));
            s.Write(s.Key("vts_atrt_srp%03d_vts_ast_atr%02d", i, j),
                    "x%02x%02x%02x%02x%02x%02x%02x%02x", a.U8(0), a.U8(1), a.U8(2), a.U8(3),
                    a.U8(4), a.U8(5), a.U8(6), a.U8(7));
        }
        s.Write(s.Key("vts_atrt_srp%03d_vts_spst_ns", i), "%d", rec.U8(349));
        for (int j = 1; j <= rec.U8(349); ++j) {
            ByteView a = rec.From(kTitleSubpAt + kTitleSubpSize * (j - 1));
            s.Write(s.Key("vts_atrt_srp%03d_vts_spst_atr%02d", i, j), "x%02x%02x%02x%02x%02x%02x",
                    a.U8(0), a.U8(1), a.U8(2), a.U8(3), a.U8(4), a.U8(5));
        }
    }
    m_loaded.FreeBody();
    INIFlushFiles();
    return true;
}

bool CKestro_VMG_ATRT::Asm(const char* iniPath) {
    m_records.clear();
    m_recordCount = 0;
    m_header.fill(0);

    Source s(iniPath, kSection);
    if (!s.Read("vts_ns")) {
        SetError("vts_ns");
        return false;
    }
    const auto n = static_cast<uint16_t>(s.Int());
    if (n > kMaxTitleSets) {
        SetError("[vts_ns] %u title sets exceed the %d a title set attribute table can hold",
                 unsigned(n), kMaxTitleSets);
        return false;
    }
    PutBE16(m_header.data(), n);
    m_recordCount = n;
    if (n == 0) return true;
    m_records.reserve(n);

    auto missing = [&] {
        SetError("[%s] Statement missing in vts_atrt!", s.LastKey());
        return false;
    };
    // Reads a count statement into its one-byte field and returns the count.
    auto count = [&](uint8_t* field) {
        *field = static_cast<uint8_t>(s.Int());
        return int(*field);
    };

    for (int i = 1; i <= n; ++i) {
        // A title set without a category ends the table; the count keeps
        // what the source said.
        if (!s.Read(s.Key("vts_atrt_srp%03d_vts_cat", i))) return true;
        m_records.emplace_back();
        uint8_t* rec = m_records.back().data();
        std::memset(rec, 0, kRecordSize);
        PutBE32(rec + 4, static_cast<uint32_t>(s.Int()));

        if (!s.Read(s.Key("vts_atrt_srp%03d_vtsm_v_atr", i))) return missing();
        HexBytes(s.Value(), rec + 8, 2);

        // Menu stream attributes are written in hexadecimal but read back in
        // decimal (x0c reads as 0, x12 as 12); the pairing is part of the
        // format as this library carries it.
        if (!s.Read(s.Key("vts_atrt_srp%03d_vtsm_ast_ns", i))) return missing();
        for (int j = 1, m = count(rec + 11); j <= m; ++j) {
            if (!s.Read(s.Key("vts_atrt_srp%03d_vtsm_ast_atr%02d", i, j))) return missing();
            rec[11 + j] = static_cast<uint8_t>(std::atoi(SkipOptionalX(s.Value())));
        }
        if (!s.Read(s.Key("vts_atrt_srp%03d_vtsm_spst_ns", i))) return missing();
        for (int j = 1, m = count(rec + 93); j <= m; ++j) {
            if (!s.Read(s.Key("vts_atrt_srp%03d_vtsm_spst_atr%02d", i, j))) return missing();
            rec[93 + j] = static_cast<uint8_t>(std::atoi(SkipOptionalX(s.Value())));
        }

        if (!s.Read(s.Key("vts_atrt_srp%03d_vts_v_atr", i))) return missing();
        HexBytes(s.Value(), rec + 264, 2);

        if (!s.Read(s.Key("vts_atrt_srp%03d_vts_ast_ns", i))) return missing();
        const int audio = count(rec + 267);
        if (audio > kMaxTitleAudio) {
            SetError("[%s] %d audio streams do not fit a title set attribute record", s.LastKey(),
                     audio);
            return false;
        }
        for (int j = 1; j <= audio; ++j) {
            if (!s.Read(s.Key("vts_atrt_srp%03d_vts_ast_atr%02d", i, j))) return missing();
            HexBytes(s.Value(), rec + kTitleAudioAt + kTitleAudioSize * (j - 1), kTitleAudioSize);
        }

        if (!s.Read(s.Key("vts_atrt_srp%03d_vts_spst_ns", i))) return missing();
        const int subp = count(rec + 349);
        if (subp > kMaxTitleSubp) {
            SetError("[%s] %d subpicture streams do not fit a title set attribute record",
                     s.LastKey(), subp);
            return false;
        }
        for (int j = 1; j <= subp; ++j) {
            if (!s.Read(s.Key("vts_atrt_srp%03d_vts_spst_atr%02d", i, j))) return missing();
            HexBytes(s.Value(), rec + kTitleSubpAt + kTitleSubpSize * (j - 1), kTitleSubpSize);
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
