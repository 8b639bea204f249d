// VOBU address maps (VMGM_VOBU_ADMAP, VTSM_VOBU_ADMAP, VTS_VOBU_ADMAP) and
// their binary side files: one behaviour, three descriptions.
//
// Layout: a 4-byte end address (the map's size less one, counting itself),
// then the start sector of every VOBU, 4 bytes each, all big-endian.
#include "frame/detail.h"
#include "kestro/ini.h"
#include "kestro/tables.h"
#include "tables/kinds.h"

using namespace kestro;

namespace {

const VobuMapKind kVmgmMap = {
    // The video manager's map shares the title set map's section name.
    "vts_vobu_admap",
    "VMGM VOBU Address Map Information: %d entries",
    /*mapReadAtLoad=*/false,
    /*silentBufferFailure=*/true,
    /*sideFileLittleEndian=*/false,
};
const VobuMapKind kVtsMap = {
    "vts_vobu_admap",
    nullptr,
    /*mapReadAtLoad=*/false,
    /*silentBufferFailure=*/false,
    /*sideFileLittleEndian=*/false,
};
const VobuMapKind kVtsmMap = {
    "vtsm_vobu_admap",
    nullptr,
    /*mapReadAtLoad=*/true,
    /*silentBufferFailure=*/false,
    /*sideFileLittleEndian=*/true,
};

constexpr const char* kNoMemory = "ERROR: Could not aquire memory for VTSM_VOBU_ADMAP";

// A map announced at 2 GiB or more (an end address below 3 wraps round to
// almost 4 GiB) cannot be buffered: the read-back fails as an allocation
// of that size would.
constexpr uint32_t kMaxMapBytes = 0x7FFFFFFF;

}  // namespace

CKestroVobuAddressMap::CKestroVobuAddressMap(const VobuMapKind& kind)
    : m_kind(&kind), m_entriesPos(0), m_endAddress(0), m_loadedCount(0), m_hLoaded(0) {}

CKestroVobuAddressMap::~CKestroVobuAddressMap() = default;

int CKestroVobuAddressMap::LoadMap(int hFile, unsigned long startSector) {
    if (startSector == 0) return 0;
    uint32_t start = uint32_t(startSector * kSector);
    m_hLoaded = uint16_t(hFile);
    m_entriesPos = start + 4;
    FileSeek(hFile, start, 0);
    uint8_t ea[4] = {};
    FileRead(hFile, ea, 4);
    m_endAddress = GetBE32(ea);
    if (m_kind->mapReadAtLoad) {
        uint32_t size = m_endAddress - 3;
        if (size > kMaxMapBytes) return 0;
        m_loadedCount = uint16_t(size) / 4;
        ReadBounded(hFile, size, m_loadedMap);
    }
    return 1;
}

bool CKestroVobuAddressMap::ReadMapBack(std::vector<uint8_t>& into) {
    uint32_t size = m_endAddress - 3;
    if (size > kMaxMapBytes) return false;
    FileSeek(m_hLoaded, m_entriesPos, 0);
    // The count is kept in 16 bits: a map of 65,536 bytes or more shows only
    // the entries of its size modulo 65,536.
    m_loadedCount = uint16_t(size) / 4;
    ReadBounded(m_hLoaded, size, into);
    return true;
}

bool CKestroVobuAddressMap::Details(char* buf, int len) {
    std::vector<uint8_t> readBack;
    if (!m_kind->mapReadAtLoad && !ReadMapBack(readBack)) return false;
    ByteView map(m_kind->mapReadAtLoad ? m_loadedMap : readBack);
    Report r(buf, len);
    if (m_kind->headerLine) r.Line(m_kind->headerLine, m_loadedCount);
    for (uint32_t i = 1; r.ok() && i <= m_loadedCount; ++i)
        r.Numbers("  VOBU ", int(i), " starts at sector ", int(map.BE32(4 * (i - 1))));
    return r.ok();
}

bool CKestroVobuAddressMap::Disasm(const char* iniPath) {
    // A fresh read-back; the map a VTSM Load buffered stays for Details.
    std::vector<uint8_t> readBack;
    if (!ReadMapBack(readBack)) {
        if (!m_kind->silentBufferFailure) SetError("%s", kNoMemory);
        return false;
    }
    ByteView map(readBack);
    Source src(iniPath, m_kind->section);
    for (uint32_t i = 1; i <= m_loadedCount; ++i)
        src.Write(src.Key("vobu_sa%04d", int(i)), "%d", int(map.BE32(4 * (i - 1))));
    INIFlushFiles();
    return true;
}

bool CKestroVobuAddressMap::WriteSideFile(const char* path) {
    int h = FileCreate(path, kCreateOwnerRW);
    if (h == -1) {
        SetError("Can not create input ADMAP file [%s]. This file is required.", path);
        return false;
    }
    FileClose(h);
    h = FileOpen(path, kOpenReadWrite);
    std::vector<uint8_t> readBack;
    if (!ReadMapBack(readBack)) {
        FileClose(h);
        SetError("%s", kNoMemory);
        return false;
    }
    ByteView map(readBack);
    std::vector<uint8_t> out(4 + 4 * size_t(m_loadedCount));
    PutLE32(out.data(), m_loadedCount);
    for (uint32_t i = 0; i < m_loadedCount; ++i) {
        uint8_t* e = out.data() + 4 + 4 * i;
        map.Copy(4 * i, e, 4);
        if (m_kind->sideFileLittleEndian) PutLE32(e, GetBE32(e));
    }
    FileWrite(h, out.data(), out.size());
    FileClose(h);
    INIFlushFiles();
    return true;
}

// A counted side file holds a little-endian count (its low 16 bits are used)
// and the entries as they are to be stored; a plain one only little-endian
// entries, as many as its size (its low 16 bits) holds. A short file leaves
// zeros.
bool CKestroVobuAddressMap::ReadSideFile(const char* path, bool counted) {
    m_assembled.clear();
    const int h = FileOpen(path, kOpenReadWrite);
    if (h == -1) return false;
    uint8_t count[4] = {};
    if (counted) FileRead(h, count, 4);
    const uint16_t n = counted ? GetLE16(count) : uint16_t(uint16_t(FileSize(h)) / 4);
    if (n != 0) {
        m_assembled.assign(4 * size_t(n), 0);
        FileRead(h, m_assembled.data(), m_assembled.size());
        if (!counted)
            for (size_t i = 0; i < m_assembled.size(); i += 4)
                PutBE32(&m_assembled[i], GetLE32(&m_assembled[i]));
    }
    FileClose(h);
    return n != 0;
}

bool CKestroVobuAddressMap::Asm(const char* iniPath) {
    m_assembled.clear();
    // The count is the run of consecutive keys from vobu_sa0001 on, at most
    // what the 16-bit count can hold; each value is kept as it is read.
    Source src(iniPath, m_kind->section);
    for (uint32_t k = 1; k <= 0xFFFF && src.Read(src.Key("vobu_sa%04d", int(k))); ++k) {
        m_assembled.resize(m_assembled.size() + 4);
        PutBE32(&m_assembled[m_assembled.size() - 4], uint32_t(src.Int()));
    }
    return !m_assembled.empty();
}

void CKestroVobuAddressMap::Get(unsigned long* sectors, unsigned long* bytes) {
    unsigned long b = m_assembled.empty() ? 0 : m_assembled.size() + 4;
    if (bytes) *bytes = b;
    if (sectors) *sectors = SectorsFor(b);
}

bool CKestroVobuAddressMap::Write(int hFile) {
    if (m_assembled.empty()) return false;
    std::vector<uint8_t> out(4);
    PutBE32(out.data(), uint32_t(m_assembled.size() + 3));
    out.insert(out.end(), m_assembled.begin(), m_assembled.end());
    WriteSectorPadded(hFile, out);
    m_assembled.clear();
    return true;
}

// ---- Members ------------------------------------------------------------------

CKestro_VMGM_ADMAP::CKestro_VMGM_ADMAP() : CKestroVobuAddressMap(kVmgmMap) {}
int CKestro_VMGM_ADMAP::Load(int hFile, unsigned long startSector) {
    return LoadMap(hFile, startSector);
}
bool CKestro_VMGM_ADMAP::AsmBinaryNT(const char*, unsigned short, const char* path) {
    return ReadSideFile(path, true);
}
bool CKestro_VMGM_ADMAP::AsmBinary(const char*, unsigned short, const char* path) {
    return ReadSideFile(path, false);
}

CKestro_VTS_ADMAP::CKestro_VTS_ADMAP() : CKestroVobuAddressMap(kVtsMap) {}
int CKestro_VTS_ADMAP::Load(int hFile, unsigned long startSector) {
    return LoadMap(hFile, startSector);
}
bool CKestro_VTS_ADMAP::Disasm_ToFile(const char*, const char* path) { return WriteSideFile(path); }
bool CKestro_VTS_ADMAP::Asm_FromFile(const char*, unsigned short, const char* path) {
    return ReadSideFile(path, true);
}
bool CKestro_VTS_ADMAP::Asm_Binary(const char*, unsigned short, const char* path) {
    return ReadSideFile(path, false);
}

CKestro_VTSM_ADMAP::CKestro_VTSM_ADMAP() : CKestroVobuAddressMap(kVtsmMap) {}
int CKestro_VTSM_ADMAP::Load(int hFile, unsigned long startSector) {
    return LoadMap(hFile, startSector);
}
bool CKestro_VTSM_ADMAP::DisasmToFile(const char*, const char* path) { return WriteSideFile(path); }
bool CKestro_VTSM_ADMAP::AsmFromFile(const char*, const char* path) {
    return ReadSideFile(path, true);
}
bool CKestro_VTSM_ADMAP::AsmBinary(const char*, const char* path) {
    return ReadSideFile(path, false);
}
