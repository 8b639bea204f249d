// A VOBU address map taken through the whole source round trip: the loaded
// map disassembled into a source file, the source read back from disk and
// assembled, the table sized and written. At 6,553 and 65,535 entries (the
// largest map the 16-bit count can describe), so that the two figures show
// how the cost grows.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstdio>
#include <string>
#include <vector>

#include "frame/detail.h"
#include "kestro/ini.h"
#include "kestro/tables.h"

namespace {

std::string TempPath(const char* name) {
    return "/tmp/kestro-vobu-bench-" + std::to_string(::getpid()) + "-" + name;
}

// An IFO-like file with the map at sector 1: end address, then the entries.
std::string MakeMapFile(int entries) {
    std::string path = TempPath("map.ifo");
    std::vector<uint8_t> bytes(2048 + 4 + 4 * size_t(entries), 0);
    kestro::PutBE32(&bytes[2048], uint32_t(4 * entries + 3));
    for (int i = 0; i < entries; ++i)
        kestro::PutBE32(&bytes[2052 + 4 * size_t(i)], uint32_t(i * 37));
    std::FILE* f = std::fopen(path.c_str(), "wb");
    std::fwrite(bytes.data(), 1, bytes.size(), f);
    std::fclose(f);
    return path;
}

// A source holding n "vobu_sa%04d" statements, flushed to disk.
std::string MakeSource(int entries, const char* name) {
    std::string ini = TempPath(name);
    kestro::FileDelete(ini.c_str());
    char key[32], value[32];
    for (int i = 1; i <= entries; ++i) {
        kestro::Format(key, sizeof key, "vobu_sa%04d", i);
        kestro::Format(value, sizeof value, "%d", i * 37);
        INIWritePrivateProfileString("vts_vobu_admap", key, value, ini.c_str());
    }
    INIFlushFiles();
    INIForgetFile(ini.c_str());
    return ini;
}

// Asm from a source on disk (read afresh each time), Get, Write.
unsigned long AsmAndWrite(const std::string& ini, const std::string& out) {
    INIForgetFile(ini.c_str());
    CKestro_VTS_ADMAP built;
    built.Asm(ini.c_str());
    unsigned long sectors = 0, bytes = 0;
    built.Get(&sectors, &bytes);
    int o = int(built.CreateKestroFile(out.c_str()));
    built.Write(o);
    built.CloseKestroFile((unsigned long)o);
    return bytes;
}

// The whole round trip of one map: the loaded map disassembled into a fresh
// source, which is read back from disk, assembled and written. The map's
// 16-bit entry count limits what Disasm can put out to 16,383 entries (the
// read-back size is taken modulo 65,536 bytes); beyond that, the figure
// "disassembled, assembled and written" is Disasm of the n-entry map plus
// Asm and Write of a source of n statements.
void VobuMapRoundTrip(benchmark::State& state) {
    const int n = int(state.range(0));
    const bool whole = n <= 16383;
    const std::string ifo = MakeMapFile(n);
    const std::string ini = TempPath("map.ini");
    const std::string full = whole ? ini : MakeSource(n, "full.ini");
    const std::string out = TempPath("out.ifo");
    CKestro_VTS_ADMAP loaded;
    int h = int(loaded.OpenKestroFile(ifo.c_str()));
    loaded.Load(h, 1);
    for (auto _ : state) {
        kestro::FileDelete(ini.c_str());
        loaded.Disasm(ini.c_str());
        if (AsmAndWrite(full, out) != 4ul * unsigned(n) + 4) state.SkipWithError("wrong size");
    }
    loaded.CloseKestroFile((unsigned long)h);
    kestro::FileDelete(ini.c_str());
    kestro::FileDelete(full.c_str());
    std::remove(out.c_str());
    std::remove(ifo.c_str());
    state.SetComplexityN(n);
    state.SetItemsProcessed(int64_t(state.iterations()) * n);
}
BENCHMARK(VobuMapRoundTrip)->Arg(6553)->Arg(16383)->Arg(65535)->Unit(benchmark::kMillisecond);

// The steps on their own.
void VobuMapDisasm(benchmark::State& state) {
    const int n = int(state.range(0));
    const std::string ifo = MakeMapFile(n);
    const std::string ini = TempPath("d.ini");
    CKestro_VTS_ADMAP loaded;
    int h = int(loaded.OpenKestroFile(ifo.c_str()));
    loaded.Load(h, 1);
    for (auto _ : state) {
        kestro::FileDelete(ini.c_str());
        loaded.Disasm(ini.c_str());
    }
    loaded.CloseKestroFile((unsigned long)h);
    kestro::FileDelete(ini.c_str());
    std::remove(ifo.c_str());
    state.SetComplexityN(n);
}
BENCHMARK(VobuMapDisasm)->Arg(1638)->Arg(16383)->Unit(benchmark::kMillisecond)->Complexity();

void VobuMapAsmWrite(benchmark::State& state) {
    const int n = int(state.range(0));
    const std::string ini = MakeSource(n, "a.ini");
    const std::string out = TempPath("a.ifo");
    for (auto _ : state)
        if (AsmAndWrite(ini, out) != 4ul * unsigned(n) + 4) state.SkipWithError("wrong size");
    kestro::FileDelete(ini.c_str());
    std::remove(out.c_str());
    state.SetComplexityN(n);
}
BENCHMARK(VobuMapAsmWrite)->Arg(6553)->Arg(65535)->Unit(benchmark::kMillisecond)->Complexity();

}  // namespace
