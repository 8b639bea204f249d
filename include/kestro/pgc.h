// The program chain (PGC) codec: the one class through which every First
// Play, title and menu PGC is reported, written to source and rebuilt.
#ifndef KESTRO_PGC_H
#define KESTRO_PGC_H

#include <array>
#include <cstdint>
#include <memory>

#include "kestro/frame.h"

class KESTRO_API CKestro_PGCI : public CBaseKestro {
public:
    static constexpr int kMaxCells = 256;
    static constexpr int kMaxCommands = 384;
    static constexpr int kGeneralInfoSize = 236;

    CKestro_PGCI();
    ~CKestro_PGCI() override;
    // Cell entries are owned by exactly one codec: moving is allowed,
    // copying is not.
    CKestro_PGCI(const CKestro_PGCI&) = delete;
    CKestro_PGCI& operator=(const CKestro_PGCI&) = delete;
    CKestro_PGCI(CKestro_PGCI&&) noexcept;
    CKestro_PGCI& operator=(CKestro_PGCI&&) noexcept;

    // Flushes the INI store and returns false.
    bool Disasm(const char* iniPath) override;

    // ---- Binary PGC held by the caller ----
    // Text form of one 8-byte navigation command; out holds at least 53
    // characters. Returns the text's length.
    int DisAssembleCommand(const unsigned char* command, char* out);

    // Report of the PGC at data + offset, appended at out. Returns the number
    // of characters written, or 0 when a line does not fit in room. The room
    // test counts a line without its indentation and line break, so out
    // must hold room + indent + 3 bytes. The command-table header in the
    // caller's buffer is byte-swapped in place.
    // This form trusts the PGC to lie wholly inside the caller's buffer.
    int DetailsOfPGCI(unsigned short indent, unsigned char* data, unsigned long offset, char* out,
                      int room);
    // The same, reading only the dataSize bytes the caller holds at data:
    // anything an offset or count points at beyond them reads as zero.
    int DetailsOfPGCI(unsigned short indent, unsigned char* data, unsigned long offset, char* out,
                      int room, unsigned long dataSize);

    // Writes the PGC at data + offset as source keys with the given prefix
    // into section of iniFile, then flushes the INI store. Always true.
    bool DisasmPGCI(const char* iniFile, unsigned char* data, unsigned long offset,
                    const char* prefix, const char* section);
    bool DisasmPGCI(const char* iniFile, unsigned char* data, unsigned long offset,
                    const char* prefix, const char* section, unsigned long dataSize);

    // ---- Assembly from source ----
    // Each reads one part of the PGC from section of iniFile, keys prefixed
    // with prefix; false with the message in the error text. At most 256
    // cells and 256 program-map bytes are read. A command table declaring
    // more than 384 commands in all is refused as a whole ("In [section] of
    // file the command table declares N commands, more than the 384
    // allowed") and leaves no command table behind.
    bool AsmPGC_C_POSIT(const char* iniFile, const char* section, const char* prefix);
    bool AsmPGC_C_PBIT(const char* iniFile, const char* section, const char* prefix);
    bool AsmPGC_PGMAP(const char* iniFile, const char* section, const char* prefix);
    bool AsmPGC_CMDT(const char* iniFile, const char* section, const char* prefix);
    // The four above in that order, then the general information, checking
    // the program count against the padded map length and the cell count
    // against C_PBIT.
    bool AsmPGCI(const char* iniFile, const char* section, const char* prefix);

    // Size of the PGC GetPGCData will write; stores the start offsets in the
    // general information as a side effect.
    unsigned long GetPGCISize();
    // Writes the binary PGC into data (size bytes) and releases the cell
    // entries, on success and on failure alike.
    bool GetPGCData(unsigned char* data, unsigned long size);

private:
    struct Model;
    // The assembly model. A moved-from codec has none; the next operation
    // that needs one starts a fresh, empty model.
    Model& M();
    // Sets the missing-statement message for key and returns false.
    bool Missing(const char* key, const char* section, const char* iniFile);
    std::unique_ptr<Model> m_;
};

#endif
