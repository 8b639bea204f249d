// File handling of the kestro command: private working folders, staged
// outputs that only replace an existing file when asked to, and checked
// writes.
//
// Every output is first written under a temporary name in the folder of its
// final path, checked (every write's result, fsync, then read back and
// compared) and renamed into place only when complete, so a failed or
// interrupted run never leaves a half-written file behind and never touches
// an existing file unless --force was given. A write that fails (a full
// disk, an I/O error) fails the command with the user's path and the
// system's reason, and leaves every existing file as it was. Inputs are
// never opened for writing: the library opens IFO files read/write, so the
// command always hands it a private copy.
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
// path. CommitAll() renames it into place; otherwise the staged file is
// removed.
class StagedFile {
public:
    // Throws ToolError when `finalPath` exists and `force` is false, or when
    // its folder does not exist.
    StagedFile(const fs::path& finalPath, bool force);
    // The removal of `finalPath`, where it exists, as part of a commit (an
    // output of an earlier run that this run does not write again).
    struct Removal {};
    StagedFile(const fs::path& finalPath, bool force, Removal);
    ~StagedFile();
    StagedFile(const StagedFile&) = delete;
    StagedFile& operator=(const StagedFile&) = delete;

    const fs::path& temp() const { return temp_; }
    const fs::path& final() const { return final_; }
    // Writes `bytes` as the staged content, checked (see WriteFileChecked);
    // failures name the final path.
    void Write(const std::vector<unsigned char>& bytes);

private:
    friend void CommitAll(const std::vector<StagedFile*>& files);
    fs::path final_;
    fs::path temp_;
    bool committed_ = false;
};

// Renames staged files into place as one step: when one cannot take its
// place, those already renamed are put back (an existing file is kept under
// a hard link until every rename succeeded), so either every output is new
// or every existing file is as it was. The folders are synced afterwards.
void CommitAll(const std::vector<StagedFile*>& files);

// The system's reason for the last failed call ("No space left on device").
std::string SystemReason(int error);

// Writes `bytes` into a new file `path` (replacing it), checking every
// write, syncing it to the device, reading it back and comparing. Failures
// throw ToolError naming `shownAs` (the path the user knows) and the reason.
void WriteFileChecked(const fs::path& path, const std::vector<unsigned char>& bytes,
                      const fs::path& shownAs);
// Copies a file of any size in pieces with checked writes, synced, and
// compares the size of the copy. Failures name `shownAs`.
void CopyFileChecked(const fs::path& from, const fs::path& to, const fs::path& shownAs);
// Syncs a folder's entries (after files were created or renamed in it).
void SyncFolder(const fs::path& dir);
// Checks that an IFO file the library wrote is whole: it carries its
// identifier and is as long as its last-sector field promises. Throws
// ToolError naming `shownAs`.
void CheckIfoComplete(const std::vector<unsigned char>& ifo, const fs::path& shownAs);

// Checks that a source the library wrote through the INI store reached the
// disk whole (the store does not report a failed save). Throws ToolError
// naming `shownAs`. The store forgets the file afterwards.
void CheckSourceWritten(const fs::path& ini, const fs::path& shownAs);

// The library's file layer does not report a failed write to the table that
// made it; it only records the system's error (LastFileError), keeping the
// last one. A watch puts a known value there (a deliberate read through a
// closed handle, which fails with EBADF), so that any failure during the
// operations that follow shows as a different value. Failed() is the
// error of such a failure, or 0.
class LibraryIoWatch {
public:
    LibraryIoWatch();
    int Failed() const;
};
// Throws ToolError naming `shownAs` when the watch saw a failure.
void CheckLibraryIo(const LibraryIoWatch& watch, const fs::path& shownAs);

// Removes what killed runs left beside `final` (temporary names of processes
// that no longer exist); a folder that a killed `--force` run had moved
// aside goes back to `final` when `final` is missing.
void RemoveStaleSiblings(const fs::path& final);

// Absolute, normalised form of a path given on the command line.
fs::path Absolute(const fs::path& p);
// A private copy of an input (into a working folder); an input that cannot
// be read or a working folder that is full fails with the input's name.
void CopyFileTo(const fs::path& from, const fs::path& to);
// Whether the file can be opened for reading and writing, as the library
// opens IFO files (false on read-only media).
bool OpensForWriting(const fs::path& p);
std::vector<unsigned char> ReadAll(const fs::path& p);
// Creates a file of `bytes` zero bytes without writing them (sparse).
// Failures name `shownAs`.
void CreateSizedFile(const fs::path& p, unsigned long long bytes, const fs::path& shownAs);
// Links `from` at `to` (hard link, else symbolic link, else a checked copy
// whose failures name `shownAs`).
void LinkOrCopy(const fs::path& from, const fs::path& to, bool copy, const fs::path& shownAs);

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
