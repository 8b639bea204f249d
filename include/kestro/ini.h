// The INI store: all access to INI source files. Files are cached in memory
// between calls; changes stay in memory until INIFlushFiles, which writes
// each changed file atomically (temporary file, then rename).
//
// Grammar: "[section]" headers, "key=value" statements (blanks around key and
// value ignored), ";" comment lines kept, LF or CRLF line ends. Section and
// key names match case-insensitively; order is kept on write, new keys go at
// the end of their section and new sections at the end of the file.
#ifndef KESTRO_INI_H
#define KESTRO_INI_H

#include "kestro/export.h"

// Copies the value of key in section of file into buffer (at most size - 1
// characters and a NUL); copies def when the file, section or key is absent.
KESTRO_API void INIGetPrivateProfileString(const char* section, const char* key, const char* def,
                                           char* buffer, int size, const char* file);
// Sets key=value in section of file, creating file and section as needed.
KESTRO_API void INIWritePrivateProfileString(const char* section, const char* key,
                                             const char* value, const char* file);
// Writes every pending change of every file to disk.
KESTRO_API void INIFlushFiles();
// Drops the cached copy of a file, pending changes included (used when the
// library deletes or recreates the file).
KESTRO_API void INIForgetFile(const char* file);
// Lists the section names of a file in file order, separated by NULs and
// ended by an empty name; returns the number of sections. Hosts use it to
// tell which tables a source holds.
KESTRO_API int INIGetSectionNames(const char* file, char* buffer, int size);

// Operations. Outside one, every call above checks the cached copy of its
// file against the disk (inode, size, modification time) and reads the file
// again when it changed. Between INIBeginOperation and the matching
// INIEndOperation (they nest; the outermost pair counts) a file is checked
// when the operation first touches it and trusted for the rest of it, so a
// file changed on disk while an operation runs may be seen only by the next.
// The tables and the codec read and write their sections inside operations,
// so a library call checks its source once rather than once per key; a
// host that reads many keys itself may open one too (kestro::IniOperation).
KESTRO_API void INIBeginOperation();
KESTRO_API void INIEndOperation();

namespace kestro {

// An operation for the lifetime of the object.
class IniOperation {
public:
    IniOperation() { INIBeginOperation(); }
    IniOperation(const IniOperation&) { INIBeginOperation(); }
    IniOperation& operator=(const IniOperation&) { return *this; }
    ~IniOperation() { INIEndOperation(); }
};

}  // namespace kestro

#endif
