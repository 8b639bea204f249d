// Fuzz target: bytes as a VIDEO_TS.IFO file. Loaded, every table reported
// (once with ample room, once with the little room the input asks for) and
// disassembled; then the source just written is assembled again.
// Input: the file's bytes; the last byte also sets the small report room.
#include "kestro_drive.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static kdrive::Scratch scratch("vmg");
    static const int handle = kdrive::NextHandle(scratch.Path("probe"));
    const std::string ifo = scratch.Path("VIDEO_TS.IFO");
    scratch.Put("VIDEO_TS.IFO", data, size);

    kdrive::LoadedRun run;
    kdrive::DriveVmgFile(scratch, ifo, run);
    // The source just written assembled again, while it is small enough to
    // keep the target fast (large ones are the source target's business).
    if (kdrive::FileBytes(scratch.Ini()) < (64 << 10)) kdrive::DriveSource(scratch);
    // A small report room taken from the input: reports must stop cleanly.
    scratch.Put("VIDEO_TS.IFO", data, size);
    run.reportRoom = size > 20 ? 1 + data[size - 1] * 4 : 16;
    run.disasm = false;
    kdrive::DriveVmgFile(scratch, ifo, run);

    scratch.Clear();
    if (kdrive::NextHandle(scratch.Path("probe")) != handle) __builtin_trap();
    return 0;
}
