// Fuzz target: bytes as a VTS_nn_0.IFO file. Loaded, every table reported
// (with ample room, then with a small room taken from the input's last byte)
// and disassembled; the source just written is assembled again.
#include "kestro_drive.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static kdrive::Scratch scratch("vts");
    kdrive::FuzzIfoInput(scratch, false, data, size);
    return 0;
}
