// One binary PGC written as source keys of one section. Hexadecimal values
// are written in lower case without a leading x; offsets, counts and sector
// numbers in decimal (sector numbers signed).
#include "frame/detail.h"
#include "kestro/ini.h"
#include "kestro/pgc.h"
#include "pgc/pgc_model.h"

using namespace kestro;
using namespace kestro::pgc;

namespace {

void WriteHex4(Source& src, const char* key, const PgcBytes& p, size_t at) {
    src.Write(key, "%02x%02x%02x%02x", p.U8(at), p.U8(at + 1), p.U8(at + 2), p.U8(at + 3));
}

void WriteGeneral(Source& src, const char* px, const PgcBytes& p) {
    for (const GeneralKey& f : kGeneralKeys) {
        size_t at = f.at;
        for (int i = 1; i <= (f.entries ? f.entries : 1); ++i) {
            const char* key = f.entries ? src.Key(f.key, px, i) : src.Key(f.key, px);
            switch (f.form) {
            case GeneralForm::Bytes: WriteHex4(src, key, p, at); break;
            case GeneralForm::Words:
                src.Write(key, "%04x%04x%04x%04x", p.BE16(at), p.BE16(at + 2), p.BE16(at + 4),
                          p.BE16(at + 6));
                break;
            case GeneralForm::Hex16:
                src.Write(key, "%04x", p.BE16(at));
                at += 2;
                break;
            case GeneralForm::Hex32:
                src.Write(key, "%08x", p.BE32(at));
                at += 4;
                break;
            }
        }
    }
}

void WriteCommands(Source& src, const char* px, PgcBytes& p) {
    const size_t cmdt = p.BE16(kGiCmdtSa);
    src.Write(src.Key("%scmdt_sa", px), "%d", int(cmdt));
    if (cmdt == 0) return;
    const std::array<unsigned, 3> n = p.SwapCommandHeader(cmdt);
    for (size_t g = 0; g < 3; ++g) src.Write(src.Key(kCommandGroups[g].countKey, px), "%d", n[g]);
    size_t at = cmdt + kCmdtHeader;
    for (size_t g = 0; g < 3; ++g) {
        // Counts come from the file: commands that would lie beyond the
        // bytes the caller holds are not invented (a damaged header can
        // announce 196,605 of them).
        for (unsigned i = 1; i <= n[g] && p.View().Has(at, kCommandSize); ++i, at += kCommandSize) {
            uint8_t c[kCommandSize];
            p.View().Copy(at, c, kCommandSize);
            src.Write(src.Key(kCommandGroups[g].commandKey, px, int(i)),
                      "%02x%02x%02x%02x%02x%02x%02x%02x", c[0], c[1], c[2], c[3], c[4], c[5], c[6],
                      c[7]);
        }
    }
}

void WriteProgramMap(Source& src, const char* px, const PgcBytes& p) {
    const size_t map = p.BE16(kGiPgmapSa);
    src.Write(src.Key("%spgmap_sa", px), "%d", int(map));
    if (map == 0) return;
    for (unsigned i = 1; i <= p.Programs(); ++i)
        src.Write(src.Key("%spgmap_prog_entry_cell%02d", px, int(i)), "%d", p.U8(map + i - 1));
}

// One cell table (C_PBIT or C_POSIT): its start offset, then the entry of
// every cell the PGC counts.
template <size_t K>
void WriteCells(Source& src, const char* px, const PgcBytes& p, const char* startKey,
                size_t startAt, const CellKey (&keys)[K], size_t entrySize) {
    const size_t start = p.BE16(startAt);
    src.Write(src.Key(startKey, px), "%d", int(start));
    if (start == 0) return;
    for (unsigned c = 1; c <= p.Cells(); ++c) {
        const size_t e = start + entrySize * (c - 1);
        for (const CellKey& k : keys) {
            const char* key = src.Key(k.key, px, int(c));
            switch (k.form) {
            case CellForm::Bytes: WriteHex4(src, key, p, e + k.at); break;
            case CellForm::Sector: src.Write(key, "%d", int32_t(p.BE32(e + k.at))); break;
            case CellForm::Word: src.Write(key, "%d", p.BE16(e + k.at)); break;
            case CellForm::Byte: src.Write(key, "%d", p.U8(e + k.at)); break;
            }
        }
    }
}

}  // namespace

bool CKestro_PGCI::DisasmPGCI(const char* iniFile, unsigned char* data, unsigned long offset,
                              const char* prefix, const char* section) {
    return DisasmPGCI(iniFile, data, offset, prefix, section, kTrustCaller);
}

bool CKestro_PGCI::DisasmPGCI(const char* iniFile, unsigned char* data, unsigned long offset,
                              const char* prefix, const char* section, unsigned long dataSize) {
    const char* px = prefix ? prefix : "";
    Source src(iniFile, section);
    PgcBytes pgc(data, offset, dataSize);
    WriteGeneral(src, px, pgc);
    WriteCommands(src, px, pgc);
    WriteProgramMap(src, px, pgc);
    WriteCells(src, px, pgc, "%sc_pbit_sa", kGiCpbitSa, kPbitKeys, kPbitEntry);
    WriteCells(src, px, pgc, "%sc_posit_sa", kGiCpositSa, kPositKeys, kPositEntry);
    INIFlushFiles();
    return true;
}
