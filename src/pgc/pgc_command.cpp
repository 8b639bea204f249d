// Text form of one 8-byte DVD-Video navigation command. Only the link and
// jump/call families are decoded, far enough to name their target; other
// commands get a fixed text.
#include <cstring>

#include "frame/detail.h"
#include "kestro/pgc.h"

using namespace kestro;

namespace {

// Every text fits in 52 characters; callers give at least 53.
constexpr size_t kCommandText = 53;

const char* MenuName(uint8_t menu) {
    switch (menu) {
    case 3: return "Root Menu";
    case 4: return "Sub-picture Menu";
    case 5: return "Audio Menu";
    case 6: return "Angle Menu";
    case 7: return "PTT Menu";
    default: return "";
    }
}

// Appends to what out already holds, bounded by the caller's minimum room.
int Append(char* out, const char* fmt, ...)
#if defined(__GNUC__)
    __attribute__((format(printf, 2, 3)))
#endif
    ;
int Append(char* out, const char* fmt, ...) {
    size_t used = std::strlen(out);
    if (used + 1 >= kCommandText) return int(used);
    va_list ap;
    va_start(ap, fmt);
    int n = FormatV(out + used, kCommandText - used, fmt, ap);
    va_end(ap);
    return int(used) + n;
}

int Put(char* out, const char* text) { return Format(out, kCommandText, "%s", text); }

int Link(const uint8_t* c, char* out) {
    if (c[1] & 0xF0) return Put(out, " CmpLnk ");
    Put(out, " Lnk ");
    const unsigned highlight = c[6] >> 2;
    switch (c[1] & 0x0F) {
    case 1: return Append(out, " SIns (additional parameters not decoded)");
    case 4: return Append(out, " to PGC %d", GetBE16(c + 6) & 0x3FFF);
    case 5: {
        int ptt = GetBE16(c + 6) & 0x3FF;
        if (c[6] < 4) return Append(out, " to PTT %d ", ptt);
        return Append(out, " to PTT %d Highlight: %d", ptt, highlight);
    }
    case 6:
        if (c[6] < 4) return Append(out, " to Program %d this PGC", c[7] & 0x7F);
        return Append(out, " to Program %d this PGC, Highlight: %d", c[7] & 0x7F, highlight);
    case 7:
        if (c[6] < 4) return Append(out, " to Cell %d this PGC", c[7]);
        return Append(out, " to Cell %d this PGC, Highlight: %d", c[7], highlight);
    default: return int(std::strlen(out));
    }
}

// Jumps and calls into the system space replace the " Jmp " written before.
int SystemSpace(const uint8_t* c, char* out, bool call) {
    const unsigned domain = c[5] >> 6;
    const char* menu = MenuName(c[5] & 0x0F);
    const int pgcn = GetBE16(c + 2) & 0x7FFF;
    if (!call) {
        switch (domain) {
        case 0: return Put(out, " JmpInSystemSpace To First Play PGC ");
        case 1: Put(out, " JmpInSystemSpace To VMGM Menu "); return Append(out, "%s", menu);
        case 2:
            Format(out, kCommandText, " JmpInSystemSpace To VTS %d TTN %d", c[4], c[3]);
            return Append(out, "%s", menu);
        default: return Format(out, kCommandText, " JmpInSystemSpace To VMGM PGC number %d ", pgcn);
        }
    }
    switch (domain) {
    case 0: return Put(out, " CallInSystemSpace First Play ");
    case 1: return Put(out, " CallInSystemSpace VMGM Title Menu");
    case 2: Put(out, " CallInSystemSpace VTSM "); return Append(out, "%s", menu);
    default: return Format(out, kCommandText, " CallInSystemSpace VMGM_DOM PGC number %d ", pgcn);
    }
}

int Jump(const uint8_t* c, char* out) {
    if (c[1] & 0xF0) return Put(out, " CmpJmp ");
    Put(out, " Jmp ");
    switch (c[1] & 0x0F) {
    case 1: return Append(out, "to Exit");
    case 2: return Append(out, "to VTS %d", c[5]);
    case 3: return Append(out, "to This VTS Title %d", c[5]);
    case 5:
        // The two low bits of byte 2 are shifted by 10 on purpose: this is
        // how the part-of-title number has always been shown.
        return Append(out, "to This VTS Title %d Part of Title %d", c[5],
                      ((c[2] & 0x03) << 10) | c[3]);
    case 6: return SystemSpace(c, out, false);
    case 8: return SystemSpace(c, out, true);
    default: return int(std::strlen(out));
    }
}

}  // namespace

int CKestro_PGCI::DisAssembleCommand(const unsigned char* command, char* out) {
    const uint8_t* c = command;
    switch (c[0] & 0xF0) {
    case 0x00: {
        static const uint8_t kNop[8] = {};
        // A non-zero command of this family is never decoded further.
        return Put(out, std::memcmp(c, kNop, 8) == 0 ? " No Operation" : " Illegal command");
    }
    case 0x20: return Link(c, out);
    case 0x30: return Jump(c, out);
    default: return Put(out, " Unsupported by Zintara at this time");
    }
}
