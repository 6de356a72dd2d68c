#pragma once
#include <cstddef>
#include <cstdint>

namespace orvi::platform {

/** An open file of the system, without a buffer. It closes its file when it goes; other programs that this
    one starts do not inherit it.

    Paths are as bytesFromPath gives them. A failure is false or a negative number, and its reason is the
    calling thread's last error. No call waits for data or room on a pipe or device: it fails instead. A call
    that a signal interrupts goes on. */
class FileHandle {
public:
    enum class Access { Read, Write, ReadWrite };
    struct OpenOptions {
        Access access = Access::Read;
        bool append = false;
        bool create = false;
        bool truncate = false;
        bool exclusive = false; // only with `create`
        bool permitRead = true; // for a file that is created, and for everybody, within the process's mask
        bool permitWrite = true;
    };

    FileHandle() noexcept = default;
    ~FileHandle();
    FileHandle(const FileHandle&) = delete;
    FileHandle& operator=(const FileHandle&) = delete;

    /** For a handle that is not open. A directory does not open. The path may have any length. */
    bool open(const char* path, const OpenOptions& options);
    /** The file is closed whatever the result: false tells that the system could not store all of it. */
    bool close();

    bool isOpen() const noexcept { return _descriptor >= 0; }
    /** False for pipes, terminals and their like, where offsets mean nothing. */
    bool isSeekable() const noexcept { return _seekable; }
    /** Where the file ends now. */
    std::int64_t size() const;

    /** Up to `size` bytes from `offset` on; 0 at the end. */
    std::ptrdiff_t read(std::int64_t offset, void* buffer, std::size_t size) const;
    /** Up to `size` bytes to `offset`. Without a reader at the other end of a pipe, or at the process's limit
        of file sizes: a failure, no signal. */
    std::ptrdiff_t write(std::int64_t offset, const void* data, std::size_t size) const;
    /** Up to `size` bytes behind what others have appended; stores the new end of the file. */
    std::ptrdiff_t append(const void* data, std::size_t size, std::int64_t& end) const;

private:
    int _descriptor = -1;
    bool _regular = false;
    bool _seekable = false;
};

/** What is known about a path; times in seconds since 1970 UTC. */
struct FileStatus {
    std::int64_t size;
    std::int64_t
        created; // on a file system that does not keep it: the last change of the file or its attributes
    std::int64_t modified;
};

/** Follows symbolic links; the path may have any length. */
bool getFileStatus(const char* path, FileStatus& status);

/** Makes an empty file that only this user may read, under a name that nobody had. `path` ends in at least
    six "X", which are replaced. */
bool createUniqueFile(char* path);

} // namespace orvi::platform
