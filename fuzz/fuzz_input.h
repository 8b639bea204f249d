// One input of the IFO fuzz targets, as an IFO file of the given kind: loaded, every table
// reported and disassembled, and the source just written assembled again while it is small
// (large ones are the source target's business).
//
// The input's last byte picks the reports' room (0: ample, else 1 + 4 times the byte, cut
// short), the byte before it whether they are streamed and in pieces of which size (bits 0
// and 1) and whether the side-file writers run (bit 2). Each input is reported once, in the
// form it picks: a second load and report cost as much as the first and reach no code that
// inputs of either form do not.
//
// The work per input is bounded where more of it repeats what the input already did: mutated
// inputs often announce tables of thousands of entries, each formatted as a report line and
// source statements at some microseconds under the sanitizers. Reports get 32 KiB of room (a
// streamed one stops there): cut there or further on, a report runs the same code. A table
// whose report passes half of that is not disassembled, nor are language units of 100 PGCs
// or more in all (more than one full unit) and cell address tables of 1,024 VOBs or more:
// their sources list every PGC and VOB their headers count, mostly the same bytes again,
// while the room cuts their reports short. An undefined unit is read from the file's start
// as 99 copies of one PGC and counts as more than a unit. The clamps these tables apply stay
// reachable below the limits (one unit counting more than 99 PGCs passes).
#ifndef KESTRO_FUZZ_FUZZ_INPUT_H
#define KESTRO_FUZZ_FUZZ_INPUT_H

#include <sys/stat.h>

#include "kestro_drive.h"

namespace kfuzz {

constexpr int kRoom = 1 << 15;
constexpr size_t kHeavyAt = kRoom / 2;  // a report this long keeps its table's source out
constexpr uint32_t kUnitPgcsBelow = 100, kCellVobsBelow = 1024;
// Where the management tables give the cell address tables' start sectors: the menus' (in
// either kind of file) and the titles' (in a title set).
constexpr unsigned kMenuCellsAt = 216, kTitleCellsAt = 224;

class IfoLimits final : public kdrive::Limits {
public:
    IfoLimits(const uint8_t* data, size_t size, int room) : data_(data), size_(size), room_(room) {}
    // Language units and cell address tables are bounded by the counts their disassembly
    // reads, asked for when it is their turn.
    void Disassembling(CKestro_VMG_MAT& mat) override {
        units_ = {mat.GetVMGM_LU(), mat.GetVMGM_PGCI_UT(), mat.GetVMGM_PGCIT_SA()};
        cells_[0] = {mat.GetVMGM_C_ADT(), kMenuCellsAt};
    }
    void Disassembling(CKestro_VTS_MAT& mat) override {
        units_ = {mat.GetVTSM_LU(), mat.GetVTSM_PGCI_UT(), mat.GetVTSM_PGCIT_SA()};
        cells_[0] = {mat.GetVTSM_C_ADT(), kMenuCellsAt};
        cells_[1] = {mat.GetVTS_C_ADT(), kTitleCellsAt};
    }
    void Reported(const void* table, size_t length, const Details& again) override {
        // A report cut short by a small room does not tell whether it passes kHeavyAt: the
        // table is reported once more, whole, into a probe a little larger (longer than any
        // line a report refuses). That costs at most kHeavyAt of text, where the source of a
        // heavy table would cost thousands of statements.
        if (length < kHeavyAt && size_t(room_) < kHeavyAt) {
            if (!probe_) probe_.emplace(int(kHeavyAt + 4096), 0, 0);
            // A stream whose pieces no report reaches: the probe is made whole in its buffer.
            kestro::ReportStream whole(&kdrive::ReportBuffer::Handed, &*probe_, ~size_t(0));
            again(probe_->Fresh(), probe_->room);
            probe_->CheckTerminated();
            length = probe_->last;
        }
        if (length >= kHeavyAt) heavy_.push_back(table);
    }
    bool WriteSource(const void* table) const override {
        if (std::count(heavy_.begin(), heavy_.end(), table)) return false;
        if (table == units_.lu) return UnitPgcs() < kUnitPgcsBelow;
        for (const Cells& c : cells_)
            if (table == c.table) return CellVobs(c.startAt) < kCellVobsBelow;
        return true;
    }

private:
    // The big-endian number of `width` (2 or 4) bytes at a byte position of the input; 0 when
    // the input does not hold all of them.
    uint32_t BE(uint64_t at, int width) const {
        const kestro::ByteView input(data_, size_);
        if (!input.Has(at, size_t(width))) return 0;
        return width == 2 ? input.BE16(at) : input.BE32(at);
    }
    // The PGCs a menu table's units hold as their disassembly reads them: at most kMaxPgcs in
    // each of at most kMaxUnits units, an undefined unit (position 0) one more than kMaxPgcs.
    uint32_t UnitPgcs() const {
        CKestroMenuPgcTable* table = units_.table;
        if (!table) return 0;
        const uint32_t units =
            std::min<uint32_t>(table->UnitCount(), CKestroMenuPgcTable::kMaxUnits);
        uint32_t pgcs = 0;
        for (uint32_t i = 0; i < units; ++i) {
            const unsigned long at = table->UnitPosition(uint16_t(i), units_.startSector);
            pgcs += at == 0 ? CKestroMenuPgcTable::kMaxPgcs + 1
                            : std::min<uint32_t>(BE(at, 2), CKestroMenuPgcTable::kMaxPgcs);
        }
        return pgcs;
    }
    // A cell address table's VOB count (its first field): the entries its source gets.
    uint32_t CellVobs(unsigned startAt) const { return BE(uint64_t(BE(startAt, 4)) * 2048, 2); }

    struct Units {
        const void* lu;
        CKestroMenuPgcTable* table;  // the unit search pointers
        unsigned long startSector;
    };
    struct Cells {
        const void* table;
        unsigned startAt;
    };
    const uint8_t* data_;
    size_t size_;
    int room_;
    Units units_ = {};
    Cells cells_[2] = {};
    std::optional<kdrive::ReportBuffer> probe_;
    std::vector<const void*> heavy_;
};

// Traps when a file handle was left open.
inline void FuzzIfoInput(const kdrive::Scratch& s, bool vmg, const uint8_t* data, size_t size) {
    static const int handle = kdrive::NextHandle(s.Path("probe"));
    kdrive::LoadedRun run;
    run.reportRoom = kRoom;
    run.streamLimit = kRoom;
    if (size > 20) {
        if (data[size - 1] != 0) run.reportRoom = 1 + data[size - 1] * 4;
        run.streamPiece = data[size - 2] % 4 * 300;
        run.sideFiles = (data[size - 2] & 4) != 0;
    }
    IfoLimits limits(data, size, run.reportRoom);
    run.limits = &limits;
    kdrive::DriveBytes(s, vmg, data, size, run);
    struct stat source {};
    if (stat(s.Ini().c_str(), &source) != 0 || source.st_size < (64 << 10)) {
        // One INI operation for the whole reassembly: nothing else writes the source meanwhile,
        // so it is checked against the disk once, not once per section a table reads.
        kestro::IniOperation operation;
        kdrive::DriveSource(s);
    }
    s.Clear();
    if (kdrive::NextHandle(s.Path("probe")) != handle) __builtin_trap();
}

}  // namespace kfuzz

#endif
