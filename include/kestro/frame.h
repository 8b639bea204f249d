// Frame: the base class of every table object, the library's own file layer
// (a table of 512 open files addressed by small integer handles), the shared
// loader of tables that begin with the common 8-byte header, and the
// hexadecimal text codecs used by every assembler.
#ifndef KESTRO_FRAME_H
#define KESTRO_FRAME_H

#include <cstddef>
#include <cstdint>
#include <vector>

#include "kestro/export.h"

// Size of the error text every table object carries (NUL included).
constexpr int KESTRO_ERROR_TEXT = 260;

// Base of all table objects. The virtual slots, in order: destructor, Load,
// Details, Disasm, Asm, Write, Get. The defaults do nothing and fail.
//
// The error text starts empty and the stored file handle starts at -1, so a
// host that asks for a message before any failure reads an empty string.
class KESTRO_API CBaseKestro {
public:
    CBaseKestro();
    virtual ~CBaseKestro();

    virtual int Load(int hFile);
    virtual bool Details(char* buf, int len);
    virtual bool Disasm(const char* iniPath);
    virtual bool Asm(const char* iniPath);
    virtual bool Write(int hFile);
    virtual void Get(unsigned long* a, unsigned long* b);

    // Host file members. IFO files are always opened for reading and writing.
    unsigned long OpenKestroFile(const char* path);
    unsigned long CreateKestroFile(const char* path);
    void CloseKestroFile(unsigned long hFile);

    // Copies the error text into buf: all len bytes are zeroed first; a text
    // longer than len characters is cut to len - 1 characters, otherwise the
    // whole text and its terminator are copied (len + 1 bytes when the text
    // is exactly len characters long). len must be at least 1.
    void GetErrorMessage(char* buf, int len);

    // The stored file handle (set by OpenKestroFile).
    int FileHandle() const { return m_hFile; }

protected:
    // printf-style message into the error text, cut safely at 259 characters.
    void SetError(const char* fmt, ...)
#if defined(__GNUC__)
        __attribute__((format(printf, 2, 3)))
#endif
        ;

    char m_szError[KESTRO_ERROR_TEXT];
    int m_hFile;
};

// Where a table that begins with the common 8-byte header (count, reserved,
// end address) lies in an open file. Details and Disasm read the body back on
// every call and restore the caller's file position.
struct KESTRO_API LoadedTable {
    uint16_t count = 0;       // host order
    uint16_t reserved = 0;    // as read
    uint32_t endAddress = 0;  // host order
    uint16_t hFile = 0;
    uint32_t bodyPos = 0;   // file position right after the header
    uint32_t savedPos = 0;  // caller's position during a read-back
    uint32_t bodySize = 0;  // bytes read back as the body
    // Body held during one Details or Disasm call only. Holds what the file
    // actually gave (never more than bodySize); reads beyond it see zeros.
    std::vector<uint8_t> body;

    // The shared loader: 0 when startSector is 0 (nothing read), else seeks to
    // startSector * 2048, reads the header and remembers where the body is.
    int LoadTableHeader(int hFile, unsigned long startSector);

    // Reads the body back (bodySize bytes from bodyPos, bounded by the file's
    // end) and restores the caller's file position.
    void ReadBody();
    void FreeBody();
};

// Hexadecimal text codecs. axtoi reads any number of alphanumeric digits with
// an optional lower-case x in front and keeps the last eight; axtoib and
// axtoiw read exactly two or four characters whatever they are (a character
// that is not a letter or digit, the terminator included, counts as 0), but
// never past the string's terminator.
KESTRO_API unsigned long axtoi(const char* text);
KESTRO_API unsigned long axtoib(const char* text);
KESTRO_API unsigned long axtoiw(const char* text);

namespace kestro {

// The library's file layer. Handles are 1..512 (slot + 1); -1 is failure.
// Paths may use '/' or '\' as separators. When a path does not exist as
// written, its last component is matched case-insensitively in its folder.
constexpr int kFileSlots = 512;

KESTRO_API int FileOpen(const char* path, unsigned int flags);
KESTRO_API int FileCreate(const char* path, unsigned int flags);
KESTRO_API int FileClose(int hFile);
KESTRO_API unsigned long FileRead(int hFile, void* buf, unsigned long count);
KESTRO_API unsigned long FileWrite(int hFile, const void* buf, unsigned long count);
KESTRO_API unsigned long FileSeek(int hFile, unsigned long offset, int origin);
KESTRO_API unsigned long FileTell(int hFile);
KESTRO_API unsigned long FileSize(int hFile);
KESTRO_API int FileExists(const char* path, unsigned int mode);
// Deletes a file (used to start a fresh source file); also drops the INI
// store's cached copy. Returns true when the file is gone afterwards.
KESTRO_API bool FileDelete(const char* path);
// The operating system's last error recorded by a failing file operation.
KESTRO_API uint32_t LastFileError();

// Resolves a path as the file layer does: separators normalised to '/', and
// the last component matched case-insensitively when the exact name is
// absent. Returns the path as given (normalised) when nothing matches.
KESTRO_API void ResolvePath(const char* path, char* out, int outSize);

// The file-creation trace hook is inert unless switched on. When on, every
// FileCreate appends the created path and "\r" to the trace file, which
// must already exist.
KESTRO_API void SetFileCreationTrace(bool enabled, const char* traceFilePath);
KESTRO_API void TraceFileCreation(const char* path);

// Reports of any length through a buffer of fixed size. While a
// ReportStream lives, every report made on the same thread (the Details of
// every table) hands the text in its buffer on to `sink` whenever, at the
// end of a line, `piece` characters or more have built up there, and then
// goes on from the buffer's start. The buffer then needs room for a piece,
// one line and the longest PGC report rather than for the whole report; the
// room rule of Details applies to what the buffer holds. After Details the
// buffer holds the text not yet handed on. The text is handed on from the
// buffer's start, so what it held before the call comes first. The sink may
// change the text in place (it is the caller's buffer). A report hands on at
// most `limit` characters: a damaged table can announce hundreds of millions
// of entries, and past the limit the text stays in the buffer, where the
// report stops when the buffer is full, as without a stream. Streams nest: the
// newest one of the thread that has not ended is used (they may end in any
// order).
class KESTRO_API ReportStream {
public:
    using Sink = void (*)(void* context, char* text, std::size_t size);

    ReportStream(Sink sink, void* context, std::size_t piece = std::size_t(1) << 15,
                 std::size_t limit = ~std::size_t(0));
    ~ReportStream();
    ReportStream(const ReportStream&) = delete;
    ReportStream& operator=(const ReportStream&) = delete;

    // The stream in force on this thread, or null.
    static const ReportStream* Current();
    // Hands text on to the sink.
    void Hand(char* text, std::size_t size) const { sink_(context_, text, size); }
    std::size_t Piece() const { return piece_; }
    std::size_t Limit() const { return limit_; }

private:
    Sink sink_;
    void* context_;
    std::size_t piece_;
    std::size_t limit_;
    ReportStream* outer_;  // the stream that was in force before this one
};

}  // namespace kestro

#endif
