// Builds the seed corpora of the fuzz targets from real IFO files:
//   make_seeds OUTDIR IFO...
// OUTDIR/vmg and OUTDIR/vts get the IFO files as they are, OUTDIR/source
// the source each one disassembles into, and OUTDIR/pgc every First Play
// and title PGC found, behind the 5-byte header of the PGC target (offset 0,
// indent 0, the largest room).
#include <sys/stat.h>

#include <fstream>
#include <iterator>

#include "kestro_drive.h"

namespace {

std::vector<uint8_t> ReadAll(const std::string& p) {
    std::ifstream in(p, std::ios::binary);
    return std::vector<uint8_t>(std::istreambuf_iterator<char>(in), {});
}

void Save(const std::string& p, const uint8_t* data, size_t n) {
    std::ofstream out(p, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(data), std::streamsize(n));
}

void SavePgc(const std::string& dir, const std::string& name, const std::vector<uint8_t>& ifo,
             size_t at, size_t n) {
    if (at >= ifo.size()) return;
    n = std::min(n, ifo.size() - at);
    std::vector<uint8_t> seed = {0, 0, 0x10, 0xff, 0xff};
    seed.insert(seed.end(), ifo.begin() + long(at), ifo.begin() + long(at + n));
    Save(dir + "/" + name, seed.data(), seed.size());
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 3) return 2;
    const std::string out = argv[1];
    for (const char* sub : {"", "/vmg", "/vts", "/source", "/pgc"})
        mkdir((out + sub).c_str(), 0777);
    kdrive::Scratch scratch("seeds");
    for (int i = 2; i < argc; ++i) {
        std::vector<uint8_t> ifo = ReadAll(argv[i]);
        if (ifo.size() < 12) continue;
        const std::string tag = std::to_string(i);
        const bool vmg = std::memcmp(ifo.data(), "DVDVIDEO-VMG", 12) == 0;
        Save(out + (vmg ? "/vmg/" : "/vts/") + tag, ifo.data(), ifo.size());

        kdrive::LoadedRun run;
        run.sideFiles = false;
        kdrive::DriveBytes(scratch, vmg, ifo.data(), ifo.size(), run);
        std::vector<uint8_t> ini = ReadAll(scratch.Ini());
        Save(out + "/source/" + tag, ini.data(), ini.size());
        scratch.Clear();

        const kestro::ByteView v(ifo);
        if (vmg) {
            // First Play PGC, at the byte address the management table holds.
            SavePgc(out + "/pgc", tag + "-fp", ifo, v.BE32(0x84), 2292 - v.BE32(0x84));
        } else {
            // Title PGCs through the search pointers of VTS_PGCIT.
            size_t table = size_t(v.BE32(0xcc)) * 2048;
            uint16_t n = v.BE16(table);
            for (uint16_t k = 0; k < n && k < 64; ++k) {
                size_t at = table + v.BE32(table + 8 + 8 * k + 4);
                SavePgc(out + "/pgc", tag + "-" + std::to_string(k), ifo, at, 4096);
            }
        }
    }
    return 0;
}
