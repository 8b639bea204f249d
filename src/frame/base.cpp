// CBaseKestro: error text, stored handle and the default virtual behaviour.
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "frame/detail.h"
#include "kestro/frame.h"

CBaseKestro::CBaseKestro() : m_szError{}, m_hFile(-1) {}

CBaseKestro::~CBaseKestro() = default;

int CBaseKestro::Load(int) { return 0; }
bool CBaseKestro::Details(char*, int) { return false; }
bool CBaseKestro::Disasm(const char*) { return false; }
bool CBaseKestro::Asm(const char*) { return false; }
bool CBaseKestro::Write(int) { return false; }
void CBaseKestro::Get(unsigned long*, unsigned long*) {}

unsigned long CBaseKestro::OpenKestroFile(const char* path) {
    m_hFile = kestro::FileOpen(path, kestro::kOpenReadWrite);
    return static_cast<unsigned long>(static_cast<long>(m_hFile));
}

unsigned long CBaseKestro::CreateKestroFile(const char* path) {
    const int h = kestro::FileCreate(path, kestro::kCreateOwnerRW);
    return static_cast<unsigned long>(static_cast<long>(h));
}

void CBaseKestro::CloseKestroFile(unsigned long hFile) {
    kestro::FileClose(static_cast<int>(hFile));
}

void CBaseKestro::GetErrorMessage(char* buf, int len) {
    if (!buf || len < 1) return;
    std::memset(buf, 0, size_t(len));
    size_t n = std::strlen(m_szError);
    // Strict test: only a text longer than len is cut; one of exactly len
    // characters is copied with its terminator.
    if (n > size_t(len))
        std::memcpy(buf, m_szError, size_t(len) - 1);
    else
        std::memcpy(buf, m_szError, n + 1);
}

void CBaseKestro::SetError(const char* fmt, ...) {
    va_list ap;
    va_start(ap, fmt);
    kestro::FormatV(m_szError, sizeof m_szError, fmt, ap);
    va_end(ap);
}
