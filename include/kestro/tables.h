// Tables that both file kinds share: the cell address tables (C_ADT), the
// VOBU address maps (VOBU_ADMAP) and the menu PGC information unit tables
// (PGCI_UT) with their language units (LU).
//
// Each kind is one implementation (the Kestro*Table bases below) driven by a
// small description of what its members do differently; the exported classes
// only name their table and add the operations that carry their own names.
#ifndef KESTRO_TABLES_H
#define KESTRO_TABLES_H

#include <array>
#include <cstdint>
#include <memory>
#include <vector>

#include "kestro/frame.h"
#include "kestro/pgc.h"

namespace kestro {
// What the members of each family do differently (defined with the family).
struct CellTableKind;
struct VobuMapKind;
struct MenuPgcKind;
}  // namespace kestro

// ===========================================================================
// Cell address tables: for every cell of a VOB set its VOB ID, cell ID and
// first and last sector. Header (VOB count, reserved, end address) and
// 12-byte entries, big-endian.
// ===========================================================================
class KESTRO_API CKestroCellAddressTable : public CBaseKestro {
public:
    // Entries the assembled view holds at most; Asm refuses more.
    static constexpr int kMaxCells = 256;

    ~CKestroCellAddressTable() override;

    bool Details(char* buf, int len) override;
    // Always true.
    bool Disasm(const char* iniPath) override;
    bool Asm(const char* iniPath) override;
    // False when nothing is assembled. Call Get first: it fills in the end
    // address (without it the end address is written as 0).
    bool Write(int hFile) override;
    // Size in sectors (rounded up) and bytes; fills in the end address.
    void Get(unsigned long* sectors, unsigned long* bytes) override;

protected:
    explicit CKestroCellAddressTable(const kestro::CellTableKind& kind);
    int LoadCells(int hFile, unsigned long startSector);

    const kestro::CellTableKind* m_kind;
    LoadedTable m_loaded;
    uint8_t m_header[8];                             // assembled header, file byte order
    std::vector<std::array<uint8_t, 12>> m_records;  // assembled entries, file byte order
};

class KESTRO_API CKestro_VMG_CADT : public CKestroCellAddressTable {
public:
    CKestro_VMG_CADT();
    using CBaseKestro::Load;
    // 1 when loaded, 0 when startSector is 0.
    int Load(int hFile, unsigned long startSector);
};

class KESTRO_API CKestro_VTS_CADT : public CKestroCellAddressTable {
public:
    CKestro_VTS_CADT();
    using CBaseKestro::Load;
    int Load(int hFile, unsigned long startSector);
};

class KESTRO_API CKestro_VTSM_CADT : public CKestroCellAddressTable {
public:
    CKestro_VTSM_CADT();
    using CBaseKestro::Load;
    // Virtual slot 7.
    virtual int Load(int hFile, unsigned long startSector);
};

// ===========================================================================
// VOBU address maps: the start sector of every VOBU of a VOB set. A 4-byte
// end address followed by 4-byte entries, big-endian. Maps can also be
// written to and read from binary side files:
//   counted: 4-byte little-endian count, then the entries;
//   plain:   the entries only, little-endian, count = file size / 4.
// In every side-file operation the side file's path is the last argument;
// the arguments before it are accepted and not used.
// ===========================================================================
class KESTRO_API CKestroVobuAddressMap : public CBaseKestro {
public:
    ~CKestroVobuAddressMap() override;

    bool Details(char* buf, int len) override;
    bool Disasm(const char* iniPath) override;
    // False (no message) when there is no "vobu_sa0001" statement.
    bool Asm(const char* iniPath) override;
    // False when nothing is assembled; empties the assembled view.
    bool Write(int hFile) override;
    void Get(unsigned long* sectors, unsigned long* bytes) override;

protected:
    explicit CKestroVobuAddressMap(const kestro::VobuMapKind& kind);
    int LoadMap(int hFile, unsigned long startSector);
    // Reads the map back from the file into `into`; false when no buffer of
    // the announced size can be had.
    bool ReadMapBack(std::vector<uint8_t>& into);
    bool WriteSideFile(const char* path);
    // Counted (true) or plain side file into the assembled view.
    bool ReadSideFile(const char* path, bool counted);

    const kestro::VobuMapKind* m_kind;
    uint32_t m_entriesPos;             // file position of entry 1
    uint32_t m_endAddress;             // host order
    std::vector<uint8_t> m_loadedMap;  // entries as in the file (big-endian)
    uint16_t m_loadedCount;
    uint16_t m_hLoaded;
    std::vector<uint8_t> m_assembled;  // the assembled entries, big-endian
};

class KESTRO_API CKestro_VMGM_ADMAP : public CKestroVobuAddressMap {
public:
    CKestro_VMGM_ADMAP();
    using CBaseKestro::Load;
    int Load(int hFile, unsigned long startSector);
    // Counted side file in (entries copied as stored).
    bool AsmBinaryNT(const char* unused, unsigned short unusedCount, const char* path);
    // Plain side file in (little-endian entries).
    bool AsmBinary(const char* unused, unsigned short unusedCount, const char* path);
};

class KESTRO_API CKestro_VTS_ADMAP : public CKestroVobuAddressMap {
public:
    CKestro_VTS_ADMAP();
    using CBaseKestro::Load;
    int Load(int hFile, unsigned long startSector);
    // Counted side file out, entries as in the IFO file (big-endian).
    bool Disasm_ToFile(const char* unused, const char* path);
    bool Asm_FromFile(const char* unused, unsigned short unusedCount, const char* path);
    bool Asm_Binary(const char* unused, unsigned short unusedCount, const char* path);
};

class KESTRO_API CKestro_VTSM_ADMAP : public CKestroVobuAddressMap {
public:
    CKestro_VTSM_ADMAP();
    using CBaseKestro::Load;
    // Also reads the whole map; 0 when it cannot be buffered.
    int Load(int hFile, unsigned long startSector);
    // Counted side file out, entries converted to little-endian; reading it
    // back with AsmFromFile keeps them so (byte-reversed in the map).
    bool DisasmToFile(const char* unused, const char* path);
    bool AsmFromFile(const char* unused, const char* path);
    bool AsmBinary(const char* unused, const char* path);
};

// ===========================================================================
// Menu PGC information unit tables (PGCI_UT): language-unit search pointers
// followed by the language units, each holding PGC search pointers and the
// binary PGCs.
// ===========================================================================
class KESTRO_API CKestroMenuPgcTable : public CBaseKestro {
public:
    static constexpr int kMaxUnits = 16;
    static constexpr int kMaxPgcs = 99;

    ~CKestroMenuPgcTable() override;

    // Report of the header and the unit search pointers.
    bool Details(char* buf, int len) override;
    bool Disasm(const char* iniPath) override;
    using CBaseKestro::Asm;
    // Builds the assembled view from source, every PGC through pgc.
    bool Asm(const char* iniPath, CKestro_PGCI* pgc);
    // Writes the assembled view at the current position and discards it.
    bool Write(int hFile) override;
    void Get(unsigned long* sectors, unsigned long* bytes) override;

    // Byte position in the file of unit index (0-based), 0 when its start
    // byte is 0. startSector is the table's start sector.
    unsigned long UnitPosition(unsigned short index, unsigned long startSector);
    uint16_t UnitCount() const { return m_loaded.count; }
    uint16_t LoadedHandle() const { return m_loaded.hFile; }

protected:
    explicit CKestroMenuPgcTable(const kestro::MenuPgcKind& kind);
    int LoadTable(int hFile, unsigned long startSector);
    unsigned long AssembledBytes() const;

    struct AssembledPgc {
        uint8_t srp[8] = {};         // search pointer, file byte order
        std::vector<uint8_t> image;  // binary PGC from the codec
    };
    struct AssembledUnit {
        uint8_t srp[8] = {};     // unit search pointer, file byte order
        uint8_t header[8] = {};  // unit header, count big-endian
        std::vector<AssembledPgc> pgcs;
    };

    const kestro::MenuPgcKind* m_kind;
    // Loaded view: header, handle and where the search pointers lie (the
    // body size is the end address's low 16 bits).
    LoadedTable m_loaded;
    // Assembled view.
    uint8_t m_header[8];
    std::vector<AssembledUnit> m_units;
};

class KESTRO_API CKestro_VMGM_PGCI : public CKestroMenuPgcTable {
public:
    CKestro_VMGM_PGCI();
    using CBaseKestro::Load;
    int Load(int hFile, unsigned long startSector);
    unsigned short GetVMGMNumOfLus();
    unsigned short GetVMGLuInf();
    unsigned long GetVMGM_LU_SA(unsigned short index, unsigned long startSector);
};

class KESTRO_API CKestro_VTSM_PGCI : public CKestroMenuPgcTable {
public:
    CKestro_VTSM_PGCI();
    using CBaseKestro::Load;
    int Load(int hFile, unsigned long startSector);
    unsigned short GetVTSMNumOfLus();
    unsigned short GetVTSLuInf();
    unsigned long GetVTSM_LU_SA(unsigned short index, unsigned long startSector);
};

// ===========================================================================
// Language units of a loaded PGCI_UT, read one at a time through the unit
// table object (and its file handle) into a 32,768-byte buffer.
// ===========================================================================
class KESTRO_API CKestroLanguageUnits : public CBaseKestro {
public:
    static constexpr uint32_t kUnitBuffer = 32768;

    ~CKestroLanguageUnits() override;

protected:
    explicit CKestroLanguageUnits(const kestro::MenuPgcKind& kind);
    int LoadUnits(unsigned long startSector, CKestroMenuPgcTable* table);
    bool DetailsUnits(char* buf, int len, CKestro_PGCI* pgc, CKestroMenuPgcTable* table,
                      unsigned long startSector);
    bool DisasmUnits(const char* iniPath, unsigned long startSector, CKestro_PGCI* pgc,
                     CKestroMenuPgcTable* table);
    // Reads the unit at position into the unit buffer.
    void ReadUnit(CKestroMenuPgcTable* table, unsigned long position);

    const kestro::MenuPgcKind* m_kind;
    // kUnitBuffer bytes; only the first m_unitHeld (the bytes read from the
    // file) are ever read, so the rest is left as it is.
    std::unique_ptr<uint8_t[]> m_unit;
    uint32_t m_unitHeld;

    uint16_t m_unitCount;
};

class KESTRO_API CKestro_VMGM_LU : public CKestroLanguageUnits {
public:
    CKestro_VMGM_LU();
    using CBaseKestro::Details;
    using CBaseKestro::Disasm;
    using CBaseKestro::Load;
    // Returns true and does nothing.
    bool Asm(const char* iniPath) override;
    // hFile is not used; startSector is the unit table's start sector.
    int Load(int hFile, unsigned long startSector, CKestro_VMGM_PGCI* table);
    bool Details(char* buf, int len, CKestro_PGCI* pgc, CKestro_VMGM_PGCI* table,
                 unsigned long startSector);
    bool Disasm(const char* iniPath, unsigned long startSector, CKestro_PGCI* pgc,
                CKestro_VMGM_PGCI* table);
};

class KESTRO_API CKestro_VTSM_LU : public CKestroLanguageUnits {
public:
    CKestro_VTSM_LU();
    using CBaseKestro::Details;
    using CBaseKestro::Disasm;
    using CBaseKestro::Load;
    // Sets both results to 0.
    void Get(unsigned long* a, unsigned long* b) override;
    // Virtual slots 7, 8 and 9.
    virtual int Load(int hFile, unsigned long startSector, CKestro_VTSM_PGCI* table);
    virtual bool Details(char* buf, int len, CKestro_PGCI* pgc, CKestro_VTSM_PGCI* table,
                         unsigned long startSector);
    virtual bool Disasm(const char* iniPath, CKestro_PGCI* pgc, CKestro_VTSM_PGCI* table,
                        unsigned long startSector);
};

#endif
