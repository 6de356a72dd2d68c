#include "platform/files/DirectoryListing.h"

#include "LongPath.h"
#include "platform/files/FilePath.h"
#include "platform/posix/base/DescriptorNumber.h"

#include <cerrno>
#include <dirent.h>
#include <new>
#include <sys/stat.h>
#include <unistd.h>

namespace orvi::platform {

namespace {

/** What stat tells of a directory's entry; DT_UNKNOWN for one that is not there any more. */
int askType(DIR* stream, const dirent& entry, int flags)
{
    struct stat status;
    if (::fstatat(::dirfd(stream), entry.d_name, &status, flags) != 0)
        return DT_UNKNOWN;
    return IFTODT(status.st_mode);
}

/** The type of the entry itself. */
int typeOf(DIR* stream, const dirent& entry)
{
    if (entry.d_type != DT_UNKNOWN) // some file systems leave it to stat
        return entry.d_type;
    return askType(stream, entry, AT_SYMLINK_NOFOLLOW);
}

} // namespace

DirectoryListing::DirectoryListing(const String& path)
{
    constexpr int flags = O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NONBLOCK;
    const String_T<char> bytes = bytesFromPath(path.isEmpty() ? String(L".") : path);
    if (bytes.isEmpty()) // it would be no path at all
        throw std::bad_alloc();
    const int directory = aboveStandardStreams(
        callAt(bytes, [](int from, const char* way) { return ::openat(from, way, flags); }));
    if (directory < 0)
        return;
    struct stat status;
    if (::fstat(directory, &status) == 0)
        _stream = ::fdopendir(directory); // which takes the descriptor over
    if (_stream != nullptr) {
        _identity = {status.st_dev, status.st_ino};
        return;
    }
    const bool lacksMemory = errno == ENOMEM;
    ::close(directory);
    if (lacksMemory)
        throw std::bad_alloc();
}

DirectoryListing::~DirectoryListing()
{
    if (isOpen())
        ::closedir(static_cast<DIR*>(_stream));
}

bool DirectoryListing::next(Entry& entry)
{
    auto* const stream = static_cast<DIR*>(_stream);
    while (const dirent* found = ::readdir(stream)) {
        if (found->d_name[0] == '.')
            continue;
        int type = typeOf(stream, *found);
        entry.isLink = type == DT_LNK;
        if (entry.isLink)
            type = askType(stream, *found, 0);
        if (type != DT_REG && type != DT_DIR)
            continue;
        entry.name = pathFromBytes(found->d_name);
        if (entry.name.isEmpty())
            throw std::bad_alloc();
        entry.isDirectory = type == DT_DIR;
        return true;
    }
    return false;
}

bool makeDirectory(const String& path)
{
    constexpr mode_t everybody = 0777;
    const auto make = [](int from, const char* way) { return ::mkdirat(from, way, everybody); };
    return callAt(bytesFromPath(path), make) == 0;
}

} // namespace orvi::platform
