// Assembly of a whole title set information file: the management table from
// source, the layout of the tables, the VOB files measured beside the IFO
// file, and the differences between Asm and AsmAbs.
#include <unistd.h>

#include <cstring>

#include "kestro/vts.h"
#include "vts_host.h"

namespace {

uint32_t BE32(const std::vector<uint8_t>& v, size_t at) {
    return at + 4 <= v.size() ? uint32_t(v[at]) << 24 | uint32_t(v[at + 1]) << 16 |
                                    uint32_t(v[at + 2]) << 8 | v[at + 3]
                              : 0xFFFFFFFFu;
}

void MakeVob(const kt::TempDir& dir, const std::string& name, uint64_t bytes) {
    std::string path = dir / name;
    kt::WriteBytes(path, {});
    kt::fs::resize_file(path, bytes);  // sparse: only the size matters
}

// A synthetic title set, loaded and disassembled into dir/s.ini; the
// tables are then assembled into `out` and the file built at ifoPath.
class VtsAssembly : public ::testing::Test {
protected:
    void SetUp() override {
        std::string src = dir / "VTS_01_0.IFO";
        kt::WriteBytes(src, vt::SyntheticVtsi().File());
        vt::Handle f(src);
        ASSERT_EQ(loaded.Load(f.h), 1);
        vt::DisasmAll(loaded, codec, ini);
    }

    // Builds the file; returns the bytes written (empty on failure).
    std::vector<uint8_t> Build(bool absolute, const std::string& ifoName = "VTS_01_0.IFO",
                               bool* ok = nullptr, std::string* error = nullptr) {
        CKestro_VTS_MAT mat;
        std::string ifo = out / ifoName;
        bool r = vt::AsmAll(loaded, mat, codec, ini, ifo, absolute);
        if (ok) *ok = r;
        if (error) *error = vt::ErrorText(mat);
        return kt::ReadBytes(ifo);
    }

    kt::TempDir dir, out;
    std::string ini = dir / "s.ini";
    CKestro_VTS_MAT loaded;
    CKestro_PGCI codec;
};

TEST_F(VtsAssembly, LaysTheFileOutSectorBySector) {
    MakeVob(out, "vts_01_0.vob", 10 * 2048);
    MakeVob(out, "vts_01_1.vob", 600 * 2048);
    MakeVob(out, "vts_01_2.vob", 400 * 2048);
    bool ok = false;
    std::vector<uint8_t> got = Build(false, "VTS_01_0.IFO", &ok);
    ASSERT_TRUE(ok);
    ASSERT_EQ(got.size(), 10u * 2048);
    const uint32_t want[] = {10, 20, 1, 2, 4, 5, 6, 7, 8, 9};
    for (size_t i = 0; i < 10; ++i) EXPECT_EQ(BE32(got, 192 + 4 * i), want[i]) << i;
    EXPECT_EQ(BE32(got, 28), 9u);      // VTSI_EA
    EXPECT_EQ(BE32(got, 128), 2047u);  // VTSI_MAT_EA
    EXPECT_EQ(BE32(got, 12), 1029u);   // VTS_EA = 9 + 20 + 1000
    // The tables themselves come back exactly as they were.
    std::vector<uint8_t> original = vt::SyntheticVtsi().File();
    EXPECT_EQ(vt::Slice(got, 2048, got.size()), vt::Slice(original, 2048, original.size()));
    // The menu video attribute keeps only its low byte.
    EXPECT_EQ(vt::Slice(got, 256, 2), (std::vector<uint8_t>{0x00, 0x01}));
    EXPECT_EQ(got[33], 0x11);
}

struct VobCase {
    const char* name;
    std::vector<std::pair<const char*, uint64_t>> vobs;  // name, sectors (or bytes if odd)
    uint32_t menuSa, titleSa, vtsEa;
    const char* error;  // with "%s" for the VOB path; nullptr when it succeeds
    const char* failing;
};

TEST_F(VtsAssembly, MeasuresTheVobFilesBesideTheIfo) {
    const VobCase cases[] = {
        {"no VOB files", {}, 0, 10, 19, nullptr, nullptr},
        {"menu VOB only", {{"vts_01_0.vob", 10}}, 10, 20, 29, nullptr, nullptr},
        {"upper-case names", {{"VTS_01_0.VOB", 10}, {"VTS_01_1.VOB", 1000}}, 10, 20, 1029, nullptr,
         nullptr},
        {"a gap ends the title VOBs", {{"vts_01_1.vob", 100}, {"vts_01_3.vob", 500}}, 0, 10, 119,
         nullptr, nullptr},
        {"nine title VOBs at most",
         {{"vts_01_1.vob", 1}, {"vts_01_2.vob", 1}, {"vts_01_3.vob", 1}, {"vts_01_4.vob", 1},
          {"vts_01_5.vob", 1}, {"vts_01_6.vob", 1}, {"vts_01_7.vob", 1}, {"vts_01_8.vob", 1},
          {"vts_01_9.vob", 1}, {"vts_01_10.vob", 1}},
         0, 10, 28, nullptr, nullptr},
        {"another title set's VOBs", {{"vts_02_0.vob", 5}, {"vts_02_1.vob", 5}}, 0, 10, 19,
         nullptr, nullptr},
        // The 32-bit byte total wraps; VTS_EA follows the wrapped value and
        // the size limit never fires.
        {"5 GiB of title VOBs",
         {{"vts_01_1.vob", 1 << 19}, {"vts_01_2.vob", 1 << 19}, {"vts_01_3.vob", 1 << 19},
          {"vts_01_4.vob", 1 << 19}, {"vts_01_5.vob", 1 << 19}},
         0, 10, 19 + (1 << 19), nullptr, nullptr},
        {"menu VOB of 2049 bytes", {{"vts_01_0.vob", 0}}, 0, 0, 0,
         "VOB file %s is not divisble by 2048, a requirement of DVD-Video standards.",
         "vts_01_0.vob"},
        {"title VOB of 2049 bytes", {{"vts_01_1.vob", 3}, {"vts_01_2.vob", 0}}, 0, 0, 0,
         "VOB file %s is not divisble by 2048, a requirement of DVD-Video standards.",
         "vts_01_2.vob"},
    };
    // AsmAbs keeps the source's menu start sector when there is no menu VOB.
    vt::SetIni(ini, "vtsi_mat", "vtsm_vobs_sa", "77");
    INIFlushFiles();
    for (bool absolute : {false, true}) {
        for (const auto& c : cases) {
            SCOPED_TRACE(std::string(c.name) + (absolute ? " (AsmAbs)" : " (Asm)"));
            for (auto& e : kt::fs::directory_iterator(out.path()))
                if (e.is_regular_file()) kt::fs::remove(e.path());
            for (auto& v : c.vobs) MakeVob(out, v.first, v.second ? v.second * 2048 : 2049);
            bool ok = false;
            std::string error;
            std::vector<uint8_t> got = Build(absolute, "VTS_01_0.IFO", &ok, &error);
            if (c.error) {
                EXPECT_FALSE(ok);
                EXPECT_TRUE(got.empty()) << "nothing is written";
                char want[512];
                std::snprintf(want, sizeof want, c.error, (out / c.failing).c_str());
                EXPECT_EQ(error, (absolute ? "Warning! " : "") + std::string(want));
                continue;
            }
            ASSERT_TRUE(ok) << error;
            EXPECT_EQ(BE32(got, 192), absolute && !c.menuSa ? 77u : c.menuSa);
            EXPECT_EQ(BE32(got, 196), c.titleSa);
            EXPECT_EQ(BE32(got, 12), c.vtsEa);
        }
    }
}

TEST_F(VtsAssembly, TitleSetNumberComesFromTheFileName) {
    MakeVob(out, "vts_07_1.vob", 50 * 2048);
    MakeVob(out, "vts_01_1.vob", 5 * 2048);
    EXPECT_EQ(BE32(Build(false, "VTS_07_0.IFO"), 12), 9u + 10 + 50);
    EXPECT_EQ(BE32(Build(false, "vts_01_0.ifo"), 12), 9u + 10 + 5);

    // Backslashes separate folders as well.
    CKestro_VTS_MAT mat;
    std::string ifo = out / "VTS_07_0.IFO";
    std::string dos = ifo;
    for (auto& ch : dos)
        if (ch == '/') ch = '\\';
    ASSERT_TRUE(vt::AsmAll(loaded, mat, codec, ini, dos, false)) << vt::ErrorText(mat);
    EXPECT_EQ(BE32(kt::ReadBytes(ifo), 12), 9u + 10 + 50);

    // Without any separator the whole path is the file name, in the
    // current folder.
    char cwd[4096];
    ASSERT_NE(::getcwd(cwd, sizeof cwd), nullptr);
    ASSERT_EQ(::chdir(out.path().c_str()), 0);
    CKestro_VTS_MAT here;
    bool built = vt::AsmAll(loaded, here, codec, ini, "VTS_07_0.IFO", false);
    std::vector<uint8_t> got = kt::ReadBytes("VTS_07_0.IFO");
    ASSERT_EQ(::chdir(cwd), 0);
    ASSERT_TRUE(built);
    EXPECT_EQ(BE32(got, 12), 9u + 10 + 50);
}

TEST_F(VtsAssembly, AnEmptyTitleSetHasOnlyItsTwoTables) {
    CKestro_VTS_MAT mat;
    mat.NewVTS_PTT_SRPT()->Asm(ini.c_str());
    mat.NewVTS_PGCIT()->Asm(ini.c_str(), &codec);
    vt::Output file(out / "VTS_01_0.IFO");
    ASSERT_TRUE(mat.Asm(ini.c_str(), file.h, file.path.c_str()));
    file.Close();
    std::vector<uint8_t> got = kt::ReadBytes(file.path);
    EXPECT_EQ(got.size(), 4u * 2048);
    const uint32_t want[] = {0, 4, 1, 2, 0, 0, 0, 0, 0, 0};
    for (size_t i = 0; i < 10; ++i) EXPECT_EQ(BE32(got, 192 + 4 * i), want[i]) << i;
    EXPECT_EQ(BE32(got, 28), 3u);
}

// Every statement in reading order and whether Asm reads it (AsmAbs reads
// them all): a missing one stops assembly before anything is written.
TEST_F(VtsAssembly, EachMissingStatementStopsBeforeAnythingIsWritten) {
    const std::pair<const char*, bool> keys[] = {
        {"vts_id", true},          {"vts_ea", false},          {"vtsi_ea", false},
        {"vern", true},            {"vts_cat", true},          {"vtsi_mat_ea", false},
        {"vtsm_vobs_sa", false},   {"vtstt_vobs_sa", false},   {"vts_ptt_srpt_sa", false},
        {"vts_pgcit_sa", false},   {"vtsm_pgci_ut_sa", false}, {"vts_tmapt_sa", false},
        {"vtsm_c_adt_sa", false},  {"vtsm_vobu_admap_sa", false}, {"vts_c_adt_sa", false},
        {"vts_vobu_admap_sa", false}, {"vtsm_v_atr", true},    {"vtsm_ast_ns", true},
        {"vtsm_ast_atr", true},    {"vtsm_spst_ns", true},     {"vtsm_spst_atr", true},
        {"vts_v_atr", true},       {"vts_ast_ns", true},       {"vts_ast_atrt02", true},
        {"vts_spst_ns", true},     {"vts_spst_atrt01", true},  {"vts_mu_ast_atrt08", true},
    };
    for (const auto& k : keys) {
        for (bool absolute : {false, true}) {
            SCOPED_TRACE(std::string(k.first) + (absolute ? " (AsmAbs)" : " (Asm)"));
            std::string want = "[" + std::string(k.first) + "] Statement missing in vtsi_mat";
            if (!std::strcmp(k.first, "vts_id")) want = "VTS ID is missing";
            if (!std::strcmp(k.first, "vts_spst_ns") && absolute) want = "vts_spst_ns";
            if (!absolute && !k.second) want = "";
            std::string value = vt::Ini(ini, "vtsi_mat", k.first);
            ASSERT_NE(value, "$");
            vt::SetIni(ini, "vtsi_mat", k.first, "$" + value);  // "$..." reads as missing
            INIFlushFiles();
            bool ok = true;
            std::string error;
            std::vector<uint8_t> got = Build(absolute, "VTS_01_0.IFO", &ok, &error);
            EXPECT_EQ(error, want);
            EXPECT_EQ(ok, want.empty());
            EXPECT_EQ(got.empty(), !want.empty());
            vt::SetIni(ini, "vtsi_mat", k.first, value);
            INIFlushFiles();
        }
    }
}

struct ValueCase {
    const char* name;
    std::vector<std::pair<const char*, const char*>> statements;
    size_t at;
    std::vector<uint8_t> bytes;
    const char* error;
};

TEST_F(VtsAssembly, ReadsEachValueWithItsCodec) {
    const ValueCase cases[] = {
        {"version", {{"vern", "2.13"}}, 32, {0x00, 0x2d}, ""},
        {"menu video attribute keeps its low byte", {{"vtsm_v_atr", "x4d01"}}, 256, {0, 1}, ""},
        {"category", {{"vts_cat", "x1a2b3c4d"}}, 34, {0x1a, 0x2b, 0x3c, 0x4d}, ""},
        {"byte strings with and without x",
         {{"vts_v_atr", "x5301"}, {"vtsm_spst_atr", "a1b2"}}, 340, {0, 1, 0xa1, 0xb2, 0, 0}, ""},
        {"no title audio streams need no attributes",
         {{"vts_ast_ns", "0"}, {"vts_ast_atrt01", "$"}, {"vts_ast_atrt02", "$"}}, 514,
         {0, 0, 0, 0}, ""},
        {"counts keep their low byte", {{"vtsm_ast_ns", "257"}}, 258, {0, 1}, ""},
        {"identifier with more after it", {{"vts_id", "DVDVIDEO-VTS and more"}}, 0,
         {'D', 'V', 'D', 'V', 'I', 'D', 'E', 'O', '-', 'V', 'T', 'S', 0}, ""},
        {"identifier of another kind", {{"vts_id", "DVDVIDEO-VMG"}}, 0, {},
         "[DVDVIDEO-VTS] missing Illegal VTS_ID field"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        std::vector<std::pair<std::string, std::string>> saved;
        for (auto& kv : c.statements) {
            saved.emplace_back(kv.first, vt::Ini(ini, "vtsi_mat", kv.first));
            vt::SetIni(ini, "vtsi_mat", kv.first, kv.second);
        }
        INIFlushFiles();
        bool ok = false;
        std::string error;
        std::vector<uint8_t> got = Build(false, "VTS_01_0.IFO", &ok, &error);
        EXPECT_EQ(error, c.error);
        EXPECT_EQ(vt::Slice(got, c.at, c.bytes.size()), c.bytes);
        for (auto& kv : saved) vt::SetIni(ini, "vtsi_mat", kv.first.c_str(), kv.second);
        INIFlushFiles();
    }
}

// 255 title audio and sub-picture streams with every attribute statement:
// the attributes run on through the table and whatever lies past its 2048
// bytes is dropped.
TEST_F(VtsAssembly, StreamCountsBeyondTheTableStayInside) {
    vt::SetIni(ini, "vtsi_mat", "vts_ast_ns", "255");
    vt::SetIni(ini, "vtsi_mat", "vts_spst_ns", "255");
    char key[32];
    for (int k = 1; k <= 255; ++k) {
        std::snprintf(key, sizeof key, "vts_ast_atrt%02d", k);
        vt::SetIni(ini, "vtsi_mat", key, "ffffffffffffffff");
        std::snprintf(key, sizeof key, "vts_spst_atrt%02d", k);
        vt::SetIni(ini, "vtsi_mat", key, "eeeeeeeeeeee");
    }
    INIFlushFiles();
    bool ok = false;
    std::vector<uint8_t> got = Build(false, "VTS_01_0.IFO", &ok);
    ASSERT_TRUE(ok);
    EXPECT_EQ(got[515], 255);
    EXPECT_EQ(got[597], 255) << "read after the audio attributes ran over it";
    EXPECT_EQ(got[2047], 0xee);
    EXPECT_EQ(vt::Slice(got, 2048, 16), vt::Slice(vt::SyntheticVtsi().File(), 2048, 16));
}

// A VOB file that exists but cannot be opened: here because the library's
// table of open files is full by the time the assembler measures it.
TEST_F(VtsAssembly, AVobThatCannotBeOpened) {
    MakeVob(out, "vts_01_1.vob", 2048);
    CKestro_VTS_MAT mat;
    mat.NewVTS_PTT_SRPT()->Asm(ini.c_str());
    vt::Output file(out / "VTS_01_0.IFO");
    std::vector<int> held;
    std::string filler = dir / "filler";
    kt::WriteBytes(filler, {1});
    for (int h; (h = kestro::FileOpen(filler.c_str(), 0x8000)) != -1;) held.push_back(h);
    bool ok = mat.Asm(ini.c_str(), file.h, file.path.c_str());
    for (int h : held) kestro::FileClose(h);
    file.Close();
    EXPECT_FALSE(ok);
    EXPECT_EQ(vt::ErrorText(mat), "Can not open " + (out / "vts_01_1.vob"));
    EXPECT_TRUE(kt::ReadBytes(file.path).empty());
}

}  // namespace
