// One PGC rebuilt from the source keys of one section. The start-offset keys
// are not read: the layout is recomputed by GetPGCISize in the fixed order
// general information, command table, program map, C_PBIT, C_POSIT.
#include <cstring>

#include "frame/detail.h"
#include "kestro/pgc.h"
#include "pgc/pgc_model.h"

using namespace kestro;
using namespace kestro::pgc;

namespace {

// Reads the statements of one PGC: the caller's section and key prefix.
class PgcSource {
public:
    PgcSource(const char* iniFile, const char* section, const char* prefix)
        : src_(iniFile, section),
          ini_(iniFile ? iniFile : ""),
          section_(section ? section : ""),
          prefix_(prefix ? prefix : "") {}

    // Formats the key (prefix first, then an optional index) and reads it;
    // false when the statement is missing.
    bool Read(const char* fmt) { return src_.Read(src_.Key(fmt, prefix_)); }
    bool Read(const char* fmt, int index) { return src_.Read(src_.Key(fmt, prefix_, index)); }

    const char* Value() const { return src_.Value(); }
    int Int() const { return src_.Int(); }
    uint32_t Hex() const { return uint32_t(axtoi(src_.Value())); }
    const char* Key() const { return src_.LastKey(); }
    const char* Ini() const { return ini_; }
    const char* Section() const { return section_; }

private:
    Source src_;
    const char* ini_;
    const char* section_;
    const char* prefix_;
};

// Reads the entries of one cell table, cell by cell from 1 on, at most 256:
// a cell without its first statement ends the table (true); a cell without
// a later one is false, with that key in s.Key().
template <size_t N, size_t K>
bool ReadCells(PgcSource& s, const CellKey (&keys)[K], std::vector<std::array<uint8_t, N>>& cells) {
    cells.clear();
    while (cells.size() < kMaxCells) {
        const int index = int(cells.size()) + 1;
        std::array<uint8_t, N> e{};
        for (const CellKey& k : keys) {
            if (!s.Read(k.key, index)) return &k == keys;
            switch (k.form) {
            case CellForm::Bytes: HexBytes(s.Value(), &e[k.at], 4); break;
            case CellForm::Sector: PutBE32(&e[k.at], uint32_t(s.Int())); break;
            case CellForm::Word: PutBE16(&e[k.at], uint32_t(s.Int())); break;
            case CellForm::Byte: e[k.at] = uint8_t(s.Int()); break;
            }
        }
        cells.push_back(e);
    }
    return true;
}

}  // namespace

bool CKestro_PGCI::Missing(const char* key, const char* section, const char* iniFile) {
    SetError("[%s] statement missing from section %s of %s", key, section, iniFile);
    return false;
}

bool CKestro_PGCI::AsmPGC_C_POSIT(const char* iniFile, const char* section, const char* prefix) {
    PgcSource s(iniFile, section, prefix);
    return ReadCells(s, kPositKeys, M().posit) || Missing(s.Key(), s.Section(), s.Ini());
}

bool CKestro_PGCI::AsmPGC_C_PBIT(const char* iniFile, const char* section, const char* prefix) {
    PgcSource s(iniFile, section, prefix);
    return ReadCells(s, kPbitKeys, M().pbit) || Missing(s.Key(), s.Section(), s.Ini());
}

bool CKestro_PGCI::AsmPGC_PGMAP(const char* iniFile, const char* section, const char* prefix) {
    Model& m = M();
    m.pgmap.fill(0);
    m.pgmapLength = 0;
    PgcSource s(iniFile, section, prefix);
    while (m.pgmapLength < kMapBytes) {
        if (!s.Read("%spgmap_prog_entry_cell%02d", m.pgmapLength + 1)) break;
        m.pgmap[m.pgmapLength++] = uint8_t(s.Int());
    }
    // An odd number of programs is padded with one zero byte.
    if (m.pgmapLength & 1) ++m.pgmapLength;
    return true;
}

bool CKestro_PGCI::AsmPGC_CMDT(const char* iniFile, const char* section, const char* prefix) {
    Model& m = M();
    m.commandCount = 0;
    PgcSource s(iniFile, section, prefix);
    uint16_t counts[3];
    unsigned total = 0;
    for (size_t g = 0; g < 3; ++g) {
        counts[g] = s.Read(kCommandGroups[g].countKey) ? uint16_t(s.Int()) : 0;
        total += counts[g];
    }
    // The command store holds 384 commands; a larger table is refused as a
    // whole rather than cut, since a cut table would change its meaning.
    if (total > kMaxCommands) {
        SetError("In [%s] of %s the command table declares %u commands, more than the %u allowed",
                 s.Section(), s.Ini(), total, kMaxCommands);
        return false;
    }
    for (size_t g = 0; g < 3; ++g)
        for (int i = 1; i <= counts[g]; ++i, ++m.commandCount) {
            if (!s.Read(kCommandGroups[g].commandKey, i))
                return Missing(s.Key(), s.Section(), s.Ini());
            HexBytes(s.Value(), &m.commands[kCommandSize * m.commandCount], kCommandSize);
        }
    // The header changes only once every command was read.
    for (size_t g = 0; g < 3; ++g) PutBE16(&m.cmdtHeader[2 * g], counts[g]);
    PutBE16(&m.cmdtHeader[6], uint32_t(kCommandSize * total + 7));
    return true;
}

bool CKestro_PGCI::AsmPGCI(const char* iniFile, const char* section, const char* prefix) {
    if (!AsmPGC_C_POSIT(iniFile, section, prefix) || !AsmPGC_C_PBIT(iniFile, section, prefix) ||
        !AsmPGC_PGMAP(iniFile, section, prefix) || !AsmPGC_CMDT(iniFile, section, prefix))
        return false;
    Model& m = M();
    uint8_t* gi = m.gi.data();
    m.gi.fill(0);
    PgcSource s(iniFile, section, prefix);
    auto missing = [&] { return Missing(s.Key(), s.Section(), s.Ini()); };

    if (!s.Read(kGeneralKeys[0].key)) return missing();
    HexBytes(s.Value(), gi + kGiCount, 4);

    // The map length includes the padding byte, so an odd program count is
    // accepted both as it is and one higher.
    const int programs = gi[kGiPrograms] & 0x7F;
    const int mapLength = m.pgmapLength;
    if (programs != mapLength && programs != mapLength - 1) {
        static const char kPrograms[] =
            "Number of Programs in cnt [%d] not equal to number of programs defined in PGMAP_PROG "
            "[%d]";
        SetError(kPrograms, programs, mapLength);
        return false;
    }
    if (gi[kGiCells] != m.pbit.size()) {
        // The message ends in a blank, kept as hosts have always shown it.
        static const char kCells[] =
            "In [%s] at [%s] the number of Cells in cnt not equal to number of cells defined in "
            "C_PBIT. Cell count = %d and C_PBIT = %d ";
        SetError(kCells, s.Ini(), s.Section(), gi[kGiCells], int(m.pbit.size()));
        return false;
    }

    // The rest of the general information, key by key in file order.
    for (size_t k = 1; k < sizeof kGeneralKeys / sizeof kGeneralKeys[0]; ++k) {
        const GeneralKey& f = kGeneralKeys[k];
        uint8_t* field = gi + f.at;
        for (int i = 1; i <= (f.entries ? f.entries : 1); ++i) {
            if (!(f.entries ? s.Read(f.key, i) : s.Read(f.key))) return missing();
            switch (f.form) {
            case GeneralForm::Bytes: HexBytes(s.Value(), field, 4); break;
            case GeneralForm::Words: HexWords(s.Value(), field, 4); break;
            case GeneralForm::Hex16:
                PutBE16(field, s.Hex() & 0xFFFF);
                field += 2;
                break;
            case GeneralForm::Hex32:
                PutBE32(field, s.Hex());
                field += 4;
                break;
            }
        }
    }
    return true;
}
