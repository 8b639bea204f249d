// The INI store at the sizes VOBU maps and time maps reach: N keys written
// into one section, flushed, then read back from a fresh parse. As a host
// calls it directly (every read checks the file against the disk) and
// inside one operation, as the library's tables call it (one check).
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstdio>
#include <string>

#include "frame/detail.h"
#include "kestro/ini.h"

static void IniWriteFlushRead(benchmark::State& state) {
    const int n = static_cast<int>(state.range(0));
    const bool operation = state.range(1) != 0;
    std::string path = "/tmp/kestro-ini-bench-" + std::to_string(::getpid()) + ".ini";
    char key[32], value[32], got[256];
    for (auto _ : state) {
        for (int i = 1; i <= n; ++i) {
            kestro::Format(key, sizeof key, "vobu_sa%04d", i);
            kestro::Format(value, sizeof value, "%d", i);
            INIWritePrivateProfileString("vts_vobu_admap", key, value, path.c_str());
        }
        INIFlushFiles();
        INIForgetFile(path.c_str());
        if (operation) INIBeginOperation();
        for (int i = 1; i <= n; ++i) {
            kestro::Format(key, sizeof key, "vobu_sa%04d", i);
            INIGetPrivateProfileString("vts_vobu_admap", key, "$", got, 256, path.c_str());
        }
        if (operation) INIEndOperation();
        benchmark::DoNotOptimize(got);
        INIForgetFile(path.c_str());
        std::remove(path.c_str());
    }
    state.SetComplexityN(n);
    state.SetItemsProcessed(int64_t(state.iterations()) * n);
}
BENCHMARK(IniWriteFlushRead)
    ->ArgsProduct({{6553, 65535}, {0, 1}})
    ->ArgNames({"keys", "operation"})
    ->Unit(benchmark::kMillisecond);
