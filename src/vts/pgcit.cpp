// VTS_PGCIT, the title PGC information table of a title set. The table
// itself is a header and search pointers; each PGC is reported, written to
// source and rebuilt by the caller's PGC codec.
#include <cstring>

#include "frame/detail.h"
#include "kestro/vts.h"

using namespace kestro;

namespace {

constexpr const char* kSection = "vts_pgcit";
constexpr const char* kPgcPrefix = "vts_pgc_";
constexpr unsigned short kPgcIndent = 5;

// PGCs a loaded table can really hold: each takes its 8-byte search pointer
// and at least its 236-byte general information inside the body, so this is
// the count for well-formed tables. A damaged count is cut here; without the
// cut a small file could announce thousands of PGCs, and writing each one's
// source flushes the whole source file. Only whole PGCs count (unlike the
// shared clamp: that keeps today's report of a damaged table).
int VisiblePgcs(const LoadedTable& t) {
    constexpr size_t kLeast = 8 + CKestro_PGCI::kGeneralInfoSize;
    return int(HeldEntries(t.count, t.body.size() / kLeast * kLeast, kLeast));
}

// The codec works on a mutable buffer; an empty body still needs an address.
unsigned char* BodyData(LoadedTable& t) {
    static unsigned char empty[8];
    return t.body.empty() ? empty : t.body.data();
}

}  // namespace

CKestro_VTS_PGCIT::CKestro_VTS_PGCIT() = default;

CKestro_VTS_PGCIT::~CKestro_VTS_PGCIT() = default;

int CKestro_VTS_PGCIT::Load(int hFile, unsigned long startSector) {
    return m_loaded.LoadTableHeader(hFile, startSector);
}

bool CKestro_VTS_PGCIT::Details(CKestro_PGCI* pgci, char* buf, int len) {
    CKestro_PGCI own;
    if (!pgci) pgci = &own;
    BodyScope scope(m_loaded);
    const ByteView body = scope.View();
    Report r(buf, len);
    r.Line("Number of VTS_PGCI_SRP: %d", m_loaded.count);
    r.Line("End byte address of VTS_PGCI table: %d", int(m_loaded.endAddress));
    const int n = VisiblePgcs(m_loaded);
    for (int i = 0; r.ok() && i < n; ++i) {
        const uint32_t start = body.BE32(8 * size_t(i) + 4);
        r.Line("  VTS_PGC Category %d: %08x", i + 1, body.BE32(8 * size_t(i)));
        r.Line("  VTS_PGCI memory offset address %d: %d", i + 1, int(start));
        r.Line("    Program Chain Information Table (PGCI) %d", i + 1);
        if (!r.ok()) break;
        // The PGC report tests only its own characters against its room and
        // may pass it by its indentation plus two characters; give it what
        // is left of the buffer minus that and the " \r\n" below, so that
        // every report that fits the buffer comes out unchanged and none can
        // overrun it. A report that does not fit returns 0 and the next lines
        // overwrite its partial text.
        const long room = long(len) - long(r.Used()) - (kPgcIndent + 2);
        const int wrote = pgci->DetailsOfPGCI(kPgcIndent, BodyData(m_loaded), start - 8, r.Cursor(),
                                              room > 0 ? int(room) : 0, m_loaded.body.size());
        const size_t at = r.Used() + size_t(wrote > 0 ? wrote : 0);
        if (at + 3 > size_t(len) + 2) return false;  // not even the line break fits
        std::memcpy(buf + at, " \r\n", 4);
        r.Sync();
    }
    return r.ok();
}

bool CKestro_VTS_PGCIT::Disasm(const char* iniFile, CKestro_PGCI* pgci) {
    CKestro_PGCI own;
    if (!pgci) pgci = &own;
    BodyScope scope(m_loaded);
    const ByteView body = scope.View();
    Source src(iniFile, kSection);
    src.Write("vts_pgci_srp_ns", "%d", m_loaded.count);
    src.Write("vts_pgcit_ea", "%d", int(m_loaded.endAddress));
    const int n = VisiblePgcs(m_loaded);
    char section[32];
    FlushBatch batch;  // the codec flushes per PGC: write the file once
    for (int i = 0; i < n; ++i) {
        const uint32_t start = body.BE32(8 * size_t(i) + 4);
        src.Write(src.Key("vts_pgc_cat%02d", i + 1), "%08x", body.BE32(8 * size_t(i)));
        src.Write(src.Key("vts_pgci_sa%02d", i + 1), "%d", int(start));
        Format(section, sizeof section, "vts_pgcit%02d", i + 1);
        pgci->DisasmPGCI(iniFile, BodyData(m_loaded), start - 8, kPgcPrefix, section,
                         m_loaded.body.size());
    }
    INIFlushFiles();
    return true;
}

void CKestro_VTS_PGCIT::ReleaseAssembled() {
    m_srp.clear();
    m_images.clear();
}

bool CKestro_VTS_PGCIT::Asm(const char* iniFile, CKestro_PGCI* pgci) {
    CKestro_PGCI own;
    if (!pgci) pgci = &own;
    ReleaseAssembled();
    m_loaded = LoadedTable();

    Source src(iniFile, kSection);
    if (!src.Read("vts_pgci_srp_ns")) {
        SetError("[vts_pgci_srp_ns] Statement missing in vts_pgciti");
        return false;
    }
    uint16_t n = uint16_t(src.Int());
    if (n > kMaxPGCs) {
        SetError("[vts_pgci_srp_ns] %d PGCs in vts_pgciti, at most %d are supported", n, kMaxPGCs);
        return false;
    }
    m_loaded.count = n;
    char section[32];
    for (int i = 1; i <= n; ++i) {
        std::array<uint8_t, 8> srp{};
        if (!src.Read(src.Key("vts_pgc_cat%02d", i))) {
            SetError("[%s] Statement missing in vts_pgciti", src.LastKey());
            return false;
        }
        PutBE32(srp.data(), uint32_t(axtoi(src.Value())));
        // The PGC's own problems never fail the table: the image is built
        // from whatever the codec holds, and its message stays in the codec.
        Format(section, sizeof section, "vts_pgcit%02d", i);
        pgci->AsmPGCI(iniFile, section, kPgcPrefix);
        unsigned long size = pgci->GetPGCISize();
        std::vector<uint8_t> image(size, 0);
        pgci->GetPGCData(image.data(), size);
        m_srp.push_back(srp);
        m_images.push_back(std::move(image));
    }
    return true;
}

void CKestro_VTS_PGCIT::Get(unsigned long* sectors, unsigned long* bytes) {
    uint32_t total = 8 + 8 * uint32_t(m_images.size());
    for (const auto& image : m_images) total += uint32_t(image.size());
    if (bytes) *bytes = total;
    if (sectors) *sectors = SectorsFor(total);
    m_loaded.endAddress = total - 1;
}

bool CKestro_VTS_PGCIT::Write(int hFile) {
    uint8_t header[8] = {};
    PutBE16(header, m_loaded.count);
    PutBE32(header + 4, m_loaded.endAddress);
    std::vector<uint8_t> out(header, header + 8);
    uint32_t start = 8 + 8 * uint32_t(m_loaded.count);
    for (size_t i = 0; i < m_srp.size(); ++i) {
        PutBE32(m_srp[i].data() + 4, start);
        out.insert(out.end(), m_srp[i].begin(), m_srp[i].end());
        start += uint32_t(m_images[i].size());
    }
    for (const auto& image : m_images) out.insert(out.end(), image.begin(), image.end());
    WriteSectorPadded(hFile, out);
    ReleaseAssembled();
    return true;
}
