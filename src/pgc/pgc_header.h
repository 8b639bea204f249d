// What a holder of binary PGCs needs to know about the codec's report: it
// swaps the command-table header of the PGC it reports, in place.
#ifndef KESTRO_SRC_PGC_PGC_HEADER_H
#define KESTRO_SRC_PGC_PGC_HEADER_H

#include <cstddef>
#include <cstdint>

namespace kestro {
namespace pgc {

// The eight bytes of the command-table header of the PGC at data + start
// (the bytes the report turns into little-endian words), kept when made and
// put back by Restore, so that a PGC reported twice is swapped once. Only
// bytes inside the size bytes at data are read or written.
class CommandHeaderBytes {
public:
    CommandHeaderBytes(uint8_t* data, size_t size, size_t start);
    void Restore() const;

private:
    uint8_t* data_;
    size_t size_;
    size_t at_;
    uint8_t saved_[8];
};

}  // namespace pgc
}  // namespace kestro

#endif
