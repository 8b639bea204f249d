// VTS_PTT_SRPT, the part-of-title search pointer table of a title set.
#include <cstdlib>
#include <cstring>

#include "frame/detail.h"
#include "kestro/vts.h"

using namespace kestro;

namespace {

constexpr const char* kSection = "vts_ptt_srpt";

// Where the entries of each title unit lie in a loaded body (body byte 0 is
// table byte 8). TTU k (0-based) owns the 4-byte groups from bound[k] while
// below bound[k + 1]; a TTU whose start is not below the next one's has none.
struct TtuRuns {
    TtuRuns(const ByteView& body, uint32_t ttus, uint32_t endAddress) : bound(ttus + 1) {
        for (uint32_t k = 0; k < ttus; ++k) bound[k] = body.BE32(4 * size_t(k)) - 8;
        bound[ttus] = endAddress - 7;
        // A well-formed table holds its entries inside the body, and no two
        // TTUs share one; a damaged one may announce billions. Never visit
        // more entries than the body can hold.
        budget = body.size() / 4;
    }

    // Calls f(offset) for every entry of TTU k (0-based).
    template <class F>
    void ForEach(uint32_t k, F f) {
        for (uint32_t off = bound[k]; off < bound[k + 1] && budget > 0; off += 4) {
            --budget;
            f(off);
            if (off > UINT32_MAX - 4) break;
        }
    }

    std::vector<uint32_t> bound;
    size_t budget;
};

// Title units a loaded table can really describe: each needs a whole 4-byte
// start address inside the body (a last partial one is not counted, unlike
// the shared clamp: that keeps today's report of a damaged table).
int VisibleTtus(const LoadedTable& t) {
    return int(HeldEntries(t.count, t.body.size() / 4 * 4, 4));
}

}  // namespace

CKestro_PTT_SRPT::CKestro_PTT_SRPT() : m_header{}, m_perTtu{} {}

CKestro_PTT_SRPT::~CKestro_PTT_SRPT() = default;

int CKestro_PTT_SRPT::Load(int hFile, unsigned long startSector) {
    return m_loaded.LoadTableHeader(hFile, startSector);
}

bool CKestro_PTT_SRPT::Details(char* buf, int len) {
    BodyScope scope(m_loaded);
    const ByteView body = scope.View();
    Report r(buf, len);
    r.Line("Number of Title Unit Serch Pointers TTUs in the VTS: %d", m_loaded.count);
    r.Line("End byte address of PTT_SRPT table: %d", int(m_loaded.endAddress));
    if (m_loaded.count == 0) {
        if (r.ok()) SetError("  ERROR: vts_ttu_ns = 0");
        return false;
    }
    const int n = VisibleTtus(m_loaded);
    for (int k = 0; r.ok() && k < n; ++k)
        r.Line("  Starting memory address of TTU %d: %d", k + 1, int(body.BE32(4 * size_t(k))));
    TtuRuns runs(body, uint32_t(n), m_loaded.endAddress);
    for (int k = 0; r.ok() && k < n; ++k) {
        r.Line("PTT Number %d:", k + 1);
        runs.ForEach(uint32_t(k), [&](uint32_t off) {
            r.Line("    Program chain number (PGCN): %d Program number (PG): %d", body.BE16(off),
                   body.U8(off + 3));
        });
    }
    return r.ok();
}

bool CKestro_PTT_SRPT::Disasm(const char* iniPath) {
    BodyScope scope(m_loaded);
    const ByteView body = scope.View();
    Source src(iniPath, kSection);
    src.Write("vts_ttu_ns", "%d", m_loaded.count);
    src.Write("vts_ptt_srpt_ea", "%d", int(m_loaded.endAddress));
    const int n = VisibleTtus(m_loaded);
    TtuRuns runs(body, uint32_t(n), m_loaded.endAddress);
    int j = 0;  // one running index over the entries of all TTUs
    for (int k = 0; k < n; ++k) {
        src.Write(src.Key("ttu_sa%02d", k + 1), "%d", int(runs.bound[size_t(k)] + 8));
        runs.ForEach(uint32_t(k), [&](uint32_t off) {
            src.Write(src.Key("%03dptt_srp", j++), "%03d %03d %03d", k + 1, body.BE16(off),
                      body.U8(off + 3));
        });
    }
    INIFlushFiles();
    return true;
}

bool CKestro_PTT_SRPT::Asm(const char* iniPath) {
    m_entries.clear();
    m_perTtu.fill(0);
    m_loaded = LoadedTable();
    std::memset(m_header, 0, sizeof m_header);

    Source src(iniPath, kSection);
    if (!src.Read("vts_ttu_ns")) {
        SetError("IFO assembler error! In vts_ttu_ns");
        return false;
    }
    uint16_t n = uint16_t(src.Int());
    if (n > kMaxTitleUnits) {
        SetError("IFO assembler error! vts_ttu_ns = %d, at most %d title units are supported", n,
                 kMaxTitleUnits);
        return false;
    }
    PutBE16(m_header, n);

    for (int j = 0; j < kMaxSourceEntries; ++j) {
        if (!src.Read(src.Key("%03dptt_srp", j))) break;
        // Fixed columns: TTU number in characters 1-3, PGCN in 5-7, PGN from
        // character 9 on. Bytes past a short value read as empty fields.
        char v[Source::kValueSize] = {};
        Format(v, sizeof v, "%s", src.Value());
        v[3] = 0;
        v[7] = 0;
        int ttu = std::atoi(v);
        int pgcn = std::atoi(v + 4);
        int pgn = std::atoi(v + 8);
        if (ttu < 1 || ttu > n) {
            SetError("IFO assembler error! [%s] names TTU %d outside 1 to vts_ttu_ns (%d)",
                     src.LastKey(), ttu, n);
            m_entries.clear();
            m_perTtu.fill(0);
            std::memset(m_header, 0, sizeof m_header);
            return false;
        }
        ++m_perTtu[size_t(ttu - 1)];
        std::array<uint8_t, 4> e{};
        PutBE16(e.data(), uint32_t(pgcn));
        e[3] = uint8_t(pgn);
        m_entries.push_back(e);
    }
    PutBE32(m_header + 4, uint32_t(8 + 4 * (n + m_entries.size()) - 1));
    return true;
}

bool CKestro_PTT_SRPT::Write(int hFile) {
    uint16_t n = GetBE16(m_header);
    std::vector<uint8_t> out(8 + 4 * (size_t(n) + m_entries.size()));
    std::memcpy(out.data(), m_header, 8);
    uint32_t address = 8 + 4 * uint32_t(n);
    for (size_t k = 0; k < n; ++k) {
        PutBE32(&out[8 + 4 * k], address);
        address += 4 * uint32_t(k < m_perTtu.size() ? m_perTtu[k] : 0);
    }
    uint8_t* p = out.data() + 8 + 4 * size_t(n);
    for (const auto& e : m_entries) {
        std::memcpy(p, e.data(), 4);
        p += 4;
    }
    WriteSectorPadded(hFile, out);
    m_entries.clear();
    return false;  // the required result, also after a complete write
}

void CKestro_PTT_SRPT::Get(unsigned long* sectors, unsigned long* endAddress) {
    uint32_t ea = GetBE32(m_header + 4);
    if (endAddress) *endAddress = ea;
    if (sectors) *sectors = SectorsFor(ea);
}
