// Fuzz target: the PGC codec on arbitrary bytes held by a caller.
//   - every 8-byte group rendered as a navigation command;
//   - the whole input reported as a PGC at a chosen offset, with a chosen
//     indent and room, through the sized report (which must never read past
//     the bytes it is given nor write past room + 3);
//   - the same bytes written out as PGC source keys (sized form).
// Input: 2 bytes offset, 1 byte indent (bit 4: also write the source), 2 bytes
// room, then the PGC bytes.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include "kestro_drive.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 5) return 0;
    const unsigned long offset = (unsigned long)((data[0] << 8) | data[1]) % 4096;
    const unsigned short indent = data[2] % 16;
    const bool write = (data[2] & 0x10) != 0;
    const int room = 1 + ((data[3] << 8) | data[4]);
    data += 5;
    size -= 5;

    CKestro_PGCI codec;
    for (size_t at = 0; at + 8 <= size; at += 8) {
        // Exactly the documented 53 characters, on the heap, so any overrun
        // of the text buffer is caught.
        std::vector<char> text(53, '\0');
        std::vector<unsigned char> cmd(data + at, data + at + 8);
        codec.DisAssembleCommand(cmd.data(), text.data());
        if (std::memchr(text.data(), '\0', text.size()) == nullptr) __builtin_trap();
    }

    // The codec swaps words of the caller's buffer: give it a private copy
    // of exactly the input's size.
    std::vector<unsigned char> pgc(data, data + size);
    std::vector<char> out(size_t(room) + indent + 3, '\0');
    codec.DetailsOfPGCI(indent, pgc.empty() ? nullptr : pgc.data(), offset, out.data(), room,
                        pgc.size());
    if (std::memchr(out.data(), '\0', out.size()) == nullptr) __builtin_trap();

    // Source writing costs a file flush: only when bit 4 of the indent byte
    // asks for it.
    if (write) {
        static kdrive::Scratch scratch("pgc");
        std::vector<unsigned char> again(data, data + size);
        codec.DisasmPGCI(scratch.Ini().c_str(), again.empty() ? nullptr : again.data(), offset,
                         "vts_pgc_", "vts_pgcit01", again.size());
        scratch.Clear();
    }
    return 0;
}
