// A preloaded library (LD_PRELOAD) that makes writes fail, for the tests of
// what the kestro command does when a disk fills up or a device fails.
//
// It acts only on files below the folder named by KESTRO_FAULT_DIR (every
// file when that is "/"), and only as the environment asks:
//   KESTRO_FAULT_WRITE=N   the Nth write to such a file fails, the others go
//   KESTRO_FAULT_BYTES=N   writes succeed for N bytes in all, then fail (the
//                          write that crosses the limit is cut short first,
//                          as on a device that fills up)
//   KESTRO_FAULT_FSYNC=1   fsync and fdatasync of such files fail
//   KESTRO_FAULT_ERRNO=EIO the error given (default ENOSPC)
//   KESTRO_FAULT_LOADED=F  a file created when the library is loaded, so a
//                          test can tell that the command was reached (a
//                          statically linked command is not)
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

const char* g_dir = nullptr;
long g_failWrite = 0, g_byteLimit = -1;
bool g_failSync = false;
int g_errno = ENOSPC;
long g_writes = 0, g_bytes = 0;

__attribute__((constructor)) void Configure() {
    g_dir = std::getenv("KESTRO_FAULT_DIR");
    if (const char* v = std::getenv("KESTRO_FAULT_WRITE")) g_failWrite = std::atol(v);
    if (const char* v = std::getenv("KESTRO_FAULT_BYTES")) g_byteLimit = std::atol(v);
    if (const char* v = std::getenv("KESTRO_FAULT_FSYNC")) g_failSync = std::atoi(v) != 0;
    if (const char* v = std::getenv("KESTRO_FAULT_ERRNO"))
        g_errno = std::strcmp(v, "EIO") == 0 ? EIO : ENOSPC;
    if (const char* v = std::getenv("KESTRO_FAULT_LOADED")) {
        int fd = ::open(v, O_WRONLY | O_CREAT | O_TRUNC, 0644);
        if (fd >= 0) ::close(fd);
    }
}

// Whether `fd` is a regular file below the chosen folder.
bool Subject(int fd) {
    if (!g_dir || !*g_dir) return false;
    char link[64], path[4096];
    std::snprintf(link, sizeof link, "/proc/self/fd/%d", fd);
    ssize_t n = ::readlink(link, path, sizeof path - 1);
    if (n <= 0) return false;
    path[n] = '\0';
    if (path[0] != '/') return false;  // pipes, sockets, terminals
    const size_t len = std::strlen(g_dir);
    if (std::strcmp(g_dir, "/") == 0)  // every file, memory-backed ones included, but no devices
        return std::strncmp(path, "/proc/", 6) != 0 &&
               (std::strncmp(path, "/dev/", 5) != 0 || std::strncmp(path, "/dev/shm/", 9) == 0);
    return std::strncmp(path, g_dir, len) == 0 && (path[len] == '/' || path[len] == '\0');
}

// How many of `count` bytes a write to a subject file may write now: -1
// when it must fail outright.
long Allowed(size_t count) {
    ++g_writes;
    if (g_failWrite > 0 && g_writes == g_failWrite) return -1;
    if (g_byteLimit < 0) return long(count);
    long left = g_byteLimit - g_bytes;
    if (left <= 0) return -1;
    return long(count) < left ? long(count) : left;
}

template <class F>
F Next(const char* name) {
    return reinterpret_cast<F>(::dlsym(RTLD_NEXT, name));
}

// A sync of a subject file fails when asked to; others go to `real`.
int Sync(int (*real)(int), int fd) {
    if (g_failSync && Subject(fd)) {
        errno = EIO;
        return -1;
    }
    return real(fd);
}

// A write of `count` bytes to `fd` through `real(n)`: failed, cut short or
// passed on as the faults ask for a subject file.
template <class Write>
ssize_t Guarded(int fd, size_t count, Write real) {
    if (count == 0 || !Subject(fd)) return real(count);
    const long n = Allowed(count);
    if (n < 0) {
        errno = g_errno;
        return -1;
    }
    const ssize_t done = real(size_t(n));
    if (done > 0) g_bytes += done;
    return done;
}

}  // namespace

extern "C" {

ssize_t write(int fd, const void* buf, size_t count) {
    static auto real = Next<ssize_t (*)(int, const void*, size_t)>("write");
    return Guarded(fd, count, [&](size_t n) { return real(fd, buf, n); });
}

ssize_t pwrite(int fd, const void* buf, size_t count, off_t offset) {
    static auto real = Next<ssize_t (*)(int, const void*, size_t, off_t)>("pwrite");
    return Guarded(fd, count, [&](size_t n) { return real(fd, buf, n, offset); });
}

ssize_t writev(int fd, const struct iovec* iov, int iovcnt) {
    static auto real = Next<ssize_t (*)(int, const struct iovec*, int)>("writev");
    if (!Subject(fd)) return real(fd, iov, iovcnt);
    // Gathered writes are failed whole or passed whole.
    size_t count = 0;
    for (int i = 0; i < iovcnt; ++i) count += iov[i].iov_len;
    if (count != 0 && Allowed(count) < long(count)) {
        errno = g_errno;
        return -1;
    }
    ssize_t done = real(fd, iov, iovcnt);
    if (done > 0) g_bytes += done;
    return done;
}

int fsync(int fd) {
    static auto real = Next<int (*)(int)>("fsync");
    return Sync(real, fd);
}

int fdatasync(int fd) {
    static auto real = Next<int (*)(int)>("fdatasync");
    return Sync(real, fd);
}

}  // extern "C"
