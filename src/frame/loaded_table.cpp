// The shared loader of tables that begin with the 8-byte header (count,
// reserved, end address) and the read-back of their body.
#include "frame/detail.h"
#include "kestro/frame.h"

using namespace kestro;

int LoadedTable::LoadTableHeader(int h, unsigned long startSector) {
    if (startSector == 0) return 0;
    FileSeek(h, static_cast<unsigned long>(uint32_t(startSector * kSector)), 0);
    uint8_t hdr[8] = {};
    FileRead(h, hdr, sizeof hdr);
    count = GetBE16(hdr);
    std::memcpy(&reserved, hdr + 2, 2);
    endAddress = GetBE32(hdr + 4);
    hFile = static_cast<uint16_t>(h);
    bodyPos = static_cast<uint32_t>(FileTell(h));
    bodySize = endAddress;
    return 1;
}

void LoadedTable::ReadBody() {
    savedPos = static_cast<uint32_t>(FileTell(hFile));
    FileSeek(hFile, bodyPos, 0);
    // Bounded by what the file holds: a damaged end address can announce
    // gigabytes; the view reads zeros beyond what was really read.
    uint32_t size = static_cast<uint32_t>(FileSize(hFile));
    uint32_t avail = size > bodyPos ? size - bodyPos : 0;
    uint32_t want = bodySize < avail ? bodySize : avail;
    body.assign(want, 0);
    unsigned long got = want ? FileRead(hFile, body.data(), want) : 0;
    body.resize(got);
    FileSeek(hFile, savedPos, 0);
}

void LoadedTable::FreeBody() {
    body.clear();
    body.shrink_to_fit();
}
