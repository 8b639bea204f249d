// Drives the library as a host does (IFO files loaded, every table reported and disassembled;
// sources assembled table by table and into whole files) for the fuzz targets, the hostile-input
// tests and the benchmarks. Nothing is checked but that no input breaks memory, hangs or leaks.
#ifndef KESTRO_TESTS_SUPPORT_KESTRO_DRIVE_H
#define KESTRO_TESTS_SUPPORT_KESTRO_DRIVE_H

#include <dirent.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "frame/detail.h"
#include "kestro/kestro.h"

namespace kdrive {

// A private folder (in memory when /dev/shm exists) for one run's files: the IFO file under its
// real name, the source, the outputs, and a one-sector VOB file of each kind for assembly to read.
class Scratch {
public:
    explicit Scratch(const char* tag) {
        const char* base = access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp";
        // Fuzz targets end without destructors: scripts/fuzz.sh removes ended processes' folders.
        dir_ = std::string(base) + "/kestro-" + tag + "-" + std::to_string(getpid()) + "-XXXXXX";
        mkdtemp(dir_.data());
        const std::vector<uint8_t> sector(2048, 0);
        for (const char* vob : kVobs) Put(vob, sector.data(), sector.size());
    }
    ~Scratch() {
        Clear();
        for (const char* vob : kVobs) std::remove(Path(vob).c_str());
        rmdir(dir_.c_str());
    }
    Scratch(const Scratch&) = delete;
    Scratch& operator=(const Scratch&) = delete;

    std::string Path(const std::string& name) const { return dir_ + "/" + name; }
    std::string Ini() const { return Path("source.ini"); }

    void Put(const char* name, const uint8_t* data, size_t size) const {
        std::ofstream(Path(name), std::ios::binary)
            .write(reinterpret_cast<const char*>(data), std::streamsize(size));
    }

    // Removes what a run made and the INI store's copies (of the source's names also when gone).
    void Clear() const {
        for (const char* n : {"source.ini", "VIDEO_TS.IFO", "VTS_01_0.IFO"})
            INIForgetFile(Path(n).c_str());
        for (int k = 1; k <= 16; ++k)
            INIForgetFile(Path("source TmapTable" + std::to_string(k) + ".ini").c_str());
        std::vector<std::string> made;
        if (DIR* d = opendir(dir_.c_str())) {
            while (const dirent* e = readdir(d)) {
                const std::string n = e->d_name;
                if (n != "." && n != ".." && std::count(kVobs, std::end(kVobs), n) == 0)
                    made.push_back(Path(n));
            }
            closedir(d);
        }
        for (const std::string& p : made) {
            INIForgetFile(p.c_str());
            std::remove(p.c_str());
        }
    }

private:
    static constexpr const char* kVobs[] = {"VIDEO_TS.VOB", "VTS_01_0.VOB", "VTS_01_1.VOB"};
    std::string dir_;
};

// Exactly room + 3 bytes (a report's headroom) on the heap, so one byte too many is caught; with
// a piece size, reports stream through it, every piece checked to be text from its start.
struct ReportBuffer {
    ReportBuffer(int room, size_t piece, size_t limit) : room(room) {
        // The largest buffer is kept for the next run: a fresh one costs more than the reports.
        if (spare.size() == size_t(room) + 3)
            buf.swap(spare);
        else
            buf.assign(size_t(room) + 3, '\0');
        // A damaged count can announce millions of entries: a stream stops at `limit`.
        if (piece) stream.emplace(&Handed, this, piece, limit);
    }
    ~ReportBuffer() {
        if (buf.size() >= spare.size()) buf.swap(spare);
    }

    static void Handed(void* self, char* text, size_t size) {
        auto& b = *static_cast<ReportBuffer*>(self);
        if (text != b.buf.data() || size > b.buf.size() || std::memchr(text, '\0', size))
            std::abort();
        b.handed += size;
    }
    // Zeroes the buffer as far as its text reaches (no report reads beyond it).
    char* Fresh() {
        std::memset(buf.data(), 0, TextEnd() + 1);
        handed = 0;
        return buf.data();
    }
    // Traps a report left unterminated; notes its length in `last`.
    void CheckTerminated() {
        if (!std::memchr(buf.data(), '\0', buf.size())) std::abort();
        last = handed + TextEnd();
    }
    size_t TextEnd() const {
        const void* end = std::memchr(buf.data(), '\0', buf.size());
        return end ? size_t(static_cast<const char*>(end) - buf.data()) : buf.size() - 1;
    }
    inline static std::vector<char> spare;
    int room;
    std::vector<char> buf;
    std::optional<kestro::ReportStream> stream;
    size_t handed = 0;  // characters of the current report handed on
    size_t last = 0;    // characters of the last report
};

// Bounds a caller may put on a run's work (the fuzz targets do): shown the management table
// before the sources are written, told every table's report, asked before its source is written.
class Limits {
public:
    using Details = std::function<void(char* buf, int room)>;
    virtual ~Limits() = default;
    virtual void Disassembling(CKestro_VMG_MAT&) {}
    virtual void Disassembling(CKestro_VTS_MAT&) {}
    // The table's report ran to `length` characters; `again` makes it once more.
    virtual void Reported(const void* table, size_t length, const Details& again) = 0;
    virtual bool WriteSource(const void* table) const = 0;
};

// The handle the file layer gives next: a run that leaves one of its 512 handles open changes it.
inline int NextHandle(const std::string& probe) {
    int h = kestro::FileCreate(probe.c_str(), 0x180);
    if (h > 0) kestro::FileClose(h);
    std::remove(probe.c_str());
    return h;
}

struct LoadedRun {
    int reportRoom = 1 << 18;              // room given to each report
    size_t streamPiece = 0;                // when not 0, reports stream in pieces of this size
    size_t streamLimit = size_t(1) << 20;  // where a streamed report is stopped
    bool disasm = true;                    // write the source too
    bool sideFiles = true;                 // the title set maps' side-file writers
    Limits* limits = nullptr;              // bounds on the work, when set
};

// A loaded file's tables reported into one buffer and disassembled; those it lacks (null) skipped.
class TableDriver {
public:
    // The management table is reported first and once only, unseen by the limits: a video
    // manager's report swaps its First Play PGC's command header in place.
    template <class Mat>
    TableDriver(const Scratch& s, const LoadedRun& run, Mat& mat)
        : run_(run), ini_(s.Ini()), buffer_(run.reportRoom, run.streamPiece, run.streamLimit) {
        mat.Details(buffer_.Fresh(), buffer_.room);
        buffer_.CheckTerminated();
    }

    // details(table, buf, room) makes the report.
    template <class T, class F>
    void ReportWith(T* t, F&& details) {
        if (!t) return;
        const Limits::Details make = [&](char* buf, int room) { details(*t, buf, room); };
        make(buffer_.Fresh(), buffer_.room);
        buffer_.CheckTerminated();
        if (run_.limits) run_.limits->Reported(t, buffer_.last, make);
    }
    template <class... T>
    void Report(T*... t) {
        (ReportWith(t, [](auto& x, char* buf, int room) { x.Details(buf, room); }), ...);
    }
    // disasm(table, source) writes the source, unless the run's limits say not.
    template <class T, class F>
    void DisasmWith(T* t, F&& disasm) {
        if (t && (!run_.limits || run_.limits->WriteSource(t))) disasm(*t, ini_.c_str());
    }
    template <class... T>
    void Disasm(T*... t) {
        (DisasmWith(t, [](auto& x, const char* ini) { x.Disasm(ini); }), ...);
    }
    const char* Ini() const { return ini_.c_str(); }

private:
    const LoadedRun& run_;
    const std::string ini_;
    ReportBuffer buffer_;
};

// VIDEO_TS.IFO: load, report every table, disassemble every table.
inline void DriveVmgFile(const Scratch& s, const std::string& ifo, const LoadedRun& run) {
    CKestro_VMG_MAT mat;
    CKestro_PGCI pgc;
    const int h = int(mat.OpenKestroFile(ifo.c_str()));
    if (h < 1) return;
    if (mat.Load(h) == 1) {
        TableDriver drive(s, run, mat);
        drive.Report(mat.GetVMG_PTT_SRPT(), mat.GetVMGM_PGCI_UT());
        drive.ReportWith(mat.GetVMGM_LU(), [&](auto& t, char* buf, int room) {
            t.Details(buf, room, &pgc, mat.GetVMGM_PGCI_UT(), mat.GetVMGM_PGCIT_SA());
        });
        drive.Report(mat.GetVMG_MAIT(), mat.GetVMG_ATRT(), mat.GetVMG_TXTDT(), mat.GetVMGM_C_ADT(),
                     mat.GetVMGM_VOBU_ADMAP());
        if (run.disasm) {
            kestro::FlushBatch batch;  // every Disasm flushes the source: one write of it all
            if (run.limits) run.limits->Disassembling(mat);
            mat.Disasm(drive.Ini());
            drive.Disasm(mat.GetVMG_PTT_SRPT(), mat.GetVMGM_PGCI_UT());
            drive.DisasmWith(mat.GetVMGM_LU(), [&](auto& t, const char* ini) {
                t.Disasm(ini, mat.GetVMGM_PGCIT_SA(), &pgc, mat.GetVMGM_PGCI_UT());
            });
            drive.Disasm(mat.GetVMG_MAIT(), mat.GetVMG_ATRT(), mat.GetVMG_TXTDT(),
                         mat.GetVMGM_C_ADT(), mat.GetVMGM_VOBU_ADMAP());
            INIFlushFiles();
        }
    }
    mat.CloseKestroFile((unsigned long)h);
}

// VTS_nn_0.IFO: the same, plus the side-file writers of the maps.
inline void DriveVtsFile(const Scratch& s, const std::string& ifo, const LoadedRun& run) {
    CKestro_VTS_MAT mat;
    CKestro_PGCI pgc;
    const int h = int(mat.OpenKestroFile(ifo.c_str()));
    if (h < 1) return;
    if (mat.Load(h) == 1) {
        TableDriver drive(s, run, mat);
        drive.Report(mat.GetVTS_PTT_SRPT());
        drive.ReportWith(mat.GetVTS_PGCIT(),
                         [&](auto& t, char* buf, int room) { t.Details(&pgc, buf, room); });
        drive.Report(mat.GetVTSM_PGCI_UT());
        drive.ReportWith(mat.GetVTSM_LU(), [&](auto& t, char* buf, int room) {
            t.Details(buf, room, &pgc, mat.GetVTSM_PGCI_UT(), mat.GetVTSM_PGCIT_SA());
        });
        // The menu map's report uses the map read at load: before any Disasm.
        drive.Report(mat.GetVTS_TMAPT(), mat.GetVTSM_C_ADT(), mat.GetVTSM_VOBU_ADMAP(),
                     mat.GetVTS_C_ADT(), mat.GetVTS_VOBU_ADMAP());
        if (run.disasm) {
            kestro::FlushBatch batch;
            if (run.limits) run.limits->Disassembling(mat);
            mat.Disasm(drive.Ini());
            drive.Disasm(mat.GetVTS_PTT_SRPT());
            drive.DisasmWith(mat.GetVTS_PGCIT(),
                             [&](auto& t, const char* ini) { t.Disasm(ini, &pgc); });
            drive.Disasm(mat.GetVTSM_PGCI_UT());
            drive.DisasmWith(mat.GetVTSM_LU(), [&](auto& t, const char* ini) {
                t.Disasm(ini, &pgc, mat.GetVTSM_PGCI_UT(), mat.GetVTSM_PGCIT_SA());
            });
            drive.Disasm(mat.GetVTS_TMAPT(), mat.GetVTSM_C_ADT(), mat.GetVTSM_VOBU_ADMAP(),
                         mat.GetVTS_C_ADT(), mat.GetVTS_VOBU_ADMAP());
            if (run.sideFiles) {
                drive.DisasmWith(mat.GetVTS_TMAPT(), [&](auto& t, const char* ini) {
                    t.DisasmToFile(ini, s.Path("tmap.bin").c_str());
                });
                if (auto* t = mat.GetVTSM_VOBU_ADMAP())
                    t->DisasmToFile(drive.Ini(), s.Path("vtsm_admap.bin").c_str());
                if (auto* t = mat.GetVTS_VOBU_ADMAP())
                    t->Disasm_ToFile(drive.Ini(), s.Path("vts_admap.bin").c_str());
            }
            INIFlushFiles();
        }
    }
    mat.CloseKestroFile((unsigned long)h);
}

// The IFO name a file of each kind is given in the scratch folder.
inline const char* IfoName(bool vmg) { return vmg ? "VIDEO_TS.IFO" : "VTS_01_0.IFO"; }

// Bytes driven as an IFO file of the given kind in the scratch folder; the source stays there.
inline void DriveBytes(const Scratch& s, bool vmg, const uint8_t* data, size_t size,
                       const LoadedRun& run) {
    s.Put(IfoName(vmg), data, size);
    (vmg ? DriveVmgFile : DriveVtsFile)(s, s.Path(IfoName(vmg)), run);
}

// Every table assembled on its own from the source and written into out.ifo; the side-file
// readers; a whole VIDEO_TS.IFO and VTS_01_0.IFO (relative and absolute forms) from the source.
inline void DriveSource(const Scratch& s) {
    const std::string ini = s.Ini();
    const char* src = ini.c_str();
    unsigned long sectors = 0, bytes = 0;
    {
        CBaseKestro files;
        const int h = int(files.CreateKestroFile(s.Path("out.ifo").c_str()));
        if (h < 1) return;
        // Each table sized and written `times` over: most twice (the second time after the
        // first consumed the view), the text data and the tables built with the codec once.
        auto write = [&](auto& t, int times) {
            for (int i = 0; i < times; ++i) {
                t.Get(&sectors, &bytes);
                t.Write(h);
            }
        };
        auto plain = [&](int times, auto&&... t) { (..., (t.Asm(src), write(t, times))); };
        CKestro_PGCI pgc;
        auto withCodec = [&](auto&&... t) { (..., (t.Asm(src, &pgc), write(t, 1))); };
        CKestro_VMGM_ADMAP vmgMap;
        CKestro_VTS_ADMAP vtsMap;
        CKestro_VTSM_ADMAP vtsmMap;
        CKestro_VTS_TMAP tmap;
        plain(2, CKestro_VMG_PTT(), CKestro_VMG_MAIT(), CKestro_VMG_ATRT());
        plain(1, CKestro_VMG_TXTDT());
        plain(2, CKestro_VMG_CADT(), CKestro_VTS_CADT(), CKestro_VTSM_CADT(), vmgMap, vtsMap,
              vtsmMap, CKestro_PTT_SRPT(), tmap, CKestro_VMGM_LU(), CKestro_VTSM_LU());
        withCodec(CKestro_VTS_PGCIT(), CKestro_VMGM_PGCI(), CKestro_VTSM_PGCI());

        // The PGC codec on its own, on the sections a title and a menu PGC would use.
        for (const char* section : {"vts_pgcit01", "fp_pgci", "vmgm_lu01_01"}) {
            for (const char* prefix : {"vts_pgc_", "fp_pgc_", "vmgm_pgc_"}) {
                if (!pgc.AsmPGCI(src, section, prefix)) continue;
                const unsigned long n = pgc.GetPGCISize();
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
    auto layOut = [&](auto& mat, const char* name, auto&& assemble) {
        const std::string ifo = s.Path(name);
        const int h = int(mat.CreateKestroFile(ifo.c_str()));
        if (h < 1) return;
        assemble(h, ifo.c_str());
        mat.CloseKestroFile((unsigned long)h);
    };
    {
        CKestro_VMG_MAT mat;
        CKestro_PGCI pgc;
        mat.NewVMGM_PTT()->Asm(src);
        mat.NewVMGM_PGCI()->Asm(src, &pgc);
        mat.NewVMGM_MAIT()->Asm(src);
        mat.NewVMGM_ATRT()->Asm(src);
        mat.NewVMGM_C_ADT()->Asm(src);
        mat.NewVMGM_VOBU_ADMAP()->Asm(src);
        layOut(mat, "VIDEO_TS.IFO", [&](int h, const char* ifo) { mat.Asm(src, h, ifo); });
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
        layOut(mat, "VTS_01_0.IFO", [&](int h, const char* ifo) {
            absolute ? mat.AsmAbs(src, (unsigned short)h, ifo) : mat.Asm(src, h, ifo);
        });
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

}  // namespace kdrive

#endif
