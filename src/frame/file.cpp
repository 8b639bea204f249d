// The library's file layer: a module-wide table of 512 open files. Every
// binary read and write of the library goes through these functions.
#include <dirent.h>
#include <fcntl.h>
#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

#include "frame/detail.h"
#include "kestro/frame.h"
#include "kestro/ini.h"

namespace kestro {
namespace {

struct FileSlot {
    uint32_t inUse;
    int fd;
};

FileSlot g_table[kFileSlots];
bool g_tableReady = false;
uint32_t g_lastError = 0;
bool g_traceEnabled = false;
std::string g_traceFilePath;

// The table is cleared on the first use of FileOpen, FileCreate, FileClose
// or FileExists.
void EnsureTable() {
    if (g_tableReady) return;
    for (auto& s : g_table) {
        s.inUse = 0;
        s.fd = -1;
    }
    g_tableReady = true;
}

int FreeSlot() {
    for (int i = 0; i < kFileSlots; ++i)
        if (!g_table[i].inUse) return i;
    return -1;
}

std::string Normalise(const char* path) {
    std::string p = path ? path : "";
    for (auto& c : p)
        if (c == '\\') c = '/';
    return p;
}

// Finds the last component of a path case-insensitively in its folder when
// the path does not exist as written (discs carry VTS_01_1.VOB while the
// format's names are lower case).
std::string Resolve(const char* path) {
    std::string p = Normalise(path);
    struct stat st;
    if (p.empty() || ::stat(p.c_str(), &st) == 0) return p;
    size_t slash = p.rfind('/');
    std::string dir = slash == std::string::npos ? "." : (slash == 0 ? "/" : p.substr(0, slash));
    std::string name = slash == std::string::npos ? p : p.substr(slash + 1);
    if (name.empty()) return p;
    DIR* d = ::opendir(dir.c_str());
    if (!d) return p;
    std::string found;
    while (dirent* e = ::readdir(d)) {
        if (::strcasecmp(e->d_name, name.c_str()) == 0) {
            found = e->d_name;
            break;
        }
    }
    ::closedir(d);
    if (found.empty()) return p;
    return slash == std::string::npos ? found : p.substr(0, slash + 1) + found;
}

// False (the error EMFILE) when every slot is taken.
bool HaveSlot() {
    if (FreeSlot() >= 0) return true;
    g_lastError = uint32_t(EMFILE);
    return false;
}

int TakeSlot(int fd) {
    int slot = FreeSlot();
    g_table[slot].fd = fd;
    g_table[slot].inUse = 1;
    return slot + 1;
}

}  // namespace

void ResolvePath(const char* path, char* out, int outSize) {
    if (!out || outSize <= 0) return;
    std::string r = Resolve(path);
    std::snprintf(out, size_t(outSize), "%s", r.c_str());
}

int FileOpen(const char* path, unsigned int flags) {
    EnsureTable();
    if (!HaveSlot()) return -1;
    int access = (flags & 2) ? O_RDWR : (flags & 1) ? O_WRONLY : O_RDONLY;
    std::string p = Resolve(path);
    int fd = ::open(p.c_str(), access | O_CLOEXEC);
    if (fd < 0) return -1;
    struct stat st;
    if (::fstat(fd, &st) != 0 || S_ISDIR(st.st_mode)) {
        ::close(fd);
        return -1;
    }
    return TakeSlot(fd);
}

int FileCreate(const char* path, unsigned int flags) {
    TraceFileCreation(path);
    EnsureTable();
    if (!HaveSlot()) return -1;
    bool rd = flags & 0x100, wr = flags & 0x80;
    int access = (rd && !wr) ? O_RDONLY : (wr && !rd) ? O_WRONLY : O_RDWR;
    std::string p = Normalise(path);
    // A create through the library invalidates any cached INI copy too.
    INIForgetFile(p.c_str());
    int fd = ::open(p.c_str(), access | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    if (fd < 0) return -1;
    return TakeSlot(fd);
}

int FileClose(int hFile) {
    EnsureTable();
    if (hFile < 1 || hFile > kFileSlots) return 0;
    FileSlot& s = g_table[hFile - 1];
    if (s.inUse) {
        ::close(s.fd);
        s.fd = -1;
        s.inUse = 0;
    }
    return 0;
}

// Handles are trusted by the format's callers; a handle outside the table
// still must not index outside it, so it behaves as a closed file.
static int FdOf(int hFile) {
    if (hFile < 1 || hFile > kFileSlots || !g_tableReady) return -1;
    const FileSlot& s = g_table[hFile - 1];
    return s.inUse ? s.fd : -1;
}

unsigned long FileRead(int hFile, void* buf, unsigned long count) {
    int fd = FdOf(hFile);
    unsigned long total = 0;
    auto* p = static_cast<uint8_t*>(buf);
    while (total < count) {
        ssize_t n = ::read(fd, p + total, count - total);
        if (n < 0) {
            if (errno == EINTR) continue;
            g_lastError = uint32_t(errno);
            return 0;
        }
        if (n == 0) break;
        total += static_cast<unsigned long>(n);
    }
    return total;
}

unsigned long FileWrite(int hFile, const void* buf, unsigned long count) {
    int fd = FdOf(hFile);
    unsigned long total = 0;
    auto* p = static_cast<const uint8_t*>(buf);
    while (total < count) {
        ssize_t n = ::write(fd, p + total, count - total);
        if (n < 0) {
            if (errno == EINTR) continue;
            g_lastError = uint32_t(errno);
            return 0;
        }
        if (n == 0) {
            g_lastError = uint32_t(EIO);
            return 0;
        }
        total += static_cast<unsigned long>(n);
    }
    return count;
}

unsigned long FileSeek(int hFile, unsigned long offset, int origin) {
    int whence = origin == 1 ? SEEK_CUR : origin == 2 ? SEEK_END : SEEK_SET;
    // The distance is an unsigned 32-bit value: it never moves backwards.
    off_t r = ::lseek(FdOf(hFile), off_t(uint32_t(offset)), whence);
    if (r < 0) {
        g_lastError = uint32_t(errno);
        return 0xFFFFFFFFul;
    }
    return uint32_t(r);
}

unsigned long FileTell(int hFile) {
    off_t r = ::lseek(FdOf(hFile), 0, SEEK_CUR);
    return r < 0 ? 0xFFFFFFFFul : uint32_t(r);
}

unsigned long FileSize(int hFile) {
    struct stat st;
    if (::fstat(FdOf(hFile), &st) != 0) return 0;
    return uint32_t(st.st_size);
}

int FileExists(const char* path, unsigned int mode) {
    EnsureTable();
    std::string p = Resolve(path);
    struct stat st;
    if (::stat(p.c_str(), &st) != 0) return -1;
    mode &= 0xFFFF;
    int want = 0;
    if (mode & 2) want |= W_OK;
    if (mode & 4) want |= R_OK;
    if (want == 0) return 0;
    // A read-only file fails the write modes, as the attribute query says.
    if ((want & W_OK) && !(st.st_mode & (S_IWUSR | S_IWGRP | S_IWOTH))) return -1;
    return ::access(p.c_str(), want) == 0 ? 0 : -1;
}

bool FileDelete(const char* path) {
    std::string p = Normalise(path);
    INIForgetFile(p.c_str());
    if (::unlink(p.c_str()) == 0) return true;
    return errno == ENOENT;
}

uint32_t LastFileError() { return g_lastError; }

void SetFileCreationTrace(bool enabled, const char* traceFilePath) {
    g_traceEnabled = enabled;
    g_traceFilePath = traceFilePath ? traceFilePath : "";
}

void TraceFileCreation(const char* path) {
    if (!g_traceEnabled) return;
    int h = FileOpen(g_traceFilePath.c_str(), kOpenReadWrite);
    if (h == -1) return;
    FileSeek(h, FileSize(h), 0);
    char line[512];
    int n = Format(line, sizeof line, "%s\r", path ? path : "");
    FileWrite(h, line, static_cast<unsigned long>(n));
    FileClose(h);
}

void PadToSector(int hFile) {
    static const uint8_t zeros[kSector] = {};
    unsigned long p = FileTell(hFile);
    if (p == 0xFFFFFFFFul) return;
    unsigned long rest = p % kSector;
    if (rest) FileWrite(hFile, zeros, kSector - rest);
}

void WriteSectorPadded(int hFile, const void* data, size_t n) {
    if (n) FileWrite(hFile, data, static_cast<unsigned long>(n));
    PadToSector(hFile);
}

}  // namespace kestro
