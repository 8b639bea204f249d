// A VOBU address map's whole round trip through files on disk, as a host
// rebuilding a title set takes it: a source of N vobu_sa statements read from
// disk and assembled (Asm, Get, Write into an IFO file), then the written map
// loaded and disassembled into a fresh source. Beside it the floor: the same
// bytes read and written by plain stdio, with no parsing or formatting.
//
//   round_trip_bench                   # Google Benchmark, 6,553 and 65,535 entries
//   round_trip_bench --peak N [floor]  # one round trip (or its floor) of N
//                                      # entries; prints the peak resident memory
//
// The written map holds all N entries; Disasm of it puts out the entries its
// 16-bit count keeps (16,383 of 65,535: the read-back size is taken modulo
// 65,536 bytes), which is what a real rebuild does with a map that large.
#include <benchmark/benchmark.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "frame/detail.h"
#include "kestro/ini.h"
#include "kestro/tables.h"

namespace {

std::string TempPath(const char* name) {
    return "/tmp/kestro-round-trip-" + std::to_string(::getpid()) + "-" + name;
}

std::string ReadAll(const std::string& path) {
    std::string text;
    if (std::FILE* f = std::fopen(path.c_str(), "rb")) {
        char chunk[1 << 16];
        size_t n;
        while ((n = std::fread(chunk, 1, sizeof chunk, f)) > 0) text.append(chunk, n);
        std::fclose(f);
    }
    return text;
}

void WriteAll(const std::string& path, const void* data, size_t size) {
    if (std::FILE* f = std::fopen(path.c_str(), "wb")) {
        std::fwrite(data, 1, size, f);
        std::fclose(f);
    }
}

// The files of one size: the source (written by stdio, so that making it
// costs the store nothing), the IFO file and the fresh source.
struct Files {
    explicit Files(int n) : entries(n) {
        std::string text = "[vts_vobu_admap]\n";
        char line[48];
        for (int i = 1; i <= n; ++i) {
            kestro::Format(line, sizeof line, "vobu_sa%04d=%d\n", i, i * 37);
            text += line;
        }
        WriteAll(source, text.data(), text.size());
    }
    ~Files() {
        kestro::FileDelete(source.c_str());
        kestro::FileDelete(fresh.c_str());
        std::remove(ifo.c_str());
    }
    int entries;
    std::string source = TempPath("source.ini");
    std::string ifo = TempPath("map.ifo");
    std::string fresh = TempPath("fresh.ini");
};

// Asm, Get, Write of the source into an IFO file (the map at sector 1), then
// Load and Disasm of the written map into a fresh source. Returns the map's
// byte size as Get reported it.
unsigned long RoundTrip(const Files& f) {
    INIForgetFile(f.source.c_str());  // read from disk, as a new run would
    unsigned long sectors = 0, bytes = 0;
    {
        CKestro_VTS_ADMAP built;
        built.Asm(f.source.c_str());
        built.Get(&sectors, &bytes);
        int h = int(built.CreateKestroFile(f.ifo.c_str()));
        std::vector<uint8_t> header(kestro::kSector, 0);
        kestro::FileWrite(h, header.data(), header.size());
        built.Write(h);
        built.CloseKestroFile((unsigned long)h);
    }
    {
        CKestro_VTS_ADMAP loaded;
        int h = int(loaded.OpenKestroFile(f.ifo.c_str()));
        loaded.Load(h, 1);
        kestro::FileDelete(f.fresh.c_str());
        loaded.Disasm(f.fresh.c_str());
        loaded.CloseKestroFile((unsigned long)h);
    }
    return bytes;
}

// The floor: the source read, the IFO bytes written and read back, the
// fresh source's bytes written, all by stdio.
struct Floor {
    explicit Floor(const Files& f) : files(f) {
        RoundTrip(f);
        ifoBytes = ReadAll(f.ifo);
        freshBytes = ReadAll(f.fresh);
    }
    size_t Run() const {
        size_t total = ReadAll(files.source).size();
        WriteAll(files.ifo, ifoBytes.data(), ifoBytes.size());
        total += ReadAll(files.ifo).size();
        WriteAll(files.fresh, freshBytes.data(), freshBytes.size());
        return total + freshBytes.size();
    }
    const Files& files;
    std::string ifoBytes, freshBytes;
};

void VobuMapRoundTrip(benchmark::State& state) {
    Files files(int(state.range(0)));
    const unsigned long want = 4ul * unsigned(files.entries) + 4;
    for (auto _ : state)
        if (RoundTrip(files) != want) state.SkipWithError("wrong map size");
    state.SetComplexityN(files.entries);
    state.SetItemsProcessed(int64_t(state.iterations()) * files.entries);
}
BENCHMARK(VobuMapRoundTrip)->Arg(6553)->Arg(65535)->Unit(benchmark::kMillisecond);

void VobuMapRoundTripFloor(benchmark::State& state) {
    Files files(int(state.range(0)));
    Floor floor(files);
    for (auto _ : state) benchmark::DoNotOptimize(floor.Run());
    state.SetComplexityN(files.entries);
    state.SetItemsProcessed(int64_t(state.iterations()) * files.entries);
}
BENCHMARK(VobuMapRoundTripFloor)->Arg(6553)->Arg(65535)->Unit(benchmark::kMillisecond);

long PeakKiB() {
    rusage u{};
    ::getrusage(RUSAGE_SELF, &u);
    return u.ru_maxrss;
}

// One round trip (or its floor) with the peak resident memory before and
// after: the difference is what the round trip itself needed at most.
int Peak(int n, bool floor) {
    Files files(n);
    const long before = PeakKiB();
    if (floor) {
        std::string source = ReadAll(files.source);
        WriteAll(files.fresh, source.data(), source.size());
    } else {
        RoundTrip(files);
    }
    const long after = PeakKiB();
    std::printf("%s of %d entries: peak resident memory %ld KiB (%ld KiB before it)\n",
                floor ? "floor" : "round trip", n, after, before);
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc >= 3 && std::strcmp(argv[1], "--peak") == 0)
        return Peak(std::atoi(argv[2]), argc >= 4 && std::strcmp(argv[3], "floor") == 0);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
