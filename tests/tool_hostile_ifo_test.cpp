// Damaged IFO files (real discs, the sample's assembled files): truncated, header fields
// smashed, and every fault fuzzing found, each a named regression test. Nothing may crash,
// overrun (the sanitizer build checks), leak, hang or leave a file handle open.
#include "support/kestro_drive.h"
#include "tables_util.h"

#include "kestro/disc.h"

namespace {

namespace fs = std::filesystem;
using kt::BE32;
using kt::PutBE;

struct Base {
    std::string name;
    std::vector<uint8_t> bytes;
    bool vmg;
};

// The corpus files and the sample's sources assembled.
const std::vector<Base>& Bases() {
    static const std::vector<Base> bases = [] {
        std::vector<Base> out;
        for (const char* prefix : {"VIDEO_TS", "VTS_"})
            for (const auto& p : kt::CorpusFiles(prefix))
                out.push_back({p, kt::ReadBytes(p), std::string(prefix) == "VIDEO_TS"});
        kdrive::Scratch s("hostile-base");
        std::error_code ec;
        for (auto& e :
             fs::directory_iterator(fs::path(KESTRO_SOURCE_DIR) / "examples/sample", ec)) {
            if (e.path().extension() != ".ini") continue;
            const auto text = kt::ReadBytes(e.path().string());
            s.Put("source.ini", text.data(), text.size());
            kdrive::DriveSource(s);
            const bool vmg = e.path().filename().string().rfind("VIDEO_TS", 0) == 0;
            const auto b = kt::ReadBytes(s.Path(kdrive::IfoName(vmg)));
            if (b.size() >= 2048) out.push_back({e.path().string(), b, vmg});
            s.Clear();
        }
        return out;
    }();
    return bases;
}

// Loads, reports (in `room` bytes, streamed in pieces of `piece` when not 0) and
// disassembles one image.
void Drive(kdrive::Scratch& s, bool vmg, const std::vector<uint8_t>& b, int room, size_t piece,
           bool disasm = true) {
    kdrive::LoadedRun run;
    run.reportRoom = room;
    run.streamPiece = piece;
    run.disasm = disasm;
    kdrive::DriveBytes(s, vmg, b.data(), b.size(), run);
    s.Clear();
}

// Each start-sector field of the management table (VMGI_MAT: TT_SRPT..VMGM_VOBU_ADMAP,
// VTSI_MAT: VTS_PTT_SRPT..VTS_VOBU_ADMAP) and the byte its table starts at.
template <class F>
void EachTableField(const Base& b, F&& f) {
    for (size_t field = b.vmg ? 0xc4 : 0xc8; field <= (b.vmg ? 0xdcu : 0xe4u); field += 4)
        f(field, size_t(BE32(b.bytes, field)) * 2048);
}

// The two file kinds (true: VIDEO_TS.IFO), each through the bases of its kind.
class HostileIfo : public ::testing::TestWithParam<bool> {
protected:
    void SetUp() override {
        for (const Base& b : Bases())
            if (b.vmg == GetParam()) bases_.push_back(b);
        if (bases_.empty()) GTEST_SKIP() << "neither real discs nor the sample are here";
        handle_ = kdrive::NextHandle(scratch_.Path("probe"));
    }
    void TearDown() override {
        if (bases_.empty()) return;
        EXPECT_EQ(kdrive::NextHandle(scratch_.Path("probe")), handle_);
    }
    template <class Check>
    static void ForEachBase(const std::vector<Base>& bases, Check vmg, Check vts) {
        for (const Base& base : bases) {
            SCOPED_TRACE(base.name);
            (base.vmg ? vmg : vts)(base.bytes);
        }
    }
    std::vector<Base> bases_;
    kdrive::Scratch scratch_{"hostile-ifo"};
    int handle_ = 0;
};
INSTANTIATE_TEST_SUITE_P(Kinds, HostileIfo, ::testing::Bool(), [](const auto& info) {
    return std::string(info.param ? "VideoManager" : "TitleSet");
});

// Truncated anywhere (the first bytes, around every sector boundary, the management table's
// fields, the last byte); and whole, read as the other kind (identifier swapped).
TEST_P(HostileIfo, TruncatedOrOfTheOtherKind) {
    for (const Base& base : bases_) {
        SCOPED_TRACE(base.name);
        std::vector<uint8_t> other = base.bytes;
        std::memcpy(other.data(), base.vmg ? "DVDVIDEO-VTS" : "DVDVIDEO-VMG", 12);
        Drive(scratch_, !base.vmg, other, 1 << 18, 0);
        Drive(scratch_, !base.vmg, other, 200, 400, false);
        const size_t size = base.bytes.size();
        std::vector<size_t> cuts = {0, 1, 11, 12, 13, 128, 255, 512, 1023, 1024, 1025, 2047};
        for (size_t sector = 2048; sector < size; sector += 2048)
            for (size_t d : {0, 1, 8, 100})
                if (sector + d < size) cuts.push_back(sector + d);
        cuts.push_back(size - 1);
        for (size_t cut : cuts) {
            SCOPED_TRACE("cut at " + std::to_string(cut));
            const std::vector<uint8_t> b(base.bytes.begin(), base.bytes.begin() + long(cut));
            const int room = 1 + int(cut % 97);
            Drive(scratch_, base.vmg, b, 1 << 18, 0);
            Drive(scratch_, base.vmg, b, room, size_t(room % 3) * 200, false);
        }
    }
}

// Start sectors past the end, at 1 and all ones; counts and end addresses all ones; every
// table on one sector of all ones. (Random damage is the fuzzers' work, seeded with these files.)
TEST_P(HostileIfo, ExtremeHeaderFieldsAreReadWithinTheFile) {
    for (const Base& base : bases_) {
        SCOPED_TRACE(base.name);
        std::vector<std::vector<uint8_t>> variants;
        auto vary = [&](size_t at, uint32_t v, int width) {
            variants.push_back(base.bytes);
            PutBE(variants.back(), at, v, width);
        };
        std::vector<uint8_t> oneSector = base.bytes;
        oneSector.resize(std::max<size_t>(oneSector.size(), 2 * 2048));
        EachTableField(base, [&](size_t field, size_t table) {
            for (uint32_t v : {uint32_t(base.bytes.size() / 2048 + 1), 1u, 0xffffffffu})
                vary(field, v, 4);
            if (table && table + 8 <= base.bytes.size())
                vary(table, 0xffff, 2), vary(table + 4, 0xffffffff, 4);
            PutBE(oneSector, field, 1, 4);
        });
        std::fill(oneSector.begin() + 2048, oneSector.begin() + 2 * 2048, 0xff);
        variants.push_back(oneSector);
        variants.push_back({oneSector.begin(), oneSector.end() - 1});
        for (size_t i = 0; i < variants.size(); ++i) {
            SCOPED_TRACE("variant " + std::to_string(i));
            Drive(scratch_, base.vmg, variants[i], i % 2 ? 1 << 18 : 64, i % 3 ? 0 : 600);
        }
    }
}

// Regression (fuzzing): an end address below the header (a cell address table then announces
// 357 million entries) made a streamed report run on without end.
TEST_P(HostileIfo, Regression_EndAddressBelowTheHeaderEndsTheStreamedReport) {
    for (const Base& base : bases_)
        EachTableField(base, [&](size_t field, size_t table) {
            if (!table || table + 8 > base.bytes.size()) return;
            SCOPED_TRACE(base.name + ", start sector at byte " + std::to_string(field));
            std::vector<uint8_t> b = base.bytes;
            PutBE(b, table + 4, 3, 4);
            Drive(scratch_, base.vmg, b, 64, 600);
        });
}

// Regression (fuzzing): a 5 KB VIDEO_TS.IFO whose menu unit and PGC counts read all ones made
// Disasm write 187,298 statements; at most 16 units of 99 PGCs are covered.
TEST_P(HostileIfo, Regression_AllOnesMenuUnitCountsWroteHundredsOfThousandsOfStatements) {
    for (const Base& base : bases_) {
        const size_t table = size_t(BE32(base.bytes, base.vmg ? 0xc8 : 0xd0)) * 2048;
        if (table == 0 || table + 16 > base.bytes.size()) continue;
        SCOPED_TRACE(base.name);
        std::vector<uint8_t> b = base.bytes;
        PutBE(b, table, 0xffff, 2);
        PutBE(b, table + BE32(b, table + 8 + 4), 0xffff, 2);
        kdrive::LoadedRun run;
        run.sideFiles = false;
        kdrive::DriveBytes(scratch_, base.vmg, b.data(), b.size(), run);
        const std::string source = kt::ReadText(scratch_.Ini());
        for (const char* beyond : {"_lu_srp17_", "m_lu17_", "_100]"})
            EXPECT_EQ(source.find(beyond), std::string::npos) << beyond;
        scratch_.Clear();
        return;
    }
    GTEST_SKIP() << "no file with a menu PGC unit table";
}

// Regression (fuzzing): 64 KB of records pointing at one long run (parts of title, time maps)
// took seconds and gigabytes to read into the disc model; the run is read once over.
TEST(HostileIfoModel, Regression_OverlappingRecordsWereReadOncePerRecord) {
    std::vector<uint8_t> vts(32 * 2048, 0);
    std::memcpy(vts.data(), "DVDVIDEO-VTS", 12);
    PutBE(vts, 200, 1, 4);                                     // VTS_PTT_SRPT at sector 1
    PutBE(vts, 212, 1, 4);                                     // VTS_TMAPT at the same sector
    PutBE(vts, 2048, 8000, 2);                                 // 8000 title units / time maps
    PutBE(vts, 2048 + 4, uint32_t(vts.size() - 2048 - 1), 4);  // end address: the file's end
    for (size_t i = 0; i < 8000; ++i) PutBE(vts, 2048 + 8 + 4 * i, 8, 4);  // each starts at 8
    kestro::disc::TitleSet t;
    kestro::disc::ReadTitleSet(vts, t);
    size_t parts = 0, entries = 0;
    for (const auto& p : t.parts) parts += p.size();
    for (const auto& m : t.timeMaps) entries += m.entries.size();
    EXPECT_LE(parts, vts.size() / 4 + 64);
    EXPECT_LE(entries, vts.size() / 4 + 64);
    EXPECT_TRUE(std::any_of(t.problems.begin(), t.problems.end(), [](const std::string& p) {
        return p.find("records overlap") != std::string::npos;
    }));
}

// A report streamed in 100-byte pieces through a small buffer reads as the one made in one
// buffer (each pass loads afresh: the management table's report changes its loaded record).
template <class Mat>
void StreamReports(const std::vector<uint8_t>& bytes) {
    tt::Loaded<Mat> whole(bytes, 0, false), streamed(bytes, 0, false);
    CKestro_PGCI codecs[2];
    const auto a = tt::TablesOf(whole.t, codecs[0]), b = tt::TablesOf(streamed.t, codecs[1]);
    ASSERT_TRUE(whole.loaded == 1 && streamed.loaded == 1 && a.size() == b.size());
    for (size_t i = 0; i < a.size(); ++i) {
        std::vector<char> big(1 << 22, '\0'), buf(1 << 18, '\0');  // buf: a piece, any PGC
        const bool ok = a[i].Details(big.data(), int(big.size()) - 3);
        std::string pieces;
        bool streamedOk;
        {
            kestro::ReportStream stream(
                [](void* to, char* text, size_t size) {
                    EXPECT_GE(size, 100u);
                    static_cast<std::string*>(to)->append(text, size);
                },
                &pieces, 100);
            streamedOk = b[i].Details(buf.data(), int(buf.size()) - 3);
        }
        EXPECT_EQ(streamedOk, ok) << a[i].name;
        EXPECT_EQ(pieces + buf.data(), std::string(big.data())) << a[i].name;
    }
}

// Every report keeps to its three bytes of headroom beyond len, for every len near the start
// and the end of the report and a sample between: guard bytes past len + 3 survive.
template <class Mat>
void SweepReports(const std::vector<uint8_t>& bytes) {
    tt::Loaded<Mat> loaded(bytes, 0, false);
    CKestro_PGCI codec;
    ASSERT_EQ(loaded.loaded, 1);
    constexpr size_t kGuard = 256;
    for (auto& table : tt::TablesOf(loaded.t, codec)) {
        std::vector<char> big(1 << 22, '\0');
        table.Details(big.data(), int(big.size()) - int(kGuard));
        const int full = int(strnlen(big.data(), big.size()));
        const int stride = full > 2000 ? full / 1000 : 1;
        for (int len = 1; len <= full + 8; len += (len < 300 || len > full - 300) ? 1 : stride) {
            std::vector<char> buf(size_t(len) + 3 + kGuard, 'G');
            std::memset(buf.data(), 0, size_t(len) + 3);
            table.Details(buf.data(), len);
            size_t bad = len + 3;
            while (bad < buf.size() && buf[bad] == 'G') ++bad;
            if (bad != buf.size()) {
                ADD_FAILURE() << table.name << " wrote " << (bad - size_t(len) - 2)
                              << " byte(s) past len + 3 with len = " << len << " (report length "
                              << full << ")";
                break;
            }
        }
    }
}

// Regression: VMGI_MAT gave the First Play PGC report the room len, not len - used, and TT_SRPT
// closed with an unchecked "\r\n" after a line that used the headroom.
TEST_P(HostileIfo, Regression_FirstPlayPgcAndTtSrptReportsWrotePastTheHeadroom) {
    ForEachBase(bases_, SweepReports<CKestro_VMG_MAT>, SweepReports<CKestro_VTS_MAT>);
}

// Streamed reports read as whole ones; also with five menu audio and sub-picture streams in the
// first VTS_ATRT record, whose report numbers those lines by the characters written before them.
TEST_P(HostileIfo, StreamedReportsReadAsWholeOnes) {
    std::vector<Base> bases = bases_;
    for (const Base& base : bases_) {
        const size_t atrt = base.vmg ? size_t(BE32(base.bytes, 208)) * 2048 : 0;
        if (atrt == 0 || BE32(base.bytes, atrt + 8) == 0) continue;
        // The report reads the record at the length of its "VTS 1" line, less 8.
        const size_t rec = atrt + std::to_string(BE32(base.bytes, atrt + 8)).size() +
                           std::string("  VTS 1 Attribute start byte address ").size();
        if (rec + 94 >= base.bytes.size()) continue;
        bases.push_back({base.name + " (menu streams)", base.bytes, true});
        bases.back().bytes[rec + 11] = bases.back().bytes[rec + 93] = 5;
    }
    ForEachBase(bases, StreamReports<CKestro_VMG_MAT>, StreamReports<CKestro_VTS_MAT>);
}

}  // namespace
