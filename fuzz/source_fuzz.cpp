// Fuzz target: text as an INI source. Every table is assembled from it,
// sized and written; the side-file readers read it as binary; whole
// VIDEO_TS.IFO and VTS_01_0.IFO files are laid out from it; and the files so
// built are loaded, reported and disassembled again.
#include "kestro_drive.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static kdrive::Scratch scratch("src");
    static const int handle = kdrive::NextHandle(scratch.Path("probe"));
    scratch.Put("source.ini", data, size);

    kdrive::DriveSourceAndReload(scratch);

    scratch.Clear();
    if (kdrive::NextHandle(scratch.Path("probe")) != handle) __builtin_trap();
    return 0;
}
