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

enum class Reader { Both, AbsoluteOnly };

enum class Form {
    Decimal32,  // atoi, 32-bit big-endian
    Hex32,      // axtoi, 32-bit big-endian
    Version,    // "M.m": major from the first character, minor from the third on
    MenuVideo,  // axtoi; byte 0 cleared, byte 1 the value's low byte
    Count,      // atoi, low byte
    HexBytes,   // two hexadecimal characters per byte, optional leading x
    Run,        // numbered keys of `size` hexadecimal bytes each
};

struct Statement {
    const char* key;  // for runs: the pattern of the numbered key
    Reader reader;
    Form form;
    size_t offset;
    size_t size;        // bytes of a HexBytes value, or of each run entry
    size_t countAt;     // runs: the byte holding their count (0: fixed)
    int fixedCount;     // runs without a count byte
    const char* missing;          // message of Asm (runs: formatted with the key)
    const char* missingAbsolute;  // message of AsmAbs
};

constexpr const char* kNumberedMissing = "[%s] Statement missing in vtsi_mat";

// The statements before the ten start sectors, in reading order.
constexpr Statement kHead[] = {
    {"vts_ea", Reader::AbsoluteOnly, Form::Decimal32, kVtsEa, 4, 0, 0, nullptr,
     "[vts_ea] Statement missing in vtsi_mat"},
    {"vtsi_ea", Reader::AbsoluteOnly, Form::Decimal32, kVtsiEa, 4, 0, 0, nullptr,
     "[vtsi_ea] Statement missing in vtsi_mat"},
    {"vern", Reader::Both, Form::Version, kVern, 2, 0, 0, "[vern] Statement missing in vtsi_mat",
     "[vern] Statement missing in vtsi_mat"},
    {"vts_cat", Reader::Both, Form::Hex32, kVtsCat, 4, 0, 0,
     "[vts_cat] Statement missing in vtsi_mat", "[vts_cat] Statement missing in vtsi_mat"},
    {"vtsi_mat_ea", Reader::AbsoluteOnly, Form::Decimal32, kVtsiMatEa, 4, 0, 0, nullptr,
     "[vtsi_mat_ea] Statement missing in vtsi_mat"},
};

// The statements after the ten start sectors, in reading order.
constexpr Statement kAttributes[] = {
    {"vtsm_v_atr", Reader::Both, Form::MenuVideo, kVtsmVatr, 2, 0, 0,
     "[vtsm_v_atr] Statement missing in vtsi_mat", "[vtsm_v_atr] Statement missing in vtsi_mat"},
    {"vtsm_ast_ns", Reader::Both, Form::Count, kVtsmAstNs + 1, 1, 0, 0,
     "[vtsm_ast_ns] Statement missing in vtsi_mat", "[vtsm_ast_ns] Statement missing in vtsi_mat"},
    {"vtsm_ast_atr", Reader::Both, Form::HexBytes, kVtsmAstAtr, 8, 0, 0,
     "[vtsm_ast_atr] Statement missing in vtsi_mat",
     "[vtsm_ast_atr] Statement missing in vtsi_mat"},
    {"vtsm_spst_ns", Reader::Both, Form::Count, kVtsmSpstNs + 1, 1, 0, 0,
     "[vtsm_spst_ns] Statement missing in vtsi_mat",
     "[vtsm_spst_ns] Statement missing in vtsi_mat"},
    {"vtsm_spst_atr", Reader::Both, Form::HexBytes, kVtsmSpstAtr, 6, 0, 0,
     "[vtsm_spst_atr] Statement missing in vtsi_mat",
     "[vtsm_spst_atr] Statement missing in vtsi_mat"},
    {"vts_v_atr", Reader::Both, Form::HexBytes, kVtsVatr, 2, 0, 0,
     "[vts_v_atr] Statement missing in vtsi_mat", "[vts_v_atr] Statement missing in vtsi_mat"},
    {"vts_ast_ns", Reader::Both, Form::Count, kVtsAstNs + 1, 1, 0, 0,
     "[vts_ast_ns] Statement missing in vtsi_mat", "[vts_ast_ns] Statement missing in vtsi_mat"},
    {"vts_ast_atrt%02d", Reader::Both, Form::Run, kVtsAstAtrt, 8, kVtsAstNs + 1, 0,
     kNumberedMissing, kNumberedMissing},
    {"vts_spst_ns", Reader::Both, Form::Count, kVtsSpstNs + 1, 1, 0, 0,
     "[vts_spst_ns] Statement missing in vtsi_mat", "vts_spst_ns"},
    {"vts_spst_atrt%02d", Reader::Both, Form::Run, kVtsSpstAtrt, 6, kVtsSpstNs + 1, 0,
     kNumberedMissing, kNumberedMissing},
    {"vts_mu_ast_atrt%02d", Reader::Both, Form::Run, kVtsMuAstAtrt, 24, 0, kMultichannelStreams,
     kNumberedMissing, kNumberedMissing},
};

constexpr unsigned long long kMaxTitleSetBytes = 8000000000ULL;

// Stores bytes into the management table; whatever a count pushes past its
// 2048 bytes is dropped.
void Store(std::array<uint8_t, CKestro_VTS_MAT::kTableSize>& mat, size_t offset,
           const uint8_t* bytes, size_t n) {
    for (size_t i = 0; i < n && offset + i < mat.size(); ++i) mat[offset + i] = bytes[i];
}

void StoreBE32(std::array<uint8_t, CKestro_VTS_MAT::kTableSize>& mat, size_t offset, uint32_t v) {
    uint8_t b[4];
    PutBE32(b, v);
    Store(mat, offset, b, 4);
}

// The folder part of a path (up to and including its last '/' or '\'),
// empty when there is none, and the file name after it.
size_t NameStart(const std::string& path) {
    size_t cut = path.find_last_of("/\\");
    return cut == std::string::npos ? 0 : cut + 1;
}

}  // namespace

bool CKestro_VTS_MAT::ReadSource(const char* iniPath, bool absolute) {
    m_mat.fill(0);
    Source src(iniPath, kSection);

    if (!src.Read("vts_id")) {
        SetError("VTS ID is missing");
        return false;
    }
    if (std::strncmp(src.Value(), kVtsId, kIdSize) != 0) {
        SetError("[DVDVIDEO-VTS] missing Illegal VTS_ID field");
        return false;
    }
    std::memcpy(m_mat.data(), src.Value(), kIdSize);

    auto read = [&](const Statement& s) {
        if (s.reader == Reader::AbsoluteOnly && !absolute) return true;
        const char* missing = absolute ? s.missingAbsolute : s.missing;
        if (s.form == Form::Run) {
            int count = s.countAt ? m_mat[s.countAt] : s.fixedCount;
            uint8_t bytes[24];
            for (int k = 1; k <= count; ++k) {
                if (!src.Read(src.Key(s.key, k))) {
                    SetError(missing, src.LastKey());
                    return false;
                }
                HexBytes(src.Value(), bytes, s.size);
                Store(m_mat, s.offset + s.size * size_t(k - 1), bytes, s.size);
            }
            return true;
        }
        if (!src.Read(s.key)) {
            SetError("%s", missing);
            return false;
        }
        switch (s.form) {
            case Form::Decimal32: StoreBE32(m_mat, s.offset, uint32_t(src.Int())); break;
            case Form::Hex32: StoreBE32(m_mat, s.offset, uint32_t(axtoi(src.Value()))); break;
            case Form::Version: {
                // The second character is cut off: the major number is the
                // first character alone, the minor number the rest.
                char v[Source::kValueSize] = {};
                Format(v, sizeof v, "%s", src.Value());
                v[1] = 0;
                int major = std::atoi(v), minor = std::atoi(v + 2);
                m_mat[s.offset + 1] = uint8_t(major * 16 + minor % 16);
                break;
            }
            case Form::MenuVideo:
                // Only the low byte of the whole number is kept.
                m_mat[s.offset] = 0;
                m_mat[s.offset + 1] = uint8_t(axtoi(src.Value()));
                break;
            case Form::Count: m_mat[s.offset] = uint8_t(src.Int()); break;
            case Form::HexBytes: {
                uint8_t bytes[8];
                HexBytes(src.Value(), bytes, s.size);
                Store(m_mat, s.offset, bytes, s.size);
                break;
            }
            case Form::Run: break;
        }
        return true;
    };

    for (const auto& s : kHead)
        if (!read(s)) return false;
    if (absolute)
        for (const auto& sa : kStartSectors) {
            if (!src.Read(sa.key)) {
                SetError("%s", sa.missing);
                return false;
            }
            StoreBE32(m_mat, sa.offset, uint32_t(src.Int()));
        }
    for (const auto& s : kAttributes)
        if (!read(s)) return false;
    return true;
}

bool CKestro_VTS_MAT::Assemble(const char* iniPath, int hFile, const char* ifoPath,
                               bool absolute) {
    // Title-set number: the 5th and 6th characters of the file name.
    const std::string ifo = ifoPath ? ifoPath : "";
    const size_t nameAt = NameStart(ifo);
    char digits[3] = {};
    for (size_t i = 0; i < 2 && nameAt + 4 + i < ifo.size(); ++i) digits[i] = ifo[nameAt + 4 + i];
    const int titleSet = std::atoi(digits);

    if (!ReadSource(iniPath, absolute)) return false;

    // Layout: the management table, then the sub-tables back to back.
    CBaseKestro* const tables[kTableCount] = {m_ptt.get(),    m_pgcit.get(),     m_pgciUt.get(),
                                              m_tmap.get(),   m_vtsmCadt.get(),  m_vtsmAdmap.get(),
                                              m_vtsCadt.get(), m_vtsAdmap.get()};
    uint32_t next = 1;
    for (size_t i = 0; i < kTableCount; ++i) {
        unsigned long sectors = 0, bytes = 0;
        if (tables[i]) tables[i]->Get(&sectors, &bytes);
        StoreBE32(m_mat, kStartSectors[kFirstTableSa + i].offset, sectors ? next : 0);
        next += uint32_t(sectors);
    }
    const uint32_t vtsiEa = next - 1;
    StoreBE32(m_mat, kVtsiMatEa, 2047);
    StoreBE32(m_mat, kVtsiEa, vtsiEa);

    // The VOB files beside the IFO file.
    const std::string folder = ifo.substr(0, nameAt);
    char name[32];
    auto measure = [&](const std::string& path, uint32_t* size) {
        int h = FileOpen(path.c_str(), 0x8000);
        if (h == -1) {
            SetError("Can not open %s", path.c_str());
            return false;
        }
        *size = uint32_t(FileSize(h));
        FileClose(h);
        if (*size % kSector) {
            if (absolute)
                SetError(
                    "Warning! VOB file %s is not divisble by 2048, a requirement of DVD-Video standards.",
                    path.c_str());
            else
                SetError("VOB file %s is not divisble by 2048, a requirement of DVD-Video standards.",
                         path.c_str());
            return false;
        }
        return true;
    };

    uint32_t menuSectors = 0;
    Format(name, sizeof name, "vts_%02d_0.vob", titleSet);
    std::string vob = folder + name;
    if (FileExists(vob.c_str(), 0) == 0) {
        StoreBE32(m_mat, kVtsmVobsSa, vtsiEa + 1);
        uint32_t size = 0;
        if (!measure(vob, &size)) return false;
        menuSectors = size / kSector;
    }
    const uint32_t titleStart = vtsiEa + 1 + menuSectors;
    StoreBE32(m_mat, kVtsttVobsSa, titleStart);

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
    StoreBE32(m_mat, kVtsEa, vtsiEa + titleStart + titleBytes / kSector);

    WriteAsmVTSI_MAT(static_cast<unsigned short>(hFile));
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
