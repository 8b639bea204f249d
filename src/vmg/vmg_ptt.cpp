// TT_SRPT, the title search pointer table of VIDEO_TS.IFO.
//
// Layout: an 8-byte header (title count, reserved, end address 12n + 7)
// followed by one 12-byte search pointer per title: playback type, angles,
// parts of title, parental ID field, title set number, title number within
// the set, start sector of the set.
#include <cstring>

#include "frame/detail.h"
#include "kestro/ini.h"
#include "kestro/vmg.h"

using namespace kestro;

namespace {
constexpr const char* kSection = "vmg_ptt_srpt";
}

CKestro_VMG_PTT::CKestro_VMG_PTT() = default;
CKestro_VMG_PTT::~CKestro_VMG_PTT() = default;

int CKestro_VMG_PTT::Load(int hFile, unsigned long startSector) {
    return m_loaded.LoadTableHeader(hFile, startSector);
}

bool CKestro_VMG_PTT::Details(char* buf, int len) {
    Report r(buf, len);
    m_loaded.ReadBody();
    ByteView body(m_loaded.body);
    auto fail = [this] {
        m_loaded.FreeBody();
        return false;
    };
    if (!r.Line("Number of Title Unit Serch Pointers TTUs in the VTS: %d", m_loaded.count))
        return fail();
    if (!r.Line("End byte address of PTT_SRPT table: %d", int(m_loaded.endAddress))) return fail();
    for (int i = 1, n = HeldEntries(m_loaded, kEntrySize); i <= n; ++i) {
        ByteView e = body.From(size_t(kEntrySize) * (i - 1));
        if (!r.Line("    Title set %d: Title playback type: %x", i, e.U8(0)) ||
            !r.Line("    Title set %d: Number of angles: %d", i, e.U8(1)) ||
            !r.Line("    Title set %d: Number of PTTs: %d", i, e.BE16(2)) ||
            !r.Line("    Title set %d: Parental ID field: %d", i, e.BE16(4)) ||
            !r.Line("    Title set %d: Title set number: %d", i, e.U8(6)) ||
            !r.Line("    Title set %d: VTS_TTN: %d", i, e.U8(7)) ||
            !r.Line("    Title set %d: Title set starting sector number: %d", i, int(e.BE32(8))))
            return fail();
    }
    m_loaded.FreeBody();
    r.End();
    return true;
}

bool CKestro_VMG_PTT::Disasm(const char* iniPath) {
    m_loaded.ReadBody();
    ByteView body(m_loaded.body);
    Source s(iniPath, kSection);
    s.Write("vts_ttu_ns", "%d", m_loaded.count);
    s.Write("vts_ptt_srpt_ea", "%d", int(m_loaded.endAddress));
    for (int i = 1, n = HeldEntries(m_loaded, kEntrySize); i <= n; ++i) {
        ByteView e = body.From(size_t(kEntrySize) * (i - 1));
        s.Write(s.Key("tt_pb_ty%02d", i), "x%02x", e.U8(0));
        s.Write(s.Key("tt_agl_ns%02d", i), "%d", e.U8(1));
        s.Write(s.Key("tt_ptt_ns%02d", i), "%d", e.BE16(2));
        s.Write(s.Key("tt_ptl_id_fld%02d", i), "%d", e.BE16(4));
        s.Write(s.Key("vtsn%02d", i), "%d", e.U8(6));
        s.Write(s.Key("vts_ttn%02d", i), "%d", e.U8(7));
        s.Write(s.Key("vts_sa%02d", i), "%d", int(e.BE32(8)));
    }
    m_loaded.FreeBody();
    INIFlushFiles();
    return true;
}

bool CKestro_VMG_PTT::Asm(const char* iniPath) {
    m_records.clear();
    m_recordCount = 0;
    m_header.fill(0);

    Source s(iniPath, kSection);
    if (!s.Read("vts_ttu_ns")) {
        SetError("Statement missing in vmg_ptt_srpt!");
        return false;
    }
    const auto n = static_cast<uint16_t>(s.Int());
    // The table holds at most 999 titles (key numbers have room for three
    // digits); refuse more before anything is stored.
    if (n > kMaxTitles) {
        SetError("[vts_ttu_ns] %u titles exceed the %d a title search pointer table can hold",
                 unsigned(n), kMaxTitles);
        return false;
    }
    PutBE16(m_header.data(), n);
    m_recordCount = n;
    m_records.reserve(n);

    auto missing = [&] {
        SetError("[%s] Statement missing in vmg_ptt_srpt!", s.LastKey());
        return false;
    };
    for (int i = 1; i <= n; ++i) {
        m_records.emplace_back();
        uint8_t* rec = m_records.back().data();
        std::memset(rec, 0, kEntrySize);

        // The first character stands for the x of the written form and is
        // skipped whatever it is, so a value written without the x loses its
        // first digit.
        if (!s.Read(s.Key("tt_pb_ty%02d", i))) return missing();
        const char* v = s.Value();
        rec[0] = static_cast<uint8_t>(axtoib(v[0] ? v + 1 : v));

        if (!s.Read(s.Key("tt_agl_ns%02d", i))) return missing();
        rec[1] = static_cast<uint8_t>(s.Int());

        if (!s.Read(s.Key("tt_ptt_ns%02d", i))) return missing();
        PutBE16(rec + 2, static_cast<uint32_t>(s.Int()));

        // The parental ID field is stored low byte first: the one field of
        // the table that is not converted to big-endian.
        if (!s.Read(s.Key("tt_ptl_id_fld%02d", i))) return missing();
        const auto ptl = static_cast<uint16_t>(s.Int());
        rec[4] = static_cast<uint8_t>(ptl & 0xFF);
        rec[5] = static_cast<uint8_t>(ptl >> 8);

        if (!s.Read(s.Key("vtsn%02d", i))) return missing();
        rec[6] = static_cast<uint8_t>(s.Int());

        // Required, but every title is written as title 1 of its set.
        if (!s.Read(s.Key("vts_ttn%02d", i))) return missing();
        rec[7] = 1;

        if (!s.Read(s.Key("vts_sa%02d", i))) return missing();
        PutBE32(rec + 8, static_cast<uint32_t>(s.Int()));
    }
    return true;
}

bool CKestro_VMG_PTT::Write(int hFile) {
    const uint32_t n = m_recordCount;
    if (n == 0) return true;
    PutBE32(m_header.data() + 4, kEntrySize * n + 7);
    FileWrite(hFile, m_header.data(), m_header.size());
    // After a failed Asm fewer records than the count may exist; only those
    // held are written.
    for (const auto& rec : m_records) FileWrite(hFile, rec.data(), rec.size());
    PadToSector(hFile);
    m_records.clear();
    m_recordCount = 0;
    return true;
}

void CKestro_VMG_PTT::Get(unsigned long* sectors, unsigned long* bytes) {
    unsigned long b = m_recordCount ? kEntrySize * (unsigned long)m_recordCount + 8 : 0;
    if (bytes) *bytes = b;
    if (sectors) *sectors = SectorsFor(b);
}
