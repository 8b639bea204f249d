#include "files.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <fstream>
#include <iterator>

namespace kestro_tool {

namespace {

std::string Upper(std::string s) {
    for (char& c : s) c = char(std::toupper(static_cast<unsigned char>(c)));
    return s;
}

fs::path MakeTempDir(const std::string& pattern) {
    std::vector<char> buf(pattern.begin(), pattern.end());
    buf.push_back('\0');
    if (!::mkdtemp(buf.data()))
        throw ToolError("cannot create a working folder " + pattern);
    return fs::path(buf.data());
}

}  // namespace

PrivateDir::PrivateDir()
    : path_(MakeTempDir((fs::temp_directory_path() / "kestro-XXXXXX").string())) {}

PrivateDir::PrivateDir(InMemory) {
    const char* shm = "/dev/shm";
    std::error_code ec;
    if (fs::is_directory(shm, ec) && ::access(shm, W_OK | X_OK) == 0) {
        try {
            path_ = MakeTempDir((fs::path(shm) / "kestro-XXXXXX").string());
            return;
        } catch (const ToolError&) {
            // full or refused: the temporary folder instead
        }
    }
    path_ = MakeTempDir((fs::temp_directory_path() / "kestro-XXXXXX").string());
}

PrivateDir::PrivateDir(const fs::path& besides)
    : path_(MakeTempDir((besides.parent_path() / ("." + besides.filename().string() +
                                                    ".kestro-XXXXXX")).string())) {}

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
    std::string pattern =
        (final_.parent_path() / ("." + final_.filename().string() + ".kestro-XXXXXX")).string();
    std::vector<char> buf(pattern.begin(), pattern.end());
    buf.push_back('\0');
    int fd = ::mkstemp(buf.data());
    if (fd < 0) throw ToolError("cannot create a file in " + final_.parent_path().string());
    ::close(fd);
    temp_ = buf.data();
}

StagedFile::~StagedFile() {
    if (committed_) return;
    std::error_code ec;
    fs::remove(temp_, ec);
}

void StagedFile::Commit() {
    std::error_code ec;
    // Staged files are created private (mode 0600); give them the usual mode.
    fs::permissions(temp_,
                    fs::perms::owner_read | fs::perms::owner_write | fs::perms::group_read |
                        fs::perms::others_read,
                    ec);
    fs::rename(temp_, final_, ec);
    if (ec) throw ToolError("cannot rename into " + final_.string() + ": " + ec.message());
    committed_ = true;
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
    std::error_code ec;
    fs::copy_file(from, to, fs::copy_options::overwrite_existing, ec);
    if (ec) throw ToolError("cannot copy " + from.string() + ": " + ec.message());
    // A copy of a file on read-only media is read-only too; the copy is ours.
    fs::permissions(to, fs::perms::owner_read | fs::perms::owner_write, fs::perm_options::add,
                    ec);
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

void CreateSizedFile(const fs::path& p, unsigned long long bytes) {
    int fd = ::open(p.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    if (fd < 0) throw ToolError("cannot create " + p.string());
    int rc = ::ftruncate(fd, off_t(bytes));
    ::close(fd);
    if (rc != 0) throw ToolError("cannot size " + p.string());
}

void LinkOrCopy(const fs::path& from, const fs::path& to, bool copy) {
    std::error_code ec;
    if (!copy) {
        fs::create_hard_link(from, to, ec);
        if (!ec) return;
        fs::create_symlink(Absolute(from), to, ec);
        if (!ec) return;
    }
    fs::copy_file(from, to, fs::copy_options::overwrite_existing, ec);
    if (ec) throw ToolError("cannot copy " + from.string() + ": " + ec.message());
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
        if (e.is_directory() && Upper(e.path().filename().string()) == "VIDEO_TS")
            return e.path();
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
