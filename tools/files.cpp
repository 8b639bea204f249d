#include "files.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>

#include "kestro/frame.h"
#include "kestro/ini.h"

namespace kestro_tool {

namespace {

std::string Upper(std::string s) {
    for (char& c : s) c = char(std::toupper(static_cast<unsigned char>(c)));
    return s;
}

// Temporary names beside an output carry the process number, so that a
// later run can tell the leftovers of a run that was killed (which no
// cleanup reaches) from those of a run still going: ".NAME.kestro-PID-".
std::string SiblingPrefix(const fs::path& final) {
    return "." + final.filename().string() + ".kestro-";
}

std::string SiblingPattern(const fs::path& final, const char* kind) {
    return (final.parent_path() /
            (SiblingPrefix(final) + std::to_string(::getpid()) + "-" + kind + "XXXXXX"))
        .string();
}

// A new empty file with a temporary name beside `final`.
fs::path MakeSiblingFile(const fs::path& final, const char* kind) {
    std::string pattern = SiblingPattern(final, kind);
    std::vector<char> buf(pattern.begin(), pattern.end());
    buf.push_back('\0');
    int fd = ::mkstemp(buf.data());
    if (fd < 0) throw ToolError("cannot write " + final.string() + ": " + SystemReason(errno));
    ::close(fd);
    return fs::path(buf.data());
}

// Whether `pid` names a process that has ended.
bool Ended(long pid) { return pid > 0 && ::kill(pid_t(pid), 0) != 0 && errno == ESRCH; }

// The process number in a temporary name "<prefix><PID>-...", or 0.
long PidAfter(const std::string& name, const std::string& prefix) {
    if (name.compare(0, prefix.size(), prefix) != 0) return 0;
    const char* digits = name.c_str() + prefix.size();
    char* end = nullptr;
    const long pid = std::strtol(digits, &end, 10);
    return end != digits && *end == '-' ? pid : 0;
}

// Removes what killed runs left in `dir` under names that start with
// `prefix` and the number of a process that no longer exists. A folder
// replaced with --force is moved aside as "<staging>/old" only for the
// moment between two renames where the file system cannot swap folders in
// one step: a run killed there left `final` missing, and the old folder
// goes back in its place rather than away.
void RemoveStale(const fs::path& dir, const std::string& prefix, const fs::path& final) {
    std::error_code ec;
    for (auto& e : fs::directory_iterator(dir, ec)) {
        const fs::path stale = e.path();
        if (!Ended(PidAfter(stale.filename().string(), prefix))) continue;
        std::error_code ignored;
        if (!final.empty() && !fs::exists(fs::symlink_status(final, ignored)) &&
            fs::is_directory(fs::symlink_status(stale / "old", ignored)))
            fs::rename(stale / "old", final, ignored);
        fs::remove_all(stale, ignored);
    }
}

}  // namespace

void RemoveStaleSiblings(const fs::path& final) {
    RemoveStale(final.parent_path(), SiblingPrefix(final), final);
}

namespace {

fs::path MakeTempDir(const std::string& pattern) {
    std::vector<char> buf(pattern.begin(), pattern.end());
    buf.push_back('\0');
    if (!::mkdtemp(buf.data()))
        throw ToolError("cannot create a working folder " + pattern + ": " + SystemReason(errno));
    return fs::path(buf.data());
}

}  // namespace

namespace {

// A working folder "kestro-PID-XXXXXX" in `dir`, after removing those of
// runs that were killed (no cleanup of theirs ran).
fs::path MakeWorkingDir(const fs::path& dir) {
    RemoveStale(dir, "kestro-", fs::path());
    return MakeTempDir((dir / ("kestro-" + std::to_string(::getpid()) + "-XXXXXX")).string());
}

}  // namespace

PrivateDir::PrivateDir() : path_(MakeWorkingDir(fs::temp_directory_path())) {}

PrivateDir::PrivateDir(InMemory) {
    const char* shm = "/dev/shm";
    std::error_code ec;
    if (fs::is_directory(shm, ec) && ::access(shm, W_OK | X_OK) == 0) {
        try {
            path_ = MakeWorkingDir(shm);
            return;
        } catch (const ToolError&) {
            // full or refused: the temporary folder instead
        }
    }
    path_ = MakeWorkingDir(fs::temp_directory_path());
}

PrivateDir::PrivateDir(const fs::path& besides) {
    RemoveStaleSiblings(besides);
    std::string pattern = SiblingPattern(besides, "");
    std::vector<char> buf(pattern.begin(), pattern.end());
    buf.push_back('\0');
    if (!::mkdtemp(buf.data()))
        throw ToolError("cannot write " + besides.string() + ": " + SystemReason(errno));
    path_ = buf.data();
}

PrivateDir::~PrivateDir() {
    if (path_.empty()) return;
    std::error_code ec;
    fs::remove_all(path_, ec);
}

StagedFile::StagedFile(const fs::path& finalPath, bool force) : final_(Absolute(finalPath)) {
    std::error_code ec;
    if (!fs::is_directory(final_.parent_path(), ec))
        throw ToolError(final_.parent_path().string() + ": no such folder");
    if (fs::exists(fs::symlink_status(final_, ec)) && !force)
        throw ToolError(final_.string() + " exists (use --force to replace it)");
    RemoveStaleSiblings(final_);
    temp_ = MakeSiblingFile(final_, "");
}

StagedFile::StagedFile(const fs::path& finalPath, bool force, Removal)
    : final_(Absolute(finalPath)) {
    std::error_code ec;
    if (fs::exists(fs::symlink_status(final_, ec)) && !force)
        throw ToolError(final_.string() + " exists (use --force to replace it)");
}

StagedFile::~StagedFile() {
    if (committed_ || temp_.empty()) return;
    std::error_code ec;
    fs::remove(temp_, ec);
}

void StagedFile::Write(const std::vector<unsigned char>& bytes) {
    WriteFileChecked(temp_, bytes, final_);
}

namespace {

// A hard link to an existing output, kept until the new one is in place.
fs::path KeepOld(const fs::path& final) {
    fs::path kept = MakeSiblingFile(final, "old");
    // link() does not replace: take the name away first, then link.
    ::unlink(kept.c_str());
    if (::link(final.c_str(), kept.c_str()) != 0)
        throw ToolError("cannot write " + final.string() + ": " + SystemReason(errno));
    return kept;
}

}  // namespace

void CommitAll(const std::vector<StagedFile*>& files) {
    struct Step {
        StagedFile* file;
        fs::path kept;  // the old output's second name, or empty
        bool renamed = false;
    };
    std::vector<Step> steps;
    auto undo = [&]() {
        for (auto it = steps.rbegin(); it != steps.rend(); ++it) {
            if (it->renamed) {
                if (it->kept.empty())
                    ::unlink(it->file->final_.c_str());
                else
                    ::rename(it->kept.c_str(), it->file->final_.c_str());
            } else if (!it->kept.empty()) {
                ::unlink(it->kept.c_str());
            }
        }
    };
    const mode_t mask = ::umask(0);
    ::umask(mask);
    for (StagedFile* f : files) {
        if (!f) continue;
        Step step{f, {}};
        struct stat st;
        const bool exists = ::lstat(f->final_.c_str(), &st) == 0;
        // Staged files are created private (mode 0600): a replaced file
        // keeps its mode, a new one gets the usual mode.
        if (!f->temp_.empty())
            ::chmod(f->temp_.c_str(),
                    exists && S_ISREG(st.st_mode) ? st.st_mode & 07777 : 0666 & ~mask);
        try {
            // Any existing name but a folder is kept (link() links a
            // symbolic link itself), so that undoing puts it back.
            if (exists && !S_ISDIR(st.st_mode)) step.kept = KeepOld(f->final_);
        } catch (...) {
            undo();
            throw;
        }
        steps.push_back(step);
    }
    for (auto& step : steps) {
        if (step.file->temp_.empty()) {  // a removal
            if (!step.kept.empty() && ::unlink(step.file->final_.c_str()) != 0) {
                const int error = errno;
                undo();
                throw ToolError("cannot remove " + step.file->final_.string() + ": " +
                                SystemReason(error));
            }
            step.renamed = !step.kept.empty();
            continue;
        }
        if (::rename(step.file->temp_.c_str(), step.file->final_.c_str()) != 0) {
            const int error = errno;
            undo();
            throw ToolError("cannot rename into " + step.file->final_.string() + ": " +
                            SystemReason(error));
        }
        step.renamed = true;
    }
    std::vector<fs::path> folders;
    for (auto& step : steps) {
        step.file->committed_ = true;
        if (!step.kept.empty()) ::unlink(step.kept.c_str());
        const fs::path folder = step.file->final_.parent_path();
        if (std::find(folders.begin(), folders.end(), folder) == folders.end())
            folders.push_back(folder);
    }
    for (const auto& folder : folders) SyncFolder(folder);
}

std::string SystemReason(int error) { return std::strerror(error); }

namespace {

// Writes all of `size` bytes, resuming after short writes; false with errno
// set on failure (a write that writes nothing counts as a full device).
bool WriteAll(int fd, const unsigned char* p, size_t size) {
    while (size > 0) {
        ssize_t n = ::write(fd, p, size);
        if (n < 0) {
            if (errno == EINTR) continue;
            return false;
        }
        if (n == 0) {
            errno = ENOSPC;
            return false;
        }
        p += n;
        size -= size_t(n);
    }
    return true;
}

// An open file descriptor, closed on every path.
struct Fd {
    int fd;
    explicit Fd(int f) : fd(f) {}
    ~Fd() {
        if (fd >= 0) ::close(fd);
    }
    // Closes now and reports the result (a delayed write error can show here).
    bool Close() {
        int f = fd;
        fd = -1;
        return ::close(f) == 0;
    }
};

[[noreturn]] void Fail(const fs::path& shownAs, int error) {
    throw ToolError("cannot write " + shownAs.string() + ": " + SystemReason(error));
}

}  // namespace

void WriteFileChecked(const fs::path& path, const std::vector<unsigned char>& bytes,
                      const fs::path& shownAs) {
    {
        Fd out(::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644));
        if (out.fd < 0) Fail(shownAs, errno);
        if (!WriteAll(out.fd, bytes.data(), bytes.size())) Fail(shownAs, errno);
        if (::fsync(out.fd) != 0) Fail(shownAs, errno);
        if (!out.Close()) Fail(shownAs, errno);
    }
    // What the device holds now is what a reader gets: read it back.
    Fd in(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (in.fd < 0) Fail(shownAs, errno);
    std::vector<unsigned char> back(bytes.size() + 1);
    size_t got = 0;
    while (got < back.size()) {
        ssize_t n = ::read(in.fd, back.data() + got, back.size() - got);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) Fail(shownAs, errno);
        if (n == 0) break;
        got += size_t(n);
    }
    if (got != bytes.size() || std::memcmp(back.data(), bytes.data(), bytes.size()) != 0)
        throw ToolError("cannot write " + shownAs.string() +
                        ": the file read back differs from what was written");
}

void CopyFileChecked(const fs::path& from, const fs::path& to, const fs::path& shownAs) {
    Fd in(::open(from.c_str(), O_RDONLY | O_CLOEXEC));
    if (in.fd < 0) throw ToolError("cannot read " + from.string() + ": " + SystemReason(errno));
    Fd out(::open(to.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644));
    if (out.fd < 0) Fail(shownAs, errno);
    std::vector<unsigned char> buf(1 << 20);
    unsigned long long total = 0;
    for (;;) {
        ssize_t n = ::read(in.fd, buf.data(), buf.size());
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) throw ToolError("cannot read " + from.string() + ": " + SystemReason(errno));
        if (n == 0) break;
        if (!WriteAll(out.fd, buf.data(), size_t(n))) Fail(shownAs, errno);
        total += (unsigned long long)n;
    }
    if (::fsync(out.fd) != 0) Fail(shownAs, errno);
    struct stat st;
    if (::fstat(out.fd, &st) != 0) Fail(shownAs, errno);
    if ((unsigned long long)st.st_size != total)
        throw ToolError("cannot write " + shownAs.string() + ": the copy is " +
                        std::to_string(st.st_size) + " bytes, not " + std::to_string(total));
    if (!out.Close()) Fail(shownAs, errno);
}

void SyncFolder(const fs::path& dir) {
    // A folder that cannot be opened or synced (some file systems refuse)
    // has had its entries written by the rename already; nothing to report.
    int fd = ::open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) return;
    ::fsync(fd);
    ::close(fd);
}

void CheckIfoComplete(const std::vector<unsigned char>& ifo, const fs::path& shownAs) {
    // Bytes 0-11 hold the identifier and bytes 28-31 the number of the
    // file's last sector (VMGI_EA / VTSI_EA), so a whole file is exactly
    // that many sectors plus one long.
    auto incomplete = [&](const std::string& why) {
        throw ToolError("cannot write " + shownAs.string() + ": " + why);
    };
    if (ifo.size() < 32 || std::memcmp(ifo.data(), "DVDVIDEO-V", 10) != 0)
        incomplete("the assembled file is incomplete");
    const unsigned long long last =
        (unsigned long long)ifo[28] << 24 | ifo[29] << 16 | ifo[30] << 8 | ifo[31];
    if (ifo.size() != (last + 1) * 2048)
        incomplete("the assembled file is " + std::to_string(ifo.size()) + " bytes, not " +
                   std::to_string((last + 1) * 2048));
}

namespace {

std::string SectionList(const fs::path& ini) {
    std::vector<char> names(1 << 16);
    for (;;) {
        int n = INIGetSectionNames(ini.c_str(), names.data(), int(names.size()));
        // The list ends with an empty name; a list that filled the buffer
        // may have been cut, so it is asked again with more room.
        size_t used = 0;
        for (int k = 0; k < n && used < names.size(); ++k) used += std::strlen(&names[used]) + 1;
        if (used + 1 < names.size() || names.size() >= (1u << 26))
            return std::string(names.data(), std::min(used, names.size()));
        names.resize(names.size() * 4);
    }
}

}  // namespace

void CheckSourceWritten(const fs::path& ini, const fs::path& shownAs) {
    // The INI store keeps a file in memory and saves it whole, atomically,
    // at every flush; a save that fails leaves the last saved version on
    // disk and says nothing. Every table adds a section of its own and
    // flushes, so the file on disk is complete exactly when it lists the
    // sections the store holds.
    INIFlushFiles();
    const std::string held = SectionList(ini);
    INIForgetFile(ini.c_str());
    if (!fs::exists(ini) || SectionList(ini) != held)
        throw ToolError("cannot write " + shownAs.string() +
                        ": the source could not be saved completely (is the disk full?)");
}

LibraryIoWatch::LibraryIoWatch() {
    unsigned char byte;
    kestro::FileRead(-1, &byte, 1);
}

int LibraryIoWatch::Failed() const {
    const uint32_t error = kestro::LastFileError();
    return error == uint32_t(EBADF) ? 0 : int(error);
}

void CheckLibraryIo(const LibraryIoWatch& watch, const fs::path& shownAs) {
    if (int error = watch.Failed()) Fail(shownAs, error);
}

fs::path Absolute(const fs::path& p) {
    std::error_code ec;
    fs::path a = fs::absolute(p, ec);
    if (ec) return p;
    a = a.lexically_normal();
    // "dir/" and "dir/." name the folder itself.
    if (!a.has_filename() && a.has_relative_path()) a = a.parent_path();
    return a;
}

void CopyFileTo(const fs::path& from, const fs::path& to) {
    // Checked, so that a full working folder is told as such (a plain copy
    // reports it as an I/O error, which makes the input look damaged).
    try {
        CopyFileChecked(from, to, to);
    } catch (const ToolError& e) {
        throw ToolError("cannot make a working copy of " + from.string() + ": " + e.what());
    }
    // A copy of a file on read-only media is read-only too; the copy is ours.
    std::error_code ec;
    fs::permissions(to, fs::perms::owner_read | fs::perms::owner_write, fs::perm_options::add, ec);
}

bool OpensForWriting(const fs::path& p) {
    const int fd = ::open(p.c_str(), O_RDWR | O_CLOEXEC);
    if (fd < 0) return false;
    ::close(fd);
    return true;
}

std::vector<unsigned char> ReadAll(const fs::path& p) {
    std::ifstream in(p, std::ios::binary);
    if (!in) throw ToolError(p.string() + ": cannot be read");
    return std::vector<unsigned char>(std::istreambuf_iterator<char>(in), {});
}

void CreateSizedFile(const fs::path& p, unsigned long long bytes, const fs::path& shownAs) {
    int fd = ::open(p.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0) Fail(shownAs, errno);
    int rc = ::ftruncate(fd, off_t(bytes));
    const int error = errno;
    ::close(fd);
    if (rc != 0) Fail(shownAs, error);
}

void LinkOrCopy(const fs::path& from, const fs::path& to, bool copy, const fs::path& shownAs) {
    std::error_code ec;
    if (!copy) {
        fs::create_hard_link(from, to, ec);
        if (!ec) return;
        fs::create_symlink(Absolute(from), to, ec);
        if (!ec) return;
    }
    CopyFileChecked(from, to, shownAs);
}

bool ExistsNoCase(const fs::path& dir, const std::string& name) {
    std::error_code ec;
    for (auto& e : fs::directory_iterator(dir, ec))
        if (Upper(e.path().filename().string()) == Upper(name)) return true;
    return false;
}

fs::path VideoTsFolderOf(const fs::path& folder) {
    std::error_code ec;
    for (auto& e : fs::directory_iterator(folder, ec)) {
        if (e.is_directory() && Upper(e.path().filename().string()) == "VIDEO_TS") return e.path();
    }
    return folder;
}

namespace {

// The IFO files of one folder (VIDEO_TS.IFO and VTS_nn_0.IFO, in any case),
// and its VIDEO_TS subfolder when it has one and `videoTs` asks for it.
void ListIfoFiles(const fs::path& dir, std::vector<fs::path>& vmg, std::vector<fs::path>& vts,
                  fs::path* videoTs) {
    std::error_code ec;
    for (auto& e : fs::directory_iterator(dir, ec)) {
        std::string name = Upper(e.path().filename().string());
        if (videoTs && videoTs->empty() && name == "VIDEO_TS" && e.is_directory()) {
            *videoTs = e.path();
        } else if (!e.is_regular_file()) {
            continue;
        } else if (name == "VIDEO_TS.IFO") {
            vmg.push_back(e.path());
        } else if (name.size() == 12 && name.compare(0, 4, "VTS_") == 0 &&
                   name.compare(6, 6, "_0.IFO") == 0 && std::isdigit((unsigned char)name[4]) &&
                   std::isdigit((unsigned char)name[5])) {
            vts.push_back(e.path());
        }
    }
    if (ec) throw ToolError(dir.string() + ": " + ec.message());
}

}  // namespace

std::vector<fs::path> IfoFilesOf(const fs::path& folder) {
    // One pass over the folder: a disc root with a VIDEO_TS folder is listed
    // again there, a folder of IFO files only once.
    std::vector<fs::path> vmg, vts;
    fs::path videoTs;
    ListIfoFiles(folder, vmg, vts, &videoTs);
    if (!videoTs.empty()) {
        vmg.clear();
        vts.clear();
        ListIfoFiles(videoTs, vmg, vts, nullptr);
    }
    std::sort(vts.begin(), vts.end(), [](const fs::path& a, const fs::path& b) {
        return Upper(a.filename().string()) < Upper(b.filename().string());
    });
    vmg.insert(vmg.end(), vts.begin(), vts.end());
    return vmg;
}

WorkingDirectory::WorkingDirectory(const fs::path& dir) : previous_(fs::current_path()) {
    std::error_code ec;
    fs::current_path(dir, ec);
    if (ec) throw ToolError("cannot enter " + dir.string() + ": " + ec.message());
}

WorkingDirectory::~WorkingDirectory() {
    std::error_code ec;
    fs::current_path(previous_, ec);
}

}  // namespace kestro_tool
