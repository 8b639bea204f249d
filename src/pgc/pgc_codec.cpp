// The PGC codec object: construction, ownership of the assembly model, and
// the binary writer (size, start offsets and bytes of one assembled PGC).
#include <cstring>

#include "frame/detail.h"
#include "kestro/ini.h"
#include "kestro/pgc.h"
#include "pgc/pgc_header.h"
#include "pgc/pgc_model.h"

using namespace kestro;
using namespace kestro::pgc;

CKestro_PGCI::CKestro_PGCI() : m_(std::make_unique<Model>()) {}

CKestro_PGCI::~CKestro_PGCI() = default;

CKestro_PGCI::CKestro_PGCI(CKestro_PGCI&& other) noexcept
    : CBaseKestro(other), m_(std::move(other.m_)) {}

CKestro_PGCI& CKestro_PGCI::operator=(CKestro_PGCI&& other) noexcept {
    if (this != &other) {
        CBaseKestro::operator=(other);
        m_ = std::move(other.m_);
    }
    return *this;
}

CKestro_PGCI::Model& CKestro_PGCI::M() {
    if (!m_) m_ = std::make_unique<Model>();
    return *m_;
}

bool CKestro_PGCI::Disasm(const char* /*iniPath*/) {
    INIFlushFiles();
    return false;
}

// The parts follow one another without gaps in the order general
// information, command table, program map, C_PBIT, C_POSIT; an absent part
// keeps the start offset it has (0 after AsmPGCI cleared the image).
unsigned long CKestro_PGCI::GetPGCISize() {
    Model& m = M();
    unsigned long size = kGiSize;
    if (m.commandCount != 0) {
        PutBE16(&m.gi[kGiCmdtSa], uint32_t(kGiSize));
        size = kGiSize + kCmdtHeader + kCommandSize * m.commandCount;
    }
    if (m.pgmapLength != 0) {
        PutBE16(&m.gi[kGiPgmapSa], uint32_t(size));
        size += m.pgmapLength;
    }
    if (!m.pbit.empty()) {
        PutBE16(&m.gi[kGiCpbitSa], uint32_t(size));
        size += kPbitEntry * m.pbit.size();
    }
    if (!m.posit.empty()) {
        PutBE16(&m.gi[kGiCpositSa], uint32_t(size));
        size += kPositEntry * m.posit.size();
    }
    return size & 0xFFFF;
}

bool CKestro_PGCI::GetPGCData(unsigned char* data, unsigned long size) {
    Model& m = M();
    auto fail = [&]() {
        SetError("Internal error, data size exceeds buffer size");
        m.ReleaseCells();
        return false;
    };
    if (!data || size < kGiSize) return fail();
    std::memcpy(data, m.gi.data(), kGiSize);
    unsigned long pos = kGiSize;

    if (m.commandCount != 0) {
        if (size < kGiSize + kCmdtHeader) return fail();
        std::memcpy(data + kGiSize, m.cmdtHeader.data(), kCmdtHeader);
        unsigned long bytes = kCommandSize * m.commandCount;
        if (kGiSize + kCmdtHeader + bytes > size) return fail();
        std::memcpy(data + kGiSize + kCmdtHeader, m.commands.data(), bytes);
        pos = kGiSize + kCmdtHeader + bytes;
    }
    if (m.pgmapLength != 0) {
        if (pos + m.pgmapLength > size) return fail();
        std::memcpy(data + pos, m.pgmap.data(), m.pgmapLength);
        pos += m.pgmapLength;
    }
    if (!m.pbit.empty()) {
        if (pos + kPbitEntry * m.pbit.size() > size) return fail();
        for (const auto& e : m.pbit) {
            std::memcpy(data + pos, e.data(), kPbitEntry);
            pos += kPbitEntry;
        }
    }
    if (!m.posit.empty()) {
        if (pos + kPositEntry * m.posit.size() > size) return fail();
        for (const auto& e : m.posit) {
            std::memcpy(data + pos, e.data(), kPositEntry);
            pos += kPositEntry;
        }
    }
    m.ReleaseCells();
    return true;
}

pgc::CommandHeaderBytes::CommandHeaderBytes(uint8_t* data, size_t size, size_t start)
    : data_(data), size_(size) {
    const ByteView bytes(data, size);
    at_ = start + bytes.BE16(start + kGiCmdtSa);
    bytes.Copy(at_, saved_, sizeof saved_);
}

void pgc::CommandHeaderBytes::Restore() const {
    for (size_t b = 0; b < sizeof saved_ && at_ + b < size_; ++b) data_[at_ + b] = saved_[b];
}
