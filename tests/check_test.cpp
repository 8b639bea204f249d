// The disc checker on the sample disc: each injected fault found and named by file, table, entry
// and field (the command's tests check that the sound sample has no finding).
#include <gtest/gtest.h>

#include "kestro/check.h"
#include "kestro/disc.h"
#include "test_util.h"

namespace {

namespace kc = kestro::check;
namespace fs = std::filesystem;
using Bytes = std::vector<uint8_t>;

// Byte offsets: the table whose start sector is at `field`, the record its word at `ptr` points
// at, PGC n of a PGC table, title PGC n, the part of one at offset `field` (232 cells, 234 cell
// positions), the first command of a PGC and of title PGC n.
uint32_t BE16(const Bytes& b, size_t at) { return kt::BE32(b, at) >> 16; }
size_t Table(const Bytes& b, size_t field) { return size_t(kt::BE32(b, field)) * 2048; }
size_t Rec(const Bytes& b, size_t field, size_t ptr) {
    return Table(b, field) + kt::BE32(b, Table(b, field) + ptr);
}
size_t Pgc(const Bytes& b, size_t table, int n) { return table + kt::BE32(b, table + 4 + 8 * n); }
size_t TitlePgc(const Bytes& b, int n) { return Pgc(b, Table(b, 204), n); }
size_t Part(const Bytes& b, int n, size_t field) {
    return TitlePgc(b, n) + BE16(b, TitlePgc(b, n) + field);
}
size_t Commands(const Bytes& b, size_t pgc) { return pgc + BE16(b, pgc + 228) + 8; }
size_t Cmd(const Bytes& b, int n) { return Commands(b, TitlePgc(b, n)); }

// The sample disc (examples/sample) assembled once next to VOB files of the recorded sizes.
const kc::DiscImage& Sample() {
    static kc::DiscImage image = [] {
        kt::TempDir dir;
        const fs::path sample = fs::path(KESTRO_SOURCE_DIR) / "examples/sample";
        std::ifstream vobs(sample / "vobs.txt");
        kc::DiscImage disc;
        std::string name;
        for (uint64_t bytes; vobs >> name >> bytes;) {
            std::ofstream(dir / name).close();
            fs::resize_file(dir / name, bytes);
            disc.vobs.push_back({name, bytes});
        }
        // Title sets first: the video manager takes their start sectors from them.
        for (const char* stem : {"VTS_01_0", "VTS_02_0", "VIDEO_TS"}) {
            const std::string ifo = std::string(stem) + ".IFO";
            auto r = kestro::disc::AssembleIfo((sample / (std::string(stem) + ".ini")).string(),
                                               dir / ifo, dir.path().string(), ifo, {});
            EXPECT_TRUE(r.ok) << stem << ": " << r.error;
            const Bytes bytes = kt::ReadBytes(dir / ifo);
            disc.ifos.push_back({ifo, bytes, true, bytes});
        }
        return disc;
    }();
    return image;
}

Bytes& File(kc::DiscImage& disc, const std::string& name) {
    for (auto& f : disc.ifos)
        if (f.name == name) return f.bytes;
    throw std::runtime_error(name);
}

std::string All(const kc::Result& r) {
    std::string s;
    for (const auto& f : r.findings) s += "\n  " + kc::FormatFinding(f) + " [" + f.id + "]";
    return s;
}

// The bytes `hex` written at `at` of the finding's file (or `inject` run on the disc), and how the
// finding they give begins: "id file table[entry] field", the file V1, V2 or VM for short.
struct Fault {
    size_t (*at)(const Bytes&);
    const char* hex;
    const char* finding;
    void (*inject)(kc::DiscImage&) = nullptr;
    kc::Severity severity = kc::Severity::Error;
};

void PrintTo(const Fault& f, std::ostream* os) { *os << f.finding; }

class CheckFault : public ::testing::TestWithParam<Fault> {};

// Each fault is found, named by file, table, entry and field, with its severity.
TEST_P(CheckFault, IsFoundAndNamed) {
    const Fault& fault = GetParam();
    std::string want = fault.finding;
    const size_t file = want.find(' ') + 1;
    for (const char* name : {"V1 VTS_01_0.IFO", "V2 VTS_02_0.IFO", "VM VIDEO_TS.IFO"})
        if (want.compare(file, 3, name, 3) == 0) want.replace(file, 2, name + 3);
    kc::DiscImage disc = Sample();
    if (fault.inject) fault.inject(disc);
    if (fault.at) {
        Bytes& b = File(disc, want.substr(file, 12));
        size_t at = fault.at(b);
        for (uint8_t x : kt::Hex(fault.hex)) b.at(at++) = x;
    }
    const kc::Result r = kc::CheckDisc(disc);
    bool found = false;
    for (const auto& f : r.findings)
        found = found || ((f.id + " " + kc::FormatFinding(f)).rfind(want, 0) == 0 &&
                          f.severity == fault.severity);
    EXPECT_TRUE(found) << "expected " << want << "; found:" << All(r);
}

#define AT(offset) [](const Bytes& b) -> size_t { return (void)b, (offset); }
constexpr auto kWarning = kc::Severity::Warning;

const Fault kFaults[] = {
    // Files.
    {AT(11), "58", "file.identifier V1 VTSI_MAT VTS_ID"},
    {nullptr, "", "file.size V2 VTSI_MAT VTSI_EA",
     [](kc::DiscImage& d) { d.ifos[1].bytes.resize(5 * 2048), d.ifos[1].backup.resize(5 * 2048); }},
    {nullptr, "", "file.backup-differs VTS_01_0.BUP VTS_PGCIT",
     [](kc::DiscImage& d) { d.ifos[0].backup[Table(d.ifos[0].bytes, 204) + 300] ^= 1; }, kWarning},
    {nullptr, "",
     "file.backup-differs VTS_02_0.BUP size: 10240 bytes, the IFO 12288 "
     "(an identical copy; the IFO reads whole, the BUP does not)",
     [](kc::DiscImage& d) { d.ifos[1].backup.resize(d.ifos[1].backup.size() - 2048); }, kWarning},
    {nullptr, "", "vob.size V1 VTSI_MAT VTS_EA", [](kc::DiscImage& d) { d.vobs[2].bytes -= 2048; }},
    {nullptr, "", "vob.missing VTS_02_1.VOB:", [](kc::DiscImage& d) { d.vobs.pop_back(); }},
    // Where tables lie and what their headers say.
    {AT(224), "000000c8", "table.outside V1 VTSI_MAT VTS_C_ADT_SA"},
    {AT(204), "00000001", "table.overlap V1 VTS_PGCIT start sector"},
    {AT(2048 + 4), "00000014", "table.end-address VM TT_SRPT end address"},
    {AT(2048), "0064", "limit.titles VM TT_SRPT number of titles"},
    {AT(62), "0000", "limit.title-sets VM VMGI_MAT VMG_NR_OF_TITLE_SETS"},
    {AT(Table(b, 224)), "0001", "cells.vob-count V1 VTS_C_ADT number of VOBs"},
    {AT(Table(b, 228) + 8), "00000000", "vobu.order V1 VTS_VOBU_ADMAP[2] sector"},
    {AT(Rec(b, 212, 8) + 4 + 8), "00015f90", "tmap.outside V1 VTS_TMAPT[1] entry 3"},
    {AT(Rec(b, 212, 8) + 4 + 8), "000000b5", "tmap.vobu V1 VTS_TMAPT[1] entry 3", nullptr,
     kWarning},
    // Titles against title sets.
    {AT(2048 + 8 + 24 + 6), "03", "title.vts-missing VM TT_SRPT[3] VTSN"},
    {AT(2048 + 8 + 7), "05", "title.vts-title-missing VM TT_SRPT[1] VTS_TTN"},
    {AT(2048 + 8 + 2), "0004", "title.parts VM TT_SRPT[1] number of parts"},
    {nullptr, "", "title.start-sector VM TT_SRPT[3] VTS start sector",
     [](kc::DiscImage& d) { File(d, "VIDEO_TS.IFO")[2048 + 8 + 24 + 11] ^= 1; }},
    {AT(Rec(b, 208, 8) + 8 + 0x102), "0003", "atrt.mismatch VM VTS_ATRT[1] VTS_AST_NS"},
    {AT(Table(b, 208)), "0001", "atrt.count VM VTS_ATRT number of title sets"},
    {AT(Rec(b, 200, 12)), "0009", "ptt.pgc V1 VTS_PTT_SRPT[2] part 1 PGCN"},
    {AT(Rec(b, 200, 8) + 8 + 2), "0007", "ptt.program V1 VTS_PTT_SRPT[1] part 3 PGN"},
    // PGCs.
    {AT(TitlePgc(b, 1) + 252 + 2), "02", "pgc.program-map V1 VTS_PGCIT[1] program 3"},
    {AT(TitlePgc(b, 1) + 252 + 1), "05", "pgc.program-map V2 VTS_PGCIT[1] program 2"},
    {AT(TitlePgc(b, 1) + 2), "04", "pgc.programs V1 VTS_PGCIT[1] number of programs"},
    {AT(TitlePgc(b, 1) + 156), "0007", "pgc.link V1 VTS_PGCIT[1] next PGC"},
    {AT(TitlePgc(b, 1) + 12 + 6), "8000", "pgc.audio-stream V2 VTS_PGCIT[1] PGC_AST_CTL 3"},
    {AT(TitlePgc(b, 1) + 28 + 4), "80000000",
     "pgc.subpicture-stream V2 VTS_PGCIT[1] PGC_SPST_CTL 1"},
    {AT(Part(b, 1, 232) + 24 + 20), "000186a0", "cell.outside-vobs V2 VTS_PGCIT[1] C_PBI 2"},
    {AT(Part(b, 1, 234) + 4 + 3), "09", "cell.position-missing V2 VTS_PGCIT[1] C_POSI 2"},
    {AT(Table(b, 224) + 8 + 8), "00000030", "cell.address-mismatch V1 VTS_PGCIT[1] C_PBI 1"},
    {AT(Part(b, 1, 232) + 8), "00000001", "cell.vobu V1 VTS_PGCIT[1] C_PBI 1 first VOBU"},
    {AT(Part(b, 1, 232) + 3), "05", "pgc.cell-command V1 VTS_PGCIT[1] C_PBI 1 cell command"},
    {AT(Table(b, 208) + 8 + 3), "c8", "menu.declared-missing V1 VTSM_PGCI_UT[1] menu existence"},
    {AT(Pgc(b, Rec(b, 208, 12), 1) + 156), "0009", "pgc.link V1 VTSM_LU1[1] next PGC"},
    // Navigation command targets.
    {AT(Cmd(b, 1) + 5), "05", "command.title V1 VTS_PGCIT[1] post command 1"},
    {AT(Cmd(b, 2) + 3), "09", "command.pgc V1 VTS_PGCIT[2] post command 1"},
    {AT(Commands(b, 1024) + 3), "28", "command.pgc VM FP_PGC pre command 1"},
    {AT(Cmd(b, 1)), "2004000000000009", "command.pgc V1 VTS_PGCIT[1] post command 1"},
    {AT(Cmd(b, 1)), "2007000000000003", "command.cell V2 VTS_PGCIT[1] post command 1"},
    {AT(Cmd(b, 1)), "0001000000000009", "command.line V1 VTS_PGCIT[1] post command 1"},
    {AT(Cmd(b, 1)), "0010002000000000", "command.register V1 VTS_PGCIT[1] post command 1"},
    {AT(Cmd(b, 1)), "3006000101820000", "command.menu V2 VTS_PGCIT[1] post command 1"},
};
#undef AT

INSTANTIATE_TEST_SUITE_P(Injected, CheckFault, ::testing::ValuesIn(kFaults), [](const auto& info) {
    std::string name = std::to_string(info.index) + "_" + info.param.finding;
    for (char& c : name) c = std::isalnum(uint8_t(c)) ? c : '_';
    return name;
});

// A file cut anywhere gives findings, never a read outside it (the sanitizer build checks).
TEST(Check, TruncatedFilesGiveFindings) {
    for (const auto& ifo : Sample().ifos)
        for (size_t n = 0; n < ifo.bytes.size(); n += 509) {
            const Bytes cut(ifo.bytes.begin(), ifo.bytes.begin() + long(n));
            const kc::Result r = kc::CheckIfoBytes(cut, ifo.name);
            EXPECT_TRUE(r.ok);
            EXPECT_GT(r.Errors(), 0u) << ifo.name << " cut at " << n;
        }
}

// Regression (fuzzing): thousands of time maps sharing one map's bytes took seconds to check;
// a fault repeated in every entry gives twenty findings and one that says more were left out.
TEST(Check, Regression_FaultRepeatedInEveryEntryIsCappedAtTwenty) {
    kc::DiscImage disc = Sample();
    Bytes& b = File(disc, "VTS_01_0.IFO");
    // A VOBU map of 1000 entries, all the same sector, in two sectors added to the file.
    const size_t map = b.size();
    b.resize(map + 2 * 2048, 0);
    kt::PutBE(b, 28, uint32_t(b.size() / 2048 - 1), 4);  // VTSI_EA
    kt::PutBE(b, 228, uint32_t(map / 2048), 4);          // VTS_VOBU_ADMAP_SA
    kt::PutBE(b, map, 4 + 4 * 1000 - 1, 4);              // end address
    for (size_t k = 0; k < 1000; ++k) b[map + 4 + 4 * k + 3] = 7;
    const kc::Result r = kc::CheckDisc(disc);
    size_t order = 0, more = 0;
    for (const auto& f : r.findings) {
        order += f.id == "vobu.order";
        more +=
            f.id == "check.more" && f.severity == kc::Severity::Error &&
            kc::FormatFinding(f) ==
                "VTS_01_0.IFO VTS_VOBU_ADMAP: further findings of this kind (vobu.order) left out";
    }
    EXPECT_EQ(order, 20u) << All(r);
    EXPECT_EQ(more, 1u) << All(r);
}

}  // namespace
