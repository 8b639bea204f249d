// File handling of the kestro command: private working folders, staged
// outputs that only replace an existing file when asked to, and plain copies.
//
// Every output is first written under a temporary name in the folder of its
// final path and renamed into place when complete, so a failed or interrupted
// run never leaves a half-written file behind and never touches an existing
// file unless --force was given. Inputs are never opened for writing: the
// library opens IFO files read/write, so the command always hands it a
// private copy.
#ifndef KESTRO_TOOLS_FILES_H
#define KESTRO_TOOLS_FILES_H

#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

namespace kestro_tool {

namespace fs = std::filesystem;

// A failure to report on stderr; the command exits with 1.
class ToolError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// A fresh folder under the system's temporary folder (or next to a given
// path), removed with its content when the object goes away.
class PrivateDir {
public:
    PrivateDir();
    explicit PrivateDir(const fs::path& besides);  // sibling of `besides`
    // For small working copies: in memory-backed storage (/dev/shm) when the
    // system has it writable, else in the temporary folder. Creating and
    // removing files there costs no disk journal work.
    struct InMemory {};
    explicit PrivateDir(InMemory);
    ~PrivateDir();
    PrivateDir(const PrivateDir&) = delete;
    PrivateDir& operator=(const PrivateDir&) = delete;

    const fs::path& path() const { return path_; }
    fs::path operator/(const std::string& name) const { return path_ / name; }
    // Keeps the folder (after it was renamed into place).
    void Release() { path_.clear(); }

private:
    fs::path path_;
};

// One output file staged under a temporary name in the folder of its final
// path. Commit() renames it into place; otherwise the staged file is removed.
class StagedFile {
public:
    // Throws ToolError when `finalPath` exists and `force` is false, or when
    // its folder does not exist.
    StagedFile(const fs::path& finalPath, bool force);
    ~StagedFile();
    StagedFile(const StagedFile&) = delete;
    StagedFile& operator=(const StagedFile&) = delete;

    const fs::path& temp() const { return temp_; }
    const fs::path& final() const { return final_; }
    void Commit();

private:
    fs::path final_;
    fs::path temp_;
    bool committed_ = false;
};

// Absolute, normalised form of a path given on the command line.
fs::path Absolute(const fs::path& p);
void CopyFileTo(const fs::path& from, const fs::path& to);
// Whether the file can be opened for reading and writing, as the library
// opens IFO files (false on read-only media).
bool OpensForWriting(const fs::path& p);
std::vector<unsigned char> ReadAll(const fs::path& p);
// Creates a file of `bytes` zero bytes without writing them (sparse).
void CreateSizedFile(const fs::path& p, unsigned long long bytes);
// Links `from` at `to` (hard link, else symbolic link, else copy).
void LinkOrCopy(const fs::path& from, const fs::path& to, bool copy);

// Whether `dir` holds a file named `name` in any letter case.
bool ExistsNoCase(const fs::path& dir, const std::string& name);

// The IFO files of a DVD folder (the folder itself or its VIDEO_TS
// subfolder): VIDEO_TS.IFO first, then VTS_nn_0.IFO in title-set order.
std::vector<fs::path> IfoFilesOf(const fs::path& folder);
// The folder that holds the IFO and VOB files (`folder` or its VIDEO_TS).
fs::path VideoTsFolderOf(const fs::path& folder);

// Restores the working folder on destruction.
class WorkingDirectory {
public:
    explicit WorkingDirectory(const fs::path& dir);
    ~WorkingDirectory();
    WorkingDirectory(const WorkingDirectory&) = delete;
    WorkingDirectory& operator=(const WorkingDirectory&) = delete;

private:
    fs::path previous_;
};

}  // namespace kestro_tool

#endif
