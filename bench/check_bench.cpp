// A whole disc checked: every IFO file of a DVD folder read from disk, its
// tables modelled and every check run, as `kestro check` does. The folder is
// the real-disc corpus's disc-c (nine title sets with their BUP copies, 500
// KB of IFO files, a 124-minute title of 12,389 VOBUs), or the folder named
// by KESTRO_BENCH_DISC. Also the checks alone on the files held in memory.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "kestro/check.h"

namespace {

namespace fs = std::filesystem;
namespace kc = kestro::check;

std::string BenchDisc() {
    if (const char* p = std::getenv("KESTRO_BENCH_DISC")) return p;
    return std::string(KESTRO_CORPUS_DIR) + "/disc-c";
}

// The folder as read from disk, then checked.
void CheckFolder(benchmark::State& state) {
    const std::string disc = BenchDisc();
    if (!fs::is_directory(disc)) {
        state.SkipWithError(("no disc at " + disc).c_str());
        return;
    }
    size_t findings = 0;
    for (auto _ : state) {
        const kc::Result r = kc::CheckFolder(disc);
        findings = r.findings.size();
        benchmark::DoNotOptimize(findings);
    }
    state.counters["findings"] = double(findings);
}
BENCHMARK(CheckFolder)->Unit(benchmark::kMillisecond);

// The same files already in memory: the model and the checks alone.
void CheckInMemory(benchmark::State& state) {
    const std::string disc = BenchDisc();
    kc::DiscImage image;
    std::error_code ec;
    for (const auto& e : fs::directory_iterator(disc, ec)) {
        const std::string name = e.path().filename().string();
        if (e.path().extension() != ".IFO") continue;
        std::ifstream in(e.path(), std::ios::binary);
        kc::IfoImage ifo{
            name, std::vector<uint8_t>(std::istreambuf_iterator<char>(in), {}), true, {}};
        ifo.backup = ifo.bytes;
        image.ifos.push_back(std::move(ifo));
    }
    if (image.ifos.empty()) {
        state.SkipWithError(("no disc at " + disc).c_str());
        return;
    }
    kc::Options options;
    options.companions = false;
    for (auto _ : state) {
        const kc::Result r = kc::CheckDisc(image, options);
        benchmark::DoNotOptimize(r.findings.size());
    }
}
BENCHMARK(CheckInMemory)->Unit(benchmark::kMillisecond);

}  // namespace
