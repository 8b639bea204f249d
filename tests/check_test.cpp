// The disc checker on the sample disc assembled through the library: no finding on the sound
// disc, and each injected fault found and named by file, table, entry and field.
#include <gtest/gtest.h>

#include <functional>

#include "kestro/check.h"
#include "kestro/disc.h"
#include "test_util.h"

namespace {

namespace kc = kestro::check;
namespace fs = std::filesystem;
using Bytes = std::vector<uint8_t>;

uint32_t BE16(const Bytes& b, size_t at) { return kt::BE32(b, at) >> 16; }
// Byte offset of the table whose start sector the management table holds at `field`.
size_t Table(const Bytes& b, size_t field) { return size_t(kt::BE32(b, field)) * 2048; }
// Byte offset of PGC n (1-based) of the PGC table at `table`.
size_t Pgc(const Bytes& b, size_t table, int n) { return table + kt::BE32(b, table + 4 + 8 * n); }
size_t TitlePgc(const Bytes& b, int n) { return Pgc(b, Table(b, 204), n); }
size_t Commands(const Bytes& b, size_t pgc) { return pgc + BE16(b, pgc + 228) + 8; }
void Put8(Bytes& b, size_t at, const char* hex) {
    for (size_t i = 0; i < 8; ++i)
        b[at + i] = uint8_t(std::stoul(std::string(hex + 2 * i, 2), nullptr, 16));
}

// The sample disc (examples/sample) assembled by the library next to VOB
// files of the recorded sizes, read into memory once.
const kc::DiscImage& Sample() {
    static kc::DiscImage image = [] {
        kt::TempDir dir;
        const fs::path sample = fs::path(KESTRO_SOURCE_DIR) / "examples/sample";
        std::ifstream vobs(sample / "vobs.txt");
        kc::DiscImage disc;
        std::string name;
        for (uint64_t bytes = 0; vobs >> name >> bytes;) {
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
            kc::IfoImage image{ifo, kt::ReadBytes(dir / ifo), true, {}};
            image.backup = image.bytes;
            disc.ifos.push_back(image);
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

// A sound disc gives no finding at all.
TEST(Check, SoundSampleHasNoFinding) {
    const kc::Result r = kc::CheckDisc(Sample());
    ASSERT_TRUE(r.ok);
    EXPECT_EQ(r.files.size(), 3u);
    EXPECT_TRUE(r.findings.empty()) << All(r);
}

struct Fault {
    const char* name;
    std::function<void(kc::DiscImage&)> inject;
    const char* id;
    const char* file;
    const char* table;
    int entry;
    const char* field;  // a part of the field's name
    kc::Severity severity = kc::Severity::Error;
};

void PrintTo(const Fault& f, std::ostream* os) { *os << f.name; }

class CheckFault : public ::testing::TestWithParam<Fault> {};

// Each fault is found, named by file, table, entry and field, with its severity.
TEST_P(CheckFault, IsFoundAndNamed) {
    const Fault& fault = GetParam();
    kc::DiscImage disc = Sample();
    fault.inject(disc);
    const kc::Result r = kc::CheckDisc(disc);
    bool found = false;
    for (const auto& f : r.findings)
        found =
            found || (f.id == fault.id && f.file == fault.file && f.table == fault.table &&
                      f.entry == fault.entry && f.field.find(fault.field) != std::string::npos &&
                      f.severity == fault.severity);
    EXPECT_TRUE(found) << "expected " << fault.id << " in " << fault.file << " " << fault.table
                       << "[" << fault.entry << "] " << fault.field << "; found:" << All(r);
}

const char* const V1 = "VTS_01_0.IFO";
const char* const V2 = "VTS_02_0.IFO";
const char* const VM = "VIDEO_TS.IFO";

const Fault kFaults[] = {
    // Files.
    {"Identifier", [](kc::DiscImage& d) { File(d, V1)[11] = 'X'; }, "file.identifier", V1,
     "VTSI_MAT", 0, "VTS_ID"},
    {"ShortFile",
     [](kc::DiscImage& d) {
         File(d, V2).resize(5 * 2048);
         d.ifos[1].backup.resize(5 * 2048);
     },
     "file.size", V2, "VTSI_MAT", 0, "VTSI_EA"},
    {"BackupDiffers",
     [](kc::DiscImage& d) { d.ifos[0].backup[Table(d.ifos[0].bytes, 204) + 300] ^= 1; },
     "file.backup-differs", "VTS_01_0.BUP", "VTS_PGCIT", 0, "", kc::Severity::Warning},
    {"VobShort", [](kc::DiscImage& d) { d.vobs[2].bytes -= 2048; }, "vob.size", V1, "VTSI_MAT", 0,
     "VTS_EA"},
    {"VobMissing", [](kc::DiscImage& d) { d.vobs.pop_back(); }, "vob.missing", "VTS_02_1.VOB", "",
     0, ""},
    // Where tables lie and what their headers say.
    {"TableOutside", [](kc::DiscImage& d) { kt::PutBE(File(d, V1), 224, 200, 4); }, "table.outside",
     V1, "VTSI_MAT", 0, "VTS_C_ADT_SA"},
    {"TablesOverlap", [](kc::DiscImage& d) { kt::PutBE(File(d, V1), 204, 1, 4); }, "table.overlap",
     V1, "VTS_PGCIT", 0, "start sector"},
    {"EndAddressShort", [](kc::DiscImage& d) { kt::PutBE(File(d, VM), 2048 + 4, 20, 4); },
     "table.end-address", VM, "TT_SRPT", 0, "end address"},
    {"TooManyTitles", [](kc::DiscImage& d) { kt::PutBE(File(d, VM), 2048, 100, 2); },
     "limit.titles", VM, "TT_SRPT", 0, "number of titles"},
    {"NoTitleSets", [](kc::DiscImage& d) { kt::PutBE(File(d, VM), 62, 0, 2); }, "limit.title-sets",
     VM, "VMGI_MAT", 0, "VMG_NR_OF_TITLE_SETS"},
    {"CellTableVobCount",
     [](kc::DiscImage& d) { kt::PutBE(File(d, V1), Table(File(d, V1), 224), 1, 2); },
     "cells.vob-count", V1, "VTS_C_ADT", 0, "number of VOBs"},
    {"VobuMapFalls",
     [](kc::DiscImage& d) { kt::PutBE(File(d, V1), Table(File(d, V1), 228) + 8, 0, 4); },
     "vobu.order", V1, "VTS_VOBU_ADMAP", 2, "sector"},
    {"TimeMapPastVobs",
     [](kc::DiscImage& d) {
         Bytes& b = File(d, V1);
         const size_t t = Table(b, 212);
         kt::PutBE(b, t + kt::BE32(b, t + 8) + 4 + 8, 90000, 4);
     },
     "tmap.outside", V1, "VTS_TMAPT", 1, "entry 3"},
    // Titles against title sets.
    {"TitleSetMissing", [](kc::DiscImage& d) { File(d, VM)[2048 + 8 + 24 + 6] = 3; },
     "title.vts-missing", VM, "TT_SRPT", 3, "VTSN"},
    {"TitleInSetMissing", [](kc::DiscImage& d) { File(d, VM)[2048 + 8 + 7] = 5; },
     "title.vts-title-missing", VM, "TT_SRPT", 1, "VTS_TTN"},
    {"PartCount", [](kc::DiscImage& d) { kt::PutBE(File(d, VM), 2048 + 8 + 2, 4, 2); },
     "title.parts", VM, "TT_SRPT", 1, "number of parts"},
    {"TitleSetStart",
     [](kc::DiscImage& d) {
         Bytes& b = File(d, VM);
         kt::PutBE(b, 2048 + 8 + 24 + 8, kt::BE32(b, 2048 + 8 + 24 + 8) + 1, 4);
     },
     "title.start-sector", VM, "TT_SRPT", 3, "VTS start sector"},
    {"AttributesDiffer",
     [](kc::DiscImage& d) {
         Bytes& b = File(d, VM);
         const size_t t = Table(b, 208);
         kt::PutBE(b, t + kt::BE32(b, t + 8) + 8 + 0x102, 3, 2);
     },
     "atrt.mismatch", VM, "VTS_ATRT", 1, "VTS_AST_NS"},
    {"PartNamesMissingPgc",
     [](kc::DiscImage& d) {
         Bytes& b = File(d, V1);
         const size_t t = Table(b, 200);
         kt::PutBE(b, t + kt::BE32(b, t + 12), 9, 2);
     },
     "ptt.pgc", V1, "VTS_PTT_SRPT", 2, "part 1 PGCN"},
    {"PartNamesMissingProgram",
     [](kc::DiscImage& d) {
         Bytes& b = File(d, V1);
         const size_t t = Table(b, 200);
         kt::PutBE(b, t + kt::BE32(b, t + 8) + 8 + 2, 7, 2);
     },
     "ptt.program", V1, "VTS_PTT_SRPT", 1, "part 3 PGN"},
    // PGCs.
    {"ProgramMapFalls",
     [](kc::DiscImage& d) { File(d, V1)[TitlePgc(File(d, V1), 1) + 252 + 2] = 2; },
     "pgc.program-map", V1, "VTS_PGCIT", 1, "program 3 entry cell"},
    {"ProgramPastCells",
     [](kc::DiscImage& d) { File(d, V2)[TitlePgc(File(d, V2), 1) + 252 + 1] = 5; },
     "pgc.program-map", V2, "VTS_PGCIT", 1, "program 2 entry cell"},
    {"MoreProgramsThanCells",
     [](kc::DiscImage& d) { File(d, V1)[TitlePgc(File(d, V1), 1) + 2] = 4; }, "pgc.programs", V1,
     "VTS_PGCIT", 1, "number of programs"},
    {"NextPgcMissing",
     [](kc::DiscImage& d) { kt::PutBE(File(d, V1), TitlePgc(File(d, V1), 1) + 156, 7, 2); },
     "pgc.link", V1, "VTS_PGCIT", 1, "next PGC"},
    {"AudioStreamMissing",
     [](kc::DiscImage& d) { kt::PutBE(File(d, V2), TitlePgc(File(d, V2), 1) + 12 + 6, 0x8000, 2); },
     "pgc.audio-stream", V2, "VTS_PGCIT", 1, "PGC_AST_CTL 3"},
    {"SubpictureStreamMissing",
     [](kc::DiscImage& d) {
         kt::PutBE(File(d, V2), TitlePgc(File(d, V2), 1) + 28 + 4, 0x80000000u, 4);
     },
     "pgc.subpicture-stream", V2, "VTS_PGCIT", 1, "PGC_SPST_CTL 1"},
    {"CellPastVobs",
     [](kc::DiscImage& d) {
         Bytes& b = File(d, V2);
         const size_t p = TitlePgc(b, 1);
         kt::PutBE(b, p + BE16(b, p + 232) + 24 + 20, 100000, 4);
     },
     "cell.outside-vobs", V2, "VTS_PGCIT", 1, "C_PBI 2"},
    {"CellPositionMissing",
     [](kc::DiscImage& d) {
         Bytes& b = File(d, V2);
         const size_t p = TitlePgc(b, 1);
         b[p + BE16(b, p + 234) + 4 + 3] = 9;
     },
     "cell.position-missing", V2, "VTS_PGCIT", 1, "C_POSI 2"},
    {"CellBeyondAddressTable",
     [](kc::DiscImage& d) { kt::PutBE(File(d, V1), Table(File(d, V1), 224) + 8 + 8, 0x30, 4); },
     "cell.address-mismatch", V1, "VTS_PGCIT", 1, "C_PBI 1"},
    {"CellNotAtVobu",
     [](kc::DiscImage& d) {
         Bytes& b = File(d, V1);
         const size_t p = TitlePgc(b, 1);
         kt::PutBE(b, p + BE16(b, p + 232) + 8, 1, 4);
     },
     "cell.vobu", V1, "VTS_PGCIT", 1, "C_PBI 1 first VOBU"},
    {"CellCommandMissing",
     [](kc::DiscImage& d) {
         Bytes& b = File(d, V1);
         const size_t p = TitlePgc(b, 1);
         b[p + BE16(b, p + 232) + 3] = 5;
     },
     "pgc.cell-command", V1, "VTS_PGCIT", 1, "C_PBI 1 cell command"},
    {"DeclaredMenuMissing",
     [](kc::DiscImage& d) { File(d, V1)[Table(File(d, V1), 208) + 8 + 3] = 0xc8; },
     "menu.declared-missing", V1, "VTSM_PGCI_UT", 1, "menu existence"},
    {"MenuNextPgcMissing",
     [](kc::DiscImage& d) {
         Bytes& b = File(d, V1);
         const size_t menus = Table(b, 208), unit = menus + kt::BE32(b, menus + 12);
         kt::PutBE(b, Pgc(b, unit, 1) + 156, 9, 2);
     },
     "pgc.link", V1, "VTSM_LU1", 1, "next PGC"},
    {"AttributeCount",
     [](kc::DiscImage& d) { kt::PutBE(File(d, VM), Table(File(d, VM), 208), 1, 2); }, "atrt.count",
     VM, "VTS_ATRT", 0, "number of title sets"},
    {"TimeMapOffVobu",
     [](kc::DiscImage& d) {
         Bytes& b = File(d, V1);
         const size_t t = Table(b, 212);
         kt::PutBE(b, t + kt::BE32(b, t + 8) + 4 + 8, 0xb5, 4);
     },
     "tmap.vobu", V1, "VTS_TMAPT", 1, "entry 3", kc::Severity::Warning},
    // Navigation command targets.
    {"JumpToMissingTitle",
     [](kc::DiscImage& d) { File(d, V1)[Commands(File(d, V1), TitlePgc(File(d, V1), 1)) + 5] = 5; },
     "command.title", V1, "VTS_PGCIT", 1, "post command 1"},
    {"CallToMissingVmgPgc",
     [](kc::DiscImage& d) { File(d, V1)[Commands(File(d, V1), TitlePgc(File(d, V1), 2)) + 3] = 9; },
     "command.pgc", V1, "VTS_PGCIT", 2, "post command 1"},
    {"FirstPlayJumpsToMissingPgc",
     [](kc::DiscImage& d) { File(d, VM)[Commands(File(d, VM), 1024) + 3] = 40; }, "command.pgc", VM,
     "FP_PGC", 0, "pre command 1"},
    {"LinkToMissingPgc",
     [](kc::DiscImage& d) {
         Put8(File(d, V1), Commands(File(d, V1), TitlePgc(File(d, V1), 1)), "2004000000000009");
     },
     "command.pgc", V1, "VTS_PGCIT", 1, "post command 1"},
    {"LinkToMissingCell",
     [](kc::DiscImage& d) {
         Put8(File(d, V2), Commands(File(d, V2), TitlePgc(File(d, V2), 1)), "2007000000000003");
     },
     "command.cell", V2, "VTS_PGCIT", 1, "post command 1"},
    {"GotoMissingLine",
     [](kc::DiscImage& d) {
         Put8(File(d, V1), Commands(File(d, V1), TitlePgc(File(d, V1), 1)), "0001000000000009");
     },
     "command.line", V1, "VTS_PGCIT", 1, "post command 1"},
    {"CompareMissingRegister",
     [](kc::DiscImage& d) {
         Put8(File(d, V1), Commands(File(d, V1), TitlePgc(File(d, V1), 1)), "0010002000000000");
     },
     "command.register", V1, "VTS_PGCIT", 1, "post command 1"},
    {"JumpToMissingMenu",
     [](kc::DiscImage& d) {
         Put8(File(d, V2), Commands(File(d, V2), TitlePgc(File(d, V2), 1)), "3006000101820000");
     },
     "command.menu", V2, "VTS_PGCIT", 1, "post command 1"},
};

INSTANTIATE_TEST_SUITE_P(Injected, CheckFault, ::testing::ValuesIn(kFaults),
                         [](const auto& info) { return std::string(info.param.name); });

// A BUP copy that differs says which copy reads whole.
TEST(Check, BackupThatDiffersNamesTheSoundCopy) {
    kc::DiscImage disc = Sample();
    disc.ifos[1].backup.resize(disc.ifos[1].backup.size() - 2048);
    const kc::Result r = kc::CheckDisc(disc);
    bool named = false;
    for (const auto& f : r.findings)
        named = named ||
                (f.file == "VTS_02_0.BUP" && f.id == "file.backup-differs" &&
                 f.expected.find("the IFO reads whole, the BUP does not") != std::string::npos);
    EXPECT_TRUE(named) << All(r);
}

// The format of a finding, with and without entry and expectation.
TEST(Check, FindingLine) {
    kc::Finding f{kc::Severity::Error,    "pgc.link",   "VTS_01_0.IFO", "VTS_PGCIT", 2, "next PGC",
                  "PGC 7 does not exist", "0 or 1 to 3"};
    EXPECT_EQ(kc::FormatFinding(f),
              "VTS_01_0.IFO VTS_PGCIT[2] next PGC: PGC 7 does not exist (0 or 1 to 3)");
    f.entry = 0;
    f.expected.clear();
    EXPECT_EQ(kc::FormatFinding(f), "VTS_01_0.IFO VTS_PGCIT next PGC: PGC 7 does not exist");
}

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
    Bytes& b = File(disc, V1);
    // A VOBU map of 1000 entries, all the same sector, in two sectors added to the file.
    const size_t map = b.size();
    b.resize(map + 2 * 2048);
    kt::PutBE(b, 28, uint32_t(b.size() / 2048 - 1), 4);  // VTSI_EA
    kt::PutBE(b, 228, uint32_t(map / 2048), 4);          // VTS_VOBU_ADMAP_SA
    kt::PutBE(b, map, 4 + 4 * 1000 - 1, 4);
    for (size_t k = 0; k < 1000; ++k) kt::PutBE(b, map + 4 + 4 * k, 7, 4);
    const kc::Result r = kc::CheckDisc(disc);
    size_t order = 0, more = 0;
    for (const auto& f : r.findings) {
        order += f.id == "vobu.order";
        more += f.id == "check.more" && f.table == "VTS_VOBU_ADMAP" &&
                f.severity == kc::Severity::Error;
    }
    EXPECT_EQ(order, 20u) << All(r);
    EXPECT_EQ(more, 1u) << All(r);
}

}  // namespace
