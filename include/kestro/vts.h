// Video title set information (VTS_nn_0.IFO): the part-of-title search
// pointer table, the title PGC information table, the time map table and the
// management table VTSI_MAT, which owns every table of the file and lays the
// whole file out again from source.
#ifndef KESTRO_VTS_H
#define KESTRO_VTS_H

#include <array>
#include <cstdint>
#include <memory>
#include <vector>

#include "kestro/frame.h"
#include "kestro/pgc.h"
#include "kestro/tables.h"

// ===========================================================================
// VTS_PTT_SRPT: for every title unit (TTU) its parts of title (chapters),
// each naming a program chain number and a program number.
//   header: TTU count, reserved, end address; then one 4-byte start address
//   per TTU; then 4-byte PTT entries (PGCN, 0, PGN), all TTUs in order.
// Source section "vts_ptt_srpt".
// ===========================================================================
class KESTRO_API CKestro_PTT_SRPT : public CBaseKestro {
public:
    // Title units the assembled view counts entries for; Asm refuses more.
    static constexpr int kMaxTitleUnits = 999;
    // Entry statements Asm reads at most ("000ptt_srp" to "255ptt_srp").
    static constexpr int kMaxSourceEntries = 256;

    CKestro_PTT_SRPT();
    ~CKestro_PTT_SRPT() override;

    using CBaseKestro::Load;
    // Remembers where the table lies: 1 when loaded, 0 for start sector 0.
    int Load(int hFile, unsigned long startSector);

    // Loaded view: re-read from the open file on every call.
    bool Details(char* buf, int len) override;
    bool Disasm(const char* iniPath) override;

    // Assembled view: rebuilt from the "vts_ptt_srpt" section. False with
    // "IFO assembler error! In vts_ttu_ns" when the count is missing, and
    // with a message of its own for more than 999 title units or an entry
    // whose TTU number lies outside 1 to vts_ttu_ns.
    bool Asm(const char* iniPath) override;
    // Writes the assembled table and pads to the next sector boundary, then
    // drops the entries. Returns false even after a complete write.
    bool Write(int hFile) override;
    // Size in sectors and the assembled end address (not the byte size).
    void Get(unsigned long* sectors, unsigned long* endAddress) override;

private:
    LoadedTable m_loaded;
    uint8_t m_header[8];                            // file byte order
    std::vector<std::array<uint8_t, 4>> m_entries;  // file byte order
    std::array<uint16_t, kMaxTitleUnits> m_perTtu;  // entries per TTU
};

// ===========================================================================
// VTS_PGCIT: the title set's title program chains. Header (PGC count,
// reserved, end address), one 8-byte search pointer per PGC (category, start
// byte), then the PGCs. Everything inside a PGC goes through the caller's
// codec; PGC i lives in source section "vts_pgcit%02d" with prefix "vts_pgc_".
// ===========================================================================
class KESTRO_API CKestro_VTS_PGCIT : public CBaseKestro {
public:
    // PGC images the assembled view holds; Asm refuses a source with more.
    static constexpr int kMaxPGCs = 256;

    CKestro_VTS_PGCIT();
    ~CKestro_VTS_PGCIT() override;

    using CBaseKestro::Asm;
    using CBaseKestro::Details;
    using CBaseKestro::Disasm;
    using CBaseKestro::Load;
    int Load(int hFile, unsigned long startSector);

    // Report of the loaded table with the report of every PGC. A PGC report
    // is given only the room left in buf, so it never overruns the buffer
    // (three bytes of headroom beyond len, as for every report).
    bool Details(CKestro_PGCI* pgci, char* buf, int len);
    bool Disasm(const char* iniFile, CKestro_PGCI* pgci);
    bool Asm(const char* iniFile, CKestro_PGCI* pgci);

    // Call Get before Write: it sets the end address Write puts out.
    bool Write(int hFile) override;
    void Get(unsigned long* sectors, unsigned long* bytes) override;

private:
    void ReleaseAssembled();

    LoadedTable m_loaded;  // count and end address double as the written header
    std::vector<std::array<uint8_t, 8>> m_srp;   // search pointers
    std::vector<std::vector<uint8_t>> m_images;  // binary PGCs
};

// ===========================================================================
// VTS_TMAPT: one time map per title PGC, sector addresses sampled at a fixed
// time unit; bit 31 of an entry marks a discontinuity. Header (map count,
// reserved, end address), one 4-byte start address per map, then the maps
// (time unit, reserved, entry count, 4-byte entries).
// Sections "vts_tmapt" and "vts_tmapti". Disasm puts the entries of map k
// into the side file named like the source with its last four characters
// (".ini") replaced by " TmapTable<k>.ini"; Asm reads entries from the
// source it is given only (see JoinTmapSideFiles). DisasmToFile/AsmToFile
// keep the entries in one binary side file instead: 32-bit little-endian
// entries of all maps in order, no header.
// ===========================================================================
class KESTRO_API CKestro_VTS_TMAP : public CBaseKestro {
public:
    // Maps the assembled view holds; Asm and AsmToFile refuse more.
    static constexpr int kMaxMaps = 999;

    CKestro_VTS_TMAP();
    ~CKestro_VTS_TMAP() override;

    using CBaseKestro::Load;
    int Load(int hFile, unsigned long startSector);

    bool Details(char* buf, int len) override;
    bool Disasm(const char* iniPath) override;
    bool DisasmToFile(const char* iniPath, const char* binPath);

    // A missing time-unit, entry-count or entry statement leaves
    // "[key] Statement missing in vts_tmapti" in the error text and still
    // returns true; check the error text after assembling. Entries left
    // unread are zero.
    bool Asm(const char* iniPath) override;
    bool AsmToFile(const char* iniPath, const char* binPath);

    // Size in sectors and in bytes; also completes the assembled header.
    void Get(unsigned long* sectors, unsigned long* bytes) override;
    // False, writing nothing, when no map is assembled.
    bool Write(int hFile) override;

    // The path of the side file of map k (1-based) for a source path.
    static void SideFilePath(const char* iniPath, int map, char* out, int outSize);
    // Host helper: copies the entry statements of every TmapTable side file
    // of iniPath (as Disasm left them) into the "vts_tmapti" section of
    // iniPath itself, so that Asm finds them. Maps and entry counts are taken
    // from iniPath's own statements. Flushes the INI store; false when
    // "vts_tmap_ns" is missing.
    static bool JoinTmapSideFiles(const char* iniPath);

private:
    struct Map {
        uint8_t timeUnit = 0;
        std::vector<uint32_t> entries;  // host order, bit 31 = discontinuity
    };
    // The assembly shared by Asm and AsmToFile; readEntries fills the
    // zeroed entries of map m from wherever that form keeps them, false when
    // a statement is missing.
    template <class Entries>
    bool Assemble(const char* iniPath, Entries readEntries);
    void ReleaseMaps();

    LoadedTable m_loaded;
    std::vector<Map> m_maps;
    uint8_t m_header[8];  // file byte order
};

// ===========================================================================
// VTSI_MAT, the management table in the first sector of VTS_nn_0.IFO, and the
// driver that owns every other table of the file.
//
// Loading reads the management table and creates and loads each sub-table it
// points at (VTS_PTT_SRPT, VTS_PGCIT, VTSM_PGCI_UT and its language units,
// VTS_TMAPT, VTSM_C_ADT, VTSM_VOBU_ADMAP, VTS_C_ADT, VTS_VOBU_ADMAP). The
// sub-tables read their bodies from the open file whenever they are reported,
// so the host keeps the file open while it uses a loaded driver.
//
// After Load the fourteen addresses and start sectors (VTS_EA, VTSI_EA, the
// category, VTSI_MAT_EA and the ten start sectors) are held least
// significant byte first; after Asm/AsmAbs every field is in file order.
// Details, the source and the start-sector accessors read the fields as held.
//
// Assembly (Asm, AsmAbs): the host creates each sub-table the file is to have
// (New...), assembles it from the source, creates the output file and calls
// Asm with the IFO path being built; its folder is where the title set's VOB
// files are measured ("vts_nn_0.vob", then "vts_nn_1.vob" ... "vts_nn_9.vob"
// up to the first gap, names matched case-insensitively), and its file name
// gives the title-set number (characters 5 and 6, as in VTS_01_0.IFO).
// ===========================================================================
class KESTRO_API CKestro_VTS_MAT : public CBaseKestro {
public:
    static constexpr int kTableSize = 2048;

    CKestro_VTS_MAT();
    ~CKestro_VTS_MAT() override;
    CKestro_VTS_MAT(const CKestro_VTS_MAT&) = delete;
    CKestro_VTS_MAT& operator=(const CKestro_VTS_MAT&) = delete;

    // 1 when the file starts with "DVDVIDEO-VTS", else 0 (sub-tables held
    // from before are then kept). A successful load releases the sub-tables
    // held from before and loads the new file's.
    int Load(int hFile) override;
    // Report of the management table's own fields (not of the sub-tables).
    bool Details(char* buf, int len) override;
    // Deletes iniPath, then writes the "vtsi_mat" section. Call it before the
    // sub-tables' Disasm, which add their sections to the same file.
    bool Disasm(const char* iniPath) override;
    // Always false: assembly needs the output file and the IFO path.
    bool Asm(const char* iniPath) override;
    // Writes the 2048 bytes as held. Always true.
    bool Write(int hFile) override;
    // Does nothing.
    void Get(unsigned long* a, unsigned long* b) override;

    // Rebuilds the whole file into hFile (at its current position, normally
    // byte 0) from the "vtsi_mat" section and the sub-tables held. AsmAbs also
    // requires the absolute address statements, and keeps "vtsm_vobs_sa" when
    // there is no menu VOB. Nothing is written when they return false.
    bool Asm(const char* iniPath, int hFile, const char* ifoPath);
    bool AsmAbs(const char* iniPath, unsigned short hFile, const char* ifoPath);

    // Sub-tables. Get returns the held object or null. New stores a fresh
    // object and returns it; an object held before is released (pointers to
    // it become invalid), and a new VTSM_PGCI_UT also releases the language
    // units, which describe the table it replaces. Delete releases and nulls.
    CKestro_PTT_SRPT* GetVTS_PTT_SRPT() const { return m_ptt.get(); }
    CKestro_VTS_PGCIT* GetVTS_PGCIT() const { return m_pgcit.get(); }
    CKestro_VTSM_PGCI* GetVTSM_PGCI_UT() const { return m_pgciUt.get(); }
    CKestro_VTSM_LU* GetVTSM_LU() const { return m_lu.get(); }
    CKestro_VTS_TMAP* GetVTS_TMAPT() const { return m_tmap.get(); }
    CKestro_VTSM_CADT* GetVTSM_C_ADT() const { return m_vtsmCadt.get(); }
    CKestro_VTSM_ADMAP* GetVTSM_VOBU_ADMAP() const { return m_vtsmAdmap.get(); }
    CKestro_VTS_CADT* GetVTS_C_ADT() const { return m_vtsCadt.get(); }
    CKestro_VTS_ADMAP* GetVTS_VOBU_ADMAP() const { return m_vtsAdmap.get(); }

    CKestro_PTT_SRPT* NewVTS_PTT_SRPT();
    CKestro_VTS_PGCIT* NewVTS_PGCIT();
    CKestro_VTSM_PGCI* NewVTSM_PGCI_UT();
    CKestro_VTSM_LU* NewVTSM_LU();
    CKestro_VTS_TMAP* NewVTS_TMAPT();
    CKestro_VTSM_CADT* NewVTSM_C_ADT();
    CKestro_VTSM_ADMAP* NewVTSM_VOBU_ADMAP();
    CKestro_VTS_CADT* NewVTS_C_ADT();
    CKestro_VTS_ADMAP* NewVTS_VOBU_ADMAP();

    void DeleteVTS_PTT_SRPT();
    void DeleteVTS_PGCIT();
    void DeleteVTSM_PGCI_UT();
    void DeleteVTSM_LU();
    void DeleteVTS_TMAPT();
    void DeleteVTSM_C_ADT();
    void DeleteVTSM_VOBU_ADMAP();
    void DeleteVTS_C_ADT();
    void DeleteVTS_VOBU_ADMAP();

    // Start sector of VTSM_PGCI_UT as held: the language units need it.
    unsigned long GetVTSM_PGCIT_SA() const;

private:
    unsigned long Held32(size_t offset) const;
    bool ReadSource(const char* iniPath, bool absolute);
    bool Assemble(const char* iniPath, int hFile, const char* ifoPath, bool absolute);
    void DeleteSubTables();

    std::array<uint8_t, kTableSize> m_mat;
    std::unique_ptr<CKestro_PTT_SRPT> m_ptt;
    std::unique_ptr<CKestro_VTS_PGCIT> m_pgcit;
    std::unique_ptr<CKestro_VTSM_PGCI> m_pgciUt;
    std::unique_ptr<CKestro_VTSM_LU> m_lu;
    std::unique_ptr<CKestro_VTS_TMAP> m_tmap;
    std::unique_ptr<CKestro_VTSM_CADT> m_vtsmCadt;
    std::unique_ptr<CKestro_VTSM_ADMAP> m_vtsmAdmap;
    std::unique_ptr<CKestro_VTS_CADT> m_vtsCadt;
    std::unique_ptr<CKestro_VTS_ADMAP> m_vtsAdmap;
};

#endif
