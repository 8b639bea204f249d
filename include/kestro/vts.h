// Video title set information (VTS_nn_0.IFO): the part-of-title search
// pointer table, the title PGC information table, the time map table and the
// management table VTSI_MAT, which owns every table of the file and lays the
// whole file out again from source.
#ifndef KESTRO_VTS_H
#define KESTRO_VTS_H

#include <array>
#include <cstdint>
#include <vector>

#include "kestro/frame.h"
#include "kestro/pgc.h"

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
    uint8_t m_header[8];                              // file byte order
    std::vector<std::array<uint8_t, 4>> m_entries;    // file byte order
    std::array<uint16_t, kMaxTitleUnits> m_perTtu;    // entries per TTU
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

    using CBaseKestro::Load;
    using CBaseKestro::Details;
    using CBaseKestro::Disasm;
    using CBaseKestro::Asm;
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
    std::vector<std::array<uint8_t, 8>> m_srp;      // search pointers
    std::vector<std::vector<uint8_t>> m_images;     // binary PGCs
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
    // zeroed entries of map m from wherever that form keeps them.
    template <class Entries>
    bool Assemble(const char* iniPath, Entries readEntries);
    void ReleaseMaps();

    LoadedTable m_loaded;
    std::vector<Map> m_maps;
    uint8_t m_header[8];  // file byte order
};

#endif
