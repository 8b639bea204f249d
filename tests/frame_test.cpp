// File layer, base class, report rule and hexadecimal codecs.
#include <sys/stat.h>

#include <cstdio>
#include <cstring>
#include <tuple>

#include "frame/detail.h"
#include "kestro/frame.h"
#include "test_util.h"

using namespace kestro;

namespace {

// Hex text reads any alphanumeric character as a digit, an optional x first; missing hex digits
// of bytes and words count as zero.
TEST(Codecs, ReadHexTextByTheAlphanumericRule) {
    const std::tuple<const char*, unsigned long (*)(const char*), unsigned long> cases[] = {
        {"x1A", axtoi, 26},     {"1A", axtoi, 26},
        {"x", axtoi, 0},        {"", axtoi, 0},
        {"X10", axtoi, 0x110},  {"fg", axtoi, 0xF0},
        {"12 34", axtoi, 0x12}, {"123456789", axtoi, 0x23456789},
        {"z", axtoi, 3},        {"5", axtoib, 0x50},
        {"zz", axtoib, 0x33},   {"1a2B", axtoiw, 0x1A2B},
        {"", axtoib, 0},        {"1", axtoiw, 0x1000},
        {" 1", axtoib, 0x01},   {"ffff", axtoiw, 0xFFFF}};
    for (const auto& [text, fn, want] : cases) EXPECT_EQ(fn(text), want) << '"' << text << '"';
    const std::pair<const char*, const char*> bytes[] = {{"x0102", "\x01\x02\x00\x00"},
                                                         {"a1b2c3d4e5", "\xa1\xb2\xc3\xd4"},
                                                         {"f", "\xf0\x00\x00\x00"}};
    uint8_t out[8];
    for (const auto& [text, want] : bytes) {
        HexBytes(text, out, 4);
        EXPECT_EQ(0, std::memcmp(out, want, 4)) << text;
    }
    HexWords("0001000200030405", out, 4);
    EXPECT_EQ(0, std::memcmp(out, "\x00\x01\x00\x02\x00\x03\x04\x05", 8));
}

class Probe : public CBaseKestro {
public:
    void Fail(const char* t) { SetError("%s", t); }
};

// The base class refuses every operation, leaves Get's values alone and starts without error
// text. A text longer than len is cut to len - 1 characters; one of exactly len characters is
// copied whole with its terminator; the stored text holds 259.
TEST(Base, DefaultsFailAndErrorMessageCopyRuleIsStrict) {
    Probe base;
    char buf[8] = "x";
    unsigned long a = 7, b = 9;
    base.Get(&a, &b);
    EXPECT_EQ(std::make_tuple(a, b, base.FileHandle(), base.Load(1)),
              std::make_tuple(7ul, 9ul, -1, 0));
    EXPECT_FALSE(base.Details(buf, 8) || base.Disasm("a") || base.Asm("a") || base.Write(1));
    EXPECT_STREQ(buf, "x");
    base.GetErrorMessage(buf, sizeof buf);
    EXPECT_STREQ(buf, "");
    // text length, len; characters copied and the first byte left alone
    const size_t cases[][4] = {{12, 10, 9, 10}, {10, 10, 10, 11}, {1000, 400, 259, 400}};
    for (const auto& [size, len, copied, guard] : cases) {
        Probe p;
        std::string text;
        for (size_t i = 0; i < size; ++i) text += char('a' + i % 26);
        p.Fail(text.c_str());
        std::vector<char> out(guard + 1, 'q');
        p.GetErrorMessage(out.data(), int(len));
        EXPECT_EQ(out.data(), text.substr(0, copied)) << size;
        EXPECT_EQ(out[guard], 'q') << size;
    }
}

// Handles read, write, seek (an unknown origin counts from the start) and close like files; a
// created file starts empty; the table holds 512 files and reuses the lowest free slot.
TEST(FileLayer, HandlesBehaveLikeFilesAndSlotsAreReused) {
    kt::TempDir dir;
    std::string path = dir / "a.bin";
    EXPECT_EQ(FileOpen((dir / "missing").c_str(), kOpenReadWrite), -1);
    kt::WriteText(path, "old text");
    int h = FileCreate(path.c_str(), 0x180);
    EXPECT_EQ(FileSize(h), 0u);
    EXPECT_EQ(FileWrite(h, "hello", 5), 5u);
    EXPECT_EQ(FileSeek(h, 1, 7), 1u);
    char c[4] = {};
    EXPECT_EQ(FileRead(h, c, 3), 3u);
    EXPECT_STREQ(c, "ell");
    EXPECT_EQ(FileTell(h), 4u);
    EXPECT_EQ(FileRead(h, c, 3), 1u);  // short at the end
    EXPECT_EQ(FileSeek(h, 0, 2), 5u);
    PadToSector(h);
    PadToSector(h);
    EXPECT_EQ(FileSize(h), 2048u);
    EXPECT_EQ(FileClose(h), 0);
    EXPECT_EQ(FileClose(h), 0);  // not in use: nothing happens
    std::vector<int> handles;
    while ((h = FileOpen(path.c_str(), kOpenRead)) != -1 && handles.size() <= 512)
        handles.push_back(h);
    EXPECT_EQ(handles.size(), 512u);  // no other test leaves a slot in use
    FileClose(handles[10]);
    EXPECT_EQ(FileOpen(path.c_str(), kOpenRead), handles[10]);
    for (int h : handles) FileClose(h);
}

// Paths take either separator and find a file whatever its case; the creation trace logs
// created files only while it is on.
TEST(FileLayer, PathsMatchCaseInsensitivelyAndTraceLogsCreatedFiles) {
    kt::TempDir dir;
    kt::WriteText(dir / "VTS_01_1.VOB", "data");
    std::string lower = dir.path().string() + "\\vts_01_1.vob";
    EXPECT_EQ(FileExists(lower.c_str(), 0), 0);
    int h = FileOpen(lower.c_str(), kOpenRead);
    EXPECT_EQ(FileSize(h), 4u);
    FileClose(h);
    EXPECT_EQ(FileExists((dir / "nothing.vob").c_str(), 0), -1);
    ::chmod((dir / "VTS_01_1.VOB").c_str(), 0444);
    EXPECT_EQ(FileExists(lower.c_str(), 2), -1);  // read-only by attribute
    EXPECT_EQ(FileExists(lower.c_str(), 4), 0);
    EXPECT_EQ(FileExists((dir / "VTS_01_1.VOB").c_str(), 6), -1);
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
    std::vector<uint8_t> file(2048, 0);  // count 2, end address 0x00100000 (far beyond the file)
    file.insert(file.end(), {0, 2, 0, 0, 0, 0x10, 0, 0, 0xAA, 0, 0, 0});
    kt::WriteBytes(dir / "t.ifo", file);
    int h = FileOpen((dir / "t.ifo").c_str(), kOpenRead);
    LoadedTable t;
    EXPECT_EQ(std::make_pair(t.LoadTableHeader(h, 0), int(t.count)), std::make_pair(0, 0));
    EXPECT_EQ(t.LoadTableHeader(h, 1), 1);
    EXPECT_EQ(std::make_tuple(int(t.count), t.endAddress, t.bodyPos),
              std::make_tuple(2, 0x00100000u, 2056u));
    FileSeek(h, 5, 0);
    t.ReadBody();
    EXPECT_EQ(FileTell(h), 5u);
    ASSERT_EQ(t.body.size(), 4u);  // what the file really holds
    EXPECT_EQ(ByteView(t.body).U8(0), 0xAA);
    EXPECT_EQ(ByteView(t.body).BE32(1000), 0u);
    FileClose(h);
}

// A line is written while the text stays below len, and none after the first refused; the closing
// line end is left out where it would pass the caller's three bytes of headroom.
TEST(ReportRule, LinesStopAtTheLengthAndKeepWhatFits) {
    const struct {
        int len;
        std::vector<const char*> lines;
        size_t accepted;
        bool end;
        const char* want;
    } cases[] = {{10, {"abcd", "abcd", "a"}, 1, false, "abcd\r\n"},  // 6 + 4 reaches 10
                 {5, {"12345"}, 0, true, ""},                        // a first line as long as len
                 {10, {"123456789"}, 1, true, "123456789\r\n"},      // End would pass buf[12]
                 {10, {"1234"}, 1, true, "1234\r\n\r\n"}};
    for (const auto& c : cases) {
        char buf[16];
        std::memset(buf, '#', sizeof buf);
        buf[0] = 0;
        Report r(buf, c.len);
        for (size_t i = 0; i < c.lines.size(); ++i)
            EXPECT_EQ(r.Line("%s", c.lines[i]), i < c.accepted);
        if (c.end) r.End();
        EXPECT_STREQ(buf, c.want);
        EXPECT_EQ(buf[std::strlen(c.want) + 1], '#') << c.want;
    }
}

// The formatter answers common conversions itself and hands the rest to vsnprintf; either way
// the text must be vsnprintf's, cut to the buffer.
TEST(Formatting, MatchesTheCLibrary) {
    const int ints[] = {0,   7,    -7,    42,     99,         100,
                        255, 4096, 65535, -65536, 2147483647, -2147483647 - 1};
    const char* intFormats[] = {"%d", "%02d", "%03d", "%-5d|", "%5d", "%x",  "%02x", "%04X", "%08x",
                                "%u", "%i",   "%hhx", "%hd",   "%+d", "% d", "%#x",  "%.3d"};
    const char* strings[] = {"", "a", "VTS_01_0.IFO", "twelve chars+"};
    const char* strFormats[] = {"[%s]", "%.12s", "%5s|", "%-5s|", "%.0s", "%c%c"};
    auto same = [](const char* fmt, auto... args) {
        for (size_t size : {size_t(64), size_t(4), size_t(1)}) {
            char want[64], got[64];
            std::snprintf(want, size, fmt, args...);
            const int n = Format(got, size, fmt, args...);
            EXPECT_STREQ(got, want) << fmt << " in " << size;
            EXPECT_EQ(size_t(n), std::strlen(want)) << fmt << " in " << size;
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
}

// Map lines are built without a format; they must read as the format would, under the same rule.
TEST(ReportRule, NumberLinesReadAsTheirFormat) {
    std::vector<int> values = {0, 2147483647, -2147483647 - 1};
    for (long long p = 1; p <= 1000000000; p *= 10)  // every digit count, both sides of it
        for (long long v : {p - 1, p, p + 1, 3 * p + 7, -p, -p + 1}) values.push_back(int(v));
    for (int v : values) {
        char a[128] = {}, b[128] = {};
        Report ra(a, 100), rb(b, 100);
        const int w = v == 0 ? -1 : ~v;  // the other sign
        EXPECT_TRUE(ra.Numbers("  VOBU ", v, " starts at sector ", w));
        EXPECT_TRUE(rb.Line("  VOBU %d starts at sector %d", v, w));
        EXPECT_STREQ(a, b);
    }
    char full[64] = {};
    EXPECT_FALSE(Report(full, 20).Numbers("  VOBU ", 1, " starts at sector ", 1));
    EXPECT_STREQ(full, "");
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
