#include "platform/files/ReplacedFile.h"

#include "FileCalls.h"
#include "LongPath.h"
#include "platform/base/Entropy.h"
#include "platform/base/KeepLastError.h"
#include "platform/posix/base/DescriptorNumber.h"

#include <cstdio>
#include <linux/magic.h>
#include <memory>
#include <new>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <utility>

namespace orvi::platform {

namespace {

constexpr int mostLinks = 40; // as the system itself follows
constexpr int mostNames = 16; // tried for a draft; a second one is hardly ever needed

int openFrom(int directory, const char* path, int flags)
{
    return aboveStandardStreams(
        retryInterrupted([&] { return ::openat(directory, path, flags | O_CLOEXEC); }));
}

/** As openFrom, also for a path longer than the system takes. */
int openPath(const char* path, int flags)
{
    return callAt(path, [&](int from, const char* way) { return openFrom(from, way, flags); });
}

bool closeFile(int& file)
{
    return ::close(std::exchange(file, -1)) == 0 || errno == EINTR; // after that it is closed all the same
}

/** Whether the links in the directory are no texts but lead to what a process has open. */
bool hasMagicLinks(int directory)
{
    struct statfs system;
    return ::fstatfs(directory, &system) == 0 && system.f_type == PROC_SUPER_MAGIC;
}

/** Whether the file may be opened as one that is written over in its place, or is missing; `old` and `exists`
    become what it is now. */
bool isOpenToUs(int directory, const char* name, struct stat& old, bool& exists)
{
    int file = openFrom(directory, name, O_RDWR | O_NOFOLLOW | O_NOCTTY | O_NONBLOCK);
    if (file < 0)
        return errno == ENOENT;
    exists = true;
    const bool isKnown = ::fstat(file, &old) == 0;
    const KeepLastError keep;
    closeFile(file);
    return isKnown;
}

/** Gives the draft what the old file has of owner, group and permissions. */
bool takeAttributes(int draft, const struct stat& old)
{
    struct stat now;
    if (::fstat(draft, &now) != 0)
        return false;
    bool hasGroup = now.st_gid == old.st_gid;
    if (now.st_uid != old.st_uid && ::fchown(draft, old.st_uid, old.st_gid) == 0)
        hasGroup = true;
    if (!hasGroup)
        hasGroup = ::fchown(draft, static_cast<uid_t>(-1), old.st_gid) == 0;
    constexpr mode_t everything = S_IRWXU | S_IRWXG | S_IRWXO; // a write takes the other bits away
    mode_t mode = old.st_mode & everything;
    if (!hasGroup) // another group may do no more than anybody
        mode = (mode & ~static_cast<mode_t>(S_IRWXG)) | (mode & S_IRWXO) << 3;
    return (now.st_mode & everything) == mode || ::fchmod(draft, mode) == 0;
}

unsigned long long randomNumber()
{
    const EntropyRecord record = collectEntropy();
    unsigned long long number = 0;
    std::memcpy(&number, record.random, sizeof number);
    return number ^ static_cast<unsigned long long>(record.wallNanos) ^ record.process << 40;
}

} // namespace

ReplacedFile::Opening ReplacedFile::open(const char* path)
{
    struct stat old;
    const int found = callAt(path, [&](int from, const char* way) { return ::fstatat(from, way, &old, 0); });
    if (found != 0 && errno != ENOENT)
        return Opening::Failed;
    bool exists = found == 0;
    if (exists && !S_ISREG(old.st_mode))
        return Opening::Unsuitable;
    const Opening place = findPlace(path);
    if (place != Opening::Ready)
        return place;
    constexpr mode_t everybody = S_IRUSR | S_IWUSR | S_IRGRP | S_IWGRP | S_IROTH | S_IWOTH;
    // Nobody else may see what the old file kept from him.
    if (isOpenToUs(_directory, _name, old, exists) && createDraft(exists ? S_IRUSR | S_IWUSR : everybody) &&
        (!exists || takeAttributes(_draft, old)))
        return Opening::Ready;
    drop();
    return Opening::Failed;
}

/** Goes along `path`, and along the links at its end, to the directory and the name of the file itself. */
ReplacedFile::Opening ReplacedFile::findPlace(const char* path)
{
    char link[PATH_MAX];
    for (int links = 0; links < mostLinks; ++links) {
        if (!enterDirectoryOf(path))
            return Opening::Failed;
        const ssize_t size = ::readlinkat(_directory, _name, link, sizeof link - 1);
        if (size < 0) // no link, or nothing there yet; one that came meanwhile does not open below
            return errno == EINVAL || errno == ENOENT ? Opening::Ready : Opening::Failed;
        if (hasMagicLinks(_directory))
            return Opening::Unsuitable;
        link[size] = 0;
        path = link;
    }
    errno = ELOOP;
    return Opening::Failed;
}

/** Goes to the directory of `path`, from the one where we are if that is relative; keeps its last name. */
bool ReplacedFile::enterDirectoryOf(const char* path)
{
    const char* slash = std::strrchr(path, '/');
    const char* name = slash != nullptr ? slash + 1 : path;
    const std::size_t size = std::strlen(name);
    if (size == 0 || size >= sizeof _name) {
        errno = size == 0 ? EISDIR : ENAMETOOLONG;
        return false;
    }
    std::memcpy(_name, name, size + 1);
    if (slash == nullptr && _directory >= 0)
        return true;
    const auto length = static_cast<std::size_t>(name - path);
    const std::unique_ptr<char[]> way(new (std::nothrow) char[length + 2]);
    if (way == nullptr) {
        errno = ENOMEM;
        return false;
    }
    std::memcpy(way.get(), path, length);
    std::memcpy(way.get() + length, ".", 2);
    constexpr int flags = O_PATH | O_DIRECTORY; // which asks for the right to pass, not to read
    const int next = _directory >= 0 ? openFrom(_directory, way.get(), flags) : openPath(way.get(), flags);
    if (next < 0)
        return false;
    if (_directory >= 0)
        closeFile(_directory);
    _directory = next;
    return true;
}

bool ReplacedFile::createDraft(unsigned int permissions)
{
    constexpr int flags = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
    for (int names = 0; names < mostNames; ++names) {
        std::snprintf(_draftName, sizeof _draftName, ".orvi-%016llx", randomNumber());
        const int file =
            retryInterrupted([&] { return ::openat(_directory, _draftName, flags, permissions); });
        if (file >= 0) { // from here on there is something to remove
            _draft = aboveStandardStreams(file);
            return _draft >= 0;
        }
        *_draftName = 0;
        if (errno != EEXIST)
            return false;
    }
    return false;
}

bool ReplacedFile::write(const void* data, std::size_t size)
{
    const auto* bytes = static_cast<const char*>(data);
    while (size > 0) {
        const std::ptrdiff_t count = writeShielded([&] { return ::write(_draft, bytes, size); });
        if (count == 0)
            errno = EIO; // what takes nothing and says nothing would be asked for ever
        if (count <= 0)
            return false;
        bytes += count;
        size -= static_cast<std::size_t>(count);
    }
    return true;
}

bool ReplacedFile::commit()
{
    // EINVAL: the file system has nothing to wait for.
    const bool isStored = retryInterrupted([&] { return ::fsync(_draft); }) == 0 || errno == EINVAL;
    if (!isStored || !closeFile(_draft) || ::renameat(_directory, _draftName, _directory, _name) != 0) {
        drop();
        return false;
    }
    *_draftName = 0;
    // Where the new name cannot be made to last, one or the other document stands after a loss of power.
    int directory = openFrom(_directory, ".", O_RDONLY | O_DIRECTORY);
    if (directory >= 0) {
        ::fsync(directory);
        closeFile(directory);
    }
    return true;
}

void ReplacedFile::drop() noexcept
{
    const KeepLastError keep;
    if (_draft >= 0)
        closeFile(_draft);
    if (*_draftName != 0)
        ::unlinkat(_directory, _draftName, 0);
    *_draftName = 0;
    if (_directory >= 0)
        closeFile(_directory);
}

} // namespace orvi::platform
