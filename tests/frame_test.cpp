// File layer, INI store, base class, formatter, report streams and hexadecimal codecs.
#include <sys/stat.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "frame/detail.h"
#include "kestro/frame.h"
#include "kestro/ini.h"
#include "test_util.h"

using namespace kestro;

namespace {

using Results = std::vector<unsigned long>;  // what calls made in order returned

// Hex text: any alphanumeric is a digit (z: 35 & 15), x may lead; missing digits count as zero.
TEST(Codecs, ReadHexTextByTheAlphanumericRule) {
    EXPECT_EQ(Results({axtoi("x1A"), axtoi("1A"), axtoi("x"), axtoi(""), axtoi("X10"), axtoi("fg"),
                       axtoi("12 34"), axtoi("123456789"), axtoi("z"), axtoib("5"), axtoib("zz"),
                       axtoib(""), axtoib(" 1"), axtoiw("1a2B"), axtoiw("1"), axtoiw("ffff")}),
              Results({26, 26, 0, 0, 0x110, 0xF0, 0x12, 0x23456789, 3, 0x50, 0x33, 0, 0x01, 0x1A2B,
                       0x1000, 0xFFFF}));
    uint8_t out[12];
    HexBytes("x0102", out, 4), HexBytes("a1b2c3d4e5", out + 4, 4), HexBytes("f", out + 8, 4);
    EXPECT_EQ(std::vector<uint8_t>(out, out + 12), kt::Hex("01020000 a1b2c3d4 f0000000"));
}

struct Probe : CBaseKestro {
    void Fail(const std::string& t) { SetError("%s", t.c_str()); }
};

// A table starts without a file or error text; copies cut it to len - 1 unless exactly len fits.
TEST(Base, StartsEmptyAndErrorMessageCopyRuleIsStrict) {
    Probe base;
    char buf[8] = "x";
    base.GetErrorMessage(buf, 8);
    EXPECT_EQ(std::make_pair(base.FileHandle(), std::string(buf)),
              std::make_pair(-1, std::string()));
    // text length, len, characters copied, the first byte left alone (the text keeps 259)
    const size_t cases[][4] = {{12, 10, 9, 10}, {10, 10, 10, 11}, {1000, 400, 259, 400}};
    const std::string text(1000, 'e');
    for (const auto& [size, len, copied, guard] : cases) {
        base.Fail(text.substr(0, size));
        std::vector<char> out(guard + 1, 'q');
        base.GetErrorMessage(out.data(), int(len));
        EXPECT_EQ(out.data() + std::string(1, out[guard]), text.substr(0, copied) + "q") << size;
    }
}

// Handles act like files in 512 slots; paths take either separator and any case; the creation
// trace logs created files only while it is on.
TEST(FileLayer, HandlesPathsAndCreationTrace) {
    kt::TempDir dir;
    const std::string path = dir / "VTS_01_1.VOB", lower = dir.path().string() + "\\vts_01_1.vob";
    kt::WriteText(path, "old text");
    int h = FileCreate(path.c_str(), 0x180);
    char c[4] = {}, d[4] = {};
    // size (created: truncated), write, seek (origin 7 counts from the start), read, tell, read at
    // the end (short), seek from the end, size padded twice, closing twice (then nothing happens)
    EXPECT_EQ(Results({FileSize(h), FileWrite(h, "hello", 5), FileSeek(h, 1, 7), FileRead(h, c, 3),
                       FileTell(h), FileRead(h, d, 3), FileSeek(h, 0, 2),
                       (PadToSector(h), PadToSector(h), FileSize(h)),
                       (unsigned long)(FileClose(h) + FileClose(h))}),
              Results({0, 5, 1, 3, 4, 1, 5, 2048, 0}));
    EXPECT_EQ(std::string(c) + d, "ello");
    std::vector<int> handles;
    while ((h = FileOpen(lower.c_str(), kOpenRead)) != -1 && handles.size() <= 512)
        handles.push_back(h);
    EXPECT_EQ(handles.size(), 512u);  // no other test leaves a slot in use; the lowest is reused
    FileClose(handles[20]), FileClose(handles[10]);
    EXPECT_EQ(FileOpen(path.c_str(), kOpenRead), std::min(handles[10], handles[20]));
    for (int h : handles) FileClose(h);
    ::chmod(path.c_str(), 0444);
    // exists, writable (read-only by attribute), readable, both
    EXPECT_EQ(std::vector<int>({FileExists(lower.c_str(), 0), FileExists(lower.c_str(), 2),
                                FileExists(lower.c_str(), 4), FileExists(path.c_str(), 6)}),
              std::vector<int>({0, -1, 0, -1}));
    kt::WriteText(dir / "trace.log", "");
    SetFileCreationTrace(true, (dir / "trace.log").c_str());
    FileClose(FileCreate((dir / "made.ifo").c_str(), 0x180));
    SetFileCreationTrace(false, "");
    FileClose(FileCreate((dir / "quiet.ifo").c_str(), 0x180));
    EXPECT_EQ(kt::ReadText(dir / "trace.log"), (dir / "made.ifo") + "\r");
}

// Formatted texts and map lines (built without a format) read as the C library's, cut alike.
TEST(Formatting, MatchesTheCLibrary) {
    std::vector<int> ints = {0, 7, 42, 255, 4096, 65535, -65536, 2147483647, -2147483647 - 1};
    for (long long p = 1; p <= 1000000000; p *= 10)  // every digit count, both sides of it
        for (long long v : {p - 1, p, p + 1, 3 * p + 7, -p, -p + 1}) ints.push_back(int(v));
    auto same = [](const char* fmt, auto... args) {
        for (size_t size : {size_t(64), size_t(4), size_t(1)}) {
            char want[64], got[64];
            std::snprintf(want, size, fmt, args...);
            const int n = Format(got, size, fmt, args...);
            EXPECT_EQ(std::make_pair(std::string(got), size_t(n)),
                      std::make_pair(std::string(want), std::strlen(want)))
                << fmt << " in " << size;
        }
    };
    for (int v : ints) {
        for (const char* f : {"%d", "%02d", "%03d", "%-5d|", "%5d", "%x", "%02x", "%04X", "%08x",
                              "%u", "%i", "%hhx", "%hd", "%+d", "% d", "%#x", "%.3d"})
            same(f, v);
        char got[128] = {}, want[128];
        Report(got, 100).Numbers("  VOBU ", v, " starts at sector ", ~v);
        std::snprintf(want, sizeof want, "  VOBU %d starts at sector %d\r\n", v, ~v);
        EXPECT_STREQ(got, want);
    }
    for (const char* f : {"[%s]", "%.12s", "%5s|", "%-5s|", "%.0s", "%c%c"})
        for (const char* v : {"", "a", "VTS_01_0.IFO", "twelve chars+"})
            std::strchr(f, 'c') ? same(f, v[0] ? v[0] : 'x', 'y') : same(f, v);
    same("%ld %lu %llx %zu %%", -5L, 5UL, 0x123456789abULL, size_t(77));
    same("%s", static_cast<const char*>(nullptr));
    same("%5.1f", 2.25);
}

// Streams nest: the newest one still living is used, whatever order they end in.
TEST(ReportStreamTest, NewestStreamStillLivingIsUsedWhateverOrderTheyEnd) {
    auto sink = [](void*, char*, size_t) {};
    auto outer = std::make_unique<ReportStream>(sink, nullptr);
    auto inner = std::make_unique<ReportStream>(sink, nullptr);
    outer.reset();
    EXPECT_EQ(ReportStream::Current(), inner.get());
    inner.reset();
    EXPECT_EQ(ReportStream::Current(), nullptr);
    ReportStream none(nullptr, nullptr);  // no sink: not installed
    EXPECT_EQ(ReportStream::Current(), nullptr);
}

std::string Get(const std::string& file, const std::string& sec, const std::string& key,
                int size = 256) {
    std::vector<char> buf(size_t(size) + 8, 'Z');
    INIGetPrivateProfileString(sec.c_str(), key.c_str(), "$", buf.data(), size, file.c_str());
    return buf.data();
}

// Any case matches, values are trimmed and cut to the buffer less one, the first duplicate wins.
TEST(IniStore, ReadsAndWritesTheGrammarUsersWrite) {
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
    EXPECT_EQ(Get(dir / "absent.ini", "a", "b") + Get(lf, "s", "none", 2), "$$");
    EXPECT_EQ(Get(lf, "s", "long") + Get(lf, "s", "long", 4), v.substr(0, 255) + "vvv");
    // Writes replace in place, append, keep comments, and reach the disk at the outermost flush;
    // the dead text of values replaced many times is dropped without changing what is written.
    const std::string before = "; top\n[b]\nx=1\n; note\ny=2\n";
    kt::WriteText(f, before);
    auto outer = std::make_unique<FlushBatch>(), inner = std::make_unique<FlushBatch>();
    INIWritePrivateProfileString("B", "X", "10", f.c_str());
    INIWritePrivateProfileString("b", "z", "3", f.c_str());
    INIWritePrivateProfileString("a", "k", "v", f.c_str());
    INIFlushFiles();
    inner.reset();
    EXPECT_EQ(Get(f, "b", "x") + kt::ReadText(f), "10" + before);
    outer.reset();
    std::string want = "; top\n[b]\nx=10\n; note\ny=2\nz=3\n[a]\nk=v\n";
    EXPECT_EQ(kt::ReadText(f), want);
    EXPECT_EQ(std::distance(kt::fs::directory_iterator(dir.path()), {}), 2);  // no temporary left
    auto value = [](int i) { return std::string(1000 + i % 7, char('a' + i % 26)); };  // write i
    for (int i = 0; i < 8 * 600; ++i)
        INIWritePrivateProfileString("s", std::to_string(i % 8).c_str(), value(i).c_str(),
                                     f.c_str());
    INIFlushFiles();
    want += "[s]\n";
    for (int k = 0; k < 8; ++k) want += std::to_string(k) + "=" + value(8 * 599 + k) + "\n";
    EXPECT_EQ(kt::ReadText(f), want);
}

// A file changed on disk is seen by the next operation (one checks its file once) and direct call.
TEST(IniStore, NeverServesAFileChangedOnDiskToTheNextOperation) {
    kt::TempDir dir;
    const std::string f = dir / "a.ini";
    auto write = [&](const std::string& v) { kt::WriteText(f, "[s]\nk=" + v + "\n"); };
    auto read = [&] {
        kestro::Source src(f.c_str(), "s");
        return src.Read("k") ? std::string(src.Value()) : "$";
    };
    int n = 0;  // alternately an operation and a direct call, each after a rewrite
    for (const char* now : {"1", "22", "333", "4444", "new, and longer"}) {
        write(now);
        EXPECT_EQ(n++ % 2 ? Get(f, "s", "k") : read(), now);
    }
    auto src = std::make_unique<kestro::Source>(f.c_str(), "s");
    ASSERT_TRUE(src->Read("k"));
    write("changed");
    ASSERT_TRUE(src->Read("k"));
    EXPECT_STREQ(src->Value(), "new, and longer");  // trusted until the operation ends
    src.reset();
    EXPECT_EQ(read(), "changed");
    std::remove(f.c_str());
    EXPECT_EQ(read() + Get(f, "s", "k"), "$$");
    INIWritePrivateProfileString("s", "k", "pending", f.c_str());
    kestro::FileDelete(f.c_str());  // drops pending changes too
    INIFlushFiles();
    EXPECT_FALSE(kt::fs::exists(f));
}

}  // namespace
