// Preloaded (LD_PRELOAD) into kestro, fails writes to files below KESTRO_FAULT_DIR ("/": any) as
// a full or failing disk does: KESTRO_FAULT_WRITE=N fails the Nth write; KESTRO_FAULT_BYTES=N
// lets N bytes through in all, cutting short the write that crosses the limit; KESTRO_FAULT_FSYNC=1
// fails every sync; KESTRO_FAULT_ERRNO=EIO gives EIO (else ENOSPC).
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

const char* Env(const char* name) { return std::getenv(name) ? std::getenv(name) : ""; }

const char* const g_dir = Env("KESTRO_FAULT_DIR");  // null until this library is initialised
const long g_failWrite = std::atol(Env("KESTRO_FAULT_WRITE"));
const long g_byteLimit = *Env("KESTRO_FAULT_BYTES") ? std::atol(Env("KESTRO_FAULT_BYTES")) : -1;
const bool g_failSync = std::atol(Env("KESTRO_FAULT_FSYNC")) != 0;
const int g_errno = std::strcmp(Env("KESTRO_FAULT_ERRNO"), "EIO") == 0 ? EIO : ENOSPC;
long g_writes = 0, g_bytes = 0;

[[maybe_unused]] const int g_loaded =  // made on loading: a statically linked kestro never does
    *Env("KESTRO_FAULT_LOADED") ? ::close(::creat(Env("KESTRO_FAULT_LOADED"), 0644)) : 0;

// Whether `fd` is a file below the chosen folder ("/": any file but devices, /proc and pipes).
bool Subject(int fd) {
    char link[64], path[4096];
    std::snprintf(link, sizeof link, "/proc/self/fd/%d", fd);
    const ssize_t n = g_dir && *g_dir ? ::readlink(link, path, sizeof path - 1) : -1;
    if (n <= 0 || (path[n] = '\0', path[0] != '/')) return false;
    if (std::strcmp(g_dir, "/") == 0)
        return std::strncmp(path, "/proc/", 6) != 0 &&
               (std::strncmp(path, "/dev/", 5) != 0 || std::strncmp(path, "/dev/shm/", 9) == 0);
    const size_t len = std::strlen(g_dir);
    return std::strncmp(path, g_dir, len) == 0 && (path[len] == '/' || path[len] == '\0');
}

// A write of `count` bytes to `fd` through `real(n)`: for a subject file failed, cut short to
// what the byte limit leaves (unless `whole`, as for gathered writes: then failed) or passed on.
template <class Write>
ssize_t Guarded(int fd, size_t count, bool whole, Write real) {
    if (count == 0 || !Subject(fd)) return real(count);
    const long left = g_byteLimit < 0 ? long(count) : g_byteLimit - g_bytes;
    const size_t n = left <= 0 ? 0 : size_t(left) < count ? size_t(left) : count;
    if (++g_writes == g_failWrite || n == 0 || (whole && n < count)) return errno = g_errno, -1;
    const ssize_t done = real(n);
    if (done > 0) g_bytes += done;
    return done;
}

}  // namespace

extern "C" {

ssize_t write(int fd, const void* buf, size_t count) {
    static auto real = reinterpret_cast<decltype(&write)>(::dlsym(RTLD_NEXT, "write"));
    return Guarded(fd, count, false, [&](size_t n) { return real(fd, buf, n); });
}

ssize_t writev(int fd, const struct iovec* iov, int iovcnt) {
    static auto real = reinterpret_cast<decltype(&writev)>(::dlsym(RTLD_NEXT, "writev"));
    size_t count = 0;
    for (int i = 0; i < iovcnt; ++i) count += iov[i].iov_len;
    return Guarded(fd, count, true, [&](size_t) { return real(fd, iov, iovcnt); });
}

int fsync(int fd) {
    static auto real = reinterpret_cast<decltype(&fsync)>(::dlsym(RTLD_NEXT, "fsync"));
    return g_failSync && Subject(fd) ? (errno = EIO, -1) : real(fd);
}

}  // extern "C"
