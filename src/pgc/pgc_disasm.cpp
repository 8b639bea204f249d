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
            case GeneralForm::Hex16: src.Write(key, "%04x", p.BE16(at)); at += 2; break;
            case GeneralForm::Hex32: src.Write(key, "%08x", p.BE32(at)); at += 4; break;
            }
        }
    }
}

void WriteCommands(Source& src, const char* px, PgcBytes& p) {
    const size_t cmdt = p.BE16(kGiCmdtSa);
    src.Write(src.Key("%scmdt_sa", px), "%d", int(cmdt));
    if (cmdt == 0) return;
    const PgcBytes::CommandCounts n = p.SwapCommandHeader(cmdt);
    src.Write(src.Key("%scmdt_pre_ns", px), "%d", n.pre);
    src.Write(src.Key("%scmdt_post_ns", px), "%d", n.post);
    src.Write(src.Key("%scmdt_cmds_ns", px), "%d", n.cell);
    const struct {
        const char* key;
        unsigned count;
    } groups[] = {{"%spre%d", n.pre}, {"%spost%d", n.post}, {"%scell%d", n.cell}};
    size_t at = cmdt + kCmdtHeader;
    for (const auto& g : groups) {
        // Counts come from the file: commands that would lie beyond the
        // bytes the caller holds are not invented (a damaged header can
        // announce 196,605 of them).
        for (unsigned i = 1; i <= g.count && p.View().Has(at, kCommandSize); ++i, at += kCommandSize) {
            uint8_t c[kCommandSize];
            p.View().Copy(at, c, kCommandSize);
            src.Write(src.Key(g.key, px, int(i)), "%02x%02x%02x%02x%02x%02x%02x%02x", c[0], c[1],
                      c[2], c[3], c[4], c[5], c[6], c[7]);
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

void WriteCells(Source& src, const char* px, const PgcBytes& p) {
    const unsigned cells = p.Cells();
    const size_t pbit = p.BE16(kGiCpbitSa);
    src.Write(src.Key("%sc_pbit_sa", px), "%d", int(pbit));
    if (pbit != 0) {
        for (unsigned c = 1; c <= cells; ++c) {
            const size_t e = pbit + kPbitEntry * (c - 1);
            const int n = int(c);
            WriteHex4(src, src.Key("%sc_pbit_cell%03d_cat", px, n), p, e);
            WriteHex4(src, src.Key("%sc_pbit_cell%03d_pbtm", px, n), p, e + 4);
            src.Write(src.Key("%sc_pbit_cell%03d_fvobu_sa", px, n), "%d", int32_t(p.BE32(e + 8)));
            src.Write(src.Key("%sc_pbit_cell%03d_filvu_ea", px, n), "%d", int32_t(p.BE32(e + 12)));
            src.Write(src.Key("%sc_pbit_cell%03d_lvobu_sa", px, n), "%d", int32_t(p.BE32(e + 16)));
            src.Write(src.Key("%sc_pbit_cell%03d_lvobu_ea", px, n), "%d", int32_t(p.BE32(e + 20)));
        }
    }
    const size_t posit = p.BE16(kGiCpositSa);
    src.Write(src.Key("%sc_posit_sa", px), "%d", int(posit));
    if (posit != 0) {
        for (unsigned c = 1; c <= cells; ++c) {
            const size_t e = posit + kPositEntry * (c - 1);
            src.Write(src.Key("%sc_posit_cell%03d_vobid", px, int(c)), "%d", p.BE16(e));
            src.Write(src.Key("%sc_posit_cell%03d_cellid", px, int(c)), "%d", p.U8(e + 3));
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
    WriteCells(src, px, pgc);
    INIFlushFiles();
    return true;
}
