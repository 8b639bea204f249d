// Fuzz target: bytes as IFO files for the disc checker. First the bytes as
// one IFO file of the kind their identifier gives; then, so that the checks
// across files run too, the same bytes cut in two (at a place the first two
// bytes choose) as a video manager and its first title set, each given the
// identifier of its kind, with VOB files of sizes taken from the input.
#include <cstring>

#include "kestro/check.h"

namespace {

void Check(const kestro::check::Result& r) {
    // Every finding is formatted, as the command prints it.
    size_t n = 0;
    for (const auto& f : r.findings) n += kestro::check::FormatFinding(f).size();
    if (r.ok && !r.findings.empty() && n == 0) __builtin_trap();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    namespace kc = kestro::check;
    const std::vector<uint8_t> bytes(data, data + size);
    Check(kc::CheckIfoBytes(bytes));
    if (size < 16) return 0;

    const size_t cut = 12 + (size_t(data[0]) << 8 | data[1]) * 16 % (size - 12);
    kc::DiscImage disc;
    kc::IfoImage vmg{"VIDEO_TS.IFO", std::vector<uint8_t>(data, data + cut), true, {}};
    kc::IfoImage vts{"VTS_01_0.IFO", std::vector<uint8_t>(data + cut, data + size), false, {}};
    std::memcpy(vmg.bytes.data(), "DVDVIDEO-VMG", 12);
    if (vts.bytes.size() >= 12) std::memcpy(vts.bytes.data(), "DVDVIDEO-VTS", 12);
    vmg.backup = vmg.bytes;
    if (!vmg.backup.empty()) vmg.backup.back() ^= 1;  // a BUP that differs in its last table
    disc.ifos = {vmg, vts};
    const uint64_t vob = uint64_t(data[2]) << 11 | uint64_t(data[3]) << 19;
    disc.vobs = {{"VIDEO_TS.VOB", vob},
                 {"VTS_01_0.VOB", vob / 2},
                 {"VTS_01_1.VOB", vob * 3},
                 {"VTS_01_3.VOB", 2048}};
    Check(kc::CheckDisc(disc));
    Check(kc::CheckDisc(disc, kc::Options(), "VTS_01_0.IFO"));
    return 0;
}
