#include <orvi/core/File.h>

#include <orvi/core/Encoding.h>
#include <orvi/core/Log.h>
#include <orvi/core/Time.h>

#include "BufferedFile.h"
#include "base/TempPath.h"
#include "platform/base/Entropy.h"
#include "platform/base/KeepLastError.h"
#include "platform/files/FileHandle.h"
#include "platform/files/FilePath.h"

#include <cerrno>
#include <cstdio>
#include <exception>
#include <limits>
#include <new>

namespace orvi {

namespace {

constexpr int accessMask = 3;
constexpr int directionMask = 15;
constexpr int seekFromStart = 0;
constexpr int seekFromEnd = 2;
constexpr long long unixEpoch = 62167132800; // in seconds of Time

using platform::FileHandle;
using platform::KeepLastError;

/** `format` takes the reason and the name. */
void logFailure(const wchar_t* format, const String& fileName)
{
    const KeepLastError keep;
    Log::error(format, File::getLastError(), fileName.getBuffer());
}

void logSeekFailure(int offset, int origin, const String& fileName)
{
    const KeepLastError keep;
    Log::error(L"Set file position(%d,%d) error! %s File:%s", offset, origin, File::getLastError(),
               fileName.getBuffer());
}

/** False, with the reason in errno, for flags that cannot be. */
bool parseFlags(int flags, int mode, FileHandle::OpenOptions& options)
{
    using Access = FileHandle::Access;
    const int access = flags & accessMask;
    const bool truncatesToRead =
        access == File::readOnly && (flags & File::truncate) && !(flags & File::create);
    if (access == accessMask || truncatesToRead) {
        errno = EINVAL;
        return false;
    }
    options.access = access == File::readOnly    ? Access::Read
                     : access == File::writeOnly ? Access::Write
                                                 : Access::ReadWrite;
    options.append = (flags & File::append) != 0;
    options.create = (flags & File::create) != 0;
    options.truncate = (flags & File::truncate) != 0;
    options.exclusive = (flags & File::exclusive) != 0;
    options.permitRead = (mode & File::permitRead) != 0;
    options.permitWrite = (mode & File::permitWrite) != 0;
    return true;
}

/** Combinations without a meaning read. */
BufferedFile::Directions parseDirections(int flags)
{
    switch (flags & directionMask) {
    case File::writeOnly:
    case File::writeOnly | File::append:
        return {.read = false, .write = true};
    case File::readWrite:
    case File::readWrite | File::append:
        return {.read = true, .write = true};
    default:
        return {.read = true, .write = false};
    }
}

/** Whether a transfer has anything to do; a block that is not there is an error of the caller's. */
bool isTransfer(const void* block, int size)
{
    if (size > 0 && block == nullptr)
        errno = EINVAL;
    return size > 0 && block != nullptr;
}

/** `position` where it is one that an int tells; else negative, with the reason in errno. */
int narrow(std::int64_t position)
{
    if (position <= std::numeric_limits<int>::max())
        return static_cast<int>(position);
    errno = EFBIG;
    return -1;
}

bool getStatus(const wchar_t* path, platform::FileStatus& status)
{
    return platform::getFileStatus(platform::bytesFromPath(path), status);
}

/** As getStatus, for callers who tell the size as an int. */
bool getSmallStatus(const wchar_t* path, platform::FileStatus& status)
{
    if (!getStatus(path, status))
        return false;
    if (status.size <= std::numeric_limits<int>::max())
        return true;
    errno = EFBIG;
    return false;
}

} // namespace

Handle_T<File> File::createInstance() { return new File; }

File::File() noexcept = default;

File::~File() { close(); }

bool File::open(const String& fileName, int flags, int mode)
{
    const String name = fileName; // NOLINT(performance-*): it may be our own, which goes now
    close();
    if (name.isEmpty())
        return false;
    FileHandle::OpenOptions options;
    std::unique_ptr<BufferedFile> stream(new (std::nothrow) BufferedFile);
    const String_T<char> path = platform::bytesFromPath(name);
    if (stream == nullptr || path.isEmpty())
        errno = ENOMEM;
    if (stream == nullptr || path.isEmpty() || !parseFlags(flags, mode, options) ||
        !stream->open(path, options, parseDirections(flags))) {
        logFailure(L"Open file error! %s File:%s", name);
        return false;
    }
    _stream = std::move(stream);
    _fileName = name;
    _path = path;
    return true;
}

void File::close()
{
    if (isInvalid())
        return;
    if (!_stream->close())
        logFailure(L"Close file error! %s File:%s", _fileName);
    _stream.reset();
    _fileName = String();
    _path = String_T<char>();
}

bool File::eof() const noexcept { return !isInvalid() && _stream->eof(); }

int File::tell(bool retry) const
{
    const int position = narrow(_stream->position());
    if (position >= 0)
        return position;
    if (retry)
        return tell(false);
    logFailure(L"Get file position error! %s File:%s", _fileName);
    return -1;
}

/** The offset of the end. What fails reads in the log like the way there and the look at where it is. */
int File::measure(bool retry) const
{
    const std::int64_t end = _stream->size();
    const int size = narrow(end);
    if (size >= 0)
        return size;
    if (retry)
        return measure(false);
    if (end < 0)
        logSeekFailure(0, seekFromEnd, _fileName);
    else
        logFailure(L"Get file position error! %s File:%s", _fileName);
    return -1;
}

int File::available() const
{
    const int position = getPosition();
    if (position < 0)
        return -1;
    const int size = measure(true);
    return size < 0 ? -1 : size - position;
}

int File::peek(void* buffer, int size) const
{
    if (getPosition() < 0)
        return -1;
    return _stream->peek(buffer, isTransfer(buffer, size) ? size : 0);
}

int File::read(void* buffer, int size)
{
    if (isInvalid())
        return -1;
    return isTransfer(buffer, size) ? _stream->read(buffer, size) : 0;
}

int File::write(const void* data, int size)
{
    if (isInvalid())
        return -1;
    errno = 0; // so that an old failure is not taken for ours
    const int count = isTransfer(data, size) ? _stream->write(data, size) : 0;
    if (count == 0 && errno == EINVAL) {
        const KeepLastError keep;
        Log::error(L"Write file error! errno(%d) %s File:%s", errno, getLastError(), _fileName.getBuffer());
    }
    return count;
}

int File::getArchiveSize() const { return getPosition() < 0 ? -1 : measure(true); }

int File::getPosition() const { return isInvalid() ? -1 : tell(true); }

int File::setPosition(int position)
{
    if (isInvalid())
        return -1;
    if (_stream->setPosition(position) >= 0)
        return position;
    logSeekFailure(position, seekFromStart, _fileName);
    return -1;
}

TempFile::TempFile() noexcept
    : _process(platform::currentProcessId())
{}

TempFile::~TempFile()
{
    if (isInvalid() || _process != platform::currentProcessId())
        return;
    const String_T<char> path = _path; // there may be no memory to make it now
    close();
    std::remove(path);
}

String TempFile::getTempFileName()
{
    std::string path;
    return makeTempFile(path);
}

Handle_T<TempFile> TempFile::createTempFile()
{
    const Handle_T<TempFile> file = new TempFile;
    std::string path;
    const String name = makeTempFile(path);
    if (file->open(name, readWrite | create, permitRead | permitWrite))
        return file;
    if (!name.isEmpty())
        std::remove(path.c_str());
    Log::error(L"Create temp file error!");
    return Handle_T<TempFile>();
}

int getFileSize(const wchar_t* path)
{
    platform::FileStatus status;
    if (getSmallStatus(path, status))
        return static_cast<int>(status.size);
    Log::error(L"  %s", getLastErrorString().getBuffer());
    return -1;
}

bool isFileExists(const wchar_t* path)
{
    platform::FileStatus status;
    return getStatus(path, status);
}

bool getFileInfo(const wchar_t* path, int& size, Time& created, Time& modified)
{
    platform::FileStatus status;
    if (!getSmallStatus(path, status)) {
        size = -1;
        created = modified = Time(getTimeBias());
        return false;
    }
    size = static_cast<int>(status.size);
    created = Time(unixEpoch + status.created);
    modified = Time(unixEpoch + status.modified);
    return true;
}

} // namespace orvi
