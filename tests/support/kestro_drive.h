// Drives the library the way a host does, for the fuzz targets and the
// hostile-input tests: load an IFO file and report and disassemble every
// table it has; assemble every table from a source and lay a whole file out.
// Nothing here checks results: the point is that no input, however damaged,
// makes the library read or write outside its memory, hang or leak.
#ifndef KESTRO_TESTS_SUPPORT_KESTRO_DRIVE_H
#define KESTRO_TESTS_SUPPORT_KESTRO_DRIVE_H

#include <dirent.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <algorithm>
#include <optional>
#include <string>
#include <vector>

#include "frame/detail.h"
#include "kestro/kestro.h"

namespace kdrive {

// A private folder (in memory when /dev/shm exists) holding the files one
// run needs: the IFO file under its real name, the source, the output file
// and one small VOB file per kind so that assembly finds something to
// measure. Clear() removes what a run left behind, including the INI
// store's cached copies.
class Scratch {
public:
    explicit Scratch(const char* tag) {
        const char* base = access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp";
        // The process number in the name tells whose folder it is: a fuzz
        // target ends without running destructors, and scripts/fuzz.sh
        // removes the folders of processes that have ended.
        std::string tmpl =
            std::string(base) + "/kestro-" + tag + "-" + std::to_string(getpid()) + "-XXXXXX";
        std::vector<char> buf(tmpl.begin(), tmpl.end());
        buf.push_back('\0');
        dir_ = mkdtemp(buf.data()) ? buf.data() : tmpl;
        std::vector<uint8_t> sector(2048, 0);
        Put("VIDEO_TS.VOB", sector.data(), sector.size());
        Put("VTS_01_0.VOB", sector.data(), sector.size());
        Put("VTS_01_1.VOB", sector.data(), sector.size());
    }
    ~Scratch() {
        Clear();
        for (const char* vob : {"VIDEO_TS.VOB", "VTS_01_0.VOB", "VTS_01_1.VOB"})
            std::remove(Path(vob).c_str());
        rmdir(dir_.c_str());
    }
    Scratch(const Scratch&) = delete;
    Scratch& operator=(const Scratch&) = delete;

    std::string Path(const char* name) const { return dir_ + "/" + name; }
    std::string Ini() const { return Path("source.ini"); }

    void Put(const char* name, const uint8_t* data, size_t size) const {
        std::FILE* f = std::fopen(Path(name).c_str(), "wb");
        if (!f) return;
        if (size) std::fwrite(data, 1, size, f);
        std::fclose(f);
    }

    // Removes every file a run may have made (sources, side files, outputs)
    // and the INI store's cached copies of the sources: what is in the folder
    // is listed once rather than every name a run might use removed in turn.
    void Clear() const {
        static const char* const kNames[] = {"source.ini", "VIDEO_TS.IFO", "VTS_01_0.IFO"};
        for (const char* n : kNames) INIForgetFile(Path(n).c_str());
        for (int k = 1; k <= 16; ++k) {
            char side[64];
            std::snprintf(side, sizeof side, "source TmapTable%d.ini", k);
            INIForgetFile(Path(side).c_str());
        }
        DIR* d = opendir(dir_.c_str());
        if (!d) return;
        std::vector<std::string> made;
        while (const dirent* e = readdir(d)) {
            const std::string n = e->d_name;
            if (n != "." && n != ".." && n != "VIDEO_TS.VOB" && n != "VTS_01_0.VOB" &&
                n != "VTS_01_1.VOB")
                made.push_back(n);
        }
        closedir(d);
        for (const std::string& n : made) Forget(Path(n.c_str()));
    }

private:
    static void Forget(const std::string& p) {
        INIForgetFile(p.c_str());
        std::remove(p.c_str());
    }
    std::string dir_;
};

// Report buffers are exactly room + 3 bytes (the report rule's headroom) on
// the heap, so a report that writes one byte too many is caught.
// Reports go to a buffer of `room`; with a piece size they are streamed
// through it, every piece checked to be text from the buffer's start.
// The buffer of the largest room used is kept for the next run of that room:
// a fresh one of a quarter megabyte per run costs more than the reports.
struct ReportBuffer {
    ReportBuffer(int room, size_t piece, size_t limit) : room(room) {
        if (Spare().size() == size_t(room) + 3)
            buf.swap(Spare());
        else
            buf.assign(size_t(room) + 3, '\0');
        // A damaged count can announce hundreds of millions of entries:
        // a streamed report stops at `limit`, as a buffered one at its room.
        if (piece) stream.emplace(&Handed, this, piece, limit);
    }
    ~ReportBuffer() {
        if (buf.size() >= Spare().size()) buf.swap(Spare());
    }
    ReportBuffer(const ReportBuffer&) = delete;
    ReportBuffer& operator=(const ReportBuffer&) = delete;

    static void Handed(void* self, char* text, size_t size) {
        auto& b = *static_cast<ReportBuffer*>(self);
        if (text != b.buf.data() || size > b.buf.size() || std::memchr(text, '\0', size))
            std::abort();
        b.handed += size;
    }
    // Zeroes the buffer as far as the text it holds (beyond it is zero or
    // text a report left after its end, which no report reads).
    char* Fresh() {
        const void* end = std::memchr(buf.data(), '\0', buf.size());
        size_t n = end ? size_t(static_cast<const char*>(end) - buf.data()) + 1 : buf.size();
        std::memset(buf.data(), 0, n);
        handed = 0;
        return buf.data();
    }
    // Also notes the length of the report (in `last`).
    void CheckTerminated() {
        const void* end = std::memchr(buf.data(), '\0', buf.size());
        if (end == nullptr) std::abort();
        last = handed + size_t(static_cast<const char*>(end) - buf.data());
    }
    static std::vector<char>& Spare() {
        static std::vector<char> spare;
        return spare;
    }
    int room;
    std::vector<char> buf;
    std::optional<kestro::ReportStream> stream;
    size_t handed = 0;  // characters of the current report handed on
    size_t last = 0;    // characters of the last report
};

// The tables whose reports ran to a limit: their sources are not written
// (a table whose report runs past a hundred thousand characters repeats one
// kind of entry thousands of times, and its source would too).
class HeavyTables {
public:
    explicit HeavyTables(size_t limit) : limit_(limit) {}
    void Note(const void* table, const ReportBuffer& rb) {
        if (limit_ && rb.last >= limit_) heavy_.push_back(table);
    }
    bool Light(const void* table) const {
        return std::find(heavy_.begin(), heavy_.end(), table) == heavy_.end();
    }

private:
    size_t limit_;
    std::vector<const void*> heavy_;
};

// Reports tables into one buffer and notes which are heavy. A report cut
// short by a small room does not tell: then the table is reported once more
// into a probe a little larger than the heavy limit (a report that does not
// fit it passes the limit), unstreamed, which costs at most the limit's
// worth of lines where the source of a heavy table would cost thousands of
// statements.
class Reporter {
public:
    Reporter(int room, size_t piece, size_t limit, size_t heavyAt, bool disasm)
        : buffer(room, piece, limit), heavyAt_(heavyAt), heavy_(heavyAt) {
        if (disasm && heavyAt && size_t(room) < heavyAt)
            probe_.emplace(int(heavyAt + kProbeSlack), 0, 0);
    }
    // details(buf, room) makes the table's report.
    template <class T, class F>
    void Report(const T& table, F&& details) {
        details(buffer.Fresh(), buffer.room);
        buffer.CheckTerminated();
        heavy_.Note(&table, buffer);
        if (probe_ && buffer.last < heavyAt_) {
            // A stream whose pieces no report reaches: the probe is made
            // whole in its buffer, whatever stream the run uses.
            kestro::ReportStream whole(&ReportBuffer::Handed, &*probe_, ~size_t(0));
            details(probe_->Fresh(), probe_->room);
            probe_->CheckTerminated();
            heavy_.Note(&table, *probe_);
        }
    }
    bool Light(const void* table) const { return heavy_.Light(table); }

    ReportBuffer buffer;

private:
    static constexpr size_t kProbeSlack = 4096;  // longer than any line a report refuses
    std::optional<ReportBuffer> probe_;
    size_t heavyAt_;
    HeavyTables heavy_;
};

// The handle the file layer gives next; a run must leave it unchanged (a
// handle the library forgets to close would exhaust the 512 slots).
inline int NextHandle(const std::string& probe) {
    int h = kestro::FileCreate(probe.c_str(), 0x180);
    if (h > 0) kestro::FileClose(h);
    std::remove(probe.c_str());
    return h;
}

inline long FileBytes(const std::string& path) {
    std::FILE* f = std::fopen(path.c_str(), "rb");
    if (!f) return 0;
    std::fseek(f, 0, SEEK_END);
    long n = std::ftell(f);
    std::fclose(f);
    return n;
}

// ---- Loaded file: report and disassemble every table -------------------------

// Options for one run over a loaded file.
struct LoadedRun {
    int reportRoom = 1 << 18;  // room given to each report
    size_t streamPiece = 0;    // when not 0, reports are streamed in pieces of this size
    size_t streamLimit = size_t(1) << 20;  // where a streamed report is stopped
    bool disasm = true;                    // write the source too
    // When not 0: a table's source is written only when its report stayed
    // shorter than this.
    size_t disasmBelow = 0;
    // When not 0: language units are disassembled only when they hold fewer
    // PGCs than this in all, cell address tables only when their VOB count
    // (the entries their source gets, whatever their bytes hold) is below
    // cellsBelow. Their reports do not tell: a unit's PGCs are reported as
    // far as the room goes, and a cell address table reports the entries
    // its end address gives.
    uint32_t unitPgcsBelow = 0;
    uint32_t cellsBelow = 0;
    bool sideFiles = true;  // the binary and INI side-file writers (VTS)
};

// The bytes of the file being driven, for the counts that decide how much
// of it is disassembled (read only when a run has such limits).
class FileImage {
public:
    FileImage(const std::string& path, const LoadedRun& run) {
        if (!run.unitPgcsBelow && !run.cellsBelow) return;
        std::FILE* f = std::fopen(path.c_str(), "rb");
        if (!f) return;
        uint8_t chunk[1 << 14];
        for (size_t n; (n = std::fread(chunk, 1, sizeof chunk, f)) > 0;)
            bytes_.insert(bytes_.end(), chunk, chunk + n);
        std::fclose(f);
    }
    // The big-endian number of `width` bytes at a byte position; 0 past the end.
    uint32_t BE(uint64_t at, int width) const {
        if (at >= bytes_.size() || bytes_.size() - at < size_t(width)) return 0;
        uint32_t v = 0;
        for (int b = 0; b < width; ++b) v = v << 8 | bytes_[size_t(at) + size_t(b)];
        return v;
    }

private:
    std::vector<uint8_t> bytes_;
};

// The PGCs the language units of a menu table hold, as their disassembly
// goes through them: at most kMaxPgcs in each of at most kMaxUnits units,
// each unit's count read at its position in the file. An undefined unit
// (position 0) is read from the file's start, whose first bytes count more
// than kMaxPgcs: the same PGC, made of the management table's bytes, that
// many times; it is counted as one more than kMaxPgcs, which no limit
// passes (the code that reads it is the code that reads any unit).
inline uint32_t UnitPgcs(const FileImage& file, CKestroMenuPgcTable* table,
                         unsigned long startSector) {
    if (!table) return 0;
    uint32_t units = std::min<uint32_t>(table->UnitCount(), CKestroMenuPgcTable::kMaxUnits);
    uint32_t pgcs = 0;
    for (uint32_t i = 0; i < units; ++i) {
        unsigned long at = table->UnitPosition(uint16_t(i), startSector);
        pgcs += at == 0 ? CKestroMenuPgcTable::kMaxPgcs + 1
                        : std::min<uint32_t>(file.BE(at, 2), CKestroMenuPgcTable::kMaxPgcs);
    }
    return pgcs;
}

inline bool UnitsLight(const LoadedRun& run, const FileImage& file, CKestroMenuPgcTable* table,
                       unsigned long startSector) {
    return run.unitPgcsBelow == 0 || UnitPgcs(file, table, startSector) < run.unitPgcsBelow;
}

// Where the management tables give the start sectors of the cell address
// tables (big-endian): the menus' and the titles' in a title set, the menus'
// in the video manager. A table's VOB count is its first field.
constexpr unsigned kVtsmCellTableAt = 216, kVtsCellTableAt = 224, kVmgmCellTableAt = 216;

inline bool CellsLight(const LoadedRun& run, const FileImage& file, unsigned tableAt) {
    return run.cellsBelow == 0 || file.BE(uint64_t(file.BE(tableAt, 4)) * 2048, 2) < run.cellsBelow;
}

template <class T, class F>
void Each(T* table, F&& call) {
    if (table) call(*table);
}

// VIDEO_TS.IFO: load, report every table, disassemble every table.
inline void DriveVmgFile(const Scratch& s, const std::string& ifo, const LoadedRun& run) {
    CKestro_VMG_MAT mat;
    CKestro_PGCI pgc;
    int h = int(mat.OpenKestroFile(ifo.c_str()));
    if (h < 1) return;
    if (mat.Load(h) == 1) {
        Reporter rep(run.reportRoom, run.streamPiece, run.streamLimit, run.disasmBelow, run.disasm);
        ReportBuffer& rb = rep.buffer;
        mat.Details(rb.Fresh(), rb.room);
        rb.CheckTerminated();
        auto report = [&](auto& t) {
            rep.Report(t, [&](char* buf, int room) { t.Details(buf, room); });
        };
        Each(mat.GetVMG_PTT_SRPT(), report);
        Each(mat.GetVMGM_PGCI_UT(), report);
        Each(mat.GetVMGM_LU(), [&](CKestro_VMGM_LU& t) {
            rep.Report(t, [&](char* buf, int room) {
                t.Details(buf, room, &pgc, mat.GetVMGM_PGCI_UT(), mat.GetVMGM_PGCIT_SA());
            });
        });
        Each(mat.GetVMG_MAIT(), report);
        Each(mat.GetVMG_ATRT(), report);
        Each(mat.GetVMG_TXTDT(), report);
        Each(mat.GetVMGM_C_ADT(), report);
        Each(mat.GetVMGM_VOBU_ADMAP(), report);

        if (run.disasm) {
            // Every Disasm flushes the source: one write of the whole file.
            kestro::FlushBatch batch;
            const std::string ini = s.Ini();
            auto disasm = [&](auto& t) {
                if (rep.Light(&t)) t.Disasm(ini.c_str());
            };
            const FileImage file(ifo, run);
            mat.Disasm(ini.c_str());
            Each(mat.GetVMG_PTT_SRPT(), disasm);
            Each(mat.GetVMGM_PGCI_UT(), disasm);
            Each(mat.GetVMGM_LU(), [&](CKestro_VMGM_LU& t) {
                if (rep.Light(&t) &&
                    UnitsLight(run, file, mat.GetVMGM_PGCI_UT(), mat.GetVMGM_PGCIT_SA()))
                    t.Disasm(ini.c_str(), mat.GetVMGM_PGCIT_SA(), &pgc, mat.GetVMGM_PGCI_UT());
            });
            Each(mat.GetVMG_MAIT(), disasm);
            Each(mat.GetVMG_ATRT(), disasm);
            Each(mat.GetVMG_TXTDT(), disasm);
            if (CellsLight(run, file, kVmgmCellTableAt)) Each(mat.GetVMGM_C_ADT(), disasm);
            Each(mat.GetVMGM_VOBU_ADMAP(), disasm);
            INIFlushFiles();
        }
    }
    mat.CloseKestroFile((unsigned long)h);
}

// VTS_nn_0.IFO: the same, plus the side-file writers of the maps.
inline void DriveVtsFile(const Scratch& s, const std::string& ifo, const LoadedRun& run) {
    CKestro_VTS_MAT mat;
    CKestro_PGCI pgc;
    int h = int(mat.OpenKestroFile(ifo.c_str()));
    if (h < 1) return;
    if (mat.Load(h) == 1) {
        Reporter rep(run.reportRoom, run.streamPiece, run.streamLimit, run.disasmBelow, run.disasm);
        auto report = [&](auto& t) {
            rep.Report(t, [&](char* buf, int room) { t.Details(buf, room); });
        };
        report(mat);
        Each(mat.GetVTS_PTT_SRPT(), report);
        Each(mat.GetVTS_PGCIT(), [&](CKestro_VTS_PGCIT& t) {
            rep.Report(t, [&](char* buf, int room) { t.Details(&pgc, buf, room); });
        });
        Each(mat.GetVTSM_PGCI_UT(), report);
        Each(mat.GetVTSM_LU(), [&](CKestro_VTSM_LU& t) {
            rep.Report(t, [&](char* buf, int room) {
                t.Details(buf, room, &pgc, mat.GetVTSM_PGCI_UT(), mat.GetVTSM_PGCIT_SA());
            });
        });
        Each(mat.GetVTS_TMAPT(), report);
        Each(mat.GetVTSM_C_ADT(), report);
        // The menu map's report uses the map read at load: before any Disasm.
        Each(mat.GetVTSM_VOBU_ADMAP(), report);
        Each(mat.GetVTS_C_ADT(), report);
        Each(mat.GetVTS_VOBU_ADMAP(), report);

        if (run.disasm) {
            kestro::FlushBatch batch;  // one write of the whole source
            const std::string ini = s.Ini();
            auto disasm = [&](auto& t) {
                if (rep.Light(&t)) t.Disasm(ini.c_str());
            };
            const FileImage file(ifo, run);
            mat.Disasm(ini.c_str());
            Each(mat.GetVTS_PTT_SRPT(), disasm);
            Each(mat.GetVTS_PGCIT(), [&](CKestro_VTS_PGCIT& t) {
                if (rep.Light(&t)) t.Disasm(ini.c_str(), &pgc);
            });
            Each(mat.GetVTSM_PGCI_UT(), disasm);
            Each(mat.GetVTSM_LU(), [&](CKestro_VTSM_LU& t) {
                if (rep.Light(&t) &&
                    UnitsLight(run, file, mat.GetVTSM_PGCI_UT(), mat.GetVTSM_PGCIT_SA()))
                    t.Disasm(ini.c_str(), &pgc, mat.GetVTSM_PGCI_UT(), mat.GetVTSM_PGCIT_SA());
            });
            Each(mat.GetVTS_TMAPT(), disasm);
            if (CellsLight(run, file, kVtsmCellTableAt)) Each(mat.GetVTSM_C_ADT(), disasm);
            Each(mat.GetVTSM_VOBU_ADMAP(), disasm);
            if (CellsLight(run, file, kVtsCellTableAt)) Each(mat.GetVTS_C_ADT(), disasm);
            Each(mat.GetVTS_VOBU_ADMAP(), disasm);
            if (run.sideFiles) {
                const std::string tmap = s.Path("tmap.bin");
                Each(mat.GetVTS_TMAPT(), [&](CKestro_VTS_TMAP& t) {
                    if (rep.Light(&t)) t.DisasmToFile(ini.c_str(), tmap.c_str());
                });
                Each(mat.GetVTSM_VOBU_ADMAP(), [&](CKestro_VTSM_ADMAP& t) {
                    t.DisasmToFile(ini.c_str(), s.Path("vtsm_admap.bin").c_str());
                });
                Each(mat.GetVTS_VOBU_ADMAP(), [&](CKestro_VTS_ADMAP& t) {
                    t.Disasm_ToFile(ini.c_str(), s.Path("vts_admap.bin").c_str());
                });
            }
            INIFlushFiles();
        }
    }
    mat.CloseKestroFile((unsigned long)h);
}

// The IFO name a file of each kind is given in the scratch folder.
inline const char* IfoName(bool vmg) { return vmg ? "VIDEO_TS.IFO" : "VTS_01_0.IFO"; }

// Puts bytes into the scratch folder as an IFO file of the given kind and
// drives it; the source (when written) stays for the caller.
inline void DriveBytes(const Scratch& s, bool vmg, const uint8_t* data, size_t size,
                       const LoadedRun& run) {
    s.Put(IfoName(vmg), data, size);
    if (vmg)
        DriveVmgFile(s, s.Path(IfoName(vmg)), run);
    else
        DriveVtsFile(s, s.Path(IfoName(vmg)), run);
}

// ---- Source: assemble every table, then whole files -------------------------

// Every table assembled on its own from the source, sized and written into
// out.ifo; then the side-file readers; then a whole VIDEO_TS.IFO and a whole
// VTS_01_0.IFO laid out from the same source (relative and absolute forms).
inline void DriveSource(const Scratch& s) {
    const std::string ini = s.Ini();
    const char* src = ini.c_str();
    const std::string outPath = s.Path("out.ifo");
    unsigned long sectors = 0, bytes = 0;

    {
        CBaseKestro files;
        int h = int(files.CreateKestroFile(outPath.c_str()));
        if (h < 1) return;
        auto plain = [&](CBaseKestro& t) {
            t.Asm(src);
            t.Get(&sectors, &bytes);
            t.Write(h);
            // A second Get/Write after the view was consumed.
            t.Get(&sectors, &bytes);
            t.Write(h);
        };
        CKestro_PGCI pgc;
        CKestro_VMG_PTT tt;
        plain(tt);
        CKestro_VMG_MAIT mait;
        plain(mait);
        CKestro_VMG_ATRT atrt;
        plain(atrt);
        CKestro_VMG_TXTDT txt;
        txt.Asm(src);
        txt.Get(&sectors, &bytes);
        txt.Write(h);
        CKestro_VMG_CADT vmgCadt;
        plain(vmgCadt);
        CKestro_VTS_CADT vtsCadt;
        plain(vtsCadt);
        CKestro_VTSM_CADT vtsmCadt;
        plain(vtsmCadt);
        CKestro_VMGM_ADMAP vmgMap;
        plain(vmgMap);
        CKestro_VTS_ADMAP vtsMap;
        plain(vtsMap);
        CKestro_VTSM_ADMAP vtsmMap;
        plain(vtsmMap);
        CKestro_PTT_SRPT ptt;
        plain(ptt);
        CKestro_VTS_TMAP tmap;
        plain(tmap);
        CKestro_VMGM_LU vmgLu;
        plain(vmgLu);
        CKestro_VTSM_LU vtsLu;
        plain(vtsLu);

        CKestro_VTS_PGCIT pgcit;
        pgcit.Asm(src, &pgc);
        pgcit.Get(&sectors, &bytes);
        pgcit.Write(h);
        CKestro_VMGM_PGCI vmgUt;
        vmgUt.Asm(src, &pgc);
        vmgUt.Get(&sectors, &bytes);
        vmgUt.Write(h);
        CKestro_VTSM_PGCI vtsUt;
        vtsUt.Asm(src, &pgc);
        vtsUt.Get(&sectors, &bytes);
        vtsUt.Write(h);

        // The PGC codec on its own, on the sections a title and a menu PGC
        // would use.
        for (const char* section : {"vts_pgcit01", "fp_pgci", "vmgm_lu01_01"}) {
            for (const char* prefix : {"vts_pgc_", "fp_pgc_", "vmgm_pgc_"}) {
                if (!pgc.AsmPGCI(src, section, prefix)) continue;
                unsigned long n = pgc.GetPGCISize();
                if (n > (1u << 24)) std::abort();  // a PGC is at most a few sectors
                std::vector<unsigned char> image(n, 0);
                pgc.GetPGCData(image.empty() ? nullptr : image.data(), image.size());
            }
        }
        files.CloseKestroFile((unsigned long)h);

        // Side-file readers on whatever the source's own bytes are.
        tmap.AsmToFile(src, src);
        tmap.Get(&sectors, &bytes);
        vmgMap.AsmBinaryNT(src, 0, src);
        vmgMap.AsmBinary(src, 0, src);
        vtsMap.Asm_FromFile(src, 0, src);
        vtsMap.Asm_Binary(src, 0, src);
        vtsmMap.AsmFromFile(src, src);
        vtsmMap.AsmBinary(src, src);
        CKestro_VTS_TMAP::JoinTmapSideFiles(src);
    }

    // Whole files, every sub-table the source describes.
    {
        CKestro_VMG_MAT mat;
        CKestro_PGCI pgc;
        mat.NewVMGM_PTT()->Asm(src);
        mat.NewVMGM_PGCI()->Asm(src, &pgc);
        mat.NewVMGM_MAIT()->Asm(src);
        mat.NewVMGM_ATRT()->Asm(src);
        mat.NewVMGM_C_ADT()->Asm(src);
        mat.NewVMGM_VOBU_ADMAP()->Asm(src);
        const std::string ifo = s.Path("VIDEO_TS.IFO");
        int h = int(mat.CreateKestroFile(ifo.c_str()));
        if (h >= 1) {
            mat.Asm(src, h, ifo.c_str());
            mat.CloseKestroFile((unsigned long)h);
        }
    }
    for (bool absolute : {false, true}) {
        CKestro_VTS_MAT mat;
        CKestro_PGCI pgc;
        mat.NewVTS_PTT_SRPT()->Asm(src);
        mat.NewVTS_PGCIT()->Asm(src, &pgc);
        mat.NewVTSM_PGCI_UT()->Asm(src, &pgc);
        mat.NewVTS_TMAPT()->Asm(src);
        mat.NewVTSM_C_ADT()->Asm(src);
        mat.NewVTSM_VOBU_ADMAP()->Asm(src);
        mat.NewVTS_C_ADT()->Asm(src);
        mat.NewVTS_VOBU_ADMAP()->Asm(src);
        const std::string ifo = s.Path("VTS_01_0.IFO");
        int h = int(mat.CreateKestroFile(ifo.c_str()));
        if (h >= 1) {
            if (absolute)
                mat.AsmAbs(src, (unsigned short)h, ifo.c_str());
            else
                mat.Asm(src, h, ifo.c_str());
            mat.CloseKestroFile((unsigned long)h);
        }
    }
    INIFlushFiles();
}

// DriveSource, then the two files it built loaded, reported and
// disassembled (side-file writers left out).
inline void DriveSourceAndReload(const Scratch& s) {
    DriveSource(s);
    LoadedRun run;
    run.sideFiles = false;
    DriveVmgFile(s, s.Path("VIDEO_TS.IFO"), run);
    DriveVtsFile(s, s.Path("VTS_01_0.IFO"), run);
}

// One fuzz input as an IFO file of the given kind: loaded, every table
// reported and disassembled; the source just written assembled again while
// it is small (large ones are the source target's business). The input's
// last byte picks the reports' room (0: ample, else 1 + 4 times the byte,
// cut short) and the byte before it whether they are streamed and in pieces
// of which size (bits 0 and 1) and whether the side-file writers run (bit
// 2). Each input is reported once, in the form it picks: a second load and
// report in another form cost as much as the first and reach no code the
// corpus does not reach through inputs of either form.
//
// The work per input is bounded where more of it repeats what an input
// already did: mutated inputs often announce tables of thousands of
// entries, every one formatted as a report line and a source statement at
// some microseconds each under the sanitizers. Reports get 32 KiB of room
// (a streamed report stops at 32 KiB): a report cut there runs the same
// code as one cut further on, and only tables of hundreds of entries (or
// damaged counts) run longer. A table whose report passes half of it is not
// disassembled (see Reporter for reports in a small room). Language units
// of 100 PGCs or more in all (more than one full unit of 99) and cell
// address tables of 1,024 VOBs or more are not disassembled either: their
// disassembly writes every PGC and every VOB the headers count, mostly the
// same bytes again (an undefined unit, reported as one line, is read from
// the file's start as 99 PGCs: such units are not disassembled), while
// their reports are cut short by the room. The clamps these tables apply
// stay reachable below the limits (one unit counting more than 99 PGCs
// passes). Traps when a file handle was left open.
inline void FuzzIfoInput(const Scratch& s, bool vmg, const uint8_t* data, size_t size) {
    static const int handle = NextHandle(s.Path("probe"));
    LoadedRun run;
    run.reportRoom = 1 << 15;
    run.streamLimit = size_t(1) << 15;
    run.disasmBelow = size_t(run.reportRoom) / 2;
    run.unitPgcsBelow = 100;
    run.cellsBelow = 1024;
    if (size > 20) {
        if (data[size - 1] != 0) run.reportRoom = 1 + data[size - 1] * 4;
        run.streamPiece = data[size - 2] % 4 * 300;
        run.sideFiles = (data[size - 2] & 4) != 0;
    }
    DriveBytes(s, vmg, data, size, run);
    if (FileBytes(s.Ini()) < (64 << 10)) {
        // One INI operation for the whole reassembly: the source is checked
        // against the disk once rather than once per section a table reads
        // (nothing but the INI store writes it meanwhile).
        kestro::IniOperation operation;
        DriveSource(s);
    }
    s.Clear();
    if (NextHandle(s.Path("probe")) != handle) __builtin_trap();
}

}  // namespace kdrive

#endif
