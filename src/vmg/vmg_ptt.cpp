// TT_SRPT, the title search pointer table of VIDEO_TS.IFO.
//
// Layout: an 8-byte header (title count, reserved, end address 12n + 7)
// followed by one 12-byte search pointer per title: playback type, angles,
// parts of title, parental ID field, title set number, title number within
// the set, start sector of the set.
#include <cstdlib>

#include "frame/detail.h"
#include "kestro/ini.h"
#include "kestro/vmg.h"

using namespace kestro;

namespace {

constexpr const char* kSection = "vmg_ptt_srpt";

// How the assembler stores a field read from the source.
enum class Store {
    BigEndian,  // the decimal value, most significant byte first
    // The first character stands for the x of the written form and is
    // skipped whatever it is, so a value written without the x loses its
    // first digit; the next two characters are read as hexadecimal.
    HexAfterFirst,
    // The parental ID field is stored low byte first: the one field of the
    // table that is not converted to big-endian (its report and source read
    // it big-endian all the same).
    LowByteFirst,
    // Required, but every title is written as title 1 of its set.
    One,
};

// The fields of a search pointer, in the order they are reported, written
// and read: offset, width in bytes, source key and report line (both take
// the title number), the value form in the source, and how it is stored.
struct TitleField {
    size_t at, size;
    const char* key;
    const char* line;
    const char* value;
    Store store;
};
constexpr TitleField kTitleFields[] = {
    {0, 1, "tt_pb_ty%02d", "    Title set %d: Title playback type: %x", "x%02x",
     Store::HexAfterFirst},
    {1, 1, "tt_agl_ns%02d", "    Title set %d: Number of angles: %d", "%d", Store::BigEndian},
    {2, 2, "tt_ptt_ns%02d", "    Title set %d: Number of PTTs: %d", "%d", Store::BigEndian},
    {4, 2, "tt_ptl_id_fld%02d", "    Title set %d: Parental ID field: %d", "%d",
     Store::LowByteFirst},
    {6, 1, "vtsn%02d", "    Title set %d: Title set number: %d", "%d", Store::BigEndian},
    {7, 1, "vts_ttn%02d", "    Title set %d: VTS_TTN: %d", "%d", Store::One},
    {8, 4, "vts_sa%02d", "    Title set %d: Title set starting sector number: %d", "%d",
     Store::BigEndian},
};

void StoreField(uint8_t* rec, const TitleField& f, const char* value) {
    const auto v = static_cast<uint32_t>(std::atoi(value));
    switch (f.store) {
    case Store::HexAfterFirst:
        rec[f.at] = static_cast<uint8_t>(axtoib(value[0] ? value + 1 : value));
        break;
    case Store::LowByteFirst: PutLE16(rec + f.at, v); break;
    case Store::One: rec[f.at] = 1; break;
    case Store::BigEndian: PutBE(rec + f.at, f.size, v); break;
    }
}

}  // namespace

CKestro_VMG_PTT::CKestro_VMG_PTT() = default;
CKestro_VMG_PTT::~CKestro_VMG_PTT() = default;

int CKestro_VMG_PTT::Load(int hFile, unsigned long startSector) {
    return m_loaded.LoadTableHeader(hFile, startSector);
}

bool CKestro_VMG_PTT::Details(char* buf, int len) {
    Report r(buf, len);
    BodyScope body(m_loaded);
    r.Line("Number of Title Unit Serch Pointers TTUs in the VTS: %d", m_loaded.count);
    r.Line("End byte address of PTT_SRPT table: %d", int(m_loaded.endAddress));
    for (int i = 1, n = body.Held(kEntrySize); r.ok() && i <= n; ++i) {
        ByteView e = body.View().From(size_t(kEntrySize) * (i - 1));
        for (const auto& f : kTitleFields) r.Line(f.line, i, int(GetBE(e, f.at, f.size)));
    }
    r.End();
    return r.ok();
}

bool CKestro_VMG_PTT::Disasm(const char* iniPath) {
    BodyScope body(m_loaded);
    Source src(iniPath, kSection);
    src.Write("vts_ttu_ns", "%d", m_loaded.count);
    src.Write("vts_ptt_srpt_ea", "%d", int(m_loaded.endAddress));
    for (int i = 1, n = body.Held(kEntrySize); i <= n; ++i) {
        ByteView e = body.View().From(size_t(kEntrySize) * (i - 1));
        for (const auto& f : kTitleFields)
            src.Write(src.Key(f.key, i), f.value, int(GetBE(e, f.at, f.size)));
    }
    INIFlushFiles();
    return true;
}

bool CKestro_VMG_PTT::Asm(const char* iniPath) {
    m_records.clear();
    m_recordCount = 0;
    m_header.fill(0);

    Source src(iniPath, kSection);
    if (!src.Read("vts_ttu_ns")) {
        SetError("Statement missing in vmg_ptt_srpt!");
        return false;
    }
    const auto n = static_cast<uint16_t>(src.Int());
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
    for (int i = 1; i <= n; ++i) {
        uint8_t* rec = m_records.emplace_back().data();
        for (const auto& f : kTitleFields) {
            if (!src.Read(src.Key(f.key, i))) {
                SetError("[%s] Statement missing in vmg_ptt_srpt!", src.LastKey());
                return false;
            }
            StoreField(rec, f, src.Value());
        }
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
