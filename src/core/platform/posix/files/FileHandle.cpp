#include "platform/files/FileHandle.h"

#include "FileCalls.h"
#include "LongPath.h"
#include "platform/posix/base/DescriptorNumber.h"

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace orvi::platform {

namespace {

int systemFlags(const FileHandle::OpenOptions& options)
{
    int flags = options.access == FileHandle::Access::Read    ? O_RDONLY
                : options.access == FileHandle::Access::Write ? O_WRONLY
                                                              : O_RDWR;
    if (options.append)
        flags |= O_APPEND;
    if (options.create)
        flags |= options.exclusive ? O_CREAT | O_EXCL : O_CREAT;
    if (options.truncate)
        flags |= O_TRUNC;
    // Opening a pipe would wait for its other end.
    return flags | O_CLOEXEC | O_NOCTTY | O_NONBLOCK;
}

mode_t permissions(const FileHandle::OpenOptions& options)
{
    constexpr mode_t read = S_IRUSR | S_IRGRP | S_IROTH;
    constexpr mode_t write = S_IWUSR | S_IWGRP | S_IWOTH;
    return (options.permitRead ? read : 0) | (options.permitWrite ? write : 0);
}

} // namespace

FileHandle::~FileHandle()
{
    if (isOpen())
        close();
}

bool FileHandle::open(const char* path, const OpenOptions& options)
{
    const int flags = systemFlags(options);
    const int descriptor = aboveStandardStreams(callAt(path, [&](int from, const char* way) {
        return retryInterrupted([&] { return ::openat(from, way, flags, permissions(options)); });
    }));
    if (descriptor < 0)
        return false;
    struct stat status;
    int error = 0;
    if (fstat(descriptor, &status) != 0)
        error = errno;
    else if (S_ISDIR(status.st_mode))
        error = EISDIR;
    if (error != 0) {
        ::close(descriptor);
        errno = error;
        return false;
    }
    _descriptor = descriptor;
    _regular = S_ISREG(status.st_mode);
    _seekable = _regular || lseek(descriptor, 0, SEEK_CUR) >= 0;
    const int now = _regular ? fcntl(descriptor, F_GETFL) : -1;
    if (now >= 0) // pipes and devices stay as they are: no call on them waits
        fcntl(descriptor, F_SETFL, now & ~O_NONBLOCK);
    return true;
}

bool FileHandle::close()
{
    // After an interrupted close the descriptor is gone on Linux, and its number may be another's already.
    return ::close(std::exchange(_descriptor, -1)) == 0 || errno == EINTR;
}

std::int64_t FileHandle::size() const
{
    if (!_regular) // a block device tells its size only this way; transfers pass their offset, so nothing is
                   // disturbed
        return lseek(_descriptor, 0, SEEK_END);
    struct stat status;
    return fstat(_descriptor, &status) == 0 ? status.st_size : -1;
}

std::ptrdiff_t FileHandle::read(std::int64_t offset, void* buffer, std::size_t size) const
{
    return retryInterrupted([&] {
        return _seekable ? pread(_descriptor, buffer, size, offset) : ::read(_descriptor, buffer, size);
    });
}

std::ptrdiff_t FileHandle::write(std::int64_t offset, const void* data, std::size_t size) const
{
    if (_seekable)
        return writeShielded([&] { return pwrite(_descriptor, data, size, offset); });
    const SignalShield shield(SIGPIPE);
    return retryInterrupted([&] { return ::write(_descriptor, data, size); });
}

std::ptrdiff_t FileHandle::append(const void* data, std::size_t size, std::int64_t& end) const
{
    // Not pwrite: it would append as well, but not tell where.
    const std::ptrdiff_t written = writeShielded([&] { return ::write(_descriptor, data, size); });
    if (written >= 0)
        end = lseek(_descriptor, 0, SEEK_CUR);
    return written;
}

bool getFileStatus(const char* path, FileStatus& status)
{
    struct statx answer;
    const int result = callAt(path, [&](int from, const char* way) {
        return retryInterrupted([&] {
            return statx(from, way, AT_STATX_SYNC_AS_STAT, STATX_BASIC_STATS | STATX_BTIME, &answer);
        });
    });
    if (result != 0)
        return false;
    status.size = static_cast<std::int64_t>(answer.stx_size);
    status.created = (answer.stx_mask & STATX_BTIME) != 0 ? answer.stx_btime.tv_sec : answer.stx_ctime.tv_sec;
    status.modified = answer.stx_mtime.tv_sec;
    return true;
}

bool createUniqueFile(char* path)
{
    // Closed again at once, and empty until then.
    const int descriptor = retryInterrupted([&] { return mkostemp(path, O_CLOEXEC); });
    if (descriptor < 0)
        return false;
    ::close(descriptor);
    return true;
}

} // namespace orvi::platform
