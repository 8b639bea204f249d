// A whole title set taken through the host's round trip: VTS_nn_0.IFO loaded,
// every table disassembled into one source, every table assembled from it and
// the whole file laid out and written again. Also the report of every table.
// The IFO file is the real-disc corpus's disc-a VTS_01_0.IFO (a 69-minute
// title: its VOBU map and time map are the large tables), or the file named
// by KESTRO_BENCH_VTS.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>

#include "kestro_drive.h"

namespace {

namespace fs = std::filesystem;

std::string BenchIfo() {
    if (const char* p = std::getenv("KESTRO_BENCH_VTS")) return p;
    return std::string(KESTRO_CORPUS_DIR) + "/disc-a/VTS_01_0.IFO";
}

// The IFO file copied into a scratch folder (the library opens it for
// writing) next to small VOB files for the layout to measure.
struct Setup {
    kdrive::Scratch scratch{"bench-vts"};
    std::string ifo = scratch.Path("VTS_01_0.IFO");
    bool ok = false;
    Setup() {
        std::error_code ec;
        ok = fs::copy_file(BenchIfo(), ifo, fs::copy_options::overwrite_existing, ec);
    }
};

void Disassemble(const std::string& ifo, const std::string& ini) {
    CKestro_VTS_MAT mat;
    CKestro_PGCI pgc;
    int h = int(mat.OpenKestroFile(ifo.c_str()));
    mat.Load(h);
    const char* src = ini.c_str();
    mat.Disasm(src);
    auto disasm = [&](auto* t) {
        if (t) t->Disasm(src);
    };
    disasm(mat.GetVTS_PTT_SRPT());
    if (auto* t = mat.GetVTS_PGCIT()) t->Disasm(src, &pgc);
    disasm(mat.GetVTSM_PGCI_UT());
    if (auto* t = mat.GetVTSM_LU())
        t->Disasm(src, &pgc, mat.GetVTSM_PGCI_UT(), mat.GetVTSM_PGCIT_SA());
    if (auto* t = mat.GetVTS_TMAPT()) {
        t->Disasm(src);
        CKestro_VTS_TMAP::JoinTmapSideFiles(src);
    }
    disasm(mat.GetVTSM_C_ADT());
    disasm(mat.GetVTSM_VOBU_ADMAP());
    disasm(mat.GetVTS_C_ADT());
    disasm(mat.GetVTS_VOBU_ADMAP());
    INIFlushFiles();
    mat.CloseKestroFile((unsigned long)h);
}

void Assemble(const std::string& ini, const std::string& out) {
    const char* src = ini.c_str();
    CKestro_VTS_MAT mat;
    CKestro_PGCI pgc;
    mat.NewVTS_PTT_SRPT()->Asm(src);
    mat.NewVTS_PGCIT()->Asm(src, &pgc);
    mat.NewVTS_TMAPT()->Asm(src);
    mat.NewVTS_C_ADT()->Asm(src);
    mat.NewVTS_VOBU_ADMAP()->Asm(src);
    int h = int(mat.CreateKestroFile(out.c_str()));
    mat.Asm(src, h, out.c_str());
    mat.CloseKestroFile((unsigned long)h);
}

void TitleSetRoundTrip(benchmark::State& state) {
    Setup s;
    if (!s.ok) {
        state.SkipWithError("no title set file (set KESTRO_BENCH_VTS)");
        return;
    }
    const std::string ini = s.scratch.Ini();
    for (auto _ : state) {
        Disassemble(s.ifo, ini);
        INIForgetFile(ini.c_str());  // read back from disk, as a later run would
        Assemble(ini, s.scratch.Path("VTS_01_0.IFO.new"));
        state.PauseTiming();
        s.scratch.Clear();
        std::remove(s.scratch.Path("VTS_01_0.IFO.new").c_str());
        fs::copy_file(BenchIfo(), s.ifo, fs::copy_options::overwrite_existing);
        state.ResumeTiming();
    }
    state.counters["ifo_bytes"] = double(fs::file_size(s.ifo));
}
BENCHMARK(TitleSetRoundTrip)->Unit(benchmark::kMillisecond);

// Load and report every table, as `kestro report` does for one file: one
// load, one 4 MiB buffer reused for every table (only its first byte is
// cleared: a report appends to the text already in the buffer).
void TitleSetReport(benchmark::State& state) {
    Setup s;
    if (!s.ok) {
        state.SkipWithError("no title set file (set KESTRO_BENCH_VTS)");
        return;
    }
    std::vector<char> buf(size_t(1) << 22);
    const int len = int(buf.size()) - 3;
    size_t chars = 0;
    for (auto _ : state) {
        CKestro_VTS_MAT mat;
        CKestro_PGCI pgc;
        int h = int(mat.OpenKestroFile(s.ifo.c_str()));
        mat.Load(h);
        chars = 0;
        // details(table) makes the report of a table the file has.
        auto reportWith = [&](auto* t, auto&& details) {
            if (!t) return;
            buf[0] = 0;
            details(*t);
            chars += strnlen(buf.data(), buf.size());
        };
        auto report = [&](auto* t) { reportWith(t, [&](auto& x) { x.Details(buf.data(), len); }); };
        report(&mat);
        report(mat.GetVTS_PTT_SRPT());
        reportWith(mat.GetVTS_PGCIT(), [&](auto& t) { t.Details(&pgc, buf.data(), len); });
        report(mat.GetVTSM_PGCI_UT());
        reportWith(mat.GetVTSM_LU(), [&](auto& t) {
            t.Details(buf.data(), len, &pgc, mat.GetVTSM_PGCI_UT(), mat.GetVTSM_PGCIT_SA());
        });
        report(mat.GetVTS_TMAPT());
        report(mat.GetVTSM_C_ADT());
        report(mat.GetVTSM_VOBU_ADMAP());
        report(mat.GetVTS_C_ADT());
        report(mat.GetVTS_VOBU_ADMAP());
        mat.CloseKestroFile((unsigned long)h);
    }
    state.counters["report_chars"] = double(chars);
}
BENCHMARK(TitleSetReport)->Unit(benchmark::kMillisecond);

}  // namespace
