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
    ReadBounded(hFile, bodySize, body);
    FileSeek(hFile, savedPos, 0);
}

void kestro::ReadBounded(int hFile, uint32_t want, std::vector<uint8_t>& into) {
    const uint32_t pos = uint32_t(FileTell(hFile)), size = uint32_t(FileSize(hFile));
    const uint32_t avail = size > pos ? size - pos : 0;
    into.assign(want < avail ? want : avail, 0);
    into.resize(into.empty() ? 0 : FileRead(hFile, into.data(), into.size()));
}

void LoadedTable::FreeBody() {
    body.clear();
    body.shrink_to_fit();
}
