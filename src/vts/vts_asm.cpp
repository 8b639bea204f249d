// Assembly of a whole VTS_nn_0.IFO: the management table from its "vtsi_mat"
// section, the sub-tables laid out sector by sector behind it, the title
// set's VOB files measured for the VOB start sectors and the set's end, and
// everything written in layout order.
#include <cstdlib>
#include <cstring>
#include <string>

#include "frame/detail.h"
#include "kestro/vts.h"
#include "vts/vtsi_layout.h"

using namespace kestro;
using namespace kestro::vtsi;

namespace {

constexpr unsigned long long kMaxTitleSetBytes = 8000000000ULL;

using Table = std::array<uint8_t, CKestro_VTS_MAT::kTableSize>;

// Stores bytes into the management table; whatever a count pushes past its
// 2048 bytes is dropped.
void Store(Table& mat, size_t offset, const uint8_t* bytes, size_t n) {
    for (size_t i = 0; i < n && offset + i < mat.size(); ++i) mat[offset + i] = bytes[i];
}

// The folder part of a path (up to and including its last '/' or '\'),
// empty when there is none, and the file name after it.
size_t NameStart(const std::string& path) {
    size_t cut = path.find_last_of("/\\");
    return cut == std::string::npos ? 0 : cut + 1;
}

// Stores the value of field f (of a run, entry k) into the management table;
// false, storing nothing, for an identifier other than DVDVIDEO-VTS.
bool StoreField(Table& mat, const Field& f, int k, const char* value) {
    uint8_t bytes[24];
    switch (f.form) {
    case Form::Id:
        if (std::strncmp(value, kVtsId, kIdSize) != 0) return false;
        std::memcpy(mat.data(), value, kIdSize);
        break;
    case Form::Decimal32: PutBE32(&mat[f.offset], uint32_t(std::atoi(value))); break;
    case Form::Hex32: PutBE32(&mat[f.offset], uint32_t(axtoi(value))); break;
    case Form::Version: {
        // The second character is cut off: the major number is the
        // first character alone, the minor number the rest.
        char v[Source::kValueSize] = {};
        Format(v, sizeof v, "%s", value);
        v[1] = 0;
        int major = std::atoi(v), minor = std::atoi(v + 2);
        mat[f.offset + 1] = uint8_t(major * 16 + minor % 16);
        break;
    }
    case Form::Count: mat[f.offset] = uint8_t(std::atoi(value)); break;
    case Form::MenuVideo:
        // Only the low byte of the whole number is kept.
        mat[f.offset] = 0;
        mat[f.offset + 1] = uint8_t(axtoi(value));
        break;
    case Form::HexBytes:
    case Form::Run:
        HexBytes(value, bytes, f.size);
        Store(mat, f.offset + f.size * size_t(k - 1), bytes, f.size);
        break;
    }
    return true;
}

}  // namespace

bool CKestro_VTS_MAT::ReadSource(const char* iniPath, bool absolute) {
    m_mat.fill(0);
    Source src(iniPath, kSection);
    for (const Field& f : kFields) {
        if (f.absoluteOnly && !absolute) continue;
        for (int k = 1, n = Statements(f, m_mat.data()); k <= n; ++k) {
            if (!src.Read(f.form == Form::Run ? src.Key(f.key, k) : src.Key("%s", f.key))) {
                const char* irregular =
                    absolute && f.missingAbsolute ? f.missingAbsolute : f.missing;
                if (irregular)
                    SetError("%s", irregular);
                else
                    SetError("[%s] Statement missing in %s", src.LastKey(), kSection);
                return false;
            }
            if (!StoreField(m_mat, f, k, src.Value())) {
                SetError("[DVDVIDEO-VTS] missing Illegal VTS_ID field");
                return false;
            }
        }
    }
    return true;
}

bool CKestro_VTS_MAT::Assemble(const char* iniPath, int hFile, const char* ifoPath, bool absolute) {
    // Title-set number: the 5th and 6th characters of the file name.
    const std::string ifo = ifoPath ? ifoPath : "";
    const size_t nameAt = NameStart(ifo);
    char digits[3] = {};
    for (size_t i = 0; i < 2 && nameAt + 4 + i < ifo.size(); ++i) digits[i] = ifo[nameAt + 4 + i];
    const int titleSet = std::atoi(digits);

    if (!ReadSource(iniPath, absolute)) return false;

    // Layout: the management table, then the sub-tables back to back.
    CBaseKestro* const tables[kTableCount] = {m_ptt.get(),     m_pgcit.get(),    m_pgciUt.get(),
                                              m_tmap.get(),    m_vtsmCadt.get(), m_vtsmAdmap.get(),
                                              m_vtsCadt.get(), m_vtsAdmap.get()};
    uint32_t next = 1;
    for (size_t i = 0; i < kTableCount; ++i) {
        unsigned long sectors = 0, bytes = 0;
        if (tables[i]) tables[i]->Get(&sectors, &bytes);
        PutBE32(&m_mat[kPttSrptSa + 4 * i], sectors ? next : 0);
        next += uint32_t(sectors);
    }
    const uint32_t vtsiEa = next - 1;
    PutBE32(&m_mat[kVtsiMatEa], 2047);
    PutBE32(&m_mat[kVtsiEa], vtsiEa);

    // The VOB files beside the IFO file.
    const std::string folder = ifo.substr(0, nameAt);
    char name[32];
    auto measure = [&](const std::string& path, uint32_t* size) {
        int h = FileOpen(path.c_str(), kOpenRead);
        if (h == -1) {
            SetError("Can not open %s", path.c_str());
            return false;
        }
        *size = uint32_t(FileSize(h));
        FileClose(h);
        if (*size % kSector) {
            SetError("%sVOB file %s is not divisble by 2048, a requirement of DVD-Video standards.",
                     absolute ? "Warning! " : "", path.c_str());
            return false;
        }
        return true;
    };

    uint32_t menuSectors = 0;
    Format(name, sizeof name, "vts_%02d_0.vob", titleSet);
    std::string vob = folder + name;
    if (FileExists(vob.c_str(), 0) == 0) {
        PutBE32(&m_mat[kVtsmVobsSa], vtsiEa + 1);
        uint32_t size = 0;
        if (!measure(vob, &size)) return false;
        menuSectors = size / kSector;
    }
    const uint32_t titleStart = vtsiEa + 1 + menuSectors;
    PutBE32(&m_mat[kVtsttVobsSa], titleStart);

    // Title VOBs 1 to 9, up to the first one missing. The total is a 32-bit
    // count and wraps above 4 GiB.
    uint32_t titleBytes = 0;
    for (int i = 1; i <= 9; ++i) {
        Format(name, sizeof name, "vts_%02d_%d.vob", titleSet, i);
        vob = folder + name;
        if (FileExists(vob.c_str(), 0) != 0) break;
        uint32_t size = 0;
        if (!measure(vob, &size)) return false;
        titleBytes += size;
    }
    // The size limit of a title set. As the total is a 32-bit count this
    // never fires; the test is kept as it stands, wrap-around included.
    if (static_cast<unsigned long long>(titleBytes) > kMaxTitleSetBytes) {
        SetError(
            "The Video Title Set for %s exceeds the maximum size allowed in DVD-Video standards.",
            ifo.c_str());
        return false;
    }
    // With the backup IFO after the title VOBs this is the set's last sector.
    PutBE32(&m_mat[kVtsEa], vtsiEa + titleStart + titleBytes / kSector);

    FileWrite(hFile, m_mat.data(), m_mat.size());
    for (CBaseKestro* t : tables)
        if (t) t->Write(hFile);
    return true;
}

bool CKestro_VTS_MAT::Asm(const char* iniPath, int hFile, const char* ifoPath) {
    return Assemble(iniPath, hFile, ifoPath, false);
}

bool CKestro_VTS_MAT::AsmAbs(const char* iniPath, unsigned short hFile, const char* ifoPath) {
    return Assemble(iniPath, hFile, ifoPath, true);
}
