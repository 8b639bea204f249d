// Damaged IFO files (real discs and the sample's assembled files): truncated,
// bit-flipped, header fields smashed. Nothing may crash, overrun (the sanitizer
// build checks), leak, hang or leave a file handle open.
#include <random>

#include "support/kestro_drive.h"
#include "tables_util.h"

namespace {

namespace fs = std::filesystem;

struct Base { std::string name; std::vector<uint8_t> bytes; bool vmg; };

const std::vector<Base>& Bases() {
    static const std::vector<Base> bases = [] {
        std::vector<Base> out;
        for (const char* prefix : {"VIDEO_TS", "VTS_"})
            for (const auto& p : kt::CorpusFiles(prefix)) {
                out.push_back({p, kt::ReadBytes(p), std::string(prefix) == "VIDEO_TS"});
            }
        fs::path sample = fs::path(KESTRO_SOURCE_DIR) / "examples/sample";
        std::error_code ec;
        if (fs::is_directory(sample, ec)) {
            kdrive::Scratch s("hostile-base");
            for (auto& e : fs::directory_iterator(sample, ec)) {
                if (e.path().extension() != ".ini") continue;
                auto text = kt::ReadBytes(e.path().string());
                s.Put("source.ini", text.data(), text.size());
                kdrive::DriveSource(s);
                const bool vmg = e.path().filename().string().rfind("VIDEO_TS", 0) == 0;
                const auto b = kt::ReadBytes(s.Path(kdrive::IfoName(vmg)));
                if (b.size() >= 2048) out.push_back({e.path().string(), b, vmg});
                s.Clear();
            }
        }
        return out;
    }();
    return bases;
}

// Drives one image twice: ample room with the source written, then `room`
// (streamed in pieces for some rooms).
void Drive(kdrive::Scratch& s, bool vmg, const std::vector<uint8_t>& bytes, int room) {
    kdrive::LoadedRun run;
    kdrive::DriveBytes(s, vmg, bytes.data(), bytes.size(), run);
    run.reportRoom = room;
    run.streamPiece = size_t(room % 3) * 200;
    run.disasm = false;
    kdrive::DriveBytes(s, vmg, bytes.data(), bytes.size(), run);
    s.Clear();
}

// Where to cut a file: the first bytes, around every sector boundary, inside
// the management table's fields, and the last bytes.
std::vector<size_t> CutPoints(size_t size) {
    std::vector<size_t> cuts = {0, 1, 11, 12, 13, 128, 255, 512, 1023, 1024, 1025, 2047};
    for (size_t sector = 2048; sector < size; sector += 2048)
        for (size_t d : {size_t(0), size_t(1), size_t(8), size_t(100)})
            if (sector + d < size) cuts.push_back(sector + d);
    cuts.push_back(size - 1);
    return cuts;
}

class HostileIfo : public ::testing::Test {
protected:
    void SetUp() override {
        if (Bases().empty()) GTEST_SKIP() << "neither real discs nor the sample are here";
        handle_ = kdrive::NextHandle(scratch_.Path("probe"));
    }
    void TearDown() override {
        if (!Bases().empty()) { EXPECT_EQ(kdrive::NextHandle(scratch_.Path("probe")), handle_); }
    }
    kdrive::Scratch scratch_{"hostile-ifo"};
    int handle_ = 0;
};

// Truncated anywhere; and whole, read as the other kind (identifier swapped).
TEST_F(HostileIfo, TruncatedOrOfTheOtherKind) {
    for (const Base& base : Bases()) {
        SCOPED_TRACE(base.name);
        std::vector<uint8_t> other = base.bytes;
        std::memcpy(other.data(), base.vmg ? "DVDVIDEO-VTS" : "DVDVIDEO-VMG", 12);
        Drive(scratch_, !base.vmg, other, 200);
        for (size_t cut : CutPoints(base.bytes.size())) {
            SCOPED_TRACE("cut at " + std::to_string(cut));
            std::vector<uint8_t> b(base.bytes.begin(), base.bytes.begin() + long(cut));
            Drive(scratch_, base.vmg, b, 1 + int(cut % 97));
        }
    }
}

TEST_F(HostileIfo, RandomBitFlips) {
    std::mt19937 rng(20261122);
    for (const Base& base : Bases()) {
        SCOPED_TRACE(base.name);
        for (int variant = 0; variant < 24; ++variant) {
            std::vector<uint8_t> b = base.bytes;
            // Most damage goes where the tables are: the first sectors.
            const size_t span = variant % 2 ? b.size() : std::min<size_t>(b.size(), 4 * 2048);
            const int flips = 1 + int(rng() % 32);
            for (int f = 0; f < flips; ++f) b[rng() % span] ^= uint8_t(1u << (rng() % 8));
            SCOPED_TRACE("variant " + std::to_string(variant));
            Drive(scratch_, base.vmg, b, 1 + int(rng() % 600));
        }
    }
}

using kt::BE32;
using kt::PutBE;

// Each start sector of the management table (VMGI_MAT: TT_SRPT..VMGM_VOBU_ADMAP,
// VTSI_MAT: VTS_PTT_SRPT..VTS_VOBU_ADMAP) past the end, at 1 and all ones; each
// table's count and end address at all ones, and its end address below the
// header (a cell address table then announces 357 million entries: streamed,
// its report must still stop; found by fuzzing).
TEST_F(HostileIfo, ExtremeHeaderFields) {
    for (const Base& base : Bases()) {
        SCOPED_TRACE(base.name);
        std::vector<std::vector<uint8_t>> variants;
        auto vary = [&](size_t at, uint32_t v, int width) { variants.push_back(base.bytes), PutBE(variants.back(), at, v, width); };
        for (size_t field = base.vmg ? 0xc4 : 0xc8; field <= (base.vmg ? 0xdcu : 0xe4u); field += 4) {
            for (uint32_t v : {uint32_t(base.bytes.size() / 2048 + 1), 1u, 0xffffffffu}) vary(field, v, 4);
            const size_t table = size_t(BE32(base.bytes, field)) * 2048;
            if (table && table + 8 <= base.bytes.size())
                vary(table, 0xffff, 2), vary(table + 4, 0xffffffff, 4), vary(table + 4, 3, 4);
        }
        for (size_t i = 0; i < variants.size(); ++i) {
            SCOPED_TRACE("variant " + std::to_string(i));
            kdrive::LoadedRun run;  // reports and sources list only the entries a body holds
            run.reportRoom = i % 2 ? 1 << 18 : 64;
            run.streamPiece = i % 3 ? 0 : 600;
            kdrive::DriveBytes(scratch_, base.vmg, variants[i].data(), variants[i].size(), run);
            scratch_.Clear();
        }
    }
}

// Menu PGC unit tables whose unit count and first unit's PGC count read all
// ones: report and source cover at most 16 units of at most 99 PGCs (found by
// fuzzing: a 5 KB VIDEO_TS.IFO made Disasm write 187,298 statements).
TEST_F(HostileIfo, MenuUnitCountsAreBounded) {
    bool done[2] = {false, false};
    for (const Base& base : Bases()) {
        const size_t table = size_t(BE32(base.bytes, base.vmg ? 0xc8 : 0xd0)) * 2048;
        if (done[base.vmg] || table == 0 || table + 16 > base.bytes.size()) continue;
        done[base.vmg] = true;
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
    }
    if (!done[0] && !done[1]) GTEST_SKIP() << "no file with a menu PGC unit table";
}

// A streamed report is the whole report, handed on in pieces, through a
// buffer far smaller than the report: the pieces and the text left in the
// buffer read as the report made in one buffer.
// (The management table's report changes its loaded record, so each pass
// loads the file afresh.)
template <class Mat>
void StreamReports(const std::vector<uint8_t>& bytes) {
    tt::Loaded<Mat> whole(bytes, 0, false), streamed(bytes, 0, false);
    CKestro_PGCI codecs[2];
    const auto a = tt::TablesOf(whole.t, codecs[0]), b = tt::TablesOf(streamed.t, codecs[1]);
    ASSERT_TRUE(whole.loaded == 1 && streamed.loaded == 1 && a.size() == b.size());
    for (size_t i = 0; i < a.size(); ++i) {
        std::vector<char> big(1 << 22, '\0');
        const bool ok = a[i].Details(big.data(), int(big.size()) - 3);
        std::string pieces;
        std::vector<char> buf(1 << 18, '\0');  // room for one piece and any PGC report
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

// Every report keeps to its three bytes of headroom beyond len for every len
// across the report's length: guard bytes past len + 3 must survive.
template <class Mat>
void SweepReports(const std::vector<uint8_t>& bytes) {
    tt::Loaded<Mat> loaded(bytes, 0, false);
    CKestro_PGCI codec;
    ASSERT_EQ(loaded.loaded, 1);
    const auto tables = tt::TablesOf(loaded.t, codec);
    constexpr size_t kGuard = 256;
    for (auto& table : tables) {
        std::vector<char> big(1 << 22, '\0');
        table.Details(big.data(), int(big.size()) - int(kGuard));
        const int full = int(strnlen(big.data(), big.size()));
        // Every len near the start and the end of the report, a sample between.
        const int stride = full > 2000 ? full / 1000 : 1;
        for (int len = 1; len <= full + 8; len += (len < 300 || len > full - 300) ? 1 : stride) {
            std::vector<char> buf(size_t(len) + 3 + kGuard, 'G');
            std::memset(buf.data(), 0, size_t(len) + 3);
            table.Details(buf.data(), len);
            size_t bad = len + 3;
            while (bad < buf.size() && buf[bad] == 'G') ++bad;
            if (bad != buf.size()) {
                ADD_FAILURE() << table.name << " wrote " << (bad - size_t(len) - 2)
                              << " byte(s) past len + 3 with len = " << len
                              << " (report length " << full << ")";
                break;
            }
        }
    }
}

// Found so: VMGI_MAT passed the First Play PGC room len - used; TT_SRPT closed
// with an unchecked "\r\n" after a last line that used the headroom.
TEST_F(HostileIfo, ReportsKeepToTheirHeadroom) {
    for (const Base& base : Bases()) {
        SCOPED_TRACE(base.name);
        base.vmg ? SweepReports<CKestro_VMG_MAT>(base.bytes) : SweepReports<CKestro_VTS_MAT>(base.bytes);
    }
}

// The video manager with five menu audio and five menu sub-picture streams
// in its first title set attribute record: the VTS_ATRT report numbers
// those lines by the characters written before them.
std::vector<uint8_t> WithMenuStreams(std::vector<uint8_t> b) {
    const size_t atrt = size_t(BE32(b, 208)) * 2048;
    if (atrt == 0 || BE32(b, atrt + 8) == 0) return {};
    // The report reads the record at the length of its "VTS 1" line, less 8.
    const size_t rec = atrt + 8 + ("  VTS 1 Attribute start byte address " + std::to_string(BE32(b, atrt + 8))).size() - 8;
    if (rec + 94 >= b.size()) return {};
    b[rec + 11] = b[rec + 93] = 5;
    return b;
}

TEST_F(HostileIfo, StreamedReportsReadAsWholeOnes) {
    std::vector<Base> bases = Bases();
    for (const Base& base : Bases())
        if (base.vmg)
            if (auto b = WithMenuStreams(base.bytes); !b.empty()) bases.push_back({base.name + " (menu streams)", b, true});
    for (const Base& base : bases) {
        SCOPED_TRACE(base.name);
        base.vmg ? StreamReports<CKestro_VMG_MAT>(base.bytes) : StreamReports<CKestro_VTS_MAT>(base.bytes);
    }
}

}  // namespace
