// The human-readable report of one binary PGC, appended to the text a
// table's Details is building. It follows the start offsets found in the
// PGC, so it also shows PGCs that other tools laid out differently.
#include <cstring>

#include "frame/detail.h"
#include "kestro/pgc.h"
#include "pgc/pgc_model.h"

using namespace kestro;
using namespace kestro::pgc;

namespace {

// Builds report lines in a 128-character line buffer whose first `indent`
// characters are blanks, and appends each as "%s\r\n". The room test counts
// the line's text without its indentation (and, for command lines, the
// position of the rendering), so the report may overrun room by the
// indentation plus three characters; hosts size their buffers for that.
// Like the table reports, it keeps its first refusal: once a line did not
// fit, ok() is false and every later line does nothing.
class PgcLines {
public:
    static constexpr size_t kLine = 128;

    PgcLines(unsigned short indent, char* out, int room)
        : indent_(indent < kLine ? indent : kLine - 1), out_(out), room_(room) {
        std::memset(line_, 0, sizeof line_);
        std::memset(line_, ' ', indent_);
    }

#if defined(__GNUC__)
    __attribute__((format(printf, 2, 3)))
#endif
    void
    Line(const char* fmt, ...) {
        if (!ok_) return;
        va_list ap;
        va_start(ap, fmt);
        int n = FormatV(line_ + indent_, kLine - indent_, fmt, ap);
        va_end(ap);
        Emit(size_t(n));
    }

    // A command: its number and bytes at the indentation, then its rendering
    // at L + 4 from the start of the line buffer, where L is the length of
    // the number-and-bytes text. Below an indentation of 4 the rendering
    // lands behind the text's terminator and is not shown.
    void Command(CKestro_PGCI& codec, unsigned number, const uint8_t* c) {
        if (!ok_) return;
        int len =
            Format(line_ + indent_, kLine - indent_, "      %d: %02x%02x%02x%02x%02x%02x%02x%02x ",
                   number, c[0], c[1], c[2], c[3], c[4], c[5], c[6], c[7]);
        char text[64] = {};
        int rlen = codec.DisAssembleCommand(c, text);
        size_t at = size_t(len) + 4;
        if (at < kLine) Format(line_ + at, kLine - at, "%s", text);
        Emit(at + size_t(rlen));
    }

    bool ok() const { return ok_; }
    int Count() const { return count_; }

private:
    void Emit(size_t textLen) {
        if ((long long)textLen + count_ >= (long long)room_) {
            ok_ = false;
            return;
        }
        size_t n = std::strlen(line_);
        std::memcpy(out_ + count_, line_, n);
        std::memcpy(out_ + count_ + n, "\r\n", 3);
        count_ += int(n + 2);
    }

    char line_[kLine];
    size_t indent_;
    char* out_;
    int room_;
    int count_ = 0;
    bool ok_ = true;
};

// BCD playback time: hh:mm:ss.ff, the frame-rate bits of the frames byte
// left out.
void PlayTime(PgcLines& r, const char* fmt, const PgcBytes& p, size_t at, int cell) {
    uint8_t h = p.U8(at), m = p.U8(at + 1), s = p.U8(at + 2), f = p.U8(at + 3);
    int d[8] = {h >> 4, h & 15, m >> 4, m & 15, s >> 4, s & 15, (f >> 4) & 3, f & 15};
    if (cell < 0)
        r.Line(fmt, d[0], d[1], d[2], d[3], d[4], d[5], d[6], d[7]);
    else
        r.Line(fmt, cell, d[0], d[1], d[2], d[3], d[4], d[5], d[6], d[7]);
}

// A part whose start offset is 0: says so, and calls it an error when the
// PGC's counts say there should be entries.
void Absent(PgcLines& r, const char* none, const char* error, unsigned count) {
    r.Line("%s", none);
    if (count != 0) r.Line(error, count);
}

bool WriteReport(CKestro_PGCI& codec, PgcLines& r, PgcBytes& p) {
    const unsigned programs = p.Programs();
    const unsigned cells = p.Cells();

    r.Line("PGC: Number of Programs: %d", programs);
    r.Line("PGC: Number of Cells: %d", cells);
    PlayTime(r, "PGC: Play Back Time: %d%d:%d%d:%d%d.%d%d", p, kGiPlayTime, -1);
    r.Line("PGC: Prohibited user operations: %08x", p.BE32(kGiUops));
    for (int i = 1; i <= kAudioStreams; ++i)
        r.Line("PGC: Audio stream %d status: %04x", i, p.BE16(kGiAudio + 2 * (i - 1)));
    for (int i = 1; i <= kSubpicStreams; ++i)
        r.Line("PGC: Sub-Picture stream %d status: %08x", i, p.BE32(kGiSubpic + 4 * (i - 1)));
    r.Line("PGC: Next PGC number: %d", p.BE16(kGiNav));
    r.Line("PGC: Previous PGC number: %d", p.BE16(kGiNav + 2));
    r.Line("PGC: Go Up PGC number: %d", p.BE16(kGiNav + 4));
    r.Line("PGC: PG Play back mode: %x", p.U8(kGiNav + 6));
    r.Line("PGC: Still time in seconds (255 = infinite): %d", p.U8(kGiNav + 7));
    r.Line("PGC: Sub-Picture palette as YCrCb:");
    for (int i = 0; i < kPaletteColours; ++i) {
        size_t at = kGiPalette + 4 * size_t(i);
        r.Line("  Color %d: %03d-%03d-%03d", i, p.U8(at + 1), p.U8(at + 2), p.U8(at + 3));
    }

    const size_t cmdt = p.BE16(kGiCmdtSa);
    r.Line("PGC: Memory offset of PGC Command Table: %d", int(cmdt));
    if (cmdt == 0) {
        r.Line("    There is no PGC Command Table");
    } else if (r.ok()) {
        // A report stopped before here leaves the caller's bytes as they are.
        const std::array<unsigned, 3> n = p.SwapCommandHeader(cmdt);
        size_t at = cmdt + kCmdtHeader;
        for (size_t g = 0; g < 3; ++g) {
            r.Line(kCommandGroups[g].heading, n[g]);
            for (unsigned i = 1; r.ok() && i <= n[g]; ++i, at += kCommandSize) {
                uint8_t c[kCommandSize];
                p.View().Copy(at, c, kCommandSize);
                r.Command(codec, i, c);
            }
        }
    }

    const size_t pgmap = p.BE16(kGiPgmapSa);
    r.Line("PGC: Memory offset of PGC Program Map: %d", int(pgmap));
    if (pgmap != 0) {
        for (unsigned i = 1; r.ok() && i <= programs; ++i)
            r.Line("    Entry cell number for Program %d: %d", i, p.U8(pgmap + i - 1));
    } else {
        Absent(r, "    There is no PGC Program Map",
               "      This is an ERROR as there are %d programs", programs);
    }

    const size_t pbit = p.BE16(kGiCpbitSa);
    r.Line("PGC: Memory offset of Cell Playback Information Table: %d", int(pbit));
    if (pbit != 0) {
        for (unsigned c = 1; r.ok() && c <= cells; ++c) {
            const size_t e = pbit + kPbitEntry * (c - 1);
            r.Line("    Cell %d category: %x %x %d %d", c, p.U8(e), p.U8(e + 1), p.U8(e + 2),
                   p.U8(e + 3));
            PlayTime(r, "    Cell %d Play Back Time: %d%d:%d%d:%d%d.%d%d", p, e + 4, int(c));
            r.Line("    Cell %d entry point sector: %d", c, int32_t(p.BE32(e + 8)));
            r.Line("    Cell %d first ILVU VOBU end sector: %d", c, int32_t(p.BE32(e + 12)));
            r.Line("    Cell %d start sector of last VOUB: %d", c, int32_t(p.BE32(e + 16)));
            r.Line("    Cell %d last sector of this cell: %d", c, int32_t(p.BE32(e + 20)));
        }
    } else {
        Absent(r, "    There is no PGC Playback Information Table",
               "      This is an ERROR as there are %d cells in this program.", cells);
    }

    const size_t posit = p.BE16(kGiCpositSa);
    r.Line("PGC: Memory offset of Cell Position Information Table: %d", int(posit));
    if (posit != 0) {
        for (unsigned c = 1; r.ok() && c <= cells; ++c) {
            const size_t e = posit + kPositEntry * (c - 1);
            r.Line("    VOB ID number %d of this Cell %d", p.BE16(e), p.U8(e + 3));
        }
    } else {
        Absent(r, "    There is no Cell Position Information Table",
               "      This is an ERROR as there are %d cells", cells);
    }
    return r.ok();
}

}  // namespace

int CKestro_PGCI::DetailsOfPGCI(unsigned short indent, unsigned char* data, unsigned long offset,
                                char* out, int room) {
    return DetailsOfPGCI(indent, data, offset, out, room, kTrustCaller);
}

int CKestro_PGCI::DetailsOfPGCI(unsigned short indent, unsigned char* data, unsigned long offset,
                                char* out, int room, unsigned long dataSize) {
    if (!out) return 0;
    PgcBytes pgc(data, offset, dataSize);
    PgcLines lines(indent, out, room);
    return WriteReport(*this, lines, pgc) ? lines.Count() : 0;
}
