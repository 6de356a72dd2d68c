#include "../DirectoryListing.h"

#include "../FilePath.h"
#include "DescriptorNumber.h"
#include "LongPath.h"

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

namespace orvi::platform {

namespace {

/** The type of a directory's entry, DT_UNKNOWN for what is not there any more. */
int typeOf(DIR* stream, const dirent& entry)
{
    if (entry.d_type != DT_LNK && entry.d_type != DT_UNKNOWN) // some file systems tell only what stat does
        return entry.d_type;
    struct stat status;
    if (::fstatat(::dirfd(stream), entry.d_name, &status, 0) != 0)
        return DT_UNKNOWN;
    return IFTODT(status.st_mode);
}

} // namespace

DirectoryListing::DirectoryListing(const String& path)
{
    constexpr int flags = O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NONBLOCK;
    const String_T<char> bytes = bytesFromPath(path.isEmpty() ? String(L".") : path);
    const int directory = aboveStandardStreams(
        callAt(bytes, [](int from, const char* way) { return ::openat(from, way, flags); }));
    if (directory < 0)
        return;
    struct stat status;
    if (::fstat(directory, &status) == 0)
        _stream = ::fdopendir(directory); // which takes the descriptor over
    if (_stream == nullptr)
        ::close(directory);
    else
        _identity = {status.st_dev, status.st_ino};
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
        const int type = typeOf(stream, *found);
        if (type != DT_REG && type != DT_DIR)
            continue;
        entry.name = pathFromBytes(found->d_name);
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
