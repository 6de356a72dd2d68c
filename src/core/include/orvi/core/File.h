#pragma once
#include <orvi/core/Archive.h>
#include <orvi/core/String.h>

#include <memory>

namespace orvi {

class BufferedFile;
class Time;

/** A file on a disc.

    Closed at first, and again after close() or a failed open(). While it is closed, all the operations of a
    stream give -1. Nothing throws: a failure of the file itself is one line at Log::error and a negative
    result, a short count or false.

    Small writes are buffered: that they could not be stored may show only at the next read, at setPosition or
    at close(). A reader of the same object sees them at once. Sizes and positions are ints: a file of 2 GiB
    or more tells neither (-1), and a write never goes beyond 2^31 - 1. One thread at a time.

    Names become paths as Directory.h tells: whatever a scan reports opens.

    A pipe or device opens without waiting for its other end; it has no position, and reads and writes give
    what goes without waiting. */
class ORVI_API File : public Archive {
public:
    /** For open(): one of the first three, with any of the others. */
    enum Flags {
        readOnly = 0,
        writeOnly = 1,
        readWrite = 2,
        append = 8, // with writeOnly or readWrite: every write goes to the end
        create = 0x100,
        truncate = 0x200,
        exclusive = 0x400 // with create: fails when the file is there
    };
    /** For open(): what a file that is created permits to everybody, within the process's mask. */
    enum Mode { permitRead = 1, permitWrite = 2 };

    static Handle_T<File> createInstance();
    File(const File&) = delete; // two objects would share one position
    File& operator=(const File&) = delete;

    /** Closes what is open, then opens `fileName`; false on failure, without a line for an empty name. A file
        that exists keeps its contents unless `truncate` is given. A directory does not open. */
    bool open(const String& fileName, int flags, int mode);
    void close();

    /** The name given to open(); empty while the file is closed. */
    const String& getFileName() const noexcept { return _fileName; }
    bool isInvalid() const noexcept { return _stream == nullptr; }
    /** Whether a read met the end, which tells a short count there from a failed one; until the position is
        set. */
    bool eof() const noexcept;
    /** The text for the calling thread's errno, such as "ENOENT: No such file or directory." */
    static const wchar_t* getLastError();

    /** The size less the position; negative behind the end. */
    int available() const override;
    int peek(void* buffer, int size) const override;
    /** 0 at the end. */
    int read(void* buffer, int size) override;
    int write(const void* data, int size) override;
    int getArchiveSize() const override;
    int getPosition() const override;
    int setPosition(int position) override;

protected:
    File() noexcept;
    ~File() override;

private:
    // With `retry` a failure is tried once more before it is logged.
    int tell(bool retry) const;
    int measure(bool retry) const;

    friend class TempFile;

    String _fileName;
    String_T<char> _path;                  // the name as the system takes it, while the file is open
    std::unique_ptr<BufferedFile> _stream; // null while the file is closed
};

/** A file that is deleted when the object goes with the file open. Closed before, it stays; so it does in the
    child of a fork, whose copy is not the one that owns it. */
class ORVI_API TempFile : public File {
public:
    /** Makes an empty file in the system's directory for such files; gives its name, or the empty string and
        a line in the log. */
    static String getTempFileName();
    /** A new file open for reading and writing; null, and a line in the log, when there is none to be had. */
    static Handle_T<TempFile> createTempFile();

protected:
    TempFile() noexcept;
    ~TempFile() override;

private:
    unsigned long _process;
};

/** The size in bytes; -1, and a line in the log, when it is not to be had or does not fit. */
ORVI_API int getFileSize(const wchar_t* path);
/** Whether anything, a directory as well, has this name. */
ORVI_API bool isFileExists(const wchar_t* path);
/** False when the path is not found or the size does not fit an int; then `size` is -1 and both times hold
    the time bias. Logs nothing. */
ORVI_API bool getFileInfo(const wchar_t* path, int& size, Time& created, Time& modified);

} // namespace orvi
