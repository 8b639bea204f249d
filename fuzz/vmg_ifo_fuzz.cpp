// Fuzz target: bytes as a VIDEO_TS.IFO file. Loaded, every table reported
// (with ample room, then with a small room taken from the input's last byte)
// and disassembled; the source just written is assembled again.
#include "kestro_drive.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static kdrive::Scratch scratch("vmg");
    kdrive::FuzzIfoInput(scratch, true, data, size);
    return 0;
}
