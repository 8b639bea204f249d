// The INI store: grammar, case, order on write, coherence with the disk, atomic flush, dead text.
#include <cstring>
#include <string>

#include "frame/detail.h"
#include "kestro/frame.h"
#include "kestro/ini.h"
#include "test_util.h"

namespace {

std::string Get(const std::string& file, const std::string& sec, const std::string& key,
                int size = 256) {
    std::vector<char> buf(size_t(size) + 8, 'Z');
    INIGetPrivateProfileString(sec.c_str(), key.c_str(), "$", buf.data(), size, file.c_str());
    return buf.data();
}

// Sections and keys match in any case, values are trimmed and cut to the buffer size less one,
// the first duplicate wins, a missing key gives the default.
TEST(IniStore, ReadsTheGrammarUsersWrite) {
    kt::TempDir dir;
    const std::string f = dir / "a.ini", lf = dir / "long.ini", v(300, 'v');
    kt::WriteText(f,
                  "; leading comment\r\n[Vmgi_Mat]\r\n  Vmg_Id =  DVDVIDEO-VMG  \r\nempty=\r\n"
                  "; inside\ndup=first\ndup=second\n[other]\nk=v=w\n");
    kt::WriteText(lf, "[s]\nlong=" + v);
    for (std::string c : {"vmgi_mat/vmg_id=DVDVIDEO-VMG", "VMGI_MAT/VMG_ID=DVDVIDEO-VMG",
                          "vmgi_mat/empty=", "vmgi_mat/dup=first", "other/k=v=w", "other/missing=$",
                          "nosection/k=$"}) {  // section/key=value read
        const size_t s = c.find('/'), e = c.find('=');
        EXPECT_EQ(Get(f, c.substr(0, s), c.substr(s + 1, e - s - 1)), c.substr(e + 1));
    }
    EXPECT_EQ(Get(dir / "absent.ini", "a", "b"), "$");
    EXPECT_EQ(Get(lf, "s", "long"), v.substr(0, 255));
    EXPECT_EQ(Get(lf, "s", "long", 4), "vvv");
    EXPECT_EQ(Get(lf, "s", "none", 2), "$");
}

// Writes replace in place and append new keys and sections, keeping comments; pending changes are
// served at once but written only by a flush outside every batch, atomically. Values replaced
// many times leave dead text behind, which the store drops without changing what it writes.
TEST(IniStore, WritesKeepOrderAndFlushOutsideBatches) {
    kt::TempDir dir;
    const std::string f = dir / "a.ini", before = "; top\n[b]\nx=1\n; note\ny=2\n";
    kt::WriteText(f, before);
    {
        kestro::FlushBatch outer;
        {
            kestro::FlushBatch inner;
            INIWritePrivateProfileString("B", "X", "10", f.c_str());
            INIWritePrivateProfileString("b", "z", "3", f.c_str());
            INIWritePrivateProfileString("a", "k", "v", f.c_str());
            INIFlushFiles();
        }
        EXPECT_EQ(Get(f, "b", "x"), "10");
        EXPECT_EQ(kt::ReadText(f), before);
    }
    EXPECT_EQ(kt::ReadText(f), "; top\n[b]\nx=10\n; note\ny=2\nz=3\n[a]\nk=v\n");
    EXPECT_EQ(std::distance(kt::fs::directory_iterator(dir.path()), {}), 1);  // no temporary left
    char names[64];
    EXPECT_EQ(INIGetSectionNames(f.c_str(), names, sizeof names), 2);
    EXPECT_EQ(std::string(names, 5), std::string("b\0a\0", 5));
    std::string want = kt::ReadText(f) + "[s]\n";
    auto value = [](int r, int k) { return std::string(1000 + r % 7, char('a' + (r + k) % 26)); };
    for (int r = 0; r < 600; ++r)
        for (int k = 0; k < 8; ++k)
            INIWritePrivateProfileString("s", std::to_string(k).c_str(), value(r, k).c_str(),
                                         f.c_str());
    INIFlushFiles();
    for (int k = 0; k < 8; ++k) want += std::to_string(k) + "=" + value(599, k) + "\n";
    EXPECT_EQ(kt::ReadText(f), want);
}

// A file changed or deleted on disk is never served from the cache: a library operation checks
// its file once, the next one and every direct call see the disk.
TEST(IniStore, NeverServesAFileChangedOnDiskToTheNextOperation) {
    kt::TempDir dir;
    const std::string f = dir / "a.ini";
    auto write = [&](const std::string& v) { kt::WriteText(f, "[s]\nk=" + v + "\n"); };
    auto read = [&] {
        kestro::Source src(f.c_str(), "s");
        return src.Read("k") ? std::string(src.Value()) : "$";
    };
    INIWritePrivateProfileString("s", "k", "old", f.c_str());
    INIFlushFiles();
    EXPECT_EQ(Get(f, "s", "k"), "old");
    int n = 0;  // alternately an operation and a direct call, each after a rewrite
    for (const char* now : {"1", "22", "333", "4444", "new, and longer"}) {
        write(now);
        EXPECT_EQ(n++ % 2 ? Get(f, "s", "k") : read(), now);
    }
    {
        kestro::Source src(f.c_str(), "s");
        ASSERT_TRUE(src.Read("k"));
        write("changed");
        ASSERT_TRUE(src.Read("k"));
        EXPECT_STREQ(src.Value(), "new, and longer");  // trusted until the operation ends
    }
    EXPECT_EQ(read(), "changed");
    std::remove(f.c_str());
    EXPECT_EQ(read() + Get(f, "s", "k"), "$$");
    INIWritePrivateProfileString("s", "k", "pending", f.c_str());
    kestro::FileDelete(f.c_str());  // drops pending changes too
    INIFlushFiles();
    EXPECT_FALSE(kt::fs::exists(f));
}

}  // namespace
