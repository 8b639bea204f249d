// Fuzz target: bytes as a VTS_nn_0.IFO file. Loaded, every table reported in the room the
// input's last bytes pick and disassembled, the source just written assembled again
// (fuzz_input.h says what is left out and why).
#include "fuzz_input.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static kdrive::Scratch scratch("vts");
    kfuzz::FuzzIfoInput(scratch, false, data, size);
    return 0;
}
