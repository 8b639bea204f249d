// The bundled sample disc (examples/sample) assembled by the kestro command,
// for tests that need a small disc with VOB files.
#ifndef KESTRO_TESTS_SAMPLE_DISC_H
#define KESTRO_TESTS_SAMPLE_DISC_H

#include <fstream>

#include "tool_support.h"

namespace tt {

inline fs::path SampleDir() { return fs::path(KESTRO_SOURCE_DIR) / "examples/sample"; }

// Assembles every source of the sample into `videoTs`, next to empty VOB
// files of the sizes the sample records; the source paths, sorted.
inline std::vector<fs::path> AssembleSample(const fs::path& videoTs) {
    fs::create_directories(videoTs);
    std::ifstream vobs(SampleDir() / "vobs.txt");
    std::string name;
    for (unsigned long long bytes = 0; vobs >> name >> bytes; fs::resize_file(videoTs / name, bytes))
        std::ofstream(videoTs / name).close();
    std::vector<fs::path> sources;
    for (auto& e : fs::directory_iterator(SampleDir()))
        if (e.path().extension() == ".ini") sources.push_back(e.path());
    std::sort(sources.begin(), sources.end());
    for (const auto& src : sources) {
        Result r = Kestro({"asm", src.string(), "-o", (videoTs / (src.stem().string() + ".IFO")).string()});
        EXPECT_TRUE(r.code == 0 && r.err.empty()) << src << ": " << r.err;
    }
    return sources;
}

}  // namespace tt

#endif
