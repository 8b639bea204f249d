// The INI store: grammar, case, order on write, coherence with the disk, atomic flush, value
// cutting (65,535 keys at once: the VOBU map tests).
#include <cstring>
#include <string>

#include "frame/detail.h"
#include "kestro/frame.h"
#include "kestro/ini.h"
#include "test_util.h"

namespace {

std::string Get(const std::string& file, const char* sec, const char* key, int size = 256) {
    std::vector<char> buf(size_t(size) + 8, 'Z');
    INIGetPrivateProfileString(sec, key, "$", buf.data(), size, file.c_str());
    return buf.data();
}

// Sections and keys match in any case, values are trimmed and cut to the buffer size less one,
// the first duplicate wins, a missing key gives the default.
TEST(IniStore, ReadsTheGrammarUsersWrite) {
    kt::TempDir dir;
    std::string f = dir / "a.ini", v(300, 'v');
    kt::WriteText(f,
                  "; leading comment\r\n[Vmgi_Mat]\r\n  Vmg_Id =  DVDVIDEO-VMG  \r\nempty=\r\n"
                  "; inside\ndup=first\ndup=second\n[other]\nk=v=w\nlong=" +
                      v);
    const char* cases[] = {// section, key, value
                           "vmgi_mat",  "vmg_id",  "DVDVIDEO-VMG",
                           "VMGI_MAT",  "VMG_ID",  "DVDVIDEO-VMG",
                           "vmgi_mat",  "empty",   "",
                           "vmgi_mat",  "dup",     "first",
                           "other",     "k",       "v=w",
                           "other",     "missing", "$",
                           "nosection", "k",       "$"};
    for (size_t i = 0; i < std::size(cases); i += 3)
        EXPECT_EQ(Get(f, cases[i], cases[i + 1]), cases[i + 2]) << cases[i] << "/" << cases[i + 1];
    EXPECT_EQ(Get(dir / "absent.ini", "a", "b"), "$");
    EXPECT_EQ(Get(f, "other", "long"), v.substr(0, 255));
    EXPECT_EQ(Get(f, "other", "long", 4), "vvv");
    EXPECT_EQ(Get(f, "other", "none", 2), "$");
}

// Writes replace in place, append new keys and sections, keep comments, flush atomically.
TEST(IniStore, WritesKeepOrderCommentsAndReplaceInPlace) {
    kt::TempDir dir;
    std::string f = dir / "a.ini";
    kt::WriteText(f, "; top\n[b]\nx=1\n; note\ny=2\n");
    INIWritePrivateProfileString("B", "X", "10", f.c_str());
    INIWritePrivateProfileString("b", "z", "3", f.c_str());
    INIWritePrivateProfileString("a", "k", "v", f.c_str());
    EXPECT_EQ(Get(f, "b", "x"), "10");  // pending changes are served before the flush
    EXPECT_EQ(kt::ReadText(f), "; top\n[b]\nx=1\n; note\ny=2\n");
    INIFlushFiles();
    EXPECT_EQ(kt::ReadText(f), "; top\n[b]\nx=10\n; note\ny=2\nz=3\n[a]\nk=v\n");
    EXPECT_EQ(std::distance(kt::fs::directory_iterator(dir.path()), {}), 1);  // no temporary left
    char names[64];
    EXPECT_EQ(INIGetSectionNames(f.c_str(), names, sizeof names), 2);
    EXPECT_STREQ(names, "b");
    EXPECT_STREQ(names + 2, "a");
}

// A file changed or deleted on disk is never served from the cache: a library operation checks
// its file once, the next one and every direct call see the disk.
TEST(IniStore, NeverServesAFileChangedOnDiskToTheNextOperation) {
    kt::TempDir dir;
    std::string f = dir / "a.ini";
    auto read = [&] {
        kestro::Source src(f.c_str(), "s");
        return src.Read("k") ? std::string(src.Value()) : "$";
    };
    INIWritePrivateProfileString("s", "k", "old", f.c_str());
    INIFlushFiles();
    EXPECT_EQ(Get(f, "s", "k"), "old");
    kt::WriteText(f, "[s]\nk=1\n");
    EXPECT_EQ(read(), "1");
    {
        kestro::Source src(f.c_str(), "s");
        ASSERT_TRUE(src.Read("k"));
        kt::WriteText(f, "[s]\nk=22\n");
        ASSERT_TRUE(src.Read("k"));
        EXPECT_STREQ(src.Value(), "1");  // trusted until the operation ends
    }
    EXPECT_EQ(read(), "22");
    for (const char* now : {"333", "4444", "new, and longer"}) {
        kt::WriteText(f, std::string("[s]\nk=") + now + "\n");
        EXPECT_EQ(Get(f, "s", "k"), now);
    }
    std::remove(f.c_str());
    EXPECT_EQ(read(), "$");
    EXPECT_EQ(Get(f, "s", "k"), "$");
    // The library's own deletion drops pending changes too.
    INIWritePrivateProfileString("s", "k", "pending", f.c_str());
    kestro::FileDelete(f.c_str());
    INIFlushFiles();
    EXPECT_FALSE(kt::fs::exists(f));
}

// Values replaced many times leave dead text behind, which the store drops once it outweighs the
// live text: what is written must not change.
TEST(IniStore, KeepsEveryValueWhileReplacedValuesAreDropped) {
    kt::TempDir dir;
    std::string f = dir / "c.ini", want = "[s]\n";
    auto value = [](int round, int k) {
        return std::string(1000 + round % 7, char('a' + (round + k) % 26));
    };
    for (int round = 0; round < 600; ++round)
        for (int k = 0; k < 8; ++k)
            INIWritePrivateProfileString("s", ("k" + std::to_string(k)).c_str(),
                                         value(round, k).c_str(), f.c_str());
    INIFlushFiles();
    for (int k = 0; k < 8; ++k) want += "k" + std::to_string(k) + "=" + value(599, k) + "\n";
    EXPECT_EQ(kt::ReadText(f), want);
}

// A flush inside a batch waits for the outermost batch to end.
TEST(IniStore, FlushesInsideABatchWaitForItsEnd) {
    kt::TempDir dir;
    std::string f = dir / "b.ini";
    {
        kestro::FlushBatch outer;
        {
            kestro::FlushBatch inner;
            INIWritePrivateProfileString("s", "k", "v", f.c_str());
            INIFlushFiles();
        }
        EXPECT_FALSE(kt::fs::exists(f));
    }
    EXPECT_EQ(kt::ReadText(f), "[s]\nk=v\n");
}

}  // namespace
