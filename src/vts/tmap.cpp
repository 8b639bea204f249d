// VTS_TMAPT, the time map table of a title set. Time maps can hold tens of
// thousands of entries, so the entries live in side files beside the source:
// one INI file per map, or one binary file for all maps.
#include <cstring>
#include <string>

#include "frame/detail.h"
#include "kestro/vts.h"

using namespace kestro;

namespace {

constexpr const char* kSectionTable = "vts_tmapt";
constexpr const char* kSectionMaps = "vts_tmapti";
constexpr uint32_t kDiscontinuity = 0x80000000u;

// A time map inside a loaded body (body byte 0 is table byte 8).
struct LoadedMap {
    LoadedMap(const ByteView& body, uint32_t index)
        : start(body.BE32(4 * size_t(index))),
          at(start - 8),
          timeUnit(body.U8(at)),
          entries(body.BE16(at + 2)) {}
    uint32_t Entry(const ByteView& body, uint32_t j) const {
        return body.BE32(size_t(at) + 4 + 4 * size_t(j));
    }
    uint32_t start;  // as stored: from the table's first byte
    uint32_t at;     // body offset
    uint8_t timeUnit;
    uint16_t entries;
};

// Walks the maps of a loaded table. A well-formed table keeps each map's
// entries inside the body and no two maps share them, so the entries of all
// maps together never outnumber the body's 4-byte groups; a damaged table
// that announces more (or points many maps at one) is cut at that budget.
class MapWalk {
public:
    // Only whole 4-byte start addresses count (unlike the shared clamp: that
    // keeps today's report of a damaged table).
    explicit MapWalk(const LoadedTable& t)
        : body_(t.body),
          maps_(uint32_t(HeldEntries(t.count, t.body.size() / 4 * 4, 4))),
          budget_(t.body.size() / 4) {}
    uint32_t Maps() const { return maps_; }
    const ByteView& Body() const { return body_; }
    LoadedMap Map(uint32_t k) const { return LoadedMap(body_, k); }
    // Entries of this map that may be visited.
    uint32_t Take(const LoadedMap& m) {
        size_t n = m.entries < budget_ ? m.entries : budget_;
        budget_ -= n;
        return uint32_t(n);
    }

private:
    ByteView body_;
    uint32_t maps_;
    size_t budget_;
};

}  // namespace

CKestro_VTS_TMAP::CKestro_VTS_TMAP() : m_header{} {}

CKestro_VTS_TMAP::~CKestro_VTS_TMAP() = default;

int CKestro_VTS_TMAP::Load(int hFile, unsigned long startSector) {
    int r = m_loaded.LoadTableHeader(hFile, startSector);
    if (r) m_loaded.bodySize = m_loaded.endAddress + 1;
    return r;
}

void CKestro_VTS_TMAP::SideFilePath(const char* iniPath, int map, char* out, int outSize) {
    if (!out || outSize <= 0) return;
    std::string base = iniPath ? iniPath : "";
    base.resize(base.size() > 4 ? base.size() - 4 : 0);  // drops ".ini"
    Format(out, size_t(outSize), "%s TmapTable%d.ini", base.c_str(), map);
}

bool CKestro_VTS_TMAP::Details(char* buf, int len) {
    BodyScope scope(m_loaded);
    MapWalk walk(m_loaded);
    Report r(buf, len);
    r.Line("Number of VTS_TMAPS: %d", m_loaded.count);
    r.Line("End byte address of VTS_TMAPT_EA table: %d", int(m_loaded.endAddress));
    for (uint32_t k = 0; r.ok() && k < walk.Maps(); ++k) {
        const LoadedMap m = walk.Map(k);
        r.Line("  Time map %d byte start address %d.", int(k + 1), int(m.start));
        r.Line("  Time map %d contains %d entries using time unit of %d seconds.", int(k + 1),
               m.entries, m.timeUnit);
        for (uint32_t j = 0, e = walk.Take(m); r.ok() && j < e; ++j) {
            const uint32_t v = m.Entry(walk.Body(), j);
            if (v & kDiscontinuity)
                r.Numbers("    Discontinuity Entry ", int(j + 1), " at sector address ",
                          int(v & ~kDiscontinuity));
            else
                r.Numbers("    Entry ", int(j + 1), " at sector address ", int(v));
        }
    }
    return r.ok();
}

namespace {

// The source form of a loaded table: the table's statements and each map's
// in the main file; `entries(k, map, walk)` puts map k's entries wherever
// the form keeps them.
template <class Entries>
void WriteSource(LoadedTable& loaded, const char* iniPath, Entries entries) {
    BodyScope scope(loaded);
    MapWalk walk(loaded);
    Source src(iniPath, kSectionTable);
    src.Write("vts_tmap_ns", "%d", loaded.count);
    src.Write("vts_tmapt_ea", "%d", int(loaded.endAddress));
    src.SetSection(kSectionMaps);
    for (uint32_t k = 1; k <= walk.Maps(); ++k) {
        LoadedMap m = walk.Map(k - 1);
        src.Write(src.Key("vts_tmap%02d_sa", int(k)), "%d.", int(m.start));
        src.Write(src.Key("vts_tmap%02d_tmu", int(k)), "%d", m.timeUnit);
        src.Write(src.Key("vts_tmap%02d_map_en_ns", int(k)), "%d", m.entries);
        entries(src, k, m, walk);
    }
    INIFlushFiles();
}

}  // namespace

bool CKestro_VTS_TMAP::Disasm(const char* iniPath) {
    char sidePath[4096];
    WriteSource(m_loaded, iniPath, [&](Source&, uint32_t k, const LoadedMap& m, MapWalk& walk) {
        SideFilePath(iniPath, int(k), sidePath, sizeof sidePath);
        Source side(sidePath, kSectionMaps);
        uint32_t e = walk.Take(m);
        for (uint32_t j = 1; j <= e; ++j) {
            uint32_t v = m.Entry(walk.Body(), j - 1);
            side.Write(side.Key("vts_tmap%02d_entry%02d_discon", int(k), int(j)), "%s",
                       (v & kDiscontinuity) ? "1" : "0");
            side.Write(side.Key("vts_tmap%02d_entry%02d_address", int(k), int(j)), "%d",
                       int(v & ~kDiscontinuity));
        }
    });
    return true;
}

bool CKestro_VTS_TMAP::DisasmToFile(const char* iniPath, const char* binPath) {
    int hBin = FileCreate(binPath, kCreateOwnerRW);
    if (hBin != -1) {
        FileClose(hBin);
        hBin = FileOpen(binPath, kOpenTextReadWrite);
    }
    if (hBin == -1) {
        SetError("Can not create input TMAP file [%s]. This file is required.",
                 binPath ? binPath : "");
        return false;
    }
    std::vector<uint8_t> le;
    WriteSource(m_loaded, iniPath, [&](Source& src, uint32_t k, const LoadedMap& m, MapWalk& walk) {
        src.Write(src.Key("vts_tmap%02d_file_offset", int(k)), "%d", int(FileTell(hBin)));
        uint32_t e = walk.Take(m);
        le.assign(4 * size_t(e), 0);
        for (uint32_t j = 0; j < e; ++j) PutLE32(&le[4 * size_t(j)], m.Entry(walk.Body(), j));
        if (!le.empty()) FileWrite(hBin, le.data(), le.size());
    });
    FileClose(hBin);
    return true;
}

void CKestro_VTS_TMAP::ReleaseMaps() {
    m_maps.clear();
    m_maps.shrink_to_fit();
}

template <class Entries>
bool CKestro_VTS_TMAP::Assemble(const char* iniPath, Entries readEntries) {
    std::memset(m_header, 0, sizeof m_header);
    Source src(iniPath, kSectionTable);
    if (!src.Read("vts_tmap_ns")) return false;
    uint16_t n = uint16_t(src.Int());
    if (n > kMaxMaps) {
        SetError("[vts_tmap_ns] %d time maps in vts_tmapt, at most %d are supported", n, kMaxMaps);
        return false;
    }
    PutBE16(m_header, n);
    src.SetSection(kSectionMaps);
    // A missing statement leaves its message in the error text. A missing time
    // unit or entry count ends the assembly with the maps read so far (and
    // true); the entries after a missing entry statement stay zero.
    auto missing = [&] { SetError("[%s] Statement missing in %s", src.LastKey(), kSectionMaps); };
    while (m_maps.size() < n) {
        const int m = int(m_maps.size()) + 1;
        Map map;
        if (!src.Read(src.Key("vts_tmap%02d_tmu", m))) break;
        map.timeUnit = uint8_t(src.Int());
        if (!src.Read(src.Key("vts_tmap%02d_map_en_ns", m))) break;
        map.entries.assign(uint16_t(src.Int()), 0);
        if (!readEntries(src, m, map.entries)) missing();
        m_maps.push_back(std::move(map));
    }
    if (m_maps.size() < n) missing();
    return true;
}

bool CKestro_VTS_TMAP::Asm(const char* iniPath) {
    ReleaseMaps();
    return Assemble(iniPath, [](Source& src, int m, std::vector<uint32_t>& entries) {
        for (size_t j = 1; j <= entries.size(); ++j) {
            if (!src.Read(src.Key("vts_tmap%02d_entry%02d_discon", m, int(j)))) return false;
            bool discontinuity = src.Value()[0] == '1';
            if (!src.Read(src.Key("vts_tmap%02d_entry%02d_address", m, int(j)))) return false;
            entries[j - 1] = uint32_t(src.Int()) | (discontinuity ? kDiscontinuity : 0);
        }
        return true;
    });
}

bool CKestro_VTS_TMAP::AsmToFile(const char* iniPath, const char* binPath) {
    ReleaseMaps();
    int hBin = FileOpen(binPath, kOpenTextReadWrite);
    if (hBin == -1) return false;
    // Entries come from the binary file strictly in sequence; a short file
    // leaves the rest zero.
    std::vector<uint8_t> le;
    bool ok = Assemble(iniPath, [&](Source&, int, std::vector<uint32_t>& entries) {
        le.assign(4 * entries.size(), 0);
        if (!le.empty()) FileRead(hBin, le.data(), le.size());
        for (size_t j = 0; j < entries.size(); ++j) entries[j] = GetLE32(&le[4 * j]);
        return true;
    });
    FileClose(hBin);
    return ok;
}

void CKestro_VTS_TMAP::Get(unsigned long* sectors, unsigned long* bytes) {
    if (m_maps.empty()) {
        if (sectors) *sectors = 0;
        if (bytes) *bytes = 0;
        return;
    }
    uint32_t size = 8 + 4 * uint32_t(m_maps.size());
    for (const auto& m : m_maps) size += 4 + 4 * uint32_t(m.entries.size());
    if (bytes) *bytes = size;
    if (sectors) *sectors = SectorsFor(size);
    PutBE32(m_header + 4, size - 1);
}

bool CKestro_VTS_TMAP::Write(int hFile) {
    if (m_maps.empty()) return false;
    // The header's map count is the one the source announced; everything
    // after it describes the maps actually assembled.
    std::vector<uint8_t> out(m_header, m_header + 8);
    uint32_t address = 8 + 4 * uint32_t(m_maps.size());
    size_t total = out.size() + 4 * m_maps.size();
    for (const auto& m : m_maps) total += 4 + 4 * m.entries.size();
    out.resize(total);
    uint8_t* p = out.data() + 8;
    for (const auto& m : m_maps) {
        PutBE32(p, address);
        p += 4;
        address += 4 + 4 * uint32_t(m.entries.size());
    }
    for (const auto& m : m_maps) {
        p[0] = m.timeUnit;
        p[1] = 0;
        PutBE16(p + 2, uint32_t(m.entries.size()));
        p += 4;
        for (uint32_t v : m.entries) {
            PutBE32(p, v);
            p += 4;
        }
    }
    WriteSectorPadded(hFile, out);
    ReleaseMaps();
    return true;
}

bool CKestro_VTS_TMAP::JoinTmapSideFiles(const char* iniPath) {
    Source src(iniPath, kSectionTable);
    if (!src.Read("vts_tmap_ns")) return false;
    int n = uint16_t(src.Int());
    if (n > kMaxMaps) n = kMaxMaps;
    src.SetSection(kSectionMaps);
    char sidePath[4096];
    for (int m = 1; m <= n; ++m) {
        if (!src.Read(src.Key("vts_tmap%02d_map_en_ns", m))) continue;
        int e = uint16_t(src.Int());
        SideFilePath(iniPath, m, sidePath, sizeof sidePath);
        Source side(sidePath, kSectionMaps);
        for (int j = 1; j <= e; ++j) {
            for (const char* field : {"discon", "address"}) {
                if (side.Read(side.Key("vts_tmap%02d_entry%02d_%s", m, j, field)))
                    src.WriteRaw(side.LastKey(), side.Value());
            }
        }
    }
    INIFlushFiles();
    return true;
}
