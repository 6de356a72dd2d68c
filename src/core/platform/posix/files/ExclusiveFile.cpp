#include "platform/files/ExclusiveFile.h"

#include "platform/posix/base/DescriptorNumber.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace orvi::platform {

namespace {

enum class Verdict { ours, held, gone };

/** Whether `path` still leads to the open `file`, and that is a plain one. */
bool isFileAt(const char* path, const struct stat& file)
{
    struct stat named;
    return ::stat(path, &named) == 0 && named.st_dev == file.st_dev && named.st_ino == file.st_ino;
}

Verdict tryLock(int file, const char* path)
{
    struct stat opened;
    if (::fstat(file, &opened) != 0 || !S_ISREG(opened.st_mode))
        return Verdict::held;
    // flock belongs to the open file, not to the process: a second open in the same process is kept out too,
    // and closing some other descriptor of the file does not drop it, unlike fcntl's record locks.
    if (::flock(file, LOCK_EX | LOCK_NB) != 0)
        return Verdict::held;
    // The holder before us may have removed the name after our open: then we hold a file that nobody can see.
    return isFileAt(path, opened) ? Verdict::ours : Verdict::gone;
}

} // namespace

std::unique_ptr<ExclusiveFile> ExclusiveFile::tryOpen(const String_T<char>& path)
{
    // Only a lock that was held and given back meanwhile makes an attempt fail with `gone`.
    constexpr int maxAttempts = 16;
    std::unique_ptr<ExclusiveFile> result(new ExclusiveFile(path));
    for (int attempt = 0; attempt < maxAttempts; ++attempt) {
        // O_NONBLOCK and O_NOCTTY for what may stand there instead of a plain file.
        constexpr int flags = O_RDWR | O_CREAT | O_CLOEXEC | O_NONBLOCK | O_NOCTTY;
        const int file = aboveStandardStreams(::open(path, flags, 0666));
        if (file < 0 && errno == EINTR)
            continue;
        if (file < 0)
            return nullptr;
        result->_file = file;
        const Verdict verdict = tryLock(file, path);
        if (verdict == Verdict::ours) {
            result->_owner = ::getpid();
            return result;
        }
        result->_file = -1;
        ::close(file);
        if (verdict == Verdict::held)
            return nullptr;
    }
    return nullptr;
}

ExclusiveFile::~ExclusiveFile()
{
    if (_file < 0)
        return;
    // The name goes while the lock is held, or it might be that of the next holder; for the same reason it
    // has to be our file's still: the current directory may be another one by now.
    struct stat opened;
    if (isOwn() && ::fstat(_file, &opened) == 0 && isFileAt(_path, opened))
        ::unlink(_path);
    ::close(_file);
}

bool ExclusiveFile::isOwn() const { return _owner == ::getpid(); }

} // namespace orvi::platform
