// File layer, base class, report rule, formatter and hexadecimal codecs.
#include <sys/stat.h>

#include <cstdio>
#include <cstring>
#include <tuple>

#include "frame/detail.h"
#include "kestro/frame.h"
#include "test_util.h"

using namespace kestro;

namespace {

using Results = std::vector<unsigned long>;  // what calls made in order returned

// Hex text reads any alphanumeric character as a digit (z is 35: 3), an optional x first; missing
// hex digits of bytes and words count as zero.
TEST(Codecs, ReadHexTextByTheAlphanumericRule) {
    EXPECT_EQ(Results({axtoi("x1A"), axtoi("1A"), axtoi("x"), axtoi(""), axtoi("X10"), axtoi("fg"),
                       axtoi("12 34"), axtoi("123456789"), axtoi("z"), axtoib("5"), axtoib("zz"),
                       axtoib(""), axtoib(" 1"), axtoiw("1a2B"), axtoiw("1"), axtoiw("ffff")}),
              Results({26, 26, 0, 0, 0x110, 0xF0, 0x12, 0x23456789, 3, 0x50, 0x33, 0, 0x01, 0x1A2B,
                       0x1000, 0xFFFF}));
    uint8_t out[8];
    for (const auto& [text, want] :
         {std::pair{"x0102", "01020000"}, {"a1b2c3d4e5", "a1b2c3d4"}, {"f", "f0000000"}}) {
        HexBytes(text, out, 4);
        EXPECT_EQ(std::vector<uint8_t>(out, out + 4), kt::Hex(want)) << text;
    }
    HexWords("0001000200030405", out, 4);
    EXPECT_EQ(std::vector<uint8_t>(out, out + 8), kt::Hex("0001000200030405"));
}

class Probe : public CBaseKestro {
public:
    void Fail(const char* t) { SetError("%s", t); }
};

// The base class refuses every operation, leaves Get's values alone and starts without error
// text; copied out, a text is cut to len - 1 characters unless it has exactly len; 259 are kept.
TEST(Base, DefaultsFailAndErrorMessageCopyRuleIsStrict) {
    Probe base;
    char buf[8] = "x";
    unsigned long a = 7, b = 9;
    base.Get(&a, &b);
    EXPECT_EQ(std::make_tuple(a, b, base.FileHandle(), base.Load(1)),
              std::make_tuple(7ul, 9ul, -1, 0));
    EXPECT_FALSE(base.Details(buf, 8) || base.Disasm("a") || base.Asm("a") || base.Write(1));
    base.GetErrorMessage(buf + 1, 7);
    EXPECT_EQ(std::string(buf, 2), std::string("x\0", 2));
    // text length, len; characters copied and the first byte left alone
    const size_t cases[][4] = {{12, 10, 9, 10}, {10, 10, 10, 11}, {1000, 400, 259, 400}};
    for (const auto& [size, len, copied, guard] : cases) {
        std::string text;
        for (size_t i = 0; i < size; ++i) text += char('a' + i % 26);
        base.Fail(text.c_str());
        std::vector<char> out(guard + 1, 'q');
        base.GetErrorMessage(out.data(), int(len));
        EXPECT_EQ(out.data(), text.substr(0, copied)) << size;
        EXPECT_EQ(out[guard], 'q') << size;
    }
}

// Handles act like files (an unknown seek origin counts from the start, creating truncates);
// the table holds 512 and reuses the lowest free slot; paths take either separator and any
// case; the creation trace logs created files only while it is on.
TEST(FileLayer, HandlesPathsAndCreationTrace) {
    kt::TempDir dir;
    const std::string path = dir / "VTS_01_1.VOB", lower = dir.path().string() + "\\vts_01_1.vob";
    kt::WriteText(path, "old text");
    int h = FileCreate(path.c_str(), 0x180);
    char c[4] = {}, d[4] = {};
    // size, write, seek, read, tell, read at the end (short), seek from the end, size padded twice
    EXPECT_EQ(Results({FileSize(h), FileWrite(h, "hello", 5), FileSeek(h, 1, 7), FileRead(h, c, 3),
                       FileTell(h), FileRead(h, d, 3), FileSeek(h, 0, 2),
                       (PadToSector(h), PadToSector(h), FileSize(h))}),
              Results({0, 5, 1, 3, 4, 1, 5, 2048}));
    EXPECT_EQ(std::string(c) + d, "ello");
    EXPECT_EQ(FileClose(h) + FileClose(h), 0);  // the second does nothing
    std::vector<int> handles;
    while ((h = FileOpen(lower.c_str(), kOpenRead)) != -1 && handles.size() <= 512)
        handles.push_back(h);
    EXPECT_EQ(handles.size(), 512u);  // no other test leaves a slot in use
    FileClose(handles[10]);
    EXPECT_EQ(FileOpen(path.c_str(), kOpenRead), handles[10]);
    for (int h : handles) FileClose(h);
    ::chmod(path.c_str(), 0444);
    // exists, missing, missing for writing, writable (read-only by attribute), readable, both
    EXPECT_EQ(std::vector<int>({FileExists(lower.c_str(), 0), FileExists((dir / "no").c_str(), 0),
                                FileOpen((dir / "no").c_str(), kOpenReadWrite),
                                FileExists(lower.c_str(), 2), FileExists(lower.c_str(), 4),
                                FileExists(path.c_str(), 6)}),
              std::vector<int>({0, -1, -1, -1, 0, -1}));
    const std::string trace = dir / "trace.log";
    kt::WriteText(trace, "");
    SetFileCreationTrace(true, trace.c_str());
    FileClose(FileCreate((dir / "made.ifo").c_str(), 0x180));
    SetFileCreationTrace(false, "");
    FileClose(FileCreate((dir / "quiet.ifo").c_str(), 0x180));
    EXPECT_EQ(kt::ReadText(trace), (dir / "made.ifo") + "\r");
}

// Sector 0 loads nothing; a body is what the file holds, whatever its end address says.
TEST(LoadedTableTest, StartSectorZeroReadsNothingAndBodyIsBounded) {
    kt::TempDir dir;
    std::vector<uint8_t> file(2048, 0);
    const auto table = kt::Hex("0002 0000 00100000 aa000000");  // count, 0, end far beyond, body
    file.insert(file.end(), table.begin(), table.end());
    kt::WriteBytes(dir / "t.ifo", file);
    const int h = FileOpen((dir / "t.ifo").c_str(), kOpenRead);
    LoadedTable t;
    EXPECT_EQ(std::make_pair(t.LoadTableHeader(h, 0), int(t.count)), std::make_pair(0, 0));
    EXPECT_EQ(t.LoadTableHeader(h, 1), 1);
    EXPECT_EQ(std::make_tuple(int(t.count), t.endAddress, t.bodyPos),
              std::make_tuple(2, 0x00100000u, 2056u));
    FileSeek(h, 5, 0);
    t.ReadBody();
    EXPECT_EQ(FileTell(h), 5u);
    EXPECT_EQ(t.body, kt::Hex("aa000000"));
    EXPECT_EQ(ByteView(t.body).BE32(1000), 0u);
    FileClose(h);
}

// A line is written while the text stays below len, none after the first refused; the closing line
// end is left out where it would pass the caller's three bytes of headroom.
TEST(ReportRule, LinesStopAtTheLengthAndKeepWhatFits) {
    const struct {
        int len;
        std::vector<const char*> lines;
        size_t accepted;
        const char* want;                                     // after End
    } cases[] = {{10, {"abcd", "abcd", "a"}, 1, "abcd\r\n"},  // 6 + 4 reaches 10
                 {5, {"12345"}, 0, ""},
                 {10, {"123456789"}, 1, "123456789\r\n"},  // End would pass buf[12]
                 {10, {"1234"}, 1, "1234\r\n\r\n"}};
    for (const auto& c : cases) {
        char buf[16];
        std::memset(buf, '#', sizeof buf);
        buf[0] = 0;
        Report r(buf, c.len);
        for (size_t i = 0; i < c.lines.size(); ++i)
            EXPECT_EQ(r.Line("%s", c.lines[i]), i < c.accepted);
        r.End();
        EXPECT_STREQ(buf, c.want);
        EXPECT_EQ(buf[std::strlen(c.want) + 1], '#') << c.want;
    }
    char full[64] = {};
    EXPECT_FALSE(Report(full, 20).Numbers("  VOBU ", 1, " starts at sector ", 1));
    EXPECT_STREQ(full, "");
}

// The formatter answers common conversions itself and hands the rest to vsnprintf, and map lines
// are built without a format: either way the text must be the C library's, cut to the buffer.
TEST(Formatting, MatchesTheCLibrary) {
    std::vector<int> ints = {0, 7, 42, 255, 4096, 65535, -65536, 2147483647, -2147483647 - 1};
    for (long long p = 1; p <= 1000000000; p *= 10)  // every digit count, both sides of it
        for (long long v : {p - 1, p, p + 1, 3 * p + 7, -p, -p + 1}) ints.push_back(int(v));
    const char* intFormats[] = {"%d", "%02d", "%03d", "%-5d|", "%5d", "%x",  "%02x", "%04X", "%08x",
                                "%u", "%i",   "%hhx", "%hd",   "%+d", "% d", "%#x",  "%.3d"};
    const char* strings[] = {"", "a", "VTS_01_0.IFO", "twelve chars+"};
    const char* strFormats[] = {"[%s]", "%.12s", "%5s|", "%-5s|", "%.0s", "%c%c"};
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
    for (const char* f : intFormats)
        for (int v : ints) same(f, v);
    for (const char* f : strFormats)
        for (const char* v : strings)
            std::strchr(f, 'c') ? same(f, v[0] ? v[0] : 'x', 'y') : same(f, v);
    same("%ld %lu %llx %zu %%", -5L, 5UL, 0x123456789abULL, size_t(77));
    same("%s", static_cast<const char*>(nullptr));
    same("%5.1f", 2.25);
    for (int v : ints) {
        char got[128] = {}, want[128];
        EXPECT_TRUE(Report(got, 100).Numbers("  VOBU ", v, " starts at sector ", ~v));
        std::snprintf(want, sizeof want, "  VOBU %d starts at sector %d\r\n", v, ~v);
        EXPECT_STREQ(got, want);
    }
}

// The newest stream still living is used, whatever order streams end in; one without a sink is
// not installed.
TEST(ReportStreamTest, NewestStreamStillLivingIsUsedWhateverOrderTheyEnd) {
    auto sink = [](void*, char*, size_t) {};
    auto outer = std::make_unique<ReportStream>(sink, nullptr);
    auto inner = std::make_unique<ReportStream>(sink, nullptr);
    EXPECT_EQ(ReportStream::Current(), inner.get());
    outer.reset();
    EXPECT_EQ(ReportStream::Current(), inner.get());
    inner.reset();
    ReportStream none(nullptr, nullptr);
    EXPECT_EQ(ReportStream::Current(), nullptr);
}

}  // namespace
