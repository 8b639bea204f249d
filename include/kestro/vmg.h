// The video manager information file VIDEO_TS.IFO: its management table
// VMGI_MAT (which owns every other table of the file and lays the whole file
// out when it is assembled), the title search pointer table TT_SRPT, the
// parental management table PTL_MAIT, the title set attribute table VTS_ATRT
// and the text data manager TXTDT_MG.
#ifndef KESTRO_VMG_H
#define KESTRO_VMG_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "kestro/frame.h"
#include "kestro/pgc.h"
#include "kestro/tables.h"

// TT_SRPT: one 12-byte search pointer per title of the disc. The loaded view
// (Load) remembers where the table lies in the open file and is read back by
// Details and Disasm; the assembled view (Asm) is what Get and Write use.
class KESTRO_API CKestro_VMG_PTT : public CBaseKestro {
public:
    static constexpr int kMaxTitles = 999;
    static constexpr int kEntrySize = 12;

    CKestro_VMG_PTT();
    ~CKestro_VMG_PTT() override;

    using CBaseKestro::Load;
    // 1 when loaded, 0 when startSector is 0.
    int Load(int hFile, unsigned long startSector);

    bool Details(char* buf, int len) override;
    // Section "vmg_ptt_srpt"; always true.
    bool Disasm(const char* iniPath) override;
    bool Asm(const char* iniPath) override;
    // Writes the assembled table and pads to the sector; then empties the
    // assembled view (a second Write writes nothing). Always true.
    bool Write(int hFile) override;
    void Get(unsigned long* sectors, unsigned long* bytes) override;

private:
    LoadedTable m_loaded;
    std::array<uint8_t, 8> m_header{};  // file byte order
    std::vector<std::array<uint8_t, kEntrySize>> m_records;
    uint16_t m_recordCount = 0;  // the count the source gave
};

// PTL_MAIT: loaded, reported and disassembled only. The assembler keeps no
// parental table: Asm and Write succeed without doing anything and Get
// reports an empty table.
class KESTRO_API CKestro_VMG_MAIT : public CBaseKestro {
public:
    CKestro_VMG_MAIT();
    ~CKestro_VMG_MAIT() override;

    using CBaseKestro::Load;
    int Load(int hFile, unsigned long startSector);

    bool Details(char* buf, int len) override;
    bool Disasm(const char* iniPath) override;
    bool Asm(const char* iniPath) override;
    bool Write(int hFile) override;
    void Get(unsigned long* sectors, unsigned long* bytes) override;

private:
    LoadedTable m_loaded;  // count = countries, reserved = title sets
};

// VTS_ATRT: per title set its category and a copy of its stream attributes.
class KESTRO_API CKestro_VMG_ATRT : public CBaseKestro {
public:
    static constexpr int kMaxTitleSets = 99;
    static constexpr int kRecordSize = 776;

    CKestro_VMG_ATRT();
    ~CKestro_VMG_ATRT() override;

    using CBaseKestro::Load;
    int Load(int hFile, unsigned long startSector);

    bool Details(char* buf, int len) override;
    bool Disasm(const char* iniPath) override;
    bool Asm(const char* iniPath) override;
    // Writes header, start addresses and records (even an empty table writes
    // its 8-byte header and the padding); empties the assembled view.
    bool Write(int hFile) override;
    // Size of the assembled table; also fills in its end address.
    void Get(unsigned long* sectors, unsigned long* bytes) override;

private:
    LoadedTable m_loaded;
    std::array<uint8_t, 8> m_header{};
    std::vector<std::array<uint8_t, kRecordSize>> m_records;
    uint16_t m_recordCount = 0;
};

// TXTDT_MG: only its 20-byte header is read. Not a CBaseKestro: it has no
// error text and no virtual operations.
class KESTRO_API CKestro_VMG_TXTDT {
public:
    static constexpr int kHeaderSize = 20;

    CKestro_VMG_TXTDT();
    ~CKestro_VMG_TXTDT();

    int Load(int hFile, unsigned long startSector);
    bool Details(char* buf, int len);
    // Section "txtdt_mg"; always true.
    bool Disasm(const char* iniPath);
    // The text data manager cannot be rebuilt: false, nothing read.
    bool Asm(const char* iniPath);
    // False, nothing written.
    bool Write(int hFile);
    // Leaves both arguments untouched.
    void Get(unsigned long* a, unsigned long* b);

private:
    std::array<uint8_t, kHeaderSize> m_header{};  // as read, in file byte order
    LoadedTable m_body;                           // where the rest lies
};

// VMGI_MAT with the First Play PGC, and the owner of every other table of
// VIDEO_TS.IFO.
//
// Reading: open the file (OpenKestroFile), Load, then Details/Disasm of this
// object first (its Disasm starts a fresh source file) and of each sub-table
// reached through the Get accessors, while the file stays open. The language
// units take a codec, GetVMGM_PGCI_UT() and GetVMGM_PGCIT_SA().
// Rebuilding: on a fresh object, New<TABLE> and Asm each sub-table the
// source holds (VMGM_PGCI_UT with a codec), CreateKestroFile the output and
// call Asm(iniPath, hFile, outputPath); the menu VOB file is looked for next
// to outputPath.
//
// Sub-table objects are owned here. The pointers returned by the Get
// accessors stay valid until the table is replaced (New, Load), deleted
// (Delete) or this object is destroyed. New releases an object already held
// before storing the fresh one; NewVMGM_PGCI and DeleteVMGM_PGCI also
// release the language units, which describe the table being replaced.
class KESTRO_API CKestro_VMG_MAT : public CBaseKestro {
public:
    static constexpr int kTableSize = 1024;
    static constexpr int kFirstPlayMax = 1268;
    static constexpr int kRecordSize = kTableSize + kFirstPlayMax;  // 2292

    CKestro_VMG_MAT();
    ~CKestro_VMG_MAT() override;
    CKestro_VMG_MAT(const CKestro_VMG_MAT&) = delete;
    CKestro_VMG_MAT& operator=(const CKestro_VMG_MAT&) = delete;

    // 1 when the file is a video manager information file ("DVDVIDEO-VMG"),
    // 0 otherwise. Sub-tables held from before are released first.
    int Load(int hFile) override;
    bool Details(char* buf, int len) override;
    // Deletes iniPath, then writes the "vmgi_mat" and "fp_pgci" sections.
    bool Disasm(const char* iniPath) override;
    // Writes the management table and First Play PGC as assembled, padded to
    // the sector. Always true.
    bool Write(int hFile) override;

    using CBaseKestro::Asm;
    // Rebuilds the whole VIDEO_TS.IFO into hFile (positioned at byte 0) from
    // the "vmgi_mat" and "fp_pgci" sections and the sub-tables the host has
    // created and assembled. ifoPath locates the menu VOB file. Nothing is
    // written when it returns false.
    bool Asm(const char* iniPath, int hFile, const char* ifoPath);

    CKestro_VMG_PTT* GetVMG_PTT_SRPT() const { return m_ptt.get(); }
    CKestro_VMGM_PGCI* GetVMGM_PGCI_UT() const { return m_pgci.get(); }
    CKestro_VMGM_LU* GetVMGM_LU() const { return m_lu.get(); }
    CKestro_VMG_MAIT* GetVMG_MAIT() const { return m_mait.get(); }
    CKestro_VMG_ATRT* GetVMG_ATRT() const { return m_atrt.get(); }
    CKestro_VMG_TXTDT* GetVMG_TXTDT() const { return m_txtdt.get(); }
    CKestro_VMG_CADT* GetVMGM_C_ADT() const { return m_cadt.get(); }
    CKestro_VMGM_ADMAP* GetVMGM_VOBU_ADMAP() const { return m_admap.get(); }

    // Each returns the fresh object it stored.
    CKestro_VMG_PTT* NewVMGM_PTT();
    CKestro_VMGM_PGCI* NewVMGM_PGCI();
    CKestro_VMG_MAIT* NewVMGM_MAIT();
    CKestro_VMG_ATRT* NewVMGM_ATRT();
    CKestro_VMG_CADT* NewVMGM_C_ADT();
    CKestro_VMGM_ADMAP* NewVMGM_VOBU_ADMAP();

    void DeleteVMGM_PTT();
    void DeleteVMGM_PGCI();
    void DeleteVMGM_MAIT();
    void DeleteVMGM_ATRT();
    void DeleteVMGM_C_ADT();
    void DeleteVMGM_VOBU_ADMAP();

    // Start sector of VMGM_PGCI_UT, which the language-unit operations need.
    unsigned long GetVMGM_PGCIT_SA() const;

private:
    bool HasFirstPlayPGC() const;
    uint32_t Field32(size_t at) const;
    void DeleteSubTables();

    std::unique_ptr<CKestro_VMG_PTT> m_ptt;
    std::unique_ptr<CKestro_VMGM_PGCI> m_pgci;
    std::unique_ptr<CKestro_VMGM_LU> m_lu;
    std::unique_ptr<CKestro_VMG_MAIT> m_mait;
    std::unique_ptr<CKestro_VMG_ATRT> m_atrt;
    std::unique_ptr<CKestro_VMG_TXTDT> m_txtdt;
    std::unique_ptr<CKestro_VMG_CADT> m_cadt;
    std::unique_ptr<CKestro_VMGM_ADMAP> m_admap;

    // Bytes 0-2291 of the file, kept in file byte order; fields are decoded
    // where they are used.
    std::array<uint8_t, kRecordSize> m_record{};
    uint32_t m_matEa = 0;  // end address computed by Asm
};

#endif
